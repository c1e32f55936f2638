#include "census/AttributeDecoder.h"

namespace Census {

const char* errorActionName(ErrorAction a) {
    switch (a) {
    case ErrorAction::None:
        return "none";
    case ErrorAction::AttributeDiscard:
        return "attribute-discard";
    case ErrorAction::TreatAsWithdraw:
        return "treat-as-withdraw";
    case ErrorAction::SessionReset:
        return "session-reset";
    }
    return "?";
}

const char* malformationName(Malformation m) {
    switch (m) {
    case Malformation::Flags:
        return "flags";
    case Malformation::Length:
        return "length";
    case Malformation::Value:
        return "value";
    case Malformation::Duplicate:
        return "duplicate";
    case Malformation::AttributeListOverrun:
        return "attribute-list-overrun";
    case Malformation::MissingMandatory:
        return "missing-mandatory";
    case Malformation::UnrecognizedWellKnown:
        return "unrecognized-well-known";
    case Malformation::Nlri:
        return "nlri";
    case Malformation::MessageFraming:
        return "message-framing";
    }
    return "?";
}

namespace {

constexpr uint8_t kOT = AttrFlag::kOptional | AttrFlag::kTransitive;
constexpr uint32_t kAsTrans = 23456;

struct Rule {
    bool known;
    uint8_t flags;         // expected optional/transitive bits
    ErrorAction malformed; // RFC 7606 section 7, per type
};

constexpr Rule kWellKnownTaw{true, AttrFlag::kTransitive, ErrorAction::TreatAsWithdraw};
constexpr Rule kOptTransTaw{true, kOT, ErrorAction::TreatAsWithdraw};
constexpr Rule kOptTransDiscard{true, kOT, ErrorAction::AttributeDiscard};
constexpr Rule kOptNonTransTaw{true, AttrFlag::kOptional, ErrorAction::TreatAsWithdraw};

Rule ruleFor(uint8_t type) {
    switch (type) {
    case AttrType::kOrigin:
    case AttrType::kAsPath:
    case AttrType::kNextHop:
    case AttrType::kLocalPref:
        return kWellKnownTaw;
    case AttrType::kAtomicAggregate:
        return {true, AttrFlag::kTransitive, ErrorAction::AttributeDiscard};
    case AttrType::kMed:
    case AttrType::kOriginatorId:
    case AttrType::kClusterList:
        return kOptNonTransTaw;
    case AttrType::kAggregator:
    case AttrType::kAs4Path:
    case AttrType::kAs4Aggregator:
        return kOptTransDiscard;
    case AttrType::kCommunities:
    case AttrType::kExtCommunities:
    case AttrType::kIpv6ExtCommunities:
    case AttrType::kLargeCommunity:
        return kOptTransTaw;
    case AttrType::kMpReach:
    case AttrType::kMpUnreach:
        return {true, AttrFlag::kOptional, ErrorAction::SessionReset};
    case AttrType::kAigp:
        return {true, AttrFlag::kOptional, ErrorAction::AttributeDiscard};
    default:
        return {false, 0, ErrorAction::None};
    }
}

bool nonZeroMultiple(size_t len, size_t n) {
    return len > 0 && len % n == 0;
}

} // namespace

uint32_t AsPath::hopCount() const {
    uint32_t n = 0;
    for (const Segment& s : segments)
        n += (s.type == AsSegmentType::kSet || s.type == AsSegmentType::kConfedSet) ? 1 : s.count;
    return n;
}

uint32_t AsPath::pathLength() const {
    uint32_t n = 0;
    for (const Segment& s : segments)
        n += s.type == AsSegmentType::kSet ? 1 : s.type == AsSegmentType::kSequence ? s.count : 0;
    return n;
}

void AsPath::appendTo(std::string& out) const {
    bool firstSeg = true;
    for (const Segment& s : segments) {
        if (!firstSeg) out.push_back(' ');
        firstSeg = false;
        char open = 0, close = 0, sep = ' ';
        switch (s.type) {
        case AsSegmentType::kSet:
            open = '{', close = '}', sep = ',';
            break;
        case AsSegmentType::kConfedSequence:
            open = '(', close = ')';
            break;
        case AsSegmentType::kConfedSet:
            open = '[', close = ']', sep = ',';
            break;
        default:
            break;
        }
        if (open) out.push_back(open);
        bool firstAs = true;
        for (uint32_t as : asnsOf(s)) {
            if (!firstAs) out.push_back(sep);
            firstAs = false;
            out.append(std::to_string(as));
        }
        if (close) out.push_back(close);
    }
}

std::string AsPath::toString() const {
    std::string s;
    appendTo(s);
    return s;
}

bool parseAsPath(std::span<const uint8_t> wire, uint8_t asnSize, AsPath& out) {
    out.clear();
    const uint8_t* p = wire.data();
    const uint8_t* end = p + wire.size();
    while (p < end) {
        if (end - p < 2) return false;
        uint8_t type = p[0];
        uint8_t count = p[1];
        p += 2;
        if (type < AsSegmentType::kSet || type > AsSegmentType::kConfedSet || count == 0)
            return false;
        if (size_t(end - p) < size_t(count) * asnSize) return false;
        out.segments.push_back({type, uint32_t(out.asns.size()), count});
        for (unsigned i = 0; i < count; ++i, p += asnSize)
            out.asns.push_back(asnSize == 2 ? readBe16(p) : readBe32(p));
    }
    return true;
}

void DecodedAttributes::clear() {
    list.clear();
    issues.clear();
    action = ErrorAction::None;
    origin = 0;
    asPath.clear();
    as4Path.clear();
    nextHop = med = localPref = originatorId = 0;
    aggregator = as4Aggregator = Aggregator{};
    communities = {};
    clusterList = {};
    mpReach = MpReach{};
    mpUnreach = MpUnreach{};
    extCommunities = {};
    ipv6ExtCommunities = {};
    aigp = 0;
    largeCommunities = {};
    mpReachPrefixes.clear();
    mpUnreachPrefixes.clear();
    present = {};
    merged = false;
    foldedForDump = false;
    useAs4Aggregator = false;
    mergedAsPath.clear();
}

void AttributeDecoder::addIssue(uint8_t type, Malformation what, ErrorAction action) {
    a_.issues.push_back({type, what, action});
    a_.action = worse(a_.action, action);
}

const DecodedAttributes& AttributeDecoder::decode(std::span<const uint8_t> section,
                                                  const AttributeContext& ctx) {
    a_.clear();
    a_.asnSize = ctx.asnSize;
    std::array<uint64_t, 4> seen{};
    const uint8_t* p = section.data();
    const uint8_t* end = p + section.size();
    while (p < end) {
        const uint8_t* start = p;
        if (end - p < 3) {
            addIssue(0, Malformation::AttributeListOverrun, ErrorAction::TreatAsWithdraw);
            break;
        }
        uint8_t flags = p[0];
        uint8_t type = p[1];
        size_t hdr = (flags & AttrFlag::kExtendedLength) ? 4 : 3;
        if (size_t(end - p) < hdr) {
            addIssue(type, Malformation::AttributeListOverrun, ErrorAction::TreatAsWithdraw);
            break;
        }
        size_t len = hdr == 4 ? readBe16(p + 2) : p[2];
        if (size_t(end - p) - hdr < len) {
            addIssue(type, Malformation::AttributeListOverrun, ErrorAction::TreatAsWithdraw);
            break;
        }
        p += hdr + len;
        PathAttribute attr;
        attr.flags = flags;
        attr.type = type;
        attr.value = {start + hdr, len};
        attr.wire = {start, hdr + len};

        bool dup = (seen[type >> 6] >> (type & 63)) & 1;
        seen[type >> 6] |= uint64_t(1) << (type & 63);
        if (dup) {
            bool mp = type == AttrType::kMpReach || type == AttrType::kMpUnreach;
            attr.action = mp ? ErrorAction::SessionReset : ErrorAction::AttributeDiscard;
            addIssue(type, Malformation::Duplicate, attr.action);
        } else {
            decodeOne(attr, ctx);
        }
        a_.list.push_back(attr);
    }
    if (ctx.asnSize == 2) mergeAs4();
    return a_;
}

void AttributeDecoder::decodeOne(PathAttribute& attr, const AttributeContext& ctx) {
    const Rule rule = ruleFor(attr.type);
    const uint8_t type = attr.type;
    auto malformed = [&](Malformation what) {
        attr.action = rule.malformed;
        addIssue(type, what, rule.malformed);
    };
    if (!rule.known) {
        if (!(attr.flags & AttrFlag::kOptional)) {
            attr.action = ErrorAction::SessionReset;
            addIssue(type, Malformation::UnrecognizedWellKnown, ErrorAction::SessionReset);
        } else {
            a_.mark(type);
        }
        return;
    }
    if ((attr.flags & kOT) != rule.flags) return malformed(Malformation::Flags);

    const std::span<const uint8_t> v = attr.value;
    const size_t len = v.size();
    switch (type) {
    case AttrType::kOrigin:
        if (len != 1) return malformed(Malformation::Length);
        if (v[0] > 2) return malformed(Malformation::Value);
        a_.origin = v[0];
        break;
    case AttrType::kAsPath:
        if (!parseAsPath(v, ctx.asnSize, a_.asPath)) return malformed(Malformation::Value);
        break;
    case AttrType::kNextHop:
        if (len != 4) return malformed(Malformation::Length);
        a_.nextHop = readBe32(v.data());
        break;
    case AttrType::kMed:
        if (len != 4) return malformed(Malformation::Length);
        a_.med = readBe32(v.data());
        break;
    case AttrType::kLocalPref:
        if (len != 4) return malformed(Malformation::Length);
        a_.localPref = readBe32(v.data());
        break;
    case AttrType::kAtomicAggregate:
        if (len != 0) return malformed(Malformation::Length);
        break;
    case AttrType::kAggregator:
        if (len != size_t(ctx.asnSize) + 4) return malformed(Malformation::Length);
        a_.aggregator.as = ctx.asnSize == 2 ? readBe16(v.data()) : readBe32(v.data());
        a_.aggregator.address = readBe32(v.data() + ctx.asnSize);
        break;
    case AttrType::kCommunities:
        if (!nonZeroMultiple(len, 4)) return malformed(Malformation::Length);
        a_.communities.raw = v;
        break;
    case AttrType::kOriginatorId:
        if (len != 4) return malformed(Malformation::Length);
        a_.originatorId = readBe32(v.data());
        break;
    case AttrType::kClusterList:
        if (!nonZeroMultiple(len, 4)) return malformed(Malformation::Length);
        a_.clusterList.raw = v;
        break;
    case AttrType::kMpReach: {
        MpReach& m = a_.mpReach;
        size_t nhOff;
        if (ctx.ribEntry && len > 0 && v[0] != 0) {
            m.abbreviated = true;
            m.afi = ctx.ribAfi;
            m.safi = kSafiUnicast;
            m.nextHopLength = v[0];
            nhOff = 1;
            if (len < 1 + size_t(m.nextHopLength)) return malformed(Malformation::Length);
            m.nlri = {};
        } else {
            if (len < 5) return malformed(Malformation::Length);
            m.afi = readBe16(v.data());
            m.safi = v[2];
            m.nextHopLength = v[3];
            nhOff = 4;
            if (len < 5 + size_t(m.nextHopLength)) return malformed(Malformation::Length);
            m.nlri = v.subspan(5 + m.nextHopLength);
        }
        m.supported = (m.afi == kAfiIpv4 || m.afi == kAfiIpv6) &&
                      (m.safi == kSafiUnicast || m.safi == kSafiMulticast);
        if (m.supported) {
            const uint8_t* nh = v.data() + nhOff;
            switch (m.nextHopLength) {
            case 4:
                if (m.afi != kAfiIpv4 && !m.abbreviated) return malformed(Malformation::Length);
                m.nextHop = IpAddress::v4(nh);
                break;
            case 32:
                m.linkLocalNextHop = IpAddress::v6(nh + 16);
                [[fallthrough]];
            case 16:
                m.nextHop = IpAddress::v6(nh);
                break;
            default:
                return malformed(Malformation::Length);
            }
            if (!parsePrefixes(m.nlri, m.afi == kAfiIpv4 ? 4 : 6, ctx.addPath, a_.mpReachPrefixes))
                return malformed(Malformation::Nlri);
        }
        break;
    }
    case AttrType::kMpUnreach: {
        MpUnreach& m = a_.mpUnreach;
        if (len < 3) return malformed(Malformation::Length);
        m.afi = readBe16(v.data());
        m.safi = v[2];
        m.nlri = v.subspan(3);
        m.supported = (m.afi == kAfiIpv4 || m.afi == kAfiIpv6) &&
                      (m.safi == kSafiUnicast || m.safi == kSafiMulticast);
        if (m.supported &&
            !parsePrefixes(m.nlri, m.afi == kAfiIpv4 ? 4 : 6, ctx.addPath, a_.mpUnreachPrefixes))
            return malformed(Malformation::Nlri);
        break;
    }
    case AttrType::kExtCommunities:
        if (!nonZeroMultiple(len, 8)) return malformed(Malformation::Length);
        a_.extCommunities.raw = v;
        break;
    case AttrType::kAs4Path:
        if (!parseAsPath(v, 4, a_.as4Path)) {
            a_.as4Path.clear();
            return malformed(Malformation::Value);
        }
        break;
    case AttrType::kAs4Aggregator:
        if (len != 8) return malformed(Malformation::Length);
        a_.as4Aggregator.as = readBe32(v.data());
        a_.as4Aggregator.address = readBe32(v.data() + 4);
        break;
    case AttrType::kIpv6ExtCommunities:
        if (!nonZeroMultiple(len, 20)) return malformed(Malformation::Length);
        a_.ipv6ExtCommunities.raw = v;
        break;
    case AttrType::kAigp: {
        // TLVs of type, 2-byte length (header included), value; the AIGP TLV (type 1) holds an
        // 8-byte metric. Without one the attribute carries nothing usable.
        bool found = false;
        size_t off = 0;
        while (off < len) {
            if (len - off < 3) return malformed(Malformation::Length);
            uint8_t tlvType = v[off];
            size_t tlvLen = readBe16(v.data() + off + 1);
            if (tlvLen < 3 || tlvLen > len - off) return malformed(Malformation::Length);
            if (tlvType == 1) {
                if (tlvLen != 11) return malformed(Malformation::Length);
                if (!found) a_.aigp = readBe64(v.data() + off + 3);
                found = true;
            }
            off += tlvLen;
        }
        if (!found) return malformed(Malformation::Value);
        break;
    }
    case AttrType::kLargeCommunity:
        if (!nonZeroMultiple(len, 12)) return malformed(Malformation::Length);
        a_.largeCommunities.raw = v;
        break;
    default:
        break;
    }
    a_.mark(type);
}

void AttributeDecoder::mergeAs4() {
    if (a_.has(AttrType::kAggregator) && a_.has(AttrType::kAs4Aggregator)) {
        if (a_.aggregator.as != kAsTrans)
            return; // a 4-byte-unaware aggregator: the AS4 attributes are stale (RFC 6793 4.2.3)
        a_.useAs4Aggregator = true;
    }
    if (!a_.has(AttrType::kAs4Path) || !a_.has(AttrType::kAsPath)) return;
    a_.foldedForDump = a_.asPath.hopCount() >= a_.as4Path.hopCount();
    const uint32_t total = a_.asPath.pathLength();
    const uint32_t tail = a_.as4Path.pathLength();
    if (total < tail) return;
    const uint32_t keep = total - tail;
    AsPath& m = a_.mergedAsPath;
    m.clear();
    uint32_t taken = 0;
    for (const AsPath::Segment& s : a_.asPath.segments) {
        const bool confed =
            s.type == AsSegmentType::kConfedSequence || s.type == AsSegmentType::kConfedSet;
        if (!confed && taken >= keep) break;
        const bool set = s.type == AsSegmentType::kSet;
        const uint32_t n = confed || set ? s.count : std::min(s.count, keep - taken);
        m.segments.push_back({s.type, uint32_t(m.asns.size()), n});
        auto src = a_.asPath.asnsOf(s);
        m.asns.insert(m.asns.end(), src.begin(), src.begin() + n);
        if (!confed) taken += set ? 1 : n;
    }
    for (const AsPath::Segment& s : a_.as4Path.segments) {
        if (s.type == AsSegmentType::kConfedSequence || s.type == AsSegmentType::kConfedSet)
            continue;
        m.segments.push_back({s.type, uint32_t(m.asns.size()), s.count});
        auto src = a_.as4Path.asnsOf(s);
        m.asns.insert(m.asns.end(), src.begin(), src.end());
    }
    a_.merged = true;
}

} // namespace Census
