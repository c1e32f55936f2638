#include "census/AttributeDecoder.h"

#include "CensusTestUtil.h"

#include <gtest/gtest.h>

using namespace census_test;
using namespace Census;

namespace {

constexpr ErrorAction kNone = ErrorAction::None;
constexpr ErrorAction kDiscard = ErrorAction::AttributeDiscard;
constexpr ErrorAction kTaw = ErrorAction::TreatAsWithdraw;
constexpr ErrorAction kReset = ErrorAction::SessionReset;

Bytes v6(uint8_t last) {
    Bytes b = {0x20, 0x01, 0x0d, 0xb8};
    b.resize(16);
    b[15] = last;
    return b;
}

} // namespace

// One malformed attribute behind well-formed ones: the one issue found, its RFC 7606 action, and
// that the attribute does not count as present.
TEST(AttributeDecoder, ClassifiesMalformedAttributes) {
    const Bytes mpIpv6Head = cat({u16(2), u8(1)});
    using M = Malformation;
    struct Case {
        const char* name;
        Bytes attr;
        uint8_t type;
        Malformation what;
        ErrorAction action;
        uint8_t asnSize = 4;
    } cases[] = {
        {"origin length", attr(0x40, 1, {0, 0}), 1, M::Length, kTaw},
        {"origin value", attr(0x40, 1, {3}), 1, M::Value, kTaw},
        {"origin optional", attr(0xc0, 1, {0}), 1, M::Flags, kTaw},
        {"as_path segment type", attr(0x40, 2, segment(5, {1}, 4)), 2, M::Value, kTaw},
        {"as_path empty segment", attr(0x40, 2, {2, 0}), 2, M::Value, kTaw},
        {"as_path overrun", attr(0x40, 2, {2, 2, 0, 0, 0, 1, 0, 0}), 2, M::Value, kTaw},
        {"as_path 4-byte data on a 2-byte session", attr(0x40, 2, segment(2, {70000}, 4)), 2,
         M::Value, kTaw, 2},
        {"next_hop length", attr(0x40, 3, {1, 2, 3, 4, 5}), 3, M::Length, kTaw},
        {"med length", attr(0x80, 4, {0, 0, 1}), 4, M::Length, kTaw},
        {"med well-known", attr(0x40, 4, u32(1)), 4, M::Flags, kTaw},
        {"local_pref length", attr(0x40, 5, {}), 5, M::Length, kTaw},
        {"atomic_aggregate length", attr(0x40, 6, {0}), 6, M::Length, kDiscard},
        {"aggregator 2-byte form on a 4-byte session", attr(0xc0, 7, cat({u16(1), u32(1)})), 7,
         M::Length, kDiscard},
        {"aggregator 4-byte form on a 2-byte session", attr(0xc0, 7, cat({u32(1), u32(1)})), 7,
         M::Length, kDiscard, 2},
        {"communities empty", attr(0xc0, 8, {}), 8, M::Length, kTaw},
        {"communities length", attr(0xc0, 8, {0, 0, 0, 1, 0}), 8, M::Length, kTaw},
        {"originator_id length", attr(0x80, 9, {1, 2, 3}), 9, M::Length, kTaw},
        {"cluster_list length", attr(0x80, 10, {1, 2, 3, 4, 5, 6}), 10, M::Length, kTaw},
        {"mp_reach too short", attr(0x80, 14, {0, 2, 1}), 14, M::Length, kReset},
        {"mp_reach next hop past the end", attr(0x80, 14, cat({mpIpv6Head, u8(16), v6(1)})), 14,
         M::Length, kReset},
        {"mp_reach next hop length", attr(0x80, 14, cat({mpIpv6Head, u8(5), Bytes(5, 1), u8(0)})),
         14, M::Length, kReset},
        {"mp_reach prefix too long",
         attr(0x80, 14, cat({mpIpv6Head, u8(16), v6(1), u8(0), u8(129), Bytes(17, 0)})), 14,
         M::Nlri, kReset},
        {"mp_unreach too short", attr(0x80, 15, {0, 2}), 15, M::Length, kReset},
        {"mp_unreach prefix cut", attr(0x80, 15, cat({mpIpv6Head, u8(48), Bytes(3, 1)})), 15,
         M::Nlri, kReset},
        {"ext_communities length", attr(0xc0, 16, Bytes(12, 0)), 16, M::Length, kTaw},
        {"as4_path malformed", attr(0xc0, 17, {2, 1, 0, 0}), 17, M::Value, kDiscard, 2},
        {"as4_aggregator length", attr(0xc0, 18, Bytes(6, 0)), 18, M::Length, kDiscard, 2},
        {"ipv6_ext_communities length", attr(0xc0, 25, Bytes(21, 0)), 25, M::Length, kTaw},
        {"aigp tlv length", attr(0x80, 26, cat({u8(1), u16(10), Bytes(7, 0)})), 26, M::Length,
         kDiscard},
        {"aigp without its tlv", attr(0x80, 26, cat({u8(2), u16(4), u8(0)})), 26, M::Value,
         kDiscard},
        {"large_community length", attr(0xc0, 32, Bytes(13, 0)), 32, M::Length, kTaw},
        {"unknown well-known", attr(0x40, 99, {1}), 99, M::UnrecognizedWellKnown, kReset},
        {"header cut", {0x40, 5}, 0, M::AttributeListOverrun, kTaw},
        {"extended header cut", {0x50, 5, 0}, 5, M::AttributeListOverrun, kTaw},
        {"value past the section", {0x40, 5, 4, 0, 0, 0}, 5, M::AttributeListOverrun, kTaw},
    };
    AttributeDecoder dec;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes good = cat({attr(0xc0, 201, {1}), attr(0x80, 202, {2})});
        const Bytes section = cat({good, c.attr});
        const DecodedAttributes& a = dec.decode(section, {.asnSize = c.asnSize});
        ASSERT_EQ(a.issues.size(), 1u);
        EXPECT_EQ(a.issues[0].type, c.type);
        EXPECT_EQ(a.issues[0].what, c.what) << malformationName(a.issues[0].what);
        EXPECT_EQ(a.issues[0].action, c.action);
        EXPECT_EQ(a.action, c.action);
        if (c.type) {
            EXPECT_FALSE(a.has(c.type));
        }
        EXPECT_TRUE(a.has(201));
        EXPECT_TRUE(a.has(202));
    }
}

