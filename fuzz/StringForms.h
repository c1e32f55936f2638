// Fuzz target over the text forms that read back: the first byte picks the type, the rest is the
// text. Text that reads must print, the print must read back equal, and print the same again.
//   OrvFuzz::stringForms(bytes);   // throws OrvFuzz::CheckFailure when a property fails
// Malformed text is answered with a Mel::Exception (ParseException, RangeException,
// NotSupportedException for interned members of PathAttributesContents): not a finding. Anything
// else escaping, an assertion or a sanitizer report is.
#pragma once

#include "FuzzCheck.h"

#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "OrvBgp/AspathAttrCanonicalSerializer.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/BgpTunnelEncapSubTlv.h"
#include "OrvBgp/ClusterList.h"
#include "OrvBgp/DomainPath.h"
#include "OrvBgp/PathAttributesContents.h"
#include "OrvBgp/PmsiTunnel.h"
#include "OrvBgp/SrTeAttributes.h"
#include "OrvBgp/Srv6ServiceTlv.h"
#include "OrvBgp/VxlanTunnelTlv.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace OrvFuzz {

namespace StringFormsFuzz {

template <class T, class Parse, class Print>
void roundTrip(const char* type, std::string_view text, Parse parse, Print print) {
    std::optional<T> first;
    try {
        first.emplace(parse(text));
    } catch (const Mel::Exception&) {
        return;
    }
    const std::string printed = print(*first);
    std::optional<T> second;
    try {
        second.emplace(parse(printed));
    } catch (const Mel::Exception& e) {
        checkFailed("printed form reads back", __FILE__, __LINE__,
                    std::string(type) + ": " + e.what() + ": " + printed);
    }
    ORV_FUZZ_CHECK(*second == *first, std::string(type) + ": read back differs: " + printed);
    const std::string again = print(*second);
    ORV_FUZZ_CHECK(again == printed, std::string(type) + ": " + printed + " then " + again);
}

// The Mel reflection form, both ways.
template <class T>
void melRoundTrip(const char* type, std::string_view text) {
    roundTrip<T>(
        type, text, [](std::string_view t) { return Mel::valueFromStrep<T>(t); },
        [](const T& v) { return Mel::valueToStrep(v); });
}

// The types' own fromStrep/toStrep.
template <class T>
void ownRoundTrip(const char* type, std::string_view text) {
    roundTrip<T>(
        type, text, [](std::string_view t) { return T::fromStrep(t); },
        [](const T& v) { return v.toStrep(); });
}

inline constexpr unsigned kTypes = 18;

} // namespace StringFormsFuzz

inline void stringForms(std::span<const uint8_t> data) {
    using namespace Routing::Bgp;
    using namespace StringFormsFuzz;
    if (data.empty()) return;
    const std::string_view text(reinterpret_cast<const char*>(data.data() + 1), data.size() - 1);
    switch (data[0] % kTypes) {
    case 0:
        roundTrip<PathAttributesContents>(
            "PathAttributesContents", text,
            [](std::string_view t) { return PathAttributesContents(t); },
            [](const PathAttributesContents& c) { return Routing::Bgp::valueToStrep(c); });
        break;
    case 1:
        ownRoundTrip<PmsiTunnelContent>("PmsiTunnelContent", text);
        break;
    case 2:
        ownRoundTrip<PmsiTunnelPimContent>("PmsiTunnelPimContent", text);
        break;
    case 3:
        ownRoundTrip<PmsiTunnelMldpP2mpLspContent>("PmsiTunnelMldpP2mpLspContent", text);
        break;
    case 4:
        ownRoundTrip<PmsiTunnelMldpP2mpGenericLspIdContent>("PmsiTunnelMldpP2mpGenericLspIdContent",
                                                            text);
        break;
    case 5:
        ownRoundTrip<PrefixSidContent>("PrefixSidContent", text);
        break;
    case 6:
        ownRoundTrip<Srv6ServiceTlvContent>("Srv6ServiceTlvContent", text);
        break;
    case 7:
        ownRoundTrip<AspathAttrCanonicalSerializeResult>("AspathAttrCanonicalSerializeResult",
                                                         text);
        break;
    case 8:
        melRoundTrip<TunnelEncapTlvContentBase>("TunnelEncapTlvContentBase", text);
        break;
    case 9:
        melRoundTrip<TunnelEncapTlvUnparsedContent>("TunnelEncapTlvUnparsedContent", text);
        break;
    case 10:
        melRoundTrip<VxlanTunnelTlvContent>("VxlanTunnelTlvContent", text);
        break;
    case 11:
        melRoundTrip<UnparsedSubTlvContent>("UnparsedSubTlvContent", text);
        break;
    case 12:
        melRoundTrip<EndpointSubTlvContent>("EndpointSubTlvContent", text);
        break;
    case 13:
        melRoundTrip<ColorSubTlvContent>("ColorSubTlvContent", text);
        break;
    case 14:
        melRoundTrip<ClusterListContent>("ClusterListContent", text);
        break;
    case 15:
        melRoundTrip<DomainPathContent>("DomainPathContent", text);
        break;
    case 16:
        melRoundTrip<AggregatorContent>("AggregatorContent", text);
        break;
    case 17:
        melRoundTrip<AccumulatedIgpMetricContent>("AccumulatedIgpMetricContent", text);
        break;
    }
}

} // namespace OrvFuzz
