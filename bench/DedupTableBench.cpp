// Intern-table benchmarks, each beside its baseline: a std::unordered_set of std::shared_ptr keyed
// by the same content (behind a std::mutex when two threads share it). Counters report bytes per
// entry, counted by allocators on both sides, so the figures are measured rather than estimated.
#include "Keel/DedupTable.h"
#include "Keel/HashMix.h"
#include "MelStash/StoreManager.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <unordered_set>
#include <vector>

namespace {

struct ItemContent : Keel::DedupContentHandle {
    uint32_t a, b, c;
    bool operator==(const ItemContent& o) const { return a == o.a && b == o.b && c == o.c; }
    uint32_t hash() const {
        Keel::HashMix m;
        m.hashMix(a);
        m.hashMix(b);
        m.hashMix(c);
        return m.result();
    }
};

class Item : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(Item)

public:
    explicit Item(const ItemContent& c) : a(c.a), b(c.b), c_(c.c) { hashIs(c.hash()); }
    bool compare(const Keel::DedupHandleBase* o) const override {
        auto* x = static_cast<const Item*>(o);
        return x->a == a && x->b == b && x->c_ == c_;
    }
    bool compareByContent(const Keel::DedupContentHandle& k) const override {
        auto& x = static_cast<const ItemContent&>(k);
        return x.a == a && x.b == b && x.c == c_;
    }
    uint32_t a, b, c_;
};

ItemContent contentOf(uint32_t i) {
    ItemContent c;
    c.a = i;
    c.b = i * 2654435761u;
    c.c = ~i;
    return c;
}

// ---- ours ----
struct Ours {
    explicit Ours(size_t n) : table("BenchItemDedupTable", true) {
        for (uint32_t i = 0; i < n; ++i)
            held.push_back(intern(contentOf(i)));
    }
    Mel::PtrConst<Item> intern(const ItemContent& c) {
        return table.findOrCreate(c.hash(), c, [&] { return new Item(c); });
    }
    Mel::PtrConst<Item> find(const ItemContent& c) const { return table.find(c.hash(), c); }
    Keel::DedupTable<Item> table;
    std::vector<Mel::PtrConst<Item>> held;
};

// ---- baseline ----
std::atomic<int64_t> baselineBytes{0};
template <class T>
struct CountAlloc {
    using value_type = T;
    CountAlloc() = default;
    template <class U>
    CountAlloc(const CountAlloc<U>&) {}
    T* allocate(size_t n) {
        baselineBytes += int64_t(n * sizeof(T));
        return std::allocator<T>().allocate(n);
    }
    void deallocate(T* p, size_t n) {
        baselineBytes -= int64_t(n * sizeof(T));
        std::allocator<T>().deallocate(p, n);
    }
    template <class U>
    bool operator==(const CountAlloc<U>&) const {
        return true;
    }
};
struct BaseHash {
    using is_transparent = void;
    size_t operator()(const std::shared_ptr<const ItemContent>& p) const { return p->hash(); }
    size_t operator()(const ItemContent& c) const { return c.hash(); }
};
struct BaseEq {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
        return deref(a) == deref(b);
    }
    static const ItemContent& deref(const ItemContent& c) { return c; }
    static const ItemContent& deref(const std::shared_ptr<const ItemContent>& p) { return *p; }
};
struct Baseline {
    explicit Baseline(size_t n) {
        for (uint32_t i = 0; i < n; ++i)
            held.push_back(intern(contentOf(i)));
    }
    std::shared_ptr<const ItemContent> intern(const ItemContent& c) {
        std::lock_guard lock(mutex);
        auto it = set.find(c);
        if (it != set.end()) return *it;
        auto p = std::allocate_shared<const ItemContent>(CountAlloc<ItemContent>(), c);
        set.insert(p);
        return p;
    }
    std::shared_ptr<const ItemContent> find(const ItemContent& c) {
        std::lock_guard lock(mutex);
        auto it = set.find(c);
        return it == set.end() ? nullptr : *it;
    }
    void release(std::shared_ptr<const ItemContent>& p) {
        std::lock_guard lock(mutex);
        if (p.use_count() == 2) set.erase(p);
        p.reset();
    }
    std::mutex mutex;
    std::unordered_set<std::shared_ptr<const ItemContent>, BaseHash, BaseEq,
                       CountAlloc<std::shared_ptr<const ItemContent>>>
        set;
    std::vector<std::shared_ptr<const ItemContent>> held;
};

