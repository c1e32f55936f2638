#include "Orvnet/AutonomousSystem.h"

#include "Mel/Exception.h"

#include <charconv>
#include <ostream>

namespace Orvnet {

namespace {

// Parses all of [first, last) as an unsigned decimal not above max.
bool parseDecimal(const char* first, const char* last, uint32_t max, uint32_t& out) {
    if (first == last || *first < '0' || *first > '9') return false;
    auto [p, ec] = std::from_chars(first, last, out);
    return ec == std::errc() && p == last && out <= max;
}

} // namespace

AutonomousSystem AutonomousSystem::fromString(std::string_view text) {
    const char* b = text.data();
    const char* e = b + text.size();
    size_t dot = text.find('.');
    uint32_t v = 0;
    if (dot == std::string_view::npos) {
        if (parseDecimal(b, e, 0xffffffffu, v)) return AutonomousSystem(v);
    } else {
        uint32_t hi = 0, lo = 0;
        if (parseDecimal(b, b + dot, 0xffff, hi) && parseDecimal(b + dot + 1, e, 0xffff, lo))
            return AutonomousSystem((hi << 16) | lo);
    }
    throw Mel::ParseException("invalid AS number '" + std::string(text) +
                              "': expected 0-4294967295 or asdot 0.0-65535.65535");
}

std::string AutonomousSystem::toString() const {
    return std::to_string(v_);
}

std::string AutonomousSystem::toAsdotString() const {
    if (is2Byte()) return toString();
    return std::to_string(v_ >> 16) + '.' + std::to_string(v_ & 0xffff);
}

std::ostream& operator<<(std::ostream& os, AutonomousSystem a) {
    return os << a.value();
}

} // namespace Orvnet
