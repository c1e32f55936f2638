#include "Orvnet/Ip6Addr.h"

#include "Mel/Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unordered_set>

using Orvnet::Ip6Addr;

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(Ip6Addr, TextIsCanonical) {
    struct Case {
        const char* in;
        const char* out;
    };
    for (auto [in, out] : {
             Case{"::", "::"},
             Case{"::1", "::1"},
             Case{"::ffff:1.2.3.4", "::ffff:1.2.3.4"},
             Case{"::FFFF:0102:0304", "::ffff:1.2.3.4"},
             Case{"2001:DB8:0:0:0:0:0:1", "2001:db8::1"},
             Case{"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},    // first of equal runs
             Case{"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"}, // a single 0 stays
             Case{"fe80::", "fe80::"},
             Case{"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
                  "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
         }) {
        Ip6Addr a = Ip6Addr::fromString(in);
        EXPECT_EQ(a.toString(), out) << in;
        EXPECT_EQ(Ip6Addr::fromString(out), a);
    }
    EXPECT_TRUE(Ip6Addr::fromString("::ffff:1.2.3.4").isV4Mapped());
    EXPECT_FALSE(Ip6Addr::fromString("::1.2.3.4").isV4Mapped());
    EXPECT_TRUE(Ip6Addr::fromString("::").isZero());
}

TEST(Ip6Addr, BytesOrderAndHash) {
    Ip6Addr a = Ip6Addr::fromString("2001:db8::1");
    EXPECT_EQ(a.bytes()[0], 0x20);
    EXPECT_EQ(a.bytes()[15], 0x01);
    EXPECT_EQ(Ip6Addr::fromBytes(a.data()), a);
    EXPECT_LT(Ip6Addr::fromString("::ffff"), Ip6Addr::fromString("1::"));
    // Addresses that differ in one half only must still spread.
    std::unordered_set<std::size_t> hashes;
    for (unsigned i = 0; i < 64; ++i) {
        auto b = a.bytes();
        b[i % 2 ? 15 : 0] = uint8_t(0x80 + i); // 64 distinct addresses
        hashes.insert(std::hash<Ip6Addr>()(Ip6Addr(b)));
    }
    EXPECT_EQ(hashes.size(), 64u);
}

TEST(Ip6Addr, BadTextThrowsNamingIt) {
    for (const char* text :
         {"", ":", ":::", "1::2::3", "1.2.3.4", "12345::", "::g", "fe80::1%eth0", " ::1",
          "1:2:3:4:5:6:7:8:9", "0000:0000:0000:0000:0000:ffff:255.255.255.255.1"}) {
        EXPECT_THAT([&] { Ip6Addr::fromString(text); },
                    ThrowsMessage<Mel::ParseException>(HasSubstr("'" + std::string(text) + "'")));
    }
}
