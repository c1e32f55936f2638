// Measures, over real MRT dumps, the distributions the synthetic table is drawn from: AS path
// lengths and community list sizes per distinct attribute set, how many paths share one set, and
// how often sets share their AS path and community list.
//   Census::DistributionMeter meter;  Census::readMrtFile(path, meter);
//   meter.result().print(stdout);
// A "set" here is the attribute section as received with MP_REACH/MP_UNREACH taken out (their
// prefixes are not attributes of the path), compared by content across all peers; only usable
// announcements and RIB entries count.
#pragma once

#include "census/MrtDecoder.h"

#include "Mel/String.h"

#include <cstdint>
#include <cstdio>
#include <map>

namespace Census {

struct Distributions {
    uint64_t paths = 0;
    uint64_t sets = 0;          // distinct attribute sets
    uint64_t asPaths = 0;       // distinct AS paths (as used, AS4_PATH folded in)
    uint64_t commLists = 0;     // distinct non-empty community lists
    uint64_t setsWithComms = 0; // distinct sets that carry communities
    uint64_t peers = 0;
    uint64_t setsWithMed = 0;
    uint64_t setsWithLocalPref = 0;
    uint64_t setsWithAggregator = 0;
    uint64_t setsWithAtomicAggregate = 0;
    uint64_t setsWithExtComms = 0;
    uint64_t setsWithLargeComms = 0;
    std::map<uint32_t, uint64_t> asPathLength; // hop count -> distinct sets
    std::map<uint32_t, uint64_t> commListSize; // communities -> distinct sets (0: none)
    std::map<uint32_t, uint64_t> pathsPerSet;  // paths sharing a set -> number of such sets
    std::map<uint32_t, uint64_t> origin;       // ORIGIN code -> distinct sets

    void print(std::FILE* out) const;
};

class DistributionMeter : public MrtHandler {
public:
    void onUpdate(const DecodedUpdate&) override { cached_ = false; }
    void onPath(const DecodedPath& p) override;

    // The figures over everything read so far.
    Distributions result() const;

private:
    struct SetInfo {
        uint32_t paths = 0;
        uint32_t hops = 0;
        uint32_t comms = 0;
        uint8_t origin = 0;
        uint8_t flags = 0;
    };
    uint64_t setKey(const DecodedAttributes& a);

    Mel::HashMap<uint64_t, SetInfo> sets_;
    Mel::HashSet<uint64_t> asPaths_;
    Mel::HashSet<uint64_t> commLists_;
    Mel::HashSet<uint64_t> peers_;
    uint64_t paths_ = 0;
    bool cached_ = false;
    uint64_t cachedKey_ = 0;
    std::string scratch_;
};

} // namespace Census
