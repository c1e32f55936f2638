// The five storage tiers of PathAttributes and their read-back (destashed) twins. Included by
// BgpPathAttributes.h; see there.
//   PathAttributesCommon::createMe(contents)   // base: next hop, AS path, MED, local pref, flags
//   FullPathAttributes::createMe(contents)     // every member
#pragma once

#include "Keel/HashMix.h"

#include <bit>
#include <cstring>
#include <type_traits>

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

// The packed layout of both families. After the 12-byte object header come the members every set
// has, at fixed places (inbound: next hop, AS path, flags, preference; outbound: AS path, flags),
// and `present_`, a byte naming which of eight optional members follow; then one 32-bit word per
// optional member that holds other than its default, in bit order: tag (inbound only), MED, local
// preference, cluster list, aggregator, communities, extended and large communities (a tier sets
// only the bits of members it stores). The full tier then has one word of its own (which of its
// twelve members follow, and the two uncommon flags) and a word for each of those: weight and
// AS-path weight share one, the unknown-attribute list's full pointer takes two; an outbound full
// set keeps only the pointers. So an inbound set with a MED and communities is 32 bytes, an
// outbound one 32, with a MED alone 32 and 24, and an inbound full set whose only uncommon member
// is a link-local next hop 32 (40 with a MED).
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
// The members at fixed places, after the object header.
template <bool Inbound>
struct Fixed {
    Stashed<GenNexthop> nextHop_;
    Stashed<AspathAttrCanonical> aspathAttr_;
    uint16_t commonFlagsStorage_;
    Routing::RoutePreference preference_;
    uint8_t present_;
};
template <>
struct Fixed<false> {
    Stashed<AspathAttrCanonical> aspathAttr_;
    uint16_t commonFlagsStorage_;
    uint8_t present_;
};
} // namespace Packed

// Storage and the getters both families answer. Inbound: flags masked with 0x7ff; outbound with
// 0x1ff, and no tag, next hop, preference, weights, metrics or link-local next hop.
template <class Root, bool Inbound>
class PackedStorage : public Root {
public:
    using RootType = Root;
    static constexpr PathAttributeType tierType = PathAttributeType::base;
    static constexpr uint16_t flagsMask = Inbound ? 0x7ff : 0x1ff;

    MultiExitDiscriminator medGet() const noexcept override {
        return f_.commonFlagsStorage_ >> 6 & 1 ? MultiExitDiscriminator(opt(Packed::med))
                                               : MultiExitDiscriminator();
    }
    RoutingLocalPref localPrefGet() const noexcept override {
        return f_.commonFlagsStorage_ >> 7 & 1 ? RoutingLocalPref(opt(Packed::localPref))
                                               : RoutingLocalPref();
    }
    Mel::PtrConst<AspathAttrCanonical> aspathAttrGet() const noexcept override {
        return f_.aspathAttr_.ptr();
    }
    Mel::PtrConst<ClusterList> clusterListGet() const noexcept override {
        return optPtr<ClusterList>(Packed::clusterList);
    }
    AspType aspTypeGet() const noexcept override { return AspType(f_.commonFlagsStorage_ & 7); }
    bool atomicAggregateGet() const noexcept override { return f_.commonFlagsStorage_ >> 3 & 1; }
    Origin originGet() const noexcept override { return Origin(f_.commonFlagsStorage_ >> 4 & 3); }
    bool llgrStaleGet() const noexcept override { return f_.commonFlagsStorage_ >> 8 & 1; }

