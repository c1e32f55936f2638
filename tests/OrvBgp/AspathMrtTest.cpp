// Real AS paths: every AS_PATH of a RIPE RIS update dump, decoded, interned, and written back.
#include "OrvBgp/AspathAttrCanonicalSerializer.h"
#include "OrvBgp/AspathAttrCanonicalStasher.h"

#include "Mel/Exception.h"
#include "census/MrtDecoder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

using namespace Routing::Bgp;

namespace {

using Census::readBe16;
using Census::readBe32;

// Paths read, and what failed to come back (what, then the received value), with the first few
// examples for the failure text.
struct Counts {
    size_t paths4 = 0, paths2 = 0;
    std::map<std::string, size_t> failures;
    std::map<std::string, std::string> examples;
};

// The AS path of one AS_PATH value, or false when it does not decode.
bool decodeAsPath(std::span<const uint8_t> v, bool fourByte, AspathAttrCanonicalContent& c) {
    size_t width = fourByte ? 4 : 2;
    std::vector<uint32_t> as;
    for (size_t at = 0; at < v.size();) {
        if (v.size() - at < 2) return false;
        uint8_t type = v[at], n = v[at + 1];
        at += 2;
        if (v.size() - at < n * width) return false;
        as.clear();
        for (size_t i = 0; i < n; ++i, at += width)
            as.push_back(fourByte ? readBe32(&v[at]) : readBe16(&v[at]));
        try {
            c.segmentAdd(type, std::span<const uint32_t>(as));
        } catch (const Mel::RangeException&) {
            return false;
        }
    }
    return true;
}

std::string_view view(const uint8_t* p, size_t n) {
    return {reinterpret_cast<const char*>(p), n};
}

void checkAsPath(const uint8_t* attr, size_t hdrLen, std::span<const uint8_t> value, bool fourByte,
                 Counts& k, std::map<const void*, Mel::PtrConst<AspathAttrCanonical>>& seen) {
    std::string received = Mel::Bytes(value.data(), value.size()).toHex();
    auto fail = [&](const char* what, const std::string& got) {
        ++k.failures[what];
        if (k.examples.size() < 5) k.examples[std::string(what) + " " + received] = got;
    };
    AspathAttrCanonicalContent c;
    if (!decodeAsPath(value, fourByte, c)) return fail("malformed", "");
    (fourByte ? k.paths4 : k.paths2)++;
    auto p = aspathAttrCanonicalFactory(c);
    auto* store = &MelStash::StoreManager::instance();
    // 4-byte: the stored form, written as AS_PATH, and the serializer towards an internal 4-byte
    // peer. 2-byte: the serializer towards an internal 2-byte peer. All must write it as it came.
    Mel::Bytes ours =
        fourByte ? AspathAttrCanonicalStasher::stashSerialize(p.get(), store, true) : Mel::Bytes();
    auto r = AspathAttrCanonicalSerializer::serialize(p.get(), 2, false, true, fourByte, 0, false);
    if (r.needAs4Path()) fail("needAs4Path", "");
    if (!fourByte)
        ours = r.bytes();
    else if (r.bytes() != ours)
        fail("serializer", r.bytes().toHex());
    size_t ourHdr = ours[0] & 0x10 ? 4 : 3;
    if (view(ours.data() + ourHdr, ours.size() - ourHdr) != view(value.data(), value.size()))
        fail("value", ours.toHex());
    // Received headers in the form we write: ours must be the same.
    bool extended = attr[0] & 0x10;
    if ((attr[0] & 0xef) == 0x40 && extended == (value.size() > 255) &&
        ours.view() != view(attr, hdrLen + value.size()))
        fail("header", ours.toHex());
    if (seen.emplace(p.get(), p).second &&
        AspathAttrCanonicalDedupTable::instance()
                .dedup(AspathAttrCanonicalStasher::destash(p.get(), store))
                .get() != p.get())
        fail("destash", "");
}

// Checks the AS_PATH of every UPDATE, as the census decoder hands the attributes out.
struct AsPathWalk : Census::MrtHandler {
    Counts k;
    std::map<const void*, Mel::PtrConst<AspathAttrCanonical>> seen; // every distinct path, held
    void onUpdate(const Census::DecodedUpdate& u) override {
        if (!u.attributes) return;
        for (const Census::PathAttribute& a : u.attributes->list)
            if (a.type == 2)
                checkAsPath(a.wire.data(), a.wire.size() - a.value.size(), a.value, u.asnSize == 4,
                            k, seen);
    }
};

} // namespace

// MESSAGE_AS4 records: the stored form, written as AS_PATH, is the value that arrived. 2-byte
// MESSAGE records of an older dump (with some AS_SETs): written for an internal 2-byte peer, the
// same.
TEST(AspathMrt, EveryPathOfAnUpdateDumpComesBackByteForByte) {
    const std::string dir = std::string(ORV_SHARED_DIR) + "/data/mrt/";
    struct Case {
        const char* dump;
        bool fourByte;
        size_t atLeast;
    } cases[] = {{"updates.20160811.1600.gz", true, 16000},
                 {"updates.20070211.0141.gz", false, 22000}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.dump);
        if (!std::filesystem::exists(dir + c.dump))
            GTEST_SKIP() << "MRT data absent (" << dir << "): ../shared is not there";
        AsPathWalk w;
        const Census::FileResult r = Census::readMrtFile(dir + c.dump, w);
        EXPECT_TRUE(r.ok) << r.error;
        EXPECT_EQ(r.counts.malformedRecords, 0u);
        EXPECT_GT(c.fourByte ? w.k.paths4 : w.k.paths2, c.atLeast);
        std::string examples;
        for (auto& [what, got] : w.k.examples)
            examples += "\n  received " + what + "\n  wrote    " + got;
        EXPECT_EQ(w.k.failures, (std::map<std::string, size_t>{})) << examples;
    }
}