TEST(AttributeDecoder, DuplicatesKeepTheFirstExceptMpAttributes) {
    AttributeDecoder dec;
    const Bytes section = cat({attr(0xc0, 8, u32(1)), attr(0xc0, 8, u32(2)), attr(0x40, 1, {0})});
    const DecodedAttributes& a = dec.decode(section, {});
    ASSERT_EQ(a.issues.size(), 1u);
    EXPECT_EQ(a.issues[0].what, Malformation::Duplicate);
    EXPECT_EQ(a.action, kDiscard);
    ASSERT_TRUE(a.has(8));
    EXPECT_EQ(a.communities[0], 1u);
    EXPECT_EQ(a.list.size(), 3u);
    EXPECT_EQ(a.list[1].action, kDiscard);

    const Bytes mpu = attr(0x80, 15, cat({u16(1), u8(1)}));
    const Bytes twice = cat({mpu, mpu});
    EXPECT_EQ(dec.decode(twice, {}).action, kReset);
}

TEST(AttributeDecoder, DecodesEveryKnownAttributeAndKeepsTheRestRaw) {
    const Bytes mpReach = cat({u16(2), u8(1), u8(32), v6(1), Bytes{0xfe, 0x80}, Bytes(13, 0), u8(1),
                               u8(0), u8(48), Bytes{0x20, 0x01, 0x0d, 0xb8, 0, 1}, u8(0)});
    const Bytes section = cat({
        attr(0x40, 1, {2}),
        attr(0x40, 2,
             cat({segment(2, {64496, 4200000000u}, 4), segment(1, {1, 2}, 4), segment(3, {3}, 4),
                  segment(4, {4, 5}, 4)})),
        attr(0x40, 3, ip4(192, 0, 2, 1)),
        attr(0x80, 4, u32(50)),
        attr(0x40, 5, u32(200), true),
        attr(0x40, 6, {}),
        attr(0xc0, 7, cat({u32(4200000001u), ip4(198, 51, 100, 1)})),
        attr(0xe0, 8, cat({u32(0x00010002), u32(0xffffff01)})),
        attr(0x80, 9, ip4(10, 9, 9, 9)),
        attr(0x80, 10, cat({ip4(1, 1, 1, 1), ip4(2, 2, 2, 2)})),
        attr(0x80, 14, mpReach),
        attr(0x80, 15, cat({u16(1), u8(1), prefix4(10, 0, 0, 0, 8)})),
        attr(0xe0, 16, cat({u32(0x00020001), u32(0x00000064)})),
        attr(0xc0, 25, Bytes(20, 7)),
        attr(0x80, 26, cat({u8(1), u16(11), u32(0), u32(1000)})),
        attr(0xc0, 32, cat({u32(4200000000u), u32(1), u32(2)})),
        attr(0xc0, 200, {9, 8, 7}),
    });
    AttributeDecoder dec;
    const DecodedAttributes& a = dec.decode(section, {.asnSize = 4});
    EXPECT_EQ(a.action, kNone);
    EXPECT_TRUE(a.issues.empty());
    ASSERT_EQ(a.list.size(), 17u);
    // The values themselves are written back and compared in the round-trip tests (the section
    // every_common_type holds each of these types) and printed in the bgpdump edge cases; here,
    // what only this decoder's view shows.
    EXPECT_EQ(a.effectiveAsPath().toString(), "64496 4200000000 {1,2} (3) [4,5]");
    EXPECT_EQ(a.mpReach.nextHop.toString(), "2001:db8::1");
    ASSERT_EQ(a.mpReachPrefixes.size(), 2u);
    EXPECT_EQ(a.mpReachPrefixes[0].toString(), "2001:db8:1::/48");
    EXPECT_EQ(a.mpReachPrefixes[1].toString(), "::/0");
    // As received: flags (Partial included), the value, and the exact wire bytes.
    EXPECT_EQ(a.list[7].flags, 0xe0);
    EXPECT_TRUE(a.has(200));
    EXPECT_EQ(Bytes(a.list[16].value.begin(), a.list[16].value.end()), (Bytes{9, 8, 7}));
    EXPECT_EQ(a.list[4].wire.size(), 8u); // extended-length header of LOCAL_PREF
    size_t total = 0;
    for (const PathAttribute& p : a.list)
        total += p.wire.size();
    EXPECT_EQ(total, section.size());
}

