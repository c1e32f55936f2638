// The five storage tiers of PathAttributes and their read-back (destashed) twins. Included by
// BgpPathAttributes.h; see there.
//   PathAttributesCommon::createMe(contents)   // base: next hop, AS path, MED, local pref, flags
//   FullPathAttributes::createMe(contents)     // every member
#pragma once

#include "Keel/HashMix.h"

#include <tuple>

namespace Routing::Bgp {

// Writes a set's attributes in ascending type code, one sink call each (every tier's
// serializeInternal, inbound and outbound).
void serializeAttributeSet(const PathAttributesView& v,
                           PathAttributesSerializeStoreMethodBase* store, bool fourByteAsPeer,
                           bool internalPeer, bool writeNextHop);

namespace PathAttributesTier {

// Feeds the contents' intern hash past the members every tier stores: the community pointers of
// tier t, or for full every pointer member from llNextHop (withLlNextHop) or aggregator on, in
// member order. Each pointer must be interned; the assertion names `unit`.
void feedTierPointers(Keel::HashMix& m, PathAttributeType t, const PathAttributesContents& c,
                      bool withLlNextHop, const char* unit);

template <class T>
using Stashed = MelStash::CompressedStashSmartPtr<T const, 4>;

template <class T>
inline const void* addr(const Stashed<T>& p) noexcept {
    return p.get();
}

// Members every tier stores: 28 bytes after the 16-byte object header. The spare byte holds
// uncommonFlagsStorage, which only the full tier uses (always 0 in the others).
template <class Root>
class CommonTier : public Root {
public:
    using RootType = Root;
    static constexpr PathAttributeType tierType = PathAttributeType::base;

    Routing::RouteTag tagGet() const noexcept override { return tag_; }
    MultiExitDiscriminator medGet() const noexcept override {
        return commonFlagsStorage_ >> 6 & 1 ? MultiExitDiscriminator(medStorage_)
                                            : MultiExitDiscriminator();
    }
    RoutingLocalPref localPrefGet() const noexcept override {
        return commonFlagsStorage_ >> 7 & 1 ? RoutingLocalPref(localPrefStorage_)
                                            : RoutingLocalPref();
    }
    Mel::PtrConst<GenNexthop> nextHopGet() const noexcept override { return nextHop_.ptr(); }
    Mel::PtrConst<AspathAttrCanonical> aspathAttrGet() const noexcept override {
        return aspathAttr_.ptr();
    }
    Mel::PtrConst<ClusterList> clusterListGet() const noexcept override {
        return clusterList_.ptr();
    }
    Routing::RoutePreference preferenceGet() const noexcept override { return preference_; }
    AspType aspTypeGet() const noexcept override { return AspType(commonFlagsStorage_ & 7); }
    bool atomicAggregateGet() const noexcept override { return commonFlagsStorage_ >> 3 & 1; }
    Origin originGet() const noexcept override { return Origin(commonFlagsStorage_ >> 4 & 3); }
    bool llgrStaleGet() const noexcept override { return commonFlagsStorage_ >> 8 & 1; }
    bool noLlgrGet() const noexcept override { return commonFlagsStorage_ >> 9 & 1; }
    bool ipLookupAsBackupGet() const noexcept override { return commonFlagsStorage_ >> 10 & 1; }

protected:
    explicit CommonTier(const PathAttributesContents& c)
        : tag_(c.tag()), medStorage_(c.medStorage()), localPrefStorage_(c.localPrefStorage()),
          nextHop_(c.nextHopStashed()), aspathAttr_(c.aspathAttrStashed()),
          clusterList_(c.clusterListStashed()),
          commonFlagsStorage_(
              uint16_t(c.commonFlagsStorage() & PathAttributesContents::commonFlagsMask)),
          preference_(c.preference()) {}