    // The bytes beyond the object's size that a set of tier t made from c takes.
    static size_t extraBytesFor(PathAttributeType t, const PathAttributesContents& c) noexcept {
        size_t words = std::popcount(presentFor(t, c));
        if (t == PathAttributeType::full) words += 1 + fullWordCount(fullPresentFor(c));
        size_t end = wordsOffset + words * 4;
        return end > sizeof(PackedStorage) ? end - sizeof(PackedStorage) : 0;
    }

protected:
    PackedStorage(const PathAttributesContents& c, PathAttributeType t) : f_(fixedFor(c, t)) {
        uint32_t* w = words();
        // A word for each present member; a reference is taken only for a member kept (contents
        // may hold members this tier or family does not store).
        auto ref = [](const auto& p) { return std::remove_cvref_t<decltype(p)>(p).detach(); };
        auto put = [&w, this](unsigned bit, auto value) {
            if (f_.present_ >> bit & 1) *w++ = value();
        };
        put(Packed::tag, [&] { return c.tag(); });
        put(Packed::med, [&] { return c.medStorage(); });
        put(Packed::localPref, [&] { return c.localPrefStorage(); });
        put(Packed::clusterList, [&] { return ref(c.clusterListStashed()); });
        put(Packed::aggregator, [&] { return ref(c.aggregatorStashed()); });
        put(Packed::commList, [&] { return ref(c.commListStashed()); });
        put(Packed::extCommList, [&] { return ref(c.extCommListStashed()); });
        put(Packed::largeCommList, [&] { return ref(c.largeCommListStashed()); });
        if (t != PathAttributeType::full) return;
        uint32_t fp = fullPresentFor(c);
        *w++ = fullHeaderFor(c, fp);
        auto putFull = [&w, fp](unsigned bit, auto value) {
            if (fp >> bit & 1) *w++ = value();
        };
        putFull(Packed::weights, [&] { return c.weight() | uint32_t(c.bpAsPathWeight()) << 16; });
        putFull(Packed::igpOrRedist, [&] { return c.igpOrRedistMetricStorage(); });
        putFull(Packed::llNextHop, [&] { return ref(c.llNextHopStashed()); });
        putFull(Packed::extCommIp6List, [&] { return ref(c.extCommIp6ListStashed()); });
        putFull(Packed::pmsiTunnel, [&] { return ref(c.pmsiTunnelStashed()); });
        putFull(Packed::prefixSid, [&] { return ref(c.prefixSidStashed()); });
        putFull(Packed::tunnelEncap, [&] { return ref(c.tunnelEncapStashed()); });
        putFull(Packed::domainPath, [&] { return ref(c.domainPathStashed()); });
        putFull(Packed::aigpMetric, [&] { return ref(c.aigpMetricStashed()); });
        putFull(Packed::linkState, [&] { return ref(c.linkStateStashed()); });
        putFull(Packed::customerAttributeSet, [&] { return ref(c.customerAttributeSetStashed()); });
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
            uint32_t* f = words() + std::popcount(f_.present_);
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
            if (f_.present_ >> bit & 1)
                (void)Stashed<T>::adopt(words()[Packed::below(f_.present_, bit)]);
        };
        drop(Packed::clusterList, (ClusterList*)nullptr);
        drop(Packed::aggregator, (Aggregator*)nullptr);
        drop(Packed::commList, (CommList*)nullptr);
        drop(Packed::extCommList, (ExtCommList*)nullptr);
        drop(Packed::largeCommList, (LargeCommList*)nullptr);
        f_.present_ = 0;
    }

    // The optional member `bit`, 0 (its default) when absent.
    uint32_t opt(unsigned bit) const noexcept {
        return f_.present_ >> bit & 1 ? words()[Packed::below(f_.present_, bit)] : 0;
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
    const uint32_t* fullWords() const noexcept { return words() + std::popcount(f_.present_); }
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
        if constexpr (Inbound) m.hashMix(Routing::RouteTag(opt(Packed::tag)));
        m.hashMix(opt(Packed::med));
        m.hashMix(opt(Packed::localPref));
        if constexpr (Inbound) ptr(f_.nextHop_.get());
        ptr(f_.aspathAttr_.get());
        ptr(optRaw<ClusterList>(Packed::clusterList));
        m.hashMix(f_.commonFlagsStorage_);
        if constexpr (Inbound) m.hashMix(f_.preference_);
        if (t == PathAttributeType::base) return; // most sets: nothing more to read
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
        if constexpr (Inbound) {
            uint32_t w = fullOpt(Packed::weights);
            m.hashMix(uncommonFlags());
            m.hashMix(RouteWeight(w));
            m.hashMix(RouteWeight(w >> 16));
            m.hashMix(fullOpt(Packed::igpOrRedist));
            ptr(fullRaw<GenNexthop>(Packed::llNextHop));
        }
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
        if constexpr (Inbound)
            if (f_.nextHop_ != o.f_.nextHop_ || f_.preference_ != o.f_.preference_) return false;
        if (f_.aspathAttr_ != o.f_.aspathAttr_ ||
            f_.commonFlagsStorage_ != o.f_.commonFlagsStorage_ || f_.present_ != o.f_.present_)
            return false;
        size_t n = std::popcount(f_.present_);
        if (t == PathAttributeType::full) n += 1 + fullWordCount(fullWords()[0] & 0xffff);
        return std::memcmp(words(), o.words(), n * 4) == 0;
    }

    // Contents that select this set's tier t agree with it on every member (a member the tier
    // does not store is at its default in such contents, as it is absent here).
    bool sameContentsFor(const PathAttributesContents& c, PathAttributeType t) const noexcept {
        if constexpr (Inbound)
            if (f_.nextHop_ != c.nextHopStashed() || f_.preference_ != c.preference()) return false;
        if (f_.aspathAttr_ != c.aspathAttrStashed() ||
            f_.commonFlagsStorage_ != (c.commonFlagsStorage() & flagsMask) ||
            f_.present_ != presentFor(t, c))
            return false;
        const uint32_t* w = words();
        auto same = [&w, this](unsigned bit, uint32_t v) {
            return !(f_.present_ >> bit & 1) || *w++ == v;
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
        if (*w++ != fullHeaderFor(c, fp)) return false;
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

    // Writes the members tier t stores into c, all but the flags (fillFlagsInto, last).
    void fillFor(PathAttributesContents& c, PathAttributeType t) const {
        if constexpr (Inbound) {
            c.tagIs(opt(Packed::tag));
            c.nextHopIs(f_.nextHop_.ptr());
            c.preferenceIs(f_.preference_);
        }
        c.medStorageIs(opt(Packed::med));
        c.localPrefStorageIs(opt(Packed::localPref));
        c.aspathAttrIs(f_.aspathAttr_.ptr());
        c.clusterListIs(optPtr<ClusterList>(Packed::clusterList));
        unsigned stored = Packed::optMask(t);
        if (stored >> Packed::aggregator & 1)
            c.aggregatorIs(optPtr<Aggregator>(Packed::aggregator));
        if (stored >> Packed::commList & 1) c.commListIs(optPtr<CommList>(Packed::commList));
        if (stored >> Packed::extCommList & 1)
            c.extCommListIs(optPtr<ExtCommList>(Packed::extCommList));
        if (stored >> Packed::largeCommList & 1)
            c.largeCommListIs(optPtr<LargeCommList>(Packed::largeCommList));
        if (t != PathAttributeType::full) return;
        if constexpr (Inbound) {
            uint32_t w = fullOpt(Packed::weights);
            c.uncommonFlagsStorageIs(uncommonFlags());
            c.weightIs(RouteWeight(w));
            c.bpAsPathWeightIs(RouteWeight(w >> 16));
            c.igpOrRedistMetricStorageIs(fullOpt(Packed::igpOrRedist));
            c.llNextHopIs(fullPtr<GenNexthop>(Packed::llNextHop));
        }
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
    // Last of all, after the community list's setter has run: inbound, the flags as stored;
    // outbound, the kept flags replace their bits and the dropped ones (noLlgr,
    // ipLookupAsBackup) are as c had them before (`before`).
    void fillFlagsInto(PathAttributesContents& c, uint16_t before) const {
        c.commonFlagsStorageIs(
            uint16_t((Inbound ? 0 : before & ~flagsMask) | f_.commonFlagsStorage_));
    }

    void fillViewFor(PathAttributesView& v, PathAttributeType t) const noexcept {
        if constexpr (Inbound) {
            v.tag = opt(Packed::tag);
            v.nextHop = f_.nextHop_.get();
            v.preference = f_.preference_;
        }
        v.medStorage = opt(Packed::med);
        v.localPrefStorage = opt(Packed::localPref);
        v.aspathAttr = f_.aspathAttr_.get();
        v.clusterList = optRaw<ClusterList>(Packed::clusterList);
        v.commonFlagsStorage = f_.commonFlagsStorage_;
        unsigned stored = Packed::optMask(t);
        if (stored >> Packed::aggregator & 1) v.aggregator = optRaw<Aggregator>(Packed::aggregator);
        if (stored >> Packed::commList & 1) v.commList = optRaw<CommList>(Packed::commList);
        if (stored >> Packed::extCommList & 1)
            v.extCommList = optRaw<ExtCommList>(Packed::extCommList);
        if (stored >> Packed::largeCommList & 1)
            v.largeCommList = optRaw<LargeCommList>(Packed::largeCommList);
        if (t != PathAttributeType::full) return;
        if constexpr (Inbound) {
            uint32_t w = fullOpt(Packed::weights);
            v.uncommonFlagsStorage = uncommonFlags();
            v.weight = RouteWeight(w);
            v.bpAsPathWeight = RouteWeight(w >> 16);
            v.igpOrRedistMetricStorage = fullOpt(Packed::igpOrRedist);
            v.llNextHop = fullRaw<GenNexthop>(Packed::llNextHop);
        }
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

    Packed::Fixed<Inbound> f_;

private:
    // Where the words start: right after the fixed members, at offset 24 inbound and 20 outbound.
    static constexpr size_t wordsOffset = 12 + sizeof(Packed::Fixed<Inbound>);

    static Packed::Fixed<Inbound> fixedFor(const PathAttributesContents& c, PathAttributeType t) {
        auto flags = uint16_t(c.commonFlagsStorage() & flagsMask);
        if constexpr (Inbound)
            return {c.nextHopStashed(), c.aspathAttrStashed(), flags, c.preference(),
                    presentFor(t, c)};
        else
            return {c.aspathAttrStashed(), flags, presentFor(t, c)};
    }
    static uint8_t presentFor(PathAttributeType t, const PathAttributesContents& c) noexcept {
        unsigned p = (c.tag() != 0) << Packed::tag | (c.medStorage() != 0) << Packed::med |
                     (c.localPrefStorage() != 0) << Packed::localPref |
                     bool(c.clusterListStashed()) << Packed::clusterList |
                     bool(c.aggregatorStashed()) << Packed::aggregator |
                     bool(c.commListStashed()) << Packed::commList |
                     bool(c.extCommListStashed()) << Packed::extCommList |
                     bool(c.largeCommListStashed()) << Packed::largeCommList;
        return uint8_t(p & Packed::optMask(t) & (Inbound ? 0xff : ~(1u << Packed::tag)));
    }
    static uint32_t fullPresentFor(const PathAttributesContents& c) noexcept {
        constexpr unsigned outboundKeeps =
            ~(1u << Packed::weights | 1u << Packed::igpOrRedist | 1u << Packed::llNextHop);
        unsigned fp = unsigned(c.weight() != 0 || c.bpAsPathWeight() != 0) << Packed::weights |
                      unsigned(c.igpOrRedistMetricStorage() != 0) << Packed::igpOrRedist |
                      unsigned(bool(c.llNextHopStashed())) << Packed::llNextHop |
                      unsigned(bool(c.extCommIp6ListStashed())) << Packed::extCommIp6List |
                      unsigned(bool(c.pmsiTunnelStashed())) << Packed::pmsiTunnel |
                      unsigned(bool(c.prefixSidStashed())) << Packed::prefixSid |
                      unsigned(bool(c.tunnelEncapStashed())) << Packed::tunnelEncap |
                      unsigned(bool(c.domainPathStashed())) << Packed::domainPath |
                      unsigned(bool(c.aigpMetricStashed())) << Packed::aigpMetric |
                      unsigned(bool(c.linkStateStashed())) << Packed::linkState |
                      unsigned(bool(c.customerAttributeSetStashed()))
                          << Packed::customerAttributeSet |
                      unsigned(bool(c.gunkPathAttrListRaw())) << Packed::gunk;
        return Inbound ? fp : fp & outboundKeeps;
    }
    // Words the full tier's present members take (the unknown-attribute list's pointer two).
    static size_t fullWordCount(uint32_t fp) noexcept {
        return std::popcount(fp) + (fp >> Packed::gunk & 1);
    }
    // The full tier's own word: which of its members follow, and the uncommon flags above them.
    static uint32_t fullHeaderFor(const PathAttributesContents& c, uint32_t fp) noexcept {
        return fp | uint32_t(Inbound ? c.uncommonFlagsStorage() & 3 : 0) << 16;
    }
    const uint32_t* words() const noexcept {
        return reinterpret_cast<const uint32_t*>(reinterpret_cast<const char*>(this) + wordsOffset);
    }
    uint32_t* words() noexcept {
        return reinterpret_cast<uint32_t*>(reinterpret_cast<char*>(this) + wordsOffset);
    }
};

// The interning operations of tier T over the packed layout, and the release of its words.
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
    void fillFlags(PathAttributesContents& c, uint16_t before) const {
        this->fillFlagsInto(c, before);
    }
    void fillView(PathAttributesView& v) const noexcept { this->fillViewFor(v, T); }
};

// The getters only inbound sets answer, over the storage.
template <class Base>
class PackedInboundGetters : public Base {
public:
    Routing::RouteTag tagGet() const noexcept override { return this->opt(Packed::tag); }
    Mel::PtrConst<GenNexthop> nextHopGet() const noexcept override {
        return this->f_.nextHop_.ptr();
    }
    Routing::RoutePreference preferenceGet() const noexcept override {
        return this->f_.preference_;
    }
    bool noLlgrGet() const noexcept override { return this->f_.commonFlagsStorage_ >> 9 & 1; }
    bool ipLookupAsBackupGet() const noexcept override {
        return this->f_.commonFlagsStorage_ >> 10 & 1;
    }

protected:
    PackedInboundGetters(const PathAttributesContents& c, PathAttributeType t) : Base(c, t) {}
};

// The getters each larger tier adds, over the tier it derives from.
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

// The full tier's pointer getters (both families).
template <class Base>
class PackedFullPointerGetters : public Base {
public:
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
    PackedFullPointerGetters(const PathAttributesContents& c, PathAttributeType t) : Base(c, t) {}
};

// The inbound full tier's scalars and link-local next hop, over its pointers.
template <class Base>
class PackedFullGetters : public PackedFullPointerGetters<Base> {
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

protected:
    PackedFullGetters(const PathAttributesContents& c, PathAttributeType t)
        : PackedFullPointerGetters<Base>(c, t) {}
};

// The chains of the five tiers over a family's base tier.
template <class Common>
using PackedWithCommList =
    PackedOps<PackedCommListGetters<Common>, PathAttributeType::withCommList>;
template <class WithCommList>
using PackedInternet = PackedOps<PackedInternetGetters<WithCommList>, PathAttributeType::internet>;
template <class Common>
using PackedWithExtCommList =
    PackedOps<PackedExtCommListGetters<Common>, PathAttributeType::withExtCommList>;
using PackedBase =
    PackedOps<PackedInboundGetters<PackedStorage<PathAttributes, true>>, PathAttributeType::base>;
template <class Common>
using PackedFull = PackedOps<PackedFullGetters<Common>, PathAttributeType::full>;

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
