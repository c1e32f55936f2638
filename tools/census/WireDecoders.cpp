#include "census/WireDecoders.h"

#include "census/Prefix.h"

#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/VxlanTunnelTlv.h"

#include <boost/container/small_vector.hpp>

#include <cstring>

namespace Census::Wire {

using namespace Routing::Bgp;

namespace {

using Bytes = std::span<const uint8_t>;

uint32_t readBe24(const uint8_t* p) {
    return (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2];
}

// Held when the object writes back exactly the received value.
template <class T>
Result<T> verified(Mel::PtrConst<T> object, Bytes value) {
    if (!writesValue(object->serialize(), value)) return {Verdict::NotHeld, {}};
    return {Verdict::Held, std::move(object)};
}

Orvnet::IpGenAddr address(Bytes b) {
    if (b.size() == 4) return Orvnet::IpAddr::fromBytes(b.data());
    return Orvnet::Ip6Addr::fromBytes(b.data());
}

// ---- framing ----

// Type (2), length (2), value: the layout of tunnel encapsulation and BGP-LS TLVs.
template <class F>
bool forEachTlv16(Bytes v, F&& f) {
    size_t off = 0;
    while (off < v.size()) {
        if (v.size() - off < 4) return false;
        const uint16_t type = readBe16(v.data() + off);
        const size_t len = readBe16(v.data() + off + 2);
        if (v.size() - off - 4 < len) return false;
        f(type, v.subspan(off, 4 + len), v.subspan(off + 4, len));
        off += 4 + len;
    }
    return true;
}

// Type (1), length (2), value: prefix SID TLVs and SRv6 sub-TLVs.
template <class F>
bool forEachTlv8(Bytes v, F&& f) {
    size_t off = 0;
    while (off < v.size()) {
        if (v.size() - off < 3) return false;
        const uint8_t type = v[off];
        const size_t len = readBe16(v.data() + off + 1);
        if (v.size() - off - 3 < len) return false;
        if (!f(type, v.subspan(off + 3, len))) return false;
        off += 3 + len;
    }
    return true;
}

bool pmsiWellFormed(Bytes v) {
    return v.size() >= 5;
}

bool tunnelEncapWellFormed(Bytes v) {
    return forEachTlv16(v, [](uint16_t, Bytes, Bytes) {});
}

// AIGP TLVs: type (1), length (2, header included), value.
bool aigpWellFormed(Bytes v, uint64_t* metric, size_t* aigpTlvs) {
    size_t off = 0, found = 0;
    while (off < v.size()) {
        if (v.size() - off < 3) return false;
        const size_t len = readBe16(v.data() + off + 1);
        if (len < 3 || len > v.size() - off) return false;
        if (v[off] == 1) {
            if (len != 11) return false;
            if (!found && metric) *metric = readBe64(v.data() + off + 3);
            ++found;
        }
        off += len;
    }
    if (aigpTlvs) *aigpTlvs = found;
    return found > 0;
}

bool domainPathWellFormed(Bytes v) {
    size_t off = 0;
    while (off < v.size()) {
        const size_t count = v[off++];
        if (count == 0 || v.size() - off < 7 * count) return false;
        off += 7 * count;
    }
    return true;
}

// What a prefix SID value holds, framing checked; `representable` is false when it carries
// something the library's object has no place for.
struct PrefixSidParts {
    bool hasLabelIndex = false;
    uint32_t labelIndex = 0;
    Bytes srgb; // the ranges, 6 bytes each
    bool hasSrgb = false;
    bool hasSrv6 = false;
    Srv6ServiceTlvContent srv6;
    bool representable = true;
};

bool parseSrv6Service(Bytes v, bool l3, PrefixSidParts& out) {
    if (v.empty()) return false; // the reserved byte
    size_t sidInfos = 0;
    bool ok = forEachTlv8(v.subspan(1), [&](uint8_t type, Bytes sub) {
        if (type != 1) {
            out.representable = false;
            return true;
        }
        if (sub.size() < 21) return false;
        ++sidInfos;
        Srv6SidStructureTlvContent structure;
        size_t structures = 0;
        bool subOk = forEachTlv8(sub.subspan(21), [&](uint8_t t, Bytes s) {
            if (t != 1 || s.size() != 6) {
                out.representable = false;
                return true;
            }
            ++structures;
            structure = Srv6SidStructureTlvContent(s[0], s[1], s[2], s[3], s[4], s[5]);
            return true;
        });
        if (!subOk) return false;
        if (structures > 1) out.representable = false;
        out.srv6 = Srv6ServiceTlvContent(l3, Orvnet::Ip6Addr::fromBytes(sub.data() + 1),
                                         readBe16(sub.data() + 18), structure);
        return true;
    });
    if (!ok) return false;
    if (sidInfos != 1) out.representable = false;
    return true;
}

bool parsePrefixSid(Bytes v, PrefixSidParts& out) {
    return forEachTlv8(v, [&](uint8_t type, Bytes tlv) {
        switch (type) {
        case LabelIndexTlv::tlvType:
            if (tlv.size() != 7) return false;
            if (out.hasLabelIndex) out.representable = false;
            out.hasLabelIndex = true;
            out.labelIndex = readBe32(tlv.data() + 3);
            return true;
        case OriginatorSrgbTlv::tlvType:
            if (tlv.size() < 2 || (tlv.size() - 2) % 6 != 0) return false;
            if (out.hasSrgb) out.representable = false;
            out.hasSrgb = true;
            out.srgb = tlv.subspan(2);
            return true;
        case Srv6ServiceTlv::l3ServiceTlvType:
        case Srv6ServiceTlv::l2ServiceTlvType:
            if (out.hasSrv6) out.representable = false;
            out.hasSrv6 = true;
            return parseSrv6Service(tlv, type == Srv6ServiceTlv::l3ServiceTlvType, out);
        default:
            out.representable = false;
            return true;
        }
    });
}

// ---- tunnel encapsulation ----

// A VXLAN TLV as the library's object, or null when its sub-TLVs do not fit that object.
Mel::PtrConst<TunnelEncapTlvBase> vxlanTlv(Bytes value) {
    VxlanTunnelTlvContent c;
    size_t off = 0;
    bool endpoint = false, color = false;
    while (off < value.size()) {
        const uint8_t type = value[off];
        const size_t hdr = SerializedBgpTunnelEncapSubTlv::headerSize(type);
        if (value.size() - off < hdr) return {};
        const size_t len = hdr == 3 ? readBe16(value.data() + off + 1) : value[off + 1];
        if (value.size() - off - hdr < len) return {};
        const Bytes v = value.subspan(off + hdr, len);
        off += hdr + len;
        if (type == uint8_t(TunnelEncapSubTlvType::endpoint) && !endpoint && len >= 6) {
            const uint16_t af = readBe16(v.data() + 4);
            const size_t alen = af == 1 ? 4 : af == 2 ? 16 : 0;
            if ((af <= 2) && len == 6 + alen) {
                endpoint = true;
                c.endpointIs(
                    EndpointSubTlv::intern(alen ? address(v.subspan(6)) : Orvnet::IpGenAddr()));
                continue;
            }
        }
        if (type == uint8_t(TunnelEncapSubTlvType::color) && !color && len == 8 && v[0] == 0x03 &&
            v[1] == 0x0b) {
            color = true;
            c.colorIs(ColorSubTlv::intern(
                ColorSubTlvContent(readBe32(v.data() + 4), readBe16(v.data() + 2))));
            continue;
        }
        c.unparsedSubTlvIs(
            UnparsedSubTlv::intern(UnparsedSubTlvContent(type, uint16_t(len), Mel::Bytes(v))));
    }
    return VxlanTunnelTlv::intern(c);
}

} // namespace

uint8_t expectedFlags(uint8_t type) noexcept {
    switch (type) {
    case BgpPathAttrType::pmsiTunnel_:
    case BgpPathAttrType::tunnelEncap_:
    case BgpPathAttrType::dPath_:
    case BgpPathAttrType::prefixSid_:
    case BgpPathAttrType::attrSet_:
        return pathAttrFlagOptional | pathAttrFlagTransitive;
    case BgpPathAttrType::aigp_:
    case BgpPathAttrType::linkState_:
        return pathAttrFlagOptional;
    default:
        return 0xff;
    }
}

std::span<const uint8_t> attributeValue(std::span<const uint8_t> a) noexcept {
    if (a.size() < 3) return {};
    const size_t hdr = (a[0] & pathAttrFlagExtendedLength) ? 4 : 3;
    if (a.size() < hdr) return {};
    return a.subspan(hdr);
}

bool writesValue(const Mel::Bytes& attribute, std::span<const uint8_t> value) noexcept {
    const Bytes w = attributeValue(attribute.span());
    return w.size() == value.size() &&
           (value.empty() || std::memcmp(w.data(), value.data(), value.size()) == 0);
}

Result<PmsiTunnel> pmsiTunnel(Bytes v) {
    if (!pmsiWellFormed(v)) return {};
    const PmsiTunnel::Flags flags(v[0]);
    const uint8_t type = v[1];
    const uint32_t label = readBe24(v.data() + 2) >> 4;
    const Bytes id = v.subspan(5);
    Mel::PtrConst<PmsiTunnel> t;
    if (type == PmsiTunnel::tunnelTypeIngressReplication && (id.size() == 4 || id.size() == 16)) {
        t = pmsiTunnelIngressReplicationFactory(flags, label, address(id));
    } else if ((type == PmsiTunnel::tunnelTypePimSsmTree ||
                type == PmsiTunnel::tunnelTypePimSmTree ||
                type == PmsiTunnel::tunnelTypeBidirPimTree) &&
               (id.size() == 8 || id.size() == 32)) {
        const size_t half = id.size() / 2;
        t = pmsiTunnelPimFactory(flags, PmsiTunnel::TunnelType(type), label,
                                 address(id.first(half)), address(id.subspan(half)));
    } else if (type == PmsiTunnel::tunnelTypeMldpP2mpLsp && id.size() >= 4 &&
               id[0] == PmsiTunnelMldpP2mpLsp::p2mpFecElementType &&
               ((readBe16(id.data() + 1) == 1 && id[3] == 4) ||
                (readBe16(id.data() + 1) == 2 && id[3] == 16)) &&
               id.size() == 4u + id[3] + 2 + 7 && readBe16(id.data() + 4 + id[3]) == 7 &&
               id[6 + id[3]] == PmsiTunnelMldpP2mpGenericLspId::genericLspIdOpaqueType &&
               readBe16(id.data() + 7 + id[3]) == 4) {
        t = pmsiTunnelMldpP2mpGenericLspIdFactory(flags, label, address(id.subspan(4, id[3])),
                                                  readBe32(id.data() + 9 + id[3]));
    } else {
        Mel::PtrConst<PmsiTunnelIdentifier> ident;
        if (!id.empty()) ident = pmsiTunnelIdentifierFactory(id);
        t = pmsiTunnelGeneralFactory(flags, PmsiTunnel::TunnelType(type), label, ident);
    }
    return verified(std::move(t), v);
}

Result<TunnelEncap> tunnelEncap(Bytes v) {
    if (!tunnelEncapWellFormed(v)) return {};
    TunnelEncapContent c;
    forEachTlv16(v, [&](uint16_t type, Bytes whole, Bytes value) {
        Mel::PtrConst<TunnelEncapTlvBase> tlv;
        if (type == uint16_t(TunnelEncapTunnelType::vxlan)) {
            tlv = vxlanTlv(value);
            // Sub-TLVs the VXLAN object would write otherwise: keep the TLV as received.
            if (tlv && !(tlv->serialize() == Mel::Bytes(whole))) tlv = {};
        }
        if (!tlv)
            tlv = TunnelEncapTlvUnparsed::intern(
                TunnelEncapTlvUnparsedContent(type, uint16_t(value.size()), Mel::Bytes(value)));
        c.tunnelTlvIs(tlv);
    });
    Mel::PtrConst<TunnelEncap> t = TunnelEncap::intern(c);
    return verified(std::move(t), v);
}

Result<AccumulatedIgpMetric> aigp(Bytes v) {
    uint64_t metric = 0;
    size_t tlvs = 0;
    if (!aigpWellFormed(v, &metric, &tlvs)) return {};
    Mel::PtrConst<AccumulatedIgpMetric> m = accumulatedIgpMetricFactory(metric);
    return verified(std::move(m), v);
}

Result<LinkStateAttrBase> linkState(Bytes v) {
    if (!forEachTlv16(v, [](uint16_t, Bytes, Bytes) {})) return {};
    Mel::PtrConst<LinkStateAttrBase> ls = LinkStateAttrBase::intern(v);
    return verified(std::move(ls), v);
}

Result<DomainPath> domainPath(Bytes v) {
    if (!domainPathWellFormed(v)) return {};
    DomainPathContent c;
    size_t off = 0;
    while (off < v.size()) {
        const size_t count = v[off++];
        for (size_t i = 0; i < count; ++i, off += 7)
            c.domainSegmentEnq(DomainSegment(
                VpnDomainId(readBe32(v.data() + off), readBe16(v.data() + off + 4)), v[off + 6]));
    }
    if (c.domainSegmentCount() > DomainPath::maxDomainSegments) return {Verdict::NotHeld, {}};
    Mel::PtrConst<DomainPath> p = DomainPathDedupTable::instance().findOrCreate(c);
    return verified(std::move(p), v);
}

Result<PrefixSid> prefixSid(Bytes v) {
    PrefixSidParts parts;
    if (!parsePrefixSid(v, parts)) return {};
    if (!parts.representable) return {Verdict::NotHeld, {}};
    Mel::PtrConst<LabelIndexTlv> labelIndex;
    Mel::PtrConst<OriginatorSrgbTlv> srgb;
    Mel::PtrConst<Srv6ServiceTlv> srv6;
    if (parts.hasLabelIndex) labelIndex = labelIndexTlvFactory(parts.labelIndex);
    if (parts.hasSrgb) {
        boost::container::small_vector<SrgbRange, 4> ranges;
        for (size_t off = 0; off < parts.srgb.size(); off += 6)
            ranges.emplace_back(readBe24(parts.srgb.data() + off),
                                readBe24(parts.srgb.data() + off + 3));
        srgb = originatorSrgbTlvFactory(ranges);
    }
    if (parts.hasSrv6) srv6 = srv6ServiceTlvFactory(parts.srv6);
    Mel::PtrConst<PrefixSid> sid = prefixSidFactory(labelIndex, srgb, srv6);
    return verified(std::move(sid), v);
}

bool wellFormed(uint8_t type, Bytes v) {
    switch (type) {
    case BgpPathAttrType::pmsiTunnel_:
        return pmsiWellFormed(v);
    case BgpPathAttrType::tunnelEncap_:
        return tunnelEncapWellFormed(v);
    case BgpPathAttrType::aigp_:
        return aigpWellFormed(v, nullptr, nullptr);
    case BgpPathAttrType::linkState_:
        return forEachTlv16(v, [](uint16_t, Bytes, Bytes) {});
    case BgpPathAttrType::dPath_:
        return domainPathWellFormed(v);
    case BgpPathAttrType::prefixSid_: {
        PrefixSidParts parts;
        return parsePrefixSid(v, parts);
    }
    default:
        return true;
    }
}

} // namespace Census::Wire
