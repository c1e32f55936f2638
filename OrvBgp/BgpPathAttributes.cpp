#include "OrvBgp/BgpPathAttributes.h"

#define ORV_UNIT "OrvBgp/BgpPathAttributes"
#include "Keel/Assert.h"
#include "Mel/Reflect.h"
#include "OrvBgp/AspathAttrCanonicalSerializer.h"
#include "OrvBgp/AttributeSetEmitter.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/PathAttributesMembers.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace Routing::Bgp {

// The packed layout's words start right after the 12-byte header and the 12 bytes every set has.
static_assert(sizeof(PathAttributesCommon) == 24 && sizeof(FullPathAttributes) == 24);

// ---- interning ----

// The interned-first check on one pointer about to be hashed, in the words the assertion uses.
#define ORV_ASSERT_INTERNED_IN(unit, member)                                                       \
    ORV_ASSERT_TEXT_IN(unit,                                                                       \
                       nullptr == (member) ||                                                      \
                           (member)->dedupState() != Keel::dedupHandleStateNeverDeduped(),         \
                       "__null == ( _" #member " ) || ( _" #member                                 \
                       " )->dedupState() != Keel::dedupHandleStateNeverDeduped()")

void PathAttributesTier::feedTierPointers(Keel::HashMix& m, PathAttributeType t,
                                          const PathAttributesContents& c, bool withLlNextHop,
                                          const char* unit) {
    auto ptr = [&m](const auto* p) { m.hashMix(static_cast<const void*>(p)); };
    const CommList* commList = c.commListStashed().get();
    const Aggregator* aggregator = c.aggregatorStashed().get();
    const ExtCommList* extCommList = c.extCommListStashed().get();
    const LargeCommList* largeCommList = c.largeCommListStashed().get();
    switch (t) {
    case PathAttributeType::base:
    case PathAttributeType::withRibOutLbwContext:
        break;
    case PathAttributeType::withCommList:
        ORV_ASSERT_INTERNED_IN(unit, commList);
        ORV_ASSERT_INTERNED_IN(unit, aggregator);
        ptr(commList);
        ptr(aggregator);
        break;
    case PathAttributeType::withExtCommList:
        ORV_ASSERT_INTERNED_IN(unit, commList);
        ORV_ASSERT_INTERNED_IN(unit, extCommList);
        ptr(commList);
        ptr(extCommList);
        break;
    case PathAttributeType::internet:
        ORV_ASSERT_INTERNED_IN(unit, commList);
        ORV_ASSERT_INTERNED_IN(unit, aggregator);
        ORV_ASSERT_INTERNED_IN(unit, largeCommList);
        ORV_ASSERT_INTERNED_IN(unit, extCommList);
        ptr(commList);
        ptr(aggregator);
        ptr(largeCommList);
        ptr(extCommList);
        break;
    case PathAttributeType::full: {
        const GenNexthop* llNextHop = c.llNextHopStashed().get();
        const ExtCommIp6List* extCommIp6List = c.extCommIp6ListStashed().get();
        const PmsiTunnel* pmsiTunnel = c.pmsiTunnelStashed().get();
        const PrefixSid* prefixSid = c.prefixSidStashed().get();
        const TunnelEncap* tunnelEncap = c.tunnelEncapStashed().get();
        const DomainPath* domainPath = c.domainPathStashed().get();
        const AccumulatedIgpMetric* aigpMetric = c.aigpMetricStashed().get();
        const LinkStateAttrBase* linkState = c.linkStateStashed().get();
        const AttributeSet* customerAttributeSet = c.customerAttributeSetStashed().get();
        const GunkPathAttrList* gunkPathAttrList = c.gunkPathAttrListRaw().get();
        if (withLlNextHop) {
            ORV_ASSERT_INTERNED_IN(unit, llNextHop);
            ptr(llNextHop);
        }
        ORV_ASSERT_INTERNED_IN(unit, aggregator);
        ORV_ASSERT_INTERNED_IN(unit, commList);
        ORV_ASSERT_INTERNED_IN(unit, extCommList);
        ORV_ASSERT_INTERNED_IN(unit, extCommIp6List);
        ORV_ASSERT_INTERNED_IN(unit, largeCommList);
        ORV_ASSERT_INTERNED_IN(unit, pmsiTunnel);
        ORV_ASSERT_INTERNED_IN(unit, prefixSid);
        ORV_ASSERT_INTERNED_IN(unit, tunnelEncap);
        ORV_ASSERT_INTERNED_IN(unit, domainPath);
        ORV_ASSERT_INTERNED_IN(unit, aigpMetric);
        ORV_ASSERT_INTERNED_IN(unit, linkState);
        ORV_ASSERT_INTERNED_IN(unit, customerAttributeSet);
        ORV_ASSERT_INTERNED_IN(unit, gunkPathAttrList);
        ptr(aggregator);
        ptr(commList);
        ptr(extCommList);
        ptr(extCommIp6List);
        ptr(largeCommList);
        ptr(pmsiTunnel);
        ptr(prefixSid);
        ptr(tunnelEncap);
        ptr(domainPath);
        ptr(aigpMetric);
        ptr(linkState);
        ptr(customerAttributeSet);
        ptr(gunkPathAttrList);
        break;
    }
    }
}

