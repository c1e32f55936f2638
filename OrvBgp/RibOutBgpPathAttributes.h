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

// The outbound tiers: the packed layout without the inbound-only members (see
// BgpPathAttributesTiers.h), built only by create/createMe.
#define ORV_RIB_OUT_TIER(Name, ...)                                                                \
    class Name : public PathAttributesTier::Sealed<Name, __VA_ARGS__> {                            \
        MELSTASH_STORE_ALLOCATED(Name)                                                             \
        friend Sealed;                                                                             \
                                                                                                   \
    protected:                                                                                     \
        explicit Name(const PathAttributesContents& c) : Sealed(c) {}                              \
        Name(const PathAttributesContents& c, PathAttributeType t) : Sealed(c, t) {}               \
    }

namespace PathAttributesTier {
using RibOutPackedBase =
    PackedOps<PackedStorage<RibOutPathAttributes, false>, PathAttributeType::base>;
template <class Common>
using RibOutPackedFull = PackedOps<PackedFullPointerGetters<Common>, PathAttributeType::full>;
} // namespace PathAttributesTier

ORV_RIB_OUT_TIER(RibOutPathAttributesCommon, PathAttributesTier::RibOutPackedBase);
ORV_RIB_OUT_TIER(RibOutPathAttributesWithCommList,
                 PathAttributesTier::PackedWithCommList<RibOutPathAttributesCommon>);
ORV_RIB_OUT_TIER(RibOutPathAttributesInternet,
                 PathAttributesTier::PackedInternet<RibOutPathAttributesWithCommList>);
ORV_RIB_OUT_TIER(RibOutPathAttributesWithExtCommList,
                 PathAttributesTier::PackedWithExtCommList<RibOutPathAttributesCommon>);
ORV_RIB_OUT_TIER(RibOutFullPathAttributes,
                 PathAttributesTier::RibOutPackedFull<RibOutPathAttributesCommon>);

ORV_RIB_OUT_TIER(RibOutPathAttributesCommonDestashed, PathAttributesTier::RibOutPackedBase);
ORV_RIB_OUT_TIER(RibOutPathAttributesWithCommListDestashed,
                 PathAttributesTier::PackedWithCommList<RibOutPathAttributesCommonDestashed>);
ORV_RIB_OUT_TIER(RibOutPathAttributesInternetDestashed,
                 PathAttributesTier::PackedInternet<RibOutPathAttributesWithCommListDestashed>);
ORV_RIB_OUT_TIER(RibOutPathAttributesWithExtCommListDestashed,
                 PathAttributesTier::PackedWithExtCommList<RibOutPathAttributesCommonDestashed>);
ORV_RIB_OUT_TIER(RibOutFullPathAttributesDestashed,
                 PathAttributesTier::RibOutPackedFull<RibOutPathAttributesCommonDestashed>);

#undef ORV_RIB_OUT_TIER

} // namespace Routing::Bgp
