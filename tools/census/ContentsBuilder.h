// From a decoded path to the contents of its attribute set, the way an agent's parser fills them:
// every sub-attribute is interned first (AS path, next hops, communities, cluster list, ...).
//   Census::ContentsBuilder b;  Routing::Bgp::PathAttributesContents c;
//   if (b.build(path, c)) set = Routing::Bgp::PathAttributes::dedupContent(&table, c);
//
// Choices made here:
// - Attributes the census decoder found malformed and discarded, and optional attributes whose
//   value our own wire decoders cannot read (PMSI tunnel, tunnel encapsulation, prefix SID, D-PATH,
//   BGP-LS, ATTR_SET), are left out (RFC 7606 attribute discard) and counted; a second attribute
//   of one type is ignored.
// - The next hop is the family's own: NEXT_HOP for IPv4 prefixes announced in the NLRI field, the
//   MP_REACH_NLRI next hop for prefixes announced there (its link-local half into llNextHop). Next
//   hops are interned in one table per prefix family (IPv4, IPv6), in the default VRF.
// - A collector does not say whether a session is internal or external: aspType stays unknown.
// - Types the library keeps no member for (and unknown types) become GunkPathAttrs, verbatim. So
//   does a well-formed value whose library object would not write back the bytes received (an
//   unknown prefix SID TLV, PMSI label bits below the 20-bit label, ORIGINATOR_ID 0.0.0.0, ...):
//   nothing received is lost.
// - AS4_PATH and AS4_AGGREGATOR count as interned when folded into the path and aggregator, as
//   discarded when RFC 6793 has them ignored (a 4-byte session, a stale AS4 pair).
// - ATTR_SET: its inner attributes become an interned inner set (the same rules, 4-byte AS
//   numbers, no next hop), interned in PathAttributesDedupTable::instance(); an ATTR_SET inside an
//   ATTR_SET is discarded.
#pragma once

#include "census/MrtDecoder.h"

#include "Mel/Ptr.h"
#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/PathAttributesContents.h"

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace Census {

// What became of one received attribute.
enum class BuildOutcome : uint8_t {
    Interned,    // held by the set as the library's own object or flag/word
    KeptUnknown, // held verbatim as a GunkPathAttr
    Discarded,   // malformed (by the census decoder's verdict or our wire decoder): left out
    Duplicate,   // a second attribute of the same type: ignored
    // Not an attribute of this path's set: MP_REACH_NLRI and MP_UNREACH_NLRI (read for next hop
    // and prefixes only), and NEXT_HOP beside MP_REACH_NLRI for a prefix announced there.
    NotInSet,
};
inline constexpr size_t kBuildOutcomeCount = 5;
const char* buildOutcomeName(BuildOutcome o);

struct BuildCounts {
    uint64_t paths = 0;       // build() calls
    uint64_t built = 0;       // contents filled (returned true)
    uint64_t withdrawals = 0; // not built: withdrawn prefixes
    uint64_t unusable = 0;    // not built: treat-as-withdraw or session reset
    // Per attribute type (0-255), per outcome; the attributes inside an ATTR_SET that is held are
    // counted too.
    std::array<std::array<uint64_t, kBuildOutcomeCount>, 256> byType{};

    uint64_t count(uint8_t type, BuildOutcome o) const noexcept { return byType[type][size_t(o)]; }
    uint64_t total(BuildOutcome o) const noexcept;
    void merge(const BuildCounts& o) noexcept;
};

// Whether the path's next hop is the MP_REACH_NLRI one (else NEXT_HOP, when there is one).
bool nextHopFromMpReach(const DecodedPath& path) noexcept;

class ContentsBuilder {
public:
    using NexthopTable = Routing::Bgp::AddressNexthopDedupTable;

    // Owns an IPv4 and an IPv6 next-hop table.
    ContentsBuilder();
    // Shares the caller's tables (several builders, one per thread, can share them).
    ContentsBuilder(Mel::Ptr<NexthopTable> ipv4, Mel::Ptr<NexthopTable> ipv6);
    ~ContentsBuilder();
    ContentsBuilder(const ContentsBuilder&) = delete;
    ContentsBuilder& operator=(const ContentsBuilder&) = delete;

    // Fills out (reset first) from the path's attributes. False, with out reset, when the path is
    // not one to install: a withdrawal, or treat-as-withdraw; the reason is counted. Never throws
    // or asserts on the received bytes.
    bool build(const DecodedPath& path, Routing::Bgp::PathAttributesContents& out);
    // build(), then the interned set from table (null when build() is false). Reuses one
    // contents record, so no allocation for a set already interned.
    Mel::PtrConst<Routing::Bgp::PathAttributes>
    intern(const DecodedPath& path, const Routing::Bgp::PathAttributesDedupTable& table =
                                        Routing::Bgp::PathAttributesDedupTable::instance());

    const BuildCounts& counts() const noexcept { return counts_; }
    void countsReset() noexcept { counts_ = BuildCounts(); }
    const Mel::Ptr<NexthopTable>& ipv4NexthopTable() const noexcept { return nh4_; }
    const Mel::Ptr<NexthopTable>& ipv6NexthopTable() const noexcept { return nh6_; }

private:
    struct Scratch;
    struct Outcomes;
    // Fills out from a; path is null for the inner attributes of an ATTR_SET.
    void fill(const DecodedAttributes& a, const DecodedPath* path, Outcomes& outcomes,
              Routing::Bgp::PathAttributesContents& out);
    bool attributeSet(std::span<const uint8_t> value, Outcomes& outcomes,
                      Routing::Bgp::PathAttributesContents& out);

    Mel::Ptr<NexthopTable> nh4_;
    Mel::Ptr<NexthopTable> nh6_;
    std::unique_ptr<Scratch> scratch_;
    Routing::Bgp::PathAttributesContents contents_;
    BuildCounts counts_;
};

} // namespace Census
