#include "Orvnet/AfiSafi.h"

#include "Mel/Exception.h"

#include <charconv>
#include <ostream>

namespace Orvnet {

namespace {

struct Named {
    AfiSafi afiSafi;
    std::string_view name;
};

constexpr Named names[] = {
    {{AfiSafi::afiIpv4, AfiSafi::safiUnicast}, "ipv4Unicast"},
    {{AfiSafi::afiIpv6, AfiSafi::safiUnicast}, "ipv6Unicast"},
    {{AfiSafi::afiIpv4, AfiSafi::safiMulticast}, "ipv4Multicast"},
    {{AfiSafi::afiIpv6, AfiSafi::safiMulticast}, "ipv6Multicast"},
    {{AfiSafi::afiIpv4, AfiSafi::safiMplsLabel}, "ipv4MplsLabel"},
    {{AfiSafi::afiIpv6, AfiSafi::safiMplsLabel}, "ipv6MplsLabel"},
    {{AfiSafi::afiIpv4, AfiSafi::safiMvpn}, "ipv4Mvpn"},
    {{AfiSafi::afiIpv6, AfiSafi::safiMvpn}, "ipv6Mvpn"},
    {{AfiSafi::afiIpv4, AfiSafi::safiSrTe}, "ipv4SrTe"},
    {{AfiSafi::afiIpv6, AfiSafi::safiSrTe}, "ipv6SrTe"},
    {{AfiSafi::afiIpv4, AfiSafi::safiMplsVpn}, "ipv4MplsVpn"},
    {{AfiSafi::afiIpv6, AfiSafi::safiMplsVpn}, "ipv6MplsVpn"},
    {{AfiSafi::afiIpv4, AfiSafi::safiRtMembership}, "ipv4RtMembership"},
    {{AfiSafi::afiIpv4, AfiSafi::safiFlowspec}, "ipv4Flowspec"},
    {{AfiSafi::afiIpv6, AfiSafi::safiFlowspec}, "ipv6Flowspec"},
    {{AfiSafi::afiIpv4, AfiSafi::safiFlowspecVpn}, "ipv4FlowspecVpn"},
    {{AfiSafi::afiIpv6, AfiSafi::safiFlowspecVpn}, "ipv6FlowspecVpn"},
    {{AfiSafi::afiL2vpn, AfiSafi::safiVpls}, "l2vpnVpls"},
    {{AfiSafi::afiL2vpn, AfiSafi::safiEvpn}, "l2vpnEvpn"},
    {{AfiSafi::afiLinkState, AfiSafi::safiLinkState}, "linkState"},
};

template <class T>
bool parseDecimal(std::string_view t, T& out) {
    if (t.empty() || t[0] < '0' || t[0] > '9') return false;
    auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), out);
    return ec == std::errc() && p == t.data() + t.size();
}

} // namespace

AfiSafi AfiSafi::fromString(std::string_view text) {
    for (const Named& n : names)
        if (n.name == text) return n.afiSafi;
    if (text.starts_with("afi")) {
        size_t s = text.find("safi", 3);
        uint16_t afi = 0;
        uint8_t safi = 0;
        // from_chars into uint8_t rejects values above 255.
        if (s != std::string_view::npos && parseDecimal(text.substr(3, s - 3), afi) &&
            parseDecimal(text.substr(s + 4), safi))
            return AfiSafi(afi, safi);
    }
    throw Mel::ParseException("invalid address family '" + std::string(text) +
                              "': expected a name such as ipv4Unicast, or afi<n>safi<m>");
}

std::string AfiSafi::toString() const {
    for (const Named& n : names)
        if (n.afiSafi == *this) return std::string(n.name);
    return "afi" + std::to_string(afi_) + "safi" + std::to_string(safi_);
}

std::ostream& operator<<(std::ostream& os, AfiSafi a) {
    return os << a.toString();
}

} // namespace Orvnet
