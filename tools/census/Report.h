// The census's figures, gathered once from a loaded run and the store's counters, and written as
// a terminal table, as JSON or as an SVG chart.
//   Census::Report r = Census::Report::gather(run);
//   r.printText(stdout);  r.writeJson(jsonFile);  r.writeSvg(svgFile);
// Memory is split into components by the class that owns the bytes: "library" is the inbound
// sets and everything they reference (AS paths, communities, next hops, cluster lists, other
// attributes, intern tables); the outbound sets and their table are counted apart, and the RIB
// (this tool's own map of routes to sets) apart again. Resident memory is the whole process.
#pragma once

#include "census/Run.h"

#include "MelStash/StoreManager.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace Census {

struct Report {
    struct TypeRow {
        std::string name;
        std::string component;
        bool table = false; // an intern table's own arrays
        int64_t objects = 0;
        int64_t bytes = 0;
    };
    struct TierRow {
        std::string tier;
        uint64_t routes = 0; // routes whose set is of this tier
        uint64_t sets = 0;   // distinct sets of this tier held by the RIB
    };
    struct Component {
        std::string name;
        int64_t bytes = 0;
        int64_t objects = 0;
    };

    // What was read.
    std::string source;
    unsigned threads = 1;
    bool mrt = false;
    std::vector<FileOutcome> files;
    SyntheticConfig synthetic;

    DecodeCounts decode;
    IngestCounts ingest;
    RibCounts rib;
    BuildCounts build;
    RoundTripCounts roundTrip;

    uint64_t routes = 0;
    uint64_t peers = 0;
    uint64_t ribBytes = 0;
    std::vector<TierRow> inTiers, outTiers;
    uint64_t inSets = 0, outSets = 0;

    std::vector<TypeRow> types;        // every class and table with live bytes
    std::vector<Component> components; // in display order
    int64_t libraryBytes = 0;          // inbound sets and all they reference, tables included
    int64_t outboundBytes = 0;         // outbound sets and their table
    int64_t storeLiveBytes = 0;        // the store's own count of live blocks
    int64_t storeCommittedBytes = 0;
    uint64_t residentBytes = 0;

    double seconds = 0;       // reading and decoding, or generating, wall time
    double internSeconds = 0; // in the library, summed over threads

    std::string pathAttributesStats;
    std::string ribOutPathAttributesStats;

    static Report gather(const CensusRun& run);

    // Paths per second for the whole run and for the library part.
    double pathsPerSecond() const;
    double internPathsPerSecond() const;
    uint64_t paths() const noexcept { return ingest.announced; }
    double libraryBytesPerRoute() const {
        return routes ? double(libraryBytes) / double(routes) : 0.0;
    }
    // True when some file could not be read to its end.
    bool readErrors() const;

    void printText(std::FILE* out) const;
    void writeJson(std::FILE* out) const;
    void writeSvg(std::FILE* out) const;
};

// The component a class or table of the store belongs to ("AS paths", "communities", ...).
std::string componentOf(const std::string& typeName, bool table);
// The process's resident memory from /proc/self/statm; 0 where it cannot be read.
uint64_t residentBytes();

} // namespace Census
