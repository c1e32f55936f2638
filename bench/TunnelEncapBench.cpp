// Tunnel encapsulation attributes of one VXLAN TLV (endpoint, color): bytes per distinct attribute,
// interning an attribute that already exists (sub-TLVs, TLV, attribute) and writing it, beside a
// baseline measured in the same run: the attribute kept as its wire bytes, a
// std::shared_ptr<std::vector<uint8_t>> in a std::unordered_set keyed by those bytes behind a
// std::mutex. The baseline's intern builds the wire bytes and looks them up; its write copies them.
// Baseline bytes are counted by its allocator; ours by the store's per-class counters and the
// tables' own arrays.
//   build/release/orv_bench --benchmark_filter='TunnelEncap'
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/VxlanTunnelTlv.h"
#include "Serialize/Serialize.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace {

using namespace Routing::Bgp;

constexpr uint32_t colors = 16;

Orvnet::IpGenAddr endpointOf(uint32_t i) {
    return Orvnet::IpAddr::fromHostOrder(0x0a000000u + i);
}

Mel::PtrConst<TunnelEncap> internAttribute(uint32_t i) {
    VxlanTunnelTlvContent v;
    v.endpointIs(EndpointSubTlv::intern(endpointOf(i)));
    v.colorIs(ColorSubTlv::intern(100 + i % colors));
    TunnelEncapContent c;
    c.tunnelTlvIs(VxlanTunnelTlv::intern(v));
    return TunnelEncap::intern(c);
}

std::vector<uint32_t> probeSequence(size_t n) {
    std::mt19937 rng(7);
    std::vector<uint32_t> seq(1 << 16);
    for (auto& x : seq)
        x = uint32_t(rng() % n);
    return seq;
}

int64_t storeBytes() {
    return TunnelEncap::melStashTypeStats().bytes.load() +
           VxlanTunnelTlv::melStashTypeStats().bytes.load() +
           EndpointSubTlv::melStashTypeStats().bytes.load() +
           ColorSubTlv::melStashTypeStats().bytes.load();
}

size_t tableBytes() {
    return TunnelEncapDedupTable::instance().memoryBytes() +
           VxlanTunnelTlvDedupTable::instance().memoryBytes() +
           EndpointSubTlvDedupTable::instance().memoryBytes() +
           ColorSubTlvDedupTable::instance().memoryBytes();
}

struct Ours {
    explicit Ours(size_t n) {
        const int64_t before = storeBytes();
        const size_t tablesBefore = tableBytes();
        for (uint32_t i = 0; i < n; ++i)
            held.push_back(internAttribute(i));
        bytes = double(storeBytes() - before + int64_t(tableBytes() - tablesBefore)) / double(n);
    }
    std::vector<Mel::PtrConst<TunnelEncap>> held;
    double bytes;
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

using Wire = std::vector<uint8_t, CountAlloc<uint8_t>>;
using WirePtr = std::shared_ptr<const Wire>;
std::string_view viewOf(const Wire& w) {
    return {reinterpret_cast<const char*>(w.data()), w.size()};
}
struct WireHash {
    using is_transparent = void;
    size_t operator()(const WirePtr& p) const { return std::hash<std::string_view>()(viewOf(*p)); }
    size_t operator()(std::string_view v) const { return std::hash<std::string_view>()(v); }
};
struct WireEq {
    using is_transparent = void;
    static std::string_view key(const WirePtr& p) { return viewOf(*p); }
    static std::string_view key(std::string_view v) { return v; }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
        return key(a) == key(b);
    }
};

// The attribute's bytes, written field by field as a parser-fed store would.
Serialize wireOf(uint32_t i) {
    Serialize s;
    s.addU8(0xc0);
    s.addU8(23);
    s.addU8(26);
    s.addU16hton(8);
    s.addU16hton(22);
    s.addU8(6);
    s.addU8(10);
    s.addU32hton(0);
    s.addU16hton(1);
    s.addIpGenAddr(endpointOf(i));
    s.addU8(4);
    s.addU8(8);
    s.addU16hton(0x030b);
    s.addU16hton(0);
    s.addU32hton(100 + i % colors);
    return s;
}

struct Baseline {
    explicit Baseline(size_t n) {
        const int64_t before = baselineBytes.load();
        for (uint32_t i = 0; i < n; ++i)
            held.push_back(intern(i));
        bytes = double(baselineBytes.load() - before) / double(n);
    }
    WirePtr intern(uint32_t i) {
        const Serialize s = wireOf(i);
        const std::string_view v(reinterpret_cast<const char*>(s.data()), s.size());
        std::lock_guard lock(mutex);
        auto it = set.find(v);
        if (it != set.end()) return *it;
        auto p =
            std::allocate_shared<const Wire>(CountAlloc<Wire>(), s.data(), s.data() + s.size());
        set.insert(p);
        return p;
    }
    std::mutex mutex;
    std::unordered_set<WirePtr, WireHash, WireEq, CountAlloc<WirePtr>> set;
    std::vector<WirePtr> held;
    double bytes;
};

template <class T>
T& population(size_t n) {
    static std::map<size_t, std::unique_ptr<T>> cache;
    auto& p = cache[n];
    if (!p) p = std::make_unique<T>(n);
    return *p;
}

void BM_TunnelEncap_InternExisting(benchmark::State& state) {
    const size_t n = size_t(state.range(0));
    Ours& ours = population<Ours>(n);
    const auto seq = probeSequence(n);
    size_t i = 0;
    for (auto _ : state) {
        auto a = internAttribute(seq[i++ & 0xffff]);
        benchmark::DoNotOptimize(a.get());
    }
    state.counters["bytesPerAttribute"] = ours.bytes;
}

void BM_Baseline_TunnelEncapInternExisting(benchmark::State& state) {
    const size_t n = size_t(state.range(0));
    Baseline& base = population<Baseline>(n);
    const auto seq = probeSequence(n);
    size_t i = 0;
    for (auto _ : state) {
        auto a = base.intern(seq[i++ & 0xffff]);
        benchmark::DoNotOptimize(a.get());
    }
    state.counters["bytesPerAttribute"] = base.bytes;
}

void BM_TunnelEncap_Serialize(benchmark::State& state) {
    Ours& ours = population<Ours>(size_t(state.range(0)));
    const auto seq = probeSequence(ours.held.size());
    size_t i = 0;
    for (auto _ : state) {
        Mel::Bytes b = ours.held[seq[i++ & 0xffff]]->serialize();
        benchmark::DoNotOptimize(b.data());
    }
}

void BM_Baseline_TunnelEncapSerialize(benchmark::State& state) {
    Baseline& base = population<Baseline>(size_t(state.range(0)));
    const auto seq = probeSequence(base.held.size());
    size_t i = 0;
    for (auto _ : state) {
        const Wire& w = *base.held[seq[i++ & 0xffff]];
        Mel::Bytes b(w.data(), w.size());
        benchmark::DoNotOptimize(b.data());
    }
}

BENCHMARK(BM_TunnelEncap_InternExisting)->Arg(100000);
BENCHMARK(BM_Baseline_TunnelEncapInternExisting)->Arg(100000);
BENCHMARK(BM_TunnelEncap_Serialize)->Arg(100000);
BENCHMARK(BM_Baseline_TunnelEncapSerialize)->Arg(100000);

} // namespace
