// The wire form of a whole attribute set, shared by the inbound and outbound families.
//   serializeAttributeSet(*set, &store, true, true, true);   // one store() call per attribute
//   store.attrTypes();   // ascending: 1, 2, 3, 5, 8, ...
#pragma once

#include "OrvBgp/AspathAttrCanonicalSerializer.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/PathAttributesMembers.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"

namespace Routing::Bgp {

namespace PathAttributesWire {

// Hands attributes to the caller's sink in ascending type code, interleaving the unknown
// attributes (which may carry any type) with the known ones.
class OrderedEmitter {
public:
    OrderedEmitter(PathAttributesSerializeStoreMethodBase* store, const GunkPathAttrList* gunk)
        : store_(store), gunk_(gunk) {
        if (gunk_) next_ = gunk_->begin();
    }
    // Flushes the unknown attributes whose type is below `type`.
    void upTo(unsigned type) {
        while (gunk_ && next_ != gunk_->end() && (*next_)->attrType() < type) {
            (*next_)->serialize(*store_);
            ++next_;
        }
    }
    void emit(uint8_t type, std::span<const uint8_t> bytes) {
        upTo(type);
        store_->store(type, bytes);
    }
    void emit(uint8_t type, const Mel::Bytes& bytes) { emit(type, bytes.span()); }
    void finish() { upTo(256); }
    PathAttributesSerializeStoreMethodBase* store() { return store_; }

private:
    PathAttributesSerializeStoreMethodBase* store_;
    const GunkPathAttrList* gunk_;
    GunkPathAttrList::const_iterator next_{};
};

template <class List>
void emitList(OrderedEmitter& out, const Mel::PtrConst<List>& list) {
    if (!list) return;
    Serialize s;
    list->serialize(s);
    out.emit(List::attrType, s.span());
}

} // namespace PathAttributesWire

// The attributes of an inbound or outbound set (Set: PathAttributes or RibOutPathAttributes), in
// ascending type code. Only an inbound set has a next hop to write.
template <class Set>
void serializeAttributeSet(const Set& a, PathAttributesSerializeStoreMethodBase* store,
                           bool fourByteAsPeer, bool internalPeer, bool writeNextHop) {
    using T = BgpPathAttrType;
    auto gunk = a.gunkPathAttrListGet();
    PathAttributesWire::OrderedEmitter out(store, gunk.get());
    Serialize s;
    auto small = [&](uint8_t type, uint8_t flags, auto&& writeValue, size_t len) {
        s.clear();
        SerializePathAttribute(s, type, flags, len);
        writeValue();
        out.emit(type, s.span());
    };

    small(
        T::origin_, pathAttrFlagTransitive, [&] { s.addU8(uint8_t(a.originGet())); }, 1);

    // The AS path as held: export policy has already prepended and stripped what the peer must
    // not see, so it is written without a local AS.
    auto path = a.aspathAttrGet();
    AspathAttrCanonicalSerializeResult asPath;
    if (path) {
        asPath = AspathAttrCanonicalSerializer::serialize(path.get(), T::asPath_, false, true,
                                                          fourByteAsPeer, 0, true);
        out.emit(T::asPath_, asPath.bytes());
    }
    if constexpr (requires { a.nextHopGet(); }) {
        auto nextHop = a.nextHopGet();
        if (writeNextHop && nextHop && nextHop->addrOrNone().isV4()) {
            Orvnet::IpAddr nh = nextHop->addrOrNone().v4();
            small(
                T::nextHop_, pathAttrFlagTransitive, [&] { s.addIpv4Addr(nh); }, 4);
        }
    }
    MultiExitDiscriminator med = a.medGet();
    if (med.isSpecified())
        small(
            T::med_, pathAttrFlagOptional, [&] { s.addU32hton(med.low32()); }, 4);
    RoutingLocalPref localPref = a.localPrefGet();
    if (internalPeer && localPref.isSpecified())
        small(
            T::localPref_, pathAttrFlagTransitive, [&] { s.addU32hton(localPref.low32()); }, 4);
    if (a.atomicAggregateGet())
        small(
            T::atomicAggregate_, pathAttrFlagTransitive, [] {}, 0);
    auto aggregator = a.aggregatorGet();
    if (aggregator)
        out.emit(T::aggregator_,
                 aggregator->serialize(T::aggregator_, fourByteAsPeer, Orvnet::AutonomousSystem(),
                                       Orvnet::AutonomousSystem()));
    PathAttributesWire::emitList(out, a.commListGet());
    auto clusterList = a.clusterListGet();
    if (internalPeer && clusterList) {
        out.upTo(T::originatorId_);
        clusterList->serialize(*store);
    }
    PathAttributesWire::emitList(out, a.extCommListGet());
    if (path && !fourByteAsPeer && asPath.needAs4Path())
        out.emit(T::as4Path_, AspathAttrCanonicalSerializer::serialize(path.get(), T::as4Path_,
                                                                       false, true, true, 0, true)
                                  .bytes());
    if (aggregator && !fourByteAsPeer && !aggregator->autonomousSystem().is2Byte())
        out.emit(T::as4Aggregator_,
                 aggregator->serialize(T::as4Aggregator_, true, Orvnet::AutonomousSystem(),
                                       Orvnet::AutonomousSystem()));
    if (auto p = a.pmsiTunnelGet()) out.emit(T::pmsiTunnel_, p->serialize());
    if (auto p = a.tunnelEncapGet()) out.emit(T::tunnelEncap_, p->serialize());
    PathAttributesWire::emitList(out, a.extCommIp6ListGet());
    if (auto p = a.aigpMetricGet()) out.emit(T::aigp_, p->serialize());
    if (auto p = a.linkStateGet()) out.emit(T::linkState_, p->serialize());
    PathAttributesWire::emitList(out, a.largeCommListGet());
    if (auto p = a.domainPathGet()) out.emit(T::dPath_, p->serialize());
    if (auto p = a.prefixSidGet()) out.emit(T::prefixSid_, p->serialize());
    if (auto p = a.customerAttributeSetGet()) out.emit(T::attrSet_, p->serialize());
    out.finish();
}

} // namespace Routing::Bgp