uint32_t PathAttributes::contentsHash(PathAttributeType t, const PathAttributesContents& c) {
    Keel::HashMix m;
    const GenNexthop* nextHop = c.nextHopStashed().get();
    const AspathAttrCanonical* aspathAttr = c.aspathAttrStashed().get();
    const ClusterList* clusterList = c.clusterListStashed().get();
    ORV_ASSERT_INTERNED_IN(ORV_UNIT, nextHop);
    ORV_ASSERT_INTERNED_IN(ORV_UNIT, aspathAttr);
    ORV_ASSERT_INTERNED_IN(ORV_UNIT, clusterList);
    m.hashMix(static_cast<uint32_t>(t));
    m.hashMix(c.tag());
    m.hashMix(c.medStorage());
    m.hashMix(c.localPrefStorage());
    m.hashMix(static_cast<const void*>(nextHop));
    m.hashMix(static_cast<const void*>(aspathAttr));
    m.hashMix(static_cast<const void*>(clusterList));
    m.hashMix(uint16_t(c.commonFlagsStorage() & PathAttributesContents::commonFlagsMask));
    m.hashMix(c.preference());
    if (t == PathAttributeType::full) {
        m.hashMix(uint8_t(c.uncommonFlagsStorage() & 3));
        m.hashMix(c.weight());
        m.hashMix(c.bpAsPathWeight());
        m.hashMix(c.igpOrRedistMetricStorage());
    }
    PathAttributesTier::feedTierPointers(m, t, c, true, ORV_UNIT);
    return m.result();
}

bool PathAttributes::compareContentsForTier(PathAttributeType t,
                                            const PathAttributesContents& c) const {
    return getType() == t && compareByContent(c);
}

namespace {
// A new object of tier t, not yet counted by anyone (the table takes the first references).
PathAttributes* createTier(PathAttributeType t, const PathAttributesContents& c) {
    switch (t) {
    case PathAttributeType::base:
        return PathAttributesCommon::create(c);
    case PathAttributeType::withCommList:
        return PathAttributesWithCommList::create(c);
    case PathAttributeType::withExtCommList:
        return PathAttributesWithExtCommList::create(c);
    case PathAttributeType::internet:
        return PathAttributesInternet::create(c);
    case PathAttributeType::full:
    case PathAttributeType::withRibOutLbwContext:
        break;
    }
    return FullPathAttributes::create(c);
}
} // namespace

Mel::PtrConst<PathAttributes> PathAttributes::dedupContent(const PathAttributesDedupTable* table,
                                                           const PathAttributesContents& c) {
    PathAttributeType t = c.pathAttributeType();
    uint32_t h = contentsHash(t, c);
    auto* tbl = const_cast<PathAttributesDedupTable*>(table);
    return tbl->findOrCreate(
        h, c,
        [&]() -> PathAttributes* {
            PathAttributesStats::instance().countInc(c.dataMemberHasNonDefaultValue());
            return createTier(t, c);
        },
        [t](const PathAttributes& obj, const PathAttributesContents& k) {
            return obj.compareContentsForTier(t, k);
        });
}

PathAttributesDedupTable& PathAttributesDedupTable::instance() {
    static auto* t = new PathAttributesDedupTable("PathAttributesDedupTable");
    return *t;
}

// ---- factory ----

Mel::PtrConst<PathAttributes>
PathAttributesFactory::dedupContent(const PathAttributesDedupTable* table) const {
    return PathAttributes::dedupContent(table, contents_);
}

Mel::PtrConst<PathAttributes> PathAttributesFactory::make() const {
    return FullPathAttributes::createMe(contents_);
}

