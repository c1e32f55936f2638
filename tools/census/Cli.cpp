#include "census/Cli.h"

#include "census/Announce.h"
#include "census/BgpdumpFormat.h"
#include "census/Distributions.h"
#include "census/Progress.h"
#include "census/Report.h"
#include "census/Run.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace Census {

namespace {

const char kUsage[] =
    "usage: bgp-attr-census [options] [FILE ...]\n"
    "  FILE                      MRT file (TABLE_DUMP, TABLE_DUMP_V2, BGP4MP), plain, gzip or\n"
    "                            bzip2; - reads stdin. Without FILE: the synthetic table.\n"
    "  --synthetic PATHS[,PEERS] synthetic table of PATHS paths over PEERS peers\n"
    "                            (default 1000000,20)\n"
    "  --seed N                  seed of the synthetic table (default 1)\n"
    "  --threads N               intern on N threads, paths split by peer (default 1)\n"
    "  --json FILE               write the report's figures as JSON\n"
    "  --svg FILE                draw memory by component and sharing per tier\n"
    "  --no-round-trip           skip re-encoding every set and comparing with the input\n"
    "  --no-progress             no progress bar (it shows only on a terminal anyway)\n"
    "  --dump                    print `bgpdump -m` lines on stdout, counts on stderr\n"
    "                            (reads only; nothing is interned)\n"
    "  --measure-distributions   print the distributions the synthetic table is drawn from,\n"
    "                            measured over FILE ...\n"
    "  --announce HOST[:PORT] --local-as AS --peer-as AS [--two-byte-as] [--confed-id AS]\n"
    "             [--from-peer ADDR] [--linger SECONDS] FILE\n"
    "                            send one peer's final table of FILE to a BGP speaker\n"
    "                            (`--announce --help` says more)\n";

void printDecodeCounts(std::FILE* out, const char* title, const DecodeCounts& c, uint64_t bytes) {
    auto line = [&](const char* what, uint64_t n) {
        std::fprintf(out, "  %-22s %llu\n", what, static_cast<unsigned long long>(n));
    };
    std::fprintf(out, "%s\n", title);
    line("bytes", bytes);
    line("records", c.records);
    line("table-dump records", c.tableDumpRecords);
    line("table-dump-v2 records", c.tableDumpV2Records);
    line("bgp4mp records", c.bgp4mpRecords);
    line("peer index tables", c.peerIndexTables);
    line("rib entries", c.ribEntries);
    line("updates", c.updates);
    line("announcements", c.announcements);
    line("withdrawals", c.withdrawals);
    line("state changes", c.stateChanges);
    line("other messages", c.otherMessages);
    line("skipped records", c.skippedRecords);
    line("malformed records", c.malformedRecords);
    line("attribute sets", c.attributeSets);
    line("unusable paths", c.unusablePaths);
    line("unsupported afi/safi", c.unsupportedAfiSafi);
    for (size_t i = 1; i < kErrorActionCount; ++i) {
        std::string what = std::string("malformed: ") + errorActionName(ErrorAction(i));
        line(what.c_str(), c.malformed.byAction[i]);
    }
    for (size_t i = 0; i < kMalformationCount; ++i)
        if (c.malformed.byKind[i]) {
            std::string what = std::string("  by kind: ") + malformationName(Malformation(i));
            line(what.c_str(), c.malformed.byKind[i]);
        }
    for (size_t i = 0; i < 256; ++i)
        if (c.malformed.byAttributeType[i]) {
            std::string what = "  by attribute type " + std::to_string(i);
            line(what.c_str(), c.malformed.byAttributeType[i]);
        }
}

// Flushes standard output; false, with what was lost and why on err, when any write to it failed
// (a full disk, a closed pipe). earlier is the errno of a failed write seen before, if any.
bool finishOutput(std::FILE* out, std::FILE* err, const char* what, int earlier = 0) {
    errno = 0;
    const bool flushed = std::fflush(out) == 0;
    if (flushed && !std::ferror(out) && !earlier) return true;
    const int e = earlier ? earlier : errno;
    std::fprintf(err, "bgp-attr-census: writing %s to standard output: %s\n", what,
                 e ? std::strerror(e) : "write error");
    return false;
}

// --dump: the decoder's view only, as bgpdump prints it.
int runDump(const CliOptions& o, std::FILE* out, std::FILE* err) {
    BgpdumpFormatter formatter(out);
    DecodeCounts total;
    uint64_t totalBytes = 0;
    int status = 0;
    for (const std::string& f : o.files) {
        FileResult r = readMrtFile(f, formatter);
        formatter.flush();
        if (!r.ok) {
            std::fflush(out);
            std::fprintf(err, "bgp-attr-census: %s\n", r.error.c_str());
            status = 1;
        }
        printDecodeCounts(err, f.c_str(), r.counts, r.bytes);
        addDecodeCounts(total, r.counts);
        totalBytes += r.bytes;
    }
    if (o.files.size() > 1) printDecodeCounts(err, "total", total, totalBytes);
    formatter.flush();
    if (!finishOutput(out, err, "the dump", formatter.writeError())) status = 1;
    return status;
}

int runMeasure(const CliOptions& o, std::FILE* out, std::FILE* err) {
    int status = 0;
    for (const std::string& f : o.files) {
        DistributionMeter meter;
        FileResult r = readMrtFile(f, meter);
        if (!r.ok) {
            std::fprintf(err, "bgp-attr-census: %s\n", r.error.c_str());
            status = 1;
        }
        std::fprintf(out, "== %s\n", f.c_str());
        meter.result().print(out);
    }
    if (!finishOutput(out, err, "the distributions")) status = 1;
    return status;
}

// Writes through a callback into a file; false (with the reason on err) when it cannot.
template <class F>
bool writeFile(const std::string& path, std::FILE* err, F&& write) {
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (!f) {
        std::fprintf(err, "bgp-attr-census: cannot write %s: %s\n", path.c_str(),
                     std::strerror(errno));
        return false;
    }
    write(f);
    bool ok = std::ferror(f) == 0;
    ok = std::fclose(f) == 0 && ok;
    if (!ok)
        std::fprintf(err, "bgp-attr-census: writing %s: %s\n", path.c_str(), std::strerror(errno));
    return ok;
}

} // namespace

