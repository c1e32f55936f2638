#include "Orvnet/IntfId.h"

#include "Mel/Exception.h"

#include <gtest/gtest.h>

using Orvnet::IntfId;

TEST(IntfId, TextRoundTripsAndBadText) {
    for (uint32_t v : {0u, 1u, 42u, 4294967295u})
        EXPECT_EQ(IntfId::fromString(IntfId(v).toString()), IntfId(v));
    EXPECT_EQ(IntfId().toString(), "intfNone");
    EXPECT_EQ(IntfId(42).toString(), "intf42");
    EXPECT_EQ(IntfId::fromString("0x2a"), IntfId(42));
    EXPECT_EQ(IntfId::fromString("intf0x2A"), IntfId(42));
    EXPECT_EQ(IntfId::fromString("42"), IntfId(42));
    for (const char* text : {"", "intf", "0x", "intf-1", "4294967296", "intf42 ", "eth1", "0x0x1"})
        EXPECT_THROW(IntfId::fromString(text), Mel::ParseException) << text;
}
