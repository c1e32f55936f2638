// Received attribute values of the types the census decoder leaves raw (PMSI tunnel, tunnel
// encapsulation, AIGP, BGP-LS, D-PATH, prefix SID) read into the library's interned objects.
//   auto r = Census::Wire::pmsiTunnel(attr.value);
//   if (r.verdict == Census::Wire::Verdict::Held) contents.pmsiTunnelIs(r.object);
//
// A value is Malformed when its own framing does not add up (RFC 7606: the attribute is
// discarded). A well-formed value whose object would not write back the very bytes received
// (reserved bits set, an unknown TLV, a TLV order or segmentation other than the library's) is
// NotHeld: the caller keeps it verbatim as an unknown attribute, so nothing received is lost.
// Never throws or asserts on the bytes.
#pragma once

#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/DomainPath.h"
#include "OrvBgp/LinkStateAttr.h"
#include "OrvBgp/PmsiTunnel.h"
#include "OrvBgp/SrTeAttributes.h"

#include <cstdint>
#include <span>

namespace Census::Wire {

enum class Verdict : uint8_t { Held, NotHeld, Malformed };

template <class T>
struct Result {
    Verdict verdict = Verdict::Malformed;
    Mel::PtrConst<T> object; // set when Held
};

// The optional and transitive bits (0x80, 0x40) an attribute of these types must carry; 0xff for
// types not decoded here. ATTR_SET (128) is included: its value is read by the ContentsBuilder.
uint8_t expectedFlags(uint8_t type) noexcept;

Result<Routing::Bgp::PmsiTunnel> pmsiTunnel(std::span<const uint8_t> value);
Result<Routing::Bgp::TunnelEncap> tunnelEncap(std::span<const uint8_t> value);
Result<Routing::Bgp::AccumulatedIgpMetric> aigp(std::span<const uint8_t> value);
Result<Routing::Bgp::LinkStateAttrBase> linkState(std::span<const uint8_t> value);
Result<Routing::Bgp::DomainPath> domainPath(std::span<const uint8_t> value);
Result<Routing::Bgp::PrefixSid> prefixSid(std::span<const uint8_t> value);

// The framing check of the decoder for `type` alone, nothing interned: false when Malformed.
// True for types not decoded here.
bool wellFormed(uint8_t type, std::span<const uint8_t> value);

// The value part of a whole attribute (header of 3 or 4 bytes skipped); empty when the bytes do
// not hold a whole header.
std::span<const uint8_t> attributeValue(std::span<const uint8_t> attribute) noexcept;
// Whether a whole attribute written by the library carries exactly `value`.
bool writesValue(const Mel::Bytes& attribute, std::span<const uint8_t> value) noexcept;

} // namespace Census::Wire
