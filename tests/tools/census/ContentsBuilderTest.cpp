#include "census/ContentsBuilder.h"
#include "ReceivedSection.h"
#include "census/RoundTrip.h"
#include "census/WireDecoders.h"

#include "AsPath/AspathAttrCanonical.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/ClusterList.h"
#include "OrvBgp/DomainPath.h"
#include "OrvBgp/GunkAttributes.h"
#include "OrvBgp/LinkStateAttr.h"
#include "OrvBgp/PmsiTunnel.h"
#include "OrvBgp/SrTeAttributes.h"
#include "OrvBgp/VxlanTunnelTlv.h"
#include "Routing/CommList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>
#include <typeinfo>

namespace {

using namespace Routing::Bgp;
using Census::BuildOutcome;
using Census::PathSource;
using census_test::Received;

Orvnet::IpAddr v4(const char* s) {
    return Orvnet::IpAddr::fromString(s);
}
Orvnet::IpGenAddr addr(const char* s) {
    return Orvnet::IpGenAddr::fromString(s);
}

// The contents built from section `name` without attribute `a` (one of its own), with the next-hop
// tables of `like`: what the contents must be when `a` is discarded, or kept aside.
PathAttributesContents builtWithout(const std::string& name, const Census::PathAttribute& a,
                                    const Census::ContentsBuilder& like) {
    std::vector<uint8_t> bytes = census_test::sections().at(name);
    auto at = std::search(bytes.begin(), bytes.end(), a.wire.begin(), a.wire.end());
    EXPECT_NE(at, bytes.end());
    bytes.erase(at, at + long(a.wire.size()));
    Received r(std::move(bytes), 4, PathSource::NlriField, Census::kAfiIpv4);
    Census::ContentsBuilder b(like.ipv4NexthopTable(), like.ipv6NexthopTable());
    PathAttributesContents c;
    EXPECT_TRUE(b.build(r.path(), c));
    return c;
}

const GunkPathAttr* gunk(const PathAttributesContents& c, uint8_t type) {
    return c.gunkPathAttrList() ? c.gunkPathAttrList()->gunk(type) : nullptr;
}

// Builds, interns and writes back: the differences must all be explained.
Census::RoundTripCounts expectRoundTrip(Census::ContentsBuilder& b, const Census::DecodedPath& p,
                                        const std::string& what) {
    Mel::PtrConst<PathAttributes> set = b.intern(p);
    Census::RoundTrip rt;
    if (set) rt.check(p, *set);
    EXPECT_EQ(rt.counts().mismatched(), 0u) << what << "\n" << rt.counts().toString();
    for (const auto& s : rt.counts().samples)
        ADD_FAILURE() << what << ": type " << int(s.type) << " received " << s.received
                      << " written " << s.written;
    return rt.counts();
}

// A builder with tables of its own, and contents to build into.
class ContentsBuilder : public testing::Test {
protected:
    Census::ContentsBuilder b;
    PathAttributesContents c;
};

// Each value's mapping is checked by writing the set back (every attribute equal to the one
// received, the writers being checked against their own vectors; the sections RoundTripTest writes
// back are not written again here); here, what the wire form cannot show: the objects interned,
// the class chosen, the members derived and the counts.
TEST_F(ContentsBuilder, EveryCommonTypeBecomesItsInternedObject) {
    Received r("every_common_type");
    ASSERT_TRUE(b.build(r.path(), c));
    EXPECT_EQ(c.nextHop().get(), b.ipv4NexthopTable()->nexthop(addr("192.0.2.1")).get());
    EXPECT_FALSE(c.llNextHop());
    EXPECT_EQ(c.aggregator().get(), aggregatorFactory(65001, v4("10.0.0.1")).get());
    EXPECT_TRUE(c.llgrStale()); // derived from the community list
    ASSERT_TRUE(gunk(c, 99));   // the unknown optional transitive attribute, kept as received
    EXPECT_EQ(gunk(c, 99)->attrFlags(), 0xc0);

    for (uint8_t t : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 16, 25, 26, 32})
        EXPECT_EQ(b.counts().count(t, BuildOutcome::Interned), 1u) << int(t);
    EXPECT_EQ(b.counts().count(99, BuildOutcome::KeptUnknown), 1u);
    EXPECT_EQ(b.counts().total(BuildOutcome::Discarded), 0u);
    EXPECT_EQ(b.counts().built, 1u);

