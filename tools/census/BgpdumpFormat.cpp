#include "census/BgpdumpFormat.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

namespace Census {

namespace {

constexpr uint32_t kAddressNone = 0xffffffff; // what the tool shows for an absent IPv4 address
constexpr size_t kAsPathTextLimit = 8000 - 100;

void appendUnsigned(std::string& out, uint64_t v) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, size_t(r.ptr - buf));
}

void appendSigned(std::string& out, int64_t v) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, size_t(r.ptr - buf));
}

// The address as the tool formats one of the given family: IPv4 fields print the first four
// bytes as a dotted quad, IPv6 fields all sixteen, whatever the address really is.
void appendAs(std::string& out, const IpAddress& a, uint8_t family) {
    if (family == 6)
        appendBgpdumpIpv6(out, a.bytes.data());
    else
        appendIpv4(out, a.v4Value());
}

void appendAddress(std::string& out, const IpAddress& a) {
    if (a.isV6())
        appendBgpdumpIpv6(out, a.bytes.data());
    else
        a.appendTo(out);
}

void appendPrefix(std::string& out, const Prefix& p) {
    appendAddress(out, p.address);
    out.push_back('/');
    appendUnsigned(out, p.length);
}

const char* originText(const DecodedAttributes& a) {
    if (!a.has(AttrType::kOrigin)) return "INCOMPLETE";
    return a.origin == 0 ? "IGP" : a.origin == 1 ? "EGP" : "INCOMPLETE";
}

// "|comm|AG|aggr|\n" tail shared by every announcement form, from after the MED field's '|'.
void appendTail(std::string& out, const DecodedAttributes& a) {
    if (a.has(AttrType::kCommunities)) {
        for (size_t i = 0; i < a.communities.size(); ++i) {
            if (i) out.push_back(' ');
            uint32_t c = a.communities[i];
            switch (c) {
            case 0xffffff01:
                out.append("no-export");
                break;
            case 0xffffff02:
                out.append("no-advertise");
                break;
            case 0xffffff03:
                out.append("local-AS");
                break;
            default:
                appendUnsigned(out, c >> 16);
                out.push_back(':');
                appendUnsigned(out, c & 0xffff);
            }
        }
    }
    out.append(a.has(AttrType::kAtomicAggregate) ? "|AG|" : "|NAG|");
    const Aggregator& g = a.effectiveAggregator();
    if (a.has(AttrType::kAggregator) && g.address != kAddressNone) {
        appendUnsigned(out, g.as);
        out.push_back(' ');
        appendIpv4(out, g.address);
    }
    out.append("|\n");
}

// The tool's own AS4_PATH folding: it takes the leading part from the first AS_PATH segment over
// and over instead of walking the segments, so a path whose first segment is shorter than that part
// shows the first segment repeated. The same as effectiveAsPath() whenever the first segment
// covers the part.
void appendAsPathField(std::string& out, const DecodedAttributes& a, AsPath& scratch) {
    if (!a.has(AttrType::kAsPath)) return;
    if (!a.foldedForDump) return appendBgpdumpAsPath(out, a.asPath);
    const uint32_t keep = a.asPath.hopCount() - a.as4Path.hopCount();
    scratch.clear();
    // keep > 0 means the AS_PATH has a first segment; an empty one (with an empty AS4_PATH) has
    // nothing to take.
    for (uint32_t taken = 0; taken < keep;) {
        const AsPath::Segment& first = a.asPath.segments.front();
        const bool set =
            first.type == AsSegmentType::kSet || first.type == AsSegmentType::kConfedSet;
        uint32_t n = set ? first.count : std::min(first.count, keep - taken);
        auto src = a.asPath.asnsOf(first);
        scratch.segments.push_back({first.type, uint32_t(scratch.asns.size()), n});
        scratch.asns.insert(scratch.asns.end(), src.begin(), src.begin() + n);
        taken += set ? 1 : n;
    }
    for (const AsPath::Segment& s : a.as4Path.segments) {
        auto src = a.as4Path.asnsOf(s);
        scratch.segments.push_back({s.type, uint32_t(scratch.asns.size()), s.count});
        scratch.asns.insert(scratch.asns.end(), src.begin(), src.end());
    }
    appendBgpdumpAsPath(out, scratch);
}

uint32_t localPrefOf(const DecodedAttributes& a) {
    return a.has(AttrType::kLocalPref) ? a.localPref : 0;
}
uint32_t medOf(const DecodedAttributes& a) {
    return a.has(AttrType::kMed) ? a.med : 0;
}