std::string PathAttributesFactory::toStrep() const {
    return Mel::valueToStrep(*this);
}

std::ostream& operator<<(std::ostream& os, const PathAttributesFactory& f) {
    Mel::valueFormat(os, f);
    return os;
}

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
    const Mel::PtrConst<GunkPathAttrList>& gunkPathAttrList) {
    PathAttributesContents c;
    c.tagIs(tag);
    c.medStorageIs(medStorage);
    c.localPrefStorageIs(localPrefStorage);
    c.nextHopIs(nextHop);
    c.aspathAttrIs(aspathAttr);
    c.clusterListIs(clusterList);
    c.preferenceIs(preference);
    c.uncommonFlagsStorageIs(uncommonFlagsStorage);
    c.weightIs(weight);
    c.bpAsPathWeightIs(bpAsPathWeight);
    c.igpOrRedistMetricStorageIs(igpOrRedistMetricStorage);
    c.llNextHopIs(llNextHop);
    c.aggregatorIs(aggregator);
    c.commListIs(commList);
    c.commonFlagsStorageIs(commonFlagsStorage); // after commListIs: the caller's flags win
    c.extCommListIs(extCommList);
    c.extCommIp6ListIs(extCommIp6List);
    c.largeCommListIs(largeCommList);
    c.pmsiTunnelIs(pmsiTunnel);
    c.prefixSidIs(prefixSid);
    c.tunnelEncapIs(tunnelEncap);
    c.domainPathIs(domainPath);
    c.aigpMetricIs(aigpMetric);
    c.linkStateIs(linkState);
    c.customerAttributeSetIs(customerAttributeSet);
    c.gunkPathAttrListIs(gunkPathAttrList);
    return FullPathAttributes::createMe(c);
}

// ---- statistics ----

PathAttributesStats& PathAttributesStats::instance() {
    static auto* s = new PathAttributesStats("PathAttributesStats");
    return *s;
}

void PathAttributesStats::countInc(uint32_t mask) {
    std::lock_guard lock(mutex_);
    ++count_[mask];
}

uint64_t PathAttributesStats::count(uint32_t mask) const {
    std::lock_guard lock(mutex_);
    auto it = count_.find(mask);
    return it == count_.end() ? 0 : it->second;
}

void PathAttributesStats::countDelAll() {
    std::lock_guard lock(mutex_);
    count_.clear();
}

