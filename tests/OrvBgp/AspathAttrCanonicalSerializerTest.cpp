#include "OrvBgp/AspathAttrCanonicalSerializer.h"

#include "Mel/Exception.h"
#include "OrvBgp/AspathAttrCanonicalStasher.h"
#include "OrvBgp/AspathTestHelpers.h"
#include "OrvBgp/BgpPathAttrType.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace Routing::Bgp;
using OrvTest::aspath;
using OrvTest::asRun;
using Serializer = AspathAttrCanonicalSerializer;

namespace {

std::string hexOf(std::string_view s) {
    return Mel::Bytes(s).toHex();
}

} // namespace

// Every row of the decision table, for 2- and 4-byte peers, byte for byte (tests/data/Aspath):
// "path ; type confed peerInternal fourByte localAs prependOwnDisabled ; needAs4Path ; hex".
TEST(AspathAttrCanonicalSerializer, DecisionTableVectors) {
    std::ifstream in(std::string(ORV_TEST_DATA_DIR) + "/Aspath/serialize.txt");
    int rows = 0;
    std::string line;
    for (int n = 1; std::getline(in, line); ++n) {
        if (line.find_first_not_of(' ') == std::string::npos || line[0] == '#') continue;
        SCOPED_TRACE("serialize.txt:" + std::to_string(n) + " " + line);
        std::vector<std::string> f;
        std::stringstream ss(line);
        for (std::string part; std::getline(ss, part, ';');)
            f.push_back(part);
        ASSERT_EQ(f.size(), 4u);
        auto path = aspath(f[0]);
        unsigned type, confed, internal, four, localAs, disabled;
        std::istringstream(f[1]) >> type >> confed >> internal >> four >> localAs >> disabled;
        AspathAttrCanonicalSerializeResult r = Serializer::serialize(
            path.get(), uint8_t(type), confed, internal, four, localAs, disabled);
        std::string want = Mel::Bytes::fromHex(f[3]).toHex();
        EXPECT_EQ(r.bytes().toHex(), want);
        EXPECT_EQ(r.needAs4Path(), f[2].find('1') != std::string::npos);
        // serializeStr gives the same bytes, but always as AS_PATH.
        if (type == BgpPathAttrType::as4Path_) want.replace(0, 4, "4002");
        EXPECT_EQ(hexOf(Serializer::serializeStr(path.get(), uint8_t(type), confed, internal, four,
                                                 localAs, disabled)),
                  want);
        ++rows;
    }
    EXPECT_GE(rows, 30);
}

// The local AS takes one of the 255 places of the first wire segment.
TEST(AspathAttrCanonicalSerializer, PrependedLocalAsCountsTowardsChunks) {
    struct Case {
        uint32_t n;
        bool prepend;
        std::vector<uint32_t> counts; // AS numbers per wire segment
    } cases[] = {{254, true, {255}},     {255, true, {255, 1}},   {255, false, {255}},
                 {256, false, {255, 1}}, {509, true, {255, 255}}, {600, true, {255, 255, 91}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.n) + (c.prepend ? " +local" : ""));
        auto p = aspath(asRun(1000, c.n));
        auto r = Serializer::serialize(p.get(), 2, false, false, true, 65001, !c.prepend);
        // Extended length: every case is longer than 255 bytes.
        EXPECT_EQ(r.bytes().toHex().substr(0, 4), "5002");
        EXPECT_EQ(r.bytes().toHex().substr(8),
                  OrvTest::sequenceHex(1000, c.counts, 2, c.prepend ? 65001 : 0));
    }
}

