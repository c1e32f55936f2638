// Helpers for the census tests: file locations, temporary files, compression, the tool's entry
// function, and byte builders for MRT records and BGP attributes.
//   auto path = census_test::sharedMrt("bview.20020722.2337.gz");  // "" when ../shared is absent
//   Bytes rec = census_test::mrt(1, 16, 4, body);  census_test::writeFile(tmp, rec);
#pragma once

#include "census/Cli.h"
#include "census/Input.h"
#include "census/Prefix.h"

#include <bzlib.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace census_test {

using Bytes = std::vector<uint8_t>;

inline std::string sharedMrt(const std::string& name) {
    std::filesystem::path p = std::filesystem::path(ORV_SHARED_DIR) / "data" / "mrt" / name;
    return std::filesystem::exists(p) ? p.string() : std::string();
}

// Every MRT dump of the shared data, sorted (the bgpdump texts beside them left out); none when
// ../shared is absent.
inline std::vector<std::string> sharedMrtFiles() {
    std::vector<std::string> out;
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(
             std::filesystem::path(ORV_SHARED_DIR) / "data" / "mrt", ec))
        if (e.is_regular_file() && e.path().string().find(".bgpdump-m.") == std::string::npos)
            out.push_back(e.path().string());
    std::sort(out.begin(), out.end());
    return out;
}

inline std::string testData(const std::string& name) {
    return (std::filesystem::path(ORV_TEST_DATA_DIR) / "census" / name).string();
}

#define CENSUS_NEED_SHARED(var, name)                                                              \
    const std::string var = ::census_test::sharedMrt(name);                                        \
    if (var.empty())                                                                               \
        GTEST_SKIP() << "MRT dump " << (name) << " not found under " ORV_SHARED_DIR "/data/mrt";

// A scratch directory removed with its contents at the end of the test.
class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/census-test-XXXXXX";
        if (!mkdtemp(tmpl)) throw std::runtime_error("mkdtemp failed");
        dir_ = tmpl;
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }

private:
    std::filesystem::path dir_;
};

inline void writeFile(const std::string& path, const Bytes& data) {
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
}

