// The five storage tiers of PathAttributes and their read-back (destashed) twins. Included by
// BgpPathAttributes.h; see there.
//   PathAttributesCommon::createMe(contents)   // base: next hop, AS path, MED, local pref, flags
//   FullPathAttributes::createMe(contents)     // every member
#pragma once

#include "Keel/HashMix.h"

#include <bit>
#include <cstring>
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

// The inbound layout. After the 12-byte object header come the two members every set has (next
// hop and AS path, null or not), the flags, the preference and `present_`, a byte naming which of
// eight optional members follow; then one 32-bit word per optional member that holds other than
// its default, in bit order: tag, MED, local preference, cluster list, aggregator, communities,
// extended and large communities (a tier sets only the bits of members it stores). The full tier
// then has one word of its own (which of its twelve members follow, and the two uncommon flags)
// and a word for each of those: weight and AS-path weight share one, the unknown-attribute list's
// full pointer takes two. So a set with a MED and communities is 32 bytes, and a full set whose
// only uncommon member is a link-local next hop 32 (40 with a MED).
namespace Packed {
enum Opt : unsigned {
    tag,
    med,
    localPref,
    clusterList,
    aggregator,
    commList,
    extCommList,
    largeCommList
};
enum Full : unsigned {
    weights,
    igpOrRedist,
    llNextHop,
    extCommIp6List,
    pmsiTunnel,
    prefixSid,
    tunnelEncap,
    domainPath,
    aigpMetric,
    linkState,
    customerAttributeSet,
    gunk
};
// The optional members tier t stores, as bits of `present_`.
constexpr unsigned optMask(PathAttributeType t) noexcept {
    switch (t) {
    case PathAttributeType::base:
        return 0x0f;
    case PathAttributeType::withCommList:
        return 0x3f;
    case PathAttributeType::withExtCommList:
        return 0x6f;
    default:
        return 0xff;
    }
}
inline unsigned below(unsigned mask, unsigned bit) noexcept {
    return unsigned(std::popcount(mask & ((1u << bit) - 1)));
}
} // namespace Packed

template <class Root>
class PackedStorage : public Root {
public:
    using RootType = Root;
    static constexpr PathAttributeType tierType = PathAttributeType::base;

    Routing::RouteTag tagGet() const noexcept override { return opt(Packed::tag); }
    MultiExitDiscriminator medGet() const noexcept override {
        return commonFlagsStorage_ >> 6 & 1 ? MultiExitDiscriminator(opt(Packed::med))
                                            : MultiExitDiscriminator();
    }
    RoutingLocalPref localPrefGet() const noexcept override {
        return commonFlagsStorage_ >> 7 & 1 ? RoutingLocalPref(opt(Packed::localPref))
                                            : RoutingLocalPref();
    }
    Mel::PtrConst<GenNexthop> nextHopGet() const noexcept override { return nextHop_.ptr(); }
    Mel::PtrConst<AspathAttrCanonical> aspathAttrGet() const noexcept override {
        return aspathAttr_.ptr();
    }
    Mel::PtrConst<ClusterList> clusterListGet() const noexcept override {
        return optPtr<ClusterList>(Packed::clusterList);
    }
    Routing::RoutePreference preferenceGet() const noexcept override { return preference_; }
    AspType aspTypeGet() const noexcept override { return AspType(commonFlagsStorage_ & 7); }
    bool atomicAggregateGet() const noexcept override { return commonFlagsStorage_ >> 3 & 1; }
    Origin originGet() const noexcept override { return Origin(commonFlagsStorage_ >> 4 & 3); }
    bool llgrStaleGet() const noexcept override { return commonFlagsStorage_ >> 8 & 1; }
    bool noLlgrGet() const noexcept override { return commonFlagsStorage_ >> 9 & 1; }
    bool ipLookupAsBackupGet() const noexcept override { return commonFlagsStorage_ >> 10 & 1; }

