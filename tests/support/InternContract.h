// The contract every interned type keeps, tested once over all of them.
//   struct ClusterListTraits { using Object = ClusterList; static Content content(int i); static
//   Ptr intern(const Content&); static size_t tableSize(); };
//   INSTANTIATE_TYPED_TEST_SUITE_P(ClusterList, InternContract,
//   ::testing::Types<ClusterListTraits>);
#pragma once

#include "Keel/DedupHandleBase.h"
#include "MelStash/StoreManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

// Traits: `content(i)` gives distinct contents for distinct i (0..63 at least); `intern(c)` interns
// one; `tableSize()` counts the entries of the table intern() uses; `Object` is the interned class.
// Families whose objects can be interned again by the object itself also give `dedup(p)`, which
// calls the object's dedup with the table intern() uses.
// Traits whose intern() uses `Table::instance()` may take their tableSize() from here, and dedup()
// too where the table's own dedup is the one to test.
template <class Table>
struct InternTableOf {
    static size_t tableSize() { return Table::instance().size(); }
};
template <class Table>
struct InternTableDedupOf : InternTableOf<Table> {
    template <class P>
    static auto dedup(const P& p) {
        return Table::instance().dedup(p);
    }
};

template <class Traits>
class InternContract : public ::testing::Test {
protected:
    static int64_t live() { return Traits::Object::melStashTypeStats().objects.load(); }
};

TYPED_TEST_SUITE_P(InternContract);

// Equal contents give one object, distinct ones distinct objects; the last holder's release frees
// it.
TYPED_TEST_P(InternContract, EqualContentsShareOneObjectAndTheLastHolderFreesIt) {
    int64_t before = TestFixture::live();
    size_t tableBefore = TypeParam::tableSize();
    {
        std::vector<decltype(TypeParam::intern(TypeParam::content(0)))> held;
        for (int i = 0; i < 128; ++i)
            held.push_back(TypeParam::intern(TypeParam::content(i % 64)));
        for (int i = 0; i < 64; ++i) {
            ASSERT_TRUE(held[i]);
            EXPECT_EQ(held[i].get(), held[i + 64].get());
            EXPECT_TRUE(held[i]->isDeduped());
            EXPECT_TRUE(held[i]->compare(held[i + 64].get()));
            EXPECT_FALSE(held[i]->compare(held[(i + 1) % 64].get()));
        }
        EXPECT_EQ(TypeParam::tableSize(), tableBefore + 64);
    }
    EXPECT_EQ(TypeParam::tableSize(), tableBefore);
    EXPECT_EQ(TestFixture::live(), before);
}

TYPED_TEST_P(InternContract, ConcurrentInternAndRelease) {
    int64_t before = TestFixture::live();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 rng(77 + t);
            std::vector<decltype(TypeParam::intern(TypeParam::content(0)))> held(8);
            for (int i = 0; i < 3000; ++i) {
                int k = int(rng() % 16);
                auto p = TypeParam::intern(TypeParam::content(k));
                auto again = TypeParam::intern(TypeParam::content(k));
                if (p.get() != again.get() || !p->isDeduped()) wrong.fetch_add(1);
                held[rng() % held.size()] = std::move(p);
            }
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(TestFixture::live(), before);
}

// Interning an object that is interned already gives that object back, with one more holder.
TYPED_TEST_P(InternContract, InterningAnInternedObjectAgainReturnsIt) {
    auto a = TypeParam::intern(TypeParam::content(3));
    if constexpr (requires { TypeParam::dedup(a); }) {
        size_t before = TypeParam::tableSize();
        auto refs = a->refCount();
        {
            auto again = TypeParam::dedup(a);
            EXPECT_EQ(again.get(), a.get());
            EXPECT_EQ(a->refCount(), refs + 1);
            EXPECT_EQ(TypeParam::tableSize(), before);
        }
        EXPECT_EQ(a->refCount(), refs);
        EXPECT_EQ(TypeParam::intern(TypeParam::content(3)).get(), a.get());
    } else {
        GTEST_SKIP() << "interned through its factory only";
    }
}

REGISTER_TYPED_TEST_SUITE_P(InternContract, EqualContentsShareOneObjectAndTheLastHolderFreesIt,
                            ConcurrentInternAndRelease, InterningAnInternedObjectAgainReturnsIt);
