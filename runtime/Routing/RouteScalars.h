// The route scalar types that attribute sets store.
//   Routing::MultiExitDiscriminator med(100);  med.isSpecified();
//   Routing::MultiExitDiscriminator::unspecified() Routing::RouteTag tag = 7;
//   Routing::RoutePreference pref = 200;  Routing::RouteWeight w = 10;
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

namespace Routing {

using RouteTag = uint32_t;
using RoutePreference = uint8_t;
using RouteWeight = uint16_t;

// A 63-bit optional value whose unspecified state is the bit pattern 0x8000000000000000. Attribute
// sets keep only the low 32 bits beside a presence flag, so values meant for them fit 32 bits.
template <class Tag>
class OptionalMetric {
public:
    static constexpr uint64_t unspecifiedPattern = 0x8000000000000000ULL;

    constexpr OptionalMetric() noexcept = default;
    constexpr explicit OptionalMetric(uint64_t value) noexcept : raw_(value) {}
    static constexpr OptionalMetric unspecified() noexcept { return OptionalMetric(); }

    constexpr bool isSpecified() const noexcept { return raw_ != unspecifiedPattern; }
    // The value; for an unspecified metric, the raw pattern (whose low 32 bits are 0).
    constexpr uint64_t value() const noexcept { return raw_; }
    constexpr uint64_t raw() const noexcept { return raw_; }
    constexpr uint32_t low32() const noexcept { return static_cast<uint32_t>(raw_); }

    constexpr bool operator==(const OptionalMetric&) const noexcept = default;
    constexpr auto operator<=>(const OptionalMetric&) const noexcept = default;

    // "100", or "unspecified".
    std::string toString() const {
        return isSpecified() ? std::to_string(raw_) : std::string("unspecified");
    }
    friend std::ostream& operator<<(std::ostream& os, const OptionalMetric& m) {
        return os << m.toString();
    }

private:
    uint64_t raw_ = unspecifiedPattern;
};

struct MedTag;
struct LocalPrefTag;
struct RedistMetricTag;
struct IgpMetricForNexthopTag;
using MultiExitDiscriminator = OptionalMetric<MedTag>;
using RoutingLocalPref = OptionalMetric<LocalPrefTag>;
using RedistMetric = OptionalMetric<RedistMetricTag>;
using IgpMetricForNexthop = OptionalMetric<IgpMetricForNexthopTag>;

} // namespace Routing

using Routing::IgpMetricForNexthop;
using Routing::MultiExitDiscriminator;
using Routing::RedistMetric;
using Routing::RouteWeight;
using Routing::RoutingLocalPref;
