#include "census/RoundTrip.h"

#include "census/ContentsBuilder.h"
#include "census/WireDecoders.h"

#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"

#include <cstring>

namespace Census {

using Routing::Bgp::BgpPathAttrType;

const char* roundTripReasonName(RoundTripReason r) {
    switch (r) {
    case RoundTripReason::PartialBit:
        return "partial-bit";
    case RoundTripReason::ExtendedLength:
        return "extended-length";
    case RoundTripReason::As4Folding:
        return "as4-folding";
    case RoundTripReason::Duplicate:
        return "duplicate";
    case RoundTripReason::Discarded:
        return "discarded";
    case RoundTripReason::NextHopOfOtherFamily:
        return "next-hop-of-other-family";
    case RoundTripReason::UnusedFlagBits:
        return "unused-flag-bits";
    }
    return "?";
}

std::string attributeTypeName(uint8_t type) {
    const char* name = pathAttributeTypeName(type);
    return name ? std::string(name) : "type " + std::to_string(type);
}

uint64_t RoundTripCounts::PerType::explainedTotal() const noexcept {
    uint64_t n = 0;
    for (uint64_t e : explained)
        n += e;
    return n;
}

uint64_t RoundTripCounts::matched() const noexcept {
    uint64_t n = 0;
    for (const PerType& t : byType)
        n += t.matched;
    return n;
}

uint64_t RoundTripCounts::mismatched() const noexcept {
    uint64_t n = 0;
    for (const PerType& t : byType)
        n += t.mismatched;
    return n;
}

uint64_t RoundTripCounts::explained() const noexcept {
    uint64_t n = 0;
    for (const PerType& t : byType)
        n += t.explainedTotal();
    return n;
}

uint64_t RoundTripCounts::explained(RoundTripReason r) const noexcept {
    uint64_t n = 0;
    for (const PerType& t : byType)
        n += t.explained[size_t(r)];
    return n;
}

void RoundTripCounts::merge(const RoundTripCounts& o) {
    paths += o.paths;
    emptySections += o.emptySections;
    notWritable += o.notWritable;
    for (size_t i = 0; i < byType.size(); ++i) {
        byType[i].matched += o.byType[i].matched;
        byType[i].mismatched += o.byType[i].mismatched;
        for (size_t r = 0; r < kRoundTripReasonCount; ++r)
            byType[i].explained[r] += o.byType[i].explained[r];
    }
    for (const Sample& s : o.samples) {
        if (samples.size() >= kMaxSamples) break;
        samples.push_back(s);
    }
}

std::string RoundTripCounts::toString() const {
    std::string out;
    if (notWritable)
        out += "not writable (an attribute past 65535 bytes): " + std::to_string(notWritable) +
               " sets\n";
    for (size_t i = 0; i < byType.size(); ++i) {
        const PerType& t = byType[i];
        const uint64_t explainedN = t.explainedTotal();
        if (!t.matched && !t.mismatched && !explainedN) continue;
        out += "type " + std::to_string(i) + " " + attributeTypeName(uint8_t(i)) + ": matched " +
               std::to_string(t.matched) + ", mismatched " + std::to_string(t.mismatched) +
               ", explained " + std::to_string(explainedN);
        if (explainedN) {
            out += " (";
            bool first = true;
            for (size_t r = 0; r < kRoundTripReasonCount; ++r) {
                if (!t.explained[r]) continue;
                if (!first) out += ", ";
                first = false;
                out += roundTripReasonName(RoundTripReason(r));
                out += " " + std::to_string(t.explained[r]);
            }
            out += ")";
        }
        out += "\n";
    }
    return out;
}

// Gathers the attributes the set writes, back to back in one reused buffer, with the first of
// each type indexed.
class RoundTrip::Sink : public Routing::Bgp::PathAttributesSerializeStoreMethodBase {
public:
    struct Written {
        uint32_t offset;
        uint32_t size;
        uint8_t type;
    };

    void reset() {
        bytes.clear();
        written.clear();
        std::memset(first.data(), 0xff, sizeof(first));
    }
    void storeAttribute(uint8_t attrType, std::span<const uint8_t> attribute) override {
        if (first[attrType] == 0xffff) first[attrType] = uint16_t(written.size());
        written.push_back({uint32_t(bytes.size()), uint32_t(attribute.size()), attrType});
        bytes.insert(bytes.end(), attribute.begin(), attribute.end());
    }
    // Indexes a wire form kept by formOf (attributes back to back, as storeAttribute got them),
    // as though it had just been written: a set is written once however its paths compare.
    void index(const std::vector<uint8_t>& form) {
        reset();
        base = form.data();
        const size_t n = form.size();
        for (size_t at = 0; at + 3 <= n;) {
            const uint8_t flags = form[at], type = form[at + 1];
            const bool extended = flags & 0x10;
            if (extended && at + 4 > n) break;
            const size_t size = extended ? 4 + (size_t(form[at + 2]) << 8 | form[at + 3])
                                         : 3 + size_t(form[at + 2]);
            if (at + size > n) break;
            if (first[type] == 0xffff) first[type] = uint16_t(written.size());
            written.push_back({uint32_t(at), uint32_t(size), type});
            at += size;
        }
    }
    std::span<const uint8_t> at(const Written& w) const { return {base + w.offset, w.size}; }

