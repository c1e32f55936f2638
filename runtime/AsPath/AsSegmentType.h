// The type of an AS path segment; its values are the BGP wire codes.
//   AsSegmentType t = AsSegmentType::asConfedSequence_;
//   t.isConfed() && t.isSequence();  AsSegmentType::segmentDelimiterStrep(t, true) == "("
#pragma once

#include <cstdint>
#include <string_view>

namespace Routing::Bgp {

// A 16-bit code. Any code can be held (a stored path may carry one this library does not know);
// isValid() tells the four that mean something.
class AsSegmentType {
public:
    static constexpr uint16_t asSet_ = 1;
    static constexpr uint16_t asSequence_ = 2;
    static constexpr uint16_t asConfedSequence_ = 3;
    static constexpr uint16_t asConfedSet_ = 4;

    constexpr AsSegmentType() noexcept = default;
    // Implicit: segment types are written as their codes (AsSegmentType::asSet_).
    constexpr AsSegmentType(uint16_t code) noexcept : code_(code) {}

    constexpr uint16_t value() const noexcept { return code_; }
    constexpr bool isValid() const noexcept { return code_ >= asSet_ && code_ <= asConfedSet_; }
    // AS_SET and AS_CONFED_SET: unordered, at most 255 AS numbers on the wire.
    constexpr bool isSet() const noexcept { return code_ == asSet_ || code_ == asConfedSet_; }
    // AS_SEQUENCE and AS_CONFED_SEQUENCE: ordered, any length (split into wire segments of 255).
    constexpr bool isSequence() const noexcept {
        return code_ == asSequence_ || code_ == asConfedSequence_;
    }
    constexpr bool isConfed() const noexcept {
        return code_ == asConfedSequence_ || code_ == asConfedSet_;
    }

    // What a path's text puts around the segment's AS numbers: nothing for AS_SEQUENCE, "{" "}"
    // for AS_SET, "(" ")" for AS_CONFED_SEQUENCE, "[" "]" for AS_CONFED_SET, "?" "?" for a code
    // outside 1-4.
    static std::string_view segmentDelimiterStrep(AsSegmentType type, bool opening) noexcept;
    // "AS_SET", "AS_SEQUENCE", "AS_CONFED_SEQUENCE", "AS_CONFED_SET", or "AS_SEGMENT_TYPE_<n>".
    std::string toString() const;

    friend constexpr bool operator==(AsSegmentType a, AsSegmentType b) noexcept = default;

private:
    uint16_t code_ = 0;
};

} // namespace Routing::Bgp
