// Objects of every interned type of the library, for the reliability tests (tshark decoding,
// leaks).
//   OrvTest::SetParts parts;
//   auto set = OrvTest::fullSet(parts, 3);               // every attribute a set writes
//   { OrvTest::EveryInterned all; all.exercise(); }   // one or more of each type
#pragma once

#include "AsPath/AspathAttrCanonical.h"
#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/AspathAttrCanonicalSerializer.h"
#include "OrvBgp/AspathTestHelpers.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/ClusterList.h"
#include "OrvBgp/DomainPath.h"
#include "OrvBgp/GunkAttributes.h"
#include "OrvBgp/LinkStateAttr.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "OrvBgp/PmsiTunnel.h"
#include "OrvBgp/RibOutBgpPathAttributes.h"
#include "OrvBgp/SrTeAttributes.h"
#include "OrvBgp/Srv6ServiceTlv.h"
#include "OrvBgp/VxlanTunnelTlv.h"
#include "Routing/CommList.h"
#include "support/TsharkHelpers.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace OrvTest {

inline std::vector<uint8_t> wire(const Mel::Bytes& b) {
    return {b.begin(), b.end()};
}

inline Orvnet::IpGenAddr addr(const char* s) {
    return Orvnet::IpGenAddr::fromString(s);
}

// What a set's next hop comes from.
struct SetParts {
    Routing::Bgp::AddressNexthopDedupTable nh{Routing::Bgp::BgpVrfIdBase(0),
                                              Orvnet::AfiSafi::ipv4Unicast()};
};

// Contents holding every attribute an inbound set writes, `comms` standard communities among them.
inline Routing::Bgp::PathAttributesContents fullContents(SetParts& parts, uint32_t comms) {
    using namespace Routing::Bgp;
    PathAttributesContents c;
    c.originIs(Origin::egp);
    c.nextHopIs(parts.nh.nexthop(addr("192.0.2.44")));
    c.aspathAttrIs(aspath("70000 100 {200 300}"));
    c.medIs(MultiExitDiscriminator(10));
    c.localPrefIs(RoutingLocalPref(200));
    c.atomicAggregateIs(true);
    c.aggregatorIs(aggregatorFactory(Orvnet::AutonomousSystem(4200000000u),
                                     Orvnet::IpAddr::fromString("10.0.0.9")));
    std::vector<uint32_t> cv;
    for (uint32_t i = 0; i < comms; ++i)
        cv.push_back(0xfde80000 + i);
    c.commListIs(Routing::CommList::intern(std::span<const uint32_t>(cv)));
    c.clusterListIs(ClusterListDedupTable::instance().findOrCreate(ClusterListContent(
        Orvnet::IpAddr::fromString("192.0.2.1"), {Orvnet::IpAddr::fromString("10.0.0.1")})));
    c.extCommListIs(Routing::ExtCommList::intern({0x0002fde800000064ULL}));
    c.pmsiTunnelIs(pmsiTunnelIngressReplicationFactory(PmsiTunnel::Flags(0), 3, addr("10.0.0.1")));
    TunnelEncapContent te;
    te.tunnelTlvIs(TunnelEncapTlvUnparsed::intern(TunnelEncapTlvUnparsedContent(9, Mel::Bytes())));
    c.tunnelEncapIs(TunnelEncap::intern(te));
    c.aigpMetricIs(accumulatedIgpMetricFactory(77));
    c.largeCommListIs(Routing::LargeCommList::intern({Routing::LargeComm{65000, 1, 2}}));
    DomainPathContent dp;
    dp.domainSegmentEnq(DomainSegment(VpnDomainId(65000, 1), 0x46));
    c.domainPathIs(DomainPathDedupTable::instance().findOrCreate(dp));
    c.prefixSidIs(prefixSidFactory(labelIndexTlvFactory(5), nullptr, nullptr));
    Mel::Ptr<GunkPathAttrList> gunk(new GunkPathAttrList);
    gunk->gunkIs(GunkPathAttrDedupTable::instance().findOrCreate(
        GunkPathAttrContent(240, 0xc0, 2, Mel::Bytes{1, 2})));
    c.gunkPathAttrListIs(gunk->dedup());
    return c;
}

inline Mel::PtrConst<Routing::Bgp::PathAttributes> fullSet(SetParts& parts, uint32_t comms) {
    using namespace Routing::Bgp;
    return PathAttributesFactory(fullContents(parts, comms))
        .dedupContent(&PathAttributesDedupTable::instance());
}

