// Damaged copies of every sample dump (fixed seeds): cut anywhere, bits flipped in record bodies,
// bits flipped anywhere, compressed bytes flipped, through the dump printer and the whole census.
// Nothing may crash (the sanitizer builds watch the reads); a file is reported unreadable exactly
// when its framing is broken.
#include "census/BgpdumpFormat.h"
#include "census/Run.h"

#include "CensusTestUtil.h"

#include <gtest/gtest.h>

#include <random>

using namespace census_test;
using namespace Census;

namespace {

constexpr size_t kMaxBase = 96 * 1024; // enough records of each kind, fast under sanitizers

struct Base {
    std::string name;
    Bytes data;
    std::vector<size_t> ends; // offset just past each record
};

Base loadBase(const std::string& name, const std::string& path) {
    Base b{name, {}, {}};
    b.data = firstRecords(path, kMaxBase, &b.ends);
    return b;
}

std::vector<Base> bases() {
    std::vector<Base> out;
    out.push_back(loadBase("edge_cases.mrt", testData("edge_cases.mrt")));
    for (const std::string& path : sharedMrtFiles())
        out.push_back(loadBase(std::filesystem::path(path).filename(), path));
    return out;
}

// Decodes and prints (printing reads every decoded field, so it is exercised on garbage too), then
// takes the file through the whole census (building, interning, round trip, RIB), which must read
// it the same way.
FileResult run(const TempDir& tmp, const Bytes& file) {
    const std::string path = tmp.path("damaged");
    writeFile(path, file);
    BgpdumpFormatter fmt(nullptr);
    FileResult r = readMrtFile(path, fmt, 4096);
    if (!r.ok) {
        EXPECT_EQ(r.error.rfind(path + ": byte ", 0), 0u) << r.error;
    }
    CensusRun census;
    const FileOutcome& o = census.readFile(path);
    EXPECT_EQ(o.ok, r.ok) << o.error;
    EXPECT_EQ(o.counts.records, r.counts.records);
    return r;
}

} // namespace

// Per dump: cut copies, flipped bits inside record bodies, flipped bits anywhere, flipped
// compressed bytes.
TEST(CensusRobustness, DamagedCopiesFailOnlyWhenTheFramingIsBroken) {
    TempDir tmp;
    for (const Base& b : bases()) {
        SCOPED_TRACE(b.name);
        // A copy cut at a record boundary reads whole; cut inside a record, it fails after the
        // records before the cut.
        std::mt19937 rng(11);
        for (int i = 0; i < 12; ++i) {
            size_t cut = i == 0 ? b.ends.front() : rng() % (b.data.size() + 1);
            FileResult r = run(tmp, Bytes(b.data.begin(), b.data.begin() + long(cut)));
            size_t whole =
                size_t(std::upper_bound(b.ends.begin(), b.ends.end(), cut) - b.ends.begin());
            bool atBoundary = cut == 0 || (whole > 0 && b.ends[whole - 1] == cut);
            EXPECT_EQ(r.ok, atBoundary) << "cut at " << cut;
            EXPECT_EQ(r.counts.records, whole) << "cut at " << cut;
        }
        // A cut compressed copy is unreadable from the cut on, whatever the cut; every record
        // that decompressed whole before it comes out.
        const Bytes gz = gzipBytes(b.data);
        FileResult cutGz = run(tmp, Bytes(gz.begin(), gz.begin() + long(gz.size() * 2 / 3)));
        EXPECT_FALSE(cutGz.ok);
        EXPECT_EQ(
            cutGz.counts.records,
            size_t(std::upper_bound(b.ends.begin(), b.ends.end(), cutGz.bytes) - b.ends.begin()));

        // Bits flipped inside record bodies never stop the read.
        rng.seed(23);
        for (int i = 0; i < 12; ++i) {
            Bytes d = b.data;
            for (int k = 0; k < 1 + i * 4; ++k) {
                size_t rec = rng() % b.ends.size();
                size_t start = (rec ? b.ends[rec - 1] : 0) + 12;
                size_t end = b.ends[rec];
                if (end <= start) continue;
                d[start + rng() % (end - start)] ^= uint8_t(1u << (rng() % 8));
            }
            FileResult r = run(tmp, d);
            EXPECT_TRUE(r.ok) << r.error;
            EXPECT_EQ(r.counts.records, b.ends.size());
        }

        // Bits flipped anywhere, in the records or in their compressed form: no crash.
        rng.seed(37);
        for (int i = 0; i < 8; ++i) {
            Bytes d = b.data;
            for (int k = 0; k < 1 + i; ++k)
                d[rng() % d.size()] ^= uint8_t(1u << (rng() % 8));
            FileResult r = run(tmp, d);
            EXPECT_LE(r.counts.records, b.data.size() / 12);
            Bytes flippedGz = gz;
            flippedGz[10 + rng() % (gz.size() - 10)] ^= uint8_t(1u << (rng() % 8));
            run(tmp, flippedGz);
        }
    }
}
