// Decodes a BGP path attribute section: every attribute as received (flags, type, value bytes as a
// view into the record) plus the decoded values of the ones this tool knows, each checked and
// classified as RFC 7606 says.
//   Census::AttributeDecoder dec;  auto& a = dec.decode(section, {.asnSize = 4});
//   if (a.has(Census::AttrType::kMed)) use(a.med);  if (a.action >= TreatAsWithdraw) drop();
// Choices RFC 7606 leaves to the reader: a malformed AIGP (RFC 7311), or one without its AIGP TLV,
// is discarded; an attribute type this reader does not know but flagged well-known is an
// unrecognized well-known attribute (session reset); an attribute section that overruns is
// treat-as-withdraw.
#pragma once

#include "census/Prefix.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Census {

// What RFC 7606 makes of a malformed attribute. A collector keeps no sessions, so SessionReset is
// handled like TreatAsWithdraw: the paths of the message are not used; the kind is still counted.
enum class ErrorAction : uint8_t {
    None = 0,
    AttributeDiscard = 1,
    TreatAsWithdraw = 2,
    SessionReset = 3
};
inline constexpr size_t kErrorActionCount = 4;
const char* errorActionName(ErrorAction a);
inline ErrorAction worse(ErrorAction a, ErrorAction b) {
    return a < b ? b : a;
}

// Why something was classified malformed.
enum class Malformation : uint8_t {
    Flags,                 // optional/transitive bits conflict with the type code
    Length,                // length wrong for the type
    Value,                 // a value the type forbids (ORIGIN 3, AS_PATH segment type 5, ...)
    Duplicate,             // a second attribute of one type
    AttributeListOverrun,  // an attribute header or value runs past the attribute section
    MissingMandatory,      // ORIGIN, AS_PATH or NEXT_HOP absent where the path needs it
    UnrecognizedWellKnown, // a type this reader does not know, flagged well-known
    Nlri,                  // a prefix with a length beyond its family, or cut short
    MessageFraming,        // BGP message or MRT body fields that do not add up
};
inline constexpr size_t kMalformationCount = 9;
const char* malformationName(Malformation m);

namespace AttrType {
inline constexpr uint8_t kOrigin = 1;
inline constexpr uint8_t kAsPath = 2;
inline constexpr uint8_t kNextHop = 3;
inline constexpr uint8_t kMed = 4;
inline constexpr uint8_t kLocalPref = 5;
inline constexpr uint8_t kAtomicAggregate = 6;
inline constexpr uint8_t kAggregator = 7;
inline constexpr uint8_t kCommunities = 8;
inline constexpr uint8_t kOriginatorId = 9;
inline constexpr uint8_t kClusterList = 10;
inline constexpr uint8_t kMpReach = 14;
inline constexpr uint8_t kMpUnreach = 15;
inline constexpr uint8_t kExtCommunities = 16;
inline constexpr uint8_t kAs4Path = 17;
inline constexpr uint8_t kAs4Aggregator = 18;
inline constexpr uint8_t kIpv6ExtCommunities = 25;
inline constexpr uint8_t kAigp = 26;
inline constexpr uint8_t kLargeCommunity = 32;
} // namespace AttrType

namespace AttrFlag {
inline constexpr uint8_t kOptional = 0x80;
inline constexpr uint8_t kTransitive = 0x40;
inline constexpr uint8_t kPartial = 0x20;
inline constexpr uint8_t kExtendedLength = 0x10;
} // namespace AttrFlag

// One attribute as received.
struct PathAttribute {
    uint8_t flags = 0;
    uint8_t type = 0;
    ErrorAction action = ErrorAction::None; // what its own checks concluded
    std::span<const uint8_t> value;
    std::span<const uint8_t> wire; // header and value, exactly as received
};

struct AttributeIssue {
    uint8_t type;
    Malformation what;
    ErrorAction action;
};

namespace AsSegmentType {
inline constexpr uint8_t kSet = 1;
inline constexpr uint8_t kSequence = 2;
inline constexpr uint8_t kConfedSequence = 3;
inline constexpr uint8_t kConfedSet = 4;
} // namespace AsSegmentType

// An AS path with every AS number widened to 32 bits.
struct AsPath {
    struct Segment {
        uint8_t type;
        uint32_t first; // index into asns
        uint32_t count;
    };
    std::vector<Segment> segments;
    std::vector<uint32_t> asns;

    void clear() {
        segments.clear();
        asns.clear();
    }
    std::span<const uint32_t> asnsOf(const Segment& s) const {
        return {asns.data() + s.first, s.count};
    }
    // Path length in the form dump tools use when they fold AS4_PATH in: a set counts one, a
    // sequence its members; confederation segments count like the plain ones.
    uint32_t hopCount() const;
    // Path length as BGP counts it (RFC 4271 9.1.2.2, RFC 5065 5.3): as hopCount, but
    // confederation segments count nothing.
    uint32_t pathLength() const;
    // "1 2 {3,4} (5 6) [7,8]"
    void appendTo(std::string& out) const;
    std::string toString() const;
};

struct Aggregator {
    uint32_t as = 0;
    uint32_t address = 0; // host order
};