    // The bytes after the object that a set of tier t made from c takes.
    static size_t extraBytesFor(PathAttributeType t, const PathAttributesContents& c) noexcept {
        size_t words = std::popcount(presentFor(t, c));
        if (t == PathAttributeType::full) words += 1 + fullWordsFor(c);
        return words * 4;
    }

protected:
    PackedStorage(const PathAttributesContents& c, PathAttributeType t)
        : nextHop_(c.nextHopStashed()), aspathAttr_(c.aspathAttrStashed()),
          commonFlagsStorage_(
              uint16_t(c.commonFlagsStorage() & PathAttributesContents::commonFlagsMask)),
          preference_(c.preference()), present_(presentFor(t, c)) {
        uint32_t* w = words();
        auto put = [&w, this](unsigned bit, uint32_t v) {
            if (present_ >> bit & 1) *w++ = v;
        };
        put(Packed::tag, c.tag());
        put(Packed::med, c.medStorage());
        put(Packed::localPref, c.localPrefStorage());
        put(Packed::clusterList, Stashed<ClusterList>(c.clusterListStashed()).detach());
        put(Packed::aggregator, Stashed<Aggregator>(c.aggregatorStashed()).detach());
        put(Packed::commList, Stashed<CommList>(c.commListStashed()).detach());
        put(Packed::extCommList, Stashed<ExtCommList>(c.extCommListStashed()).detach());
        put(Packed::largeCommList, Stashed<LargeCommList>(c.largeCommListStashed()).detach());
        if (t != PathAttributeType::full) return;
        uint32_t fp = fullPresentFor(c);
        *w++ = fp | uint32_t(c.uncommonFlagsStorage() & 3) << 16;
        auto putFull = [&w, fp](unsigned bit, uint32_t v) {
            if (fp >> bit & 1) *w++ = v;
        };
        putFull(Packed::weights, c.weight() | uint32_t(c.bpAsPathWeight()) << 16);
        putFull(Packed::igpOrRedist, c.igpOrRedistMetricStorage());
        putFull(Packed::llNextHop, Stashed<GenNexthop>(c.llNextHopStashed()).detach());
        putFull(Packed::extCommIp6List,
                Stashed<ExtCommIp6List>(c.extCommIp6ListStashed()).detach());
        putFull(Packed::pmsiTunnel, Stashed<PmsiTunnel>(c.pmsiTunnelStashed()).detach());
        putFull(Packed::prefixSid, Stashed<PrefixSid>(c.prefixSidStashed()).detach());
        putFull(Packed::tunnelEncap, Stashed<TunnelEncap>(c.tunnelEncapStashed()).detach());
        putFull(Packed::domainPath, Stashed<DomainPath>(c.domainPathStashed()).detach());
        putFull(Packed::aigpMetric, Stashed<AccumulatedIgpMetric>(c.aigpMetricStashed()).detach());
        putFull(Packed::linkState, Stashed<LinkStateAttrBase>(c.linkStateStashed()).detach());
        putFull(Packed::customerAttributeSet,
                Stashed<AttributeSet>(c.customerAttributeSetStashed()).detach());
        if (fp >> Packed::gunk & 1) {
            const GunkPathAttrList* g =
                Mel::PtrConst<GunkPathAttrList>(c.gunkPathAttrListRaw()).detach();
            std::memcpy(w, &g, sizeof g);
        }
    }

    // Releases the references the words hold and forgets them. The leaf's tier layer calls it on
    // destruction (the layers below it then find nothing left).
    void releaseWords(PathAttributeType t) noexcept {
        if (t == PathAttributeType::full) {
            uint32_t* f = words() + std::popcount(present_);
            unsigned fp = *f & 0xffff;
            *f = 0;
            auto drop = [&]<class T>(unsigned bit, T*) {
                if (fp >> bit & 1) (void)Stashed<T>::adopt(f[1 + Packed::below(fp, bit)]);
            };
            drop(Packed::llNextHop, (GenNexthop*)nullptr);
            drop(Packed::extCommIp6List, (ExtCommIp6List*)nullptr);
            drop(Packed::pmsiTunnel, (PmsiTunnel*)nullptr);
            drop(Packed::prefixSid, (PrefixSid*)nullptr);
            drop(Packed::tunnelEncap, (TunnelEncap*)nullptr);
            drop(Packed::domainPath, (DomainPath*)nullptr);
            drop(Packed::aigpMetric, (AccumulatedIgpMetric*)nullptr);
            drop(Packed::linkState, (LinkStateAttrBase*)nullptr);
            drop(Packed::customerAttributeSet, (AttributeSet*)nullptr);
            if (fp >> Packed::gunk & 1) {
                const GunkPathAttrList* g;
                std::memcpy(&g, f + 1 + Packed::below(fp, Packed::gunk), sizeof g);
                (void)Mel::PtrConst<GunkPathAttrList>::adopt(g);
            }
        }
        auto drop = [this]<class T>(unsigned bit, T*) {
            if (present_ >> bit & 1) (void)Stashed<T>::adopt(words()[Packed::below(present_, bit)]);
        };
        drop(Packed::clusterList, (ClusterList*)nullptr);
        drop(Packed::aggregator, (Aggregator*)nullptr);
        drop(Packed::commList, (CommList*)nullptr);
        drop(Packed::extCommList, (ExtCommList*)nullptr);
        drop(Packed::largeCommList, (LargeCommList*)nullptr);
        present_ = 0;
    }

