// AS path figures, each beside a plain baseline measured in the same run:
//   - bytes per interned one-segment path of n AS numbers, everything included (the object with
//     its inline segment, from the store's counters, plus the intern table's arrays), against a
//     std::unordered_set of std::shared_ptr to a vector of segments, each a std::vector (glibc
//     heap bytes, malloc headers included); goal 32 + 4n. Path counts vary so that
//     the table is seen at several load factors (its share per path moves with them);
//   - ns per serialize of a 5-AS path to an external 4-byte peer (local AS prepended), against a
//     hand-written encoder of the same bytes from a std::vector<uint32_t>;
//   - ns to intern an existing path from decoded segments, against a lookup in the baseline set.
// Timed pairs run interleaved in batches inside one benchmark, so both sides see the same
// machine; the counters give each side's ns and their ratio.
#include "AsPath/AspathAttrCanonical.h"
#include "OrvBgp/AspathAttrCanonicalSerializer.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <unordered_set>
#include <vector>

using namespace Routing::Bgp;

namespace {

// ---- the plain baseline -------------------------------------------------------------------
struct PlainSegment {
    uint8_t type;
    std::vector<uint32_t> as;
    bool operator==(const PlainSegment&) const = default;
};
struct PlainPath {
    std::vector<PlainSegment> segments;
    bool operator==(const PlainPath&) const = default;
};
struct PlainHash {
    size_t operator()(const std::shared_ptr<const PlainPath>& p) const noexcept {
        size_t h = 0;
        for (const PlainSegment& s : p->segments) {
            h = h * 31 + s.type;
            for (uint32_t a : s.as)
                h = h * 1000003 + a;
        }
        return h;
    }
};
struct PlainEq {
    bool operator()(const std::shared_ptr<const PlainPath>& a,
                    const std::shared_ptr<const PlainPath>& b) const noexcept {
        return *a == *b;
    }
};
using PlainSet = std::unordered_set<std::shared_ptr<const PlainPath>, PlainHash, PlainEq>;

std::shared_ptr<const PlainPath> plainIntern(PlainSet& set, const uint32_t* as, size_t n) {
    auto p = std::make_shared<PlainPath>();
    p->segments.push_back({AsSegmentType::asSequence_, std::vector<uint32_t>(as, as + n)});
    return *set.insert(std::move(p)).first;
}

size_t heapBytes() {
    return mallinfo2().uordblks;
}

// Distinct paths: the first AS number differs, the rest look like real paths.
// Path i of n numbers: distinct for every i, the first number a 4-byte one unless twoByte (then
// all fit two bytes and the first two carry i).
void pathAs(uint32_t i, size_t n, uint32_t* out, bool twoByte = false) {
    out[0] = twoByte ? 1000 + i % 60000 : 200000 + i;
    if (twoByte) out[1] = 1000 + i / 60000;
    for (size_t k = twoByte ? 2 : 1; k < n; ++k)
        out[k] = 1000 + uint32_t((i * 2654435761u >> (k % 16)) % 60000);
}

// ---- bytes per path -------------------------------------------------------------------------
void BM_AspathBytesPerPath(benchmark::State& state) {
    const size_t n = size_t(state.range(0)), count = size_t(state.range(1));
    std::vector<uint32_t> as(n);
    for (auto _ : state) {
        auto& stats = AspathAttrCanonical::melStashTypeStats();
        int64_t objectsBefore = stats.objects.load(), bytesBefore = stats.bytes.load();
        double oursBytes, plainBytes;
        {
            AspathAttrCanonicalDedupTable table("AspathBenchDedupTable");
            std::vector<Mel::PtrConst<AspathAttrCanonical>> held;
            held.reserve(count);
            AspathAttrCanonicalContent c;
            for (uint32_t i = 0; i < count; ++i) {
                pathAs(i, n, as.data());
                c.clear();
                c.segmentAdd(AsSegmentType::asSequence_, std::span<const uint32_t>(as));
                held.push_back(table.findOrCreate(c));
            }
            if (stats.objects.load() - objectsBefore != int64_t(count))
                state.SkipWithError("paths were not all distinct");
            oursBytes = double(stats.bytes.load() - bytesBefore) + double(table.memoryBytes());
        }
        {
            size_t before = heapBytes();
            PlainSet set;
            std::vector<std::shared_ptr<const PlainPath>> held;
            held.reserve(count);
            size_t heldVector = heapBytes() - before;
            for (uint32_t i = 0; i < count; ++i) {
                pathAs(i, n, as.data());
                held.push_back(plainIntern(set, as.data(), n));
            }
            plainBytes = double(heapBytes() - before - heldVector);
        }
        state.counters["bytesPerPath"] = oursBytes / double(count);
        state.counters["goal"] = 32.0 + 4.0 * double(n);
        state.counters["baselineBytesPerPath"] = plainBytes / double(count);
        state.counters["ratioToBaseline"] = oursBytes / plainBytes;
    }
}
BENCHMARK(BM_AspathBytesPerPath)
    ->ArgNames({"n", "paths"})
    ->ArgsProduct({{1, 2, 5, 10, 20}, {30000, 50000, 80000, 120000, 200000}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// ---- timed pairs ------------------------------------------------------------------------------
// Runs `ours` and `base` `batch` times each, alternately, and accumulates their times.
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

// The plain encoder: AS_PATH with the local AS prepended into the leading AS_SEQUENCE (fewer
// than 255 AS numbers), 4-byte AS numbers, 1-byte length.
void plainSerialize(const std::vector<uint32_t>& as, uint32_t localAs, std::vector<uint8_t>& out) {
    out.clear();
    size_t k = as.size() + 1;
    out.push_back(0x40);
    out.push_back(2);
    out.push_back(uint8_t(2 + 4 * k));
    out.push_back(2);
    out.push_back(uint8_t(k));
    auto put = [&](uint32_t v) {
        uint8_t b[4] = {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
        out.insert(out.end(), b, b + 4);
    };
    put(localAs);
    for (uint32_t a : as)
        put(a);
}

void BM_AspathSerializeExternal4Byte(benchmark::State& state) {
    std::vector<uint32_t> as{3356, 1299, 174, 6939, 4200000001u};
    AspathAttrCanonicalContent c;
    c.segmentAdd(AsSegmentType::asSequence_, std::span<const uint32_t>(as));
    auto path = aspathAttrCanonicalFactory(c);
    std::vector<uint8_t> plain;
    plain.reserve(64);
    auto ours =
        AspathAttrCanonicalSerializer::serialize(path.get(), 2, false, false, true, 65001, false);
    plainSerialize(as, 65001, plain);
    if (ours.bytes() != Mel::Bytes(plain)) state.SkipWithError("baseline writes other bytes");
    Pair pair;
    for (auto _ : state) {
        pair.run(
            1000,
            [&](size_t) {
                auto r = AspathAttrCanonicalSerializer::serialize(path.get(), 2, false, false, true,
                                                                  65001, false);
                benchmark::DoNotOptimize(r);
            },
            [&](size_t) {
                plainSerialize(as, 65001, plain);
                benchmark::DoNotOptimize(plain.data());
                // The attribute leaves as an owned byte string in both cases.
                Mel::Bytes b(plain);
                benchmark::DoNotOptimize(b);
            });
    }
    pair.report(state);
}
BENCHMARK(BM_AspathSerializeExternal4Byte);

// Interning a path that is already interned, from its decoded AS numbers (what a receive path
// does for every UPDATE), against building the plain path and finding it in the plain set; with
// twoByte:1 every number fits two bytes (the paths a table mostly holds, stored bare).
void BM_AspathInternExisting(benchmark::State& state) {
    const size_t count = size_t(state.range(0)), n = 5;
    const bool twoByte = state.range(1) != 0;
    AspathAttrCanonicalDedupTable table("AspathBenchDedupTable");
    std::vector<Mel::PtrConst<AspathAttrCanonical>> held;
    PlainSet set;
    std::vector<std::shared_ptr<const PlainPath>> plainHeld;
    std::vector<uint32_t> all(count * n);
    AspathAttrCanonicalContent c;
    for (uint32_t i = 0; i < count; ++i) {
        pathAs(i, n, &all[i * n], twoByte);
        c.clear();
        c.segmentAdd(AsSegmentType::asSequence_, std::span<const uint32_t>(&all[i * n], n));
        held.push_back(table.findOrCreate(c));
        plainHeld.push_back(plainIntern(set, &all[i * n], n));
    }
    Pair pair;
    uint32_t next = 0;
    for (auto _ : state) {
        uint32_t start = next;
        next = (next + 997) % uint32_t(count);
        pair.run(
            1000,
            [&](size_t i) {
                size_t k = (start + i * 7919) % count;
                c.clear();
                c.segmentAdd(AsSegmentType::asSequence_, std::span<const uint32_t>(&all[k * n], n));
                auto p = table.findOrCreate(c);
                benchmark::DoNotOptimize(p.get());
            },
            [&](size_t i) {
                size_t k = (start + i * 7919) % count;
                auto p = plainIntern(set, &all[k * n], n);
                benchmark::DoNotOptimize(p.get());
            });
    }
    pair.report(state);
}
BENCHMARK(BM_AspathInternExisting)
    ->ArgNames({"paths", "twoByte"})
    ->ArgsProduct({{10000, 1000000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

} // namespace
