#include "census/MrtDecoder.h"

#include "CensusTestUtil.h"

#include <gtest/gtest.h>

using namespace census_test;
using namespace Census;

namespace {

// Each path as "W 10.0.0.0/8" / "A 203.0.113.0/24 #7 unusable".
struct Collect : MrtHandler {
    std::vector<std::string> paths;
    int updates = 0;
    void onUpdate(const DecodedUpdate&) override { ++updates; }
    void onPath(const DecodedPath& p) override {
        std::string s = p.source == PathSource::RibEntry ? "B " : p.withdrawal() ? "W " : "A ";
        s += p.prefix.toString();
        if (p.prefix.hasPathId) s += " #" + std::to_string(p.prefix.pathId);
        if (!p.withdrawal() && !p.usable()) s += " unusable";
        paths.push_back(s);
    }
};

DecodeCounts decodeBytes(const Bytes& file, Collect& c) {
    TempDir tmp;
    writeFile(tmp.path("f.mrt"), file);
    FileResult r = readMrtFile(tmp.path("f.mrt"), c);
    EXPECT_TRUE(r.ok) << r.error;
    return r.counts;
}

using Paths = std::vector<std::string>;

} // namespace

TEST(MrtDecoder, CountsOfTheSampleDumps) {
    struct Case {
        const char* file;
        uint64_t ribEntries, announcements, withdrawals, stateChanges, unusable;
    } cases[] = {
        {"bview.ipv4_unicast_add_path.gz", 62, 0, 0, 0, 0},
        {"bview.ipv6_unicast_add_path.gz", 62, 0, 0, 0, 0},
        {"updates.long_withdrawal.gz", 0, 0, 4096, 0, 0},
        {"bview.64k_stream_overflow.gz", 23, 0, 0, 0, 0},
        // Its second NLRI prefix is cut short: the whole message is treated as withdrawn.
        {"updates.nlri_mask_trailing_bits.gz", 0, 1, 0, 0, 1},
        {"bview.20020722.2337.gz", 115521, 0, 0, 0, 0},
        {"updates.20070211.0141.gz", 0, 51329, 2328, 0, 0},
        {"updates.20160811.1600.gz", 0, 39256, 1956, 22, 0},
    };
    int found = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        const std::string path = sharedMrt(c.file);
        if (path.empty()) continue;
        ++found;
        MrtHandler none;
        FileResult r = readMrtFile(path, none);
        EXPECT_TRUE(r.ok) << r.error;
        EXPECT_EQ(r.counts.ribEntries, c.ribEntries);
        EXPECT_EQ(r.counts.announcements, c.announcements);
        EXPECT_EQ(r.counts.withdrawals, c.withdrawals);
        EXPECT_EQ(r.counts.stateChanges, c.stateChanges);
        EXPECT_EQ(r.counts.unusablePaths, c.unusable);
        EXPECT_EQ(r.counts.malformedRecords, 0u);
        EXPECT_EQ(r.counts.skippedRecords, 0u);
    }
    if (!found) GTEST_SKIP() << "no MRT dumps under " ORV_SHARED_DIR "/data/mrt";
}

