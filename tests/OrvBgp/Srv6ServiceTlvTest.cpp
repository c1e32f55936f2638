// SRv6 service TLV: display form and behaviour names, ordering, text form, interning of built
// objects, reading back from the store.
#include "OrvBgp/Srv6ServiceTlv.h"

#include "Mel/Reflect.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace Routing::Bgp {
namespace {

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

// The TLV's wire vectors are checked inside the prefix SID attribute
// (PrefixSid.WireFormsMatchVectors), the plain display form in PrefixSid.DisplayForms.
TEST(Srv6ServiceTlv, DisplayFormAndBehaviourNames) {
    auto l2 =
        srv6ServiceTlvFactory(Srv6ServiceTlvContent(false, sid("2001:db8:0:1::"), 63, structure));
    EXPECT_EQ(l2->toStrep(), "L2 2001:db8:0:1::, End.DT4 with NEXT-CSID [32, 16, 16, 0, 16, 64]");

    // Codes 16-20, and the same behaviours with NEXT-CSID at 60-64.
    const std::string names[] = {"End.DX6", "End.DX4", "End.DT6", "End.DT4", "End.DT46"};
    for (uint16_t k = 0; k < 5; ++k) {
        EXPECT_EQ(srv6EndpointBehaviorName(16 + k), names[k]);
        EXPECT_EQ(srv6EndpointBehaviorName(60 + k), names[k] + " with NEXT-CSID");
    }
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

// A built object hashes as its content does: the factory finds it once taken in. Read back from
// the store, it is the interned TLV.
TEST(Srv6ServiceTlv, DedupOfABuiltObjectAndDestash) {
    auto* store = &MelStash::StoreManager::instance();
    const Srv6ServiceTlvContent c(true, sid("2001:db8::1"), 19, structure);
    auto tlv = Srv6ServiceTlv::create(c)->dedup(Srv6ServiceTlvDedupTable::instance());
    EXPECT_EQ(srv6ServiceTlvFactory(c).get(), tlv.get());
    EXPECT_EQ(Srv6ServiceTlv::destash(tlv.get(), store).get(), tlv.get());
    auto* reader =
        MelStash::StashReaderRegistry::readerFor<Srv6ServiceTlvStashReader>(typeid(Srv6ServiceTlv));
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->stashSerialize(tlv.get()), tlv->serialize());
    EXPECT_EQ(reader->stashStrep(tlv.get()), tlv->toStrep());
}

} // namespace
} // namespace Routing::Bgp
