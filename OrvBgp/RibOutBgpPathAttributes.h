// Interned attribute sets as advertised to peers: only what goes on the wire is kept, so inbound
// sets that differ in tag, next hop, preference, weights, metrics or local flags share one.
//   Mel::PtrConst<RibOutPathAttributes> out =
//       RibOutPathAttributesFactory(contents).dedupContent(&RibOutPathAttributesDedupTable::instance());
#pragma once

#include "OrvBgp/BgpPathAttributes.h"

namespace Routing::Bgp {

class RibOutPathAttributesDedupTable;

// The outbound interface: the shared getters only (what is advertised), with the inbound defaults.
class RibOutPathAttributes : public PathAttributesInterface {
public:
    // Flag bits kept: aspType, atomicAggregate, origin, medSpecified, localPrefSpecified,
    // llgrStale.
    static constexpr uint16_t commonFlagsMask = 0x1ff;
    // Non-default bits that only the outbound full tier can hold.
    static constexpr uint32_t fullOnlyMask = 0xE972;

    virtual const RibOutPathAttributes* ribOutDuplicateComparisonAttributes() const noexcept {
        return this;
    }

    // The outbound tier a non-default bit set selects.
    static PathAttributeType tierFor(uint32_t mask) noexcept;
    static uint32_t contentsHash(PathAttributeType t, const PathAttributesContents& c);
    static Mel::PtrConst<RibOutPathAttributes>
    dedupContent(const RibOutPathAttributesDedupTable* table, const PathAttributesContents& c);
};

class RibOutPathAttributesDedupTable : public Keel::DedupTable<RibOutPathAttributes> {
public:
    using DedupTable::DedupTable;
    static RibOutPathAttributesDedupTable& instance();
};

// Creations of outbound sets per combination of uncommon attributes; same report as the inbound
// statistics under its own title.
class RibOutPathAttributesStats : public PathAttributesStats {
public:
    static RibOutPathAttributesStats& instance();

private:
    RibOutPathAttributesStats() noexcept : PathAttributesStats("RibOutPathAttributesStats") {}
};

class RibOutPathAttributesFactory {
public:
    RibOutPathAttributesFactory() = default;
    explicit RibOutPathAttributesFactory(PathAttributesContents c) : contents_(std::move(c)) {}
    const PathAttributesContents& contents() const noexcept { return contents_; }
    PathAttributesContents& contents() noexcept { return contents_; }
    Mel::PtrConst<RibOutPathAttributes>
    dedupContent(const RibOutPathAttributesDedupTable* table) const;
    // A new RibOutFullPathAttributes, not interned, whatever the contents.
    Mel::PtrConst<RibOutPathAttributes> make() const;
    bool operator==(const RibOutPathAttributesFactory& o) const noexcept {
        return contents_ == o.contents_;
    }
    bool operator<(const RibOutPathAttributesFactory& o) const noexcept {
        return contents_ < o.contents_;
    }
    explicit operator bool() const noexcept { return bool(contents_); }
    // Value('Routing::Bgp::RibOutPathAttributesFactory', ** {'contents': Value(...)}).
    std::string toStrep() const;

private:
    PathAttributesContents contents_;

public:
    MEL_VALUE_TYPE(RibOutPathAttributesFactory, "Routing::Bgp::RibOutPathAttributesFactory",
                   (contents_))
};
std::ostream& operator<<(std::ostream& os, const RibOutPathAttributesFactory& f);

namespace RibOutTier {

template <class T>
using Stashed = MelStash::CompressedStashSmartPtr<T const, 4>;
using PathAttributesTier::addr;

template <class Root>
class CommonTier : public Root {
public:
    using RootType = Root;
    static constexpr PathAttributeType tierType = PathAttributeType::base;
    MultiExitDiscriminator medGet() const noexcept override {
        return commonFlagsStorage_ >> 6 & 1 ? MultiExitDiscriminator(medStorage_)
                                            : MultiExitDiscriminator();
    }
    RoutingLocalPref localPrefGet() const noexcept override {
        return commonFlagsStorage_ >> 7 & 1 ? RoutingLocalPref(localPrefStorage_)
                                            : RoutingLocalPref();
    }
    Mel::PtrConst<AspathAttrCanonical> aspathAttrGet() const noexcept override {
        return aspathAttr_.ptr();
    }
    Mel::PtrConst<ClusterList> clusterListGet() const noexcept override {
        return clusterList_.ptr();
    }
    AspType aspTypeGet() const noexcept override { return AspType(commonFlagsStorage_ & 7); }
    bool atomicAggregateGet() const noexcept override { return commonFlagsStorage_ >> 3 & 1; }
    Origin originGet() const noexcept override { return Origin(commonFlagsStorage_ >> 4 & 3); }
    bool llgrStaleGet() const noexcept override { return commonFlagsStorage_ >> 8 & 1; }

protected:
    explicit CommonTier(const PathAttributesContents& c)
        : medStorage_(c.medStorage()), localPrefStorage_(c.localPrefStorage()),
          aspathAttr_(c.aspathAttrStashed()), clusterList_(c.clusterListStashed()),
          commonFlagsStorage_(
              uint16_t(c.commonFlagsStorage() & RibOutPathAttributes::commonFlagsMask)) {}
    void feedHash(Keel::HashMix& m) const noexcept {
        m.hashMix(medStorage_);
        m.hashMix(localPrefStorage_);
        m.hashMix(addr(aspathAttr_));
        m.hashMix(addr(clusterList_));
        m.hashMix(commonFlagsStorage_);
    }
    bool sameMembers(const CommonTier& o) const noexcept {
        return medStorage_ == o.medStorage_ && localPrefStorage_ == o.localPrefStorage_ &&
               aspathAttr_ == o.aspathAttr_ && clusterList_ == o.clusterList_ &&
               commonFlagsStorage_ == o.commonFlagsStorage_;
    }
    bool sameContents(const PathAttributesContents& c) const noexcept {
        return medStorage_ == c.medStorage() && localPrefStorage_ == c.localPrefStorage() &&
               aspathAttr_ == c.aspathAttrStashed() && clusterList_ == c.clusterListStashed() &&
               commonFlagsStorage_ ==
                   (c.commonFlagsStorage() & RibOutPathAttributes::commonFlagsMask);
    }
    void fillView(PathAttributesView& v) const noexcept {
        v.medStorage = medStorage_;
        v.localPrefStorage = localPrefStorage_;
        v.aspathAttr = aspathAttr_.get();
        v.clusterList = clusterList_.get();
        v.commonFlagsStorage = commonFlagsStorage_;
    }
    void fill(PathAttributesContents& c) const {
        c.medStorageIs(medStorage_);
        c.localPrefStorageIs(localPrefStorage_);
        c.aspathAttrIs(aspathAttr_.ptr());
        c.clusterListIs(clusterList_.ptr());
    }
    // Last of all, after the community list's setter has run: kept flags replace their bits; the
    // dropped ones (noLlgr, ipLookupAsBackup) are as c had them before (`before`).
    void fillFlags(PathAttributesContents& c, uint16_t before) const {
        c.commonFlagsStorageIs(
            uint16_t((before & ~RibOutPathAttributes::commonFlagsMask) | commonFlagsStorage_));
    }

