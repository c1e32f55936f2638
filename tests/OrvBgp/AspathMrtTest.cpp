// Real AS paths: every AS_PATH of a RIPE RIS update dump, decoded, interned, and written back.
#include "OrvBgp/AspathAttrCanonicalSerializer.h"
#include "OrvBgp/AspathAttrCanonicalStasher.h"

#include "Mel/Exception.h"
#include "census/Mrt.h"
#include "census/Prefix.h"

#include <gtest/gtest.h>

#include <algorithm>
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

// Walks every UPDATE of a BGP4MP dump and checks each AS_PATH; false when the file is absent.
bool walkDump(const std::string& file, Counts& k,
              std::map<const void*, Mel::PtrConst<AspathAttrCanonical>>& seen) {
    if (!std::filesystem::exists(file)) return false;
    Census::MrtReader reader(Census::InputFile::open(file));
    Census::MrtRecord rec;
    while (reader.next(rec)) {
        if (rec.type != Census::Mrt::kBgp4mp && rec.type != Census::Mrt::kBgp4mpEt) continue;
        bool as4;
        switch (rec.subtype) {
        case Census::Mrt::kMessage:
        case Census::Mrt::kMessageLocal:
        case Census::Mrt::kMessageAddPath:
        case Census::Mrt::kMessageLocalAddPath:
            as4 = false;
            break;
        case Census::Mrt::kMessageAs4:
        case Census::Mrt::kMessageAs4Local:
        case Census::Mrt::kMessageAs4AddPath:
        case Census::Mrt::kMessageAs4LocalAddPath:
            as4 = true;
            break;
        default:
            continue;
        }
        std::span<const uint8_t> b = rec.body;
        std::string where = file + " record at offset " + std::to_string(rec.offset);
        size_t at = as4 ? 8 : 4;
        EXPECT_GE(b.size(), at + 4) << where;
        if (b.size() < at + 4) return true;
        uint16_t afi = readBe16(&b[at + 2]);
        at += 4 + (afi == 2 ? 32 : 8);
        EXPECT_GE(b.size(), at + 19) << where;
        if (b.size() < at + 19) return true;
        if (b[at + 18] != 2) continue; // not an UPDATE
        EXPECT_GE(b.size(), at + 23) << where;
        if (b.size() < at + 23) return true;
        size_t end = at + readBe16(&b[at + 16]);
        at += 19;
        at += 2 + readBe16(&b[at]); // withdrawn routes
        size_t attrEnd = at + 2 + (at + 2 <= b.size() ? readBe16(&b[at]) : 0);
        EXPECT_LE(attrEnd, std::min(end, b.size())) << where;
        if (attrEnd > std::min(end, b.size())) return true;
        for (at += 2; at + 3 <= attrEnd;) {
            uint8_t flags = b[at], type = b[at + 1];
            size_t hdr = flags & 0x10 ? 4 : 3;
            size_t len = at + hdr > attrEnd ? 0 : hdr == 4 ? readBe16(&b[at + 2]) : b[at + 2];
            EXPECT_LE(at + hdr + len, attrEnd) << where;
            if (at + hdr + len > attrEnd) return true;
            if (type == 2) checkAsPath(&b[at], hdr, b.subspan(at + hdr, len), as4, k, seen);
            at += hdr + len;
        }
    }
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
    Counts k;
    std::map<const void*, Mel::PtrConst<AspathAttrCanonical>> seen; // holds every distinct path
    if (!walkDump(dump("updates.20160811.1600.gz"), k, seen))
        GTEST_SKIP() << "MRT data absent (" << dump("") << "): ../shared is not there";
    EXPECT_GT(k.paths4, 16000u);
    expectAllCameBack(k);
}

// 2-byte MESSAGE records (with some AS_SETs): written for an internal 2-byte peer, the same.
TEST(AspathMrt, Every2BytePathOfAnOlderDumpComesBackByteForByte) {
    Counts k;
    std::map<const void*, Mel::PtrConst<AspathAttrCanonical>> seen;
    if (!walkDump(dump("updates.20070211.0141.gz"), k, seen))
        GTEST_SKIP() << "MRT data absent (" << dump("") << "): ../shared is not there";
    EXPECT_GT(k.paths2, 22000u);
    expectAllCameBack(k);
}