    void feedHash(Keel::HashMix& m) const noexcept {
        m.hashMix(tag_);
        m.hashMix(medStorage_);
        m.hashMix(localPrefStorage_);
        m.hashMix(addr(nextHop_));
        m.hashMix(addr(aspathAttr_));
        m.hashMix(addr(clusterList_));
        m.hashMix(commonFlagsStorage_);
        m.hashMix(preference_);
    }
    bool sameMembers(const CommonTier& o) const noexcept {
        return tag_ == o.tag_ && medStorage_ == o.medStorage_ &&
               localPrefStorage_ == o.localPrefStorage_ && nextHop_ == o.nextHop_ &&
               aspathAttr_ == o.aspathAttr_ && clusterList_ == o.clusterList_ &&
               commonFlagsStorage_ == o.commonFlagsStorage_ && preference_ == o.preference_ &&
               uncommonFlagsStorage_ == o.uncommonFlagsStorage_;
    }
    bool sameContents(const PathAttributesContents& c) const noexcept {
        return tag_ == c.tag() && medStorage_ == c.medStorage() &&
               localPrefStorage_ == c.localPrefStorage() && nextHop_ == c.nextHopStashed() &&
               aspathAttr_ == c.aspathAttrStashed() && clusterList_ == c.clusterListStashed() &&
               commonFlagsStorage_ ==
                   (c.commonFlagsStorage() & PathAttributesContents::commonFlagsMask) &&
               preference_ == c.preference();
    }
    void fillView(PathAttributesView& v) const noexcept {
        v.tag = tag_;
        v.medStorage = medStorage_;
        v.localPrefStorage = localPrefStorage_;
        v.nextHop = nextHop_.get();
        v.aspathAttr = aspathAttr_.get();
        v.clusterList = clusterList_.get();
        v.commonFlagsStorage = commonFlagsStorage_;
        v.preference = preference_;
        v.uncommonFlagsStorage = uncommonFlagsStorage_;
    }
    void fill(PathAttributesContents& c) const {
        c.tagIs(tag_);
        c.medStorageIs(medStorage_);
        c.localPrefStorageIs(localPrefStorage_);
        c.nextHopIs(nextHop_.ptr());
        c.aspathAttrIs(aspathAttr_.ptr());
        c.clusterListIs(clusterList_.ptr());
        c.preferenceIs(preference_);
    }
    // Last of all, after the community list's setter has run: the flags exactly as stored.
    void fillFlags(PathAttributesContents& c, uint16_t) const {
        c.commonFlagsStorageIs(commonFlagsStorage_);
    }

