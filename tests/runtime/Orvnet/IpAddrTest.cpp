#include "Orvnet/IpAddr.h"

#include "Mel/Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

using Orvnet::IpAddr;

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(IpAddr, TextRoundTrips) {
    for (const char* text :
         {"0.0.0.0", "255.255.255.255", "10.0.0.1", "1.2.3.4", "192.168.100.9", "100.10.1.0"}) {
        IpAddr a = IpAddr::fromString(text);
        EXPECT_EQ(a.toString(), text);
        std::ostringstream os;
        os << a;
        EXPECT_EQ(os.str(), text);
    }
}

TEST(IpAddr, ByteOrder) {
    IpAddr a = IpAddr::fromString("10.1.2.3");
    EXPECT_EQ(a.hostOrder(), 0x0a010203u);
    EXPECT_EQ(a.bytes(), (std::array<uint8_t, 4>{10, 1, 2, 3}));
    EXPECT_EQ(a.data()[0], 10);
    const uint8_t wire[] = {10, 1, 2, 3};
    EXPECT_EQ(IpAddr::fromBytes(wire), a);
    EXPECT_EQ(IpAddr::fromHostOrder(0x0a010203u), a);
    EXPECT_TRUE(IpAddr().isZero());
}

TEST(IpAddr, OrderIsNumeric) {
    // Byte order in memory must not leak into the ordering.
    EXPECT_LT(IpAddr::fromString("9.255.255.255"), IpAddr::fromString("10.0.0.0"));
    EXPECT_LT(IpAddr::fromString("10.0.0.255"), IpAddr::fromString("10.0.1.0"));
    std::set<IpAddr> s{IpAddr::fromString("2.0.0.1"), IpAddr::fromString("1.0.0.2")};
    EXPECT_EQ(s.begin()->toString(), "1.0.0.2");
}

TEST(IpAddr, BadTextThrowsNamingIt) {
    for (const char* text :
         {"", "1.2.3", "1.2.3.4.5", "256.0.0.1", "1.2.3.4 ", " 1.2.3.4", "01.2.3.4", "1..2.3",
          "1.2.3.", "a.b.c.d", "1.2.3.1000", "-1.2.3.4", "::1", "1.2.3.4/8"}) {
        EXPECT_THAT([&] { IpAddr::fromString(text); },
                    ThrowsMessage<Mel::ParseException>(HasSubstr("'" + std::string(text) + "'")));
    }
}