    // The same section again: the very same interned set.
    Mel::PtrConst<PathAttributes> first = b.intern(r.path());
    EXPECT_EQ(b.intern(r.path()).get(), first.get());
    EXPECT_EQ(first->getType(), PathAttributeType::full);
}

TEST_F(ContentsBuilder, EveryRareTypeThroughItsWireDecoder) {
    Received r("every_rare_type");
    ASSERT_TRUE(b.build(r.path(), c));
    ASSERT_TRUE(c.pmsiTunnel() && c.pmsiTunnel()->castToIngressReplication());
    ASSERT_TRUE(c.tunnelEncap());
    ASSERT_EQ(c.tunnelEncap()->tunnelTlvs(), 2u);
    const auto* vxlan = dynamic_cast<const VxlanTunnelTlv*>(c.tunnelEncap()->tunnelTlv(0));
    ASSERT_TRUE(vxlan);
    EXPECT_TRUE(vxlan->endpoint() && vxlan->color());
    EXPECT_EQ(vxlan->unparsedSubTlvs(), 0u);
    const TunnelEncapTlvBase& second = *c.tunnelEncap()->tunnelTlv(1);
    EXPECT_EQ(typeid(second), typeid(TunnelEncapTlvUnparsed));
    EXPECT_TRUE(c.linkState() && c.domainPath());
    ASSERT_TRUE(c.prefixSid());
    EXPECT_TRUE(c.prefixSid()->labelIndexGet() && c.prefixSid()->originatorSrgbGet());
    EXPECT_FALSE(c.prefixSid()->srv6ServiceGet());
    // ATTR_SET: the inner attributes are an interned inner set, without a next hop.
    ASSERT_TRUE(c.customerAttributeSet());
    Mel::PtrConst<PathAttributes> inner = c.customerAttributeSet()->originAttributes();
    ASSERT_TRUE(inner);
    EXPECT_EQ(inner->commListGet().get(), Routing::CommList::intern({0xfde80001}).get());
    EXPECT_FALSE(inner->nextHopGet());

    for (uint8_t t : {22, 23, 29, 36, 40, 128})
        EXPECT_EQ(b.counts().count(t, BuildOutcome::Interned), 1u) << int(t);
    EXPECT_EQ(b.counts().count(4, BuildOutcome::Interned), 1u); // inside the ATTR_SET
    expectRoundTrip(b, r.path(), "every_rare_type");

    Received srv6("prefix_sid_srv6");
    ASSERT_TRUE(b.build(srv6.path(), c));
    ASSERT_TRUE(c.prefixSid() && c.prefixSid()->srv6ServiceGet());
    EXPECT_TRUE(c.prefixSid()->srv6ServiceGet()->sidStructureTlvContent().present());
    expectRoundTrip(b, srv6.path(), "prefix_sid_srv6");
}

TEST_F(ContentsBuilder, PmsiTunnelTypesBecomeTheirClasses) {
    const std::pair<const char*, const void* (*)(const PmsiTunnel&)> cases[] = {
        {"pmsi_pim_ssm", [](const PmsiTunnel& t) -> const void* { return t.castToPim(); }},
        {"pmsi_mldp",
         [](const PmsiTunnel& t) -> const void* { return t.castToMldpP2mpGenericLspId(); }},
        {"pmsi_rsvp_te", [](const PmsiTunnel& t) -> const void* { return t.castToGeneral(); }},
        {"pmsi_no_tunnel_info",
         [](const PmsiTunnel& t) -> const void* { return t.castToGeneral(); }},
    };
    for (auto [name, cast] : cases) {
        SCOPED_TRACE(name);
        Received r(name);
        ASSERT_TRUE(b.build(r.path(), c));
        ASSERT_TRUE(c.pmsiTunnel() && cast(*c.pmsiTunnel()));
        expectRoundTrip(b, r.path(), name);
    }
    EXPECT_EQ(b.counts().count(22, BuildOutcome::Interned), 8u); // each built, then interned
}

