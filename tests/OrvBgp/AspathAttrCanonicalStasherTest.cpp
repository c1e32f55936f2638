#include "OrvBgp/AspathAttrCanonicalStasher.h"

#include "Mel/Exception.h"
#include "OrvBgp/AspathTestHelpers.h"
#include "OrvBgp/AttrWireTestHelpers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Routing::Bgp;
using MelStash::StoreManager;
using OrvTest::aspath;
using OrvTest::asRun;
using OrvTest::sequenceHex;

namespace {

StoreManager::RawPtr store() {
    return &StoreManager::instance();
}

std::string strep(const AspathAttrCanonical* p, bool asdot = false) {
    return AspathAttrCanonicalStasher::stashStrep(p, store(), asdot);
}

// The value, or with `header` the whole attribute.
std::string valueHex(const AspathAttrCanonical* p, bool header = false) {
    return AspathAttrCanonicalStasher::stashSerialize(p, store(), header).toHex();
}

// A stasher-less form: what a class nobody registered a reader for looks like.
class UnregisteredAspath : public AspathAttrCanonicalSingleSeg {
public:
    UnregisteredAspath() {
        static const uint16_t nullSegment[1] = {0};
        storedIs(nullSegment);
    }
};

} // namespace

// Text: one blank between segments and between AS numbers, none at either end, whatever the
// form; empty segments vanish without leaving a blank behind. Asdot splits only numbers from 65536
// on.
TEST(AspathAttrCanonicalStasher, TextHasExactlyOneBlankBetweenParts) {
    struct Case {
        const char* path;
        const char* text;
        bool asdot = false;
    } cases[] = {
        {"-", ""},
        {"100", "100"},
        {"100 200 {300 400}", "100 200 {300 400}"},
        {"(65010 65011) [65012 65013] 100 {300}", "(65010 65011) [65012 65013] 100 {300}"},
        {"(65010)", "(65010)"},
        {"WithConfed: 100 200", "100 200"},
        {"WithConfed: | {300} 100", "{300} 100"},
        {"WithPathVector: 100 200", "100 200"},
        // empty segments at the front, in the middle, at the end, and as the whole confed path
        {"WithConfed: () | {} 100 / / 200 []", "100 200"},
        {"WithConfed: (65010) () | {} 100", "(65010) 100"},
        {"SingleSeg: {}", ""},
        // WithConfed with no confederation segments prints as the WithPathVector path does.
        {"WithConfed: | 100 / 200", "100 200"},
        {"WithPathVector: 100 / 200", "100 200"},
        {"(65536 65535) 4294967295 {131072 0 1}", "(65536 65535) 4294967295 {131072 0 1}"},
        {"(65536 65535) 4294967295 {131072 0 1}", "(1.0 65535) 65535.65535 {2.0 0 1}", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(strep(aspath(c.path).get(), c.asdot), c.text);
    }
}

// The run functions carry isFirst across calls: an empty run leaves it, a printing run clears it.
TEST(AspathAttrCanonicalStasher, SegmentRunsCarryIsFirstAcrossCalls) {
    auto p = aspath("WithConfed: {} | 100");
    OrvFmt::DynamicBuffer b;
    AsSegmentRun confed = p->confedPath(), path = p->path();
    EXPECT_TRUE(allSegmentsStrep(confed.size(), confed.first(), b, store(), true, false));
    EXPECT_FALSE(allSegmentsStrep(path.size(), path.first(), b, store(), true, false));
    EXPECT_FALSE(allSegmentsStrep(path.size(), path.first(), b, store(), false, false));
    EXPECT_EQ(b.view(), "100 100");
    EXPECT_FALSE(allSegmentsStrep(0, nullptr, b, store(), false, false));
}

// Stored paths go out as AS_PATH with 4-byte AS numbers, as stored: no local AS, no AS_TRANS.
TEST(AspathAttrCanonicalStasher, SerializesStoredSegmentsInOrder) {
    EXPECT_EQ(valueHex(aspath("-").get()), "");
    EXPECT_EQ(valueHex(aspath("-").get(), true), "400200");
    EXPECT_EQ(valueHex(aspath("70000 100").get()), "02020001117000000064");
    EXPECT_EQ(valueHex(aspath("(65010) [65011] {300} 100").get()), "03010000fdf2"
                                                                   "04010000fdf3"
                                                                   "01010000012c"
                                                                   "020100000064");
    EXPECT_EQ(valueHex(aspath("WithConfed: () | {} 100 []").get()), "020100000064");
}

// Long sequences split into wire segments of 255; the attribute header grows to 4 bytes past 255.
TEST(AspathAttrCanonicalStasher, SequencesChunkAt255) {
    struct Case {
        uint32_t n;
        std::vector<uint32_t> chunks;
    } cases[] = {{255, {255}}, {256, {255, 1}}, {510, {255, 255}}, {600, {255, 255, 90}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.n);
        auto p = aspath(asRun(1000, c.n));
        const std::string value = sequenceHex(1000, c.chunks);
        const size_t len = value.size() / 2;
        EXPECT_EQ(valueHex(p.get()), value);
        EXPECT_EQ(valueHex(p.get(), true),
                  "5002" + Mel::Bytes({uint8_t(len >> 8), uint8_t(len)}).toHex() + value);
    }
    // A confederation sequence keeps its own type code in every chunk.
    EXPECT_EQ(valueHex(aspath("(" + asRun(7, 256) + ")").get()), sequenceHex(7, {255, 1}, 3));
    // 255 in a set is still one segment.
    EXPECT_EQ(valueHex(aspath("{" + asRun(1, 255) + "}").get()), sequenceHex(1, {255}, 1));
    // 63 AS numbers make a 254-byte value: still the 3-byte header.
    EXPECT_EQ(valueHex(aspath(asRun(1, 63)).get(), true).substr(0, 6), "4002fe");
}

// A set of more than 255 cannot be written; a stored class without a reader.
TEST(AspathAttrCanonicalStasherDeathTest, Preconditions) {
    auto p = aspath("{" + asRun(1, 256) + "}");
    EXPECT_DEATH(valueHex(p.get()), "OrvBgp/AspathAttrCanonicalStasher: .*elements <= 0xff");
    auto confedSet = aspath("[" + asRun(1, 256) + "]");
    EXPECT_DEATH(valueHex(confedSet.get()), "elements <= 0xff");
    // Built in the store like any path, but its class has no reader.
    auto* raw = new (MelStash::ExtraBytes{4}) UnregisteredAspath();
    Mel::Ptr<UnregisteredAspath> held(raw);
    EXPECT_DEATH(AspathAttrCanonicalStasher::destash(raw, store()), "nullptr != reader");
    EXPECT_DEATH(strep(raw), "nullptr != reader");
    EXPECT_DEATH(valueHex(raw), "nullptr != reader");
}

// Destash builds a fresh object of the stored form, equal in content to the stored one.
TEST(AspathAttrCanonicalStasher, DestashGivesAFreshPathOfTheStoredForm) {
    for (const char* text :
         {"-", "100 200", "{300}", "100 {300 400} / 500", "(65010 65011) [65012] 100",
          "WithConfed: | 100", "WithPathVector: 100", "WithConfed: () | {} 100",
          "SingleSeg: (65010)"}) {
        SCOPED_TRACE(text);
        auto stored = aspath(text);
        auto live = AspathAttrCanonicalStasher::destash(stored.get(), store());
        ASSERT_TRUE(live);
        EXPECT_NE(live.get(), stored.get());
        EXPECT_EQ(typeid(*live), typeid(*stored));
        // Found equal to the stored path: taking it in gives that one.
        EXPECT_EQ(AspathAttrCanonicalDedupTable::instance().dedup(live).get(), stored.get());
    }
}

TEST(AspathAttrCanonicalStasher, SegmentDestashMakesSetsAndSequences) {
    auto p = aspath("(65010) [65011 65012] 100 {300}");
    AsSegmentVector v{asSegmentFactory(AsSegmentType::asSet_, {1})};
    AsSegmentRun confed = p->confedPath(), path = p->path();
    allSegmentsDestash(confed.size(), confed.first(), v, store());
    allSegmentsDestash(path.size(), path.first(), v, store());
    ASSERT_EQ(v.size(), 5u);
    EXPECT_NE(dynamic_cast<AsSequence*>(v[1].get()), nullptr);
    EXPECT_NE(dynamic_cast<AsSet*>(v[2].get()), nullptr);
    EXPECT_NE(dynamic_cast<AsSequence*>(v[3].get()), nullptr);
    EXPECT_NE(dynamic_cast<AsSet*>(v[4].get()), nullptr);
    EXPECT_EQ(*v[2], *asSegmentFactory(AsSegmentType::asConfedSet_, {65011, 65012}));
    EXPECT_EQ(v[3]->segmentType(), AsSegmentType::asSequence_);
}

// Stored segments of a type outside 1-4 (only a corrupted store holds them): empty ones read as
// null and write nothing; with AS numbers they are not supported, and print with "?".
TEST(AspathAttrCanonicalStasher, UnknownStoredSegmentTypes) {
    uint16_t empty[] = {StoredAsSegment::headerUnit(AsSegmentType(7), 0)};
    uint16_t full[] = {StoredAsSegment::headerUnit(AsSegmentType(7), 2), 100, 200};
    const AsSegmentStasher& r = AsSegmentStasher::forStored(empty);
    EXPECT_EQ(r.destash(empty, store()), nullptr);
    Serialize s;
    r.stashSerialize(s, empty, store());
    EXPECT_EQ(s.size(), 0u);
    EXPECT_THROW(AsSegmentStasher::forStored(full).destash(full, store()),
                 Mel::NotSupportedException);
    EXPECT_THROW(allSegmentsSerialize(1, full, s, store()), Mel::NotSupportedException);
    OrvFmt::DynamicBuffer b;
    allSegmentsStrep(1, full, b, store(), true, false);
    EXPECT_EQ(b.view(), "?100 200?");
    AsSegmentVector v;
    allSegmentsDestash(1, empty, v, store());
    EXPECT_TRUE(v.empty());
}

// Traced at level 5, not at 4; the bytes stay the same.
TEST(AspathAttrCanonicalStasher, SerializingTracesAtLevel5) {
    OrvTest::TraceCapture trace(5);
    EXPECT_EQ(valueHex(aspath("70000 100").get()), "02020001117000000064");
    Tracelet::orvBgp().levelIs(4);
    valueHex(aspath("100").get());
    EXPECT_EQ(trace.lines, std::vector<std::string>{
                               "Serializing: AspathAttrCanonicalStasher::stashSerialize()"});
}
