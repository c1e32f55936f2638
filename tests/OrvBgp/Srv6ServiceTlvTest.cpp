// SRv6 service TLV: wire form with and without the SID structure, display form and behaviour names,
// ordering, text form, interning of built objects, reading back from the store.
#include "OrvBgp/Srv6ServiceTlv.h"

#include "Mel/Reflect.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace Routing::Bgp {
namespace {

using OrvTest::hexOf;

Orvnet::Ip6Addr sid(const char* text) {
    return Orvnet::Ip6Addr::fromString(text);
}

const Srv6SidStructureTlvContent structure(32, 16, 16, 0, 16, 64);

struct Srv6Traits : InternTableOf<Srv6ServiceTlvDedupTable> {
    using Object = Srv6ServiceTlv;
    // Each field varies on its own, the structure included.
    static Srv6ServiceTlvContent content(int i) {
        return Srv6ServiceTlvContent(
            i % 2 == 0, sid(("2001:db8::" + std::to_string(i / 8)).c_str()),
            uint16_t(16 + (i / 2) % 2), (i / 4) % 2 ? structure : Srv6SidStructureTlvContent());
    }
    static Mel::PtrConst<Srv6ServiceTlv> intern(const Srv6ServiceTlvContent& c) {
        return srv6ServiceTlvFactory(c);
    }
    static auto dedup(const Mel::PtrConst<Srv6ServiceTlv>& p) {
        return p->dedup(Srv6ServiceTlvDedupTable::instance());
    }
};

INSTANTIATE_TYPED_TEST_SUITE_P(Srv6Service, InternContract, ::testing::Types<Srv6Traits>);

// The TLV is the prefix SID attribute's value when it is the only TLV (3-byte attribute header).
Mel::Bytes tlvOfVector(const std::string& name) {
    const Mel::Bytes attr = OrvTest::attrWireVectors("PrefixSid").at(name);
    return Mel::Bytes(attr.data() + 3, attr.size() - 3);
}

// The TLV's own vectors are checked inside the prefix SID attribute
// (PrefixSid.WireFormsMatchVectors). Only locBlockLen decides whether the structure is written:
// other lengths without it are not.
TEST(Srv6ServiceTlv, WireFormsWithAndWithoutStructure) {
    auto noBlock = srv6ServiceTlvFactory(Srv6ServiceTlvContent(
        true, sid("2001:db8::1"), 19, Srv6SidStructureTlvContent(0, 16, 16, 0, 0, 0)));
    EXPECT_EQ(hexOf(noBlock->serialize()), hexOf(tlvOfVector("srv6_l3")));
}

TEST(Srv6ServiceTlv, DisplayFormAndBehaviourNames) {
    auto l3 = srv6ServiceTlvFactory(Srv6ServiceTlvContent(true, sid("2001:db8::1"), 19, {}));
    EXPECT_EQ(l3->toStrep(), "L3 2001:db8::1, End.DT4");
    auto l2 =
        srv6ServiceTlvFactory(Srv6ServiceTlvContent(false, sid("2001:db8:0:1::"), 63, structure));
    EXPECT_EQ(l2->toStrep(), "L2 2001:db8:0:1::, End.DT4 with NEXT-CSID [32, 16, 16, 0, 16, 64]");

    const std::pair<uint16_t, const char*> names[] = {
        {16, "End.DX6"},
        {17, "End.DX4"},
        {18, "End.DT6"},
        {19, "End.DT4"},
        {20, "End.DT46"},
        {60, "End.DX6 with NEXT-CSID"},
        {61, "End.DX4 with NEXT-CSID"},
        {62, "End.DT6 with NEXT-CSID"},
        {63, "End.DT4 with NEXT-CSID"},
        {64, "End.DT46 with NEXT-CSID"},
    };
    for (const auto& [code, name] : names)
        EXPECT_STREQ(srv6EndpointBehaviorName(code), name) << code;
    for (uint16_t code : {0, 1, 15, 21, 59, 65, 0xffff})
        EXPECT_STREQ(srv6EndpointBehaviorName(code), "unknown") << code;
}

TEST(Srv6ServiceTlvContent, OrderIsFieldByField) {
    const Srv6SidStructureTlvContent lowStructure(32, 16, 16, 0, 16, 63);
    // Ascending, each differing from the next in exactly one field, from the last field back.
    std::vector<Srv6ServiceTlvContent> ordered = {
        {false, sid("2001:db8::2"), 19, structure}, {true, sid("2001:db8::1"), 19, structure},
        {true, sid("2001:db8::2"), 18, structure},  {true, sid("2001:db8::2"), 19, lowStructure},
        {true, sid("2001:db8::2"), 19, structure},
    };
    for (size_t i = 0; i + 1 < ordered.size(); ++i) {
        EXPECT_TRUE(ordered[i] < ordered[i + 1]) << i;
        EXPECT_FALSE(ordered[i + 1] < ordered[i]) << i;
    }
    auto shuffled = ordered;
    std::reverse(shuffled.begin(), shuffled.end());
    std::sort(shuffled.begin(), shuffled.end());
    EXPECT_TRUE(shuffled == ordered);
}

TEST(Srv6ServiceTlvContent, TextFormParsesBack) {
    Srv6ServiceTlvContent c(false, sid("2001:db8:0:1::"), 63, structure);
    EXPECT_EQ(c.toStrep(),
              "Value('Routing::Bgp::Srv6ServiceTlvContent', ** {'l3Service': False, 'sidValue': "
              "'2001:db8:0:1::', 'endpointBehavior': 63, 'sidStructureTlvContent': "
              "Value('Routing::Bgp::Srv6SidStructureTlvContent', ** {'locBlockLen': 32, "
              "'locNodeLen': 16, 'fnLen': 16, 'argLen': 0, 'transLen': 16, 'transOff': 64})})");
    EXPECT_TRUE(Srv6ServiceTlvContent::fromStrep(c.toStrep()) == c);
    EXPECT_THROW(Srv6ServiceTlvContent::fromStrep(
                     "Value('Routing::Bgp::Srv6ServiceTlvContent', ** {'sidValue': '1.2.3.4'})"),
                 Mel::ParseException);
}

TEST(Srv6ServiceTlv, DedupOfABuiltObject) {
    const Srv6ServiceTlvContent c(true, sid("2001:db8::77"), 20, {});
    Mel::Ptr<Srv6ServiceTlv> built = Srv6ServiceTlv::create(c);
    EXPECT_FALSE(built->everDeduped());
    auto interned = built->dedup(Srv6ServiceTlvDedupTable::instance());
    EXPECT_EQ(interned.get(), built.get());
    EXPECT_EQ(srv6ServiceTlvFactory(c).get(), built.get());
    // A second equal object is not taken in: the first one is returned.
    Mel::Ptr<Srv6ServiceTlv> twin = Srv6ServiceTlv::create(c);
    EXPECT_EQ(twin->dedup(Srv6ServiceTlvDedupTable::instance()).get(), built.get());
    EXPECT_FALSE(twin->everDeduped());
}

TEST(Srv6ServiceTlv, DestashGivesTheInternedTlv) {
    auto* store = &MelStash::StoreManager::instance();
    auto tlv =
        srv6ServiceTlvFactory(Srv6ServiceTlvContent(true, sid("2001:db8::1"), 19, structure));
    EXPECT_EQ(Srv6ServiceTlv::destash(tlv.get(), store).get(), tlv.get());
    auto* reader =
        MelStash::StashReaderRegistry::readerFor<Srv6ServiceTlvStashReader>(typeid(Srv6ServiceTlv));
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->stashSerialize(tlv.get()), tlv->serialize());
    EXPECT_EQ(reader->stashStrep(tlv.get()), tlv->toStrep());
}

} // namespace
} // namespace Routing::Bgp