TEST_F(ContentsBuilder, ValuesTheObjectsCannotHoldAreKeptVerbatim) {
    const std::pair<const char*, uint8_t> cases[] = {
        {"kept_pmsi_label_low_bits", 22},    {"kept_prefix_sid_unknown_tlv", 40},
        {"kept_prefix_sid_label_flags", 40}, {"kept_dpath_split_sequences", 36},
        {"kept_aigp_second_tlv", 26},        {"kept_attr_set_unsorted", 128},
        {"kept_originator_zero", 9},
    };
    for (auto [name, type] : cases) {
        SCOPED_TRACE(name);
        Census::ContentsBuilder b;
        Received r(name);
        PathAttributesContents c;
        ASSERT_TRUE(b.build(r.path(), c));
        const Census::PathAttribute& sent =
            r.attributes().list.back().type == type
                ? r.attributes().list.back()
                : r.attributes().list[r.attributes().list.size() - 2];
        ASSERT_EQ(sent.type, type);
        ASSERT_TRUE(gunk(c, type));
        EXPECT_EQ(gunk(c, type)->attrFlags(), sent.flags);
        EXPECT_EQ(gunk(c, type)->gunkAttrDataBytes(), Mel::Bytes(sent.value));
        EXPECT_EQ(b.counts().count(type, BuildOutcome::KeptUnknown), 1u);
        // Nothing else of it held (a cluster list without ORIGINATOR_ID has no originator).
        c.gunkPathAttrListIs(nullptr);
        EXPECT_EQ(c, builtWithout(name, sent, b));
        expectRoundTrip(b, r.path(), name);
    }

    // A VXLAN TLV whose sub-TLVs the VXLAN object would reorder stays one TLV, as received.
    Received r("vxlan_color_first");
    ASSERT_TRUE(b.build(r.path(), c));
    ASSERT_TRUE(c.tunnelEncap());
    const TunnelEncapTlvBase& only = *c.tunnelEncap()->tunnelTlv(0);
    EXPECT_EQ(typeid(only), typeid(TunnelEncapTlvUnparsed));
    expectRoundTrip(b, r.path(), "vxlan_color_first");
}

TEST_F(ContentsBuilder, MalformedValuesAreDiscardedAndThePathStaysUsable) {
    size_t n = 0;
    for (const auto& [name, bytes] : census_test::sections()) {
        if (name.rfind("bad_", 0) != 0) continue;
        SCOPED_TRACE(name);
        ++n;
        Census::ContentsBuilder b;
        Received r(name);
        const uint8_t type = r.attributes().list.back().type;
        PathAttributesContents c;
        ASSERT_TRUE(b.build(r.path(), c));
        EXPECT_EQ(b.counts().count(type, BuildOutcome::Discarded), 1u);
        ASSERT_TRUE(c.aspathAttr() && c.nextHop()); // the rest of the path is there
        EXPECT_EQ(c, builtWithout(name, r.attributes().list.back(), b));
        const Census::RoundTripCounts rt = expectRoundTrip(b, r.path(), name);
        EXPECT_EQ(rt.byType[type].explained[size_t(Census::RoundTripReason::Discarded)], 1u);
    }
    EXPECT_GE(n, 19u);
}

