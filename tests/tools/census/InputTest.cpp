#include "census/Input.h"

#include "CensusTestUtil.h"

#include <gtest/gtest.h>

#include <random>

using namespace census_test;
using Census::Compression;
using Census::InputFile;
using Census::ReadError;

namespace {

// Compressible but not trivial: runs of records with a counter and some noise.
Bytes sampleData(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes out;
    out.reserve(n);
    for (uint32_t i = 0; out.size() < n; ++i) {
        Bytes rec = cat({u32(i), u16(16), u16(4), u32(rng() % 7)});
        out.insert(out.end(), rec.begin(), rec.end());
        out.push_back(uint8_t(rng()));
    }
    out.resize(n);
    return out;
}

Bytes readInChunks(const std::string& path, size_t chunk) {
    auto in = InputFile::open(path);
    Bytes out;
    Bytes buf(chunk);
    while (size_t n = in->read(buf.data(), buf.size()))
        out.insert(out.end(), buf.begin(), buf.begin() + n);
    return out;
}

} // namespace

TEST(InputFile, SameBytesThroughEveryCompressionAndChunking) {
    TempDir tmp;
    const Bytes data = sampleData(700 * 1000, 1);
    struct Case {
        const char* name;
        Bytes file;
        Bytes expect;
        Compression c;
    } cases[] = {
        {"plain", data, data, Compression::None},
        {"gz", gzipBytes(data), data, Compression::Gzip},
        {"bz2", bzip2Bytes(data), data, Compression::Bzip2},
        {"gz-two-members", cat({gzipBytes(data), gzipBytes(data)}), cat({data, data}),
         Compression::Gzip},
        {"bz2-two-streams", cat({bzip2Bytes(data), bzip2Bytes(data)}), cat({data, data}),
         Compression::Bzip2},
        {"empty", {}, {}, Compression::None},
        {"one-magic-byte", {0x1f}, {0x1f}, Compression::None},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = tmp.path(c.name);
        writeFile(path, c.file);
        EXPECT_EQ(InputFile::open(path)->compression(), c.c);
        for (size_t chunk : {size_t(7), size_t(4096), size_t(1) << 20})
            EXPECT_EQ(readInChunks(path, chunk), c.expect) << "chunk " << chunk;
    }
}

TEST(InputFile, DamageIsAnErrorNamingFileAndOffsetAfterTheGoodBytes) {
    TempDir tmp;
    const Bytes data = sampleData(400 * 1000, 2);
    const Bytes gz = gzipBytes(data);
    const Bytes bz = bzip2Bytes(data);
    Bytes flippedGz = gz;
    flippedGz[gz.size() / 2] ^= 0x10;
    Bytes badCrc = gz;
    badCrc[gz.size() - 6] ^= 0x01; // the CRC-32 in the trailer
    // Corrupt data can only be caught where the format checks it (a member's CRC at its end), so
    // for those the bytes before the error are not checked. Read in small chunks and in one call
    // for all of it: whatever decoded before the error comes out first, then the error, again on
    // every later read.
    struct Case {
        const char* name;
        Bytes file;
        const char* message;
        bool goodPrefix;
        size_t atLeast = 0; // bytes out before the error
    } cases[] = {
        {"gz-cut", Bytes(gz.begin(), gz.begin() + long(gz.size() / 2)), "cut short", true,
         data.size() / 4},
        {"gz-cut-in-trailer", Bytes(gz.begin(), gz.end() - 3), "cut short", true, data.size()},
        {"gz-flipped", flippedGz, "corrupt gzip data", false},
        {"gz-bad-crc", badCrc, "corrupt gzip data", true},
        {"gz-trailing", cat({gz, Bytes{'x', 'y', 'z'}}), "trailing bytes after gzip data", true},
        {"bz2-cut", Bytes(bz.begin(), bz.begin() + long(bz.size() / 2)), "cut short", true},
        {"bz2-trailing", cat({bz, Bytes{0, 0, 0}}), "trailing bytes after bzip2 data", true},
    };
    for (const Case& c : cases) {
        const std::string path = tmp.path(c.name);
        writeFile(path, c.file);
        for (size_t chunk : {size_t(5000), data.size()}) {
            SCOPED_TRACE(std::string(c.name) + ", chunk " + std::to_string(chunk));
            auto in = InputFile::open(path);
            Bytes got, buf(chunk);
            try {
                while (size_t n = in->read(buf.data(), buf.size()))
                    got.insert(got.end(), buf.begin(), buf.begin() + long(n));
                ADD_FAILURE() << "no error";
            } catch (const ReadError& e) {
                EXPECT_EQ(e.file(), path);
                EXPECT_NE(std::string(e.what()).find(path + ": byte "), std::string::npos)
                    << e.what();
                EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
                EXPECT_EQ(e.offset(), in->offset());
            }
            EXPECT_THROW(in->read(buf.data(), buf.size()), ReadError);
            ASSERT_LE(got.size(), data.size());
            EXPECT_GE(got.size(), c.atLeast);
            if (c.goodPrefix) {
                EXPECT_TRUE(std::equal(got.begin(), got.end(), data.begin()));
            }
        }
    }
}

TEST(InputFile, MissingFileIsAnErrorNamingIt) {
    try {
        InputFile::open("/nonexistent/census/file.gz");
        FAIL() << "no error";
    } catch (const ReadError& e) {
        EXPECT_STREQ(e.what(), "/nonexistent/census/file.gz: byte 0: cannot open: No such file or "
                               "directory");
    }
}