    // The whole wire form of set as written for one session kind (variant), kept for the sets
    // seen last: a set is immutable, so it is written once and every path received with it is
    // compared with the same bytes. Each entry holds a reference on its set, so that its address
    // cannot come back as another set's.
    const std::vector<uint8_t>& formOf(const Routing::Bgp::PathAttributes& set, bool asn4,
                                       bool nextHop) {
        const uint8_t variant = uint8_t(asn4) | uint8_t(nextHop) << 1;
        const size_t slot = size_t((uintptr_t(&set) >> 3) * 0x9e3779b97f4a7c15ULL >> 54) ^ variant;
        Form& f = forms[slot % forms.size()];
        if (f.set.get() != &set || f.variant != variant) {
            reset();
            set.serializeInternal(this, asn4, true, nextHop);
            // The set pushed out is released kReleaseLag pushes later, its count prefetched now.
            Mel::PtrConst<Routing::Bgp::PathAttributes>& gone =
                releasing[releaseAt++ % releasing.size()];
            gone = std::move(f.set);
            __builtin_prefetch(gone.get(), 1);
            f.set = Mel::PtrConst<Routing::Bgp::PathAttributes>(&set);
            f.variant = variant;
            f.bytes.assign(bytes.begin(), bytes.end());
        }
        return f.bytes;
    }
    void formsClear() {
        for (Form& f : forms)
            f = Form();
        releasing.fill(nullptr);
    }

    std::vector<uint8_t> bytes;
    const uint8_t* base = nullptr; // the form written indexes
    std::vector<Written> written;
    std::array<uint16_t, 256> first{};
    AttributeDecoder inner; // to tell a malformed ATTR_SET

private:
    struct Form {
        Mel::PtrConst<Routing::Bgp::PathAttributes> set;
        uint8_t variant = 0;
        std::vector<uint8_t> bytes;
    };
    std::array<Form, 1024> forms;
    std::array<Mel::PtrConst<Routing::Bgp::PathAttributes>, 8> releasing{};
    size_t releaseAt = 0;
};

RoundTrip::RoundTrip() : sink_(new Sink) {}
RoundTrip::~RoundTrip() = default;

void RoundTrip::formsClear() {
    sink_->formsClear();
}

namespace {

std::string hex(std::span<const uint8_t> b) {
    static const char* digits = "0123456789abcdef";
    std::string s;
    s.reserve(b.size() * 2);
    for (uint8_t x : b) {
        s.push_back(digits[x >> 4]);
        s.push_back(digits[x & 15]);
    }
    return s;
}

bool sameBytes(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size()) == 0);
}

} // namespace

