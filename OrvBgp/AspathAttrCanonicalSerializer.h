// AS_PATH / AS4_PATH for one peer, from a live (interned) AS path.
//   auto r = AspathAttrCanonicalSerializer::serialize(p.get(), BgpPathAttrType::asPath_, false,
//       false, true, 65001, false);   // r.bytes(): 40 02 ... with 65001 prepended
#pragma once

#include "AsPath/AspathAttrCanonical.h"
#include "Mel/Bytes.h"
#include "Mel/String.h"
#include "Mel/ValueType.h"
#include "Orvnet/AutonomousSystem.h"
#include "Serialize/Serialize.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Routing::Bgp {

// What serialize() gives: the whole attribute, and whether an AS number of the ordinary segments
// (or the prepended local AS) went out as AS_TRANS, so that an AS4_PATH must follow.
class AspathAttrCanonicalSerializeResult {
public:
    AspathAttrCanonicalSerializeResult() = default;
    AspathAttrCanonicalSerializeResult(bool needAs4Path, Mel::Bytes bytes)
        : needAs4Path_(needAs4Path), bytes_(std::move(bytes)) {}

    bool needAs4Path() const noexcept { return needAs4Path_; }
    void needAs4PathIs(bool v) noexcept { needAs4Path_ = v; }
    const Mel::Bytes& bytes() const noexcept { return bytes_; }
    void bytesIs(Mel::Bytes b) noexcept { bytes_ = std::move(b); }

    // Value('Routing::Bgp::AspathAttrCanonicalSerializeResult', ** {'needAs4Path': True,
    // 'bytes': '4002...'}) -- bytes as quoted lower-case hex.
    std::string toStrep() const;
    // Reads that text back; Mel::ParseException on malformed text.
    static AspathAttrCanonicalSerializeResult fromStrep(std::string_view text);

    friend bool operator==(const AspathAttrCanonicalSerializeResult&,
                           const AspathAttrCanonicalSerializeResult&) = default;

private:
    bool needAs4Path_ = false;
    Mel::Bytes bytes_;

    MEL_VALUE_TYPE(AspathAttrCanonicalSerializeResult,
                   "Routing::Bgp::AspathAttrCanonicalSerializeResult", (needAs4Path_, bytes_))
};

// Class-level operations only. A null path is the empty path. localAs 0 means "no local AS".
class AspathAttrCanonicalSerializer {
public:
    // 32 bits with fourByte (returns false); else 16 bits, AS_TRANS for numbers above 65535
    // (returns true exactly then).
    static bool serializeAs(Orvnet::AutonomousSystem as, bool fourByte, Serialize& serialize);
    // One segment, the local AS first when localAs is not 0 and the segment is a sequence (sets
    // never take it). Sequences split into wire segments of at most 255 AS numbers. Returns
    // whether an AS_TRANS substitution happened.
    static bool asSegmentSerialize(AsSegmentRef segment, bool fourByte,
                                   Orvnet::AutonomousSystem localAs, Serialize& serialize);
    // The attribute of `type` (2 AS_PATH, 17 AS4_PATH) for a peer: internal or not, in our
    // confederation or not, 2- or 4-byte, with the local AS prepended unless prependOwnDisabled
    // (which, towards a confederation peer, only changes where it goes).
    static AspathAttrCanonicalSerializeResult
    serialize(const AspathAttrCanonical* path, uint8_t type, bool confed, bool peerInternal,
              bool fourByte, Orvnet::AutonomousSystem localAs, bool prependOwnDisabled);
    // The same attribute appended to out (no allocation while out has inline room); returns
    // needAs4Path.
    static bool serialize(const AspathAttrCanonical* path, uint8_t type, bool confed,
                          bool peerInternal, bool fourByte, Orvnet::AutonomousSystem localAs,
                          bool prependOwnDisabled, Serialize& out);
    // The bytes of serialize(), always as AS_PATH (type 2) whatever `type` says.
    static std::string serializeStr(const AspathAttrCanonical* path, uint8_t type, bool confed,
                                    bool peerInternal, bool fourByte,
                                    Orvnet::AutonomousSystem localAs, bool prependOwnDisabled);

    // For AS path regular expressions: every AS number (confederation segments included) as 32
    // bits, nothing else; 4n bytes for n AS numbers.
    static Mel::String serializeForDfa(const AspathAttrCanonical* path);
    static void serializeIntoStringForDfa(const AspathAttrCanonical* path,
                                          Orvnet::AutonomousSystem localAs, bool includeConfed,
                                          Serialize& serialize);
    static void asSegmentSerializeForDfa(AsSegmentRef segment, Serialize& serialize);
};

} // namespace Routing::Bgp
