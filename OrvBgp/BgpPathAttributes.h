// Interned, immutable attribute sets of paths, stored in the smallest of five tiers that holds
// them.
//   PathAttributesContents c;  c.aspathAttrIs(path);  c.commListIs(comms);
//   Mel::PtrConst<PathAttributes> a =
//   PathAttributesFactory(c).dedupContent(&PathAttributesDedupTable::instance());
#pragma once

#include "Keel/DedupTable.h"
#include "Keel/DumpContext.h"
#include "Mel/Ptr.h"
#include "Mel/String.h"
#include "MelStash/DedupHandle.h"
#include "OrvBgp/PathAttributesContents.h"
#include "OrvBgp/PathAttributesMembers.h"

#include <cstdint>
#include <mutex>
#include <string>

namespace Routing::Bgp {

class PathAttributesSerializeStoreMethodBase;
class PathAttributesDedupTable;
class RibOutLbwContext;

// Every member of a set as plain values and raw pointers, borrowed from the set (valid while it is
// held): what the serializers read, without a reference-count round trip per attribute.
struct PathAttributesView {
    Routing::RouteTag tag = 0;
    uint32_t medStorage = 0;
    uint32_t localPrefStorage = 0;
    const GenNexthop* nextHop = nullptr;
    const AspathAttrCanonical* aspathAttr = nullptr;
    const ClusterList* clusterList = nullptr;
    uint16_t commonFlagsStorage = 0x20; // origin 2, as the base answers
    Routing::RoutePreference preference = 1;
    uint8_t uncommonFlagsStorage = 0;
    RouteWeight weight = 0;
    RouteWeight bpAsPathWeight = 0;
    uint32_t igpOrRedistMetricStorage = 0;
    const GenNexthop* llNextHop = nullptr;
    const Aggregator* aggregator = nullptr;
    const CommList* commList = nullptr;
    const ExtCommList* extCommList = nullptr;
    const ExtCommIp6List* extCommIp6List = nullptr;
    const LargeCommList* largeCommList = nullptr;
    const PmsiTunnel* pmsiTunnel = nullptr;
    const PrefixSid* prefixSid = nullptr;
    const TunnelEncap* tunnelEncap = nullptr;
    const DomainPath* domainPath = nullptr;
    const AccumulatedIgpMetric* aigpMetric = nullptr;
    const LinkStateAttrBase* linkState = nullptr;
    const AttributeSet* customerAttributeSet = nullptr;
    const GunkPathAttrList* gunkPathAttrList = nullptr;

    Origin origin() const noexcept { return Origin(commonFlagsStorage >> 4 & 3); }
    bool atomicAggregate() const noexcept { return commonFlagsStorage >> 3 & 1; }
    bool medSpecified() const noexcept { return commonFlagsStorage >> 6 & 1; }
    bool localPrefSpecified() const noexcept { return commonFlagsStorage >> 7 & 1; }

    bool operator==(const PathAttributesView&) const noexcept = default;
};

// What inbound and outbound sets both answer: the interning operations, the set's own operations
// and the getters of the attributes both keep. A getter the tier does not store answers its
// default: metrics unspecified, flags false, origin 2 (the base's own default; every tier stores
// origin, so it is never seen through one), pointers null.
class PathAttributesInterface : public MelStash::DedupHandle {
public:
    uint32_t hash() const override = 0;
    bool compare(const Keel::DedupHandleBase* other) const override = 0;
    bool compareByContent(const Keel::DedupContentHandle& content) const override = 0;

    virtual PathAttributeType getType() const noexcept = 0;
    // Writes the members this tier stores into c, leaving c's other members as they were.
    virtual void getFullContent(PathAttributesContents& c) const = 0;
    // Writes every attribute the set holds, in ascending type code, one sink call per attribute.
    // fourByteAsPeer: the peer speaks 4-byte AS numbers (AS_PATH in 4-byte form, no AS4_PATH, and
    // AGGREGATOR with a 4-byte AS); internalPeer: the peer is internal (LOCAL_PREF is written, and
    // ORIGINATOR_ID/CLUSTER_LIST); writeNextHop: NEXT_HOP is written for an IPv4 next hop (off when
    // the next hop travels in MP_REACH_NLRI; an outbound set keeps no next hop to write).
    virtual void serializeInternal(PathAttributesSerializeStoreMethodBase* store,
                                   bool fourByteAsPeer, bool internalPeer,
                                   bool writeNextHop) const = 0;
    // Fills v with the members this tier stores (the others keep v's values: pass a fresh view).
    virtual void viewGet(PathAttributesView& v) const noexcept = 0;