// The tool's next hop of a RIB entry: the IPv6 one from an MP_REACH_NLRI it reads as IPv6
// unicast (the abbreviated form always), else NEXT_HOP, else the all-ones address.
void appendRibNextHop(std::string& out, const DecodedAttributes& a) {
    const MpReach& m = a.mpReach;
    if (a.has(AttrType::kMpReach) &&
        (m.abbreviated || (m.afi == kAfiIpv6 && m.safi == kSafiUnicast))) {
        appendAs(out, m.nextHop, 6);
        return;
    }
    appendIpv4(out, a.has(AttrType::kNextHop) ? a.nextHop : kAddressNone);
}

} // namespace

void appendBgpdumpIpv6(std::string& out, const uint8_t* b) {
    uint16_t w[8];
    for (int i = 0; i < 8; ++i)
        w[i] = uint16_t((b[2 * i] << 8) | b[2 * i + 1]);
    int bestBase = -1, bestLen = 0;
    for (int i = 0; i < 8;) {
        if (w[i]) {
            ++i;
            continue;
        }
        int j = i;
        while (j < 8 && w[j] == 0)
            ++j;
        if (j - i > bestLen) bestBase = i, bestLen = j - i;
        i = j;
    }
    if (bestBase == 0 &&
        (bestLen == 6 || (bestLen == 7 && w[7] != 1) || (bestLen == 5 && w[5] == 0xffff))) {
        out.append(bestLen == 5 ? "::ffff:" : "::");
        appendIpv4(out, readBe32(b + 12));
        return;
    }
    static constexpr char kHex[] = "0123456789abcdef";
    char buf[40];
    char* p = buf;
    for (int i = 0; i < 8;) {
        if (i == bestBase) {
            *p++ = ':';
            *p++ = ':';
            i += bestLen;
            continue;
        }
        if (i && i != bestBase + bestLen) *p++ = ':';
        int shift = 12;
        while (shift && !(w[i] >> shift))
            shift -= 4;
        for (; shift >= 0; shift -= 4)
            *p++ = kHex[(w[i] >> shift) & 0xf];
        ++i;
    }
    out.append(buf, size_t(p - buf));
}

void appendBgpdumpAsPath(std::string& out, const AsPath& path) {
    const size_t start = out.size();
    uint8_t prevType = AsSegmentType::kSequence;
    bool space = false;
    for (const AsPath::Segment& s : path.segments) {
        const bool set = s.type == AsSegmentType::kSet || s.type == AsSegmentType::kConfedSet;
        if (prevType != AsSegmentType::kSequence)
            out.push_back(prevType == AsSegmentType::kSet         ? '}'
                          : prevType == AsSegmentType::kConfedSet ? ']'
                                                                  : ')');
        if (space) out.push_back(' ');
        if (s.type != AsSegmentType::kSequence)
            out.push_back(s.type == AsSegmentType::kSet         ? '{'
                          : s.type == AsSegmentType::kConfedSet ? '['
                                                                : '(');
        space = false;
        for (uint32_t as : path.asnsOf(s)) {
            if (space) out.push_back(set ? ',' : ' ');
            space = true;
            appendUnsigned(out, as);
            if (out.size() - start > kAsPathTextLimit) {
                out.append("...");
                return;
            }
        }
        prevType = s.type;
    }
    if (!path.segments.empty() && prevType != AsSegmentType::kSequence)
        out.push_back(prevType == AsSegmentType::kSet         ? '}'
                      : prevType == AsSegmentType::kConfedSet ? ']'
                                                              : ')');
}

BgpdumpFormatter::~BgpdumpFormatter() {
    flush();
}

void BgpdumpFormatter::flush() {
    if (sink_ && !out_.empty()) {
        if (std::fwrite(out_.data(), 1, out_.size(), sink_) != out_.size() && !writeError_)
            writeError_ = errno ? errno : EIO;
        out_.clear();
    }
}

void BgpdumpFormatter::header(const MrtRecord& rec, bool addPath, bool local, const char* kind) {
    const bool et = rec.type == Mrt::kBgp4mpEt;
    if (rec.type == Mrt::kBgp4mp || et) {
        out_.append(et ? "BGP4MP_ET" : "BGP4MP");
        if (local) out_.append("_LOCAL");
        if (addPath) out_.append("_AP");
    } else if (rec.type == Mrt::kTableDump) {
        out_.append("TABLE_DUMP");
    } else {
        out_.append(addPath ? "TABLE_DUMP2_AP" : "TABLE_DUMP2");
    }
    out_.push_back('|');
    appendUnsigned(out_, rec.timestamp);
    if (et) {
        // The field as it arrived, at least six digits: a value past 999999 prints whole.
        char buf[16];
        std::snprintf(buf, sizeof buf, ".%06u", unsigned(rec.microseconds));
        out_.append(buf);
    }
    out_.push_back('|');
    out_.append(kind);
    out_.push_back('|');
}