    // The optional member `bit`, 0 (its default) when absent.
    uint32_t opt(unsigned bit) const noexcept {
        return present_ >> bit & 1 ? words()[Packed::below(present_, bit)] : 0;
    }
    template <class T>
    const T* optRaw(unsigned bit) const noexcept {
        return static_cast<const T*>(MelStash::StoreManager::expand(opt(bit)));
    }
    template <class T>
    Mel::PtrConst<T> optPtr(unsigned bit) const noexcept {
        return Mel::PtrConst<T>(optRaw<T>(bit));
    }
    // The full tier's own word and members (only a full set has them).
    const uint32_t* fullWords() const noexcept { return words() + std::popcount(present_); }
    uint8_t uncommonFlags() const noexcept { return uint8_t(fullWords()[0] >> 16 & 3); }
    uint32_t fullOpt(unsigned bit) const noexcept {
        const uint32_t* f = fullWords();
        unsigned fp = f[0] & 0xffff;
        return fp >> bit & 1 ? f[1 + Packed::below(fp, bit)] : 0;
    }
    template <class T>
    const T* fullRaw(unsigned bit) const noexcept {
        return static_cast<const T*>(MelStash::StoreManager::expand(fullOpt(bit)));
    }
    template <class T>
    Mel::PtrConst<T> fullPtr(unsigned bit) const noexcept {
        return Mel::PtrConst<T>(fullRaw<T>(bit));
    }
    const GunkPathAttrList* gunkRaw() const noexcept {
        const uint32_t* f = fullWords();
        unsigned fp = f[0] & 0xffff;
        const GunkPathAttrList* g = nullptr;
        if (fp >> Packed::gunk & 1)
            std::memcpy(&g, f + 1 + Packed::below(fp, Packed::gunk), sizeof g);
        return g;
    }

    // The intern hash of the members tier t stores, as the contents hash feeds them.
    void feedHashFor(Keel::HashMix& m, PathAttributeType t) const noexcept {
        auto ptr = [&m](const void* p) { m.hashMix(p); };
        m.hashMix(Routing::RouteTag(opt(Packed::tag)));
        m.hashMix(opt(Packed::med));
        m.hashMix(opt(Packed::localPref));
        ptr(nextHop_.get());
        ptr(aspathAttr_.get());
        ptr(optRaw<ClusterList>(Packed::clusterList));
        m.hashMix(commonFlagsStorage_);
        m.hashMix(preference_);
        const void* commList = optRaw<CommList>(Packed::commList);
        const void* aggregator = optRaw<Aggregator>(Packed::aggregator);
        const void* extCommList = optRaw<ExtCommList>(Packed::extCommList);
        const void* largeCommList = optRaw<LargeCommList>(Packed::largeCommList);
        switch (t) {
        case PathAttributeType::withCommList:
            ptr(commList);
            ptr(aggregator);
            return;
        case PathAttributeType::withExtCommList:
            ptr(commList);
            ptr(extCommList);
            return;
        case PathAttributeType::internet:
            ptr(commList);
            ptr(aggregator);
            ptr(largeCommList);
            ptr(extCommList);
            return;
        case PathAttributeType::full:
            break;
        default:
            return;
        }
        uint32_t w = fullOpt(Packed::weights);
        m.hashMix(uncommonFlags());
        m.hashMix(RouteWeight(w));
        m.hashMix(RouteWeight(w >> 16));
        m.hashMix(fullOpt(Packed::igpOrRedist));
        ptr(fullRaw<GenNexthop>(Packed::llNextHop));
        ptr(aggregator);
        ptr(commList);
        ptr(extCommList);
        ptr(fullRaw<ExtCommIp6List>(Packed::extCommIp6List));
        ptr(largeCommList);
        ptr(fullRaw<PmsiTunnel>(Packed::pmsiTunnel));
        ptr(fullRaw<PrefixSid>(Packed::prefixSid));
        ptr(fullRaw<TunnelEncap>(Packed::tunnelEncap));
        ptr(fullRaw<DomainPath>(Packed::domainPath));
        ptr(fullRaw<AccumulatedIgpMetric>(Packed::aigpMetric));
        ptr(fullRaw<LinkStateAttrBase>(Packed::linkState));
        ptr(fullRaw<AttributeSet>(Packed::customerAttributeSet));
        ptr(gunkRaw());
    }

