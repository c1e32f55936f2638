#include "OrvBgp/RibOutBgpPathAttributes.h"

#define ORV_UNIT "OrvBgp/RibOutBgpPathAttributes"
#include "Keel/Assert.h"

namespace Routing::Bgp {

#define ORV_ASSERT_INTERNED(member)                                                                \
    ORV_ASSERT_TEXT(nullptr == (member) ||                                                         \
                        (member)->dedupState() != Keel::dedupHandleStateNeverDeduped(),            \
                    "__null == ( _" #member " ) || ( _" #member                                    \
                    " )->dedupState() != Keel::dedupHandleStateNeverDeduped()")

PathAttributeType RibOutPathAttributes::tierFor(uint32_t m) noexcept {
    using C = PathAttributesContents;
    if (m & fullOnlyMask) return PathAttributeType::full;
    // The rest of the choice is the inbound one, over the bits the outbound set keeps.
    return dataMemberHasNonDefaultValueToPathAttributeType(
        m & (C::nonDefaulValueAggregator | C::nonDefaulValueCommList |
             C::nonDefaulValueExtCommList | C::nonDefaulValueLargeCommList));
}

uint32_t RibOutPathAttributes::contentsHash(PathAttributeType t, const PathAttributesContents& c) {
    Keel::HashMix m;
    auto ptr = [&m](const auto* p) { m.hashMix(static_cast<const void*>(p)); };
    const AspathAttrCanonical* aspathAttr = c.aspathAttrStashed().get();
    const ClusterList* clusterList = c.clusterListStashed().get();
    ORV_ASSERT_INTERNED(aspathAttr);
    ORV_ASSERT_INTERNED(clusterList);
    m.hashMix(static_cast<uint32_t>(t));
    m.hashMix(c.medStorage());
    m.hashMix(c.localPrefStorage());
    ptr(aspathAttr);
    ptr(clusterList);
    m.hashMix(uint16_t(c.commonFlagsStorage() & commonFlagsMask));
    const CommList* commList = c.commListStashed().get();
    const Aggregator* aggregator = c.aggregatorStashed().get();
    const ExtCommList* extCommList = c.extCommListStashed().get();
    const LargeCommList* largeCommList = c.largeCommListStashed().get();
    switch (t) {
    case PathAttributeType::base:
        break;
    case PathAttributeType::withCommList:
        ORV_ASSERT_INTERNED(commList);
        ORV_ASSERT_INTERNED(aggregator);
        ptr(commList);
        ptr(aggregator);
        break;
    case PathAttributeType::withExtCommList:
        ORV_ASSERT_INTERNED(commList);
        ORV_ASSERT_INTERNED(extCommList);
        ptr(commList);
        ptr(extCommList);
        break;
    case PathAttributeType::internet:
        ORV_ASSERT_INTERNED(commList);
        ORV_ASSERT_INTERNED(aggregator);
        ORV_ASSERT_INTERNED(largeCommList);
        ORV_ASSERT_INTERNED(extCommList);
        ptr(commList);
        ptr(aggregator);
        ptr(largeCommList);
        ptr(extCommList);
        break;
    case PathAttributeType::full: {
        const ExtCommIp6List* extCommIp6List = c.extCommIp6ListStashed().get();
        const PmsiTunnel* pmsiTunnel = c.pmsiTunnelStashed().get();
        const PrefixSid* prefixSid = c.prefixSidStashed().get();
        const TunnelEncap* tunnelEncap = c.tunnelEncapStashed().get();
        const DomainPath* domainPath = c.domainPathStashed().get();
        const AccumulatedIgpMetric* aigpMetric = c.aigpMetricStashed().get();
        const LinkStateAttrBase* linkState = c.linkStateStashed().get();
        const AttributeSet* customerAttributeSet = c.customerAttributeSetStashed().get();
        const GunkPathAttrList* gunkPathAttrList = c.gunkPathAttrListRaw().get();
        ORV_ASSERT_INTERNED(aggregator);
        ORV_ASSERT_INTERNED(commList);
        ORV_ASSERT_INTERNED(extCommList);
        ORV_ASSERT_INTERNED(extCommIp6List);
        ORV_ASSERT_INTERNED(largeCommList);
        ORV_ASSERT_INTERNED(pmsiTunnel);
        ORV_ASSERT_INTERNED(prefixSid);
        ORV_ASSERT_INTERNED(tunnelEncap);
        ORV_ASSERT_INTERNED(domainPath);
        ORV_ASSERT_INTERNED(aigpMetric);
        ORV_ASSERT_INTERNED(linkState);
        ORV_ASSERT_INTERNED(customerAttributeSet);
        ORV_ASSERT_INTERNED(gunkPathAttrList);
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
    default:
        ORV_ASSERT(nullptr == "unexpected type");
    }
    return m.result();
}

namespace {
RibOutPathAttributes* createTier(PathAttributeType t, const PathAttributesContents& c) {
    switch (t) {
    case PathAttributeType::base:
        return new RibOutPathAttributesCommon(c);
    case PathAttributeType::withCommList:
        return new RibOutPathAttributesWithCommList(c);
    case PathAttributeType::withExtCommList:
        return new RibOutPathAttributesWithExtCommList(c);
    case PathAttributeType::internet:
        return new RibOutPathAttributesInternet(c);
    case PathAttributeType::full:
        return new RibOutFullPathAttributes(c);
    default:
        break;
    }
    ORV_ASSERT(nullptr == "unexpected type");
    return nullptr;
}
} // namespace

Mel::PtrConst<RibOutPathAttributes>
RibOutPathAttributes::dedupContent(const RibOutPathAttributesDedupTable* table,
                                   const PathAttributesContents& c) {
    PathAttributeType t = tierFor(c.dataMemberHasNonDefaultValue());
    uint32_t h = contentsHash(t, c);
    return const_cast<RibOutPathAttributesDedupTable*>(table)->findOrCreate(h, c, [&] {
        RibOutPathAttributesStats::instance().countInc(c.dataMemberHasNonDefaultValue());
        return createTier(t, c);
    });
}

RibOutPathAttributesDedupTable& RibOutPathAttributesDedupTable::instance() {
    static auto* t = new RibOutPathAttributesDedupTable("RibOutPathAttributesDedupTable");
    return *t;
}

RibOutPathAttributesStats& RibOutPathAttributesStats::instance() {
    static auto* s = new RibOutPathAttributesStats();
    return *s;
}

Mel::PtrConst<RibOutPathAttributes>
RibOutPathAttributesFactory::dedupContent(const RibOutPathAttributesDedupTable* table) const {
    return RibOutPathAttributes::dedupContent(table, contents_);
}

} // namespace Routing::Bgp