    Routing::RouteTag tag_;
    uint32_t medStorage_;
    uint32_t localPrefStorage_;
    Stashed<GenNexthop> nextHop_;
    Stashed<AspathAttrCanonical> aspathAttr_;
    Stashed<ClusterList> clusterList_;
    uint16_t commonFlagsStorage_;
    Routing::RoutePreference preference_;
    uint8_t uncommonFlagsStorage_ = 0;
};

template <class Base>
class WithCommListTier : public Base {
public:
    static constexpr PathAttributeType tierType = PathAttributeType::withCommList;
    Mel::PtrConst<Aggregator> aggregatorGet() const noexcept override { return aggregator_.ptr(); }
    Mel::PtrConst<CommList> commListGet() const noexcept override { return commList_.ptr(); }

protected:
    explicit WithCommListTier(const PathAttributesContents& c)
        : Base(c), commList_(c.commListStashed()), aggregator_(c.aggregatorStashed()) {}
    void feedHash(Keel::HashMix& m) const noexcept {
        Base::feedHash(m);
        m.hashMix(addr(commList_));
        m.hashMix(addr(aggregator_));
    }
    bool sameMembers(const WithCommListTier& o) const noexcept {
        return Base::sameMembers(o) && commList_ == o.commList_ && aggregator_ == o.aggregator_;
    }
    bool sameContents(const PathAttributesContents& c) const noexcept {
        return Base::sameContents(c) && commList_ == c.commListStashed() &&
               aggregator_ == c.aggregatorStashed();
    }
    void fill(PathAttributesContents& c) const {
        Base::fill(c);
        c.commListIs(commList_.ptr());
        c.aggregatorIs(aggregator_.ptr());
    }
    void fillView(PathAttributesView& v) const noexcept {
        Base::fillView(v);
        v.commList = commList_.get();
        v.aggregator = aggregator_.get();
    }
    Stashed<CommList> commList_;
    Stashed<Aggregator> aggregator_;
};

template <class Base>
class InternetTier : public Base {
public:
    static constexpr PathAttributeType tierType = PathAttributeType::internet;
    Mel::PtrConst<ExtCommList> extCommListGet() const noexcept override {
        return extCommList_.ptr();
    }
    Mel::PtrConst<LargeCommList> largeCommListGet() const noexcept override {
        return largeCommList_.ptr();
    }

protected:
    explicit InternetTier(const PathAttributesContents& c)
        : Base(c), extCommList_(c.extCommListStashed()), largeCommList_(c.largeCommListStashed()) {}
    void feedHash(Keel::HashMix& m) const noexcept {
        Base::feedHash(m); // commList, aggregator
        m.hashMix(addr(largeCommList_));
        m.hashMix(addr(extCommList_));
    }
    bool sameMembers(const InternetTier& o) const noexcept {
        return Base::sameMembers(o) && extCommList_ == o.extCommList_ &&
               largeCommList_ == o.largeCommList_;
    }
    bool sameContents(const PathAttributesContents& c) const noexcept {
        return Base::sameContents(c) && extCommList_ == c.extCommListStashed() &&
               largeCommList_ == c.largeCommListStashed();
    }
    void fill(PathAttributesContents& c) const {
        Base::fill(c);
        c.extCommListIs(extCommList_.ptr());
        c.largeCommListIs(largeCommList_.ptr());
    }
    void fillView(PathAttributesView& v) const noexcept {
        Base::fillView(v);
        v.extCommList = extCommList_.get();
        v.largeCommList = largeCommList_.get();
    }
    Stashed<ExtCommList> extCommList_;
    Stashed<LargeCommList> largeCommList_;
};

template <class Base>
class WithExtCommListTier : public Base {
public:
    static constexpr PathAttributeType tierType = PathAttributeType::withExtCommList;
    Mel::PtrConst<CommList> commListGet() const noexcept override { return commList_.ptr(); }
    Mel::PtrConst<ExtCommList> extCommListGet() const noexcept override {
        return extCommList_.ptr();
    }

protected:
    explicit WithExtCommListTier(const PathAttributesContents& c)
        : Base(c), commList_(c.commListStashed()), extCommList_(c.extCommListStashed()) {}
    void feedHash(Keel::HashMix& m) const noexcept {
        Base::feedHash(m);
        m.hashMix(addr(commList_));
        m.hashMix(addr(extCommList_));
    }
    bool sameMembers(const WithExtCommListTier& o) const noexcept {
        return Base::sameMembers(o) && commList_ == o.commList_ && extCommList_ == o.extCommList_;
    }
    bool sameContents(const PathAttributesContents& c) const noexcept {
        return Base::sameContents(c) && commList_ == c.commListStashed() &&
               extCommList_ == c.extCommListStashed();
    }
    void fill(PathAttributesContents& c) const {
        Base::fill(c);
        c.commListIs(commList_.ptr());
        c.extCommListIs(extCommList_.ptr());
    }
    void fillView(PathAttributesView& v) const noexcept {
        Base::fillView(v);
        v.commList = commList_.get();
        v.extCommList = extCommList_.get();
    }
    Stashed<CommList> commList_;
    Stashed<ExtCommList> extCommList_;
};

// The members only the full tiers keep, in two groups: the inbound-only scalars and link-local
// next hop, then the sub-attribute pointers that inbound and outbound full tiers share.
template <class Base>
class FullScalarsTier : public Base {
public:
    RouteWeight weightGet() const noexcept override { return weight_; }
    RouteWeight bpAsPathWeightGet() const noexcept override { return bpAsPathWeight_; }
    RedistMetric redistMetricGet() const noexcept override {
        return this->uncommonFlagsStorage_ & 1 ? RedistMetric(igpOrRedistMetricStorage_)
                                               : RedistMetric();
    }
    IgpMetricForNexthop igpMetricForNexthopGet() const noexcept override {
        return this->uncommonFlagsStorage_ & 2 ? IgpMetricForNexthop(igpOrRedistMetricStorage_)
                                               : IgpMetricForNexthop();
    }
    Mel::PtrConst<GenNexthop> llNextHopGet() const noexcept override { return llNextHop_.ptr(); }

protected:
    explicit FullScalarsTier(const PathAttributesContents& c)
        : Base(c), igpOrRedistMetricStorage_(c.igpOrRedistMetricStorage()), weight_(c.weight()),
          bpAsPathWeight_(c.bpAsPathWeight()), llNextHop_(c.llNextHopStashed()) {
        this->uncommonFlagsStorage_ = uint8_t(c.uncommonFlagsStorage() & 3);
    }
    void feedHash(Keel::HashMix& m) const noexcept {
        Base::feedHash(m);
        m.hashMix(uint8_t(this->uncommonFlagsStorage_ & 3));
        m.hashMix(weight_);
        m.hashMix(bpAsPathWeight_);
        m.hashMix(igpOrRedistMetricStorage_);
        m.hashMix(addr(llNextHop_));
    }
    bool sameMembers(const FullScalarsTier& o) const noexcept {
        return Base::sameMembers(o) && igpOrRedistMetricStorage_ == o.igpOrRedistMetricStorage_ &&
               weight_ == o.weight_ && bpAsPathWeight_ == o.bpAsPathWeight_ &&
               llNextHop_ == o.llNextHop_;
    }
    bool sameContents(const PathAttributesContents& c) const noexcept {
        return Base::sameContents(c) &&
               this->uncommonFlagsStorage_ == (c.uncommonFlagsStorage() & 3) &&
               igpOrRedistMetricStorage_ == c.igpOrRedistMetricStorage() && weight_ == c.weight() &&
               bpAsPathWeight_ == c.bpAsPathWeight() && llNextHop_ == c.llNextHopStashed();
    }
    void fill(PathAttributesContents& c) const {
        Base::fill(c);
        c.uncommonFlagsStorageIs(this->uncommonFlagsStorage_);
        c.weightIs(weight_);
        c.bpAsPathWeightIs(bpAsPathWeight_);
        c.igpOrRedistMetricStorageIs(igpOrRedistMetricStorage_);
        c.llNextHopIs(llNextHop_.ptr());
    }
    void fillView(PathAttributesView& v) const noexcept {
        Base::fillView(v);
        v.weight = weight_;
        v.bpAsPathWeight = bpAsPathWeight_;
        v.igpOrRedistMetricStorage = igpOrRedistMetricStorage_;
        v.llNextHop = llNextHop_.get();
    }

