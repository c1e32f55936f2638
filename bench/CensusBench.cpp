// The census over the synthetic table (1,000,000 paths over 20 peers, seed 1): interning on one
// and on two threads (paths split by peer) with the speed-up measured in the same iteration, and
// the library's bytes per path beside what an agent holding the same paths in plain structs
// spends, measured from the allocator in the same run.
//   build/release/orv_bench --benchmark_filter=Census_ --benchmark_counters_tabular=true
// Counters: speedup = 1-thread time / 2-thread time; cpuSpeedup = the same from the CPU time of
// the busiest thread (what the wall time would be with a free core per thread); libBytesPerPath
// (inbound sets and all they reference, tables included, from the store's counters);
// plainBytesPerPath (a struct per path with its AS path and communities in std::vectors);
// sharedPlainBytesPerPath (one such struct per distinct set behind a shared_ptr, found through an
// unordered_map, as a careful agent without this library would); ratio_plain = plain / lib.
#include "census/Report.h"
#include "census/Run.h"
#include "census/Synthetic.h"

#include "AsPath/AspathAttrCanonical.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "Routing/CommList.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <malloc.h>
#include <memory>
#include <unordered_map>
#include <vector>

namespace {

using namespace Routing::Bgp;
using Clock = std::chrono::steady_clock;

const Census::SyntheticConfig kTable{1000000, 20, 1};

struct Timing {
    double wall = 0;
    double cpuLongestThread = 0;
};

Timing runOnce(unsigned threads, Census::Report* report = nullptr) {
    Census::CensusRun run(Census::RunOptions{threads, false, nullptr});
    auto t0 = Clock::now();
    run.generate(kTable);
    Timing t;
    t.wall = std::chrono::duration<double>(Clock::now() - t0).count();
    for (double c : run.threadCpuSeconds())
        t.cpuLongestThread = std::max(t.cpuLongestThread, c);
    if (report) *report = Census::Report::gather(run);
    return t;
}

void BM_Census_SyntheticThreads(benchmark::State& state) {
    double one = 0, two = 0, cpuOne = 0, cpuTwo = 0;
    for (auto _ : state) {
        Timing a = runOnce(1), b = runOnce(2);
        one += a.wall;
        two += b.wall;
        cpuOne += a.cpuLongestThread;
        cpuTwo += b.cpuLongestThread;
    }
    const double n = double(state.iterations());
    state.counters["oneThread_s"] = one / n;
    state.counters["twoThreads_s"] = two / n;
    state.counters["speedup"] = one / two;
    // The same from each thread's CPU time: the speed-up with a free core per thread, whatever
    // else the shared machine was running.
    state.counters["cpuSpeedup"] = cpuOne / cpuTwo;
    state.counters["pathsPerSec_1"] = double(kTable.paths) * n / one;
    state.counters["pathsPerSec_2"] = double(kTable.paths) * n / two;
}
BENCHMARK(BM_Census_SyntheticThreads)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// What an agent keeps per path without interning.
struct PlainAttrs {
    uint32_t nextHop = 0, med = 0, localPref = 0;
    uint8_t origin = 0;
    bool medSet = false, atomicAggregate = false;
    uint32_t aggregatorAs = 0, aggregatorId = 0;
    std::vector<uint32_t> asPath;
    std::vector<uint32_t> communities;
    bool operator==(const PlainAttrs&) const = default;
};
struct PlainHash {
    size_t operator()(const PlainAttrs& p) const {
        size_t h = p.nextHop * 31u + p.med * 7u + p.origin;
        for (uint32_t a : p.asPath)
            h = h * 1000003u ^ a;
        for (uint32_t c : p.communities)
            h = h * 1000033u ^ c;
        return h;
    }
};

PlainAttrs plainOf(const PathAttributesContents& c) {
    PlainAttrs p;
    p.med = c.medStorage();
    p.medSet = c.medSpecified();
    p.origin = uint8_t(c.origin());
    p.atomicAggregate = c.atomicAggregate();
    if (auto a = c.aspathAttr())
        for (AsSegmentRef s : a->path())
            for (Orvnet::AutonomousSystem as : s.as)
                p.asPath.push_back(as.value());
    if (auto l = c.commList()) p.communities.assign(l->begin(), l->end());
    return p;
}

size_t heapInUse() {
    return mallinfo2().uordblks;
}

void BM_Census_BytesPerPathVsPlainStructs(benchmark::State& state) {
    Census::Report report;
    double plainPerPath = 0, sharedPerPath = 0;
    for (auto _ : state) {
        runOnce(1, &report);
        Census::SyntheticTable table(kTable);
        // Plain: one struct per path, in a vector of routes (prefix key beside it).
        struct Route {
            uint32_t prefix;
            uint8_t length;
            uint16_t peer;
            std::unique_ptr<PlainAttrs> attrs;
        };
        {
            size_t before = heapInUse();
            std::vector<Route> routes;
            routes.reserve(kTable.paths);
            for (uint32_t peer = 0; peer < table.peerCount(); ++peer)
                table.generatePeer(peer, [&](uint16_t p, const Census::Prefix& prefix,
                                             const PathAttributesContents& c) {
                    routes.push_back({prefix.address.v4Value(), prefix.length, p,
                                      std::make_unique<PlainAttrs>(plainOf(c))});
                });
            plainPerPath = double(heapInUse() - before) / double(routes.size());
            // The routes' own slots are the RIB's share, as in the census: leave them out.
            plainPerPath -= double(sizeof(Route));
        }
        {
            size_t before = heapInUse();
            std::unordered_map<PlainAttrs, std::weak_ptr<const PlainAttrs>, PlainHash> sets;
            std::vector<std::shared_ptr<const PlainAttrs>> routes;
            routes.reserve(kTable.paths);
            size_t routesBytes = kTable.paths * sizeof(std::shared_ptr<const PlainAttrs>);
            for (uint32_t peer = 0; peer < table.peerCount(); ++peer)
                table.generatePeer(
                    peer, [&](uint16_t, const Census::Prefix&, const PathAttributesContents& c) {
                        PlainAttrs p = plainOf(c);
                        auto it = sets.find(p);
                        std::shared_ptr<const PlainAttrs> s =
                            it == sets.end() ? nullptr : it->second.lock();
                        if (!s) {
                            s = std::make_shared<const PlainAttrs>(p);
                            sets[std::move(p)] = s;
                        }
                        routes.push_back(std::move(s));
                    });
            sharedPerPath = double(heapInUse() - before - routesBytes) / double(routes.size());
        }
    }
    const double lib = report.libraryBytesPerRoute();
    state.counters["libBytesPerPath"] = lib;
    state.counters["ribBytesPerPath"] = double(report.ribBytes) / double(report.routes);
    state.counters["plainBytesPerPath"] = plainPerPath;
    state.counters["sharedPlainBytesPerPath"] = sharedPerPath;
    state.counters["ratio_plain"] = plainPerPath / lib;
    state.counters["ratio_sharedPlain"] = sharedPerPath / lib;
}
BENCHMARK(BM_Census_BytesPerPathVsPlainStructs)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

} // namespace
