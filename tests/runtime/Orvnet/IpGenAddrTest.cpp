#include "Orvnet/IpGenAddr.h"

#include "Mel/Exception.h"
#include "Mel/String.h"

#include <gtest/gtest.h>
#include <sstream>

using Orvnet::AddressFamily;
using Orvnet::IpGenAddr;

TEST(IpGenAddr, FamiliesAndText) {
    struct Case {
        const char* text;
        AddressFamily af;
        size_t len;
    };
    for (auto [text, af, len] : {
             Case{"", AddressFamily::none, 0},
             Case{"0.0.0.0", AddressFamily::ipv4, 4},
             Case{"10.0.0.1", AddressFamily::ipv4, 4},
             Case{"::", AddressFamily::ipv6, 16},
             Case{"::ffff:1.2.3.4", AddressFamily::ipv6, 16},
             Case{"2001:db8::1", AddressFamily::ipv6, 16},
         }) {
        IpGenAddr a = IpGenAddr::fromString(text);
        EXPECT_EQ(a.af(), af) << text;
        EXPECT_EQ(a.byteLength(), len) << text;
        EXPECT_EQ(a.toString(), text);
        std::ostringstream os;
        os << a;
        EXPECT_EQ(os.str(), text);
    }
    EXPECT_EQ(IpGenAddr::fromString("10.0.0.1").v4(), Orvnet::IpAddr::fromString("10.0.0.1"));
    EXPECT_EQ(std::memcmp(IpGenAddr::fromString("2001:db8::1").data(),
                          Orvnet::Ip6Addr::fromString("2001:db8::1").data(), 16),
              0);
    EXPECT_THROW(IpGenAddr::fromString("10.0.0.256"), Mel::ParseException);
    EXPECT_THROW(IpGenAddr::fromString("2001:db8::x"), Mel::ParseException);
    EXPECT_THROW(IpGenAddr::fromString(" "), Mel::ParseException);
}

TEST(IpGenAddr, EqualityOrderAndHashAcrossFamilies) {
    IpGenAddr empty, v4zero = Orvnet::IpAddr(), v6zero = Orvnet::Ip6Addr();
    // Same zero bytes, different families: all distinct.
    EXPECT_NE(empty, v4zero);
    EXPECT_NE(v4zero, v6zero);
    EXPECT_TRUE(empty.isZero() && v4zero.isZero() && v6zero.isZero());
    EXPECT_LT(empty, v4zero);
    EXPECT_LT(IpGenAddr::fromString("255.255.255.255"), v6zero);
    EXPECT_LT(IpGenAddr::fromString("10.0.0.1"), IpGenAddr::fromString("10.0.0.2"));
    Mel::HashSet<IpGenAddr> set{empty, v4zero, v6zero, IpGenAddr::fromString("::1")};
    EXPECT_EQ(set.size(), 4u);
    EXPECT_TRUE(set.contains(IpGenAddr::fromString("::1")));
}

TEST(IpGenAddrDeathTest, WrongFamilyAsserts) {
    EXPECT_DEATH(IpGenAddr::fromString("::1").v4(),
                 "Orvnet/IpGenAddr: .*Assertion `isV4\\(\\)' failed\\.");
    EXPECT_DEATH(IpGenAddr().v6(), "Orvnet/IpGenAddr: .*Assertion `isV6\\(\\)' failed\\.");
}