TEST(MrtDecoder, UpdatesYieldPathsInOrderWithTheirVerdict) {
    const Bytes w = cat({prefix4(10, 1, 0, 0, 16), prefix4(0, 0, 0, 0, 0)});
    const Bytes nlri = cat({prefix4(203, 0, 113, 0, 24), prefix4(198, 51, 100, 128, 25)});
    const Bytes mpUnreach = attr(0x80, 15, cat({u16(1), u8(1), prefix4(10, 9, 0, 0, 16)}));
    const Bytes mpReach = attr(
        0x80, 14, cat({u16(1), u8(1), u8(4), ip4(192, 0, 2, 9), u8(0), prefix4(10, 8, 0, 0, 16)}));
    const Bytes noNextHop = cat({attr(0x40, 1, {0}), attr(0x40, 2, segment(2, {64496}, 4))});
    struct Case {
        const char* name;
        Bytes record;
        Paths expect;
    } cases[] = {
        {"withdrawals then announcements",
         bgp4mpMessage(bgpUpdate(w, cat({mpUnreach, basicAttrs(), mpReach}), nlri)),
         {"W 10.1.0.0/16", "W 0.0.0.0/0", "W 10.9.0.0/16", "A 203.0.113.0/24",
          "A 198.51.100.128/25", "A 10.8.0.0/16"}},
        {"withdrawals need no attributes",
         bgp4mpMessage(bgpUpdate(w, {}, {})),
         {"W 10.1.0.0/16", "W 0.0.0.0/0"}},
        {"NEXT_HOP missing for the NLRI field",
         bgp4mpMessage(bgpUpdate({}, noNextHop, nlri)),
         {"A 203.0.113.0/24 unusable", "A 198.51.100.128/25 unusable"}},
        {"NEXT_HOP not needed for MP_REACH_NLRI alone",
         bgp4mpMessage(bgpUpdate({}, cat({noNextHop, mpReach}), {})),
         {"A 10.8.0.0/16"}},
        {"a prefix longer than 32 bits ends the NLRI field",
         bgp4mpMessage(bgpUpdate({}, basicAttrs(), cat({prefix4(203, 0, 113, 0, 24), u8(33)}))),
         {"A 203.0.113.0/24 unusable"}},
        {"a malformed COMMUNITIES treats the message as withdrawn",
         bgp4mpMessage(bgpUpdate({}, cat({basicAttrs(), attr(0xc0, 8, {1, 2})}), nlri)),
         {"A 203.0.113.0/24 unusable", "A 198.51.100.128/25 unusable"}},
        {"a discarded AGGREGATOR keeps the paths",
         bgp4mpMessage(bgpUpdate({}, cat({basicAttrs(), attr(0xc0, 7, {1, 2})}), nlri)),
         {"A 203.0.113.0/24", "A 198.51.100.128/25"}},
        {"add-path message: every prefix has its id",
         bgp4mpMessage(bgpUpdate(cat({u32(5), prefix4(10, 7, 0, 0, 16)}), basicAttrs(),
                                 cat({u32(7), prefix4(203, 0, 113, 0, 24)})),
                       4, 9),
         {"W 10.7.0.0/16 #5", "A 203.0.113.0/24 #7"}},
        {"2-byte session",
         bgp4mpMessage(bgpUpdate({},
                                 cat({attr(0x40, 1, {0}), attr(0x40, 2, segment(2, {1}, 2)),
                                      attr(0x40, 3, ip4(1, 2, 3, 4))}),
                                 prefix4(10, 0, 0, 0, 8)),
                       2),
         {"A 10.0.0.0/8"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Collect col;
        DecodeCounts n = decodeBytes(c.record, col);
        EXPECT_EQ(col.paths, c.expect);
        EXPECT_EQ(col.updates, 1);
        EXPECT_EQ(n.malformedRecords, 0u);
    }
}

TEST(MrtDecoder, RecordsThatDoNotAddUpAreCountedNotFatal) {
    const Bytes update = bgpUpdate({}, basicAttrs(), prefix4(10, 0, 0, 0, 8));
    Bytes badMarker = update;
    badMarker[3] = 0;
    Bytes longWithdrawn = update;
    longWithdrawn[20] = 0xff; // Withdrawn Routes Length runs past the message
    Bytes shortMessage = update;
    shortMessage[17] = uint8_t(update.size() + 1); // message length beyond the record
    const Bytes keepalive = cat({Bytes(16, 0xff), u16(19), u8(4)});
    const Bytes peerIndex = mrt(1, 13, 1,
                                cat({ip4(10, 0, 0, 254), u16(0), u16(1), u8(2), ip4(1, 1, 1, 1),
                                     ip4(10, 0, 0, 1), u32(64496)}));
    const Bytes entry = cat({u32(1), u16(uint16_t(basicAttrs().size())), basicAttrs()});
    const Bytes rib = mrt(2, 13, 2,
                          cat({u32(0), prefix4(10, 0, 0, 0, 8), u16(3), u16(0), entry, u16(1),
                               entry, u16(0), entry}));
    const Bytes cutRib = mrt(
        2, 13, 2, cat({u32(0), prefix4(10, 0, 0, 0, 8), u16(2), u16(0), entry, u16(0), u32(1)}));
    const std::string b8 = "B 10.0.0.0/8";
    struct Case {
        const char* name;
        Bytes file;
        uint64_t malformed, skipped, other;
        Paths expect = {};
    } cases[] = {
        {"bad marker", bgp4mpMessage(badMarker), 1, 0, 0},
        {"withdrawn length too long", bgp4mpMessage(longWithdrawn), 1, 0, 0},
        {"message longer than its record", bgp4mpMessage(shortMessage), 1, 0, 0},
        {"keepalive", bgp4mpMessage(keepalive), 0, 0, 1},
        {"RIB entry naming an unknown peer", cat({peerIndex, rib}), 1, 0, 0, {b8, b8}},
        {"RIB without a peer index table", rib, 1, 0, 0},
        {"RIB entry cut short", cat({peerIndex, cutRib}), 1, 0, 0, {b8}},
        {"RIB_GENERIC and unknown types are skipped",
         cat({mrt(1, 13, 6, {1, 2, 3}), mrt(1, 99, 0, {}), mrt(1, 16, 2, {})}), 0, 3, 0},
        {"state change of the wrong size", mrt(1, 16, 5, Bytes(21, 0)), 1, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Collect col;
        DecodeCounts n = decodeBytes(c.file, col);
        EXPECT_EQ(col.paths, c.expect);
        EXPECT_EQ(n.malformedRecords, c.malformed);
        EXPECT_EQ(n.skippedRecords, c.skipped);
        EXPECT_EQ(n.otherMessages, c.other);
    }
}

TEST(MrtDecoder, UnsupportedFamiliesAreCountedAndKeptRaw) {
    const Bytes vpn =
        attr(0x80, 14, cat({u16(1), u8(128), u8(12), Bytes(12, 0), u8(0), Bytes{88}}));
    Collect col;
    DecodeCounts n = decodeBytes(
        bgp4mpMessage(bgpUpdate({}, cat({attr(0x40, 1, {0}), attr(0x40, 2, {}), vpn}), {})), col);
    EXPECT_TRUE(col.paths.empty());
    EXPECT_EQ(n.unsupportedAfiSafi, 1u);
    EXPECT_EQ(n.malformed.total(), 0u);
}
