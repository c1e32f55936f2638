#include "Orvnet/AutonomousSystem.h"

#include "Mel/Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

using Orvnet::AutonomousSystem;

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(AutonomousSystem, PlainAsdotAndTwoByteForms) {
    struct Case {
        uint32_t v;
        const char* plain;
        const char* asdot;
    };
    for (auto [v, plain, asdot] : {
             Case{0, "0", "0"},
             Case{23456, "23456", "23456"},
             Case{65535, "65535", "65535"},
             Case{65536, "65536", "1.0"},
             Case{65546, "65546", "1.10"},
             Case{4294967295u, "4294967295", "65535.65535"},
         }) {
        AutonomousSystem as(v);
        EXPECT_EQ(as.toString(), plain);
        EXPECT_EQ(as.toAsdotString(), asdot);
        EXPECT_EQ(AutonomousSystem::fromString(plain), as);
        EXPECT_EQ(AutonomousSystem::fromString(asdot), as);
        std::ostringstream os;
        os << as;
        EXPECT_EQ(os.str(), plain);
        EXPECT_EQ(as.is2Byte(), v <= 65535);
        EXPECT_EQ(as.as2ByteOrTrans(), v <= 65535 ? v : 23456u);
    }
    // asdot input with a zero high half is accepted although never printed.
    EXPECT_EQ(AutonomousSystem::fromString("0.0").value(), 0u);
    EXPECT_EQ(AutonomousSystem::fromString("0.65535").value(), 65535u);
}

TEST(AutonomousSystem, BadTextThrowsNamingIt) {
    for (const char* text : {"", "4294967296", "99999999999", "-1", "+1", "1.65536", "65536.0",
                             "1.", ".1", "1.2.3", "AS65001", "1 ", "0x10", "1.-1"}) {
        EXPECT_THAT([&] { AutonomousSystem::fromString(text); },
                    ThrowsMessage<Mel::ParseException>(HasSubstr("'" + std::string(text) + "'")));
    }
}
