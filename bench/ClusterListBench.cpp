// Cluster list figures, each beside a plain baseline measured in the same run:
//   - bytes per interned list of n cluster ids (originator id set), everything included (the object
//     with its inline ids, from the store's counters, plus the intern table's arrays), against a
//     std::unordered_set of std::shared_ptr to {originator, std::vector of ids} (glibc heap bytes,
//     malloc headers included); also the loop-cache block a list gains on its first check;
//   - ns per findClusterListLoop answered from the cache, against a plain scan of a
//     std::vector<uint32_t> of the same ids;
//   - ns per findClusterListLoop on a list never asked before (scan, then cache insert under the
//     write lock, including the cache block's allocation), against the same plain scan.
// Timed pairs run interleaved in batches inside one benchmark, so both sides see the same
// machine; the counters give each side's ns and their ratio.
#include "OrvBgp/ClusterList.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <unordered_set>
#include <vector>

using namespace Routing::Bgp;

namespace {

// ---- the plain baseline -------------------------------------------------------------------
struct PlainClusterList {
    uint32_t originatorId;
    std::vector<uint32_t> ids;
    bool operator==(const PlainClusterList&) const = default;
};
struct PlainHash {
    size_t operator()(const std::shared_ptr<const PlainClusterList>& p) const noexcept {
        size_t h = p->originatorId;
        for (uint32_t id : p->ids)
            h = h * 1000003 + id;
        return h;
    }
};
struct PlainEq {
    bool operator()(const std::shared_ptr<const PlainClusterList>& a,
                    const std::shared_ptr<const PlainClusterList>& b) const noexcept {
        return *a == *b;
    }
};
using PlainSet = std::unordered_set<std::shared_ptr<const PlainClusterList>, PlainHash, PlainEq>;

size_t heapBytes() {
    return mallinfo2().uordblks;
}

// List i: originator 192.0.2.x-ish, ids that look like route reflectors' loopbacks; the first id
// makes lists distinct.
void listIds(uint32_t i, size_t n, uint32_t* out) {
    out[0] = 0x0a000000u + i;
    for (size_t k = 1; k < n; ++k)
        out[k] = 0xac100000u + uint32_t(k);
}

ClusterListContent contentOf(uint32_t i, size_t n) {
    std::vector<uint32_t> ids(n);
    listIds(i, n, ids.data());
    ClusterListContent c;
    c.originatorIdIs(Orvnet::IpAddr::fromHostOrder(0xc0000201u));
    for (uint32_t id : ids)
        c.clusterIdEnq(Orvnet::IpAddr::fromHostOrder(id));
    return c;
}

int64_t storeBytesOf(const char* typeName) {
    for (const auto& t : MelStash::StoreManager::typeStats())
        if (t.name == typeName) return t.bytes;
    return 0;
}

// ---- bytes per list -------------------------------------------------------------------------
void BM_ClusterListBytesPerList(benchmark::State& state) {
    const size_t n = size_t(state.range(0)), count = size_t(state.range(1));
    for (auto _ : state) {
        auto& stats = ClusterList::melStashTypeStats();
        int64_t objectsBefore = stats.objects.load(), bytesBefore = stats.bytes.load();
        double objectBytes, tableBytes, cacheBytes;
        {
            ClusterListDedupTable table("ClusterListBenchDedupTable");
            std::vector<Mel::PtrConst<ClusterList>> held;
            held.reserve(count);
            for (uint32_t i = 0; i < count; ++i)
                held.push_back(table.findOrCreate(contentOf(i, n)));
            if (stats.objects.load() - objectsBefore != int64_t(count))
                state.SkipWithError("lists were not all distinct");
            objectBytes = double(stats.bytes.load() - bytesBefore);
            tableBytes = double(table.memoryBytes());
            const int64_t cachesBefore = storeBytesOf("ClusterListLoopCaches");
            const auto local = Orvnet::IpAddr::fromHostOrder(0xac1000ffu);
            for (const auto& l : held)
                benchmark::DoNotOptimize(l->findClusterListLoop(local));
            cacheBytes = double(storeBytesOf("ClusterListLoopCaches") - cachesBefore);
        }
        double plainBytes;
        {
            size_t before = heapBytes();
            PlainSet set;
            std::vector<std::shared_ptr<const PlainClusterList>> held;
            held.reserve(count);
            size_t heldVector = heapBytes() - before;
            std::vector<uint32_t> ids(n);
            for (uint32_t i = 0; i < count; ++i) {
                listIds(i, n, ids.data());
                auto p = std::make_shared<PlainClusterList>(PlainClusterList{0xc0000201u, ids});
                held.push_back(*set.insert(std::move(p)).first);
            }
            plainBytes = double(heapBytes() - before - heldVector);
        }
        const double ours = objectBytes + tableBytes;
        state.counters["bytesPerList"] = ours / double(count);
        state.counters["objectBytesPerList"] = objectBytes / double(count);
        state.counters["tableBytesPerList"] = tableBytes / double(count);
        state.counters["loopCacheBytesPerList"] = cacheBytes / double(count);
        state.counters["baselineBytesPerList"] = plainBytes / double(count);
        state.counters["ratioToBaseline"] = ours / plainBytes;
    }
}
BENCHMARK(BM_ClusterListBytesPerList)
    ->ArgNames({"ids", "lists"})
    ->ArgsProduct({{1, 4}, {100000}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// ---- timed pairs ------------------------------------------------------------------------------
struct Pair {
    double oursNs = 0, baseNs = 0;
    size_t ops = 0;
    template <class A, class B>
    void run(size_t batch, A&& ours, B&& base) {
        using Clock = std::chrono::steady_clock;
        auto t0 = Clock::now();
        for (size_t i = 0; i < batch; ++i)
            ours(i);
        auto t1 = Clock::now();
        for (size_t i = 0; i < batch; ++i)
            base(i);
        auto t2 = Clock::now();
        oursNs += std::chrono::duration<double, std::nano>(t1 - t0).count();
        baseNs += std::chrono::duration<double, std::nano>(t2 - t1).count();
        ops += batch;
    }
    void report(benchmark::State& state) const {
        state.counters["ns"] = oursNs / double(ops);
        state.counters["baselineNs"] = baseNs / double(ops);
        state.counters["ratioToBaseline"] = oursNs / baseNs;
    }
};

bool plainScan(const std::vector<uint32_t>& ids, uint32_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// The same list asked about the same local cluster id again and again (a reflector checking every
// path that carries the list). The id is absent, the common answer, so the scan reads every id.
void BM_ClusterListLoopCached(benchmark::State& state) {
    const size_t n = size_t(state.range(0));
    auto l = ClusterListDedupTable::instance().findOrCreate(contentOf(1, n));
    std::vector<uint32_t> plain(n);
    listIds(1, n, plain.data());
    const uint32_t local = 0xac1000ffu;
    const auto localIp = Orvnet::IpAddr::fromHostOrder(local);
    l->findClusterListLoop(localIp); // fills the cache
    Pair pair;
    for (auto _ : state) {
        pair.run(
            1000, [&](size_t) { benchmark::DoNotOptimize(l->findClusterListLoop(localIp)); },
            [&](size_t) {
                benchmark::DoNotOptimize(plain.data());
                benchmark::DoNotOptimize(plainScan(plain, local));
            });
    }
    pair.report(state);
}
BENCHMARK(BM_ClusterListLoopCached)->ArgName("ids")->Arg(1)->Arg(4)->Arg(16);

// Every check on a list nobody asked before: lists are interned in pools and released when used
// up (outside the timed batches), so the next pool starts with empty caches.
void BM_ClusterListLoopUncached(benchmark::State& state) {
    const size_t n = size_t(state.range(0)), pool = 20000, batch = 1000;
    std::vector<Mel::PtrConst<ClusterList>> lists;
    std::vector<std::vector<uint32_t>> plain(pool);
    for (uint32_t i = 0; i < pool; ++i) {
        plain[i].resize(n);
        listIds(i, n, plain[i].data());
    }
    auto refill = [&] {
        lists.clear();
        for (uint32_t i = 0; i < pool; ++i)
            lists.push_back(ClusterListDedupTable::instance().findOrCreate(contentOf(i, n)));
    };
    const uint32_t local = 0xac1000ffu;
    const auto localIp = Orvnet::IpAddr::fromHostOrder(local);
    Pair pair;
    size_t next = pool;
    for (auto _ : state) {
        if (next + batch > pool) {
            state.PauseTiming();
            refill();
            next = 0;
            state.ResumeTiming();
        }
        const size_t start = next;
        next += batch;
        pair.run(
            batch,
            [&](size_t i) {
                benchmark::DoNotOptimize(lists[start + i]->findClusterListLoop(localIp));
            },
            [&](size_t i) {
                benchmark::DoNotOptimize(plain[start + i].data());
                benchmark::DoNotOptimize(plainScan(plain[start + i], local));
            });
    }
    pair.report(state);
}
BENCHMARK(BM_ClusterListLoopUncached)->ArgName("ids")->Arg(1)->Arg(4)->Arg(16);

} // namespace