inline std::string readText(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

struct Outcome {
    int status;
    std::string out, err;
};

// The tool's entry function on `args` (its name put in front): the exit status and what it wrote,
// standard output going to `out` instead when given (and left empty here).
inline Outcome runCensus(std::vector<std::string> args, std::FILE* out = nullptr) {
    args.insert(args.begin(), "bgp-attr-census");
    std::vector<const char*> argv;
    for (const std::string& a : args)
        argv.push_back(a.c_str());
    std::FILE* captured = out ? nullptr : std::tmpfile();
    std::FILE* err = std::tmpfile();
    const int status = Census::censusMain(int(argv.size()), argv.data(), out ? out : captured, err);
    auto text = [](std::FILE* f) {
        std::string s;
        std::rewind(f);
        char buf[1 << 14];
        while (size_t n = std::fread(buf, 1, sizeof buf, f))
            s.append(buf, n);
        std::fclose(f);
        return s;
    };
    return {status, captured ? text(captured) : std::string(), text(err)};
}

// The decompressed contents, through the reader under test's own input layer.
inline Bytes readDecompressed(const std::string& path) {
    auto in = Census::InputFile::open(path);
    Bytes out;
    uint8_t buf[1 << 16];
    while (size_t n = in->read(buf, sizeof buf))
        out.insert(out.end(), buf, buf + n);
    return out;
}

// The first whole records of an MRT dump, decompressed: up to `limit` bytes, but at least one;
// `ends` gets the offset just past each.
inline Bytes firstRecords(const std::string& path, size_t limit,
                          std::vector<size_t>* ends = nullptr) {
    Bytes all = readDecompressed(path);
    size_t at = 0;
    for (size_t n = 0; at + 12 <= all.size(); ++n) {
        size_t len = 12 + size_t(Census::readBe32(all.data() + at + 8));
        if (at + len > all.size() || (at + len > limit && n > 0)) break;
        at += len;
        if (ends) ends->push_back(at);
    }
    return Bytes(all.begin(), all.begin() + long(at));
}

inline Bytes gzipBytes(const Bytes& data) {
    z_stream z{};
    if (deflateInit2(&z, 6, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("deflateInit2");
    Bytes out(deflateBound(&z, uLong(data.size())) + 64);
    z.next_in = const_cast<Bytes::value_type*>(data.data());
    z.avail_in = uInt(data.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

inline Bytes bzip2Bytes(const Bytes& data) {
    unsigned len = unsigned(data.size() + data.size() / 100 + 700);
    Bytes out(len);
    if (BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(out.data()), &len,
                                 const_cast<char*>(reinterpret_cast<const char*>(data.data())),
                                 unsigned(data.size()), 9, 0, 0) != BZ_OK)
        throw std::runtime_error("bzip2 compress");
    out.resize(len);
    return out;
}

// ---- byte builders -------------------------------------------------------------------------

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}
inline Bytes u8(uint8_t v) {
    return {v};
}
inline Bytes u16(uint16_t v) {
    return {uint8_t(v >> 8), uint8_t(v)};
}
inline Bytes u32(uint32_t v) {
    return {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
}
inline Bytes ip4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    return {a, b, c, d};
}

inline Bytes mrt(uint32_t ts, uint16_t type, uint16_t subtype, const Bytes& body) {
    return cat({u32(ts), u16(type), u16(subtype), u32(uint32_t(body.size())), body});
}

// A path attribute; the extended-length form when the value needs it or when forced.
inline Bytes attr(uint8_t flags, uint8_t type, const Bytes& value, bool extended = false) {
    if (value.size() > 255 || extended)
        return cat({u8(flags | 0x10), u8(type), u16(uint16_t(value.size())), value});
    return cat({u8(flags), u8(type), u8(uint8_t(value.size())), value});
}

inline Bytes segment(uint8_t type, std::initializer_list<uint32_t> asns, int asnSize) {
    Bytes out = {type, uint8_t(asns.size())};
    for (uint32_t a : asns) {
        Bytes b = asnSize == 2 ? u16(uint16_t(a)) : u32(a);
        out.insert(out.end(), b.begin(), b.end());
    }
    return out;
}

// An IPv4 prefix in NLRI form.
inline Bytes prefix4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t len) {
    Bytes all = {a, b, c, d};
    Bytes out = {len};
    out.insert(out.end(), all.begin(), all.begin() + (len + 7) / 8);
    return out;
}

inline Bytes bgpUpdate(const Bytes& withdrawn, const Bytes& attrs, const Bytes& nlri) {
    Bytes body =
        cat({u16(uint16_t(withdrawn.size())), withdrawn, u16(uint16_t(attrs.size())), attrs, nlri});
    return cat({Bytes(16, 0xff), u16(uint16_t(19 + body.size())), u8(2), body});
}

// A BGP4MP MESSAGE_AS4 (or MESSAGE with asnSize 2) record over IPv4 from 10.0.0.1 AS 64496.
inline Bytes bgp4mpMessage(const Bytes& msg, int asnSize = 4, uint16_t subtype = 0) {
    Bytes as = asnSize == 2 ? cat({u16(64496), u16(64511)}) : cat({u32(64496), u32(64511)});
    Bytes body = cat({as, u16(0), u16(1), ip4(10, 0, 0, 1), ip4(10, 0, 0, 2), msg});
    return mrt(1000, 16, subtype ? subtype : (asnSize == 2 ? 1 : 4), body);
}

// The well-formed attributes of an IPv4 announcement on a 4-byte session.
inline Bytes basicAttrs() {
    return cat({attr(0x40, 1, {0}), attr(0x40, 2, segment(2, {64496, 64497}, 4)),
                attr(0x40, 3, ip4(192, 0, 2, 1))});
}

} // namespace census_test
