// The first records of the shared MRT dumps, fed through a census handler, for the reliability
// tests that want real paths.
//   auto files = OrvTest::realDumpSlices();  if (files.empty()) GTEST_SKIP() << OrvTest::kNoDumps;
//   for (const auto& f : files) OrvTest::feed(f, ingest);   // Census::MrtIngest or any handler
#pragma once

#include "census/Input.h"
#include "census/Mrt.h"
#include "census/MrtDecoder.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace OrvTest {

inline constexpr const char* kNoDumps =
    "MRT dumps not found under " ORV_SHARED_DIR "/data/mrt: real-data test skipped";

struct DumpSlice {
    std::string path;
    uint64_t records; // how many records to read from the start
};

// RIB entries of both families (with and without add-path) and UPDATE streams of 2- and 4-byte
// sessions: a few thousand paths, enough for every kind of attribute the dumps hold.
inline std::vector<DumpSlice> realDumpSlices(uint64_t scale = 1) {
    const std::pair<const char*, uint64_t> wanted[] = {
        {"bview.20020722.2337.gz", 1500},         {"updates.20070211.0141.gz", 1200},
        {"updates.20160811.1600.gz", 1500},       {"bview.ipv4_unicast_add_path.gz", 1000},
        {"bview.ipv6_unicast_add_path.gz", 1000}, {"bview.64k_stream_overflow.gz", 1000},
    };
    std::vector<DumpSlice> out;
    for (auto [name, records] : wanted) {
        const auto p = std::filesystem::path(ORV_SHARED_DIR) / "data" / "mrt" / name;
        if (std::filesystem::exists(p)) out.push_back({p.string(), records * scale});
    }
    return out;
}

// Decodes the slice's records into handler (a fresh decoder: the peer index starts empty).
inline void feed(const DumpSlice& slice, Census::MrtHandler& handler) {
    Census::MrtReader reader(Census::InputFile::open(slice.path), 1 << 16);
    Census::MrtDecoder decoder(handler);
    Census::MrtRecord rec;
    for (uint64_t n = 0; n < slice.records && reader.next(rec); ++n)
        decoder.decode(rec);
}

} // namespace OrvTest
