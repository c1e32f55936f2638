#include "OrvFmt/DynamicBuffer.h"

#include <charconv>

namespace OrvFmt {

void DynamicBufferInterface::appendUnsigned(uint64_t v) {
    char digits[20];
    auto r = std::to_chars(digits, digits + sizeof digits, v);
    append(std::string_view(digits, size_t(r.ptr - digits)));
}

} // namespace OrvFmt
