#include "OrvBgp/RibOutBgpPathAttributes.h"

#define ORV_UNIT "OrvBgp/RibOutBgpPathAttributes"
#include "Keel/Assert.h"
#include "Mel/Reflect.h"

namespace Routing::Bgp {

static_assert(PathAttributesTier::RibOutPackedBase::flagsMask ==
              RibOutPathAttributes::commonFlagsMask);
// Outbound words start at offset 20: a set with one optional member fits the 24-byte object.
static_assert(sizeof(RibOutPathAttributesCommon) == 24);

PathAttributeType RibOutPathAttributes::tierFor(uint32_t m) noexcept {
    using C = PathAttributesContents;
    if (m & fullOnlyMask) return PathAttributeType::full;
    // The rest of the choice is the inbound one, over the bits the outbound set keeps.
    return dataMemberHasNonDefaultValueToPathAttributeType(
        m & (C::nonDefaulValueAggregator | C::nonDefaulValueCommList |
             C::nonDefaulValueExtCommList | C::nonDefaulValueLargeCommList));
}

uint32_t RibOutPathAttributes::contentsHash(PathAttributeType t, const PathAttributesContents& c) {
    if (t > PathAttributeType::full) ORV_ASSERT(nullptr == "unexpected type");
    Keel::HashMix m;
    const AspathAttrCanonical* aspathAttr = c.aspathAttrStashed().get();
    const ClusterList* clusterList = c.clusterListStashed().get();
    ORV_ASSERT_TEXT(nullptr == aspathAttr ||
                        aspathAttr->dedupState() != Keel::dedupHandleStateNeverDeduped(),
                    "__null == ( _aspathAttr ) || ( _aspathAttr )->dedupState() != "
                    "Keel::dedupHandleStateNeverDeduped()");
    ORV_ASSERT_TEXT(nullptr == clusterList ||
                        clusterList->dedupState() != Keel::dedupHandleStateNeverDeduped(),
                    "__null == ( _clusterList ) || ( _clusterList )->dedupState() != "
                    "Keel::dedupHandleStateNeverDeduped()");
    m.hashMix(static_cast<uint32_t>(t));
    m.hashMix(c.medStorage());
    m.hashMix(c.localPrefStorage());
    m.hashMix(static_cast<const void*>(aspathAttr));
    m.hashMix(static_cast<const void*>(clusterList));
    m.hashMix(uint16_t(c.commonFlagsStorage() & commonFlagsMask));
    PathAttributesTier::feedTierPointers(m, t, c, false, ORV_UNIT);
    return m.result();
}

namespace {
RibOutPathAttributes* createTier(PathAttributeType t, const PathAttributesContents& c) {
    switch (t) {
    case PathAttributeType::base:
        return RibOutPathAttributesCommon::create(c);
    case PathAttributeType::withCommList:
        return RibOutPathAttributesWithCommList::create(c);
    case PathAttributeType::withExtCommList:
        return RibOutPathAttributesWithExtCommList::create(c);
    case PathAttributeType::internet:
        return RibOutPathAttributesInternet::create(c);
    case PathAttributeType::full:
        return RibOutFullPathAttributes::create(c);
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

Mel::PtrConst<RibOutPathAttributes> RibOutPathAttributesFactory::make() const {
    return RibOutFullPathAttributes::createMe(contents_);
}

std::string RibOutPathAttributesFactory::toStrep() const {
    return Mel::valueToStrep(*this);
}

std::ostream& operator<<(std::ostream& os, const RibOutPathAttributesFactory& f) {
    Mel::valueFormat(os, f);
    return os;
}

} // namespace Routing::Bgp
