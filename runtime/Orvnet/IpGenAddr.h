// An address that is empty, IPv4 or IPv6 (20 bytes).
//   Orvnet::IpGenAddr a = Orvnet::IpGenAddr::fromString("2001:db8::1");
//   if (a.isV6()) serialize.addIpv6Addr(a.v6());   // a.byteLength() == 16
#pragma once

#include "Keel/Assert.h"
#include "Orvnet/Ip6Addr.h"
#include "Orvnet/IpAddr.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Orvnet {

// Values are the IANA address family numbers, so af() can be written to the wire as it stands.
enum class AddressFamily : uint8_t { none = 0, ipv4 = 1, ipv6 = 2 };

std::ostream& operator<<(std::ostream& os, AddressFamily af);

class IpGenAddr {
public:
    constexpr IpGenAddr() noexcept = default;
    // Widening from either address type is lossless, hence implicit.
    IpGenAddr(IpAddr a) noexcept : af_(AddressFamily::ipv4) { std::memcpy(b_, a.data(), 4); }
    IpGenAddr(const Ip6Addr& a) noexcept : af_(AddressFamily::ipv6) {
        std::memcpy(b_, a.data(), 16);
    }

    // The empty address is the empty text; text with a ':' is IPv6, anything else IPv4 (both
    // as their own fromString). Throws Mel::ParseException naming the text.
    static IpGenAddr fromString(std::string_view text);

    AddressFamily af() const noexcept { return af_; }
    bool isEmpty() const noexcept { return af_ == AddressFamily::none; }
    bool isV4() const noexcept { return af_ == AddressFamily::ipv4; }
    bool isV6() const noexcept { return af_ == AddressFamily::ipv6; }
    // Asking an address for the family it is not is a programming error.
    IpAddr v4() const noexcept {
        ORV_ASSERT_IN("Orvnet/IpGenAddr", isV4());
        return IpAddr::fromBytes(reinterpret_cast<const uint8_t*>(b_));
    }
    Ip6Addr v6() const noexcept {
        ORV_ASSERT_IN("Orvnet/IpGenAddr", isV6());
        return Ip6Addr::fromBytes(reinterpret_cast<const uint8_t*>(b_));
    }
    // 0, 4 or 16: the address bytes at data(), in wire order.
    size_t byteLength() const noexcept {
        return af_ == AddressFamily::ipv4 ? 4 : af_ == AddressFamily::ipv6 ? 16 : 0;
    }
    const uint8_t* data() const noexcept { return reinterpret_cast<const uint8_t*>(b_); }
    // True for the empty address and for 0.0.0.0 and ::.
    bool isZero() const noexcept { return b_[0] == 0 && b_[1] == 0 && b_[2] == 0 && b_[3] == 0; }

    // "" for the empty address, else the text of the address.
    std::string toString() const;

    // Bytes past byteLength() are always zero, so whole-buffer comparison is exact.
    friend bool operator==(const IpGenAddr& a, const IpGenAddr& b) noexcept {
        return a.af_ == b.af_ && std::memcmp(a.b_, b.b_, sizeof(a.b_)) == 0;
    }
    // Empty < IPv4 < IPv6; within a family, address order.
    friend std::strong_ordering operator<=>(const IpGenAddr& a, const IpGenAddr& b) noexcept {
        if (a.af_ != b.af_) return a.af_ <=> b.af_;
        return std::memcmp(a.b_, b.b_, a.byteLength()) <=> 0;
    }
    friend std::size_t hash_value(const IpGenAddr& a) noexcept;

private:
    uint32_t b_[4] = {}; // words keep the type 4-byte aligned and 20 bytes long
    AddressFamily af_ = AddressFamily::none;
};

static_assert(sizeof(IpGenAddr) <= 20);

std::ostream& operator<<(std::ostream& os, const IpGenAddr& a);

} // namespace Orvnet

template <>
struct std::hash<Orvnet::IpGenAddr> {
    std::size_t operator()(const Orvnet::IpGenAddr& a) const noexcept { return hash_value(a); }
};