    // Two sets of one class: the same fixed members and the same words.
    bool sameMembersAs(const PackedStorage& o, PathAttributeType t) const noexcept {
        if (nextHop_ != o.nextHop_ || aspathAttr_ != o.aspathAttr_ ||
            commonFlagsStorage_ != o.commonFlagsStorage_ || preference_ != o.preference_ ||
            present_ != o.present_)
            return false;
        size_t n = std::popcount(present_);
        if (t == PathAttributeType::full) {
            unsigned fp = fullWords()[0] & 0xffff;
            n += 1 + std::popcount(fp) + (fp >> Packed::gunk & 1);
        }
        return std::memcmp(words(), o.words(), n * 4) == 0;
    }

    // Contents that select this set's tier t agree with it on every member (a member the tier
    // does not store is at its default in such contents, as it is absent here).
    bool sameContentsFor(const PathAttributesContents& c, PathAttributeType t) const noexcept {
        if (nextHop_ != c.nextHopStashed() || aspathAttr_ != c.aspathAttrStashed() ||
            commonFlagsStorage_ !=
                (c.commonFlagsStorage() & PathAttributesContents::commonFlagsMask) ||
            preference_ != c.preference() || present_ != presentFor(t, c))
            return false;
        const uint32_t* w = words();
        auto same = [&w, this](unsigned bit, uint32_t v) {
            return !(present_ >> bit & 1) || *w++ == v;
        };
        if (!(same(Packed::tag, c.tag()) && same(Packed::med, c.medStorage()) &&
              same(Packed::localPref, c.localPrefStorage()) &&
              same(Packed::clusterList, c.clusterListStashed().compressed()) &&
              same(Packed::aggregator, c.aggregatorStashed().compressed()) &&
              same(Packed::commList, c.commListStashed().compressed()) &&
              same(Packed::extCommList, c.extCommListStashed().compressed()) &&
              same(Packed::largeCommList, c.largeCommListStashed().compressed())))
            return false;
        if (t != PathAttributeType::full) return true;
        uint32_t fp = fullPresentFor(c);
        if (*w++ != (fp | uint32_t(c.uncommonFlagsStorage() & 3) << 16)) return false;
        auto sameFull = [&w, fp](unsigned bit, uint32_t v) {
            return !(fp >> bit & 1) || *w++ == v;
        };
        return sameFull(Packed::weights, c.weight() | uint32_t(c.bpAsPathWeight()) << 16) &&
               sameFull(Packed::igpOrRedist, c.igpOrRedistMetricStorage()) &&
               sameFull(Packed::llNextHop, c.llNextHopStashed().compressed()) &&
               sameFull(Packed::extCommIp6List, c.extCommIp6ListStashed().compressed()) &&
               sameFull(Packed::pmsiTunnel, c.pmsiTunnelStashed().compressed()) &&
               sameFull(Packed::prefixSid, c.prefixSidStashed().compressed()) &&
               sameFull(Packed::tunnelEncap, c.tunnelEncapStashed().compressed()) &&
               sameFull(Packed::domainPath, c.domainPathStashed().compressed()) &&
               sameFull(Packed::aigpMetric, c.aigpMetricStashed().compressed()) &&
               sameFull(Packed::linkState, c.linkStateStashed().compressed()) &&
               sameFull(Packed::customerAttributeSet,
                        c.customerAttributeSetStashed().compressed()) &&
               gunkRaw() == c.gunkPathAttrListRaw().get();
    }