// Holds objects of every interned type: sets of every tier, an outbound set, ATTR_SET, every PMSI
// class, every prefix SID TLV, tunnel encapsulation with each TLV and sub-TLV class, the four
// community lists, BGP-LS, unknown attributes and their list, next hops of both families, cluster
// id sets. exercise() runs what fills the objects' caches and writes every attribute.
struct EveryInterned {
    EveryInterned() {
        using namespace Routing::Bgp;
        using P = PmsiTunnel;
        full = fullSet(parts, 3);
        ribOut = RibOutPathAttributesFactory(fullContents(parts, 4))
                     .dedupContent(&RibOutPathAttributesDedupTable::instance());
        attrSet = attributeSetFactory(Orvnet::AutonomousSystem(65001), full);
        // One set of each smaller tier.
        PathAttributesContents base;
        auto add = [&] {
            sets.push_back(
                PathAttributesFactory(base).dedupContent(&PathAttributesDedupTable::instance()));
        };
        base.aspathAttrIs(aspath("(65010) 100 [7 8]"));
        base.nextHopIs(parts.nh.nexthop(addr("192.0.2.45")));
        add();
        base.commListIs(Routing::CommList::intern({1u, 2u}));
        add();
        base.extCommListIs(Routing::ExtCommList::intern({3ULL}));
        add();
        base.llNextHopIs(nh6.nexthop(addr("fe80::1")));
        base.extCommIp6ListIs(Routing::ExtCommIp6List::intern({Routing::ExtCommIp6{0, 2}}));
        base.linkStateIs(
            Routing::Bgp::LinkStateAttrBase::intern(bytesFromHex("04 02 00 04 72 74 72 31")));
        base.customerAttributeSetIs(attrSet);
        add();

        pmsi = {pmsiTunnelGeneralFactory(P::Flags(1), P::tunnelTypeRsvpTeP2mpLsp, 5,
                                         pmsiTunnelIdentifierFactory(bytesFromHex("0a000001"))),
                pmsiTunnelPimFactory(P::Flags(0), P::tunnelTypePimSsmTree, 0, addr("2001:db8::1"),
                                     addr("ff3e::1")),
                pmsiTunnelIngressReplicationFactory(P::Flags(0x80), 3, addr("10.0.0.1")),
                pmsiTunnelMldpP2mpGenericLspIdFactory(P::Flags(0), 9, addr("192.0.2.1"), 7)};
        prefixSid = prefixSidFactory(
            labelIndexTlvFactory(7),
            originatorSrgbTlvFactory(std::vector<SrgbRange>{SrgbRange(16000, 8000)}),
            srv6ServiceTlvFactory(
                Srv6ServiceTlvContent(true, Orvnet::Ip6Addr::fromString("2001:db8::5"), 19,
                                      Srv6SidStructureTlvContent(40, 24, 16, 0, 16, 64))));
        VxlanTunnelTlvContent vx;
        vx.endpointIs(EndpointSubTlv::intern(addr("192.0.2.1")));
        vx.colorIs(ColorSubTlv::intern(100));
        vx.unparsedSubTlvIs(UnparsedSubTlv::intern(UnparsedSubTlvContent(200, Mel::Bytes{1, 2})));
        TunnelEncapContent te;
        te.tunnelTlvIs(VxlanTunnelTlv::intern(vx));
        te.tunnelTlvIs(TunnelEncapTlvUnparsed::intern(
            TunnelEncapTlvUnparsedContent(2, Mel::Bytes{0x7f, 1, 0xaa})));
        tunnelEncap = TunnelEncap::intern(te);
        Mel::Ptr<BgpClusterIdSet> ids(new BgpClusterIdSet);
        ids->clusterIdsIs(Orvnet::IpAddr::fromString("10.0.0.1"));
        ids->clusterIdsIs(Orvnet::IpAddr::fromString("10.9.9.9"));
        clusterIds = ids->dedup();
    }

    // Loop and domain caches filled, every attribute written (to outbound peers of both kinds).
    void exercise() const {
        using namespace Routing::Bgp;
        auto cl = full->clusterListGet();
        cl->findClusterListLoop(Orvnet::IpAddr::fromString("10.0.0.1"));
        cl->findClusterListLoop(Orvnet::IpAddr::fromString("10.0.0.2"));
        cl->findClusterListLoopMulti(clusterIds.get());
        auto dp = full->domainPathGet();
        for (uint32_t i = 0; i < 12; ++i)
            dp->containsDomainId(VpnDomainId(65000, uint16_t(i)));
        for (bool fourByte : {false, true}) {
            AttrSetStringStore store;
            full->serializeInternal(&store, fourByte, !fourByte, true);
            for (const auto& s : sets)
                s->serializeInternal(&store, fourByte, fourByte, fourByte);
        }
        attrSet->serialize();
        for (const auto& p : pmsi)
            p->serialize();
        prefixSid->serialize();
        tunnelEncap->serialize();
    }

    SetParts parts;
    Routing::Bgp::AddressNexthopDedupTable nh6{Routing::Bgp::BgpVrfIdBase(0),
                                               Orvnet::AfiSafi::ipv6Unicast()};
    Mel::PtrConst<Routing::Bgp::PathAttributes> full;
    Mel::PtrConst<Routing::Bgp::RibOutPathAttributes> ribOut;
    Mel::PtrConst<Routing::Bgp::AttributeSet> attrSet;
    std::vector<Mel::PtrConst<Routing::Bgp::PathAttributes>> sets;
    std::vector<Mel::PtrConst<Routing::Bgp::PmsiTunnel>> pmsi;
    Mel::PtrConst<Routing::Bgp::PrefixSid> prefixSid;
    Mel::PtrConst<Routing::Bgp::TunnelEncap> tunnelEncap;
    Mel::PtrConst<Routing::Bgp::BgpClusterIdSet> clusterIds;
};

} // namespace OrvTest