    uint32_t medStorage_;
    uint32_t localPrefStorage_;
    Stashed<AspathAttrCanonical> aspathAttr_;
    Stashed<ClusterList> clusterList_;
    uint16_t commonFlagsStorage_;
};

// The community tiers are the inbound ones over the outbound base.
template <class Base>
using WithCommListTier = PathAttributesTier::WithCommListTier<Base>;
template <class Base>
using InternetTier = PathAttributesTier::InternetTier<Base>;
template <class Base>
using WithExtCommListTier = PathAttributesTier::WithExtCommListTier<Base>;

// The outbound full tier: the shared full-tier pointers over the outbound base.
template <class Base>
using FullTier = PathAttributesTier::FullPointersTier<Base>;

} // namespace RibOutTier

#define ORV_RIB_OUT_TIER(Name, Chain)                                                              \
    class Name : public PathAttributesTier::Sealed<Name, Chain> {                                  \
        MELSTASH_STORE_ALLOCATED(Name)                                                             \
                                                                                                   \
    public:                                                                                        \
        explicit Name(const PathAttributesContents& c) : Sealed(c) {}                              \
    }

ORV_RIB_OUT_TIER(RibOutPathAttributesCommon, RibOutTier::CommonTier<RibOutPathAttributes>);
ORV_RIB_OUT_TIER(RibOutPathAttributesWithCommList,
                 RibOutTier::WithCommListTier<RibOutPathAttributesCommon>);
ORV_RIB_OUT_TIER(RibOutPathAttributesInternet,
                 RibOutTier::InternetTier<RibOutPathAttributesWithCommList>);
ORV_RIB_OUT_TIER(RibOutPathAttributesWithExtCommList,
                 RibOutTier::WithExtCommListTier<RibOutPathAttributesCommon>);
ORV_RIB_OUT_TIER(RibOutFullPathAttributes, RibOutTier::FullTier<RibOutPathAttributesCommon>);

ORV_RIB_OUT_TIER(RibOutPathAttributesCommonDestashed, RibOutTier::CommonTier<RibOutPathAttributes>);
ORV_RIB_OUT_TIER(RibOutPathAttributesWithCommListDestashed,
                 RibOutTier::WithCommListTier<RibOutPathAttributesCommonDestashed>);
ORV_RIB_OUT_TIER(RibOutPathAttributesInternetDestashed,
                 RibOutTier::InternetTier<RibOutPathAttributesWithCommListDestashed>);
ORV_RIB_OUT_TIER(RibOutPathAttributesWithExtCommListDestashed,
                 RibOutTier::WithExtCommListTier<RibOutPathAttributesCommonDestashed>);
ORV_RIB_OUT_TIER(RibOutFullPathAttributesDestashed,
                 RibOutTier::FullTier<RibOutPathAttributesCommonDestashed>);

#undef ORV_RIB_OUT_TIER

} // namespace Routing::Bgp