    // Writes the members tier t stores into c; the flags last, as stored.
    void fillFor(PathAttributesContents& c, PathAttributeType t) const {
        c.tagIs(opt(Packed::tag));
        c.medStorageIs(opt(Packed::med));
        c.localPrefStorageIs(opt(Packed::localPref));
        c.nextHopIs(nextHop_.ptr());
        c.aspathAttrIs(aspathAttr_.ptr());
        c.clusterListIs(optPtr<ClusterList>(Packed::clusterList));
        c.preferenceIs(preference_);
        unsigned stored = Packed::optMask(t);
        if (stored >> Packed::aggregator & 1)
            c.aggregatorIs(optPtr<Aggregator>(Packed::aggregator));
        if (stored >> Packed::commList & 1) c.commListIs(optPtr<CommList>(Packed::commList));
        if (stored >> Packed::extCommList & 1)
            c.extCommListIs(optPtr<ExtCommList>(Packed::extCommList));
        if (stored >> Packed::largeCommList & 1)
            c.largeCommListIs(optPtr<LargeCommList>(Packed::largeCommList));
        if (t == PathAttributeType::full) {
            uint32_t w = fullOpt(Packed::weights);
            c.uncommonFlagsStorageIs(uncommonFlags());
            c.weightIs(RouteWeight(w));
            c.bpAsPathWeightIs(RouteWeight(w >> 16));
            c.igpOrRedistMetricStorageIs(fullOpt(Packed::igpOrRedist));
            c.llNextHopIs(fullPtr<GenNexthop>(Packed::llNextHop));
            c.extCommIp6ListIs(fullPtr<ExtCommIp6List>(Packed::extCommIp6List));
            c.pmsiTunnelIs(fullPtr<PmsiTunnel>(Packed::pmsiTunnel));
            c.prefixSidIs(fullPtr<PrefixSid>(Packed::prefixSid));
            c.tunnelEncapIs(fullPtr<TunnelEncap>(Packed::tunnelEncap));
            c.domainPathIs(fullPtr<DomainPath>(Packed::domainPath));
            c.aigpMetricIs(fullPtr<AccumulatedIgpMetric>(Packed::aigpMetric));
            c.linkStateIs(fullPtr<LinkStateAttrBase>(Packed::linkState));
            c.customerAttributeSetIs(fullPtr<AttributeSet>(Packed::customerAttributeSet));
            c.gunkPathAttrListIs(Mel::PtrConst<GunkPathAttrList>(gunkRaw()));
        }
        c.commonFlagsStorageIs(commonFlagsStorage_);
    }

