// Nothing interned outlives its holders: after every holder is gone, every intern table is back to
// the size it had and the store holds the same live objects of every type as before.
#include "reliability/EveryAttributeHelpers.h"
#include "reliability/InternSnapshot.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

TEST(InternLeaks, EveryTypeReleasedLeavesTablesAndStoreAsTheyWere) {
    // The next-hop metric table keeps its three standing entries (unknown, invalid, pre-resolved)
    // for the life of the process: made before the first snapshot.
    Routing::Bgp::BgpMetricPrefDedupTable::instance();
    const OrvTest::InternSnapshot before = OrvTest::InternSnapshot::take();
    {
        OrvTest::EveryInterned all;
        all.exercise();
        const OrvTest::InternSnapshot during = OrvTest::InternSnapshot::take();
        // The test must have reached every type: each table and store class it names grew.
        std::istringstream tables(
            "PathAttributesDedupTable RibOutPathAttributesDedupTable AttributeSetDedupTable "
            "AspathAttrCanonicalDedupTable ClusterListDedupTable BgpClusterIdSetDedupTable "
            "GunkPathAttrDedupTable GunkPathAttrListDedupTable DomainPathDedupTable "
            "AccumulatedIgpMetricDedupTable AggregatorDedupTable PmsiTunnelDedupTable "
            "PmsiTunnelPimDedupTable PmsiTunnelMldpP2mpGenericLspIdDedupTable "
            "PmsiTunnelIdentifierDedupTable LabelIndexTlvDedupTable OriginatorSrgbTlvDedupTable "
            "Srv6ServiceTlvDedupTable PrefixSidDedupTable TunnelEncapDedupTable "
            "TunnelEncapTlvUnparsedDedupTable VxlanTunnelTlvDedupTable EndpointSubTlvDedupTable "
            "ColorSubTlvDedupTable UnparsedSubTlvDedupTable CommListDedupTable "
            "ExtCommListDedupTable ExtCommIp6ListDedupTable LargeCommListDedupTable "
            "LinkStateAttrDedupTable AddressNexthopDedupTable");
        for (std::string table; tables >> table;)
            EXPECT_GT(during.tableSize(table), before.tableSize(table)) << table;
        EXPECT_GT(during.liveObjects, before.liveObjects);
    }
    const OrvTest::InternSnapshot after = OrvTest::InternSnapshot::take();
    EXPECT_EQ(OrvTest::InternSnapshot::differences(before, after), "");
}

// A held object shows up, named by its table and its store class.
TEST(InternLeaks, AHeldObjectIsReported) {
    const OrvTest::InternSnapshot before = OrvTest::InternSnapshot::take();
    auto held = Routing::Bgp::accumulatedIgpMetricFactory(0x5eed5eed5eedULL);
    const std::string diff =
        OrvTest::InternSnapshot::differences(before, OrvTest::InternSnapshot::take());
    EXPECT_NE(diff.find("table AccumulatedIgpMetricDedupTable: "), std::string::npos) << diff;
    EXPECT_NE(diff.find("store AccumulatedIgpMetric: "), std::string::npos) << diff;
}

} // namespace