    virtual MultiExitDiscriminator medGet() const noexcept { return {}; }
    virtual RoutingLocalPref localPrefGet() const noexcept { return {}; }
    virtual Mel::PtrConst<AspathAttrCanonical> aspathAttrGet() const noexcept { return {}; }
    virtual Mel::PtrConst<ClusterList> clusterListGet() const noexcept { return {}; }
    virtual AspType aspTypeGet() const noexcept { return AspType(0); }
    virtual bool atomicAggregateGet() const noexcept { return false; }
    virtual Origin originGet() const noexcept { return Origin(2); }
    virtual bool llgrStaleGet() const noexcept { return false; }
    virtual Mel::PtrConst<Aggregator> aggregatorGet() const noexcept { return {}; }
    virtual Mel::PtrConst<CommList> commListGet() const noexcept { return {}; }
    virtual Mel::PtrConst<ExtCommList> extCommListGet() const noexcept { return {}; }
    virtual Mel::PtrConst<ExtCommIp6List> extCommIp6ListGet() const noexcept { return {}; }
    virtual Mel::PtrConst<LargeCommList> largeCommListGet() const noexcept { return {}; }
    virtual Mel::PtrConst<PmsiTunnel> pmsiTunnelGet() const noexcept { return {}; }
    virtual Mel::PtrConst<PrefixSid> prefixSidGet() const noexcept { return {}; }
    virtual Mel::PtrConst<TunnelEncap> tunnelEncapGet() const noexcept { return {}; }
    virtual Mel::PtrConst<DomainPath> domainPathGet() const noexcept { return {}; }
    virtual Mel::PtrConst<AccumulatedIgpMetric> aigpMetricGet() const noexcept { return {}; }
    virtual Mel::PtrConst<LinkStateAttrBase> linkStateGet() const noexcept { return {}; }
    virtual Mel::PtrConst<AttributeSet> customerAttributeSetGet() const noexcept { return {}; }
    virtual Mel::PtrConst<GunkPathAttrList> gunkPathAttrListGet() const noexcept { return {}; }
    virtual const RibOutLbwContext* ribOutLbwContextRawPtrGet() const noexcept { return nullptr; }

    AspType aspType() const noexcept { return aspTypeGet(); }
    bool atomicAggregate() const noexcept { return atomicAggregateGet(); }
    Origin origin() const noexcept { return originGet(); }
    bool llgrStale() const noexcept { return llgrStaleGet(); }
};

// An inbound attribute set. Beyond the shared getters: tag 0, preference 1, noLlgr and
// ipLookupAsBackup false, weights 0, metrics unspecified, next hops null where a tier does not
// store them.
class PathAttributes : public PathAttributesInterface {
public:
    // The set that outbound duplicate detection compares: the set itself for every inbound tier.
    virtual const PathAttributes* ribOutDuplicateComparisonAttributes() const noexcept {
        return this;
    }

    virtual Routing::RouteTag tagGet() const noexcept { return 0; }
    virtual Mel::PtrConst<GenNexthop> nextHopGet() const noexcept { return {}; }
    virtual Routing::RoutePreference preferenceGet() const noexcept { return 1; }
    virtual bool noLlgrGet() const noexcept { return false; }
    virtual bool ipLookupAsBackupGet() const noexcept { return false; }
    virtual RouteWeight weightGet() const noexcept { return 0; }
    virtual RouteWeight bpAsPathWeightGet() const noexcept { return 0; }
    virtual RedistMetric redistMetricGet() const noexcept { return {}; }
    virtual IgpMetricForNexthop igpMetricForNexthopGet() const noexcept { return {}; }
    virtual Mel::PtrConst<GenNexthop> llNextHopGet() const noexcept { return {}; }

    bool noLlgr() const noexcept { return noLlgrGet(); }
    bool ipLookupAsBackup() const noexcept { return ipLookupAsBackupGet(); }

