// A synthetic full table made directly through the library (no MRT bytes): every peer announces
// its share of the prefixes, grouped into attribute sets whose sizes, AS-path lengths, community
// list sizes and sharing follow distributions measured on real dumps (see SyntheticProfile).
//   Census::SyntheticTable t({.paths = 1000000, .peers = 20, .seed = 1});
//   t.generatePeer(0, [&](uint16_t peer, const Census::Prefix& p, const PathAttributesContents& c)
//   {});
// Deterministic: the same paths, peers and seed give the same paths in the same order, whichever
// peers are generated on which thread (each peer draws from its own generator, seeded from the
// seed and the peer number; what peers share is drawn up front).
#pragma once

#include "census/Prefix.h"

#include "Mel/Ptr.h"
#include "OrvBgp/PathAttributesContents.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace Routing {
class CommList;
}
namespace Routing::Bgp {
class AspathAttrCanonical;
class AddressNexthopDedupTable;
} // namespace Routing::Bgp

namespace Census {

// A discrete distribution as measured: (value, weight) pairs.
using Histogram = std::vector<std::pair<uint32_t, uint64_t>>;

// The measured figures the table is drawn from. The defaults are what --measure-distributions
// prints for the RIPE RIS dumps this project ships with (README, "Synthetic table").
struct SyntheticProfile {
    Histogram pathsPerSet;        // how many of a peer's prefixes share one attribute set
    Histogram asPathLength;       // hop count per set
    Histogram commListSize;       // communities per set, 0 for none
    double newAsPathPerSet = 0;   // distinct AS paths / distinct sets
    double newCommListPerSet = 0; // distinct community lists / sets with communities
    double medShare = 0;          // share of sets with a MED
    double aggregatorShare = 0;   // with AGGREGATOR
    double atomicAggregateShare = 0;
    Histogram origin; // ORIGIN code per set

    static const SyntheticProfile& measured();
};

struct SyntheticConfig {
    uint64_t paths = 1000000;
    uint32_t peers = 20;
    uint64_t seed = 1;
};

class SyntheticTable {
public:
    using Sink = std::function<void(uint16_t peer, const Prefix& prefix,
                                    const Routing::Bgp::PathAttributesContents& contents)>;

    explicit SyntheticTable(SyntheticConfig cfg,
                            const SyntheticProfile& profile = SyntheticProfile::measured());
    ~SyntheticTable();
    SyntheticTable(const SyntheticTable&) = delete;
    SyntheticTable& operator=(const SyntheticTable&) = delete;

    const SyntheticConfig& config() const noexcept { return cfg_; }
    uint32_t peerCount() const noexcept { return cfg_.peers; }
    // Paths of one peer: its share of cfg.paths (the first peers take the remainder).
    uint64_t pathsOf(uint32_t peer) const noexcept;
    // The peer's BGP session address (10.<peer>.0.1, also its next hop) and AS number.
    static uint32_t peerAddress(uint32_t peer) noexcept { return 0x0a000001u | (peer << 8); }
    static uint32_t peerAs(uint32_t peer) noexcept { return 3000u + 17u * peer; }

    // Generates the peer's paths in order, calling sink once per path; the contents hold interned
    // sub-attributes. Safe to call for different peers on different threads at once.
    void generatePeer(uint32_t peer, const Sink& sink) const;

    // The prefix at index i of every peer's table: /24s from 1.0.0.0 on, every 16th a /16-/23.
    static Prefix prefixAt(uint64_t i) noexcept;

private:
    // Draws values with the histogram's weights; const, so threads share it.
    struct Sampler {
        explicit Sampler(const Histogram& h);
        uint32_t draw(std::mt19937_64& rng) const;
        std::vector<uint32_t> values;
        std::vector<uint64_t> cumulative;
    };

    SyntheticConfig cfg_;
    const SyntheticProfile& profile_;
    Sampler pathsPerSet_, asPathLength_, commListSize_, origin_;
    std::vector<uint32_t> asUniverse_;
    // Community lists shared between sets and peers, drawn up front.
    std::vector<Mel::PtrConst<Routing::CommList>> commPool_;
    std::unique_ptr<Routing::Bgp::AddressNexthopDedupTable> nexthops_;
};

} // namespace Census
