// A census run: MRT files or the synthetic table through the library into per-thread RIBs, with
// the timings and counts the report shows. The RIBs stay loaded until clear() or destruction, so
// the store's counters can be read while they hold every path.
//   Census::CensusRun run({.threads = 2});
//   run.readFile("bview.20020722.2337.gz");   // or run.generate({.paths = 1000000, .peers = 20})
//   Census::Report r = Census::Report::gather(run);  run.clear();
// With N threads, paths are split by peer (peer number mod N). For MRT input the calling thread
// reads and decompresses while the N threads work, and every one of them decodes every record
// (decoding is the cheap part) and keeps the paths of its own peers; the decode counts are one
// thread's. Round-trip checks run once per attribute set built (per UPDATE or RIB
// entry), as the set is interned.
#pragma once

#include "census/ContentsBuilder.h"
#include "census/Ingest.h"
#include "census/MrtDecoder.h"
#include "census/RoundTrip.h"
#include "census/Synthetic.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Census {

struct RunOptions {
    unsigned threads = 1;
    bool roundTrip = true;
    // Where the progress bar goes (stderr in the tool); null for none. Shown only for inputs
    // larger than Progress::kLargeBytes / kLargePaths.
    std::FILE* progress = nullptr;
};

struct FileOutcome {
    std::string name;
    uint64_t bytes = 0; // decompressed MRT bytes read
    bool ok = true;
    std::string error; // names the file and the byte offset
    DecodeCounts counts;
    double seconds = 0;
};

// One thread's census over MRT paths: builds, interns, checks the round trip and updates the RIB.
class MrtIngest : public Ingest, public MrtHandler {
public:
    MrtIngest(const Mel::Ptr<ContentsBuilder::NexthopTable>& ipv4,
              const Mel::Ptr<ContentsBuilder::NexthopTable>& ipv6, bool roundTrip,
              unsigned threads = 1, unsigned index = 0);
    ~MrtIngest() override;

    void onUpdate(const DecodedUpdate& u) override;
    void onPath(const DecodedPath& p) override;

    void dropCaches() override;

    const ContentsBuilder& builder() const noexcept { return builder_; }
    const RoundTrip& roundTrip() const noexcept { return roundTrip_; }

private:
    ContentsBuilder builder_;
    RoundTrip roundTrip_;
    Routing::Bgp::PathAttributesContents contents_;
    InternedSets sets_;
    bool checkRoundTrip_;
    unsigned threads_, index_;
    bool cached_ = false;
    PathSource cachedSource_ = PathSource::RibEntry;
    // The prefixes of the UPDATE being handed out, in the order its paths come (withdrawn,
    // MP_UNREACH_NLRI, NLRI, MP_REACH_NLRI): while a path is handled, the RIB slot of the path
    // kPrefetchAhead places on starts loading, so that the paths sharing their UPDATE's set
    // (quick to handle, with nothing to intern) find their slots in cache.
    static constexpr size_t kPrefetchAhead = 8;
    struct PrefixRun {
        std::span<const Prefix> prefixes;
        uint8_t safi;
    };
    struct Cursor {
        size_t run = 0, at = 0;
    };
    // The prefix at c (then moves c on), or null past the last one.
    const Prefix* next(Cursor& c, uint8_t& safi) const noexcept;
    void prefetchAhead() noexcept;
    std::array<PrefixRun, 4> runs_{};
    Cursor ahead_{4, 0};
    uint16_t updatePeer_ = 0;
};

class CensusRun {
public:
    explicit CensusRun(RunOptions opts = {});
    ~CensusRun();
    CensusRun(const CensusRun&) = delete;
    CensusRun& operator=(const CensusRun&) = delete;

    // Reads one MRT file ("-" for stdin) into the RIBs. Never throws for the file's contents: a
    // file that cannot be read to its end gives ok false, and what came before stays loaded.
    const FileOutcome& readFile(const std::string& path);
    // Reads the files one after the other through one pipeline, as readFile would each: the
    // interning threads, their decoders' scratch and the caches of recent sets carry over from
    // file to file, so that a day of five-minute update files costs per route what one large file
    // does. Returns the outcomes of these files (also appended to files()).
    std::vector<FileOutcome> readFiles(const std::vector<std::string>& paths);
    // Generates the synthetic table into the RIBs.
    void generate(const SyntheticConfig& cfg);

    const RunOptions& options() const noexcept { return opts_; }
    unsigned threads() const noexcept { return opts_.threads; }
    bool synthetic() const noexcept { return synthetic_; }
    const SyntheticConfig& syntheticConfig() const noexcept { return syntheticConfig_; }
    const std::vector<FileOutcome>& files() const noexcept { return files_; }

    DecodeCounts decodeCounts() const;
    IngestCounts ingestCounts() const;
    RibCounts ribCounts() const;
    BuildCounts buildCounts() const;
    RoundTripCounts roundTripCounts() const;
    uint64_t routes() const;   // routes the RIBs hold now
    uint64_t peers() const;    // distinct peers seen
    uint64_t ribBytes() const; // the RIBs' and peer tables' own memory
    // Wall time reading (decompressing, decoding) or generating, and the part of it spent in the
    // library (building contents, interning, RIB updates), summed over threads.
    double seconds() const noexcept { return seconds_; }
    double internSeconds() const;
    // CPU time of each generating thread in the last generate(): its longest is the run's wall
    // time on a machine with a free core per thread.
    const std::vector<double>& threadCpuSeconds() const noexcept { return threadCpuSeconds_; }

    // f(const PathAttributes&, const RibOutPathAttributes*) over every route of every thread.
    template <class F>
    void forEachRoute(F&& f) const {
        for (const auto& w : workers_)
            w->rib().forEach(f);
    }
    // Releases every route of every thread.
    void clear();

private:
    void makeWorkers(bool mrt);
    // The calling thread reads and decompresses the files into batches of whole records; each
    // interning thread decodes every batch and keeps the paths of its own peers.
    std::vector<FileOutcome> readPipelined(const std::vector<std::string>& paths);

    RunOptions opts_;
    std::vector<std::unique_ptr<Ingest>> workers_;
    std::vector<MrtIngest*> mrtWorkers_;
    Mel::Ptr<ContentsBuilder::NexthopTable> nh4_, nh6_;
    std::vector<FileOutcome> files_;
    bool synthetic_ = false;
    SyntheticConfig syntheticConfig_;
    double seconds_ = 0;
    TickRate tickRate_;
    std::vector<double> threadCpuSeconds_;
};

// Adds c into total, field by field.
void addDecodeCounts(DecodeCounts& total, const DecodeCounts& c);

} // namespace Census
