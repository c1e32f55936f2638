// Attribute sets: lookup of an existing set, memory per set and per tier, and the whole-set wire
// form, each beside a plain baseline in the same run: a set of shared_ptr to a struct that holds
// its AS path and communities in std::vectors (what an agent without interning keeps), found by
// content in a std::unordered_set, and encoded field by field into a std::vector.
#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/PathAttributesPeerSerializer.h"
#include "OrvBgp/PathAttributesSerializeStore.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <unordered_set>
#include <vector>

namespace {

using namespace Routing::Bgp;
using C = PathAttributesContents;

struct Plain {
    uint32_t nextHop = 0, med = 0, localPref = 0;
    uint8_t origin = 0;
    std::vector<uint32_t> asPath;
    std::vector<uint32_t> communities;
    bool operator==(const Plain&) const = default;
};
struct PlainHash {
    using is_transparent = void;
    size_t operator()(const Plain& p) const {
        size_t h = p.nextHop * 31u + p.med * 7u + p.localPref + p.origin;
        for (uint32_t a : p.asPath)
            h = h * 1000003u ^ a;
        for (uint32_t c : p.communities)
            h = h * 1000033u ^ c;
        return h;
    }
    size_t operator()(const std::shared_ptr<const Plain>& p) const { return (*this)(*p); }
};
struct PlainEq {
    using is_transparent = void;
    static const Plain& d(const Plain& p) { return p; }
    static const Plain& d(const std::shared_ptr<const Plain>& p) { return *p; }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
        return d(a) == d(b);
    }
};

// A synthetic table: n distinct sets over shared AS paths, next hops and community lists.
struct Population {
    explicit Population(size_t n) : nh(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast()) {
        std::mt19937 rng(42);
        for (size_t i = 0; i < n; ++i) {
            Plain p;
            p.nextHop = 0x0a000000u + uint32_t(rng() % 64);
            p.med = uint32_t(i);
            p.origin = uint8_t(rng() % 3);
            size_t len = 2 + rng() % 5;
            for (size_t k = 0; k < len; ++k)
                p.asPath.push_back(64512u + uint32_t(rng() % 2000));
            if (rng() % 2)
                for (size_t k = 0; k < 1 + rng() % 4; ++k)
                    p.communities.push_back(0xfde80000u + uint32_t(rng() % 50));
            plains.push_back(p);
            contents.push_back(toContents(p));
        }
    }
    C toContents(const Plain& p) {
        C c;
        AspathAttrCanonicalContent path;
        path.segmentAdd(AsSegmentType::asSequence_, std::span<const uint32_t>(p.asPath));
        c.aspathAttrIs(aspathAttrCanonicalFactory(path));
        c.nextHopIs(nh.nexthop(Orvnet::IpGenAddr(Orvnet::IpAddr::fromHostOrder(p.nextHop))));
        c.medIs(MultiExitDiscriminator(p.med));
        c.originIs(Origin(p.origin));
        if (!p.communities.empty()) c.commListIs(Routing::CommList::intern(p.communities));
        return c;
    }
    AddressNexthopDedupTable nh;
    std::vector<Plain> plains;
    std::vector<C> contents;
};

Population& population() {
    static auto* p = new Population(200000);
    return *p;
}

// The population interned once and held, so that the table is at its working size.
struct Held {
    Held() {
        auto& table = PathAttributesDedupTable::instance();
        int64_t before = MelStash::StoreManager::instance().liveBytes();
        for (auto& c : population().contents)
            sets.push_back(PathAttributesFactory(c).dedupContent(&table));
        setBytes = MelStash::StoreManager::instance().liveBytes() - before;
    }
    std::vector<Mel::PtrConst<PathAttributes>> sets;
    int64_t setBytes = 0; // the sets and everything they brought into the store
};
Held& held() {
    static auto* h = new Held;
    return *h;
}

void BM_Ours_DedupContentExisting(benchmark::State& state) {
    Population& pop = population();
    Held& h = held();
    auto& table = PathAttributesDedupTable::instance();
    size_t i = 0;
    for (auto _ : state) {
        auto a = PathAttributes::dedupContent(&table, pop.contents[i++ % pop.contents.size()]);
        benchmark::DoNotOptimize(a.get());
    }
    state.counters["storeBytesPerSet"] = double(h.setBytes) / double(h.sets.size());
    state.counters["tableBytesPerSet"] = double(table.memoryBytes()) / double(table.size());
}

void BM_Baseline_LookupExisting(benchmark::State& state) {
    Population& pop = population();
    std::unordered_set<std::shared_ptr<const Plain>, PlainHash, PlainEq> set;
    for (auto& p : pop.plains)
        set.insert(std::make_shared<const Plain>(p));
    size_t i = 0;
    for (auto _ : state) {
        auto it = set.find(pop.plains[i++ % pop.plains.size()]);
        std::shared_ptr<const Plain> p = *it;
        benchmark::DoNotOptimize(p.get());
    }
    // Struct, shared_ptr control block, node and bucket, plus the vectors' heap arrays.
    size_t perSet = sizeof(Plain) + 16 + 32 + 8;
    double vec = 0;
    for (auto& p : pop.plains)
        vec += double(p.asPath.capacity() + p.communities.capacity()) * 4;
    state.counters["bytesPerSet"] = double(perSet) + vec / double(pop.plains.size());
}

