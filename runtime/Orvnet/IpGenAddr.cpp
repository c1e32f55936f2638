#include "Orvnet/IpGenAddr.h"

#include <ostream>

namespace Orvnet {

std::ostream& operator<<(std::ostream& os, AddressFamily af) {
    switch (af) {
    case AddressFamily::none:
        return os << "none";
    case AddressFamily::ipv4:
        return os << "ipv4";
    case AddressFamily::ipv6:
        return os << "ipv6";
    }
    return os << "AddressFamily(" << unsigned(af) << ")";
}

IpGenAddr IpGenAddr::fromString(std::string_view text) {
    if (text.empty()) return IpGenAddr();
    if (text.find(':') != std::string_view::npos) return Ip6Addr::fromString(text);
    return IpAddr::fromString(text);
}

std::string IpGenAddr::toString() const {
    switch (af_) {
    case AddressFamily::ipv4:
        return v4().toString();
    case AddressFamily::ipv6:
        return v6().toString();
    case AddressFamily::none:
        break;
    }
    return {};
}

std::size_t hash_value(const IpGenAddr& a) noexcept {
    uint64_t h = uint64_t(a.af_) * 0x9e3779b97f4a7c15ull;
    for (uint32_t w : a.b_) {
        h = (h ^ w) * 0xbf58476d1ce4e5b9ull;
        h ^= h >> 31;
    }
    return std::size_t(h);
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& a) {
    return os << a.toString();
}

} // namespace Orvnet
