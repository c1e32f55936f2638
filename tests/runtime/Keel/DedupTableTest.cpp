#include "Keel/DedupTable.h"
#include "Keel/HashMix.h"
#include "MelStash/StoreManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

namespace {

struct ProbeContent : Keel::DedupContentHandle {
    uint32_t value;
};

// A small interned type whose hash can be forced to collide.
class Probe : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(Probe)

public:
    static inline std::atomic<bool> collide{false};
    static inline std::atomic<int> destroyed{0};

    explicit Probe(uint32_t v) : value(v) { hashIs(hashOf(v)); }
    static uint32_t hashOf(uint32_t v) {
        if (collide) return 0;
        Keel::HashMix m;
        m.hashMix(v);
        return m.result();
    }
    bool compare(const Keel::DedupHandleBase* o) const override {
        return static_cast<const Probe*>(o)->value == value;
    }
    bool compareByContent(const Keel::DedupContentHandle& c) const override {
        return static_cast<const ProbeContent&>(c).value == value;
    }
    const uint32_t value;

protected:
    void handleDestroy() noexcept override { destroyed.fetch_add(1); }
};

class ProbeTable : public Keel::DedupTable<Probe> {
public:
    using DedupTable::DedupTable;
    Mel::PtrConst<Probe> intern(uint32_t v) {
        ProbeContent c;
        c.value = v;
        return findOrCreate(Probe::hashOf(v), c, [v] { return new Probe(v); });
    }
};

} // namespace

namespace Keel {
struct DedupHandleTestAccess {
    static void refCountIs(const DedupHandleBase& o, uint32_t count) {
        uint32_t w = o.word_.load();
        o.word_.store((w & ~DedupHandleBase::countMask) | count);
    }
};
} // namespace Keel

namespace {

int64_t liveProbes() {
    return Probe::melStashTypeStats().objects.load();
}

class DedupTableTest : public ::testing::TestWithParam<bool> {
protected:
    void TearDown() override { Probe::collide = false; }
};

// Equal contents share one object, held by the table and each holder, which leaves with its last
// holder. Objects carry no table: two live tables of one type must each release only their own
// objects, and each object must report its own table.
TEST_P(DedupTableTest, EqualContentsShareOneObjectPerTableAndLeaveWithTheLastHolder) {
    int64_t before = liveProbes();
    {
        ProbeTable a("ProbeDedupTable", GetParam()), b("ProbeDedupTable", GetParam());
        auto inA = a.intern(7), again = a.intern(7), other = a.intern(8), inB = b.intern(7);
        EXPECT_EQ(inA, again);
        EXPECT_NE(inA, other);
        EXPECT_NE(inA, inB);
        EXPECT_TRUE(inA->isDeduped());
        EXPECT_EQ(inA->dedupTable(), &a);
        EXPECT_EQ(inB->dedupTable(), &b);
        EXPECT_EQ(a.size(), 2u);
        EXPECT_EQ(inA->refCount(), 3u); // two holders and the table
        inA.reset();
        again.reset(); // leaves a, not b
        EXPECT_EQ(a.size(), 1u);
        EXPECT_EQ(b.size(), 1u);
        ProbeContent k;
        k.value = 7;
        EXPECT_FALSE(a.find(Probe::hashOf(7), k));
        EXPECT_EQ(b.intern(7), inB);
        other.reset();
        inB.reset();
        EXPECT_EQ(a.size(), 0u);
        EXPECT_EQ(b.size(), 0u);
    }
    EXPECT_EQ(liveProbes(), before);
}

TEST_P(DedupTableTest, CollidingHashesStayDistinct) {
    Probe::collide = true;
    ProbeTable table("ProbeDedupTable", GetParam());
    std::vector<Mel::PtrConst<Probe>> held;
    for (uint32_t v = 0; v < 300; ++v)
        held.push_back(table.intern(v));
    for (uint32_t v = 0; v < 300; ++v)
        EXPECT_EQ(table.intern(v), held[v]);
    EXPECT_EQ(table.size(), 300u);
    // Releasing every other one removes exactly those.
    for (uint32_t v = 0; v < 300; v += 2)
        held[v].reset();
    EXPECT_EQ(table.size(), 150u);
    for (uint32_t v = 1; v < 300; v += 2)
        EXPECT_EQ(table.intern(v), held[v]);
}

TEST_P(DedupTableTest, DedupOfPrebuiltObjectReturnsTheInternedOne) {
    ProbeTable table("ProbeDedupTable", GetParam());
    Mel::PtrConst<Probe> fresh(new Probe(3));
    EXPECT_EQ(fresh->dedupState(), Keel::dedupHandleStateNeverDeduped());
    auto first = table.dedup(fresh);
    EXPECT_EQ(first, fresh);
    EXPECT_TRUE(fresh->isDeduped());
    Mel::PtrConst<Probe> twin(new Probe(3));
    auto second = table.dedup(twin);
    EXPECT_EQ(second, first);
    EXPECT_FALSE(twin->everDeduped()); // the twin is dropped by its last holder like any object
}

TEST_P(DedupTableTest, DestroyedTableDetachesItsObjects) {
    int destroyedBefore = Probe::destroyed;
    Mel::PtrConst<Probe> survivor;
    {
        ProbeTable table("ProbeDedupTable", GetParam());
        survivor = table.intern(11);
        auto dropped = table.intern(12);
    }
    EXPECT_EQ(survivor->value, 11u);
    EXPECT_EQ(survivor->dedupState(), Keel::DedupHandleState::detached);
    EXPECT_EQ(survivor->refCount(), 1u);
    EXPECT_EQ(Probe::destroyed, destroyedBefore + 1);
    survivor.reset();
    EXPECT_EQ(Probe::destroyed, destroyedBefore + 2);
}

INSTANTIATE_TEST_SUITE_P(Forms, DedupTableTest, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "Locked" : "SingleThreaded"; });