TEST_F(ContentsBuilder, WithdrawalsAndTreatAsWithdrawAreNotBuilt) {
    Received good("every_common_type");
    ASSERT_TRUE(b.build(good.path(), c));
    uint64_t n = 0;
    for (const auto& [name, bytes] : census_test::sections()) {
        if (name.rfind("withdraw_", 0) != 0) continue;
        ++n;
        Received r(name);
        ASSERT_TRUE(b.build(good.path(), c));
        EXPECT_FALSE(b.build(r.path(), c)) << name;
        EXPECT_FALSE(bool(c)) << name; // reset, not left with the previous path's contents
        EXPECT_FALSE(b.intern(r.path())) << name;
    }
    EXPECT_GE(n, 12u);
    Census::DecodedPath withdrawn = good.path();
    withdrawn.source = PathSource::WithdrawnField;
    EXPECT_FALSE(b.build(withdrawn, c));
    EXPECT_EQ(b.counts().unusable, 2 * n);
    EXPECT_EQ(b.counts().withdrawals, 1u);
    EXPECT_EQ(b.counts().built, 1 + n);
    EXPECT_EQ(b.counts().paths, 2 + 3 * n);

    // A RIB entry without any attribute (the dumping router's own route) is usable and empty.
    Census::DecodedPath own;
    own.source = PathSource::RibEntry;
    EXPECT_TRUE(b.build(own, c));
    EXPECT_EQ(c, PathAttributesContents());
}

TEST_F(ContentsBuilder, NextHopsComeFromTheTableOfThePrefixFamily) {
    Received v6("mp_reach_link_local", 4, PathSource::MpReach, Census::kAfiIpv6);
    ASSERT_TRUE(b.build(v6.path(), c));
    EXPECT_EQ(c.nextHop().get(), b.ipv6NexthopTable()->nexthop(addr("2001:db8::1")).get());
    EXPECT_EQ(c.llNextHop().get(), b.ipv6NexthopTable()->nexthop(addr("fe80::1")).get());
    EXPECT_EQ(b.counts().count(3, BuildOutcome::NotInSet), 1u);
    EXPECT_EQ(b.counts().count(14, BuildOutcome::NotInSet), 1u);

    // The same UPDATE's IPv4 prefix in the NLRI field takes NEXT_HOP.
    Received v4path("mp_reach_link_local");
    ASSERT_TRUE(b.build(v4path.path(), c));
    EXPECT_EQ(c.nextHop().get(), b.ipv4NexthopTable()->nexthop(addr("192.0.2.1")).get());
    EXPECT_FALSE(c.llNextHop());
    expectRoundTrip(b, v4path.path(), "IPv4 prefix");

    // Builders that share tables share next hops; a builder with its own tables does not.
    Census::ContentsBuilder shared(b.ipv4NexthopTable(), b.ipv6NexthopTable());
    Census::ContentsBuilder own;
    PathAttributesContents c2, c3;
    ASSERT_TRUE(shared.build(v4path.path(), c2));
    ASSERT_TRUE(own.build(v4path.path(), c3));
    EXPECT_EQ(c2.nextHop().get(), c.nextHop().get());
    EXPECT_NE(c3.nextHop().get(), c.nextHop().get());
}

TEST_F(ContentsBuilder, As4AttributesFoldIntoPathAndAggregatorOnTwoByteSessions) {
    Received r("as4_folding", 2);
    ASSERT_TRUE(b.build(r.path(), c));
    AspathAttrCanonicalContent folded;
    folded.segmentAdd(AsSegmentType::asSequence_, {65000});
    folded.segmentAdd(AsSegmentType::asSequence_, {65536, 65537, 100});
    EXPECT_EQ(c.aspathAttr().get(), aspathAttrCanonicalFactory(folded).get());
    EXPECT_EQ(c.aggregator().get(), aggregatorFactory(65536, v4("10.0.0.1")).get());
    EXPECT_EQ(b.counts().count(17, BuildOutcome::Interned), 1u);
    EXPECT_EQ(b.counts().count(18, BuildOutcome::Interned), 1u);
}