    uint32_t igpOrRedistMetricStorage_;
    RouteWeight weight_;
    RouteWeight bpAsPathWeight_;
    Stashed<GenNexthop> llNextHop_;
};

template <class Base>
class FullPointersTier : public Base {
public:
    static constexpr PathAttributeType tierType = PathAttributeType::full;
    Mel::PtrConst<Aggregator> aggregatorGet() const noexcept override { return aggregator_.ptr(); }
    Mel::PtrConst<CommList> commListGet() const noexcept override { return commList_.ptr(); }
    Mel::PtrConst<ExtCommList> extCommListGet() const noexcept override {
        return extCommList_.ptr();
    }
    Mel::PtrConst<ExtCommIp6List> extCommIp6ListGet() const noexcept override {
        return extCommIp6List_.ptr();
    }
    Mel::PtrConst<LargeCommList> largeCommListGet() const noexcept override {
        return largeCommList_.ptr();
    }
    Mel::PtrConst<PmsiTunnel> pmsiTunnelGet() const noexcept override { return pmsiTunnel_.ptr(); }
    Mel::PtrConst<PrefixSid> prefixSidGet() const noexcept override { return prefixSid_.ptr(); }
    Mel::PtrConst<TunnelEncap> tunnelEncapGet() const noexcept override {
        return tunnelEncap_.ptr();
    }
    Mel::PtrConst<DomainPath> domainPathGet() const noexcept override { return domainPath_.ptr(); }
    Mel::PtrConst<AccumulatedIgpMetric> aigpMetricGet() const noexcept override {
        return aigpMetric_.ptr();
    }
    Mel::PtrConst<LinkStateAttrBase> linkStateGet() const noexcept override {
        return linkState_.ptr();
    }
    Mel::PtrConst<AttributeSet> customerAttributeSetGet() const noexcept override {
        return customerAttributeSet_.ptr();
    }
    Mel::PtrConst<GunkPathAttrList> gunkPathAttrListGet() const noexcept override {
        return gunkPathAttrList_;
    }

protected:
    explicit FullPointersTier(const PathAttributesContents& c)
        : Base(c), aggregator_(c.aggregatorStashed()), commList_(c.commListStashed()),
          extCommList_(c.extCommListStashed()), extCommIp6List_(c.extCommIp6ListStashed()),
          largeCommList_(c.largeCommListStashed()), pmsiTunnel_(c.pmsiTunnelStashed()),
          prefixSid_(c.prefixSidStashed()), tunnelEncap_(c.tunnelEncapStashed()),
          domainPath_(c.domainPathStashed()), aigpMetric_(c.aigpMetricStashed()),
          linkState_(c.linkStateStashed()), customerAttributeSet_(c.customerAttributeSetStashed()),
          gunkPathAttrList_(c.gunkPathAttrListRaw()) {}
    // The thirteen pointers in member order, as addresses.
    auto pointers() const noexcept {
        return std::make_tuple(addr(aggregator_), addr(commList_), addr(extCommList_),
                               addr(extCommIp6List_), addr(largeCommList_), addr(pmsiTunnel_),
                               addr(prefixSid_), addr(tunnelEncap_), addr(domainPath_),
                               addr(aigpMetric_), addr(linkState_), addr(customerAttributeSet_),
                               static_cast<const void*>(gunkPathAttrList_.get()));
    }
    static auto pointers(const PathAttributesContents& c) noexcept {
        return std::make_tuple(addr(c.aggregatorStashed()), addr(c.commListStashed()),
                               addr(c.extCommListStashed()), addr(c.extCommIp6ListStashed()),
                               addr(c.largeCommListStashed()), addr(c.pmsiTunnelStashed()),
                               addr(c.prefixSidStashed()), addr(c.tunnelEncapStashed()),
                               addr(c.domainPathStashed()), addr(c.aigpMetricStashed()),
                               addr(c.linkStateStashed()), addr(c.customerAttributeSetStashed()),
                               static_cast<const void*>(c.gunkPathAttrListRaw().get()));
    }
    void feedHash(Keel::HashMix& m) const noexcept {
        Base::feedHash(m);
        std::apply([&m](auto... p) { (m.hashMix(p), ...); }, pointers());
    }
    bool sameMembers(const FullPointersTier& o) const noexcept {
        return Base::sameMembers(o) && pointers() == o.pointers();
    }
    bool sameContents(const PathAttributesContents& c) const noexcept {
        return Base::sameContents(c) && pointers() == pointers(c);
    }
    void fill(PathAttributesContents& c) const {
        Base::fill(c);
        c.aggregatorIs(aggregator_.ptr());
        c.commListIs(commList_.ptr());
        c.extCommListIs(extCommList_.ptr());
        c.extCommIp6ListIs(extCommIp6List_.ptr());
        c.largeCommListIs(largeCommList_.ptr());
        c.pmsiTunnelIs(pmsiTunnel_.ptr());
        c.prefixSidIs(prefixSid_.ptr());
        c.tunnelEncapIs(tunnelEncap_.ptr());
        c.domainPathIs(domainPath_.ptr());
        c.aigpMetricIs(aigpMetric_.ptr());
        c.linkStateIs(linkState_.ptr());
        c.customerAttributeSetIs(customerAttributeSet_.ptr());
        c.gunkPathAttrListIs(gunkPathAttrList_);
    }
    void fillView(PathAttributesView& v) const noexcept {
        Base::fillView(v);
        v.aggregator = aggregator_.get();
        v.commList = commList_.get();
        v.extCommList = extCommList_.get();
        v.extCommIp6List = extCommIp6List_.get();
        v.largeCommList = largeCommList_.get();
        v.pmsiTunnel = pmsiTunnel_.get();
        v.prefixSid = prefixSid_.get();
        v.tunnelEncap = tunnelEncap_.get();
        v.domainPath = domainPath_.get();
        v.aigpMetric = aigpMetric_.get();
        v.linkState = linkState_.get();
        v.customerAttributeSet = customerAttributeSet_.get();
        v.gunkPathAttrList = gunkPathAttrList_.get();
    }