// Fixed-size items of a list attribute, read on demand from the received bytes.
template <size_t N>
struct WireList {
    std::span<const uint8_t> raw;
    size_t size() const noexcept { return raw.size() / N; }
    bool empty() const noexcept { return raw.size() < N; }
    const uint8_t* item(size_t i) const noexcept { return raw.data() + i * N; }
};
struct Communities : WireList<4> {
    uint32_t operator[](size_t i) const noexcept { return readBe32(item(i)); }
};
struct ClusterList : WireList<4> {
    uint32_t operator[](size_t i) const noexcept { return readBe32(item(i)); }
};
struct ExtCommunities : WireList<8> {
    uint64_t operator[](size_t i) const noexcept { return readBe64(item(i)); }
};
struct Ipv6ExtCommunities : WireList<20> {
    std::span<const uint8_t, 20> operator[](size_t i) const noexcept {
        return std::span<const uint8_t, 20>(item(i), 20);
    }
};
struct LargeCommunity {
    uint32_t global, local1, local2;
};
struct LargeCommunities : WireList<12> {
    LargeCommunity operator[](size_t i) const noexcept {
        return {readBe32(item(i)), readBe32(item(i) + 4), readBe32(item(i) + 8)};
    }
};

struct MpReach {
    uint16_t afi = 0;
    uint8_t safi = 0;
    bool abbreviated = false; // the RIB-entry form: next hop only (RFC 6396 4.3.4)
    bool supported = false;   // IPv4/IPv6 unicast or multicast: prefixes decoded
    uint8_t nextHopLength = 0;
    IpAddress nextHop;          // IPv4, or the global IPv6 one
    IpAddress linkLocalNextHop; // when 32 bytes of IPv6 next hop
    std::span<const uint8_t> nlri;
};

struct MpUnreach {
    uint16_t afi = 0;
    uint8_t safi = 0;
    bool supported = false;
    std::span<const uint8_t> nlri;
};

// Where the attribute section comes from decides how some attributes read.
struct AttributeContext {
    uint8_t asnSize = 4;        // AS_PATH and AGGREGATOR number width: 2 or 4
    bool addPath = false;       // MP_REACH/MP_UNREACH prefixes carry path ids
    bool ribEntry = false;      // a RIB dump entry: MP_REACH may be the abbreviated form
    uint16_t ribAfi = kAfiIpv4; // family of the RIB entry's prefix (abbreviated next hop family)
};

// The decoded attribute set; views point into the bytes given to decode() and stay valid while
// they do, and until the decoder's next decode().
struct DecodedAttributes {
    std::vector<PathAttribute> list; // in arrival order, duplicates and malformed ones included
    std::vector<AttributeIssue> issues;
    ErrorAction action = ErrorAction::None; // worst over issues

    uint8_t asnSize = 4;
    uint8_t origin = 0;
    AsPath asPath;        // as received, widened
    AsPath as4Path;       // as received
    uint32_t nextHop = 0; // host order
    uint32_t med = 0;
    uint32_t localPref = 0;
    Aggregator aggregator; // as received (2- or 4-byte AS)
    Aggregator as4Aggregator;
    Communities communities;
    uint32_t originatorId = 0;
    ClusterList clusterList;
    MpReach mpReach;
    MpUnreach mpUnreach;
    ExtCommunities extCommunities;
    Ipv6ExtCommunities ipv6ExtCommunities;
    uint64_t aigp = 0;
    LargeCommunities largeCommunities;
    std::vector<Prefix> mpReachPrefixes;   // when mpReach.supported
    std::vector<Prefix> mpUnreachPrefixes; // when mpUnreach.supported

    // Whether a usable attribute of this type arrived: present and not discarded.
    bool has(uint8_t type) const noexcept { return (present[type >> 6] >> (type & 63)) & 1; }

    // The AS path after folding in AS4_PATH where the session spoke 2-byte AS numbers (RFC 6793
    // 4.2.3): AS_PATH's confederation segments and the leading part of its other segments that
    // AS4_PATH does not cover, then AS4_PATH without its confederation segments (an AS4_PATH may
    // not carry them: they are discarded on receipt, RFC 6793 6). Lengths count as pathLength().
    // Ignored (AS_PATH as received) when AGGREGATOR names an AS other than AS_TRANS beside an
    // AS4_AGGREGATOR, or AS4_PATH is the longer.
    const AsPath& effectiveAsPath() const noexcept { return merged ? mergedAsPath : asPath; }
    // AGGREGATOR, or AS4_AGGREGATOR in its place when AGGREGATOR holds AS_TRANS on a 2-byte
    // session.
    const Aggregator& effectiveAggregator() const noexcept {
        return useAs4Aggregator ? as4Aggregator : aggregator;
    }

    std::array<uint64_t, 4> present{};
    bool merged = false;
    // Whether a dump tool folds AS4_PATH into this AS_PATH the way --dump prints it: the same
    // conditions as `merged`, lengths counted by hopCount().
    bool foldedForDump = false;
    bool useAs4Aggregator = false;
    AsPath mergedAsPath;

    void clear();
    void mark(uint8_t type) noexcept { present[type >> 6] |= uint64_t(1) << (type & 63); }
    void unmark(uint8_t type) noexcept { present[type >> 6] &= ~(uint64_t(1) << (type & 63)); }
};

class AttributeDecoder {
public:
    // Decodes one attribute section (the bytes after the Total Path Attribute Length field).
    // Never throws and never asserts on the bytes: problems end up in issues/action. A discarded
    // attribute stays in list but is not has().
    const DecodedAttributes& decode(std::span<const uint8_t> section, const AttributeContext& ctx);

    // Records an issue found outside the section (missing mandatory attributes, NLRI errors).
    void addIssue(uint8_t type, Malformation what, ErrorAction action);

    const DecodedAttributes& attributes() const noexcept { return a_; }

private:
    void decodeOne(PathAttribute& attr, const AttributeContext& ctx);
    void mergeAs4();

    DecodedAttributes a_;
};

// Decodes AS_PATH or AS4_PATH bytes into out; false when malformed (unknown segment type, a
// segment of length zero or one that runs past the end).
bool parseAsPath(std::span<const uint8_t> wire, uint8_t asnSize, AsPath& out);

} // namespace Census
