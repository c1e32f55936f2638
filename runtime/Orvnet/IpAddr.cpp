#include "Orvnet/IpAddr.h"

#include "Mel/Exception.h"

#include <ostream>

namespace Orvnet {

namespace {

[[noreturn]] void badIpv4(std::string_view text) {
    throw Mel::ParseException("invalid IPv4 address '" + std::string(text) +
                              "': expected four decimal parts 0-255 as in 10.0.0.1");
}

} // namespace

IpAddr IpAddr::fromString(std::string_view text) {
    uint32_t v = 0;
    size_t i = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (i >= text.size() || text[i] != '.') badIpv4(text);
            ++i;
        }
        size_t start = i;
        uint32_t octet = 0;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9' && i - start < 3) {
            octet = octet * 10 + uint32_t(text[i] - '0');
            ++i;
        }
        size_t digits = i - start;
        if (digits == 0 || octet > 255 || (digits > 1 && text[start] == '0')) badIpv4(text);
        v = (v << 8) | octet;
    }
    if (i != text.size()) badIpv4(text);
    return fromHostOrder(v);
}

std::string IpAddr::toString() const {
    char buf[16];
    char* p = buf;
    uint32_t v = hostOrder();
    for (int shift = 24; shift >= 0; shift -= 8) {
        unsigned octet = (v >> shift) & 0xffu;
        if (octet >= 100) *p++ = char('0' + octet / 100);
        if (octet >= 10) *p++ = char('0' + octet / 10 % 10);
        *p++ = char('0' + octet % 10);
        if (shift) *p++ = '.';
    }
    return std::string(buf, p);
}

std::ostream& operator<<(std::ostream& os, IpAddr a) {
    return os << a.toString();
}

} // namespace Orvnet
