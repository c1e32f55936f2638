#include "census/BgpdumpFormat.h"

#include "CensusTestUtil.h"

#include <gtest/gtest.h>

#include <array>
#include <sstream>

using namespace census_test;
using namespace Census;

namespace {

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

// Our text for mrtPath against the expected text, line for line; reports the first difference.
void expectSameAsBgpdump(const std::string& mrtPath, const std::string& expectedPath) {
    BgpdumpFormatter fmt(nullptr);
    FileResult r = readMrtFile(mrtPath, fmt);
    ASSERT_TRUE(r.ok) << r.error;
    const Bytes expectedBytes = readDecompressed(expectedPath);
    const auto got = splitLines(fmt.text());
    const auto want = splitLines(std::string(expectedBytes.begin(), expectedBytes.end()));
    ASSERT_FALSE(want.empty());
    for (size_t i = 0; i < std::min(got.size(), want.size()); ++i)
        ASSERT_EQ(got[i], want[i]) << "first difference at line " << i + 1;
    EXPECT_EQ(got.size(), want.size());
    EXPECT_EQ(fmt.lines(), got.size());
}

} // namespace

TEST(BgpdumpFormat, SameLinesAsBgpdumpForTheRib2002) {
    CENSUS_NEED_SHARED(path, "bview.20020722.2337.gz");
    expectSameAsBgpdump(path, path + ".bgpdump-m.txt.gz");
}

TEST(BgpdumpFormat, SameLinesAsBgpdumpForTheUpdates2016) {
    CENSUS_NEED_SHARED(path, "updates.20160811.1600.gz");
    expectSameAsBgpdump(path, path + ".bgpdump-m.txt.gz");
}

// Hand-made records for the corners of the format (segment kinds, AS4 folding, an empty AS_PATH
// with an empty AS4_PATH, _ET microseconds past a second, signed fields of IPv4 MP_REACH_NLRI,
// link-local next hops, IPv6 text with single zero groups and mapped addresses, 4-byte AS numbers,
// add-path, _LOCAL, state changes, a cut AS path, TABLE_DUMP_V2 and TABLE_DUMP v6); the expected
// text is the tool's own output.
TEST(BgpdumpFormat, SameLinesAsBgpdumpForTheEdgeCases) {
    expectSameAsBgpdump(testData("edge_cases.mrt"), testData("edge_cases.mrt.bgpdump-m.txt"));
}

// What that tool printed for each address (as a BGP4MP state change's peer): every rule of its
// IPv6 text, one row or more each, beside the addresses of the edge cases above.
TEST(BgpdumpFormat, Ipv6TextAsThatToolPrintsIt) {
    struct Case {
        std::array<uint16_t, 8> groups;
        const char* text;
    } cases[] = {
        {{0, 0, 0, 0, 0, 0, 1, 0}, "::0.1.0.0"},
        {{0, 0, 0, 0, 0, 0, 0xffff, 0}, "::255.255.0.0"},
        {{0, 0, 0, 0, 0, 0xffff, 1, 0}, "::ffff:0.1.0.0"},
        {{0, 0, 0, 0, 0, 0, 0xc000, 0x206}, "::192.0.2.6"},
        {{0, 0, 0, 0, 0xffff, 0, 0xc000, 0x206}, "::ffff:0:c000:206"},
        {{0, 0, 0, 0, 0, 0xfffe, 0x102, 0x304}, "::fffe:102:304"},
        {{0, 0, 0, 0, 1, 0xffff, 1, 2}, "::1:ffff:1:2"},
        {{1, 0, 0, 2, 0, 0, 0, 3}, "1:0:0:2::3"},
        {{0, 0, 0, 1, 0, 0, 0, 0}, "0:0:0:1::"},
        {{1, 2, 3, 4, 5, 6, 7, 0}, "1:2:3:4:5:6:7::"},
        {{0xfe80, 0, 0, 0, 1, 0, 0, 1}, "fe80::1:0:0:1"},
        {{0xabcd, 0xef01, 0x2345, 0x6789, 0xabcd, 0xef01, 0x2345, 0x6789},
         "abcd:ef01:2345:6789:abcd:ef01:2345:6789"},
    };
    for (const Case& c : cases) {
        uint8_t bytes[16];
        for (int i = 0; i < 8; ++i) {
            bytes[2 * i] = uint8_t(c.groups[i] >> 8);
            bytes[2 * i + 1] = uint8_t(c.groups[i]);
        }
        std::string text;
        appendBgpdumpIpv6(text, bytes);
        EXPECT_EQ(text, c.text);
    }
}
