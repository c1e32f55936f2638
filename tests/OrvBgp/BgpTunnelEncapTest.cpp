// Tunnel encapsulation: wire forms against hand-written vectors, interning rules (order, the narrow
// unparsed-TLV identity), tables and their forms, text forms, store read-back, assertion texts,
// and interning from several threads.
#include "OrvBgp/BgpTunnelEncap.h"

#include "Keel/HashMix.h"
#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "OrvBgp/VxlanTunnelTlv.h"
#include "Serialize/Serialize.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <span>
#include <sstream>
#include <thread>
#include <vector>

namespace Routing::Bgp {
namespace {

using OrvTest::assertionPattern;
using OrvTest::hexOf;

const std::string unit = "OrvBgp/BgpTunnelEncap";

Orvnet::IpGenAddr addr(const char* text) {
    return Orvnet::IpGenAddr::fromString(text);
}

Mel::Bytes hex(const char* h) {
    return Mel::Bytes::fromHex(h);
}

const std::map<std::string, Mel::Bytes>& vectors() {
    static const auto v = OrvTest::attrWireVectors("TunnelEncap");
    return v;
}

Mel::PtrConst<UnparsedSubTlv> subTlv(uint8_t type, const char* data) {
    return UnparsedSubTlv::intern(UnparsedSubTlvContent(type, hex(data)));
}

Mel::PtrConst<TunnelEncapTlvUnparsed> unparsed(uint16_t type, const char* data,
                                               const Mel::PtrConst<EndpointSubTlv>& ep = {}) {
    TunnelEncapTlvUnparsedContent c(type, hex(data));
    c.endpointIs(ep);
    return TunnelEncapTlvUnparsed::intern(c);
}

Mel::PtrConst<VxlanTunnelTlv> vxlan(const char* endpoint, const Mel::PtrConst<ColorSubTlv>& color,
                                    std::vector<Mel::PtrConst<UnparsedSubTlv>> extra = {}) {
    VxlanTunnelTlvContent c;
    if (endpoint) c.endpointIs(EndpointSubTlv::intern(addr(endpoint)));
    c.colorIs(color);
    for (const auto& s : extra)
        c.unparsedSubTlvIs(s);
    return VxlanTunnelTlv::intern(c);
}

Mel::PtrConst<TunnelEncap>
attribute(std::initializer_list<Mel::PtrConst<TunnelEncapTlvBase>> tlvs) {
    TunnelEncapContent c;
    for (const auto& t : tlvs)
        c.tunnelTlvIs(t);
    return TunnelEncap::intern(c);
}

std::string text(const TunnelEncap* t) {
    std::ostringstream os;
    os << t;
    return os.str();
}

// ---- Interning contract ------------------------------------------------------------------------

// A family interned by its class's intern() into Table; its objects dedup into Table themselves.
template <class O, class Table>
struct ClassInterned : InternTableOf<Table> {
    using Object = O;
    template <class Content>
    static Mel::PtrConst<O> intern(const Content& c) {
        return O::intern(c);
    }
    static auto dedup(const Mel::PtrConst<O>& p) { return p->dedup(&Table::instance()); }
};

struct UnparsedTlvTraits : ClassInterned<TunnelEncapTlvUnparsed, TunnelEncapTlvUnparsedDedupTable> {
    static TunnelEncapTlvUnparsedContent content(int i) {
        // Types, stored lengths and data all vary; i and i + 1 differ in at least one.
        return TunnelEncapTlvUnparsedContent(uint16_t(100 + i % 4), uint16_t(i / 4),
                                             Mel::Bytes(std::vector<uint8_t>(size_t(i % 3), 7)));
    }
};

struct VxlanTraits : ClassInterned<VxlanTunnelTlv, VxlanTunnelTlvDedupTable> {
    static VxlanTunnelTlvContent content(int i) {
        VxlanTunnelTlvContent c;
        c.endpointIs(
            EndpointSubTlv::intern(Orvnet::IpAddr::fromHostOrder(0xc6336400 + uint32_t(i / 2))));
        if (i % 2) c.colorIs(ColorSubTlv::intern(uint32_t(i)));
        return c;
    }
};

struct TunnelEncapTraits : ClassInterned<TunnelEncap, TunnelEncapDedupTable> {
    // 0 is the empty attribute; others hold 1 to 8 TLVs, from a run of stored lengths that
    // starts at a multiple of 8.
    static TunnelEncapContent content(int i) {
        TunnelEncapContent c;
        if (i == 0) return c;
        const int count = 1 + (i - 1) % 8, first = 8 * ((i - 1) / 8);
        for (int k = 0; k < count; ++k)
            c.tunnelTlvIs(TunnelEncapTlvUnparsed::intern(
                TunnelEncapTlvUnparsedContent(2, uint16_t(first + k), Mel::Bytes())));
        return c;
    }
};

// A sub-TLV family interned by its factory into Table, whose own dedup interns it again.
template <class O, class Table, auto factory>
struct FactoryInterned : InternTableDedupOf<Table> {
    using Object = O;
    template <class Content>
    static Mel::PtrConst<O> intern(const Content& c) {
        return factory(c);
    }
};

struct EndpointTraits
    : FactoryInterned<EndpointSubTlv, EndpointSubTlvDedupTable, endpointSubTlvFactory> {
    static EndpointSubTlvContent content(int i) {
        if (i == 0) return EndpointSubTlvContent();
        return EndpointSubTlvContent(
            i % 2 ? Orvnet::IpGenAddr(Orvnet::IpAddr::fromHostOrder(0x0a000000 + uint32_t(i)))
                  : addr(("2001:db8::" + std::to_string(i)).c_str()));
    }
};

struct ColorTraits : FactoryInterned<ColorSubTlv, ColorSubTlvDedupTable, colorSubTlvFactory> {
    static ColorSubTlvContent content(int i) {
        return ColorSubTlvContent(uint32_t(i / 2), uint16_t(i % 2));
    }
};

struct UnparsedSubTlvTraits
    : FactoryInterned<UnparsedSubTlv, UnparsedSubTlvDedupTable, unparsedSubTlvFactory> {
    static UnparsedSubTlvContent content(int i) {
        return UnparsedSubTlvContent(uint8_t(120 + i % 16), uint16_t(i / 16),
                                     Mel::Bytes(std::vector<uint8_t>(size_t(i / 16), 1)));
    }
};

using TunnelEncapTypes = ::testing::Types<UnparsedTlvTraits, VxlanTraits, TunnelEncapTraits,
                                          EndpointTraits, ColorTraits, UnparsedSubTlvTraits>;
INSTANTIATE_TYPED_TEST_SUITE_P(TunnelEncap, InternContract, TunnelEncapTypes);

// ---- Wire forms --------------------------------------------------------------------------------

TEST(TunnelEncapWire, AttributesMatchVectors) {
    auto colored = ColorSubTlv::intern(ColorSubTlvContent(7, 0x0001));
    auto encaps = subTlv(1, "80000064 000000000000 0000");
    const std::pair<const char*, Mel::PtrConst<TunnelEncap>> cases[] = {
        {"empty", attribute({})},
        {"unparsed_gre", attribute({unparsed(2, "7f03aabbcc c80003ddeeff")})},
        {"two_tlvs_ab", attribute({unparsed(2, "7f01aa"), unparsed(9, "")})},
        {"two_tlvs_ba", attribute({unparsed(9, ""), unparsed(2, "7f01aa")})},
        {"vxlan_v4_color", attribute({vxlan("192.0.2.1", ColorSubTlv::intern(100))})},
        {"vxlan_v6", attribute({vxlan("2001:db8::1", nullptr)})},
        {"vxlan_full", attribute({vxlan("10.0.0.1", colored, {encaps})})},
        {"vxlan_empty", attribute({vxlan(nullptr, nullptr)})},
    };
    for (const auto& [name, attr] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(hexOf(attr->serialize()), hexOf(vectors().at(name)));
    }
}

// The stored length goes on the wire even where it disagrees with the data; the endpoint and
// unparsed sub-TLVs of an unparsed TLV's content are not written (its bytes already hold them).
TEST(TunnelEncapWire, UnparsedTlvWritesStoredLengthAndRawBytesOnly) {
    TunnelEncapTlvUnparsedContent c(2, 5, hex("010203"));
    c.endpointIs(EndpointSubTlv::intern(addr("192.0.2.1")));
    c.unparsedSubTlvIs(subTlv(200, "ff"));
    auto tlv = TunnelEncapTlvUnparsed::intern(c);
    EXPECT_EQ(hexOf(tlv->serialize()), "00 02 00 05 01 02 03");
    EXPECT_EQ(hexOf(attribute({tlv})->serialize()), hexOf(vectors().at("unparsed_len_kept")));
}

TEST(TunnelEncapWire, SubTlvLengthWidthFollowsTheTypesHighBit) {
    EXPECT_EQ(hexOf(subTlv(127, "aabbcc")->serialize()), hexOf(vectors().at("subtlv_127")));
    EXPECT_EQ(hexOf(subTlv(128, "aabbcc")->serialize()), hexOf(vectors().at("subtlv_128")));
    auto len300 = [](uint8_t type) {
        return UnparsedSubTlv::intern(UnparsedSubTlvContent(type, 300, Mel::Bytes()))->serialize();
    };
    EXPECT_EQ(hexOf(len300(127)), hexOf(vectors().at("subtlv_127_len300")));
    EXPECT_EQ(hexOf(len300(128)), hexOf(vectors().at("subtlv_128_len300")));
    EXPECT_EQ(hexOf(Mel::Bytes(SerializedBgpTunnelEncapSubTlv(255, 0x1234).bytes())), "ff 12 34");
    EXPECT_EQ(hexOf(Mel::Bytes(SerializedBgpTunnelEncapSubTlv(0, 0x1234).bytes())), "00 34");
    EXPECT_EQ(hexOf(Mel::Bytes(SerializedBgpTunnelEncap(0xabcd, 0x0102).bytes())), "ab cd 01 02");
    EXPECT_EQ(subTlv(127, "aabbcc")->serializedSize(), 5u);
    EXPECT_EQ(subTlv(128, "aabbcc")->serializedSize(), 6u);
}

TEST(TunnelEncapWire, EndpointAndColorSubTlvs) {
    EXPECT_EQ(hexOf(EndpointSubTlv::intern(Orvnet::IpGenAddr())->serialize()),
              hexOf(vectors().at("endpoint_none")));
    EXPECT_EQ(EndpointSubTlv::intern(addr("2001:db8::1"))->subTlvLen(), 22);
    EXPECT_EQ(hexOf(ColorSubTlv::intern(ColorSubTlvContent(0xfedcba98, 0x8000))->serialize()),
              "04 08 03 0b 80 00 fe dc ba 98");
}

TEST(TunnelEncapWire, MoreThan255BytesTakesTheExtendedLength) {
    std::vector<uint8_t> data(290);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = uint8_t(i);
    TunnelEncapContent c;
    TunnelEncapTlvUnparsedContent tlv(2, Mel::Bytes());
    // The raw value: one 290-byte sub-TLV of type 200, header included.
    std::vector<uint8_t> raw = {0xc8, 0x01, 0x22};
    raw.insert(raw.end(), data.begin(), data.end());
    tlv.tunnelTlvDataIs(Mel::Bytes(raw));
    tlv.tlvLenIs(uint16_t(raw.size()));
    c.tunnelTlvIs(TunnelEncapTlvUnparsed::intern(tlv));
    EXPECT_EQ(hexOf(TunnelEncap::intern(c)->serialize()), hexOf(vectors().at("long_extended")));

    // The same bytes from a VXLAN TLV carrying the sub-TLV as unparsed.
    VxlanTunnelTlvContent v;
    v.unparsedSubTlvIs(UnparsedSubTlv::intern(UnparsedSubTlvContent(200, Mel::Bytes(data))));
    auto vx = VxlanTunnelTlv::intern(v);
    EXPECT_EQ(vx->valueLength(), raw.size());
    const Mel::Bytes b = attribute({vx})->serialize();
    EXPECT_EQ(hexOf(Mel::Bytes(b.data(), 8)), "d0 17 01 29 00 08 01 25");
}

TEST(TunnelEncapWire, SerializeTracesAtLevelFiveWithoutChangingTheBytes) {
    auto t = attribute(
        {unparsed(2, "7f01aa"), vxlan("192.0.2.1", ColorSubTlv::intern(3), {subTlv(200, "01")})});
    const Mel::Bytes quiet = t->serialize();
    OrvTest::TraceCapture at5(5);
    EXPECT_EQ(t->serialize(), quiet);
    EXPECT_EQ(at5.lines, (std::vector<std::string>{
                             "Serializing: TunnelEncap::serialize()",
                             "Serializing: TunnelEncap::serialize() for tunnelType 2",
                             "Serializing: TunnelEncapTlvUnparsed::serialize()",
                             "Serializing: TunnelEncap::serialize() for tunnelType 8",
                             "Serializing: VxlanTunnelTlv::serialize()",
                             "Serializing: EndpointSubTlv::serialize()",
                             "Serializing: ColorSubTlv::serialize()",
                             "Serializing: UnparsedSubTlv::serialize()",
                         }));
    OrvTest::TraceCapture at4(4);
    t->serialize();
    EXPECT_TRUE(at4.lines.empty());
}

// ---- Interning rules ---------------------------------------------------------------------------

// The same TLVs in another order, one TLV less, or the same TLV twice: another attribute.
TEST(TunnelEncapInterning, OrderOfTlvsMakesAnotherAttribute) {
    auto a = unparsed(2, "7f01aa");
    auto b = unparsed(9, "");
    auto ab = attribute({a, b});
    for (const auto& other : {attribute({b, a}), attribute({a}), attribute({a, a})}) {
        SCOPED_TRACE(other->toStrep());
        EXPECT_NE(other.get(), ab.get());
        EXPECT_FALSE(ab->compare(other.get()));
        EXPECT_FALSE(tunnelEncapCompareImpl(ab->content(), other->content()));
    }
    EXPECT_TRUE(tunnelEncapCompareImpl(ab->content(), ab->content()));
    EXPECT_TRUE(tunnelEncapCompareImpl(TunnelEncapContent(), TunnelEncapContent()));
    EXPECT_EQ(attribute({a, a})->tunnelTlvs(), 2u);
}

TEST(TunnelEncapInterning, UnparsedTlvIgnoresEndpointAndSubTlvs) {
    auto ep1 = EndpointSubTlv::intern(addr("192.0.2.1"));
    auto ep2 = EndpointSubTlv::intern(addr("192.0.2.2"));
    TunnelEncapTlvUnparsedContent c1(77, hex("0102"));
    c1.endpointIs(ep1);
    TunnelEncapTlvUnparsedContent c2(77, hex("0102"));
    c2.endpointIs(ep2);
    c2.unparsedSubTlvIs(subTlv(3, "00"));
    // The contents differ, but their hashes and the interned object do not.
    EXPECT_FALSE(c1 == c2);
    EXPECT_EQ(c1.hash(), c2.hash());
    auto t1 = TunnelEncapTlvUnparsed::intern(c1);
    auto t2 = TunnelEncapTlvUnparsed::intern(c2);
    EXPECT_EQ(t1.get(), t2.get());
    EXPECT_EQ(t2->endpoint(), ep1.get()); // the first one's
    EXPECT_EQ(t2->unparsedSubTlvs(), 0u);
    EXPECT_EQ(t1->content(), c1);
    // Type, length or data apart: another object.
    EXPECT_NE(unparsed(78, "0102").get(), t1.get());
    EXPECT_NE(TunnelEncapTlvUnparsed::intern({77, 3, hex("0102")}).get(), t1.get());
    EXPECT_NE(unparsed(77, "0103").get(), t1.get());
}

// Equal VXLAN TLVs meeting in one object is the contract's; here, each sub-TLV tells them apart.
TEST(TunnelEncapInterning, VxlanTlvIdentityCoversEverySubTlv) {
    auto red = ColorSubTlv::intern(1);
    auto base = vxlan("192.0.2.1", red);
    EXPECT_NE(vxlan("192.0.2.2", red).get(), base.get());
    EXPECT_NE(vxlan("192.0.2.1", ColorSubTlv::intern(2)).get(), base.get());
    EXPECT_NE(vxlan("192.0.2.1", nullptr).get(), base.get());
    auto withSub = vxlan("192.0.2.1", red, {subTlv(1, "00")});
    EXPECT_NE(withSub.get(), base.get());
    EXPECT_NE(vxlan("192.0.2.1", red, {subTlv(1, "01")}).get(), withSub.get());
    // The tunnel type comes from the class, whatever the content held.
    VxlanTunnelTlvContent c = base->content();
    c.tunnelTypeIs(3);
    EXPECT_EQ(VxlanTunnelTlv::intern(c).get(), base.get());
    EXPECT_EQ(withSub->content().unparsedSubTlvs(), 1u);
}

// An object a factory built outside the table joins it through dedup: as the equal interned
// object if there is one (staying outside itself), else as itself.
TEST(TunnelEncapInterning, FactoriesBuildObjectsThatDedupJoins) {
    auto* table = &TunnelEncapTlvUnparsedDedupTable::instance();
    auto interned = unparsed(40, "aa");
    auto loose = tunnelEncapTlvUnparsedFactory({40, hex("aa")});
    EXPECT_EQ(loose->dedup(table).get(), interned.get());
    EXPECT_FALSE(loose->everDeduped());
    auto fresh = tunnelEncapTlvUnparsedFactory({41, hex("aa")});
    EXPECT_EQ(fresh->dedup(table).get(), fresh.get());
    EXPECT_EQ(unparsed(41, "aa").get(), fresh.get());

    TunnelEncapContent c;
    c.tunnelTlvIs(interned);
    auto* encaps = &TunnelEncapDedupTable::instance();
    auto attr = tunnelEncapFactory(c);
    EXPECT_FALSE(attr->everDeduped());
    EXPECT_EQ(attr->dedup(encaps).get(), attr.get());
    EXPECT_EQ(TunnelEncap::dedupContent(encaps, c).get(), attr.get());
    EXPECT_EQ(TunnelEncap::TunnelEncapIs(c)->dedup(encaps).get(), attr.get());
    auto v = vxlanTunnelTlvFactory(VxlanTunnelTlvContent());
    EXPECT_EQ(v->dedup(&VxlanTunnelTlvDedupTable::instance()).get(), vxlan(nullptr, nullptr).get());
}

// Tables made by the factories take the process flag at the time they are made; a table of its
// own interns apart from the default one.
TEST(TunnelEncapInterning, TablesFromFactoriesFollowTheThreadingFlag) {
    const bool before = Keel::multiThreadedOrvbgp();
    Keel::multiThreadedOrvbgpIs(false);
    auto single = tunnelEncapDedupTableFactory();
    auto singleTlvs = tunnelEncapTlvUnparsedDedupTableFactory();
    Keel::multiThreadedOrvbgpIs(true);
    auto multi = tunnelEncapDedupTableFactory();
    auto multiVxlan = vxlanTunnelTlvDedupTableFactory();
    Keel::multiThreadedOrvbgpIs(before);
    EXPECT_FALSE(single->multiThreaded());
    EXPECT_FALSE(singleTlvs->multiThreaded());
    EXPECT_TRUE(multi->multiThreaded());
    EXPECT_TRUE(multiVxlan->multiThreaded());

    const TunnelEncapTlvUnparsedContent c(2, hex("0a0b"));
    auto own = TunnelEncapTlvBase::dedupContent(singleTlvs.get(), c, c.hash());
    EXPECT_EQ(TunnelEncapTlvBase::dedupContent(singleTlvs.get(), c, c.hash()).get(), own.get());
    EXPECT_NE(own.get(), TunnelEncapTlvUnparsed::intern(c).get());
    EXPECT_EQ(singleTlvs->size(), 1u);

    TunnelEncapContent ec;
    ec.tunnelTlvIs(own);
    auto a = TunnelEncap::dedupContent(single.get(), ec);
    EXPECT_EQ(TunnelEncap::dedupContent(single.get(), ec).get(), a.get());
    auto b = TunnelEncap::dedupContent(multi.get(), ec);
    EXPECT_NE(b.get(), a.get());
    EXPECT_EQ(b->tunnelTlv(0), own.get());
    EXPECT_EQ(single->size(), 1u);
    EXPECT_EQ(multi->size(), 1u);
}

// ---- Vocabulary --------------------------------------------------------------------------------

using Named = std::pair<unsigned, const char*>;

// Every named value converts both ways through its number, its name, its quoted text and a
// stream; the range of the numbers is checked by the callers.
template <class Instance, class FromStrep>
void expectNamed(std::span<const Named> named, Instance instance, FromStrep fromStrep) {
    for (const auto& [value, name] : named) {
        SCOPED_TRACE(name);
        const auto t = instance(value);
        EXPECT_EQ(unsigned(t), value);
        EXPECT_EQ(instance(std::string_view(name)), t);
        EXPECT_EQ(stringValue(t), name);
        EXPECT_EQ(valueToStrep(t), std::string("'") + name + "'");
        EXPECT_EQ(fromStrep(valueToStrep(t)), t);
        std::ostringstream os;
        os << t;
        EXPECT_EQ(os.str(), name);
    }
}

TEST(TunnelEncapTypes, TunnelTypeConversions) {
    const Named named[] = {{4, "ipsec"}, {8, "vxlan"},      {15, "srTe"},
                           {22, "dps"},  {24, "dpsPolicy"}, {65536, "unknown"}};
    expectNamed(
        named, [](auto v) { return TunnelEncapTunnelTypeInstance(v); },
        [](const std::string& s) { return strepToTunnelEncapTunnelType(s); });
    EXPECT_THROW(TunnelEncapTunnelTypeInstance(2u), Mel::RangeException);
    EXPECT_THROW(TunnelEncapTunnelTypeInstance(65535u), Mel::RangeException);
    EXPECT_THROW(TunnelEncapTunnelTypeInstance(std::string_view("gre")), Mel::ParseException);
    EXPECT_THROW(strepToTunnelEncapTunnelType("'gre'"), Mel::ParseException);
    // A value without a name prints and parses as its number.
    EXPECT_EQ(stringValue(TunnelEncapTunnelType(2)), "2");
    EXPECT_EQ(strepToTunnelEncapTunnelType("2"), TunnelEncapTunnelType(2));
}

// The thirteen names are the only sub-TLV types of the 256 that convert.
TEST(TunnelEncapTypes, SubTlvTypeConversions) {
    const Named named[] = {{0, "reserved"}, {4, "color"},         {6, "endpoint"},
                           {8, "udpPort"},  {12, "preference"},   {13, "bindingSid"},
                           {14, "enlp"},    {128, "segmentList"}, {192, "wanId"},
                           {193, "bytes"},  {194, "ipsecDim"},    {195, "ipsecKeyData"},
                           {196, "ipsecSa"}};
    expectNamed(
        named, [](auto v) { return TunnelEncapSubTlvTypeInstance(v); },
        [](const std::string& s) { return strepToTunnelEncapSubTlvType(s); });
    int count = 0;
    for (unsigned v = 0; v < 256; ++v) {
        try {
            TunnelEncapSubTlvTypeInstance(v);
            ++count;
        } catch (const Mel::RangeException&) {
        }
    }
    EXPECT_EQ(count, 13);
    EXPECT_THROW(TunnelEncapSubTlvTypeInstance(256u), Mel::RangeException);
    EXPECT_THROW(TunnelEncapSubTlvTypeInstance(std::string_view("Color")), Mel::ParseException);
    EXPECT_THROW(strepToTunnelEncapSubTlvType("256"), Mel::ParseException);
    EXPECT_EQ(stringValue(TunnelEncapSubTlvType(200)), "200");
}

// `unknown` lies outside the 16 bits a TLV's type has: it can be neither stored nor read back.
TEST(TunnelEncapTypes, UnknownTunnelTypeCannotBeCarried) {
    EXPECT_THROW(Mel::strepToValue<TunnelEncapTlvContentBase>(
                     "Value('Routing::Bgp::TunnelEncapTlvContentBase', ** {'tunnelType': 65536})"),
                 Mel::ParseException);
    EXPECT_EQ(Mel::strepToValue<TunnelEncapTlvContentBase>(
                  "Value('Routing::Bgp::TunnelEncapTlvContentBase', ** {'tunnelType': 65535})")
                  .tunnelType(),
              65535);
}

// ---- Contents ----------------------------------------------------------------------------------

// Values listed in strictly increasing order: each pair compares and equals by its positions.
template <class V>
void expectStrictOrder(const std::vector<V>& sorted) {
    for (size_t i = 0; i < sorted.size(); ++i) {
        for (size_t j = 0; j < sorted.size(); ++j) {
            SCOPED_TRACE(::testing::Message() << i << " vs " << j);
            EXPECT_EQ(sorted[i] < sorted[j], i < j);
            EXPECT_EQ(sorted[i] == sorted[j], i == j);
        }
    }
}

TEST(TunnelEncapContents, EqualityAndOrderOfTlvContents) {
    auto ep = EndpointSubTlv::intern(addr("192.0.2.1"));
    TunnelEncapTlvContentBase a(8), b(8), c(9);
    b.endpointIs(ep);
    expectStrictOrder<TunnelEncapTlvContentBase>({a, b, c}); // null endpoint first, type before it
    a.unparsedSubTlvIs(subTlv(1, "00"));
    a.endpointIs(ep);
    EXPECT_TRUE(a == b); // unparsed sub-TLVs take no part
    EXPECT_FALSE(a < b || b < a);

    // The base order first, then tlvLen, then data.
    expectStrictOrder<TunnelEncapTlvUnparsedContent>(
        {{1, 9, hex("ff")}, {2, 3, hex("ff")}, {2, 4, hex("00")}, {2, 4, hex("01")}});
    EXPECT_TRUE(TunnelEncapTlvUnparsedContent(2, 4, hex("01")) ==
                TunnelEncapTlvUnparsedContent(2, 4, hex("01")));

    // Attribute contents are equal with equal TLVs and have no order.
    TunnelEncapContent e1, e2;
    e1.tunnelTlvIs(unparsed(2, "01"));
    EXPECT_FALSE(e1 < e2);
    EXPECT_FALSE(e2 < e1);
    EXPECT_FALSE(e1 == e2);
    e2.tunnelTlvIs(unparsed(2, "01"));
    EXPECT_TRUE(e1 == e2);
}

TEST(TunnelEncapContents, HashesMixWhatTheirEqualityLooksAt) {
    TunnelEncapContent empty;
    EXPECT_EQ(empty.hash(), Keel::HashMix().result());
    TunnelEncapContent ab, ba;
    ab.tunnelTlvIs(unparsed(2, "01"));
    ab.tunnelTlvIs(unparsed(3, "01"));
    ba.tunnelTlvIs(unparsed(3, "01"));
    ba.tunnelTlvIs(unparsed(2, "01"));
    EXPECT_NE(ab.hash(), ba.hash());
    EXPECT_EQ(attribute({unparsed(2, "01"), unparsed(3, "01")})->hash(), ab.hash());
    // Empty data hashes as 0, so an empty TLV differs from one whose data hash is anything else.
    Keel::HashMix m;
    m.hashMix(uint16_t(5));
    m.hashMix(uint16_t(0));
    m.hashMix(uint32_t(0));
    EXPECT_EQ(TunnelEncapTlvUnparsedContent(5, Mel::Bytes()).hash(), m.result());
}

// ---- Text forms --------------------------------------------------------------------------------

TEST(TunnelEncapText, AttributeStreamForms) {
    EXPECT_EQ(text(nullptr), "NULL");
    EXPECT_EQ(text(attribute({}).get()), "<#Tlvs=0  >");
    auto one = attribute({TunnelEncapTlvUnparsed::intern({8, 12, hex("00")})});
    EXPECT_EQ(text(one.get()), "<#Tlvs=1 Tlv#0 {T=8 L=12} >");
    EXPECT_EQ(one->toStrep(), text(one.get()));
    std::ostringstream os;
    os << one->content();
    EXPECT_EQ(os.str(), text(one.get()));
    auto two = attribute({unparsed(2, "7f01aa"), vxlan("192.0.2.1", ColorSubTlv::intern(100))});
    EXPECT_EQ(text(two.get()),
              "<#Tlvs=2 Tlv#0 {T=2 L=3}Tlv#1 {T=8 L=22 Endpoint=192.0.2.1 Color=100} >");
}

TEST(TunnelEncapText, TlvAndSubTlvStreamForms) {
    auto v = vxlan(nullptr, ColorSubTlv::intern(ColorSubTlvContent(5, 0x4001)),
                   {subTlv(1, "abcd"), subTlv(200, "")});
    EXPECT_EQ(v->toStrep(), "T=8 L=17 Color=5,flags=0x4001 #UnparsedSubTlvs=2 SubTlv#:0{T=1 L=2 "
                            "V=0xabcd} SubTlv#:1{T=200 L=0 V=0x}");
    EXPECT_EQ(EndpointSubTlv::intern(Orvnet::IpGenAddr())->toStrep(), "Endpoint=none");
    EXPECT_EQ(EndpointSubTlv::intern(addr("2001:db8::1"))->toStrep(), "Endpoint=2001:db8::1");

    TunnelEncapTlvContentBase none(8);
    std::ostringstream empty;
    unparsedSubTlvFormatDerivedType(empty, none);
    EXPECT_EQ(empty.str(), "");
}

// The value form of this namespace's `type` with the given fields.
std::string valueForm(const std::string& type, const std::string& fields) {
    return "Value('Routing::Bgp::" + type + "', ** {" + fields + "})";
}

std::string endpointForm(const std::string& address) {
    return valueForm("EndpointSubTlvContent", "'address': '" + address + "'");
}

// v prints as `expected`, also through a stream, and reads back equal.
template <class V>
void expectValueForm(const V& v, const std::string& expected) {
    EXPECT_EQ(Mel::valueToStrep(v), expected);
    std::ostringstream os;
    os << v;
    EXPECT_EQ(os.str(), expected);
    EXPECT_TRUE(Mel::strepToValue<V>(expected) == v);
}

TEST(TunnelEncapText, ValueFormsAreExactAndParseBack) {
    TunnelEncapTlvContentBase base(8);
    expectValueForm(base,
                    valueForm("TunnelEncapTlvContentBase", "'tunnelType': 8, 'endpoint': None"));
    base.endpointIs(EndpointSubTlv::intern(addr("192.0.2.1")));
    base.unparsedSubTlvIs(subTlv(1, "00")); // not part of the form
    expectValueForm(base, valueForm("TunnelEncapTlvContentBase",
                                    "'tunnelType': 8, 'endpoint': " + endpointForm("192.0.2.1")));
    auto back = Mel::strepToValue<TunnelEncapTlvContentBase>(Mel::valueToStrep(base));
    EXPECT_EQ(back.endpoint().get(), base.endpoint().get()); // read back interned

    expectValueForm(TunnelEncapTlvUnparsedContent(2, 300, hex("c0ffee")),
                    valueForm("TunnelEncapTlvUnparsedContent",
                              "'tunnelType': 2, 'endpoint': None, 'tlvLen': 300, "
                              "'tunnelTlvData': 'c0ffee'"));
    expectValueForm(
        vxlan("10.0.0.1", ColorSubTlv::intern(ColorSubTlvContent(9, 1)))->content(),
        valueForm("VxlanTunnelTlvContent",
                  "'tunnelType': 8, 'endpoint': " + endpointForm("10.0.0.1") +
                      ", 'color': " + valueForm("ColorSubTlvContent", "'flags': 1, 'color': 9")));
    auto s = subTlv(200, "0102");
    expectValueForm(s->content(),
                    valueForm("UnparsedSubTlvContent", "'subTlvType': 200, "
                                                       "'subTlvLen': 2, 'subTlvData': '0102'"));
    EXPECT_EQ(s->valueToStrep(), Mel::valueToStrep(s->content()));

    // An attribute's TLVs show as their stream forms, and do not read back.
    TunnelEncapContent ec =
        attribute({TunnelEncapTlvUnparsed::intern({8, 12, hex("00")}), vxlan("192.0.2.1", nullptr)})
            ->content();
    EXPECT_EQ(Mel::valueToStrep(ec),
              valueForm("TunnelEncapContent",
                        "'tunnelTlv': ['T=8 L=12', 'T=8 L=12 Endpoint=192.0.2.1']"));
    try {
        Mel::strepToValue<TunnelEncapContent>(Mel::valueToStrep(ec));
        ADD_FAILURE() << "read back";
    } catch (const Mel::NotSupportedException& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Not supported", 0), 0u) << e.what();
    }
    EXPECT_THROW(Mel::strepToValue<TunnelEncapTlvContentBase>(
                     valueForm("TunnelEncapTlvContentBase", "'endpoint': " + endpointForm("x"))),
                 Mel::ParseException);
}

// ---- Store -------------------------------------------------------------------------------------

class Unregistered : public TunnelEncapTlvBase {
public:
    uint16_t tunnelType() const override { return 1; }
    bool compareDerived(const TunnelEncapTlvBase*) const override { return false; }
    bool compareByContentDerived(const TunnelEncapTlvContentBase&) const override { return false; }
    void formatDerivedType(std::ostream&) const override {}
    Mel::Bytes serialize() const override { return {}; }
    uint32_t hash() const override { return 0; }
};

TEST(TunnelEncapStore, DestashDispatchesOnTheStoredClass) {
    auto* store = &MelStash::StoreManager::instance();
    const std::vector<Mel::PtrConst<TunnelEncapTlvBase>> tlvs = {
        unparsed(2, "7f01aa", EndpointSubTlv::intern(addr("192.0.2.5"))),
        vxlan("192.0.2.1", ColorSubTlv::intern(100), {subTlv(1, "00")}),
    };
    for (const auto& t : tlvs) {
        SCOPED_TRACE(t->toStrep());
        const void* stored = static_cast<const Keel::DedupHandleBase*>(t.get());
        EXPECT_EQ(TunnelEncapTlvBase::destash(stored, store).get(), t.get());
        auto* reader = MelStash::StashReaderRegistry::readerFor<TunnelEncapTlvStashReader>(
            typeid(*static_cast<const Keel::DedupHandleBase*>(stored)));
        ASSERT_NE(reader, nullptr);
        EXPECT_EQ(reader->stashSerialize(stored), t->serialize());
        EXPECT_EQ(reader->stashStrep(stored), t->toStrep());
    }
    // An equal object outside the table reads back as the interned one, endpoint included.
    auto loose = tunnelEncapTlvUnparsedFactory({2, hex("7f01aa")});
    EXPECT_EQ(
        TunnelEncapTlvBase::destash(static_cast<const Keel::DedupHandleBase*>(loose.get()), store)
            .get(),
        tlvs[0].get());
    auto attr = attribute({tlvs[1], tlvs[0]});
    auto looseAttr = tunnelEncapFactory(attr->content());
    EXPECT_EQ(
        TunnelEncap::destash(static_cast<const Keel::DedupHandleBase*>(looseAttr.get()), store)
            .get(),
        attr.get());
}

// ---- Assertions --------------------------------------------------------------------------------

class NoType : public Unregistered {
public:
    uint16_t tunnelType() const override { return TunnelEncapTlvBase::tunnelType(); }
};

class NullTlvTable : public TunnelEncapTlvDedupTableBase {
public:
    NullTlvTable() : TunnelEncapTlvDedupTableBase("NullTlvTable") {}
    TunnelEncapTlvBase*
    allocateTunEncapTlvContent(const TunnelEncapTlvContentBase&) const override {
        return nullptr;
    }
};

class NullAttrTable : public TunnelEncapDedupTable {
public:
    TunnelEncap* allocateTunnelEncapContent(const TunnelEncapContent&) const override {
        return nullptr;
    }
};

// An index out of range, a TLV not interned, a stored class without a reader, a TLV class without
// its type, a table that makes nothing or an object of another hash, an object of another table.
TEST(TunnelEncapDeathTest, ClassAndTablePreconditions) {
    TunnelEncapContent e;
    EXPECT_DEATH(e.tunnelTlv(0), assertionPattern(unit, "i < tunnelTlv_.size()"));
    auto loose = tunnelEncapTlvUnparsedFactory({2, hex("01")});
    EXPECT_DEATH(e.tunnelTlvIs(loose), "Assertion");
    EXPECT_DEATH(e.tunnelTlvIs(nullptr), assertionPattern(unit, "tlv"));
    auto attr = attribute({unparsed(2, "01")});
    EXPECT_DEATH(attr->tunnelTlv(1), assertionPattern(unit, "i < count_"));
    Mel::PtrConst<Unregistered> u(new Unregistered);
    EXPECT_DEATH(TunnelEncapTlvBase::destash(static_cast<const Keel::DedupHandleBase*>(u.get()),
                                             &MelStash::StoreManager::instance()),
                 assertionPattern(unit, "nullptr != reader"));
    Mel::PtrConst<NoType> t(new NoType);
    EXPECT_DEATH(t->tunnelType(),
                 assertionPattern(unit, "0 && \"Need to be implemented by derived classes\""));
    EXPECT_DEATH(
        {
            NullTlvTable table;
            const TunnelEncapTlvUnparsedContent c(2, hex("01"));
            TunnelEncapTlvBase::dedupContent(&table, c, c.hash());
        },
        assertionPattern(unit, "dedupHandle"));
    EXPECT_DEATH(
        {
            NullAttrTable table;
            TunnelEncap::dedupContent(&table, TunnelEncapContent());
        },
        assertionPattern(unit, "dedupHandle"));
    const TunnelEncapTlvUnparsedContent c(2, hex("0102030405"));
    EXPECT_DEATH(TunnelEncapTlvBase::dedupContent(&TunnelEncapTlvUnparsedDedupTable::instance(), c,
                                                  c.hash() + 1),
                 assertionPattern(unit, "made->hash() == hash"));
    auto t2 = unparsed(2, "0a");
    auto other = tunnelEncapTlvUnparsedDedupTableFactory();
    EXPECT_DEATH(t2->dedup(other.get()), assertionPattern(unit, "dedupTable() == table"));
}

// A TLV's value length has 16 bits; so does an unparsed sub-TLV's data.
TEST(TunnelEncapDeathTest, LengthsBeyondSixteenBits) {
    const Mel::Bytes big(std::vector<uint8_t>(40000, 0x5a));
    VxlanTunnelTlvContent c;
    c.unparsedSubTlvIs(UnparsedSubTlv::intern(UnparsedSubTlvContent(200, big)));
    EXPECT_EQ(VxlanTunnelTlv::intern(c)->valueLength(), 40003u);
    c.unparsedSubTlvIs(UnparsedSubTlv::intern(UnparsedSubTlvContent(201, big)));
    EXPECT_DEATH(VxlanTunnelTlv::intern(c),
                 assertionPattern("OrvBgp/VxlanTunnelTlv", "len <= 0xffff"));
    EXPECT_DEATH(
        UnparsedSubTlv::intern(
            UnparsedSubTlvContent(200, Mel::Bytes(std::vector<uint8_t>(65536, 1)))),
        assertionPattern("OrvBgp/BgpTunnelEncapSubTlv", "c.subTlvData().size() <= 0xffff"));
    EXPECT_DEATH(TunnelEncapTlvUnparsed::intern({2, Mel::Bytes(std::vector<uint8_t>(65536, 1))}),
                 assertionPattern(unit, "content.tunnelTlvData().size() <= 0xffff"));
    VxlanTunnelTlvContent wrongType;
    wrongType.tunnelTypeIs(9);
    EXPECT_DEATH(vxlanTunnelTlvFactory(wrongType),
                 assertionPattern("OrvBgp/VxlanTunnelTlv", "content.tunnelType() == vxlanType"));
}

// ---- Threads -----------------------------------------------------------------------------------

// Whole chains (sub-TLVs, TLVs, attribute) built from the same values on several threads meet in
// the same objects, and the last release anywhere frees every level, the endpoint and sub-TLVs an
// unparsed TLV holds included.
TEST(TunnelEncapConcurrent, ChainsBuiltOnManyThreadsShareObjects) {
    const auto live = [] {
        return TunnelEncap::melStashTypeStats().objects.load() +
               VxlanTunnelTlv::melStashTypeStats().objects.load() +
               TunnelEncapTlvUnparsed::melStashTypeStats().objects.load() +
               EndpointSubTlv::melStashTypeStats().objects.load() +
               ColorSubTlv::melStashTypeStats().objects.load() +
               UnparsedSubTlv::melStashTypeStats().objects.load();
    };
    const int64_t before = live();
    auto build = [](int k) {
        const Mel::Bytes b{uint8_t(k)};
        // The unparsed TLV holds the endpoint and sub-TLV of its first interning too.
        TunnelEncapTlvUnparsedContent u(uint16_t(0x6000 + k % 4), b);
        u.endpointIs(EndpointSubTlv::intern(addr("203.0.113.128")));
        u.unparsedSubTlvIs(UnparsedSubTlv::intern(UnparsedSubTlvContent(250, b)));
        return attribute({vxlan(("203.0.113." + std::to_string(k)).c_str(),
                                ColorSubTlv::intern(uint32_t(0x5000 + k % 3)),
                                {UnparsedSubTlv::intern(UnparsedSubTlvContent(1, b))}),
                          TunnelEncapTlvUnparsed::intern(u)});
    };
    constexpr int kinds = 12;
    std::vector<std::vector<const TunnelEncap*>> seen(3, std::vector<const TunnelEncap*>(kinds));
    std::atomic<int> wrong{0};
    {
        // Each thread keeps one of each kind alive, so the pointers it records stay comparable.
        std::vector<std::vector<Mel::PtrConst<TunnelEncap>>> kept(3);
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&, t] {
                std::mt19937 rng(1234 + t);
                for (int k = 0; k < kinds; ++k)
                    kept[t].push_back(build(k));
                std::vector<Mel::PtrConst<TunnelEncap>> churn(6);
                for (int i = 0; i < 1500; ++i) {
                    const int k = int(rng() % kinds);
                    auto p = build(k);
                    if (p.get() != kept[t][k].get()) wrong.fetch_add(1);
                    // Kinds beyond the kept ones come and go.
                    churn[rng() % churn.size()] = build(kinds + int(rng() % 8));
                }
                for (int k = 0; k < kinds; ++k)
                    seen[t][k] = kept[t][k].get();
            });
        }
        for (auto& th : threads)
            th.join();
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(seen[0], seen[1]);
        EXPECT_EQ(seen[1], seen[2]);
        EXPECT_GT(live(), before);
    }
    EXPECT_EQ(live(), before);
}

} // namespace
} // namespace Routing::Bgp
