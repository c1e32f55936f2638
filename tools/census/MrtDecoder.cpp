#include "census/MrtDecoder.h"

#include <cstring>

namespace Census {

MrtHandler::~MrtHandler() = default;

uint64_t MalformedCounts::total() const {
    uint64_t n = 0;
    for (uint64_t c : byAction)
        n += c;
    return n;
}

namespace {

constexpr uint8_t kBgpOpen = 1;
constexpr uint8_t kBgpUpdate = 2;
constexpr uint8_t kBgpNotification = 3;
constexpr uint8_t kBgpKeepalive = 4;
constexpr uint8_t kBgpRouteRefresh = 5;
constexpr size_t kBgpHeaderSize = 19;

// Bounds-checked reading of a record body; a read past the end sets ok to false and yields zeros.
class Cursor {
public:
    explicit Cursor(std::span<const uint8_t> s) : p_(s.data()), end_(s.data() + s.size()) {}
    size_t left() const { return size_t(end_ - p_); }
    bool ok() const { return ok_; }
    bool need(size_t n) {
        if (left() < n) ok_ = false;
        return ok_;
    }
    uint8_t u8() { return need(1) ? *p_++ : 0; }
    uint16_t u16() {
        if (!need(2)) return 0;
        uint16_t v = readBe16(p_);
        p_ += 2;
        return v;
    }
    uint32_t u32() {
        if (!need(4)) return 0;
        uint32_t v = readBe32(p_);
        p_ += 4;
        return v;
    }
    uint32_t asn(uint8_t size) { return size == 2 ? u16() : u32(); }
    std::span<const uint8_t> take(size_t n) {
        if (!need(n)) return {};
        std::span<const uint8_t> s(p_, n);
        p_ += n;
        return s;
    }
    // An address of family 4 or 6 (4 or 16 bytes).
    IpAddress address(uint8_t family) {
        size_t n = family == 4 ? 4 : 16;
        if (!need(n)) return {};
        IpAddress a = family == 4 ? IpAddress::v4(p_) : IpAddress::v6(p_);
        p_ += n;
        return a;
    }
    std::span<const uint8_t> rest() {
        std::span<const uint8_t> s(p_, left());
        p_ = end_;
        return s;
    }

private:
    const uint8_t* p_;
    const uint8_t* end_;
    bool ok_ = true;
};

uint8_t familyOf(uint16_t afi) {
    return afi == kAfiIpv4 ? 4 : 6;
}

} // namespace

void MrtDecoder::decode(const MrtRecord& rec) {
    ++counts_.records;
    switch (rec.type) {
    case Mrt::kTableDump:
        ++counts_.tableDumpRecords;
        decodeTableDump(rec);
        break;
    case Mrt::kTableDumpV2:
        ++counts_.tableDumpV2Records;
        decodeTableDumpV2(rec);
        break;
    case Mrt::kBgp4mp:
    case Mrt::kBgp4mpEt:
        ++counts_.bgp4mpRecords;
        decodeBgp4mp(rec);
        break;
    default:
        ++counts_.skippedRecords;
        break;
    }
}

const DecodedAttributes& MrtDecoder::decodeAttributes(std::span<const uint8_t> section,
                                                      const AttributeContext& ctx) {
    ++counts_.attributeSets;
    const DecodedAttributes& a = attrs_.decode(section, ctx);
    for (const AttributeIssue& i : a.issues) {
        ++counts_.malformed.byAction[size_t(i.action)];
        ++counts_.malformed.byKind[size_t(i.what)];
        ++counts_.malformed.byAttributeType[i.type];
    }
    if (a.mpReach.afi && !a.mpReach.supported && a.has(AttrType::kMpReach))
        ++counts_.unsupportedAfiSafi;
    if (a.mpUnreach.afi && !a.mpUnreach.supported && a.has(AttrType::kMpUnreach))
        ++counts_.unsupportedAfiSafi;
    return a;
}

void MrtDecoder::addIssue(uint8_t type, Malformation what, ErrorAction action) {
    attrs_.addIssue(type, what, action);
    ++counts_.malformed.byAction[size_t(action)];
    ++counts_.malformed.byKind[size_t(what)];
    ++counts_.malformed.byAttributeType[type];
}

// A RIB entry needs ORIGIN and AS_PATH like any announcement, and a next hop: NEXT_HOP for an
// IPv4 prefix unless MP_REACH_NLRI carries one; an IPv6 entry may come without (dumps of sessions
// that sent it in MP_REACH_NLRI often drop that attribute). An entry without any attribute is a
// route of the dumping router itself (peer 0, AS 0), not something a peer sent: it stays usable.
void MrtDecoder::ribPath(const MrtRecord& rec, DecodedPath& path, std::span<const uint8_t> attrs,
                         const AttributeContext& ctx) {
    const DecodedAttributes& a = decodeAttributes(attrs, ctx);
    if (!attrs.empty()) {
        if (!a.has(AttrType::kOrigin))
            addIssue(AttrType::kOrigin, Malformation::MissingMandatory,
                     ErrorAction::TreatAsWithdraw);
        if (!a.has(AttrType::kAsPath))
            addIssue(AttrType::kAsPath, Malformation::MissingMandatory,
                     ErrorAction::TreatAsWithdraw);
        if (path.afi == kAfiIpv4 && !a.has(AttrType::kNextHop) && !a.has(AttrType::kMpReach))
            addIssue(AttrType::kNextHop, Malformation::MissingMandatory,
                     ErrorAction::TreatAsWithdraw);
    }
    path.record = &rec;
    path.attributes = &a;
    path.action = a.action;
    ++counts_.ribEntries;
    if (!path.usable()) ++counts_.unusablePaths;
    handler_.onPath(path);
}

void MrtDecoder::decodeTableDump(const MrtRecord& rec) {
    if (rec.subtype != Mrt::kTableDumpAfiIpv4 && rec.subtype != Mrt::kTableDumpAfiIpv6) {
        ++counts_.skippedRecords;
        return;
    }
    const uint16_t afi = rec.subtype == Mrt::kTableDumpAfiIpv4 ? kAfiIpv4 : kAfiIpv6;
    const uint8_t family = familyOf(afi);
    Cursor c(rec.body);
    c.u16(); // view
    c.u16(); // sequence
    DecodedPath path;
    path.source = PathSource::RibEntry;
    path.asnSize = 2;
    path.afi = afi;
    path.sessionAfi = afi;
    path.prefix.address = c.address(family);
    path.prefix.length = c.u8();
    c.u8(); // status
    path.originatedTime = c.u32();
    path.peer.address = c.address(family);
    path.peer.as = c.u16();
    uint16_t attrLen = c.u16();
    std::span<const uint8_t> attrs = c.take(attrLen);
    if (!c.ok() || path.prefix.length > (family == 4 ? 32 : 128)) {
        malformedRecord();
        return;
    }
    if (c.left() != 0) malformedRecord();
    ribPath(rec, path, attrs, {.asnSize = 2, .addPath = false, .ribEntry = true, .ribAfi = afi});
}

void MrtDecoder::decodeTableDumpV2(const MrtRecord& rec) {
    switch (rec.subtype) {
    case Mrt::kPeerIndexTable:
        decodePeerIndexTable(rec);
        break;
    case Mrt::kRibIpv4Unicast:
        decodeRib(rec, kAfiIpv4, kSafiUnicast, false);
        break;
    case Mrt::kRibIpv4Multicast:
        decodeRib(rec, kAfiIpv4, kSafiMulticast, false);
        break;
    case Mrt::kRibIpv6Unicast:
        decodeRib(rec, kAfiIpv6, kSafiUnicast, false);
        break;
    case Mrt::kRibIpv6Multicast:
        decodeRib(rec, kAfiIpv6, kSafiMulticast, false);
        break;
    case Mrt::kRibIpv4UnicastAddPath:
        decodeRib(rec, kAfiIpv4, kSafiUnicast, true);
        break;
    case Mrt::kRibIpv4MulticastAddPath:
        decodeRib(rec, kAfiIpv4, kSafiMulticast, true);
        break;
    case Mrt::kRibIpv6UnicastAddPath:
        decodeRib(rec, kAfiIpv6, kSafiUnicast, true);
        break;
    case Mrt::kRibIpv6MulticastAddPath:
        decodeRib(rec, kAfiIpv6, kSafiMulticast, true);
        break;
    default: // RIB_GENERIC (any AFI/SAFI) and unknown subtypes
        ++counts_.skippedRecords;
        break;
    }
}

void MrtDecoder::decodePeerIndexTable(const MrtRecord& rec) {
    ++counts_.peerIndexTables;
    peers_.clear();
    Cursor c(rec.body);
    c.u32(); // collector BGP id
    uint16_t viewLen = c.u16();
    c.take(viewLen);
    uint16_t count = c.u16();
    for (unsigned i = 0; i < count && c.ok(); ++i) {
        uint8_t peerType = c.u8();
        Peer p;
        p.bgpId = c.u32();
        p.address = c.address((peerType & 1) ? 6 : 4);
        p.as = c.asn((peerType & 2) ? 4 : 2);
        if (c.ok()) peers_.push_back(p);
    }
    // A table cut short keeps the peers read before: entries naming the lost ones are counted.
    if (!c.ok() || c.left() != 0) malformedRecord();
}

void MrtDecoder::decodeRib(const MrtRecord& rec, uint16_t afi, uint8_t safi, bool addPath) {
    const uint8_t family = familyOf(afi);
    Cursor c(rec.body);
    c.u32(); // sequence
    Prefix prefix;
    prefix.address.family = family;
    prefix.length = c.u8();
    if (!c.ok() || prefix.length > (family == 4 ? 32 : 128)) {
        malformedRecord();
        return;
    }
    std::span<const uint8_t> bits = c.take((prefix.length + 7) / 8);
    if (!bits.empty()) std::memcpy(prefix.address.bytes.data(), bits.data(), bits.size());
    uint16_t entries = c.u16();
    bool bad = !c.ok();
    bool unknownPeer = false;
    const AttributeContext ctx{.asnSize = 4, .addPath = false, .ribEntry = true, .ribAfi = afi};
    for (unsigned i = 0; i < entries && !bad; ++i) {
        uint16_t peerIndex = c.u16();
        uint32_t originated = c.u32();
        uint32_t pathId = addPath ? c.u32() : 0;
        uint16_t attrLen = c.u16();
        std::span<const uint8_t> attrs = c.take(attrLen);
        if (!c.ok()) {
            bad = true;
            break;
        }
        if (peerIndex >= peers_.size()) {
            unknownPeer = true; // the rest of the entries still frame correctly
            continue;
        }
        DecodedPath path;
        path.source = PathSource::RibEntry;
        path.addPath = addPath;
        path.asnSize = 4;
        path.afi = afi;
        path.safi = safi;
        path.originatedTime = originated;
        path.peer = peers_[peerIndex];
        path.sessionAfi = path.peer.address.isV6() ? kAfiIpv6 : kAfiIpv4;
        path.prefix = prefix;
        path.prefix.hasPathId = addPath;
        path.prefix.pathId = pathId;
        ribPath(rec, path, attrs, ctx);
    }
    if (bad || unknownPeer || c.left() != 0) malformedRecord();
}

void MrtDecoder::decodeBgp4mp(const MrtRecord& rec) {
    switch (rec.subtype) {
    case Mrt::kStateChange:
        return decodeStateChange(rec, 2);
    case Mrt::kStateChangeAs4:
        return decodeStateChange(rec, 4);
    case Mrt::kMessage:
        return decodeMessage(rec, 2, false, false);
    case Mrt::kMessageAs4:
        return decodeMessage(rec, 4, false, false);
    case Mrt::kMessageLocal:
        return decodeMessage(rec, 2, true, false);
    case Mrt::kMessageAs4Local:
        return decodeMessage(rec, 4, true, false);
    case Mrt::kMessageAddPath:
        return decodeMessage(rec, 2, false, true);
    case Mrt::kMessageAs4AddPath:
        return decodeMessage(rec, 4, false, true);
    case Mrt::kMessageLocalAddPath:
        return decodeMessage(rec, 2, true, true);
    case Mrt::kMessageAs4LocalAddPath:
        return decodeMessage(rec, 4, true, true);
    default:
        ++counts_.skippedRecords;
        return;
    }
}

void MrtDecoder::decodeStateChange(const MrtRecord& rec, uint8_t asnSize) {
    Cursor c(rec.body);
    StateChange sc;
    sc.record = &rec;
    sc.peer.as = c.asn(asnSize);
    c.asn(asnSize); // local AS
    if (c.left() == 4) {
        // Some old collectors wrote no interface, family or addresses.
        sc.sessionAfi = kAfiIpv4;
        sc.peer.address = IpAddress::v4(uint32_t(0));
    } else {
        c.u16(); // interface index
        sc.sessionAfi = c.u16();
        if (sc.sessionAfi != kAfiIpv4 && sc.sessionAfi != kAfiIpv6) {
            malformedRecord();
            return;
        }
        sc.peer.address = c.address(familyOf(sc.sessionAfi));
        c.address(familyOf(sc.sessionAfi)); // local address
    }
    sc.oldState = c.u16();
    sc.newState = c.u16();
    if (!c.ok() || c.left() != 0) {
        malformedRecord();
        return;
    }
    ++counts_.stateChanges;
    handler_.onStateChange(sc);
}

void MrtDecoder::decodeMessage(const MrtRecord& rec, uint8_t asnSize, bool local, bool addPath) {
    Cursor c(rec.body);
    DecodedUpdate u;
    u.record = &rec;
    u.addPath = addPath;
    u.localOrigin = local;
    u.asnSize = asnSize;
    u.peer.as = c.asn(asnSize);
    u.local.as = c.asn(asnSize);
    c.u16(); // interface index
    u.sessionAfi = c.u16();
    if (!c.ok() || (u.sessionAfi != kAfiIpv4 && u.sessionAfi != kAfiIpv6)) {
        malformedRecord();
        return;
    }
    u.peer.address = c.address(familyOf(u.sessionAfi));
    u.local.address = c.address(familyOf(u.sessionAfi));
    std::span<const uint8_t> marker = c.take(16);
    uint16_t msgLen = c.u16();
    uint8_t msgType = c.u8();
    auto framing = [&] {
        ++counts_.malformed.byAction[size_t(ErrorAction::SessionReset)];
        ++counts_.malformed.byKind[size_t(Malformation::MessageFraming)];
        ++counts_.malformed.byAttributeType[0];
        malformedRecord();
    };
    if (!c.ok()) {
        malformedRecord();
        return;
    }
    static const uint8_t kMarker[16] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
                                        0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    if (std::memcmp(marker.data(), kMarker, 16) != 0 || msgLen < kBgpHeaderSize ||
        size_t(msgLen) - kBgpHeaderSize > c.left()) {
        framing();
        return;
    }
    switch (msgType) {
    case kBgpUpdate:
        break;
    case kBgpOpen:
    case kBgpNotification:
    case kBgpKeepalive:
    case kBgpRouteRefresh:
        ++counts_.otherMessages;
        return;
    default:
        framing();
        return;
    }
    ++counts_.updates;
    Cursor m(c.take(size_t(msgLen) - kBgpHeaderSize));
    uint16_t wlen = m.u16();
    std::span<const uint8_t> wire = m.take(wlen);
    uint16_t alen = m.u16();
    std::span<const uint8_t> attrSection = m.take(alen);
    if (!m.ok()) {
        framing(); // a length runs past the message: nothing in it can be trusted
        return;
    }
    std::span<const uint8_t> nlriWire = m.rest();

    withdrawn_.clear();
    nlri_.clear();
    bool withdrawnOk = parsePrefixes(wire, 4, addPath, withdrawn_);
    const DecodedAttributes& a = decodeAttributes(
        attrSection, {.asnSize = asnSize, .addPath = addPath, .ribEntry = false, .ribAfi = 0});
    bool nlriOk = parsePrefixes(nlriWire, 4, addPath, nlri_);
    if (!withdrawnOk || !nlriOk) addIssue(0, Malformation::Nlri, ErrorAction::SessionReset);
    const bool announces = !nlri_.empty() || !a.mpReachPrefixes.empty() ||
                           (a.has(AttrType::kMpReach) && !a.mpReach.nlri.empty());
    if (announces) {
        if (!a.has(AttrType::kOrigin))
            addIssue(AttrType::kOrigin, Malformation::MissingMandatory,
                     ErrorAction::TreatAsWithdraw);
        if (!a.has(AttrType::kAsPath))
            addIssue(AttrType::kAsPath, Malformation::MissingMandatory,
                     ErrorAction::TreatAsWithdraw);
        if (!nlri_.empty() && !a.has(AttrType::kNextHop))
            addIssue(AttrType::kNextHop, Malformation::MissingMandatory,
                     ErrorAction::TreatAsWithdraw);
    }
    u.withdrawn = withdrawn_;
    u.nlri = nlri_;
    u.attributes = &a;
    u.action = a.action;
    handler_.onUpdate(u);

    DecodedPath path;
    path.record = &rec;
    path.addPath = addPath;
    path.asnSize = asnSize;
    path.sessionAfi = u.sessionAfi;
    path.peer = u.peer;
    path.attributes = &a;
    path.action = u.action;
    auto emit = [&](PathSource source, uint16_t afi, uint8_t safi, std::span<const Prefix> list) {
        path.source = source;
        path.afi = afi;
        path.safi = safi;
        for (const Prefix& p : list) {
            path.prefix = p;
            handler_.onPath(path);
        }
    };
    const size_t nAnnounced = nlri_.size() + a.mpReachPrefixes.size();
    counts_.withdrawals += withdrawn_.size() + a.mpUnreachPrefixes.size();
    counts_.announcements += nAnnounced;
    if (!path.usable()) counts_.unusablePaths += nAnnounced;
    emit(PathSource::WithdrawnField, kAfiIpv4, kSafiUnicast, withdrawn_);
    emit(PathSource::MpUnreach, a.mpUnreach.afi, a.mpUnreach.safi, a.mpUnreachPrefixes);
    emit(PathSource::NlriField, kAfiIpv4, kSafiUnicast, nlri_);
    emit(PathSource::MpReach, a.mpReach.afi, a.mpReach.safi, a.mpReachPrefixes);
}

FileResult readMrtFile(const std::string& path, MrtHandler& handler, size_t bufferSize) {
    FileResult r;
    MrtDecoder decoder(handler);
    try {
        MrtReader reader(InputFile::open(path), bufferSize);
        MrtRecord rec;
        while (reader.next(rec))
            decoder.decode(rec);
        r.bytes = reader.offset();
    } catch (const ReadError& e) {
        r.ok = false;
        r.error = e.what();
        r.bytes = e.offset();
    }
    r.counts = decoder.counts();
    return r;
}

} // namespace Census
