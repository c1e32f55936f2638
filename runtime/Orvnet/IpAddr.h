// An IPv4 address, held in network byte order.
//   Orvnet::IpAddr a = Orvnet::IpAddr::fromString("10.0.0.1");
//   a.hostOrder() == 0x0a000001;  a.toString() == "10.0.0.1";  IpAddr() is 0.0.0.0
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Orvnet {

class IpAddr {
public:
    constexpr IpAddr() noexcept = default;

    static constexpr IpAddr fromHostOrder(uint32_t v) noexcept {
        IpAddr a;
        a.nbo_ = toNetwork(v);
        return a;
    }
    static constexpr IpAddr fromNetworkOrder(uint32_t v) noexcept {
        IpAddr a;
        a.nbo_ = v;
        return a;
    }
    // Reads 4 bytes in wire order.
    static IpAddr fromBytes(const uint8_t* p) noexcept {
        IpAddr a;
        std::memcpy(&a.nbo_, p, 4);
        return a;
    }
    // Strict dotted quad: four decimal parts 0-255, no blanks, no leading zeros (so "010" is not
    // silently read as octal or decimal). Throws Mel::ParseException naming the text.
    static IpAddr fromString(std::string_view text);

    constexpr uint32_t hostOrder() const noexcept { return toNetwork(nbo_); }
    constexpr uint32_t networkOrder() const noexcept { return nbo_; }
    std::array<uint8_t, 4> bytes() const noexcept {
        std::array<uint8_t, 4> b;
        std::memcpy(b.data(), &nbo_, 4);
        return b;
    }
    // Pointer to the 4 bytes in wire order.
    const uint8_t* data() const noexcept { return reinterpret_cast<const uint8_t*>(&nbo_); }
    constexpr bool isZero() const noexcept { return nbo_ == 0; }

    std::string toString() const;

    friend constexpr bool operator==(IpAddr a, IpAddr b) noexcept { return a.nbo_ == b.nbo_; }
    // Numeric order, so 9.0.0.0 < 10.0.0.0.
    friend constexpr std::strong_ordering operator<=>(IpAddr a, IpAddr b) noexcept {
        return a.hostOrder() <=> b.hostOrder();
    }
    friend std::size_t hash_value(IpAddr a) noexcept { return std::hash<uint32_t>()(a.nbo_); }

private:
    static constexpr uint32_t toNetwork(uint32_t v) noexcept {
        if constexpr (std::endian::native == std::endian::little)
            return ((v & 0xffu) << 24) | ((v & 0xff00u) << 8) | ((v >> 8) & 0xff00u) | (v >> 24);
        else
            return v;
    }

    uint32_t nbo_ = 0;
};

std::ostream& operator<<(std::ostream& os, IpAddr a);

} // namespace Orvnet

template <>
struct std::hash<Orvnet::IpAddr> {
    std::size_t operator()(Orvnet::IpAddr a) const noexcept { return hash_value(a); }
};
