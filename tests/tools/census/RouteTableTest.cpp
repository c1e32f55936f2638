// The RIB's hash table against std::map under random inserts, replacements and erases, with
// hashes that collide a lot (long probe runs that wrap around the end of the slot array) and with
// a good hash through several doublings.
#include "census/RouteTable.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>

using namespace Census;

namespace {

struct Key {
    uint32_t k;
    bool operator==(const Key&) const = default;
    static constexpr Key empty() noexcept { return {~0u}; }
};

// Sixteen homes for every key, clustered at the end of the array so probes wrap.
struct CollidingHash {
    size_t operator()(const Key& k) const noexcept { return ~size_t(0) - (k.k % 16); }
};
struct GoodHash {
    size_t operator()(const Key& k) const noexcept { return size_t(k.k) * 0x9e3779b97f4a7c15ULL; }
};

// A value that owns memory: the sanitizer builds catch a leaked or doubly freed one.
struct Counted {
    std::unique_ptr<int> v;
    Counted() = default;
    Counted(Counted&& o) noexcept = default;
    Counted& operator=(Counted&& o) noexcept = default;
};

template <class H>
void randomOps(uint32_t keySpace, int ops, uint32_t seed) {
    RouteTable<Key, Counted, H> t;
    std::map<uint32_t, int> ref;
    std::mt19937 rng(seed);
    for (int i = 0; i < ops; ++i) {
        const uint32_t k = rng() % keySpace;
        if (rng() % 3 == 0) {
            EXPECT_EQ(t.erase(Key{k}), ref.erase(k) == 1) << "op " << i;
        } else {
            auto [v, inserted] = t.tryEmplace(Key{k});
            EXPECT_EQ(inserted, !ref.count(k)) << "op " << i;
            v->v = std::make_unique<int>(i);
            ref[k] = i;
        }
        ASSERT_EQ(t.size(), ref.size());
    }
    for (uint32_t k = 0; k < keySpace; ++k) {
        const Counted* v = t.find(Key{k});
        auto it = ref.find(k);
        ASSERT_EQ(v != nullptr, it != ref.end()) << "key " << k;
        if (v) {
            EXPECT_EQ(*v->v, it->second) << "key " << k;
        }
    }
    size_t seen = 0;
    t.forEach([&](const Key& k, const Counted& v) {
        ++seen;
        EXPECT_EQ(*v.v, ref.at(k.k));
    });
    EXPECT_EQ(seen, ref.size());
    EXPECT_LE(t.size() * 4, t.capacity() * 3);
}

} // namespace

TEST(RouteTable, MatchesMapUnderCollisionsAndWrapAround) {
    randomOps<CollidingHash>(300, 20000, 1);
    randomOps<CollidingHash>(40, 5000, 2); // nearly every slot of a small table in one run
}

TEST(RouteTable, MatchesMapThroughGrowth) {
    randomOps<GoodHash>(200000, 300000, 3);
}