void BgpdumpFormatter::onPath(const DecodedPath& p) {
    const MrtRecord& rec = *p.record;
    const DecodedAttributes& a = *p.attributes;
    const bool local = rec.subtype == Mrt::kMessageLocal || rec.subtype == Mrt::kMessageAs4Local ||
                       rec.subtype == Mrt::kMessageLocalAddPath ||
                       rec.subtype == Mrt::kMessageAs4LocalAddPath;
    const uint8_t sessionFamily = p.sessionAfi == kAfiIpv6 ? 6 : 4;

    if (p.source == PathSource::RibEntry) {
        if (rec.type == Mrt::kTableDumpV2 && p.safi != kSafiUnicast) return;
        header(rec, p.addPath, false, "B");
        appendAddress(out_, p.peer.address);
        out_.push_back('|');
        appendUnsigned(out_, p.peer.as);
        out_.push_back('|');
        appendPrefix(out_, p.prefix);
        out_.push_back('|');
        if (p.addPath) {
            appendUnsigned(out_, p.prefix.pathId);
            out_.push_back('|');
        }
        appendAsPathField(out_, a, scratch_);
        out_.push_back('|');
        out_.append(originText(a));
        out_.push_back('|');
        appendRibNextHop(out_, a);
        out_.push_back('|');
        appendUnsigned(out_, localPrefOf(a));
        out_.push_back('|');
        appendUnsigned(out_, medOf(a));
        out_.push_back('|');
        appendTail(out_, a);
        ++lines_;
        maybeFlush();
        return;
    }

    header(rec, p.addPath, local, p.withdrawal() ? "W" : "A");
    // A sent message's v6 withdrawals on a v4 session show the address as IPv6; the tool's quirk.
    uint8_t peerFamily = sessionFamily;
    if (p.source == PathSource::MpUnreach && p.afi == kAfiIpv6 && local) peerFamily = 6;
    appendAs(out_, p.peer.address, peerFamily);
    out_.push_back('|');
    appendUnsigned(out_, p.peer.as);
    out_.push_back('|');
    appendPrefix(out_, p.prefix);
    if (p.withdrawal()) {
        if (p.addPath) {
            out_.push_back('|');
            appendUnsigned(out_, p.prefix.pathId);
        }
        out_.push_back('\n');
        ++lines_;
        maybeFlush();
        return;
    }
    out_.push_back('|');
    if (p.addPath) {
        appendUnsigned(out_, p.prefix.pathId);
        out_.push_back('|');
    }
    appendAsPathField(out_, a, scratch_);
    out_.push_back('|');
    out_.append(originText(a));
    out_.push_back('|');
    if (p.source == PathSource::NlriField) {
        appendIpv4(out_, a.has(AttrType::kNextHop) ? a.nextHop : kAddressNone);
        out_.push_back('|');
        appendUnsigned(out_, localPrefOf(a));
        out_.push_back('|');
        appendUnsigned(out_, medOf(a));
    } else if (p.afi == kAfiIpv4) {
        // The tool prints these two signed for IPv4 prefixes in MP_REACH_NLRI.
        appendAs(out_, a.mpReach.nextHop, 4);
        out_.push_back('|');
        appendSigned(out_, int32_t(localPrefOf(a)));
        out_.push_back('|');
        appendSigned(out_, int32_t(medOf(a)));
    } else {
        appendAs(out_, a.mpReach.nextHop, 6);
        out_.push_back('|');
        appendUnsigned(out_, localPrefOf(a));
        out_.push_back('|');
        appendUnsigned(out_, medOf(a));
    }
    out_.push_back('|');
    appendTail(out_, a);
    ++lines_;
    maybeFlush();
}

void BgpdumpFormatter::onStateChange(const StateChange& s) {
    const MrtRecord& rec = *s.record;
    header(rec, false, false, "STATE");
    appendAs(out_, s.peer.address, s.sessionAfi == kAfiIpv6 ? 6 : 4);
    out_.push_back('|');
    appendUnsigned(out_, s.peer.as);
    out_.push_back('|');
    appendUnsigned(out_, s.oldState);
    out_.push_back('|');
    appendUnsigned(out_, s.newState);
    out_.push_back('\n');
    ++lines_;
    maybeFlush();
}

} // namespace Census
