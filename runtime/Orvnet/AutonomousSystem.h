// A 32-bit AS number.
//   Orvnet::AutonomousSystem as = Orvnet::AutonomousSystem::fromString("1.10");
//   as.value() == 65546;  as.toString() == "65546";  as.toAsdotString() == "1.10"
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Orvnet {

class AutonomousSystem {
public:
    constexpr AutonomousSystem() noexcept = default;
    // Implicit: an AS number is its integer, and AS lists are written as integer literals.
    constexpr AutonomousSystem(uint32_t v) noexcept : v_(v) {}

    // Accepts asplain ("65546") and asdot ("1.10", each half 0-65535). Throws
    // Mel::ParseException naming the text.
    static AutonomousSystem fromString(std::string_view text);

    constexpr uint32_t value() const noexcept { return v_; }
    constexpr bool is2Byte() const noexcept { return v_ <= 0xffff; }
    // The number a 2-byte AS field carries: itself when it fits, else AS_TRANS.
    constexpr uint16_t as2ByteOrTrans() const noexcept;

    // asplain: "65546".
    std::string toString() const;
    // asdot: "1.10" for 65546; numbers up to 65535 print plain ("65535", not "0.65535").
    std::string toAsdotString() const;

    friend constexpr bool operator==(AutonomousSystem a, AutonomousSystem b) noexcept = default;
    friend constexpr auto operator<=>(AutonomousSystem a, AutonomousSystem b) noexcept = default;
    friend std::size_t hash_value(AutonomousSystem a) noexcept {
        return std::hash<uint32_t>()(a.v_);
    }

private:
    uint32_t v_ = 0;
};

// The 2-byte stand-in for an AS number above 65535.
inline constexpr AutonomousSystem AS_TRANS{23456};

constexpr uint16_t AutonomousSystem::as2ByteOrTrans() const noexcept {
    return uint16_t(is2Byte() ? v_ : AS_TRANS.value());
}

// Prints asplain.
std::ostream& operator<<(std::ostream& os, AutonomousSystem a);

} // namespace Orvnet

template <>
struct std::hash<Orvnet::AutonomousSystem> {
    std::size_t operator()(Orvnet::AutonomousSystem a) const noexcept { return hash_value(a); }
};
