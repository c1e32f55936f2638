#include "census/Synthetic.h"

#include "AsPath/AspathAttrCanonical.h"
#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "Routing/CommList.h"

#include <algorithm>
#include <cmath>

namespace Census {

using namespace Routing::Bgp;

namespace {

double unit(std::mt19937_64& rng) {
    return double(rng() >> 11) * 0x1.0p-53;
}

uint64_t peerSeed(uint64_t seed, uint32_t peer) {
    uint64_t z = seed + 0x9e3779b97f4a7c15ULL * (uint64_t(peer) + 1);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

double mean(const Histogram& h) {
    double n = 0, s = 0;
    for (auto [v, w] : h) {
        n += double(w);
        s += double(v) * double(w);
    }
    return n ? s / n : 0;
}

double shareOf(const Histogram& h, uint32_t value) {
    double n = 0, s = 0;
    for (auto [v, w] : h) {
        n += double(w);
        if (v == value) s += double(w);
    }
    return n ? s / n : 0;
}

} // namespace

const SyntheticProfile& SyntheticProfile::measured() {
    // Sharing (paths per set, new AS paths per set) from the one full table,
    // bview.20020722.2337; lengths, community lists, MED, AGGREGATOR, ATOMIC_AGGREGATE and ORIGIN
    // from the most recent stream, updates.20160811.1600 (communities were rare in 2002).
    static const SyntheticProfile profile = [] {
        SyntheticProfile p;
        p.pathsPerSet = {
            {1, 10189}, {2, 3501}, {3, 1759}, {4, 1070}, {5, 840},  {6, 542},  {7, 420}, {8, 329},
            {9, 285},   {10, 199}, {11, 164}, {12, 164}, {13, 118}, {14, 125}, {15, 82}, {16, 120},
            {17, 58},   {18, 56},  {19, 43},  {20, 50},  {21, 45},  {22, 39},  {23, 45}, {24, 27},
            {25, 29},   {26, 38},  {27, 24},  {28, 20},  {29, 31},  {30, 21},  {31, 18}, {32, 20},
            {33, 14},   {34, 17},  {35, 8},   {36, 10},  {37, 7},   {38, 11},  {39, 12}, {40, 11},
            {41, 16},   {42, 14},  {43, 7},   {44, 9},   {45, 10},  {46, 12},  {47, 9},  {48, 7},
            {49, 5},    {50, 7},   {51, 7},   {52, 11},  {53, 7},   {54, 9},   {55, 5},  {56, 4},
            {57, 7},    {58, 6},   {59, 4},   {60, 7},   {61, 5},   {62, 5},   {63, 3},  {64, 8},
            {65, 4},    {66, 2},   {67, 4},   {68, 5},   {69, 5},   {70, 1},   {71, 4},  {72, 4},
            {73, 2},    {74, 2},   {75, 2},   {76, 6},   {77, 3},   {78, 2},   {79, 3},  {80, 2},
            {81, 2},    {83, 3},   {84, 2},   {87, 3},   {90, 1},   {91, 1},   {92, 2},  {93, 3},
            {94, 5},    {96, 2},   {97, 2},   {98, 2},   {99, 2},   {100, 2},  {102, 1}, {103, 1},
            {104, 1},   {105, 1},  {107, 4},  {108, 1},  {109, 1},  {110, 2},  {111, 3}, {112, 2},
            {113, 1},   {116, 1},  {119, 1},  {121, 1},  {122, 1},  {123, 1},  {125, 1}, {126, 2},
            {131, 1},   {134, 1},  {136, 2},  {137, 2},  {138, 1},  {139, 1},  {140, 1}, {141, 1},
            {147, 2},   {148, 1},  {151, 1},  {153, 1},  {156, 1},  {157, 1},  {162, 1}, {164, 2},
            {169, 1},   {176, 1},  {181, 1},  {183, 1},  {185, 3},  {192, 1},  {207, 1}, {208, 1},
            {209, 2},   {212, 1},  {220, 1},  {229, 1},  {230, 1},  {231, 2},  {232, 1}, {233, 1},
            {234, 1},   {236, 1},  {239, 1},  {244, 1},  {251, 1},  {253, 1},  {267, 1}, {274, 3},
            {279, 1},   {284, 1},  {297, 2},  {301, 1},  {303, 1},  {306, 1},  {332, 1}, {352, 1},
            {355, 1},   {359, 2},  {384, 1},  {408, 1},  {409, 1},  {445, 1},  {467, 1}, {476, 1},
            {514, 1},   {519, 1},  {520, 1},  {576, 1},  {608, 1},  {666, 1},  {686, 1}, {809, 1},
            {895, 1},   {1112, 1}, {1263, 1}, {1793, 1},
        };
        p.asPathLength = {
            {1, 2},   {2, 69},  {3, 1056}, {4, 2299}, {5, 2075}, {6, 1531}, {7, 1168},
            {8, 623}, {9, 282}, {10, 187}, {11, 118}, {12, 125}, {13, 149}, {14, 107},
            {15, 39}, {16, 14}, {17, 2},   {18, 3},   {20, 2},
        };
        p.commListSize = {
            {0, 2114}, {1, 365}, {2, 705},  {3, 2395}, {4, 482},  {5, 756},  {6, 652},  {7, 474},
            {8, 203},  {9, 569}, {10, 249}, {11, 185}, {12, 146}, {13, 112}, {14, 150}, {15, 51},
            {16, 28},  {17, 20}, {18, 10},  {19, 11},  {20, 10},  {21, 13},  {22, 15},  {23, 11},
            {24, 20},  {25, 5},  {26, 19},  {27, 6},   {28, 2},   {29, 14},  {30, 10},  {31, 3},
            {32, 1},   {33, 1},  {35, 2},   {36, 2},   {37, 3},   {38, 3},   {39, 3},   {40, 3},
            {41, 5},   {42, 6},  {43, 1},   {47, 1},   {50, 1},   {51, 1},   {52, 1},   {55, 2},
            {60, 3},   {61, 1},  {63, 1},   {66, 2},   {67, 1},   {69, 1},   {70, 1},
        };
        p.origin = {
            {0, 9331},
            {1, 2},
            {2, 518},
        };
        p.newAsPathPerSet = 18452.0 / 20934.0;
        p.newCommListPerSet = 1604.0 / 7737.0;
        p.medShare = 0.395;
        p.aggregatorShare = 0.137;
        p.atomicAggregateShare = 0.059;
        return p;
    }();
    return profile;
}

SyntheticTable::Sampler::Sampler(const Histogram& h) {
    uint64_t total = 0;
    for (auto [v, w] : h) {
        if (!w) continue;
        total += w;
        values.push_back(v);
        cumulative.push_back(total);
    }
    if (values.empty()) {
        values.push_back(1);
        cumulative.push_back(1);
    }
}

uint32_t SyntheticTable::Sampler::draw(std::mt19937_64& rng) const {
    uint64_t x = rng() % cumulative.back();
    return values[size_t(std::upper_bound(cumulative.begin(), cumulative.end(), x) -
                         cumulative.begin())];
}

SyntheticTable::SyntheticTable(SyntheticConfig cfg, const SyntheticProfile& profile)
    : cfg_(cfg), profile_(profile), pathsPerSet_(profile.pathsPerSet),
      asPathLength_(profile.asPathLength), commListSize_(profile.commListSize),
      origin_(profile.origin), nexthops_(std::make_unique<AddressNexthopDedupTable>(
                                   BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast())) {
    if (cfg_.peers == 0) cfg_.peers = 1;
    if (cfg_.peers > 0xffff) cfg_.peers = 0xffff;
    std::mt19937_64 rng(peerSeed(cfg_.seed, 0xffffffffu));
    // AS numbers that transit and originate: 16-bit public ones, and a quarter 32-bit.
    asUniverse_.resize(40000);
    for (uint32_t& as : asUniverse_)
        as = unit(rng) < 0.25 ? 131072u + uint32_t(rng() % 270000) : 1u + uint32_t(rng() % 64000);
    // The shared community lists: as many as the measured share of new lists over the sets
    // expected to carry communities, each of a size drawn from the measured sizes.
    Histogram nonEmpty;
    for (auto [v, w] : profile_.commListSize)
        if (v) nonEmpty.emplace_back(v, w);
    if (!nonEmpty.empty()) {
        Sampler size(nonEmpty);
        double sets = double(cfg_.paths) / std::max(1.0, mean(profile_.pathsPerSet));
        double withComms = sets * (1.0 - shareOf(profile_.commListSize, 0));
        size_t k = size_t(std::max(1.0, std::round(withComms * profile_.newCommListPerSet)));
        std::vector<uint32_t> values;
        commPool_.reserve(k);
        for (size_t i = 0; i < k; ++i) {
            values.resize(size.draw(rng));
            uint32_t as = asUniverse_[rng() % 2000] & 0xffff;
            for (uint32_t& v : values)
                v = (as << 16) | uint32_t(rng() % 4000);
            std::sort(values.begin(), values.end());
            commPool_.push_back(Routing::CommList::intern(values));
        }
    }
}

SyntheticTable::~SyntheticTable() = default;

uint64_t SyntheticTable::pathsOf(uint32_t peer) const noexcept {
    if (peer >= cfg_.peers) return 0;
    return cfg_.paths / cfg_.peers + (peer < cfg_.paths % cfg_.peers ? 1 : 0);
}

Prefix SyntheticTable::prefixAt(uint64_t i) noexcept {
    Prefix p;
    if (i % 16 == 15) {
        p.address = IpAddress::v4(0xc0000000u + uint32_t(i / 16) * 4096u);
        p.length = 20;
    } else {
        p.address = IpAddress::v4(0x01000000u + uint32_t(i) * 256u);
        p.length = 24;
    }
    return p;
}

void SyntheticTable::generatePeer(uint32_t peer, const Sink& sink) const {
    std::mt19937_64 rng(peerSeed(cfg_.seed, peer));
    const uint64_t n = pathsOf(peer);
    const uint32_t myAs = peerAs(peer);
    Mel::PtrConst<GenNexthop> nh =
        nexthops_->nexthop(Orvnet::IpGenAddr(Orvnet::IpAddr::fromHostOrder(peerAddress(peer))));
    std::vector<Mel::PtrConst<AspathAttrCanonical>> recent;
    std::vector<uint32_t> asns;
    std::vector<uint32_t> comms;
    AspathAttrCanonicalContent path;
    PathAttributesContents c;
    for (uint64_t i = 0; i < n;) {
        const uint64_t group = std::min<uint64_t>(pathsPerSet_.draw(rng), n - i);
        c = PathAttributesContents();
        c.nextHopIs(nh);
        c.aspTypeIs(AspType::external);
        c.originIs(Origin(std::min<uint32_t>(origin_.draw(rng), 2)));
        bool reuse = !recent.empty() && unit(rng) >= profile_.newAsPathPerSet;
        Mel::PtrConst<AspathAttrCanonical> asPath;
        if (reuse) {
            asPath = recent[rng() % recent.size()];
        } else {
            uint32_t len = std::max<uint32_t>(1, asPathLength_.draw(rng));
            asns.assign(1, myAs);
            for (uint32_t k = 1; k < len; ++k) {
                // Transit near the peer is drawn from the few large networks, the origin from
                // all of them.
                double u = unit(rng);
                size_t idx = k + 1 == len ? size_t(rng() % asUniverse_.size())
                                          : size_t(double(asUniverse_.size()) * u * u * u);
                asns.push_back(asUniverse_[idx]);
            }
            path.clear();
            path.segmentAdd(AsSegmentType::asSequence_, std::span<const uint32_t>(asns));
            asPath = aspathAttrCanonicalFactory(path);
            if (recent.size() < 8)
                recent.push_back(asPath);
            else
                recent[rng() % recent.size()] = asPath;
        }
        c.aspathAttrIs(asPath);
        // A set that repeats an AS path differs from its sibling by MED, as real ones mostly do.
        if (reuse || unit(rng) < profile_.medShare)
            c.medIs(Routing::MultiExitDiscriminator(rng() % 5000));
        if (unit(rng) < profile_.aggregatorShare)
            c.aggregatorIs(aggregatorFactory(asns.empty() ? myAs : asns.back(),
                                             Orvnet::IpAddr::fromHostOrder(uint32_t(rng()))));
        if (unit(rng) < profile_.atomicAggregateShare) c.atomicAggregateIs(true);
        if (uint32_t size = commListSize_.draw(rng); size && !commPool_.empty())
            c.commListIs(commPool_[rng() % commPool_.size()]);
        for (uint64_t k = 0; k < group; ++k, ++i)
            sink(uint16_t(peer), prefixAt(i), c);
    }
}

} // namespace Census