std::optional<CliOptions> parseCensusArgs(int argc, const char* const* argv, std::string& error) {
    CliOptions o;
    auto value = [&](int& i, const char* name) -> const char* {
        if (i + 1 >= argc) {
            error = std::string(name) + " needs a value";
            return nullptr;
        }
        return argv[++i];
    };
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        uint64_t n = 0;
        if (std::strcmp(a, "--dump") == 0) {
            o.dump = true;
        } else if (std::strcmp(a, "--measure-distributions") == 0) {
            o.measure = true;
        } else if (std::strcmp(a, "--no-round-trip") == 0) {
            o.roundTrip = false;
        } else if (std::strcmp(a, "--no-progress") == 0) {
            o.progress = false;
        } else if (std::strcmp(a, "--json") == 0 || std::strcmp(a, "--svg") == 0) {
            const char* v = value(i, a);
            if (!v) return std::nullopt;
            (a[2] == 'j' ? o.json : o.svg) = v;
        } else if (std::strcmp(a, "--threads") == 0) {
            const char* v = value(i, a);
            if (!v) return std::nullopt;
            if (!parseNumber(v, n) || n < 1 || n > 256) {
                error = std::string("--threads wants 1 to 256, not ") + v;
                return std::nullopt;
            }
            o.threads = unsigned(n);
        } else if (std::strcmp(a, "--seed") == 0) {
            const char* v = value(i, a);
            if (!v) return std::nullopt;
            if (!parseNumber(v, o.seed)) {
                error = std::string("--seed wants a number, not ") + v;
                return std::nullopt;
            }
        } else if (std::strcmp(a, "--synthetic") == 0) {
            const char* v = value(i, a);
            if (!v) return std::nullopt;
            std::string s = v;
            size_t comma = s.find(',');
            uint64_t peers = o.peers;
            bool ok = parseNumber(s.substr(0, comma).c_str(), o.paths) && o.paths > 0;
            if (ok && comma != std::string::npos)
                ok = parseNumber(s.substr(comma + 1).c_str(), peers) && peers >= 1 &&
                     peers <= 0xffff;
            if (!ok) {
                error =
                    "--synthetic wants PATHS[,PEERS] (PATHS >= 1, 1 <= PEERS <= 65535), not " + s;
                return std::nullopt;
            }
            o.peers = uint32_t(peers);
            o.syntheticAsked = true;
        } else if (std::strcmp(a, "-h") == 0 || std::strcmp(a, "--help") == 0) {
            error = "help";
            return std::nullopt;
        } else if (a[0] == '-' && a[1] != '\0') {
            error = std::string("unknown option ") + a;
            return std::nullopt;
        } else {
            o.files.emplace_back(a);
        }
    }
    if ((o.dump || o.measure) && o.files.empty()) {
        error = std::string(o.dump ? "--dump" : "--measure-distributions") + " needs FILE";
        return std::nullopt;
    }
    if (o.syntheticAsked && !o.files.empty()) {
        error = "--synthetic and FILE exclude each other";
        return std::nullopt;
    }
    return o;
}

int censusMain(int argc, const char* const* argv, std::FILE* out, std::FILE* err,
               bool exitWhenDone) {
    if (wantsAnnounce(argc, argv)) return announceMain(argc, argv, out, err);
    std::string error;
    std::optional<CliOptions> parsed = parseCensusArgs(argc, argv, error);
    if (!parsed) {
        if (error == "help") {
            std::fputs(kUsage, out);
            return 0;
        }
        std::fprintf(err, "bgp-attr-census: %s\n%s", error.c_str(), kUsage);
        return 2;
    }
    const CliOptions& o = *parsed;
    if (o.dump) return runDump(o, out, err);
    if (o.measure) return runMeasure(o, out, err);

    RunOptions ro;
    ro.threads = o.threads;
    ro.roundTrip = o.roundTrip;
    ro.progress = o.progress && Progress::isTerminal(err) ? err : nullptr;
    int status = 0;
    CensusRun run(ro);
    if (o.files.empty()) {
        run.generate({o.paths, o.peers, o.seed});
    } else {
        for (const FileOutcome& r : run.readFiles(o.files)) {
            if (!r.ok) {
                std::fprintf(err, "bgp-attr-census: %s\n", r.error.c_str());
                status = 1;
            }
        }
    }
    Report report = Report::gather(run);
    errno = 0;
    report.printText(out);
    // The first failed write's reason: a later flush of a stream in error may not say it again.
    const int reportErrno = std::ferror(out) ? errno : 0;
    if (!o.json.empty() && !writeFile(o.json, err, [&](std::FILE* f) { report.writeJson(f); }))
        status = 1;
    if (!o.svg.empty() && !writeFile(o.svg, err, [&](std::FILE* f) { report.writeSvg(f); }))
        status = 1;
    if (!finishOutput(out, err, "the report", reportErrno)) status = 1;
    if (exitWhenDone) {
        std::fflush(err);
        std::_Exit(status);
    }
    return status;
}

} // namespace Census
