// Assertion facility: a broken precondition is a programming error and ends the process.
//   #define ORV_UNIT "OrvBgp/ClusterList"      // once per source file, before use
//   ORV_ASSERT(nullptr != reader);            // prints the condition text exactly as written
#pragma once

namespace Keel {

// Prints "<unit>: <function>: Assertion `<text>' failed." on stderr and aborts.
[[noreturn]] void assertFail(const char* text, const char* unit, const char* function) noexcept;

} // namespace Keel

#define ORV_ASSERT_IN(unit, cond)                                                                  \
    do {                                                                                           \
        if (!(cond)) [[unlikely]]                                                                  \
            ::Keel::assertFail(#cond, unit, __PRETTY_FUNCTION__);                                  \
    } while (0)

// Same, with the text given explicitly (for texts that differ from the C++ spelling).
#define ORV_ASSERT_TEXT_IN(unit, cond, text)                                                       \
    do {                                                                                           \
        if (!(cond)) [[unlikely]]                                                                  \
            ::Keel::assertFail(text, unit, __PRETTY_FUNCTION__);                                   \
    } while (0)

#define ORV_ASSERT(cond) ORV_ASSERT_IN(ORV_UNIT, cond)
#define ORV_ASSERT_TEXT(cond, text) ORV_ASSERT_TEXT_IN(ORV_UNIT, cond, text)
