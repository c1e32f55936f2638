#include "Orvnet/AfiSafi.h"

#include "Mel/Exception.h"

#include <gtest/gtest.h>

using Orvnet::AfiSafi;

TEST(AfiSafi, PackedValueAndNames) {
    EXPECT_EQ(AfiSafi::ipv6Unicast().value(), 0x10002u);
    EXPECT_EQ(AfiSafi::ipv4Unicast().value(), 0x10001u);
    EXPECT_EQ(AfiSafi::fromValue(0x10002), AfiSafi::ipv6Unicast());
    EXPECT_EQ(AfiSafi::fromValue(0x460019), AfiSafi::l2vpnEvpn());
    EXPECT_EQ(AfiSafi::ipv4Unicast().toString(), "ipv4Unicast");
    EXPECT_EQ(AfiSafi::ipv6MplsVpn().toString(), "ipv6MplsVpn");
    EXPECT_EQ(AfiSafi(25, 70).toString(), "l2vpnEvpn");
    EXPECT_EQ(AfiSafi(2, 99).toString(), "afi2safi99");
    for (AfiSafi a : {AfiSafi(), AfiSafi::ipv4Unicast(), AfiSafi::ipv6Multicast(),
                      AfiSafi(16388, 71), AfiSafi(65535, 255), AfiSafi(3, 1)})
        EXPECT_EQ(AfiSafi::fromString(a.toString()), a) << a.toString();
    EXPECT_LT(AfiSafi::ipv4MplsVpn(), AfiSafi::ipv6Unicast()); // AFI first
}

TEST(AfiSafi, BadTextThrows) {
    for (const char* text : {"", "ipv4unicast", "afi1", "afi1safi", "afisafi1", "afi1safi256",
                             "afi65536safi1", "afi-1safi1", "afi1safi1 "})
        EXPECT_THROW(AfiSafi::fromString(text), Mel::ParseException) << text;
}
