#include "Keel/RefSet.h"

#include <gtest/gtest.h>

#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

// References stand for themselves here; their hash comes from a side table, so a test can make
// many references share one hash and pile up in one run of slots.
std::unordered_map<uint32_t, uint32_t> hashes;
uint32_t hashOf(uint32_t ref) {
    return hashes.at(ref);
}

// Where `ref` sits in `set`, or npos.
uint32_t slotOf(const Keel::RefSet& set, uint32_t ref) {
    return set.find(hashes.at(ref), [ref](uint32_t r) { return r == ref; });
}

// Random inserts and removals against a model, with hashes drawn from a few values (long runs
// of equal home slots, wrap-around at the end of the array) or from many, and (big) half the
// references from the middle of the run on too large for a packed slot, so the set turns wide
// while it holds entries and packs again once they are gone: every entry is found, nothing else
// is, the array grows only with the live entries, and the byte counter matches.
TEST(RefSet, AgreesWithAModelUnderChurnAndCollisions) {
    for (auto [distinctHashes, big] :
         {std::pair{3u, false}, {50u, false}, {1000000u, false}, {3u, true}, {1000000u, true}}) {
        SCOPED_TRACE(testing::Message() << distinctHashes << (big ? " big" : ""));
        hashes.clear();
        std::mt19937 rng(distinctHashes);
        std::atomic<int64_t> bytes{0};
        Keel::RefSet set;
        std::unordered_map<uint32_t, bool> live; // ref -> in the set
        uint32_t peak = 0;
        for (uint32_t step = 0; step < 40000; ++step) {
            uint32_t ref = 1 + rng() % 3000;
            if (big && step >= 20000 && ref % 2) ref |= Keel::RefSet::packedLimit << (ref % 7);
            if (!hashes.count(ref)) hashes[ref] = uint32_t(rng() % distinctHashes) * 0x9E3779B9u;
            uint32_t at = slotOf(set, ref);
            ASSERT_EQ(at != Keel::RefSet::npos, live[ref]) << "step " << step;
            if (at == Keel::RefSet::npos) {
                set.insert(hashes[ref], ref, &hashOf, &bytes);
                live[ref] = true;
            } else {
                ASSERT_EQ(set.refAt(at), ref);
                set.eraseAt(at, &hashOf, &bytes);
                live[ref] = false;
            }
            peak = std::max(peak, set.size());
            ASSERT_EQ(bytes.load(), int64_t(set.memoryBytes()));
        }
        uint32_t n = 0;
        bool anyBig = false;
        set.forEach([&](uint32_t r) {
            EXPECT_TRUE(live[r]);
            anyBig |= r >= Keel::RefSet::packedLimit;
            ++n;
        });
        EXPECT_EQ(n, set.size());
        EXPECT_EQ(anyBig, big);
        EXPECT_EQ(set.wide(), big);
        for (auto& [ref, in] : live)
            EXPECT_EQ(slotOf(set, ref) != Keel::RefSet::npos, in) << ref;
        // Removed slots are dropped when the set grows: churn does not inflate it.
        EXPECT_LE(set.capacity(),
                  peak * 100 / Keel::RefSet::targetLoadPercent + Keel::RefSet::groupSlots);
        // Emptied to a tenth, it gives the memory back.
        std::vector<uint32_t> drop;
        set.forEach([&](uint32_t r) { drop.push_back(r); });
        for (size_t k = 0; k < drop.size() * 9 / 10; ++k) {
            uint32_t r = drop[k];
            set.eraseAt(slotOf(set, r), &hashOf, &bytes);
            live[r] = false;
        }
        EXPECT_LE(100 * uint64_t(set.size()), Keel::RefSet::maxLoadPercent * set.capacity());
        EXPECT_GE(100 * uint64_t(set.size() + Keel::RefSet::groupSlots),
                  Keel::RefSet::minLoadPercent * uint64_t(set.capacity()));
        for (auto& [ref, in] : live)
            ASSERT_EQ(slotOf(set, ref) != Keel::RefSet::npos, in) << ref;
        ASSERT_EQ(bytes.load(), int64_t(set.memoryBytes()));
        // The big ones gone, the next rebuild packs the set again.
        if (big) {
            std::vector<uint32_t> bigOnes;
            set.forEach([&](uint32_t r) {
                if (r >= Keel::RefSet::packedLimit) bigOnes.push_back(r);
            });
            for (uint32_t r : bigOnes) {
                set.eraseAt(slotOf(set, r), &hashOf, &bytes);
                live[r] = false;
            }
            for (uint32_t ref = 1; set.wide(); ++ref) {
                if (live[ref]) continue;
                if (!hashes.count(ref)) hashes[ref] = ref * 0x9E3779B9u;
                set.insert(hashes[ref], ref, &hashOf, &bytes);
                live[ref] = true;
            }
            set.forEach([&](uint32_t r) { EXPECT_TRUE(live[r]) << r; });
            ASSERT_EQ(bytes.load(), int64_t(set.memoryBytes()));
        }
        set.clear(&bytes);
        EXPECT_EQ(bytes.load(), 0);
    }
}

// Between rehashes the set runs from its target load to its maximum.
TEST(RefSet, LoadStaysBetweenTargetAndMaximum) {
    hashes.clear();
    Keel::RefSet set;
    std::atomic<int64_t> bytes{0};
    for (uint32_t ref = 1; ref <= 100000; ++ref) {
        hashes[ref] = ref * 0x85EBCA6Bu;
        set.insert(hashes[ref], ref, &hashOf, &bytes);
        if (ref >= 100) {
            ASSERT_LE(100 * uint64_t(set.size()), Keel::RefSet::maxLoadPercent * set.capacity())
                << ref;
            ASSERT_GE(100 * uint64_t(set.size() + Keel::RefSet::groupSlots),
                      Keel::RefSet::targetLoadPercent * uint64_t(set.capacity()))
                << ref;
        }
    }
    set.clear(&bytes);
}

} // namespace
