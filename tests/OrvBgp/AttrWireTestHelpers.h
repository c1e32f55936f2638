// Wire vectors and tshark decoding for the attribute tests (AIGP, aggregator, PMSI, prefix SID).
//   auto v = OrvTest::attrWireVectors("PmsiTunnel");   EXPECT_EQ(hexOf(t->serialize()),
//   hexOf(v.at("ir_v4"))); auto d = OrvTest::decodeAttr(t->serialize());  // clean decode required
#pragma once

#include "Mel/Bytes.h"
#include "Tracelet/Tracelet.h"
#include "support/TsharkHelpers.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace OrvTest {

// tests/data/<family>/wire.txt: one vector a line, "name hex hex ...", '#' starts a comment line.
inline std::map<std::string, Mel::Bytes> attrWireVectors(const std::string& family) {
    const std::string path = std::string(ORV_TEST_DATA_DIR) + "/" + family + "/wire.txt";
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read wire vectors from " + path);
    std::map<std::string, Mel::Bytes> out;
    std::string line;
    for (int lineNo = 1; std::getline(in, line); ++lineNo) {
        std::istringstream words(line);
        std::string name, rest;
        if (!(words >> name) || name[0] == '#') continue;
        std::getline(words, rest);
        if (!out.emplace(name, Mel::Bytes(bytesFromHex(rest))).second)
            throw std::runtime_error(path + ":" + std::to_string(lineNo) + ": '" + name +
                                     "' given twice");
    }
    return out;
}

// Spaced hex, so that a failing comparison points at the byte.
inline std::string hexOf(const Mel::Bytes& b) {
    static const char* digits = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < b.size(); ++i) {
        if (i) s += ' ';
        s += digits[b[i] >> 4];
        s += digits[b[i] & 0xf];
    }
    return s;
}

// ORIGIN IGP, empty AS_PATH and NEXT_HOP 192.0.2.9, then `attr`, in one UPDATE decoded by tshark.
inline TsharkDecode decodeAttr(const Mel::Bytes& attr) {
    std::vector<uint8_t> attrs = bytesFromHex("40 01 01 00  40 02 00  40 03 04 c0 00 02 09");
    attrs.insert(attrs.end(), attr.begin(), attr.end());
    return wrapInUpdate(attrs);
}

// Collects the library's trace lines at `level` while it lives, then restores the level and sink.
class TraceCapture {
public:
    explicit TraceCapture(int level)
        : previous_(Tracelet::orvBgp().level()),
          sink_([this](std::string_view t) { lines.emplace_back(t); }) {
        Tracelet::orvBgp().levelIs(level);
    }
    ~TraceCapture() { Tracelet::orvBgp().levelIs(previous_); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<std::string> lines;

private:
    int previous_;
    Tracelet::ScopedSink sink_;
};

// Store bytes one more object of class X takes, by the store's own counter for X.
template <class X, class Make>
int64_t storeBytesOfOne(Make&& make) {
    const int64_t before = X::melStashTypeStats().bytes.load();
    auto obj = make();
    return X::melStashTypeStats().bytes.load() - before;
}

// The death-test pattern for an assertion of `unit` with exactly `text` (regex characters escaped).
inline std::string assertionPattern(const std::string& unit, const std::string& text) {
    std::string escaped;
    for (char c : text) {
        if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) escaped += '\\';
        escaped += c;
    }
    return unit + ": .*Assertion `" + escaped + "' failed";
}

} // namespace OrvTest

// Decodes attr into `d`, failing the test unless tshark ran and reported nothing.
#define ORV_EXPECT_CLEAN_DECODE(d, attr)                                                           \
    auto d = ::OrvTest::decodeAttr(attr);                                                          \
    ASSERT_TRUE(d.ran) << d.error;                                                                 \
    EXPECT_TRUE(d.warnings.empty()) << d.warnings.front() << "\n" << d.text