TEST(AttributeDecoder, AbbreviatedNextHopOfRibEntries) {
    AttributeDecoder dec;
    AttributeContext rib{.asnSize = 4, .ribEntry = true, .ribAfi = kAfiIpv6};
    const DecodedAttributes& a = dec.decode(attr(0x80, 14, cat({u8(16), v6(9)})), rib);
    EXPECT_TRUE(a.mpReach.abbreviated);
    EXPECT_EQ(a.mpReach.nextHop.toString(), "2001:db8::9");
    rib.ribAfi = kAfiIpv4;
    EXPECT_EQ(
        dec.decode(attr(0x80, 14, cat({u8(4), ip4(192, 0, 2, 7)})), rib).mpReach.nextHop.toString(),
        "192.0.2.7");
    // Outside a RIB entry the same bytes are a (short) full MP_REACH_NLRI.
    EXPECT_EQ(dec.decode(attr(0x80, 14, cat({u8(4), ip4(192, 0, 2, 7)})), {}).action, kReset);
}

// AS4_PATH folding on 2-byte sessions (RFC 6793 4.2.3). A row with an AGGREGATOR (from
// 1.1.1.1) has an AS4_AGGREGATOR too: AS 4200000009 from 2.2.2.2.
TEST(AttributeDecoder, FoldsAs4PathIntoTwoByteAsPath) {
    const uint32_t T = 23456, A = 4200000001u, B = 4200000002u;
    auto seq2 = [](std::initializer_list<uint32_t> as) { return segment(2, as, 2); };
    auto seq4 = [](std::initializer_list<uint32_t> as) { return segment(2, as, 4); };
    struct Case {
        const char* name;
        Bytes asPath, as4Path;
        const char* expect;
        uint32_t aggregatorAs = 0, expectAggregatorAs = 0;
    } cases[] = {
        {"plain", seq2({64496, T, T}), seq4({A, B}), "64496 4200000001 4200000002"},
        {"leading part spans segments", cat({seq2({64496}), seq2({64497, T, T})}), seq4({A, B}),
         "64496 64497 4200000001 4200000002"},
        {"a set counts one", cat({segment(1, {1, 2, 3}, 2), seq2({T})}), seq4({A}),
         "{1,2,3} 4200000001"},
        {"as4_path longer: ignored", seq2({T}), seq4({A, 5}), "23456"},
        // Confederation segments count nothing (RFC 5065 5.3); in AS4_PATH they are discarded
        // (RFC 6793 6), in AS_PATH they stay in front of the folded path.
        {"confederation set in both", cat({segment(4, {64500, 64501}, 2), seq2({T})}),
         segment(4, {4200000003u, 4200000004u}, 4), "[64500,64501] 23456"},
        {"confederation sequence kept before the folded part",
         cat({segment(3, {64500}, 2), seq2({T, 64496})}),
         cat({segment(3, {4200000005u}, 4), seq4({A, 64496})}), "(64500) 4200000001 64496"},
        {"confederation segments do not make AS4_PATH the longer", seq2({T, T}),
         cat({segment(3, {1, 2, 3}, 4), seq4({A, B})}), "4200000001 4200000002"},
        {"aggregator is AS_TRANS", seq2({64496, T}), seq4({A}), "64496 4200000001", T, 4200000009u},
        {"aggregator is not AS_TRANS: both AS4 attributes ignored", seq2({64496, T}), seq4({A}),
         "64496 23456", 64500, 64500},
    };
    AttributeDecoder dec;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes section = cat({attr(0x40, 2, c.asPath), attr(0xc0, 17, c.as4Path)});
        if (c.aggregatorAs)
            section =
                cat({section, attr(0xc0, 7, cat({u16(uint16_t(c.aggregatorAs)), ip4(1, 1, 1, 1)})),
                     attr(0xc0, 18, cat({u32(4200000009u), ip4(2, 2, 2, 2)}))});
        const DecodedAttributes& a = dec.decode(section, {.asnSize = 2});
        EXPECT_EQ(a.action, kNone);
        EXPECT_EQ(a.effectiveAsPath().toString(), c.expect);
        if (c.aggregatorAs) {
            EXPECT_EQ(a.effectiveAggregator().as, c.expectAggregatorAs);
        }
        // A 4-byte session never folds: its AS_PATH is already whole.
        const Bytes wide =
            cat({attr(0x40, 2, segment(2, {64496, T}, 4)), attr(0xc0, 17, c.as4Path)});
        EXPECT_EQ(dec.decode(wide, {.asnSize = 4}).effectiveAsPath().toString(), "64496 23456");
    }
}
