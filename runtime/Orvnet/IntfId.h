// A 32-bit interface identifier; 0 means no interface.
//   Orvnet::IntfId id = Orvnet::IntfId::fromString("0x2a");
//   id.value() == 42;  id.toString() == "intf42";  IntfId().toString() == "intfNone"
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Orvnet {

class IntfId {
public:
    constexpr IntfId() noexcept = default;
    constexpr explicit IntfId(uint32_t v) noexcept : v_(v) {}

    // Accepts the toString() forms and also a bare number, decimal or "0x" hexadecimal.
    // Throws Mel::ParseException naming the text.
    static IntfId fromString(std::string_view text);

    constexpr uint32_t value() const noexcept { return v_; }
    constexpr bool isNone() const noexcept { return v_ == 0; }

    // "intf" and the number in decimal; "intfNone" for 0.
    std::string toString() const;

    friend constexpr bool operator==(IntfId a, IntfId b) noexcept = default;
    friend constexpr auto operator<=>(IntfId a, IntfId b) noexcept = default;
    friend std::size_t hash_value(IntfId a) noexcept { return std::hash<uint32_t>()(a.v_); }

private:
    uint32_t v_ = 0;
};

std::ostream& operator<<(std::ostream& os, IntfId a);

} // namespace Orvnet

template <>
struct std::hash<Orvnet::IntfId> {
    std::size_t operator()(Orvnet::IntfId a) const noexcept { return hash_value(a); }
};
