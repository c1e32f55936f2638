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

// One wire segment at a time is built in a local buffer and appended with one call: the writer's
// per-value appends cost more than the encoding itself.
class WireSegment {
public:
    WireSegment(AsSegmentType type, size_t count, bool fourByte) noexcept : fourByte_(fourByte) {
        buf_[0] = uint8_t(type.value());
        buf_[1] = uint8_t(count);
    }
    // Returns true when the number went out as AS_TRANS.
    bool add(Orvnet::AutonomousSystem as) noexcept {
        uint32_t v = as.value();
        if (fourByte_) {
            buf_[len_] = uint8_t(v >> 24);
            buf_[len_ + 1] = uint8_t(v >> 16);
            buf_[len_ + 2] = uint8_t(v >> 8);
            buf_[len_ + 3] = uint8_t(v);
            len_ += 4;
            return false;
        }
        uint16_t v2 = as.as2ByteOrTrans();
        buf_[len_] = uint8_t(v2 >> 8);
        buf_[len_ + 1] = uint8_t(v2);
        len_ += 2;
        return !as.is2Byte();
    }
    void writeTo(Serialize& serialize) const { serialize.addData(buf_, len_); }

private:
    bool fourByte_;
    size_t len_ = 2;
    uint8_t buf_[2 + 0xff * 4];
};

bool sequenceSerialize(AsSegmentRef seq, bool fourByte, Orvnet::AutonomousSystem localAs,
                       Serialize& serialize) {
    bool substituted = false;
    bool localPending = localAs.value() != 0;
    size_t n = seq.as.size() + (localPending ? 1 : 0);
    auto as = seq.as.begin();
    const auto end = seq.as.end();
    while (n > 0) {
        size_t k = n < 0xff ? n : 0xff;
        n -= k;
        WireSegment w(seq.type, k, fourByte);
        if (localPending) {
            substituted |= w.add(localAs);
            localPending = false;
            --k;
        }
        for (; k > 0; --k, ++as) {
            ORV_ASSERT_TEXT(as != end, "as != seq->asRawPtr()->cend()");
            substituted |= w.add(*as);
        }
        w.writeTo(serialize);
    }
    return substituted;
}

bool setSerialize(AsSegmentRef set, bool fourByte, Serialize& serialize) {
    size_t asCount = set.as.size();
    if (asCount == 0) return false;
    ORV_ASSERT(asCount <= 0xff);
    WireSegment w(set.type, asCount, fourByte);
    bool substituted = false;
    for (Orvnet::AutonomousSystem as : set.as)
        substituted |= w.add(as);
    w.writeTo(serialize);
    return substituted;
}

// Bytes asSegmentSerialize writes for this segment (0 for a type it does not write).
size_t wireBytes(AsSegmentRef seg, bool fourByte, Orvnet::AutonomousSystem localAs) noexcept {
    size_t width = fourByte ? 4 : 2;
    size_t n = seg.as.size();
    if (seg.type.isSequence()) {
        n += localAs.value() != 0 ? 1 : 0;
        return n == 0 ? 0 : 2 * ((n + 0xfe) / 0xff) + n * width;
    }
    if (seg.type.isSet()) return n == 0 ? 0 : 2 + n * width;
    return 0;
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
    Serialize s;
    bool needAs4Path =
        serialize(path, type, confed, peerInternal, fourByte, localAs, prependOwnDisabled, s);
    return {needAs4Path, s.serializedBytes()};
}

bool AspathAttrCanonicalSerializer::serialize(const AspathAttrCanonical* path, uint8_t type,
                                              bool confed, bool peerInternal, bool fourByte,
                                              Orvnet::AutonomousSystem localAs,
                                              bool prependOwnDisabled, Serialize& s) {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: AspathAttrCanonicalSerializer::serialize()");
    ORV_ASSERT(BgpPathAttrType::asPath_ == type || BgpPathAttrType::as4Path_ == type);
    ORV_ASSERT(BgpPathAttrType::as4Path_ != type || fourByte);

    const AsSegmentType localAsSegType =
        confed ? AsSegmentType::asConfedSequence_ : AsSegmentType::asSequence_;
    AsSegmentRun confedRun = path ? path->confedPath() : AsSegmentRun();
    AsSegmentRun run = path ? path->path() : AsSegmentRun();

    bool writeConfed = true;
    Prepend prepend = Prepend::none;
    if (!peerInternal) {
        ORV_ASSERT_TEXT(localAs.value() != 0, "peerInternal");
        bool firstIsLocalType = !run.empty() && (*run.begin()).segmentType() == localAsSegType;
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
    // Into the first confederation segment; with none, into the first ordinary one instead. A
    // member AS may have aggregated into an AS_CONFED_SET, which never takes the local AS: it gets
    // a new AS_CONFED_SEQUENCE in front of it.
    if (prepend == Prepend::intoFirstConfed && confedRun.empty())
        prepend = Prepend::intoFirstOrdinary;
    else if (prepend == Prepend::intoFirstConfed &&
             (*confedRun.begin()).segmentType() == AsSegmentType::asConfedSet_)
        prepend = Prepend::newSegment;

    // Calls f(segment, local AS to prepend or 0, isOrdinary) for every segment written, in order;
    // the new segment is an empty sequence of the local-AS type with the local AS prepended.
    auto forEachWritten = [&](auto&& f) {
        if (prepend == Prepend::newSegment)
            f(AsSegmentRef(localAsSegType, AsNumbers()), localAs, true);
        if (writeConfed) {
            bool first = true;
            for (AsSegmentRef seg : confedRun) {
                Orvnet::AutonomousSystem prependAs;
                if (first && prepend == Prepend::intoFirstConfed) {
                    const AsSegmentRef* segment = &seg;
                    ORV_ASSERT(segment->segmentType() == localAsSegType);
                    prependAs = localAs;
                }
                first = false;
                f(seg, prependAs, false);
            }
        }
        bool first = true;
        for (AsSegmentRef seg : run) {
            f(seg,
              first && prepend == Prepend::intoFirstOrdinary ? localAs : Orvnet::AutonomousSystem(),
              true);
            first = false;
        }
    };

    // The value's length first, so that the header is written in place and nothing moves after.
    size_t valueLen = 0;
    forEachWritten([&](AsSegmentRef seg, Orvnet::AutonomousSystem prependAs, bool) {
        valueLen += wireBytes(seg, fourByte, prependAs);
    });
    uint8_t flags = BgpPathAttrType::as4Path_ == type
                        ? uint8_t(pathAttrFlagOptional | pathAttrFlagTransitive)
                        : pathAttrFlagTransitive;
    const size_t start = s.size();
    size_t headerLen = SerializePathAttribute(s, type, flags, valueLen);
    bool needAs4Path = false;
    forEachWritten([&](AsSegmentRef seg, Orvnet::AutonomousSystem prependAs, bool ordinary) {
        // An AS_TRANS in a confederation segment does not call for an AS4_PATH: those segments
        // never leave the confederation.
        bool substituted = asSegmentSerialize(seg, fourByte, prependAs, s);
        if (ordinary) needAs4Path |= substituted;
    });
    ORV_ASSERT(s.size() == start + headerLen + valueLen);
    return needAs4Path;
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
        for (AsSegmentRef seg : path->confedPath())
            asSegmentSerializeForDfa(seg, serialize);
    for (AsSegmentRef seg : path->path())
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
