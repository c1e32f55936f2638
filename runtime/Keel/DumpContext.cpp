#include "Keel/DumpContext.h"

#include <cstdio>
#include <vector>

namespace Keel {

void DumpContext::printf(const char* fmt, ...) const {
    va_list ap;
    va_start(ap, fmt);
    va_list ap2;
    va_copy(ap2, ap);
    int n = std::vsnprintf(nullptr, 0, fmt, ap);
    va_end(ap);
    if (n > 0) {
        std::vector<char> buf(static_cast<size_t>(n) + 1);
        std::vsnprintf(buf.data(), buf.size(), fmt, ap2);
        out_->write(buf.data(), n);
    }
    va_end(ap2);
}

} // namespace Keel
