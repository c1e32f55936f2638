// Wire vectors, trace capture, assertion patterns and a store class without a reader for the
// attribute tests.
//   auto v = OrvTest::attrWireVectors("PmsiTunnel");
//   EXPECT_EQ(hexOf(t->serialize()), hexOf(v.at("ir_v4")));
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Mel/Bytes.h"
#include "MelStash/StoreManager.h"
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
    std::map<std::string, Mel::Bytes> out;
    for (auto& [name, bytes] :
         readWireVectors(std::string(ORV_TEST_DATA_DIR) + "/" + family + "/wire.txt"))
        out.emplace(name, Mel::Bytes(bytes));
    return out;
}

// Spaced hex, so that a failing comparison points at the byte.
inline std::string hexOf(const Mel::Bytes& b) {
    std::string s;
    for (char digit : b.toHex()) {
        if (s.size() % 3 == 2) s += ' ';
        s += digit;
    }
    return s;
}

// A store object of a class no stash reader is registered for.
class UnregisteredStoreObject : public Keel::DedupHandleBase {
    MELSTASH_STORE_ALLOCATED(UnregisteredStoreObject)

public:
    uint32_t hash() const override { return 0; }
    bool compare(const Keel::DedupHandleBase*) const override { return false; }
};

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
