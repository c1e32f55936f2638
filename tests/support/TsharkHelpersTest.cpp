// The decoding oracle must itself notice broken input, or a clean result from it proves nothing
// (its clean decodes are what every test of reliability/TsharkEncodersTest.cpp compares).
#include "support/TsharkHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace OrvTest {
namespace {

// ORIGIN IGP, empty AS_PATH, NEXT_HOP 192.0.2.9.
const std::vector<std::uint8_t> kBase = bytesFromHex("40 01 01 00  40 02 00  40 03 04 c0 00 02 09");

std::vector<std::uint8_t> withAttr(const std::string& hex) {
    auto out = kBase;
    auto extra = bytesFromHex(hex);
    out.insert(out.end(), extra.begin(), extra.end());
    return out;
}

TEST(TsharkHelpers, MalformedAttributeIsReported) {
    if (!tsharkAvailable()) GTEST_SKIP() << kTsharkMissing;
    // CLUSTER_LIST of 7 bytes: not a multiple of 4.
    auto d = wrapInUpdate(withAttr("80 0a 07 0a 00 00 01 0a 00 00"));
    ASSERT_TRUE(d.ran) << d.error;
    ASSERT_FALSE(d.warnings.empty()) << d.text;
    EXPECT_NE(d.warnings.front().find("Malformed"), std::string::npos) << d.warnings.front();
}

TEST(TsharkHelpers, LengthMismatchBetweenMessageAndAttributesIsReported) {
    if (!tsharkAvailable()) GTEST_SKIP() << kTsharkMissing;
    auto msg = buildUpdate(withAttr("80 09 04 01 02 03 04"));
    msg[22] += 1; // total path attribute length one byte too long: the NLRI is read as an attribute
    auto d = decodeBgp(msg);
    ASSERT_TRUE(d.ran) << d.error;
    EXPECT_FALSE(d.warnings.empty()) << d.text;
}

// Every test with a wire.txt under tests/data reads good vectors; here, a comment, a blank line
// and an empty vector are stepped over and counted, and the bad line is named.
TEST(TsharkHelpers, WireVectorFileErrorsNameFileAndLine) {
    auto path = ::testing::TempDir() + "/orv-wire-vectors.txt";
    {
        std::ofstream out(path);
        out << "# comment\n\nempty\na 01\nb 0x\n";
    }
    EXPECT_THAT([&] { readWireVectors(path); },
                ::testing::ThrowsMessage<std::runtime_error>(::testing::HasSubstr(path + ":5:")));
    EXPECT_THROW(readWireVectors(path + ".absent"), std::runtime_error);
}

TEST(TsharkHelpers, HexReaderRejectsOddAndForeignInput) {
    EXPECT_EQ(bytesFromHex("0a:0B 0c  ff"), (std::vector<std::uint8_t>{0x0a, 0x0b, 0x0c, 0xff}));
    EXPECT_THROW(bytesFromHex("abc"), std::invalid_argument);
    EXPECT_THROW(bytesFromHex("zz"), std::invalid_argument);
}

} // namespace
} // namespace OrvTest