    void fillViewFor(PathAttributesView& v, PathAttributeType t) const noexcept {
        v.tag = opt(Packed::tag);
        v.medStorage = opt(Packed::med);
        v.localPrefStorage = opt(Packed::localPref);
        v.nextHop = nextHop_.get();
        v.aspathAttr = aspathAttr_.get();
        v.clusterList = optRaw<ClusterList>(Packed::clusterList);
        v.commonFlagsStorage = commonFlagsStorage_;
        v.preference = preference_;
        v.uncommonFlagsStorage = 0;
        unsigned stored = Packed::optMask(t);
        if (stored >> Packed::aggregator & 1) v.aggregator = optRaw<Aggregator>(Packed::aggregator);
        if (stored >> Packed::commList & 1) v.commList = optRaw<CommList>(Packed::commList);
        if (stored >> Packed::extCommList & 1)
            v.extCommList = optRaw<ExtCommList>(Packed::extCommList);
        if (stored >> Packed::largeCommList & 1)
            v.largeCommList = optRaw<LargeCommList>(Packed::largeCommList);
        if (t != PathAttributeType::full) return;
        uint32_t w = fullOpt(Packed::weights);
        v.uncommonFlagsStorage = uncommonFlags();
        v.weight = RouteWeight(w);
        v.bpAsPathWeight = RouteWeight(w >> 16);
        v.igpOrRedistMetricStorage = fullOpt(Packed::igpOrRedist);
        v.llNextHop = fullRaw<GenNexthop>(Packed::llNextHop);
        v.extCommIp6List = fullRaw<ExtCommIp6List>(Packed::extCommIp6List);
        v.pmsiTunnel = fullRaw<PmsiTunnel>(Packed::pmsiTunnel);
        v.prefixSid = fullRaw<PrefixSid>(Packed::prefixSid);
        v.tunnelEncap = fullRaw<TunnelEncap>(Packed::tunnelEncap);
        v.domainPath = fullRaw<DomainPath>(Packed::domainPath);
        v.aigpMetric = fullRaw<AccumulatedIgpMetric>(Packed::aigpMetric);
        v.linkState = fullRaw<LinkStateAttrBase>(Packed::linkState);
        v.customerAttributeSet = fullRaw<AttributeSet>(Packed::customerAttributeSet);
        v.gunkPathAttrList = gunkRaw();
    }

private:
    static uint8_t presentFor(PathAttributeType t, const PathAttributesContents& c) noexcept {
        unsigned p = (c.tag() != 0) << Packed::tag | (c.medStorage() != 0) << Packed::med |
                     (c.localPrefStorage() != 0) << Packed::localPref |
                     bool(c.clusterListStashed()) << Packed::clusterList |
                     bool(c.aggregatorStashed()) << Packed::aggregator |
                     bool(c.commListStashed()) << Packed::commList |
                     bool(c.extCommListStashed()) << Packed::extCommList |
                     bool(c.largeCommListStashed()) << Packed::largeCommList;
        return uint8_t(p & Packed::optMask(t));
    }
    static uint32_t fullPresentFor(const PathAttributesContents& c) noexcept {
        return unsigned(c.weight() != 0 || c.bpAsPathWeight() != 0) << Packed::weights |
               unsigned(c.igpOrRedistMetricStorage() != 0) << Packed::igpOrRedist |
               unsigned(bool(c.llNextHopStashed())) << Packed::llNextHop |
               unsigned(bool(c.extCommIp6ListStashed())) << Packed::extCommIp6List |
               unsigned(bool(c.pmsiTunnelStashed())) << Packed::pmsiTunnel |
               unsigned(bool(c.prefixSidStashed())) << Packed::prefixSid |
               unsigned(bool(c.tunnelEncapStashed())) << Packed::tunnelEncap |
               unsigned(bool(c.domainPathStashed())) << Packed::domainPath |
               unsigned(bool(c.aigpMetricStashed())) << Packed::aigpMetric |
               unsigned(bool(c.linkStateStashed())) << Packed::linkState |
               unsigned(bool(c.customerAttributeSetStashed())) << Packed::customerAttributeSet |
               unsigned(bool(c.gunkPathAttrListRaw())) << Packed::gunk;
    }
    // Words the full tier's own members take (the unknown-attribute list's pointer two).
    static size_t fullWordsFor(const PathAttributesContents& c) noexcept {
        uint32_t fp = fullPresentFor(c);
        return std::popcount(fp) + (fp >> Packed::gunk & 1);
    }
    const uint32_t* words() const noexcept {
        return reinterpret_cast<const uint32_t*>(reinterpret_cast<const char*>(this) +
                                                 sizeof(PackedStorage));
    }
    uint32_t* words() noexcept {
        return reinterpret_cast<uint32_t*>(reinterpret_cast<char*>(this) + sizeof(PackedStorage));
    }

    Stashed<GenNexthop> nextHop_;
    Stashed<AspathAttrCanonical> aspathAttr_;
    uint16_t commonFlagsStorage_;
    Routing::RoutePreference preference_;
    uint8_t present_;
};

// The interning operations of inbound tier T over the packed layout, and the release of its words.
template <class Base, PathAttributeType T>
class PackedOps : public Base {
public:
    static constexpr PathAttributeType tierType = T;
    static size_t extraBytes(const PathAttributesContents& c) noexcept {
        return Base::extraBytesFor(T, c);
    }

protected:
    explicit PackedOps(const PathAttributesContents& c) : Base(c, T) {}
    PackedOps(const PathAttributesContents& c, PathAttributeType t) : Base(c, t) {}
    ~PackedOps() { this->releaseWords(T); }
    void feedHash(Keel::HashMix& m) const noexcept { this->feedHashFor(m, T); }
    bool sameMembers(const PackedOps& o) const noexcept { return this->sameMembersAs(o, T); }
    bool sameContents(const PathAttributesContents& c) const noexcept {
        return this->sameContentsFor(c, T);
    }
    void fill(PathAttributesContents& c) const { this->fillFor(c, T); }
    void fillFlags(PathAttributesContents&, uint16_t) const {}
    void fillView(PathAttributesView& v) const noexcept { this->fillViewFor(v, T); }
};