TEST_F(ContentsBuilder, ASecondAttributeOfOneTypeIsIgnored) {
    Received r("duplicate_med");
    ASSERT_TRUE(b.build(r.path(), c));
    EXPECT_EQ(c.med(), MultiExitDiscriminator(1));
    EXPECT_EQ(b.counts().count(4, BuildOutcome::Interned), 1u);
    EXPECT_EQ(b.counts().count(4, BuildOutcome::Duplicate), 1u);
}

// Damaged copies of every section (bit flips and cuts, fixed seed): never a crash, and whatever
// is built writes back with every difference explained.
TEST_F(ContentsBuilder, DamagedSectionsNeverCrashAndRoundTripExplained) {
    std::mt19937 rng(20240611);
    Census::RoundTrip rt;
    size_t built = 0;
    for (const auto& [name, bytes] : census_test::sections()) {
        for (int i = 0; i < 200; ++i) {
            std::vector<uint8_t> damaged = bytes;
            if (i % 5 == 4) {
                damaged.resize(rng() % damaged.size());
            } else {
                for (int flips = 1 + int(rng() % 3); flips; --flips)
                    damaged[rng() % damaged.size()] ^= uint8_t(1u << (rng() % 8));
            }
            Received r(std::move(damaged), name == "as4_folding" ? 2 : 4, PathSource::NlriField,
                       Census::kAfiIpv4);
            Mel::PtrConst<PathAttributes> set = b.intern(r.path());
            if (!set) continue;
            ++built;
            rt.check(r.path(), *set);
        }
    }
    EXPECT_GT(built, 500u);
    EXPECT_EQ(rt.counts().mismatched(), 0u) << rt.counts().toString();
    for (const auto& s : rt.counts().samples)
        ADD_FAILURE() << "type " << int(s.type) << " received " << s.received << " written "
                      << s.written;
}

TEST(ContentsBuilderConcurrent, PerThreadBuildersSharingTablesAgree) {
    Census::ContentsBuilder first;
    std::vector<std::string> names;
    for (const auto& [name, bytes] : census_test::sections())
        if (name.rfind("withdraw_", 0) != 0) names.push_back(name);
    std::vector<std::vector<const PathAttributes*>> seen(2);
    std::vector<std::vector<Mel::PtrConst<PathAttributes>>> held(2);
    auto work = [&](int t) {
        Census::ContentsBuilder b(first.ipv4NexthopTable(), first.ipv6NexthopTable());
        for (int round = 0; round < 40; ++round)
            for (const std::string& name : names) {
                Received r(name, name == "as4_folding" ? 2 : 4, PathSource::NlriField,
                           Census::kAfiIpv4);
                Mel::PtrConst<PathAttributes> set = b.intern(r.path());
                if (round == 0) {
                    seen[t].push_back(set.get());
                    held[t].push_back(set);
                }
            }
    };
    std::thread a(work, 0), c(work, 1);
    a.join();
    c.join();
    EXPECT_EQ(seen[0], seen[1]);
}

TEST(BuildCounts, MergeAddsEveryCounter) {
    Census::BuildCounts a, b;
    a.paths = 3, a.built = 2, a.unusable = 1;
    a.byType[8][size_t(BuildOutcome::Interned)] = 5;
    b.paths = 1, b.withdrawals = 1;
    b.byType[8][size_t(BuildOutcome::Interned)] = 2;
    b.byType[99][size_t(BuildOutcome::KeptUnknown)] = 1;
    a.merge(b);
    EXPECT_EQ(a.paths, 4u);
    EXPECT_EQ(a.built, 2u);
    EXPECT_EQ(a.withdrawals, 1u);
    EXPECT_EQ(a.unusable, 1u);
    EXPECT_EQ(a.count(8, BuildOutcome::Interned), 7u);
    EXPECT_EQ(a.total(BuildOutcome::KeptUnknown), 1u);
}

} // namespace