std::vector<std::pair<uint64_t, uint32_t>> PathAttributesStats::snapshot() const {
    std::vector<std::pair<uint64_t, uint32_t>> rows;
    {
        std::lock_guard lock(mutex_);
        rows.reserve(count_.size());
        for (auto& [key, n] : count_)
            rows.emplace_back(n, key);
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

namespace {
std::string formatRow(const char* fmt, int indent, uint64_t n, const char* tier,
                      const std::string& attrs) {
    char buf[512];
    int len;
    if (indent)
        len = std::snprintf(buf, sizeof buf, fmt, indent, ' ', n, tier, attrs.c_str());
    else
        len = std::snprintf(buf, sizeof buf, fmt, n, tier, attrs.c_str());
    if (len < int(sizeof buf)) return std::string(buf, size_t(len));
    std::string big(size_t(len) + 1, '\0');
    if (indent)
        std::snprintf(big.data(), big.size(), fmt, indent, ' ', n, tier, attrs.c_str());
    else
        std::snprintf(big.data(), big.size(), fmt, n, tier, attrs.c_str());
    big.pop_back();
    return big;
}
} // namespace

void PathAttributesStats::dumpState(const Mel::Ptr<Keel::DumpContext const>& ctx,
                                    uint32_t indent) const {
    if (indent)
        ctx->printf("%*c%s\n", int(indent), ' ', title_);
    else
        ctx->printf("%s\n", title_);
    int in = int(indent + 2);
    ctx->printf("%*c%14s  %-15s  %s\n", in, ' ', "TotalAllocated", "TypeAllocated",
                "Attributes not in all types with non-default value");
    for (auto& [n, key] : snapshot())
        ctx->write(
            formatRow("%*c%14lu  %-15s  %s\n", in, n,
                      pathAttributeTypeName(dataMemberHasNonDefaultValueToPathAttributeType(key)),
                      PathAttributesContents::dataMemberHasNonDefaultValueToStrep(key)));
}

std::string PathAttributesStats::toStrep() const {
    char buf[256];
    std::snprintf(buf, sizeof buf, "%14s  %-15s  %s\n", "TotalAllocated", "TypeAllocated",
                  "Attributes not in all types with non-default value");
    std::string out = buf;
    for (auto& [n, key] : snapshot())
        out +=
            formatRow("%14lu  %-15s  %s\n", 0, n,
                      pathAttributeTypeName(dataMemberHasNonDefaultValueToPathAttributeType(key)),
                      PathAttributesContents::dataMemberHasNonDefaultValueToStrep(key));
    return out;
}

} // namespace Routing::Bgp

// ---- wire form of a whole set ----

namespace Routing::Bgp {

namespace {

// AS_PATH or AS4_PATH in 2- or 4-byte form, written as held (no local AS). Returns whether a
// number went out as AS_TRANS in the ordinary segments.
bool emitAsPathAsHeld(detail::AttributeSetEmitter& out, uint8_t type,
                      const AspathAttrCanonical& path, bool fourByte, bool confed) {
    Serialize& value = out.scratch();
    if (confed)
        for (AsSegmentRef seg : path.confedPath())
            AspathAttrCanonicalSerializer::asSegmentSerialize(seg, fourByte, 0, value);
    bool substituted = false;
    for (AsSegmentRef seg : path.path())
        substituted |= AspathAttrCanonicalSerializer::asSegmentSerialize(seg, fourByte, 0, value);
    // AS4_PATH is optional transitive; AS_PATH well-known.
    const uint8_t flags = type == BgpPathAttrType::as4Path_
                              ? uint8_t(pathAttrFlagOptional | pathAttrFlagTransitive)
                              : pathAttrFlagTransitive;
    out.begin(type, flags, value.size()).addData(value.span());
    out.emitBuffer(type);
    return substituted;
}

} // namespace

void serializeAttributeSet(const PathAttributesView& a,
                           PathAttributesSerializeStoreMethodBase* store, bool fourByteAsPeer,
                           bool internalPeer, bool writeNextHop) {
    using T = BgpPathAttrType;
    detail::AttributeSetEmitter out(*store, a.gunkPathAttrList);

    out.begin(T::origin_, pathAttrFlagTransitive, 1).addU8(uint8_t(a.origin()));
    out.emitBuffer(T::origin_);
    // The AS path as held: export policy has already prepended and stripped what the peer must
    // not see.
    bool needAs4Path =
        a.aspathAttr && emitAsPathAsHeld(out, T::asPath_, *a.aspathAttr, fourByteAsPeer, true);
    if (writeNextHop && a.nextHop && a.nextHop->addrOrNone().isV4()) {
        out.begin(T::nextHop_, pathAttrFlagTransitive, 4).addIpv4Addr(a.nextHop->addrOrNone().v4());
        out.emitBuffer(T::nextHop_);
    }
    if (a.medSpecified()) {
        out.begin(T::med_, pathAttrFlagOptional, 4).addU32hton(a.medStorage);
        out.emitBuffer(T::med_);
    }
    if (internalPeer && a.localPrefSpecified()) {
        out.begin(T::localPref_, pathAttrFlagTransitive, 4).addU32hton(a.localPrefStorage);
        out.emitBuffer(T::localPref_);
    }
    if (a.atomicAggregate()) {
        out.begin(T::atomicAggregate_, pathAttrFlagTransitive, 0);
        out.emitBuffer(T::atomicAggregate_);
    }
    if (a.aggregator)
        out.emit(T::aggregator_,
                 a.aggregator->serialize(T::aggregator_, fourByteAsPeer, Orvnet::AutonomousSystem(),
                                         Orvnet::AutonomousSystem()));
    out.list(a.commList);
    if (internalPeer && a.clusterList) {
        out.upTo(T::originatorId_);
        a.clusterList->serialize(*store);
    }
    out.list(a.extCommList);
    if (a.aspathAttr && !fourByteAsPeer && needAs4Path)
        emitAsPathAsHeld(out, T::as4Path_, *a.aspathAttr, true, false);
    if (a.aggregator && !fourByteAsPeer && !a.aggregator->autonomousSystem().is2Byte())
        out.emit(T::as4Aggregator_,
                 a.aggregator->serialize(T::as4Aggregator_, true, Orvnet::AutonomousSystem(),
                                         Orvnet::AutonomousSystem()));
    detail::emitTrailingAttributes(a, out);
}

} // namespace Routing::Bgp
