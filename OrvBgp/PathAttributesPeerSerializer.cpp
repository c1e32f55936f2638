#define ORV_UNIT "OrvBgp/PathAttributesPeerSerializer"

#include "OrvBgp/PathAttributesPeerSerializer.h"

#include "Keel/Assert.h"
#include "OrvBgp/AspathAttrCanonicalSerializer.h"
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
    static const char* const modes[] = {"none", "fromSet", "address"};
    return "Value('Routing::Bgp::PathAttributesPeer', ** {'fourByteAs': " +
           std::string(fourByteAs_ ? "True" : "False") +
           ", 'internal': " + (internal_ ? "True" : "False") +
           ", 'confedPeer': " + (confedPeer_ ? "True" : "False") +
           ", 'localAs': " + localAs_.toString() + ", 'confedId': " + confedId_.toString() +
           ", 'prependOwnDisabled': " + (prependOwnDisabled_ ? "True" : "False") +
           ", 'nextHopMode': " + modes[uint8_t(nextHopMode_)] +
           ", 'nextHop': " + nextHop_.toString() + "})";
}

namespace {

// Hands each attribute to the store in type order, flushing the unknown attributes (which may
// carry any type) between the known ones. Attributes are built in one reused buffer.
class PeerEmitter {
public:
    PeerEmitter(PathAttributesSerializeStoreMethodBase& store, const GunkPathAttrList* gunk)
        : store_(store), gunk_(gunk) {
        if (gunk_) next_ = gunk_->begin();
    }
    void upTo(unsigned type) {
        while (gunk_ && next_ != gunk_->end() && (*next_)->attrType() < type) {
            (*next_)->serialize(store_);
            ++next_;
        }
    }
    void emit(uint8_t type, std::span<const uint8_t> bytes) {
        upTo(type);
        store_.store(type, bytes);
    }
    void emit(uint8_t type, const Mel::Bytes& bytes) { emit(type, bytes.span()); }
    Serialize& fresh() {
        buf_.clear();
        return buf_;
    }
    Serialize& begin(uint8_t type, uint8_t flags, size_t valueLen) {
        SerializePathAttribute(fresh(), type, flags, valueLen);
        return buf_;
    }
    void emitBuffer(uint8_t type) { emit(type, buf_.span()); }
    template <class List>
    void list(const List* l) {
        if (!l) return;
        l->serialize(fresh());
        emitBuffer(List::attrType);
    }
    void finish() { upTo(256); }
    PathAttributesSerializeStoreMethodBase& store() noexcept { return store_; }

private:
    PathAttributesSerializeStoreMethodBase& store_;
    const GunkPathAttrList* gunk_;
    GunkPathAttrList::const_iterator next_{};
    Serialize buf_;
};

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
            for (const StoredAsSegment& seg : path->path())
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
    if (a.pmsiTunnel) out.emit(T::pmsiTunnel_, a.pmsiTunnel->serialize());
    if (a.tunnelEncap) out.emit(T::tunnelEncap_, a.tunnelEncap->serialize());
    out.list(a.extCommIp6List);
    if (a.aigpMetric) out.emit(T::aigp_, a.aigpMetric->serialize());
    if (a.linkState) {
        out.begin(T::linkState_, LinkStateAttrBase::attrFlags, a.linkState->value().size())
            .addData(a.linkState->value());
        out.emitBuffer(T::linkState_);
    }
    out.list(a.largeCommList);
    if (a.domainPath) out.emit(T::dPath_, a.domainPath->serialize());
    if (a.prefixSid) out.emit(T::prefixSid_, a.prefixSid->serialize());
    if (a.customerAttributeSet) out.emit(T::attrSet_, a.customerAttributeSet->serialize());
    out.finish();
}

void PathAttributesPeerSerializer::serialize(const PathAttributesInterface& set,
                                             const PathAttributesPeer& peer, Serialize& out) {
    AppendStore store(out);
    serialize(set, peer, store);
}

} // namespace Routing::Bgp
