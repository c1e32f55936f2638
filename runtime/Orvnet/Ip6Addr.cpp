#include "Orvnet/Ip6Addr.h"

#include "Mel/Exception.h"

#include <arpa/inet.h>
#include <ostream>

namespace Orvnet {

Ip6Addr Ip6Addr::fromString(std::string_view text) {
    // inet_pton needs a terminated string; the longest valid text is 45 characters.
    char buf[INET6_ADDRSTRLEN + 1];
    Ip6Addr a;
    bool ok = text.size() < sizeof(buf);
    if (ok) {
        std::memcpy(buf, text.data(), text.size());
        buf[text.size()] = '\0';
        ok = inet_pton(AF_INET6, buf, a.b_.data()) == 1;
    }
    if (!ok) throw Mel::ParseException("invalid IPv6 address '" + std::string(text) + "'");
    return a;
}

bool Ip6Addr::isV4Mapped() const noexcept {
    static constexpr uint8_t prefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    return std::memcmp(b_.data(), prefix, 12) == 0;
}

std::string Ip6Addr::toString() const {
    char buf[INET6_ADDRSTRLEN];
    // Cannot fail: the buffer is large enough and the family is valid.
    inet_ntop(AF_INET6, b_.data(), buf, sizeof(buf));
    return buf;
}

std::size_t hash_value(const Ip6Addr& a) noexcept {
    uint64_t hi, lo;
    std::memcpy(&hi, a.b_.data(), 8);
    std::memcpy(&lo, a.b_.data() + 8, 8);
    uint64_t h = hi * 0x9e3779b97f4a7c15ull ^ lo;
    h ^= h >> 29;
    h *= 0xbf58476d1ce4e5b9ull;
    return std::size_t(h ^ (h >> 32));
}

std::ostream& operator<<(std::ostream& os, const Ip6Addr& a) {
    return os << a.toString();
}

} // namespace Orvnet
