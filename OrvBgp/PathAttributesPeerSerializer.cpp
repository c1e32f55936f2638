#define ORV_UNIT "OrvBgp/PathAttributesPeerSerializer"

#include "OrvBgp/PathAttributesPeerSerializer.h"

#include "Keel/Assert.h"
#include "Mel/Reflect.h"
#include "OrvBgp/AspathAttrCanonicalSerializer.h"
#include "OrvBgp/AttributeSetEmitter.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/ClusterList.h"
#include "OrvBgp/DomainPath.h"
#include "OrvBgp/GunkAttributes.h"
#include "OrvBgp/LinkStateAttr.h"
#include "OrvBgp/OrvBgpNexthop.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "OrvBgp/PmsiTunnel.h"
#include "OrvBgp/SrTeAttributes.h"
#include "Tracelet/Tracelet.h"

namespace Routing::Bgp {

std::string PathAttributesPeer::toStrep() const {
    return Mel::valueToStrep(*this);
}

namespace {

using PeerEmitter = detail::AttributeSetEmitter;

// Appends each attribute to the agent's byte writer.
class AppendStore : public PathAttributesSerializeStoreMethodBase {
public:
    explicit AppendStore(Serialize& out) : out_(out) {}

protected:
    void storeAttribute(uint8_t, std::span<const uint8_t> attribute) override {
        out_.addData(attribute);
    }

private:
    Serialize& out_;
};

// AS4_PATH: the ordinary segments in 4-byte form. Toward an external peer outside the
// confederation with the local AS where AS_PATH has it; toward internal and confederation peers
// as held (their AS_PATH puts the local AS, if anywhere, into a confederation segment).
void as4Path(PeerEmitter& out, const AspathAttrCanonical* path, const PathAttributesPeer& peer) {
    using T = BgpPathAttrType;
    Serialize& s = out.fresh();
    if (!peer.internal() && !peer.confedPeer()) {
        AspathAttrCanonicalSerializer::serialize(path, T::as4Path_, false, false, true,
                                                 peer.advertisedAs(), peer.prependOwnDisabled(), s);
    } else {
        Serialize value;
        if (path)
            for (AsSegmentRef seg : path->path())
                AspathAttrCanonicalSerializer::asSegmentSerialize(seg, true, 0, value);
        SerializePathAttribute(s, T::as4Path_, pathAttrFlagOptional | pathAttrFlagTransitive,
                               value.size());
        s.addData(value.span());
    }
    out.emitBuffer(T::as4Path_);
}

} // namespace

void PathAttributesPeerSerializer::serialize(const PathAttributesInterface& set,
                                             const PathAttributesPeer& peer,
                                             PathAttributesSerializeStoreMethodBase& store) {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: PathAttributesPeerSerializer::serialize()");
    using T = BgpPathAttrType;
    PathAttributesView a;
    set.viewGet(a);
    PeerEmitter out(store, a.gunkPathAttrList);
    const bool fourByte = peer.fourByteAs();

    out.begin(T::origin_, pathAttrFlagTransitive, 1).addU8(uint8_t(a.origin()));
    out.emitBuffer(T::origin_);

    const bool needAs4Path = AspathAttrCanonicalSerializer::serialize(
        a.aspathAttr, T::asPath_, peer.confedPeer(), peer.internal(), fourByte,
        peer.confedPeer() ? peer.localAs() : peer.advertisedAs(), peer.prependOwnDisabled(),
        out.fresh());
    out.emitBuffer(T::asPath_);

    Orvnet::IpAddr nextHop;
    bool writeNextHop = false;
    if (peer.nextHopMode() == PathAttributesPeer::NextHop::address) {
        nextHop = peer.nextHop();
        writeNextHop = true;
    } else if (peer.nextHopMode() == PathAttributesPeer::NextHop::fromSet && a.nextHop &&
               a.nextHop->addrOrNone().isV4()) {
        nextHop = a.nextHop->addrOrNone().v4();
        writeNextHop = true;
    }
    if (writeNextHop) {
        out.begin(T::nextHop_, pathAttrFlagTransitive, 4).addIpv4Addr(nextHop);
        out.emitBuffer(T::nextHop_);
    }
    if (a.medSpecified()) {
        out.begin(T::med_, pathAttrFlagOptional, 4).addU32hton(a.medStorage);
        out.emitBuffer(T::med_);
    }
    if (peer.seesLocalPref() && a.localPrefSpecified()) {
        out.begin(T::localPref_, pathAttrFlagTransitive, 4).addU32hton(a.localPrefStorage);
        out.emitBuffer(T::localPref_);
    }
    if (a.atomicAggregate()) {
        out.begin(T::atomicAggregate_, pathAttrFlagTransitive, 0);
        out.emitBuffer(T::atomicAggregate_);
    }
    // Our member AS stands for the whole confederation outside it.
    const bool replaceMember = peer.advertisedAs() != peer.localAs();
    const Orvnet::AutonomousSystem replacement = replaceMember ? peer.advertisedAs() : 0;
    const Orvnet::AutonomousSystem matched = replaceMember ? peer.localAs() : 0;
    if (a.aggregator) {
        a.aggregator->serialize(T::aggregator_, fourByte, replacement, matched, out.fresh());
        out.emitBuffer(T::aggregator_);
    }
    out.list(a.commList);
    if (peer.internal() && a.clusterList) {
        out.upTo(T::originatorId_);
        a.clusterList->serialize(out.store());
    }
    out.list(a.extCommList);
    if (!fourByte && needAs4Path) as4Path(out, a.aspathAttr, peer);
    if (a.aggregator && !fourByte) {
        const Orvnet::AutonomousSystem as = a.aggregator->autonomousSystem() == matched
                                                ? replacement
                                                : a.aggregator->autonomousSystem();
        if (!as.is2Byte()) {
            a.aggregator->serialize(T::as4Aggregator_, true, replacement, matched, out.fresh());
            out.emitBuffer(T::as4Aggregator_);
        }
    }
    detail::emitTrailingAttributes(a, out);
}

void PathAttributesPeerSerializer::serialize(const PathAttributesInterface& set,
                                             const PathAttributesPeer& peer, Serialize& out) {
    AppendStore store(out);
    serialize(set, peer, store);
}

} // namespace Routing::Bgp
