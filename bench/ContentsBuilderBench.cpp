// Decoded paths to interned attribute sets: the ContentsBuilder's cost on a real dump, beside the
// decoding it follows, measured in the same run. Each run reads the dump (decompressed once into a
// plain temporary file) through the MRT decoder; the baseline does nothing with the paths, the
// others build the contents and intern the set (the sets of earlier runs are held, so the steady
// state is "every set exists already", as for an agent refreshing a table), and also write each
// set back and compare it with the received bytes.
//   build/release/orv_bench --benchmark_filter='ContentsBuilder'
// Counters: ns_per_path (all of the run / paths), build_ns_per_path (the run minus the decode-only
// baseline, per path), vs_decode = run time / decode-only time.
#include "census/ContentsBuilder.h"
#include "census/MrtDecoder.h"
#include "census/RoundTrip.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// The dump decompressed into a temporary file, once per process.
std::string plainCopy(const char* name) {
    static std::map<std::string, std::string> copies;
    if (auto it = copies.find(name); it != copies.end()) return it->second;
    const std::string src =
        (std::filesystem::path(ORV_SHARED_DIR) / "data" / "mrt" / name).string();
    std::string dst;
    if (std::filesystem::exists(src)) {
        dst = (std::filesystem::temp_directory_path() /
               ("orv-bench-" + std::to_string(getpid()) + "-" + name + ".mrt"))
                  .string();
        std::ofstream out(dst, std::ios::binary);
        auto in = Census::InputFile::open(src);
        std::vector<uint8_t> buf(1 << 20);
        while (size_t n = in->read(buf.data(), buf.size()))
            out.write(reinterpret_cast<const char*>(buf.data()), std::streamsize(n));
        static struct Cleanup {
            std::vector<std::string> files;
            ~Cleanup() {
                for (const auto& f : files)
                    std::remove(f.c_str());
            }
        } cleanup;
        cleanup.files.push_back(dst);
    }
    copies[name] = dst;
    return dst;
}

struct Builder : Census::MrtHandler {
    Census::ContentsBuilder builder;
    Census::RoundTrip roundTrip;
    std::vector<Mel::PtrConst<Routing::Bgp::PathAttributes>> held;
    bool check = false;
    bool hold = true;
    void onPath(const Census::DecodedPath& p) override {
        Mel::PtrConst<Routing::Bgp::PathAttributes> set = builder.intern(p);
        if (!set) return;
        if (check) roundTrip.check(p, *set);
        if (hold) held.push_back(std::move(set));
    }
};

double decodeOnlySeconds(const std::string& file) {
    double best = 0;
    for (int i = 0; i < 3; ++i) {
        Census::MrtHandler none;
        auto t0 = Clock::now();
        Census::readMrtFile(file, none);
        double s = std::chrono::duration<double>(Clock::now() - t0).count();
        best = best == 0 ? s : std::min(best, s);
    }
    return best;
}

void contentsBuilder(benchmark::State& state, const char* name, bool check) {
    const std::string file = plainCopy(name);
    if (file.empty()) {
        state.SkipWithError("MRT dump not found under " ORV_SHARED_DIR "/data/mrt");
        return;
    }
    const double baseline = decodeOnlySeconds(file);
    Builder b;
    Census::readMrtFile(file, b); // every set exists from here on
    b.hold = false;
    b.check = check;
    const uint64_t paths = b.builder.counts().paths;
    double total = 0;
    for (auto _ : state) {
        auto t0 = Clock::now();
        Census::readMrtFile(file, b);
        total += std::chrono::duration<double>(Clock::now() - t0).count();
    }
    const double perRun = total / double(state.iterations());
    state.counters["paths"] = double(paths);
    state.counters["ns_per_path"] = perRun * 1e9 / double(paths);
    state.counters["build_ns_per_path"] = (perRun - baseline) * 1e9 / double(paths);
    state.counters["vs_decode"] = perRun / baseline;
    state.counters["mismatched"] = double(b.roundTrip.counts().mismatched());
    state.SetItemsProcessed(int64_t(paths) * state.iterations());
}

void BM_ContentsBuilder_Rib2002(benchmark::State& s) {
    contentsBuilder(s, "bview.20020722.2337.gz", false);
}
void BM_ContentsBuilder_Rib2002_WithRoundTrip(benchmark::State& s) {
    contentsBuilder(s, "bview.20020722.2337.gz", true);
}
void BM_ContentsBuilder_Updates2016(benchmark::State& s) {
    contentsBuilder(s, "updates.20160811.1600.gz", false);
}

BENCHMARK(BM_ContentsBuilder_Rib2002)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_ContentsBuilder_Rib2002_WithRoundTrip)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_ContentsBuilder_Updates2016)->Unit(benchmark::kMillisecond)->MinTime(1.0);

} // namespace
