#include "OrvBgp/AspathAttrCanonicalSerializer.h"

#define ORV_UNIT "OrvBgp/AspathAttrCanonicalSerializer"
#include "Keel/Assert.h"
#include "Mel/Reflect.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "Tracelet/Tracelet.h"

namespace Routing::Bgp {

std::string AspathAttrCanonicalSerializeResult::toStrep() const {
    return Mel::valueToStrep(*this);
}

AspathAttrCanonicalSerializeResult
AspathAttrCanonicalSerializeResult::fromStrep(std::string_view text) {
    return Mel::valueFromStrep<AspathAttrCanonicalSerializeResult>(text);
}

bool AspathAttrCanonicalSerializer::serializeAs(Orvnet::AutonomousSystem as, bool fourByte,
                                                Serialize& serialize) {
    if (fourByte) {
        serialize.addU32hton(as.value());
        return false;
    }
    return serialize.addAs2(as);
}

namespace {

bool sequenceSerialize(AsSegmentRef seq, bool fourByte, Orvnet::AutonomousSystem localAs,
                       Serialize& serialize) {
    bool substituted = false;
    bool localPending = localAs.value() != 0;
    size_t n = seq.as.size() + (localPending ? 1 : 0);
    auto as = seq.as.begin();
    const auto end = seq.as.end();
    uint16_t typeBits = uint16_t(seq.type.value() << 8);
    while (n > 0) {
        size_t k = n < 0xff ? n : 0xff;
        n -= k;
        serialize.addU16hton(uint16_t(typeBits | k));
        if (localPending) {
            substituted |= AspathAttrCanonicalSerializer::serializeAs(localAs, fourByte, serialize);
            localPending = false;
            --k;
        }
        for (; k > 0; --k, ++as) {
            ORV_ASSERT_TEXT(as != end, "as != seq->asRawPtr()->cend()");
            substituted |= AspathAttrCanonicalSerializer::serializeAs(*as, fourByte, serialize);
        }
    }
    return substituted;
}

bool setSerialize(AsSegmentRef set, bool fourByte, Serialize& serialize) {
    size_t asCount = set.as.size();
    if (asCount == 0) return false;
    ORV_ASSERT(asCount <= 0xff);
    serialize.addU16hton(uint16_t(set.type.value() << 8 | asCount));
    bool substituted = false;
    for (Orvnet::AutonomousSystem as : set.as)
        substituted |= AspathAttrCanonicalSerializer::serializeAs(as, fourByte, serialize);
    return substituted;
}

// Where the local AS goes, by the decision table of serialize().
enum class Prepend { none, intoFirstOrdinary, newSegment, intoFirstConfed };

} // namespace

bool AspathAttrCanonicalSerializer::asSegmentSerialize(AsSegmentRef segment, bool fourByte,
                                                       Orvnet::AutonomousSystem localAs,
                                                       Serialize& serialize) {
    if (segment.type.isSequence()) return sequenceSerialize(segment, fourByte, localAs, serialize);
    if (segment.type.isSet()) return setSerialize(segment, fourByte, serialize);
    ORV_ASSERT_TEXT(false, "Unsupported AsSegmentType");
    return false;
}

AspathAttrCanonicalSerializeResult AspathAttrCanonicalSerializer::serialize(
    const AspathAttrCanonical* path, uint8_t type, bool confed, bool peerInternal, bool fourByte,
    Orvnet::AutonomousSystem localAs, bool prependOwnDisabled) {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: AspathAttrCanonicalSerializer::serialize()");
    ORV_ASSERT(BgpPathAttrType::asPath_ == type || BgpPathAttrType::as4Path_ == type);
    ORV_ASSERT(BgpPathAttrType::as4Path_ != type || fourByte);

    SerializePathAttributeAutoExtLen s;
    bool needAs4Path = false;
    const AsSegmentType localAsSegType =
        confed ? AsSegmentType::asConfedSequence_ : AsSegmentType::asSequence_;
    AsSegmentRun confedRun = path ? path->confedPath() : AsSegmentRun();
    AsSegmentRun run = path ? path->path() : AsSegmentRun();

    bool writeConfed = true;
    Prepend prepend = Prepend::none;
    if (!peerInternal) {
        ORV_ASSERT_TEXT(localAs.value() != 0, "peerInternal");
        bool firstIsLocalType = !run.empty() && run.begin()->segmentType() == localAsSegType;
        if (!confed) {
            writeConfed = false;
            if (!prependOwnDisabled)
                prepend = firstIsLocalType ? Prepend::intoFirstOrdinary : Prepend::newSegment;
        } else if (firstIsLocalType || prependOwnDisabled) {
            prepend = Prepend::intoFirstConfed;
        } else {
            prepend = Prepend::newSegment;
        }
    }
    // Into the first confederation segment; with none, into the first ordinary one instead.
    if (prepend == Prepend::intoFirstConfed && confedRun.empty())
        prepend = Prepend::intoFirstOrdinary;

    if (prepend == Prepend::newSegment) {
        s.addU16hton(uint16_t(localAsSegType.value() << 8 | 1));
        needAs4Path |= serializeAs(localAs, fourByte, s);
    }
    if (writeConfed) {
        bool first = true;
        for (const StoredAsSegment& seg : confedRun) {
            Orvnet::AutonomousSystem prependAs;
            if (first && prepend == Prepend::intoFirstConfed) {
                const StoredAsSegment* segment = &seg;
                ORV_ASSERT(segment->segmentType() == localAsSegType);
                prependAs = localAs;
            }
            first = false;
            // An AS_TRANS in a confederation segment does not call for an AS4_PATH: those
            // segments never leave the confederation.
            asSegmentSerialize(seg, fourByte, prependAs, s);
        }
    }
    bool first = true;
    for (const StoredAsSegment& seg : run) {
        Orvnet::AutonomousSystem prependAs =
            first && prepend == Prepend::intoFirstOrdinary ? localAs : Orvnet::AutonomousSystem();
        first = false;
        needAs4Path |= asSegmentSerialize(seg, fourByte, prependAs, s);
    }

    uint8_t flags = BgpPathAttrType::as4Path_ == type
                        ? uint8_t(pathAttrFlagOptional | pathAttrFlagTransitive)
                        : pathAttrFlagTransitive;
    return {needAs4Path, s.patchHdrAndStringify(type, flags)};
}

std::string AspathAttrCanonicalSerializer::serializeStr(const AspathAttrCanonical* path,
                                                        uint8_t /*type*/, bool confed,
                                                        bool peerInternal, bool fourByte,
                                                        Orvnet::AutonomousSystem localAs,
                                                        bool prependOwnDisabled) {
    // Always AS_PATH, whatever type was asked for: callers rely on it.
    return std::string(serialize(path, BgpPathAttrType::asPath_, confed, peerInternal, fourByte,
                                 localAs, prependOwnDisabled)
                           .bytes()
                           .view());
}

Mel::String AspathAttrCanonicalSerializer::serializeForDfa(const AspathAttrCanonical* path) {
    Serialize s;
    serializeIntoStringForDfa(path, Orvnet::AutonomousSystem(), true, s);
    return s.serializedString();
}

void AspathAttrCanonicalSerializer::serializeIntoStringForDfa(const AspathAttrCanonical* path,
                                                              Orvnet::AutonomousSystem localAs,
                                                              bool includeConfed,
                                                              Serialize& serialize) {
    if (localAs.value() != 0) serialize.addU32hton(localAs.value());
    if (!path) return;
    if (includeConfed)
        for (const StoredAsSegment& seg : path->confedPath())
            asSegmentSerializeForDfa(seg, serialize);
    for (const StoredAsSegment& seg : path->path())
        asSegmentSerializeForDfa(seg, serialize);
}

void AspathAttrCanonicalSerializer::asSegmentSerializeForDfa(AsSegmentRef segment,
                                                             Serialize& serialize) {
    if (segment.type.isSet())
        ORV_ASSERT_TEXT(segment.asCount() <= 0xff, "segment->asCount() <= 0xff");
    for (Orvnet::AutonomousSystem as : segment.as)
        serialize.addU32hton(as.value());
}

} // namespace Routing::Bgp
