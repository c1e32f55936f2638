// Writes an interned attribute set back to the wire and compares it, attribute by attribute (by
// type), with the bytes that arrived.
//   Census::RoundTrip rt;  rt.check(path, *set);
//   rt.counts().byType[2].matched;  rt.counts().mismatched();  total.merge(rt.counts());
//
// The set is written as to the peer it came from: 4-byte AS numbers when the session spoke them,
// as to an internal peer (LOCAL_PREF, ORIGINATOR_ID and CLUSTER_LIST are written when held), and
// NEXT_HOP only when one arrived. A difference is "explained" when a rule of the protocol or of
// the decoding accounts for it; each rule is a reason below. Anything else is a mismatch.
#pragma once

#include "census/MrtDecoder.h"

#include "OrvBgp/BgpPathAttributes.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Census {

enum class RoundTripReason : uint8_t {
    // Flags differ in the Partial bit only: a set keeps no Partial bit for the attributes it holds
    // (senders set it on optional transitive ones they pass on, RFC 4271 wants it clear on the
    // others), and sets it on the unknown transitive ones it keeps.
    PartialBit,
    // The sender used the extended-length form for a value shorter than 256 bytes (and the flags
    // and value are otherwise equal).
    ExtendedLength,
    // AS_PATH, AS4_PATH, AGGREGATOR or AS4_AGGREGATOR where AS4 information arrived: the set holds
    // the folded path and aggregator, written back in the form the session needs (RFC 6793).
    As4Folding,
    // A second attribute of a type already seen: ignored on receipt.
    Duplicate,
    // A malformed attribute that was discarded on receipt, so nothing of it is written back.
    Discarded,
    // NEXT_HOP that arrived beside MP_REACH_NLRI for a prefix announced there: the set holds the
    // MP_REACH_NLRI next hop.
    NextHopOfOtherFamily,
    // The low four flag bits were set: unused, ignored on receipt and written as zero (RFC 4271).
    UnusedFlagBits,
};
inline constexpr size_t kRoundTripReasonCount = 7;
const char* roundTripReasonName(RoundTripReason r);

struct RoundTripCounts {
    struct PerType {
        uint64_t matched = 0;
        uint64_t mismatched = 0;
        std::array<uint64_t, kRoundTripReasonCount> explained{};
        uint64_t explainedTotal() const noexcept;
    };
    // A mismatch kept for diagnosis; only the first kMaxSamples are kept.
    struct Sample {
        uint8_t type = 0;
        uint64_t recordOffset = 0; // of the MRT record the path came from
        std::string received;      // whole attribute as hex; "" when none arrived
        std::string written;       // whole attribute as hex; "" when none was written
    };
    static constexpr size_t kMaxSamples = 16;

    uint64_t paths = 0;         // check() calls
    uint64_t emptySections = 0; // paths that arrived without any attribute: nothing to compare
    uint64_t notWritable = 0;   // sets with an attribute too long to write (a 2-byte path
                                // written with 4-byte numbers past 65535 bytes): not compared
    std::array<PerType, 256> byType{};
    std::vector<Sample> samples;

    uint64_t matched() const noexcept;
    uint64_t mismatched() const noexcept;
    uint64_t explained() const noexcept;
    uint64_t explained(RoundTripReason r) const noexcept;
    void merge(const RoundTripCounts& o);
    // One line per type that occurred: "type 2 AS_PATH: matched 100, mismatched 0, explained 3
    // (as4-folding 3)".
    std::string toString() const;
};

class RoundTrip {
public:
    RoundTrip();
    ~RoundTrip();
    RoundTrip(const RoundTrip&) = delete;
    RoundTrip& operator=(const RoundTrip&) = delete;

    // Compares set's wire form with path's received attributes (MP_REACH_NLRI and MP_UNREACH_NLRI
    // left aside: they are not attributes of the set). set is the one built from path.
    void check(const DecodedPath& path, const Routing::Bgp::PathAttributes& set);

    const RoundTripCounts& counts() const noexcept { return counts_; }
    void countsReset() { counts_ = RoundTripCounts(); }
    // Drops the wire forms kept of the sets checked last, and the references they hold.
    void formsClear();
    // Adds another instance's counts (per-thread instances add up).
    void merge(const RoundTrip& o) { counts_.merge(o.counts_); }

private:
    class Sink;
    std::unique_ptr<Sink> sink_;
    RoundTripCounts counts_;
};

// The attribute type's name ("AS_PATH", "LARGE_COMMUNITY"), or "type N" for one without.
std::string attributeTypeName(uint8_t type);

} // namespace Census