    // Whether the contents select the tier t and agree with this object on every member t stores.
    bool compareContentsForTier(PathAttributeType t, const PathAttributesContents& c) const;
    // The tier a non-default bit set selects.
    static PathAttributeType tierFor(uint32_t mask) noexcept {
        return dataMemberHasNonDefaultValueToPathAttributeType(mask);
    }
    // The interned set for the contents: the existing one, or a new one of the tier they select.
    static Mel::PtrConst<PathAttributes> dedupContent(const PathAttributesDedupTable* table,
                                                      const PathAttributesContents& c);
    // The contents' intern hash for tier t (each sub-attribute pointer must be interned).
    static uint32_t contentsHash(PathAttributeType t, const PathAttributesContents& c);
};

// The one intern table of inbound attribute sets, all five tiers (the tier is part of hash and
// equality).
class PathAttributesDedupTable : public Keel::DedupTable<PathAttributes> {
public:
    using DedupTable::DedupTable;
    static PathAttributesDedupTable& instance();
};

// Creations of attribute sets per combination of uncommon attributes (a non-default bit set),
// cumulative since start or the last countDelAll. One per process.
class PathAttributesStats {
public:
    static PathAttributesStats& instance();

    void countInc(uint32_t mask);
    uint64_t count(uint32_t mask) const;
    void countDelAll();
    // Rows sorted by number, then key; formatted outside the mutex.
    void dumpState(const Mel::Ptr<Keel::DumpContext const>& ctx, uint32_t indent) const;
    std::string toStrep() const;

protected:
    explicit PathAttributesStats(const char* title) noexcept : title_(title) {}

private:
    std::vector<std::pair<uint64_t, uint32_t>> snapshot() const;
    const char* title_;
    mutable std::mutex mutex_;
    Mel::HashMap<uint32_t, uint64_t> count_;
};

// Builds attribute sets from contents.
class PathAttributesFactory {
public:
    PathAttributesFactory() = default;
    explicit PathAttributesFactory(PathAttributesContents c) : contents_(std::move(c)) {}

    const PathAttributesContents& contents() const noexcept { return contents_; }
    PathAttributesContents& contents() noexcept { return contents_; }

    // The interned set for the contents, tier chosen by their non-default bits.
    Mel::PtrConst<PathAttributes> dedupContent(const PathAttributesDedupTable* table) const;
    // A new FullPathAttributes, not interned, whatever the contents.
    Mel::PtrConst<PathAttributes> make() const;

    bool operator==(const PathAttributesFactory& o) const noexcept {
        return contents_ == o.contents_;
    }
    bool operator<(const PathAttributesFactory& o) const noexcept {
        return contents_ < o.contents_;
    }
    explicit operator bool() const noexcept { return bool(contents_); }
    // Value('Routing::Bgp::PathAttributesFactory', ** {'contents': Value(...)}).
    std::string toStrep() const;

private:
    PathAttributesContents contents_;

public:
    MEL_VALUE_TYPE(PathAttributesFactory, "Routing::Bgp::PathAttributesFactory", (contents_))
};
std::ostream& operator<<(std::ostream& os, const PathAttributesFactory& f);

// A FullPathAttributes from the twenty-six member values, in the member order of the contents; not
// interned.
Mel::PtrConst<PathAttributes> fullPathAttributesFactory(
    Routing::RouteTag tag, uint32_t medStorage, uint32_t localPrefStorage,
    const Mel::PtrConst<GenNexthop>& nextHop, const Mel::PtrConst<AspathAttrCanonical>& aspathAttr,
    const Mel::PtrConst<ClusterList>& clusterList, uint16_t commonFlagsStorage,
    Routing::RoutePreference preference, uint8_t uncommonFlagsStorage, RouteWeight weight,
    RouteWeight bpAsPathWeight, uint32_t igpOrRedistMetricStorage,
    const Mel::PtrConst<GenNexthop>& llNextHop, const Mel::PtrConst<Aggregator>& aggregator,
    const Mel::PtrConst<CommList>& commList, const Mel::PtrConst<ExtCommList>& extCommList,
    const Mel::PtrConst<ExtCommIp6List>& extCommIp6List,
    const Mel::PtrConst<LargeCommList>& largeCommList, const Mel::PtrConst<PmsiTunnel>& pmsiTunnel,
    const Mel::PtrConst<PrefixSid>& prefixSid, const Mel::PtrConst<TunnelEncap>& tunnelEncap,
    const Mel::PtrConst<DomainPath>& domainPath,
    const Mel::PtrConst<AccumulatedIgpMetric>& aigpMetric,
    const Mel::PtrConst<LinkStateAttrBase>& linkState,
    const Mel::PtrConst<AttributeSet>& customerAttributeSet,
    const Mel::PtrConst<GunkPathAttrList>& gunkPathAttrList);

} // namespace Routing::Bgp

#include "OrvBgp/BgpPathAttributesTiers.h"
