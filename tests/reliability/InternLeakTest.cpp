// Nothing interned outlives its holders: after every holder is gone, every intern table is back to
// the size it had and the store holds the same live objects of every type as before.
#include "census/Run.h"
#include "reliability/EveryAttributeHelpers.h"
#include "reliability/InternSnapshot.h"
#include "reliability/RealDumpsHelpers.h"

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

// The census's whole path through the library over real dumps: decode, build, intern the inbound
// and outbound sets, hold them in the RIB, write them back and compare with what arrived.
TEST(InternLeaks, RealDataRoundTripReleasedLeavesTablesAndStoreAsTheyWere) {
    const auto slices = OrvTest::realDumpSlices();
    if (slices.empty()) GTEST_SKIP() << OrvTest::kNoDumps;
    Routing::Bgp::BgpMetricPrefDedupTable::instance();
    const OrvTest::InternSnapshot before = OrvTest::InternSnapshot::take();
    {
        using Table = Census::ContentsBuilder::NexthopTable;
        Mel::Ptr<Table> nh4(
            new Table(Routing::Bgp::BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast()));
        Mel::Ptr<Table> nh6(
            new Table(Routing::Bgp::BgpVrfIdBase(0), Orvnet::AfiSafi::ipv6Unicast()));
        {
            Census::MrtIngest ingest(nh4, nh6, true);
            for (const auto& s : slices)
                OrvTest::feed(s, ingest);
            EXPECT_GT(ingest.rib().size(), 1000u);
            EXPECT_EQ(ingest.roundTrip().counts().mismatched(), 0u)
                << ingest.roundTrip().counts().toString();
            const OrvTest::InternSnapshot during = OrvTest::InternSnapshot::take();
            for (const char* table :
                 {"PathAttributesDedupTable", "RibOutPathAttributesDedupTable",
                  "AspathAttrCanonicalDedupTable", "AddressNexthopDedupTable",
                  "AggregatorDedupTable", "CommListDedupTable", "ExtCommListDedupTable"})
                EXPECT_GT(during.tableSize(table), before.tableSize(table)) << table;
            EXPECT_GT(nh4->internTable().size(), 0u);
            EXPECT_GT(nh6->internTable().size(), 0u);
            ingest.clear();
        }
        // The sets held the next hops: with them gone, the tables (still alive) are empty.
        EXPECT_EQ(nh4->internTable().size(), 0u);
        EXPECT_EQ(nh6->internTable().size(), 0u);
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