// The getters each larger inbound tier adds, over the tier it derives from.
template <class Base>
class PackedCommListGetters : public Base {
public:
    Mel::PtrConst<Aggregator> aggregatorGet() const noexcept override {
        return this->template optPtr<Aggregator>(Packed::aggregator);
    }
    Mel::PtrConst<CommList> commListGet() const noexcept override {
        return this->template optPtr<CommList>(Packed::commList);
    }

protected:
    PackedCommListGetters(const PathAttributesContents& c, PathAttributeType t) : Base(c, t) {}
};

template <class Base>
class PackedInternetGetters : public Base {
public:
    Mel::PtrConst<ExtCommList> extCommListGet() const noexcept override {
        return this->template optPtr<ExtCommList>(Packed::extCommList);
    }
    Mel::PtrConst<LargeCommList> largeCommListGet() const noexcept override {
        return this->template optPtr<LargeCommList>(Packed::largeCommList);
    }

protected:
    PackedInternetGetters(const PathAttributesContents& c, PathAttributeType t) : Base(c, t) {}
};

template <class Base>
class PackedExtCommListGetters : public Base {
public:
    Mel::PtrConst<CommList> commListGet() const noexcept override {
        return this->template optPtr<CommList>(Packed::commList);
    }
    Mel::PtrConst<ExtCommList> extCommListGet() const noexcept override {
        return this->template optPtr<ExtCommList>(Packed::extCommList);
    }

protected:
    PackedExtCommListGetters(const PathAttributesContents& c, PathAttributeType t) : Base(c, t) {}
};

template <class Base>
class PackedFullGetters : public Base {
public:
    RouteWeight weightGet() const noexcept override {
        return RouteWeight(this->fullOpt(Packed::weights));
    }
    RouteWeight bpAsPathWeightGet() const noexcept override {
        return RouteWeight(this->fullOpt(Packed::weights) >> 16);
    }
    RedistMetric redistMetricGet() const noexcept override {
        return this->uncommonFlags() & 1 ? RedistMetric(this->fullOpt(Packed::igpOrRedist))
                                         : RedistMetric();
    }
    IgpMetricForNexthop igpMetricForNexthopGet() const noexcept override {
        return this->uncommonFlags() & 2 ? IgpMetricForNexthop(this->fullOpt(Packed::igpOrRedist))
                                         : IgpMetricForNexthop();
    }
    Mel::PtrConst<GenNexthop> llNextHopGet() const noexcept override {
        return this->template fullPtr<GenNexthop>(Packed::llNextHop);
    }
    Mel::PtrConst<Aggregator> aggregatorGet() const noexcept override {
        return this->template optPtr<Aggregator>(Packed::aggregator);
    }
    Mel::PtrConst<CommList> commListGet() const noexcept override {
        return this->template optPtr<CommList>(Packed::commList);
    }
    Mel::PtrConst<ExtCommList> extCommListGet() const noexcept override {
        return this->template optPtr<ExtCommList>(Packed::extCommList);
    }
    Mel::PtrConst<ExtCommIp6List> extCommIp6ListGet() const noexcept override {
        return this->template fullPtr<ExtCommIp6List>(Packed::extCommIp6List);
    }
    Mel::PtrConst<LargeCommList> largeCommListGet() const noexcept override {
        return this->template optPtr<LargeCommList>(Packed::largeCommList);
    }
    Mel::PtrConst<PmsiTunnel> pmsiTunnelGet() const noexcept override {
        return this->template fullPtr<PmsiTunnel>(Packed::pmsiTunnel);
    }
    Mel::PtrConst<PrefixSid> prefixSidGet() const noexcept override {
        return this->template fullPtr<PrefixSid>(Packed::prefixSid);
    }
    Mel::PtrConst<TunnelEncap> tunnelEncapGet() const noexcept override {
        return this->template fullPtr<TunnelEncap>(Packed::tunnelEncap);
    }
    Mel::PtrConst<DomainPath> domainPathGet() const noexcept override {
        return this->template fullPtr<DomainPath>(Packed::domainPath);
    }
    Mel::PtrConst<AccumulatedIgpMetric> aigpMetricGet() const noexcept override {
        return this->template fullPtr<AccumulatedIgpMetric>(Packed::aigpMetric);
    }
    Mel::PtrConst<LinkStateAttrBase> linkStateGet() const noexcept override {
        return this->template fullPtr<LinkStateAttrBase>(Packed::linkState);
    }
    Mel::PtrConst<AttributeSet> customerAttributeSetGet() const noexcept override {
        return this->template fullPtr<AttributeSet>(Packed::customerAttributeSet);
    }
    Mel::PtrConst<GunkPathAttrList> gunkPathAttrListGet() const noexcept override {
        return Mel::PtrConst<GunkPathAttrList>(this->gunkRaw());
    }

protected:
    PackedFullGetters(const PathAttributesContents& c, PathAttributeType t) : Base(c, t) {}
};