    Stashed<Aggregator> aggregator_;
    Stashed<CommList> commList_;
    Stashed<ExtCommList> extCommList_;
    Stashed<ExtCommIp6List> extCommIp6List_;
    Stashed<LargeCommList> largeCommList_;
    Stashed<PmsiTunnel> pmsiTunnel_;
    Stashed<PrefixSid> prefixSid_;
    Stashed<TunnelEncap> tunnelEncap_;
    Stashed<DomainPath> domainPath_;
    Stashed<AccumulatedIgpMetric> aigpMetric_;
    Stashed<LinkStateAttrBase> linkState_;
    Stashed<AttributeSet> customerAttributeSet_;
    Mel::PtrConst<GunkPathAttrList> gunkPathAttrList_;
};

// The inbound full tier: every member.
template <class Base>
using FullTier = FullPointersTier<FullScalarsTier<Base>>;

// Completes a tier, inbound or outbound: the interning operations from its member chain. Leaf is
// the concrete class; the chain's root (PathAttributes or RibOutPathAttributes) chooses the tiers.
template <class Leaf, class Chain>
class Sealed : public Chain {
public:
    PathAttributeType getType() const noexcept override { return Chain::tierType; }
    uint32_t hash() const override {
        Keel::HashMix m;
        m.hashMix(static_cast<uint32_t>(Chain::tierType));
        Chain::feedHash(m);
        return m.result();
    }
    // Equal to any set of the same family and tier with the same members: a live tier and its
    // read-back twin are different classes with one answer.
    bool compare(const Keel::DedupHandleBase* other) const override {
        auto* o = dynamic_cast<const typename Chain::RootType*>(other);
        if (!o || o->getType() != Chain::tierType) return false;
        if (auto* same = dynamic_cast<const Sealed*>(other)) return Chain::sameMembers(*same);
        PathAttributesView mine, theirs;
        Chain::fillView(mine);
        o->viewGet(theirs);
        return mine == theirs;
    }
    bool compareByContent(const Keel::DedupContentHandle& content) const override {
        auto& c = static_cast<const PathAttributesContents&>(content);
        return Chain::tierFor(c.dataMemberHasNonDefaultValue()) == Chain::tierType &&
               Chain::sameContents(c);
    }
    void getFullContent(PathAttributesContents& c) const override {
        uint16_t before = c.commonFlagsStorage();
        Chain::fill(c);
        Chain::fillFlags(c, before);
    }
    void viewGet(PathAttributesView& v) const noexcept override { Chain::fillView(v); }
    void serializeInternal(PathAttributesSerializeStoreMethodBase* store, bool fourByteAsPeer,
                           bool internalPeer, bool writeNextHop) const override {
        PathAttributesView v;
        Chain::fillView(v);
        serializeAttributeSet(v, store, fourByteAsPeer, internalPeer, writeNextHop);
    }
    static Mel::PtrConst<Leaf> createMe(const PathAttributesContents& c) {
        return Mel::PtrConst<Leaf>(new Leaf(c));
    }

protected:
    explicit Sealed(const PathAttributesContents& c) : Chain(c) {}
};

} // namespace PathAttributesTier

// Leaves: the five tiers, and their read-back twins with the same members and answers.
#define ORV_PATH_ATTRIBUTES_TIER(Name, Chain)                                                      \
    class Name : public PathAttributesTier::Sealed<Name, Chain> {                                  \
        MELSTASH_STORE_ALLOCATED(Name)                                                             \
                                                                                                   \
    public:                                                                                        \
        explicit Name(const PathAttributesContents& c) : Sealed(c) {}                              \
    }

ORV_PATH_ATTRIBUTES_TIER(PathAttributesCommon, PathAttributesTier::CommonTier<PathAttributes>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesWithCommList,
                         PathAttributesTier::WithCommListTier<PathAttributesCommon>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesInternet,
                         PathAttributesTier::InternetTier<PathAttributesWithCommList>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesWithExtCommList,
                         PathAttributesTier::WithExtCommListTier<PathAttributesCommon>);
ORV_PATH_ATTRIBUTES_TIER(FullPathAttributes, PathAttributesTier::FullTier<PathAttributesCommon>);

ORV_PATH_ATTRIBUTES_TIER(PathAttributesCommonDestashed,
                         PathAttributesTier::CommonTier<PathAttributes>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesWithCommListDestashed,
                         PathAttributesTier::WithCommListTier<PathAttributesCommonDestashed>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesInternetDestashed,
                         PathAttributesTier::InternetTier<PathAttributesWithCommListDestashed>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesWithExtCommListDestashed,
                         PathAttributesTier::WithExtCommListTier<PathAttributesCommonDestashed>);
ORV_PATH_ATTRIBUTES_TIER(FullPathAttributesDestashed,
                         PathAttributesTier::FullTier<PathAttributesCommonDestashed>);

#undef ORV_PATH_ATTRIBUTES_TIER

} // namespace Routing::Bgp
