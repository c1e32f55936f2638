#include "census/Distributions.h"

#define XXH_STATIC_LINKING_ONLY
#include <xxhash.h>

namespace Census {

namespace {

enum SetFlag : uint8_t {
    kMed = 1,
    kLocalPref = 2,
    kAggregator = 4,
    kAtomic = 8,
    kExt = 16,
    kLarge = 32,
};

uint64_t hashAsPath(const AsPath& p) {
    XXH3_state_t st;
    XXH3_64bits_reset(&st);
    for (const AsPath::Segment& s : p.segments) {
        uint32_t head[2] = {s.type, s.count};
        XXH3_64bits_update(&st, head, sizeof head);
        XXH3_64bits_update(&st, p.asns.data() + s.first, s.count * sizeof(uint32_t));
    }
    return XXH3_64bits_digest(&st);
}

} // namespace

uint64_t DistributionMeter::setKey(const DecodedAttributes& a) {
    XXH3_state_t st;
    XXH3_64bits_reset(&st);
    for (const PathAttribute& attr : a.list) {
        if (attr.type == AttrType::kMpReach || attr.type == AttrType::kMpUnreach) continue;
        XXH3_64bits_update(&st, attr.wire.data(), attr.wire.size());
    }
    // The next hop of MP_REACH is part of the path's attributes; its prefixes are not.
    if (a.has(AttrType::kMpReach)) {
        XXH3_64bits_update(&st, a.mpReach.nextHop.bytes.data(), a.mpReach.nextHop.bytes.size());
        XXH3_64bits_update(&st, a.mpReach.linkLocalNextHop.bytes.data(),
                           a.mpReach.linkLocalNextHop.bytes.size());
    }
    return XXH3_64bits_digest(&st);
}

void DistributionMeter::onPath(const DecodedPath& p) {
    if (p.withdrawal() || !p.usable() || !p.attributes) return;
    const DecodedAttributes& a = *p.attributes;
    ++paths_;
    {
        uint64_t pk = XXH3_64bits(p.peer.address.bytes.data(), 16) ^ (uint64_t(p.peer.as) << 1);
        peers_.insert(pk);
    }
    uint64_t key;
    if (p.source == PathSource::RibEntry || !cached_) {
        key = setKey(a);
        cachedKey_ = key;
        cached_ = p.source != PathSource::RibEntry;
    } else {
        key = cachedKey_;
    }
    auto [it, inserted] = sets_.try_emplace(key);
    SetInfo& s = it->second;
    ++s.paths;
    if (!inserted) return;
    const AsPath& path = a.effectiveAsPath();
    s.hops = path.hopCount();
    s.comms = a.has(AttrType::kCommunities) ? uint32_t(a.communities.size()) : 0;
    s.origin = a.has(AttrType::kOrigin) ? a.origin : 3;
    s.flags = uint8_t((a.has(AttrType::kMed) ? kMed : 0) |
                      (a.has(AttrType::kLocalPref) ? kLocalPref : 0) |
                      (a.has(AttrType::kAggregator) ? kAggregator : 0) |
                      (a.has(AttrType::kAtomicAggregate) ? kAtomic : 0) |
                      (a.has(AttrType::kExtCommunities) ? kExt : 0) |
                      (a.has(AttrType::kLargeCommunity) ? kLarge : 0));
    asPaths_.insert(hashAsPath(path));
    if (s.comms) commLists_.insert(XXH3_64bits(a.communities.raw.data(), a.communities.raw.size()));
}

Distributions DistributionMeter::result() const {
    Distributions d;
    d.paths = paths_;
    d.sets = sets_.size();
    d.asPaths = asPaths_.size();
    d.commLists = commLists_.size();
    d.peers = peers_.size();
    for (const auto& [k, s] : sets_) {
        ++d.asPathLength[s.hops];
        ++d.commListSize[s.comms];
        ++d.pathsPerSet[s.paths];
        ++d.origin[s.origin];
        d.setsWithComms += s.comms != 0;
        d.setsWithMed += (s.flags & kMed) != 0;
        d.setsWithLocalPref += (s.flags & kLocalPref) != 0;
        d.setsWithAggregator += (s.flags & kAggregator) != 0;
        d.setsWithAtomicAggregate += (s.flags & kAtomic) != 0;
        d.setsWithExtComms += (s.flags & kExt) != 0;
        d.setsWithLargeComms += (s.flags & kLarge) != 0;
    }
    return d;
}

void Distributions::print(std::FILE* out) const {
    auto pct = [&](uint64_t n) { return sets ? 100.0 * double(n) / double(sets) : 0.0; };
    std::fprintf(out, "paths %llu  distinct sets %llu  (%.2f paths per set)  peers %llu\n",
                 (unsigned long long)paths, (unsigned long long)sets,
                 sets ? double(paths) / double(sets) : 0.0, (unsigned long long)peers);
    std::fprintf(out, "distinct AS paths %llu  (%.3f per set)\n", (unsigned long long)asPaths,
                 sets ? double(asPaths) / double(sets) : 0.0);
    std::fprintf(out, "distinct community lists %llu over %llu sets with communities (%.3f)\n",
                 (unsigned long long)commLists, (unsigned long long)setsWithComms,
                 setsWithComms ? double(commLists) / double(setsWithComms) : 0.0);
    std::fprintf(out,
                 "sets with MED %.1f%%  LOCAL_PREF %.1f%%  AGGREGATOR %.1f%%  ATOMIC_AGGREGATE "
                 "%.1f%%  extended communities %.1f%%  large communities %.1f%%\n",
                 pct(setsWithMed), pct(setsWithLocalPref), pct(setsWithAggregator),
                 pct(setsWithAtomicAggregate), pct(setsWithExtComms), pct(setsWithLargeComms));
    auto hist = [&](const char* title, const std::map<uint32_t, uint64_t>& h) {
        std::fprintf(out, "%s (value: sets)\n ", title);
        int col = 0;
        for (const auto& [v, n] : h) {
            std::fprintf(out, " %u:%llu", v, (unsigned long long)n);
            if (++col % 10 == 0) std::fprintf(out, "\n ");
        }
        std::fprintf(out, "\n");
    };
    hist("origin", origin);
    hist("AS path length", asPathLength);
    hist("community list size", commListSize);
    hist("paths per set", pathsPerSet);
}

} // namespace Census
