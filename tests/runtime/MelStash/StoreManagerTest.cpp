#include "MelStash/StoreManager.h"
#include "Keel/DedupHandleBase.h"
#include "MelStash/CompressedStashSmartPtr.h"
#include "MelStash/StashReader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

namespace {

using MelStash::StoreManager;

class Blob : public Keel::DedupHandleBase {
    MELSTASH_STORE_ALLOCATED(Blob)

public:
    explicit Blob(uint32_t n) : n_(n) {
        for (uint32_t i = 0; i < n; ++i)
            data_[i] = i;
    }
    static Mel::Ptr<Blob> make(uint32_t n) {
        return Mel::Ptr<Blob>(new (MelStash::ExtraBytes{n * sizeof(uint32_t)}) Blob(n));
    }
    uint32_t hash() const override { return n_; }
    bool compare(const Keel::DedupHandleBase* o) const override {
        return static_cast<const Blob*>(o)->n_ == n_;
    }
    uint32_t n_;
    uint32_t data_[]; // trailing array inside the same block
};

TEST(StoreManager, CompressedReferencesCoverTheWholeRegion) {
    StoreManager& store = StoreManager::instance();
    char* base = static_cast<char*>(StoreManager::expand(1)) - 8;
    EXPECT_EQ(StoreManager::compress(nullptr), 0u);
    EXPECT_EQ(StoreManager::expand(0), nullptr);
    EXPECT_EQ(StoreManager::compress(base + 8), 1u);
    char* last = base + store.reservedBytes() - 8;
    uint32_t top = StoreManager::compress(last);
    EXPECT_EQ(StoreManager::expand(top), last);
    EXPECT_EQ(uint64_t(top), store.reservedBytes() / 8 - 1); // 32 GiB: 0xffffffff
    EXPECT_TRUE(StoreManager::contains(last));
    EXPECT_FALSE(StoreManager::contains(last + 8));
    EXPECT_FALSE(StoreManager::contains(base - 8));
}

TEST(StoreManager, BlocksAreDistinctAlignedAndNeverAtReferenceZero) {
    std::set<uint32_t> refs;
    std::vector<Mel::Ptr<Blob>> held;
    for (uint32_t n : {0u, 1u, 2u, 5u, 250u, 256u, 257u, 1000u, 5000u, 70000u}) {
        for (int i = 0; i < 50; ++i) {
            auto b = Blob::make(n);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(b.get()) % 8, 0u);
            uint32_t r = StoreManager::compress(b.get());
            EXPECT_NE(r, 0u);
            EXPECT_TRUE(refs.insert(r).second);
            EXPECT_GE(StoreManager::instance().blockSize(b.get()), sizeof(Blob) + n * 4);
            held.push_back(b);
        }
    }
    for (auto& b : held)
        for (uint32_t i = 0; i < b->n_; ++i)
            ASSERT_EQ(b->data_[i], i);
}

TEST(StoreManager, CountsLiveObjectsAndBytesPerType) {
    auto& stats = Blob::melStashTypeStats();
    int64_t objects = stats.objects, bytes = stats.bytes;
    {
        auto a = Blob::make(1);
        auto b = Blob::make(100);
        EXPECT_EQ(stats.objects, objects + 2);
        EXPECT_EQ(stats.bytes - bytes, int64_t(StoreManager::instance().blockSize(a.get()) +
                                               StoreManager::instance().blockSize(b.get())));
    }
    EXPECT_EQ(stats.objects, objects);
    EXPECT_EQ(stats.bytes, bytes);
}

TEST(StoreManager, FreedBlocksAreReusedWithinTheirClass) {
    Blob* first;
    {
        auto a = Blob::make(3);
        first = a.get();
    }
    auto b = Blob::make(3);
    EXPECT_EQ(b.get(), first);
}

TEST(CompressedStashSmartPtr, IsFourBytesAndOwnsOneReference) {
    static_assert(sizeof(MelStash::CompressedStashSmartPtr<Blob const, 4>) == 4);
    auto b = Blob::make(2);
    {
        MelStash::CompressedStashSmartPtr<Blob const, 4> p(b);
        EXPECT_EQ(b->refCount(), 2u);
        auto q = p;
        EXPECT_EQ(b->refCount(), 3u);
        EXPECT_EQ(q.get(), b.get());
        EXPECT_EQ(q->n_, 2u);
        auto moved = std::move(q);
        EXPECT_FALSE(q);
        EXPECT_EQ(b->refCount(), 3u);
        EXPECT_EQ(moved.compressed(), StoreManager::compress(b.get()));
    }
    EXPECT_EQ(b->refCount(), 1u);
}

struct ReaderA : MelStash::StashReaderBase {
    int id = 1;
};

TEST(StashReaderRegistry, FindsTheReaderOfAStoredClass) {
    static ReaderA reader;
    MelStash::StashReaderRegistry::registerReader(typeid(Blob), &reader);
    auto b = Blob::make(1);
    const Keel::DedupHandleBase* stored = b.get();
    EXPECT_EQ(MelStash::StashReaderRegistry::readerFor<ReaderA>(typeid(*stored)), &reader);
    EXPECT_EQ(MelStash::StashReaderRegistry::readerFor<ReaderA>(typeid(int)), nullptr);
}

} // namespace