void RoundTrip::check(const DecodedPath& path, const Routing::Bgp::PathAttributes& set) {
    using T = BgpPathAttrType;
    ++counts_.paths;
    if (!path.attributes || path.attributes->list.empty()) {
        ++counts_.emptySections;
        return;
    }
    const DecodedAttributes& a = *path.attributes;
    bool nextHopArrived = false, as4Arrived = false, mp = false, contiguous = true;
    const uint8_t* end = a.list.front().wire.data();
    for (const PathAttribute& attr : a.list) {
        nextHopArrived |= attr.type == T::nextHop_;
        as4Arrived |= attr.type == T::as4Path_ || attr.type == T::as4Aggregator_;
        mp |= attr.type == T::mpReachNlri_ || attr.type == T::mpUnreachNlri_;
        contiguous &= attr.wire.data() == end;
        end = attr.wire.data() + attr.wire.size();
    }
    Sink& sink = *sink_;
    const std::vector<uint8_t>* form = nullptr;
    try {
        form = &sink.formOf(set, path.asnSize == 4, nextHopArrived);
    } catch (const PathAttributeTooLongException&) {
        ++counts_.notWritable;
        return;
    }
    // Most paths arrive exactly as the set is written (MP_REACH_NLRI and MP_UNREACH_NLRI left
    // out): then every attribute matches, and the attribute-by-attribute comparison below has
    // nothing to explain.
    bool same;
    if (contiguous && !mp) {
        const uint8_t* begin = a.list.front().wire.data();
        same = sameBytes({begin, size_t(end - begin)}, *form);
    } else {
        size_t at = 0;
        same = true;
        for (const PathAttribute& attr : a.list) {
            if (attr.type == T::mpReachNlri_ || attr.type == T::mpUnreachNlri_) continue;
            same = at + attr.wire.size() <= form->size() &&
                   sameBytes(attr.wire, {form->data() + at, attr.wire.size()});
            if (!same) break;
            at += attr.wire.size();
        }
        same = same && at == form->size();
    }
    if (same) {
        for (const PathAttribute& attr : a.list)
            if (attr.type != T::mpReachNlri_ && attr.type != T::mpUnreachNlri_)
                ++counts_.byType[attr.type].matched;
        return;
    }
    sink.index(*form);

    const bool mpNextHop = nextHopFromMpReach(path);
    auto explain = [&](uint8_t type, RoundTripReason r) {
        ++counts_.byType[type].explained[size_t(r)];
    };
    auto mismatch = [&](uint8_t type, std::span<const uint8_t> received,
                        std::span<const uint8_t> written) {
        ++counts_.byType[type].mismatched;
        if (counts_.samples.size() < RoundTripCounts::kMaxSamples)
            counts_.samples.push_back(
                {type, path.record ? path.record->offset : 0, hex(received), hex(written)});
    };
    // Whether an attribute that was not written back was dropped on receipt as malformed.
    auto discardedOnReceipt = [&](const PathAttribute& attr) {
        if (attr.action != ErrorAction::None) return true;
        const uint8_t expected = Wire::expectedFlags(attr.type);
        if (expected != 0xff && (attr.flags & 0xc0) != expected) return true;
        if (attr.type == T::attrSet_) {
            if (attr.value.size() < 4) return true;
            AttributeContext ctx;
            ctx.asnSize = 4;
            return sink.inner.decode(attr.value.subspan(4), ctx).action >=
                   ErrorAction::TreatAsWithdraw;
        }
        return !Wire::wellFormed(attr.type, attr.value);
    };

    std::array<uint64_t, 4> seen{};
    for (const PathAttribute& attr : a.list) {
        const uint8_t type = attr.type;
        if (type == T::mpReachNlri_ || type == T::mpUnreachNlri_) continue;
        const uint64_t bit = uint64_t(1) << (type & 63);
        if (seen[type >> 6] & bit) {
            explain(type, RoundTripReason::Duplicate);
            continue;
        }
        seen[type >> 6] |= bit;

        if (sink.first[type] == 0xffff) {
            if (discardedOnReceipt(attr))
                explain(type, RoundTripReason::Discarded);
            else if ((type == T::as4Path_ || type == T::as4Aggregator_) && as4Arrived)
                explain(type, RoundTripReason::As4Folding);
            else if (type == T::nextHop_ && mpNextHop)
                explain(type, RoundTripReason::NextHopOfOtherFamily);
            else
                mismatch(type, attr.wire, {});
            continue;
        }
        const std::span<const uint8_t> w = sink.at(sink.written[sink.first[type]]);
        if (sameBytes(attr.wire, w)) {
            ++counts_.byType[type].matched;
            continue;
        }
        const uint8_t rf = attr.flags, wf = w[0];
        if (sameBytes(attr.value, Wire::attributeValue(w)) && ((rf ^ wf) & 0xc0) == 0) {
            const uint8_t diff = rf ^ wf;
            if (diff & 0x20) {
                explain(type, RoundTripReason::PartialBit);
                continue;
            }
            if ((diff & 0x10) && attr.value.size() < 256) {
                explain(type, RoundTripReason::ExtendedLength);
                continue;
            }
            if ((diff & 0x1f) == (rf & 0x0f)) {
                explain(type, RoundTripReason::UnusedFlagBits);
                continue;
            }
        }
        // Folding changes values, never the optional and transitive bits.
        if (as4Arrived && ((rf ^ wf) & 0xc0) == 0 &&
            (type == T::asPath_ || type == T::aggregator_ || type == T::as4Path_ ||
             type == T::as4Aggregator_)) {
            explain(type, RoundTripReason::As4Folding);
            continue;
        }
        if (type == T::nextHop_ && mpNextHop) {
            explain(type, RoundTripReason::NextHopOfOtherFamily);
            continue;
        }
        mismatch(type, attr.wire, w);
    }
    // What was written without having arrived.
    for (const Sink::Written& wr : sink.written) {
        const uint8_t type = wr.type;
        if (seen[type >> 6] & (uint64_t(1) << (type & 63))) {
            if (&wr != &sink.written[sink.first[type]]) mismatch(type, {}, sink.at(wr));
            continue;
        }
        if ((type == T::as4Path_ || type == T::as4Aggregator_) && as4Arrived &&
            (sink.at(wr)[0] & 0xc0) == 0xc0)
            explain(type, RoundTripReason::As4Folding);
        else
            mismatch(type, {}, sink.at(wr));
    }
}

} // namespace Census
