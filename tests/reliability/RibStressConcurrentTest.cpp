// Several census RIBs fed the same real paths at the same time, each on its own thread, interning
// into and releasing from the shared tables: every RIB must end as one RIB fed alone does (the
// same routes on the same sets, the same counts, the same distinct sets), the threads' RIBs must
// share their set objects, and clearing them must leave the tables and the store as before.
// The census's whole path through the library runs here: decode, build, intern the inbound and
// outbound sets, hold them in the RIB, write them back and compare with what arrived.
#include "census/Run.h"
#include "reliability/InternSnapshot.h"
#include "reliability/RealDumpsHelpers.h"

#include "OrvBgp/PathAttributesSerializeStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

using Table = Census::ContentsBuilder::NexthopTable;
using namespace Routing::Bgp;

constexpr unsigned kThreads = 4;

struct Tables {
    Mel::Ptr<Table> nh4{new Table(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast())};
    Mel::Ptr<Table> nh6{new Table(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv6Unicast())};
};

// What one RIB ends with.
struct Outcome {
    // Routes; the RIB's announcements, added, replaced, unchanged, withdrawals, removed; the
    // ingest's announced, withdrawn, unusable, sets interned, build failures; distinct inbound and
    // outbound sets.
    std::vector<uint64_t> counts;
    // Per route, the set's tier and its wire form (4-byte internal peer), sorted: the same
    // multiset means the same sets on the same number of routes.
    std::vector<std::string> inbound;
    std::vector<const void*> inboundObjects; // sorted, for comparing threads of one run

    static Outcome of(const Census::MrtIngest& w) {
        Outcome o;
        std::vector<const void*> out;
        w.rib().forEach([&](const PathAttributes& in, const RibOutPathAttributes* ribOut) {
            AttrSetStringStore s;
            in.serializeInternal(&s, true, true, true);
            o.inbound.push_back(std::to_string(int(in.getType())) + ":" + s.bytes().toHex());
            o.inboundObjects.push_back(&in);
            out.push_back(ribOut);
        });
        std::sort(o.inbound.begin(), o.inbound.end());
        std::sort(o.inboundObjects.begin(), o.inboundObjects.end());
        std::sort(out.begin(), out.end());
        auto distinct = [](std::vector<const void*> v) {
            return uint64_t(std::unique(v.begin(), v.end()) - v.begin());
        };
        const Census::RibCounts& r = w.rib().counts();
        const auto& c = w.counts();
        o.counts = {w.rib().size(),
                    r.announcements,
                    r.added,
                    r.replaced,
                    r.unchanged,
                    r.withdrawals,
                    r.removed,
                    c.announced,
                    c.withdrawn,
                    c.unusable,
                    c.setsInterned,
                    c.buildFailures,
                    distinct(o.inboundObjects),
                    distinct(out)};
        return o;
    }
};

void expectSame(const Outcome& a, const Outcome& b) {
    EXPECT_EQ(a.counts, b.counts);
    EXPECT_TRUE(a.inbound == b.inbound) << "the RIBs hold other sets";
}

TEST(RibStressConcurrent, ThreadsOnOverlappingRealPathsEndAsOneThreadDoes) {
    const auto slices = OrvTest::realDumpSlices(4);
    if (slices.empty()) GTEST_SKIP() << OrvTest::kNoDumps;
    BgpMetricPrefDedupTable::instance();
    const OrvTest::InternSnapshot before = OrvTest::InternSnapshot::take();

    // One thread alone.
    Outcome alone;
    size_t setsAlone = 0, outSetsAlone = 0;
    {
        Tables t;
        Census::MrtIngest w(t.nh4, t.nh6, true);
        for (const auto& s : slices)
            OrvTest::feed(s, w);
        EXPECT_EQ(w.roundTrip().counts().mismatched(), 0u) << w.roundTrip().counts().toString();
        alone = Outcome::of(w);
        w.dropCaches();
        const auto during = OrvTest::InternSnapshot::take();
        for (const char* table :
             {"PathAttributesDedupTable", "RibOutPathAttributesDedupTable",
              "AspathAttrCanonicalDedupTable", "AddressNexthopDedupTable", "AggregatorDedupTable",
              "CommListDedupTable", "ExtCommListDedupTable"})
            EXPECT_GT(during.tableSize(table), before.tableSize(table)) << table;
        EXPECT_GT(t.nh4->internTable().size(), 0u);
        EXPECT_GT(t.nh6->internTable().size(), 0u);
        setsAlone = during.tableSize("PathAttributesDedupTable");
        outSetsAlone = during.tableSize("RibOutPathAttributesDedupTable");
        w.clear();
        // The sets held the next hops: with them gone, the tables (still alive) are empty.
        EXPECT_EQ(t.nh4->internTable().size(), 0u);
        EXPECT_EQ(t.nh6->internTable().size(), 0u);
    }
    ASSERT_GT(alone.counts[0], 1000u);
    EXPECT_EQ(OrvTest::InternSnapshot::differences(before, OrvTest::InternSnapshot::take()), "");

    // kThreads at once on the same paths, sharing the next-hop tables as the census does.
    Tables t;
    std::vector<std::unique_ptr<Census::MrtIngest>> workers;
    for (unsigned i = 0; i < kThreads; ++i)
        workers.push_back(std::make_unique<Census::MrtIngest>(t.nh4, t.nh6, false));
    std::atomic<unsigned> ready{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            ready.fetch_add(1);
            while (ready.load() < kThreads)
                std::this_thread::yield();
            for (const auto& s : slices)
                OrvTest::feed(s, *workers[i]);
            workers[i]->dropCaches();
        });
    }
    for (auto& th : threads)
        th.join();
    std::vector<Outcome> outcomes;
    for (const auto& w : workers)
        outcomes.push_back(Outcome::of(*w));
    for (unsigned i = 0; i < kThreads; ++i) {
        SCOPED_TRACE("thread " + std::to_string(i));
        expectSame(outcomes[i], alone);
        EXPECT_EQ(outcomes[i].inboundObjects, outcomes[0].inboundObjects)
            << "threads hold different objects for the same sets";
    }
    const auto during = OrvTest::InternSnapshot::take();
    EXPECT_EQ(during.tableSize("PathAttributesDedupTable"), setsAlone);
    EXPECT_EQ(during.tableSize("RibOutPathAttributesDedupTable"), outSetsAlone);

    for (auto& w : workers)
        w->clear();
    workers.clear();
    EXPECT_EQ(OrvTest::InternSnapshot::differences(before, OrvTest::InternSnapshot::take()), "");
}

} // namespace