// The outbound tiers keep their members at fixed places: the community tiers' pointers, over the
// outbound base (RibOutBgpPathAttributes.h).
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

// The sub-attribute pointers of the outbound full tier.
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
    // A new object, not yet referenced, with room for the words its chain keeps after it.
    static Leaf* create(const PathAttributesContents& c) {
        if constexpr (requires { Chain::extraBytes(c); })
            return new (MelStash::ExtraBytes{Chain::extraBytes(c)}) Leaf(c);
        else
            return new Leaf(c);
    }
    static Mel::PtrConst<Leaf> createMe(const PathAttributesContents& c) {
        return Mel::PtrConst<Leaf>(create(c));
    }

protected:
    template <class... Tier>
    explicit Sealed(const PathAttributesContents& c, Tier... t) : Chain(c, t...) {}
};

} // namespace PathAttributesTier

// Leaves: the five tiers, and their read-back twins with the same members and answers. A tier
// object is made only by createMe (or create), which sizes it for the words it holds; the
// constructor with a tier is how a larger tier builds the smaller one it derives from.
#define ORV_PATH_ATTRIBUTES_TIER(Name, ...)                                                        \
    class Name : public PathAttributesTier::Sealed<Name, __VA_ARGS__> {                            \
        MELSTASH_STORE_ALLOCATED(Name)                                                             \
        friend Sealed;                                                                             \
                                                                                                   \
    protected:                                                                                     \
        explicit Name(const PathAttributesContents& c) : Sealed(c) {}                              \
        Name(const PathAttributesContents& c, PathAttributeType t) : Sealed(c, t) {}               \
    }

namespace PathAttributesTier {
using PackedBase = PackedOps<PackedStorage<PathAttributes>, PathAttributeType::base>;
template <class Common>
using PackedWithCommList =
    PackedOps<PackedCommListGetters<Common>, PathAttributeType::withCommList>;
template <class WithCommList>
using PackedInternet = PackedOps<PackedInternetGetters<WithCommList>, PathAttributeType::internet>;
template <class Common>
using PackedWithExtCommList =
    PackedOps<PackedExtCommListGetters<Common>, PathAttributeType::withExtCommList>;
template <class Common>
using PackedFull = PackedOps<PackedFullGetters<Common>, PathAttributeType::full>;
} // namespace PathAttributesTier

ORV_PATH_ATTRIBUTES_TIER(PathAttributesCommon, PathAttributesTier::PackedBase);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesWithCommList,
                         PathAttributesTier::PackedWithCommList<PathAttributesCommon>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesInternet,
                         PathAttributesTier::PackedInternet<PathAttributesWithCommList>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesWithExtCommList,
                         PathAttributesTier::PackedWithExtCommList<PathAttributesCommon>);
ORV_PATH_ATTRIBUTES_TIER(FullPathAttributes, PathAttributesTier::PackedFull<PathAttributesCommon>);

ORV_PATH_ATTRIBUTES_TIER(PathAttributesCommonDestashed, PathAttributesTier::PackedBase);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesWithCommListDestashed,
                         PathAttributesTier::PackedWithCommList<PathAttributesCommonDestashed>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesInternetDestashed,
                         PathAttributesTier::PackedInternet<PathAttributesWithCommListDestashed>);
ORV_PATH_ATTRIBUTES_TIER(PathAttributesWithExtCommListDestashed,
                         PathAttributesTier::PackedWithExtCommList<PathAttributesCommonDestashed>);
ORV_PATH_ATTRIBUTES_TIER(FullPathAttributesDestashed,
                         PathAttributesTier::PackedFull<PathAttributesCommonDestashed>);

#undef ORV_PATH_ATTRIBUTES_TIER

} // namespace Routing::Bgp
