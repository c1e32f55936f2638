// An IPv6 address: 16 bytes in wire order.
//   Orvnet::Ip6Addr a = Orvnet::Ip6Addr::fromString("2001:db8::1");
//   a.toString() == "2001:db8::1";  Ip6Addr() is ::
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Orvnet {

class Ip6Addr {
public:
    constexpr Ip6Addr() noexcept = default;
    constexpr explicit Ip6Addr(const std::array<uint8_t, 16>& b) noexcept : b_(b) {}

    // Reads 16 bytes in wire order.
    static Ip6Addr fromBytes(const uint8_t* p) noexcept {
        Ip6Addr a;
        std::memcpy(a.b_.data(), p, 16);
        return a;
    }
    // Any text inet_pton accepts ("::", "2001:db8::1", "::ffff:1.2.3.4"); no zone index, no
    // blanks. Throws Mel::ParseException naming the text.
    static Ip6Addr fromString(std::string_view text);

    const std::array<uint8_t, 16>& bytes() const noexcept { return b_; }
    const uint8_t* data() const noexcept { return b_.data(); }
    bool isZero() const noexcept { return *this == Ip6Addr(); }
    // ::ffff:a.b.c.d
    bool isV4Mapped() const noexcept;

    // RFC 5952 text as inet_ntop writes it: lower case, longest zero run compressed, an
    // IPv4-mapped (or IPv4-compatible) tail dotted.
    std::string toString() const;

    friend bool operator==(const Ip6Addr& a, const Ip6Addr& b) noexcept = default;
    friend std::strong_ordering operator<=>(const Ip6Addr& a, const Ip6Addr& b) noexcept {
        int c = std::memcmp(a.b_.data(), b.b_.data(), 16);
        return c <=> 0;
    }
    friend std::size_t hash_value(const Ip6Addr& a) noexcept;

private:
    std::array<uint8_t, 16> b_{};
};

std::ostream& operator<<(std::ostream& os, const Ip6Addr& a);

} // namespace Orvnet

template <>
struct std::hash<Orvnet::Ip6Addr> {
    std::size_t operator()(const Orvnet::Ip6Addr& a) const noexcept { return hash_value(a); }
};
