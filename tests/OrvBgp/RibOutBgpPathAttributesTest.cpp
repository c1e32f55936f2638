#include "OrvBgp/RibOutBgpPathAttributes.h"
#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/PathAttributesSerializeStore.h"

#include <gtest/gtest.h>

namespace {

using namespace Routing::Bgp;
using C = PathAttributesContents;

Mel::PtrConst<RibOutPathAttributes> out(const C& c) {
    return RibOutPathAttributesFactory(c).dedupContent(&RibOutPathAttributesDedupTable::instance());
}
Mel::PtrConst<PathAttributes> in(const C& c) {
    return PathAttributesFactory(c).dedupContent(&PathAttributesDedupTable::instance());
}

C sample() {
    static AddressNexthopDedupTable nh(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast());
    AspathAttrCanonicalContent p;
    p.segmentAdd(AsSegmentType::asSequence_, {65001, 65002});
    C c;
    c.aspathAttrIs(aspathAttrCanonicalFactory(p));
    c.nextHopIs(nh.nexthop(Orvnet::IpGenAddr::fromString("192.0.2.1")));
    c.medIs(MultiExitDiscriminator(10));
    c.commListIs(Routing::CommList::intern({0xfde80064}));
    return c;
}

// Contents that differ only in what is not advertised share one outbound set.
TEST(RibOutPathAttributes, UnadvertisedDifferencesShareOneOutboundSet) {
    static AddressNexthopDedupTable nh(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast());
    C a = sample();
    std::vector<C> variants;
    for (int k = 0; k < 6; ++k)
        variants.push_back(a);
    variants[0].tagIs(99);
    variants[1].nextHopIs(nh.nexthop(Orvnet::IpGenAddr::fromString("192.0.2.9")));
    variants[2].preferenceIs(7);
    variants[3].weightIs(100);
    variants[4].noLlgrIs(true);
    variants[5].ipLookupAsBackupIs(true);
    for (auto& v : variants) {
        EXPECT_NE(in(v), in(a));
        EXPECT_EQ(out(v), out(a)) << valueToStrep(v);
    }
    EXPECT_EQ(in(variants[3])->getType(), PathAttributeType::full);
    EXPECT_EQ(out(variants[3])->getType(), PathAttributeType::withCommList);
}

TEST(RibOutPathAttributes, OutboundTiers) {
    C base;
    base.weightIs(100);
    EXPECT_EQ(out(base)->getType(), PathAttributeType::base);
    C redist;
    redist.redistMetricIs(RedistMetric(5));
    redist.llNextHopIs(nullptr);
    EXPECT_EQ(out(redist)->getType(), PathAttributeType::base);
    C ext = sample();
    ext.extCommListIs(Routing::ExtCommList::intern({0x0002fde800000001ULL}));
    EXPECT_EQ(out(ext)->getType(), PathAttributeType::withExtCommList);
    ext.largeCommListIs(Routing::LargeCommList::intern({Routing::LargeComm{1, 2, 3}}));
    EXPECT_EQ(out(ext)->getType(), PathAttributeType::internet);
    C aigp = sample();
    aigp.aigpMetricIs(accumulatedIgpMetricFactory(5));
    EXPECT_EQ(out(aigp)->getType(), PathAttributeType::full);
    EXPECT_EQ(out(aigp)->aigpMetricGet(), aigp.aigpMetric());
}

TEST(RibOutPathAttributes, GetFullContentLeavesUnkeptMembersAlone) {
    C a = sample();
    a.noLlgrIs(true);
    auto o = out(a);
    C target;
    target.tagIs(5);
    target.ipLookupAsBackupIs(true);
    o->getFullContent(target);
    EXPECT_EQ(target.tag(), 5u);
    EXPECT_TRUE(target.ipLookupAsBackup());
    EXPECT_FALSE(target.noLlgr());
    EXPECT_EQ(target.med(), a.med());
    EXPECT_EQ(target.commList(), a.commList());
    EXPECT_EQ(target.nextHop(), nullptr);
}

TEST(RibOutPathAttributes, StatisticsUnderTheirOwnTitle) {
    auto& stats = RibOutPathAttributesStats::instance();
    stats.countDelAll();
    C a = sample();
    a.tagIs(12345);
    a.medIs(MultiExitDiscriminator(777));
    auto o = out(a);
    auto again = out(a);
    EXPECT_EQ(stats.count(C::nonDefaulValueCommList), 1u);
    auto ctx = Keel::DumpContext::toString();
    stats.dumpState(ctx, 0);
    EXPECT_EQ(
        ctx->text(),
        "RibOutPathAttributesStats\n"
        "  TotalAllocated  TypeAllocated    Attributes not in all types with non-default value\n"
        "               1  withCommList     commList\n");
    stats.countDelAll();
}

TEST(RibOutPathAttributes, WritesNoNextHop) {
    C a = sample();
    AttrSetStringStore inbound, outbound;
    in(a)->serializeInternal(&inbound, true, true, true);
    out(a)->serializeInternal(&outbound, true, true, true);
    std::vector<uint8_t> inTypes = inbound.attrTypes(), outTypes = outbound.attrTypes();
    EXPECT_EQ(inTypes, (std::vector<uint8_t>{1, 2, 3, 4, 8}));
    EXPECT_EQ(outTypes, (std::vector<uint8_t>{1, 2, 4, 8}));
}

} // namespace