// Bytes of one set of each tier, with the one member that picks the tier beside the population's
// first contents: its store block plus its share of the (populated) table.
void BM_Ours_BytesPerTier(benchmark::State& state) {
    Population& pop = population();
    held();
    auto& table = PathAttributesDedupTable::instance();
    Mel::PtrConst<PathAttributes> one;
    for (auto _ : state) {
        C c = pop.contents[0];
        c.commListIs(nullptr);
        switch (state.range(0)) {
        case 1:
            c.aggregatorIs(aggregatorFactory(65000, Orvnet::IpAddr()));
            break;
        case 2:
            c.extCommListIs(Routing::ExtCommList::intern({1}));
            break;
        case 3:
            c.largeCommListIs(Routing::LargeCommList::intern({Routing::LargeComm{1, 2, 3}}));
            break;
        case 4:
            c.weightIs(1);
            break;
        default:
            break;
        }
        one = PathAttributesFactory(c).dedupContent(&table);
    }
    double block = double(MelStash::StoreManager::instance().blockSize(one.get()));
    state.SetLabel(pathAttributeTypeName(one->getType()));
    state.counters["objectBytes"] = block;
    state.counters["withTableShare"] = block + double(table.memoryBytes()) / double(table.size());
    // The fixed part every set has: the members present follow it as words, so the block, not the
    // class size, is what a set costs.
    state.counters["sizeofCommonTier"] = double(sizeof(PathAttributesCommon));
    state.counters["sizeofFullTier"] = double(sizeof(FullPathAttributes));
}

void BM_Ours_SerializeInternal(benchmark::State& state) {
    Population& pop = population();
    auto a =
        PathAttributesFactory(pop.contents[1]).dedupContent(&PathAttributesDedupTable::instance());
    AttrSetStringStore store;
    for (auto _ : state) {
        store.clear();
        a->serializeInternal(&store, true, false, true);
        benchmark::DoNotOptimize(store.str().data());
    }
    state.counters["bytes"] = double(store.str().size());
}

// The same set written for one external peer (arg 0: 2-byte AS numbers, 1: 4-byte) into the
// agent's byte writer: the local AS prepended, NEXT_HOP given, AS4_PATH where the path needs it.
void BM_Ours_SerializeForPeer(benchmark::State& state) {
    Population& pop = population();
    auto a =
        PathAttributesFactory(pop.contents[1]).dedupContent(&PathAttributesDedupTable::instance());
    PathAttributesPeer peer;
    peer.fourByteAsIs(state.range(0) == 1)
        .localAsIs(65001)
        .nextHopIs(Orvnet::IpAddr::fromHostOrder(0xc0000201));
    Serialize out;
    for (auto _ : state) {
        out.clear();
        PathAttributesPeerSerializer::serialize(*a, peer, out);
        benchmark::DoNotOptimize(out.span().data());
    }
    state.SetLabel(state.range(0) == 1 ? "4-byte peer" : "2-byte peer");
    state.counters["bytes"] = double(out.size());
}

void BM_Baseline_Serialize(benchmark::State& state) {
    const Plain& p = population().plains[1];
    std::vector<uint8_t> out;
    auto u32 = [&](uint32_t v) {
        out.push_back(uint8_t(v >> 24)), out.push_back(uint8_t(v >> 16)),
            out.push_back(uint8_t(v >> 8)), out.push_back(uint8_t(v));
    };
    for (auto _ : state) {
        out.clear();
        out.insert(out.end(), {0x40, 1, 1, p.origin});
        out.insert(out.end(),
                   {0x40, 2, uint8_t(2 + 4 * p.asPath.size()), 2, uint8_t(p.asPath.size())});
        for (uint32_t a : p.asPath)
            u32(a);
        out.insert(out.end(), {0x40, 3, 4});
        u32(p.nextHop);
        out.insert(out.end(), {0x80, 4, 4});
        u32(p.med);
        if (!p.communities.empty()) {
            out.insert(out.end(), {0xc0, 8, uint8_t(4 * p.communities.size())});
            for (uint32_t c : p.communities)
                u32(c);
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["bytes"] = double(out.size());
}

BENCHMARK(BM_Ours_DedupContentExisting);
BENCHMARK(BM_Baseline_LookupExisting);
BENCHMARK(BM_Ours_BytesPerTier)->DenseRange(0, 4)->Iterations(1);
BENCHMARK(BM_Ours_SerializeInternal);
BENCHMARK(BM_Ours_SerializeForPeer)->Arg(0)->Arg(1);
BENCHMARK(BM_Baseline_Serialize);

} // namespace