// One population per size, built once and shared by every run of that size.
template <class Impl>
Impl& population(size_t n) {
    static std::map<size_t, std::unique_ptr<Impl>> cache;
    static std::mutex m;
    std::lock_guard lock(m);
    auto& p = cache[n];
    if (!p) p = std::make_unique<Impl>(n);
    return *p;
}

std::vector<uint32_t> probeSequence(size_t n, int seed) {
    std::mt19937 rng(seed);
    std::vector<uint32_t> seq(1 << 16);
    for (auto& x : seq)
        x = uint32_t(rng() % n);
    return seq;
}

void BM_Ours_LookupExisting(benchmark::State& state) {
    size_t n = size_t(state.range(0));
    Ours& ours = population<Ours>(n);
    auto seq = probeSequence(n, state.thread_index() + 1);
    size_t i = 0;
    for (auto _ : state) {
        auto p = ours.find(contentOf(seq[i++ & 0xffff]));
        benchmark::DoNotOptimize(p.get());
    }
    if (state.thread_index() == 0) {
        int64_t objectBytes = Item::melStashTypeStats().bytes.load();
        int64_t counted = 0;
        for (auto& t : MelStash::StoreManager::typeStats())
            if (t.name == "BenchItemDedupTable") counted = t.bytes;
        // Allocator-counted: every table of this name, i.e. the populations of both sizes.
        state.counters["tableBytesPerEntry"] = double(ours.table.memoryBytes()) / double(n);
        state.counters["allTablesCountedBytes"] = double(counted);
        state.counters["objectBytes"] =
            double(objectBytes) / double(Item::melStashTypeStats().objects.load());
        state.counters["headerBytes"] = double(sizeof(Keel::DedupHandleWithHash));
    }
}

void BM_Baseline_LookupExisting(benchmark::State& state) {
    size_t n = size_t(state.range(0));
    Baseline& base = population<Baseline>(n);
    auto seq = probeSequence(n, state.thread_index() + 1);
    size_t i = 0;
    int64_t before = baselineBytes;
    for (auto _ : state) {
        auto p = base.find(contentOf(seq[i++ & 0xffff]));
        benchmark::DoNotOptimize(p.get());
    }
    (void)before;
    if (state.thread_index() == 0)
        state.counters["bytesPerEntry"] = double(baselineBytes.load()) / double(n);
}

void BM_Ours_CreateThenRelease(benchmark::State& state) {
    size_t n = size_t(state.range(0));
    Ours& ours = population<Ours>(n);
    uint32_t next = uint32_t(n) + 1000000u * uint32_t(state.thread_index() + 1);
    for (auto _ : state) {
        auto p = ours.intern(contentOf(next++));
        benchmark::DoNotOptimize(p.get());
    }
}

void BM_Baseline_CreateThenRelease(benchmark::State& state) {
    size_t n = size_t(state.range(0));
    Baseline& base = population<Baseline>(n);
    uint32_t next = uint32_t(n) + 1000000u * uint32_t(state.thread_index() + 1);
    for (auto _ : state) {
        auto p = base.intern(contentOf(next++));
        benchmark::DoNotOptimize(p.get());
        base.release(p);
    }
}

#define ORV_TABLE_BENCH(fn)                                                                        \
    BENCHMARK(fn)->Arg(10000)->Arg(1000000)->Threads(1)->Threads(2)->UseRealTime()

ORV_TABLE_BENCH(BM_Ours_LookupExisting);
ORV_TABLE_BENCH(BM_Baseline_LookupExisting);
ORV_TABLE_BENCH(BM_Ours_CreateThenRelease);
ORV_TABLE_BENCH(BM_Baseline_CreateThenRelease);

} // namespace