TEST(AspathAttrCanonicalSerializer, SetsNeverTakeTheLocalAs) {
    Serialize s;
    auto set = asSegmentFactory(AsSegmentType::asSet_, {300});
    EXPECT_FALSE(Serializer::asSegmentSerialize(*set, false, 70000, s));
    EXPECT_EQ(s.serializedBytes().toHex(), "0101012c");
    // 255 in a set is the most it can take, and stays one segment.
    auto p = aspath("{" + asRun(1, 255) + "}");
    auto r = Serializer::serialize(p.get(), 2, false, true, false, 0, false);
    EXPECT_EQ(r.bytes().toHex().substr(0, 12), "5002020001ff");
    Serialize empty;
    EXPECT_FALSE(Serializer::asSegmentSerialize(*asSegmentFactory(AsSegmentType::asSequence_, {}),
                                                true, 0, empty));
    EXPECT_EQ(empty.size(), 0u);
}

// A null path is the empty path, in both forms.
TEST(AspathAttrCanonicalSerializer, DfaFormIsTheBareAsNumbers) {
    EXPECT_EQ(Serializer::serialize(nullptr, 2, false, false, true, 65001, false).bytes().toHex(),
              "40020602010000fde9");
    EXPECT_EQ(Serializer::serializeForDfa(nullptr), "");
    EXPECT_EQ(hexOf(Serializer::serializeForDfa(aspath("(65001) 100 200").get())), "0000fde9"
                                                                                   "00000064"
                                                                                   "000000c8");
    EXPECT_EQ(Serializer::serializeForDfa(aspath("-").get()), "");
    Serialize s;
    Serializer::serializeIntoStringForDfa(aspath("(65001) [65002] {7} 100").get(), 70000, false, s);
    EXPECT_EQ(s.serializedBytes().toHex(), "00011170"
                                           "00000007"
                                           "00000064");
}

TEST(AspathAttrCanonicalSerializeResult, StringFormRoundTrips) {
    auto r = Serializer::serialize(aspath("70000").get(), 2, false, true, false, 0, false);
    std::string text = r.toStrep();
    EXPECT_EQ(text, "Value('Routing::Bgp::AspathAttrCanonicalSerializeResult', ** {'needAs4Path': "
                    "True, 'bytes': '40020402015ba0'})");
    EXPECT_EQ(AspathAttrCanonicalSerializeResult::fromStrep(text), r);
    AspathAttrCanonicalSerializeResult other = r;
    other.needAs4PathIs(false);
    EXPECT_NE(other, r);
    EXPECT_EQ(AspathAttrCanonicalSerializeResult::fromStrep(other.toStrep()), other);
    EXPECT_THROW(
        AspathAttrCanonicalSerializeResult::fromStrep(
            "Value('Routing::Bgp::AspathAttrCanonicalSerializeResult', ** {'bytes': 'x'})"),
        Mel::ParseException);
}

TEST(AspathAttrCanonicalSerializerDeathTest, BrokenPreconditions) {
    auto p = aspath("100");
    EXPECT_DEATH(Serializer::serialize(p.get(), 3, false, true, true, 0, false),
                 "OrvBgp/AspathAttrCanonicalSerializer: .*BgpPathAttrType::asPath_ == type \\|\\| "
                 "BgpPathAttrType::as4Path_ == type");
    EXPECT_DEATH(Serializer::serialize(p.get(), 17, false, true, false, 0, false),
                 "BgpPathAttrType::as4Path_ != type \\|\\| fourByte");
    EXPECT_DEATH(Serializer::serialize(p.get(), 2, false, false, true, 0, false),
                 "Assertion `peerInternal' failed");
    Serialize s;
    EXPECT_DEATH(Serializer::asSegmentSerialize(AsSegmentRef(AsSegmentType(5), {}), true, 0, s),
                 "Unsupported AsSegmentType");
    auto bigSet = aspath("{" + asRun(1, 256) + "}");
    EXPECT_DEATH(Serializer::serialize(bigSet.get(), 2, false, true, true, 0, false),
                 "asCount <= 0xff");
    EXPECT_DEATH(Serializer::serializeForDfa(bigSet.get()), "segment->asCount\\(\\) <= 0xff");
    // Sequences have no such limit in the regular-expression form.
    EXPECT_EQ(Serializer::serializeForDfa(aspath("(" + asRun(1, 256) + ")").get()).size(), 1024u);
}
