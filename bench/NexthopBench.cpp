// Address next hops: bytes per interned next hop and the cost of dedupContent for a next hop that
// is already interned, beside a baseline measured in the same run: the same payload (address, VRF,
// identifier) in a std::unordered_set of std::shared_ptr keyed by the address, behind a std::mutex
// (our table locks a shard too). Baseline bytes are counted by its allocator.
//   build/release/orv_bench --benchmark_filter='Nexthop'
#include "OrvBgp/AddressNexthop.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <unordered_set>
#include <vector>

namespace {

using Orvnet::IpGenAddr;
using namespace Routing::Bgp;

IpGenAddr addressOf(uint32_t i) {
    return Orvnet::IpAddr::fromHostOrder(0x0a000000u + i * 7919u);
}

std::vector<uint32_t> probeSequence(size_t n, int seed) {
    std::mt19937 rng(seed);
    std::vector<uint32_t> seq(1 << 16);
    for (auto& x : seq)
        x = uint32_t(rng() % n);
    return seq;
}

// ---- ours ----
struct Ours {
    explicit Ours(size_t n, bool uniqueIds)
        : table(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast()), unique(uniqueIds) {
        table.uniqueNexthopIdsEnabledIs(uniqueIds);
        int64_t before = AddressNexthop::melStashTypeStats().bytes.load();
        for (uint32_t i = 0; i < n; ++i)
            held.push_back(table.nexthop(addressOf(i), unique));
        objectBytes = AddressNexthop::melStashTypeStats().bytes.load() - before;
    }
    AddressNexthopDedupTable table;
    bool unique;
    std::vector<Mel::PtrConst<AddressNexthop>> held;
    int64_t objectBytes;
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

struct PlainNexthop {
    IpGenAddr address;
    uint32_t vrfId = 0;
    uint32_t id = 1;
};
using PlainPtr = std::shared_ptr<const PlainNexthop>;
struct PlainHash {
    using is_transparent = void;
    size_t operator()(const PlainPtr& p) const { return std::hash<IpGenAddr>()(p->address); }
    size_t operator()(const IpGenAddr& a) const { return std::hash<IpGenAddr>()(a); }
};
struct PlainEq {
    using is_transparent = void;
    static const IpGenAddr& key(const PlainPtr& p) { return p->address; }
    static const IpGenAddr& key(const IpGenAddr& a) { return a; }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
        return key(a) == key(b);
    }
};
struct Baseline {
    explicit Baseline(size_t n) {
        int64_t before = baselineBytes.load();
        for (uint32_t i = 0; i < n; ++i)
            held.push_back(intern(addressOf(i)));
        bytes = baselineBytes.load() - before;
    }
    PlainPtr intern(const IpGenAddr& a) {
        std::lock_guard lock(mutex);
        auto it = set.find(a);
        if (it != set.end()) return *it;
        auto p = std::allocate_shared<const PlainNexthop>(CountAlloc<PlainNexthop>(),
                                                          PlainNexthop{a, 0, 1});
        set.insert(p);
        return p;
    }
    std::mutex mutex;
    std::unordered_set<PlainPtr, PlainHash, PlainEq, CountAlloc<PlainPtr>> set;
    std::vector<PlainPtr> held;
    int64_t bytes;
};

// One population per size (and identifier setting), built once and shared by every run.
Ours& oursPopulation(size_t n, bool uniqueIds) {
    static std::map<std::pair<size_t, bool>, std::unique_ptr<Ours>> cache;
    static std::mutex m;
    std::lock_guard lock(m);
    auto& p = cache[{n, uniqueIds}];
    if (!p) p = std::make_unique<Ours>(n, uniqueIds);
    return *p;
}

Baseline& baselinePopulation(size_t n) {
    static std::map<size_t, std::unique_ptr<Baseline>> cache;
    static std::mutex m;
    std::lock_guard lock(m);
    auto& p = cache[n];
    if (!p) p = std::make_unique<Baseline>(n);
    return *p;
}

void dedupContentExisting(benchmark::State& state, bool uniqueIds) {
    size_t n = size_t(state.range(0));
    Ours& ours = oursPopulation(n, uniqueIds);
    auto seq = probeSequence(n, state.thread_index() + 1);
    std::vector<IpGenAddr> probes;
    for (uint32_t k : seq)
        probes.push_back(addressOf(k));
    size_t i = 0;
    for (auto _ : state) {
        auto nh = ours.table.nexthop(probes[i++ & 0xffff], uniqueIds);
        benchmark::DoNotOptimize(nh.get());
    }
    if (state.thread_index() == 0) {
        double object = double(ours.objectBytes) / double(n);
        double table = double(ours.table.internTable().memoryBytes()) / double(n);
        state.counters["objectBytes"] = object;
        state.counters["tableBytes"] = table;
        state.counters["bytesPerNexthop"] = object + table;
        state.counters["sizeofIpGenAddr"] = double(sizeof(IpGenAddr));
    }
}

void BM_AddressNexthop_DedupContentExisting(benchmark::State& state) {
    dedupContentExisting(state, false);
}
void BM_AddressNexthop_DedupContentExistingUniqueId(benchmark::State& state) {
    dedupContentExisting(state, true);
}

void BM_Baseline_NexthopLookupExisting(benchmark::State& state) {
    size_t n = size_t(state.range(0));
    Baseline& base = baselinePopulation(n);
    auto seq = probeSequence(n, state.thread_index() + 1);
    std::vector<IpGenAddr> probes;
    for (uint32_t k : seq)
        probes.push_back(addressOf(k));
    size_t i = 0;
    for (auto _ : state) {
        auto nh = base.intern(probes[i++ & 0xffff]);
        benchmark::DoNotOptimize(nh.get());
    }
    if (state.thread_index() == 0)
        state.counters["bytesPerNexthop"] = double(base.bytes) / double(n);
}

BENCHMARK(BM_AddressNexthop_DedupContentExisting)->Arg(10000)->Arg(1000000)->ThreadRange(1, 2);
BENCHMARK(BM_AddressNexthop_DedupContentExistingUniqueId)->Arg(10000)->Arg(1000000);
BENCHMARK(BM_Baseline_NexthopLookupExisting)->Arg(10000)->Arg(1000000)->ThreadRange(1, 2);

} // namespace
