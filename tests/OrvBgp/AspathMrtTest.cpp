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

struct Counts {
    size_t paths4 = 0, paths2 = 0;
    size_t malformed = 0;      // AS_PATH values our walker could not decode
    size_t valueMismatch = 0;  // the value we wrote differs from the one received
    size_t headerMismatch = 0; // received headers in the form we write that ours differs from
    size_t serializerMismatch = 0;
    size_t destashMismatch = 0;
    std::map<std::string, std::string> examples; // first few mismatches, for the failure text
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

void checkAsPath(const uint8_t* attr, size_t hdrLen, std::span<const uint8_t> value, bool fourByte,
                 Counts& k, std::map<const void*, Mel::PtrConst<AspathAttrCanonical>>& seen) {
    AspathAttrCanonicalContent c;
    if (!decodeAsPath(value, fourByte, c)) {
        ++k.malformed;
        return;
    }
    (fourByte ? k.paths4 : k.paths2)++;
    auto p = aspathAttrCanonicalFactory(c);
    std::string received = Mel::Bytes(value.data(), value.size()).toHex();
    auto note = [&](const char* what, const std::string& got) {
        if (k.examples.size() < 5) k.examples[std::string(what) + " " + received] = got;
    };
    Mel::Bytes ours;
    if (fourByte) {
        // The stored form is 4-byte AS_PATH: it must give back exactly what arrived.
        ours = AspathAttrCanonicalStasher::stashSerialize(
            p.get(), &MelStash::StoreManager::instance(), true);
    } else {
        // A 2-byte session: the serializer, towards an internal 2-byte peer, writes it as stored.
        auto r = AspathAttrCanonicalSerializer::serialize(p.get(), 2, false, true, false, 0, false);
        EXPECT_FALSE(r.needAs4Path());
        ours = r.bytes();
    }
    size_t ourHdr = ours[0] & 0x10 ? 4 : 3;
    Mel::Bytes ourValue(ours.data() + ourHdr, ours.size() - ourHdr);
    if (ourValue.view() !=
        std::string_view(reinterpret_cast<const char*>(value.data()), value.size())) {
        ++k.valueMismatch;
        note("value", ourValue.toHex());
    }
    bool extended = attr[0] & 0x10;
    if ((attr[0] & 0xef) == 0x40 && extended == (value.size() > 255)) {
        if (ours.view() !=
            std::string_view(reinterpret_cast<const char*>(attr), hdrLen + value.size())) {
            ++k.headerMismatch;
            note("header", ours.toHex());
        }
    }
    if (fourByte) {
        auto r = AspathAttrCanonicalSerializer::serialize(p.get(), 2, false, true, true, 0, false);
        if (r.bytes() != ours || r.needAs4Path()) {
            ++k.serializerMismatch;
            note("serializer", r.bytes().toHex());
        }
    }
    if (seen.emplace(p.get(), p).second) {
        auto live =
            AspathAttrCanonicalStasher::destash(p.get(), &MelStash::StoreManager::instance());
        if (AspathAttrCanonicalDedupTable::instance().dedup(live).get() != p.get())
            ++k.destashMismatch;
    }
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

// Walks a dump; false when the file is absent.
bool walkDump(const std::string& file, AsPathWalk& walk) {
    if (!std::filesystem::exists(file)) return false;
    const Census::FileResult r = Census::readMrtFile(file, walk);
    EXPECT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.counts.malformedRecords, 0u);
    return true;
}

void expectAllCameBack(const Counts& k) {
    std::string examples;
    for (auto& [what, got] : k.examples)
        examples += "\n  received " + what + "\n  wrote    " + got;
    EXPECT_EQ(k.valueMismatch, 0u) << examples;
    EXPECT_EQ(k.headerMismatch, 0u) << examples;
    EXPECT_EQ(k.serializerMismatch, 0u) << examples;
    EXPECT_EQ(k.destashMismatch, 0u);
    EXPECT_EQ(k.malformed, 0u);
}

std::string dump(const char* name) {
    return std::string(ORV_SHARED_DIR) + "/data/mrt/" + name;
}

} // namespace

// MESSAGE_AS4 records: the stored form, written as AS_PATH, is the value that arrived.
TEST(AspathMrt, EveryAs4PathOfAnUpdateDumpComesBackByteForByte) {
    AsPathWalk w;
    if (!walkDump(dump("updates.20160811.1600.gz"), w))
        GTEST_SKIP() << "MRT data absent (" << dump("") << "): ../shared is not there";
    EXPECT_GT(w.k.paths4, 16000u);
    expectAllCameBack(w.k);
}

// 2-byte MESSAGE records (with some AS_SETs): written for an internal 2-byte peer, the same.
TEST(AspathMrt, Every2BytePathOfAnOlderDumpComesBackByteForByte) {
    AsPathWalk w;
    if (!walkDump(dump("updates.20070211.0141.gz"), w))
        GTEST_SKIP() << "MRT data absent (" << dump("") << "): ../shared is not there";
    EXPECT_GT(w.k.paths2, 22000u);
    expectAllCameBack(w.k);
}
