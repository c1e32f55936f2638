// Reading MRT dumps: decompress, frame, decode every attribute (and optionally print the
// `bgpdump -m` text to /dev/null), beside baselines measured in the same run: decompression alone
// through the same input layer (the floor), and, when the bgpdump program is installed, one run of
// `bgpdump -m FILE > /dev/null` (the tool this reader is checked against).
//   build/release/orv_bench --benchmark_filter='CensusRead'
// Counters: vs_decompress = our time / decompression time; x_faster_than_bgpdump = bgpdump time /
// our time (absent without bgpdump); paths_per_s.
#include "census/BgpdumpFormat.h"
#include "census/MrtDecoder.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

std::string dumpPath(const char* name) {
    return (std::filesystem::path(ORV_SHARED_DIR) / "data" / "mrt" / name).string();
}

double seconds(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double>(b - a).count();
}

double decompressOnce(const std::string& path) {
    static thread_local std::vector<uint8_t> buf(4 << 20);
    auto t0 = Clock::now();
    auto in = Census::InputFile::open(path);
    while (in->read(buf.data(), buf.size()))
        ;
    return seconds(t0, Clock::now());
}

// Best of three runs of bgpdump, once per file and process; 0 when the program is absent.
double bgpdumpSeconds(const std::string& path) {
    static std::map<std::string, double> cache;
    if (auto it = cache.find(path); it != cache.end()) return it->second;
    double best = 0;
    if (std::filesystem::exists("/usr/bin/bgpdump")) {
        const std::string cmd = "/usr/bin/bgpdump -m '" + path + "' > /dev/null 2>&1";
        for (int i = 0; i < 3; ++i) {
            auto t0 = Clock::now();
            if (std::system(cmd.c_str()) != 0) break;
            double s = seconds(t0, Clock::now());
            best = best == 0 ? s : std::min(best, s);
        }
    }
    cache[path] = best;
    return best;
}

void censusRead(benchmark::State& state, const char* name, bool print) {
    const std::string path = dumpPath(name);
    if (!std::filesystem::exists(path)) {
        state.SkipWithError(("MRT dump not found: " + path).c_str());
        return;
    }
    std::FILE* devnull = std::fopen("/dev/null", "w");
    double ours = 0, floor = 0;
    uint64_t paths = 0;
    for (auto _ : state) {
        state.PauseTiming();
        floor += decompressOnce(path);
        state.ResumeTiming();
        auto t0 = Clock::now();
        Census::FileResult r;
        if (print) {
            Census::BgpdumpFormatter fmt(devnull);
            r = Census::readMrtFile(path, fmt);
        } else {
            Census::MrtHandler none;
            r = Census::readMrtFile(path, none);
        }
        ours += seconds(t0, Clock::now());
        if (!r.ok) state.SkipWithError(r.error.c_str());
        paths += r.counts.ribEntries + r.counts.announcements + r.counts.withdrawals;
    }
    std::fclose(devnull);
    state.counters["vs_decompress"] = ours / floor;
    state.counters["paths_per_s"] = benchmark::Counter(double(paths), benchmark::Counter::kIsRate);
    if (double b = bgpdumpSeconds(path); b > 0)
        state.counters["x_faster_than_bgpdump"] = b / (ours / double(state.iterations()));
}

} // namespace

BENCHMARK_CAPTURE(censusRead, rib2002, "bview.20020722.2337.gz", false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(censusRead, updates2007, "updates.20070211.0141.gz", false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(censusRead, updates2016, "updates.20160811.1600.gz", false)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(censusRead, rib2002_print, "bview.20020722.2337.gz", true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(censusRead, updates2016_print, "updates.20160811.1600.gz", true)
    ->Unit(benchmark::kMillisecond);
