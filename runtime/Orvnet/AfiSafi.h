// An address family (AFI, 16 bits) and subsequent address family (SAFI, 8 bits) pair.
//   Orvnet::AfiSafi as = Orvnet::AfiSafi::ipv6Unicast();
//   as.value() == 0x10002;  as.toString() == "ipv6Unicast";  AfiSafi(25, 70) is "l2vpnEvpn"
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Orvnet {

class AfiSafi {
public:
    // IANA numbers of the families this system names.
    static constexpr uint16_t afiIpv4 = 1;
    static constexpr uint16_t afiIpv6 = 2;
    static constexpr uint16_t afiL2vpn = 25;
    static constexpr uint16_t afiLinkState = 16388;
    static constexpr uint8_t safiUnicast = 1;
    static constexpr uint8_t safiMulticast = 2;
    static constexpr uint8_t safiMplsLabel = 4;
    static constexpr uint8_t safiMvpn = 5;
    static constexpr uint8_t safiVpls = 65;
    static constexpr uint8_t safiEvpn = 70;
    static constexpr uint8_t safiLinkState = 71;
    static constexpr uint8_t safiSrTe = 73;
    static constexpr uint8_t safiMplsVpn = 128;
    static constexpr uint8_t safiRtMembership = 132;
    static constexpr uint8_t safiFlowspec = 133;
    static constexpr uint8_t safiFlowspecVpn = 134;

    constexpr AfiSafi() noexcept = default;
    constexpr AfiSafi(uint16_t afi, uint8_t safi) noexcept : afi_(afi), safi_(safi) {}
    // The packed form of value(); bits 24-31 are ignored.
    static constexpr AfiSafi fromValue(uint32_t v) noexcept {
        return AfiSafi(uint16_t(v & 0xffff), uint8_t(v >> 16));
    }
    // Accepts the names toString() prints, including "afi<n>safi<m>" for any pair. Throws
    // Mel::ParseException naming the text.
    static AfiSafi fromString(std::string_view text);

    static constexpr AfiSafi ipv4Unicast() noexcept { return {afiIpv4, safiUnicast}; }
    static constexpr AfiSafi ipv6Unicast() noexcept { return {afiIpv6, safiUnicast}; }
    static constexpr AfiSafi ipv4Multicast() noexcept { return {afiIpv4, safiMulticast}; }
    static constexpr AfiSafi ipv6Multicast() noexcept { return {afiIpv6, safiMulticast}; }
    static constexpr AfiSafi ipv4MplsLabel() noexcept { return {afiIpv4, safiMplsLabel}; }
    static constexpr AfiSafi ipv6MplsLabel() noexcept { return {afiIpv6, safiMplsLabel}; }
    static constexpr AfiSafi ipv4MplsVpn() noexcept { return {afiIpv4, safiMplsVpn}; }
    static constexpr AfiSafi ipv6MplsVpn() noexcept { return {afiIpv6, safiMplsVpn}; }
    static constexpr AfiSafi l2vpnEvpn() noexcept { return {afiL2vpn, safiEvpn}; }

    constexpr uint16_t afi() const noexcept { return afi_; }
    constexpr uint8_t safi() const noexcept { return safi_; }
    // SAFI in bits 16-23, AFI in bits 0-15: IPv6 unicast is 0x10002.
    constexpr uint32_t value() const noexcept { return uint32_t(safi_) << 16 | afi_; }
    constexpr bool isIpv4() const noexcept { return afi_ == afiIpv4; }
    constexpr bool isIpv6() const noexcept { return afi_ == afiIpv6; }

    // A name such as "ipv4Unicast" or "l2vpnEvpn"; "afi<n>safi<m>" for pairs without a name.
    std::string toString() const;

    friend constexpr bool operator==(AfiSafi a, AfiSafi b) noexcept = default;
    // Ordered by AFI, then SAFI.
    friend constexpr auto operator<=>(AfiSafi a, AfiSafi b) noexcept = default;
    friend std::size_t hash_value(AfiSafi a) noexcept { return std::hash<uint32_t>()(a.value()); }

private:
    uint16_t afi_ = 0;
    uint8_t safi_ = 0;
};

std::ostream& operator<<(std::ostream& os, AfiSafi a);

} // namespace Orvnet

template <>
struct std::hash<Orvnet::AfiSafi> {
    std::size_t operator()(Orvnet::AfiSafi a) const noexcept { return hash_value(a); }
};