// Many threads intern and release overlapping contents; every object must be the right one, and
// everything must be gone at the end (no leak, no double free, no object revived on its way out).
TEST(DedupTableConcurrent, InternAndReleaseOverlappingContents) {
    int64_t before = liveProbes();
    ProbeTable table("ProbeDedupTable", true);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 rng(1234 + t);
            std::vector<Mel::PtrConst<Probe>> held(16);
            for (int i = 0; i < 40000; ++i) {
                uint32_t v = rng() % 64;
                auto p = table.intern(v);
                if (p->value != v || !p->isDeduped()) wrong.fetch_add(1);
                held[rng() % held.size()] = std::move(p);
            }
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(table.size(), 0u);
    EXPECT_EQ(liveProbes(), before);
}

TEST(DedupTableConcurrent, LastReleaseRacesWithLookup) {
    ProbeTable table("ProbeDedupTable", true);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    auto worker = [&] {
        while (!stop) {
            auto p = table.intern(5);
            if (p->value != 5 || p->refCount() < 2) wrong.fetch_add(1);
        }
    };
    std::thread a(worker), b(worker);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    stop = true;
    a.join();
    b.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(table.size(), 0u);
}

class Reviver : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(Reviver)

public:
    Reviver() { hashIs(1); }
    bool compare(const Keel::DedupHandleBase*) const override { return true; }
    bool compareByContent(const Keel::DedupContentHandle&) const override { return true; }

protected:
    void handleDestroy() noexcept override { Mel::PtrConst<Reviver> again(this); }
};

TEST(DedupTableDeathTest, TakingAReferenceOnAnObjectOnItsWayOut) {
    EXPECT_DEATH(
        {
            Keel::DedupTable<Reviver> table("ReviverDedupTable");
            Keel::DedupContentHandle c;
            auto r = table.findOrCreate(1, c, [] { return new Reviver; });
            r.reset();
        },
        "assertDedupHandleRefIncWhilstDetached");
}

// 2^30 - 1 references are the most one object takes (the table's hold included); the reference
// that would carry into the state bits ends the process instead.
TEST(DedupTableDeathTest, ReferenceCountLimit) {
    ProbeTable table("ProbeDedupTable");
    auto p = table.intern(3);
    Keel::DedupHandleTestAccess::refCountIs(*p, Keel::DedupHandleBase::maxRefCount - 1);
    Mel::PtrConst<Probe> last = p; // the limit itself is still allowed
    EXPECT_EQ(p->refCount(), Keel::DedupHandleBase::maxRefCount);
    EXPECT_TRUE(p->isDeduped());
    EXPECT_DEATH({ Mel::PtrConst<Probe> more = p; }, "reference count beyond its limit");
    Keel::DedupHandleTestAccess::refCountIs(*p, 3);
}

TEST(DedupTableDeathTest, AssertIsDedupedOnAFreshObject) {
    Mel::PtrConst<Probe> p(new Probe(1));
    EXPECT_DEATH(p->assertIsDeduped(), "isDeduped\\(\\)");
}

TEST(HashMix, OrderAndWidthMatter) {
    Keel::HashMix a, b, c, d;
    a.hashMix(uint32_t(1));
    a.hashMix(uint32_t(2));
    b.hashMix(uint32_t(2));
    b.hashMix(uint32_t(1));
    c.hashMix(uint8_t(1));
    d.hashMix(uint32_t(1));
    EXPECT_NE(a.result(), b.result());
    EXPECT_NE(c.result(), d.result());
    Keel::HashMix e(5), f(5);
    e.hashMix(uint64_t(99));
    f.hashMix(uint64_t(99));
    EXPECT_EQ(e.result(), f.result());
    EXPECT_EQ(Keel::hashBytes("", 0), 0u);
    EXPECT_NE(Keel::hashBytes("ab", 2), Keel::hashBytes("ba", 2));
}

} // namespace
