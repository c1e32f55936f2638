#include "Keel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Keel {

void assertFail(const char* text, const char* unit, const char* function) noexcept {
    std::fprintf(stderr, "%s: %s: Assertion `%s' failed.\n", unit, function, text);
    std::fflush(stderr);
    std::abort();
}

} // namespace Keel
