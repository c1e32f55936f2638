#include "OrvBgp/BgpIdAllocator.h"

#include "Mel/Reflect.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "OrvBgp/OrvBgpNexthop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace Routing::Bgp {
namespace {

std::vector<uint32_t> allocateN(BgpIdAllocator& a, int n) {
    std::vector<uint32_t> ids;
    for (int i = 0; i < n; ++i)
        ids.push_back(a.allocate());
    return ids;
}

std::vector<uint32_t> freeList(const BgpIdAllocator& a) {
    std::vector<uint32_t> out;
    for (auto e = a.freeIdFront(); e; e = e->next())
        out.push_back(e->index() * 1000 + e->value()); // index and value in one number
    return out;
}

// Freed identifiers come back oldest first, before new ones are minted. A double free hands the
// identifier out twice; freeing beyond what was minted is trusted too and never lowers the counter.
TEST(BgpIdAllocator, MintsInOrderAndReusesTheOldestFreedFirst) {
    auto a = BgpInstanceEpochAllocatorIs();
    EXPECT_EQ(a->name(), "BgpInstanceEpoch");
    EXPECT_EQ(allocateN(*a, 6), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
    a->free(5);
    a->free(3);
    a->free(3);
    a->free(40);
    EXPECT_EQ(allocateN(*a, 5), (std::vector<uint32_t>{5, 3, 3, 40, 7}));
    EXPECT_EQ(a->largestAllocatedId(), 7u);
    EXPECT_EQ(a->freeIdCount(), 0u);
    EXPECT_FALSE(a->freeIdFront());
    EXPECT_FALSE(a->freeIdBack());
}

TEST(BgpIdAllocator, FreeListKeepsIndicesAcrossEmptyingAndEditing) {
    BgpIdAllocator a("Test");
    for (uint32_t id : {10u, 11u, 12u})
        a.freeIdEnq(id);
    EXPECT_EQ(freeList(a), (std::vector<uint32_t>{10, 1011, 2012}));
    for (uint32_t want : {10u, 11u, 12u, 0u}) // 0: the list is empty
        EXPECT_EQ(a.freeIdDeq(), want);
    EXPECT_FALSE(a.freeIdBack()) << "the tail goes with the last entry";
    // Indices keep growing after the list ran empty.
    a.freeIdEnq(13);
    EXPECT_EQ(a.freeIdFront()->index(), 3u);
    EXPECT_EQ(a.freeIdBack()->value(), 13u);

    // Editing by index: update, insert in index order (also before the head and after the tail),
    // delete head, middle and tail.
    for (auto [index, id] : {std::pair{3u, 30u}, {1u, 21u}, {7u, 27u}, {5u, 25u}})
        a.freeIdIs(index, id);
    EXPECT_EQ(freeList(a), (std::vector<uint32_t>{1021, 3030, 5025, 7027}));
    EXPECT_EQ(a.freeId(5)->value(), 25u);
    EXPECT_FALSE(a.freeId(4));
    a.freeIdEnq(99); // after the tail's index
    EXPECT_EQ(a.freeIdBack()->index(), 8u);
    a.freeIdDel(8);
    EXPECT_EQ(a.freeIdBack()->index(), 7u) << "deleting the tail moves the tail back";
    for (uint32_t index : {1u, 5u, 42u}) // 42 is absent: nothing happens
        a.freeIdDel(index);
    EXPECT_EQ(freeList(a), (std::vector<uint32_t>{3030, 7027}));
    EXPECT_EQ(a.freeIdCount(), 2u);
    a.freeIdEnq(50);
    EXPECT_EQ(freeList(a), (std::vector<uint32_t>{3030, 7027, 8050}));
    a.freeIdDelAll();
    EXPECT_EQ(a.freeIdCount(), 0u);
    EXPECT_EQ(a.allocate(), 1u) << "an empty free list mints";
}

TEST(BgpIdAllocator, LongFreeListIsReleasedWithoutRecursion) {
    auto a = BgpIdAllocatorIs("Long");
    for (uint32_t i = 1; i <= 1000000; ++i)
        a->freeIdEnq(i);
    a.reset(); // a recursive release of a million links would overflow the stack
}

TEST(BgpIdAllocator, TracesEachHandOutAndReturnAtLevel8) {
    OrvTest::TraceCapture trace(8);
    const auto& lines = trace.lines;
    BgpIdAllocator a("Probe");
    a.allocate();
    a.allocate();
    a.free(2);
    a.allocate();
    Tracelet::orvBgp().levelIs(7);
    a.allocate();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_NE(lines[0].find("BgpIdAllocator::allocate()"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find(" new Probe id 0x1"), std::string::npos) << lines[0];
    EXPECT_NE(lines[2].find(" free Probe id 0x2"), std::string::npos) << lines[2];
    EXPECT_NE(lines[3].find(" reuse Probe id 0x2"), std::string::npos) << lines[3];
    std::ostringstream self;
    self << static_cast<const void*>(&a);
    EXPECT_NE(lines[3].find(self.str()), std::string::npos) << "names the allocator";
}

TEST(BgpIdAllocator, StringFormAndRestoringThroughFieldAccess) {
    auto a = GenNexthopIdAllocatorIs();
    a->allocate();
    a->free(2);
    EXPECT_EQ(Mel::valueToStrep(*a),
              "Value('Routing::Bgp::GenNexthopIdAllocator', ** {'name': 'Nexthop', "
              "'largestAllocatedId': 2, 'freeIds': [Value('Routing::Bgp::MelFreeId', ** "
              "{'index': 0, 'value': 2})]})");
    Mel::fieldSet(*a, "largestAllocatedId", "4000");
    Mel::fieldSet(*a, "freeIds",
                  "[Value('Routing::Bgp::MelFreeId', ** {'index': 4, 'value': 17}), "
                  "Value('Routing::Bgp::MelFreeId', ** {'index': 2, 'value': 9})]");
    // Restored entries are ordered by index.
    EXPECT_EQ(allocateN(*a, 3), (std::vector<uint32_t>{9, 17, 4001}));
    EXPECT_THROW(Mel::fieldSet(*a, "name", "'Other'"), Mel::NotSupportedException);
}

TEST(BgpIdAllocatorDeathTest, IdentifierZeroIsNeverHandedOutNorTakenBack) {
    auto a = BgpIdAllocatorIs("Test");
    const std::string pattern =
        OrvTest::assertionPattern("OrvBgp/BgpIdAllocator", "BgpIdAllocator::invalidId() != id");
    EXPECT_DEATH(a->free(0), pattern);
    a->largestAllocatedIdIs(4294967294u);
    EXPECT_EQ(a->allocate(), 4294967295u) << "the last identifier is still good";
    EXPECT_DEATH(a->allocate(), pattern);
}

// Every identifier has at most one holder at a time, while two threads allocate and free.
TEST(BgpIdAllocatorConcurrent, NoIdentifierHasTwoHolders) {
    auto a = BgpIdAllocatorIs("Concurrent");
    constexpr uint32_t maxHeld = 64;
    constexpr int rounds = 100000;
    // Two threads hold at most 2 * maxHeld at once, so ids stay below 2 * maxHeld + 1.
    std::vector<std::atomic<uint8_t>> held(2 * maxHeld + 2);
    std::atomic<int> conflicts{0};
    auto worker = [&](uint32_t seed) {
        std::mt19937 rng(seed);
        std::vector<uint32_t> mine;
        for (int i = 0; i < rounds; ++i) {
            if (mine.size() < maxHeld && (mine.empty() || rng() % 2)) {
                uint32_t id = a->allocate();
                if (id >= held.size() || held[id].exchange(1)) conflicts.fetch_add(1);
                mine.push_back(id);
            } else {
                size_t k = rng() % mine.size();
                uint32_t id = mine[k];
                mine[k] = mine.back();
                mine.pop_back();
                held[id].store(0);
                a->free(id);
            }
        }
        for (uint32_t id : mine) {
            held[id].store(0);
            a->free(id);
        }
    };
    std::thread t1(worker, 1), t2(worker, 2);
    t1.join();
    t2.join();
    EXPECT_EQ(conflicts.load(), 0);
    EXPECT_LE(a->largestAllocatedId(), 2 * maxHeld);
    EXPECT_EQ(a->freeIdCount(), a->largestAllocatedId()) << "everything came back";
}

} // namespace
} // namespace Routing::Bgp
