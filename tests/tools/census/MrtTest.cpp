#include "census/Mrt.h"

#include "CensusTestUtil.h"

#include <gtest/gtest.h>

#include <random>

using namespace census_test;
using Census::InputFile;
using Census::MrtReader;
using Census::MrtRecord;
using Census::ReadError;

namespace {

struct Seen {
    uint64_t offset;
    uint32_t ts, usec;
    uint16_t type, subtype;
    Bytes body;
    bool operator==(const Seen&) const = default;
};

std::vector<Seen> readAll(const std::string& path, size_t bufferSize) {
    MrtReader r(InputFile::open(path), bufferSize);
    std::vector<Seen> out;
    MrtRecord rec;
    while (r.next(rec))
        out.push_back({rec.offset, rec.timestamp, rec.microseconds, rec.type, rec.subtype,
                       Bytes(rec.body.begin(), rec.body.end())});
    return out;
}

// Records of random sizes up to 70000 bytes, some of them BGP4MP_ET.
Bytes randomRecords(int n, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes out;
    for (int i = 0; i < n; ++i) {
        size_t len = rng() % 8 == 0 ? rng() % 70000 : rng() % 300;
        Bytes body(len);
        for (auto& b : body)
            b = uint8_t(rng());
        bool et = rng() % 4 == 0;
        Bytes rec = et ? mrt(uint32_t(i), 17, 4, cat({u32(uint32_t(i) * 7), body}))
                       : mrt(uint32_t(i), 13, 2, body);
        out.insert(out.end(), rec.begin(), rec.end());
    }
    return out;
}

} // namespace

TEST(MrtReader, RecordsComeOutWholeWhateverTheBufferSize) {
    TempDir tmp;
    const std::string path = tmp.path("random.mrt.gz");
    writeFile(path, gzipBytes(randomRecords(300, 3)));
    const auto expect = readAll(path, MrtReader::kDefaultBufferSize);
    ASSERT_EQ(expect.size(), 300u);
    EXPECT_EQ(expect[1].offset, 12 + expect[0].body.size() + (expect[0].type == 17 ? 4 : 0));
    size_t past64k = 0;
    for (const Seen& s : expect) {
        past64k += s.body.size() > 65536;
        if (s.type == 17) {
            EXPECT_EQ(s.usec, s.ts * 7);
        }
    }
    EXPECT_GT(past64k, 0u); // records across a 64 KiB boundary, whatever the buffer
    for (size_t size : {size_t(1), size_t(100), size_t(65536), size_t(70001)})
        EXPECT_EQ(readAll(path, size), expect) << "buffer " << size;
}

TEST(MrtReader, CutRecordsAreErrorsAfterTheWholeOnes) {
    TempDir tmp;
    const Bytes good = cat({mrt(1, 13, 2, Bytes(40, 1)), mrt(2, 16, 4, Bytes(10, 2))});
    const uint64_t third = good.size();
    struct Case {
        const char* name;
        Bytes tail;
        const char* message;
    } cases[] = {
        {"header", Bytes{0, 0, 0, 3, 0, 16}, "MRT header cut short: 6 of 12 bytes present"},
        {"body", cat({u32(3), u16(16), u16(4), u32(100), Bytes(99, 0)}),
         "MRT record cut short: header (type 16, subtype 4) says 100 bytes, 99 present"},
        {"huge-length", cat({u32(3), u16(13), u16(2), u32(0xffffffff), Bytes(5, 0)}),
         "MRT record cut short: header (type 13, subtype 2) says 4294967295 bytes, 5 present"},
        {"et-without-microseconds", mrt(3, 17, 4, Bytes{1, 2}),
         "BGP4MP_ET record of 2 bytes cannot hold its microseconds"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = tmp.path(c.name);
        writeFile(path, cat({good, c.tail}));
        MrtReader r(InputFile::open(path), 64);
        MrtRecord rec;
        ASSERT_TRUE(r.next(rec));
        EXPECT_EQ(rec.body.size(), 40u);
        ASSERT_TRUE(r.next(rec));
        EXPECT_EQ(rec.body.size(), 10u);
        try {
            r.next(rec);
            FAIL() << "no error";
        } catch (const ReadError& e) {
            EXPECT_EQ(e.offset(), third);
            EXPECT_EQ(std::string(e.what()),
                      path + ": byte " + std::to_string(third) + ": " + c.message);
        }
    }
}
