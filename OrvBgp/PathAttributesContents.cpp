#include "OrvBgp/PathAttributesContents.h"

#define ORV_UNIT "OrvBgp/PathAttributesContents"
#include "Keel/Assert.h"
#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "Mel/ValueParser.h"
#include "OrvBgp/AspathAttrCanonicalStasher.h"
#include "OrvBgp/PathAttributesMembers.h"

#include <ostream>
#include <sstream>
#include <tuple>
#include <utility>

namespace Routing::Bgp {

const char* pathAttributeTypeName(PathAttributeType t) noexcept {
    switch (t) {
    case PathAttributeType::base:
        return "base";
    case PathAttributeType::withCommList:
        return "withCommList";
    case PathAttributeType::withExtCommList:
        return "withExtCommList";
    case PathAttributeType::internet:
        return "internet";
    case PathAttributeType::full:
        return "full";
    case PathAttributeType::withRibOutLbwContext:
        return "withRibOutLbwContext";
    }
    return "unknown";
}

PathAttributeType dataMemberHasNonDefaultValueToPathAttributeType(uint32_t m) noexcept {
    using C = PathAttributesContents;
    if (m & C::fullOnlyMask) return PathAttributeType::full;
    if (m & C::nonDefaulValueExtCommList)
        return m & (C::nonDefaulValueAggregator | C::nonDefaulValueLargeCommList)
                   ? PathAttributeType::internet
                   : PathAttributeType::withExtCommList;
    if (m & C::nonDefaulValueLargeCommList) return PathAttributeType::internet;
    if (m & (C::nonDefaulValueAggregator | C::nonDefaulValueCommList))
        return PathAttributeType::withCommList;
    return PathAttributeType::base;
}

PathAttributeType PathAttributesContents::pathAttributeType() const noexcept {
    return dataMemberHasNonDefaultValueToPathAttributeType(dataMemberHasNonDefaultValue_);
}

PathAttributesContents::PathAttributesContents() noexcept = default;
PathAttributesContents::PathAttributesContents(const PathAttributesContents&) = default;
PathAttributesContents::PathAttributesContents(PathAttributesContents&& o) noexcept
    : PathAttributesContents() {
    *this = std::move(o);
}
PathAttributesContents& PathAttributesContents::operator=(const PathAttributesContents&) = default;
// Member by member, so that the source is left a default record: a defaulted move would null its
// pointers but keep their bits.
PathAttributesContents& PathAttributesContents::operator=(PathAttributesContents&& o) noexcept {
    if (this == &o) return *this;
    DedupContentHandle::operator=(std::move(o));
    tag_ = std::exchange(o.tag_, 0);
    medStorage_ = std::exchange(o.medStorage_, 0);
    localPrefStorage_ = std::exchange(o.localPrefStorage_, 0);
    nextHop_ = std::move(o.nextHop_);
    aspathAttr_ = std::move(o.aspathAttr_);
    clusterList_ = std::move(o.clusterList_);
    commonFlagsStorage_ = std::exchange(o.commonFlagsStorage_, 0);
    preference_ = std::exchange(o.preference_, 1);
    uncommonFlagsStorage_ = std::exchange(o.uncommonFlagsStorage_, 0);
    weight_ = std::exchange(o.weight_, 0);
    bpAsPathWeight_ = std::exchange(o.bpAsPathWeight_, 0);
    igpOrRedistMetricStorage_ = std::exchange(o.igpOrRedistMetricStorage_, 0);
    llNextHop_ = std::move(o.llNextHop_);
    aggregator_ = std::move(o.aggregator_);
    commList_ = std::move(o.commList_);
    extCommList_ = std::move(o.extCommList_);
    extCommIp6List_ = std::move(o.extCommIp6List_);
    largeCommList_ = std::move(o.largeCommList_);
    pmsiTunnel_ = std::move(o.pmsiTunnel_);
    prefixSid_ = std::move(o.prefixSid_);
    tunnelEncap_ = std::move(o.tunnelEncap_);
    domainPath_ = std::move(o.domainPath_);
    aigpMetric_ = std::move(o.aigpMetric_);
    linkState_ = std::move(o.linkState_);
    customerAttributeSet_ = std::move(o.customerAttributeSet_);
    gunkPathAttrList_ = std::exchange(o.gunkPathAttrList_, nullptr);
    dataMemberHasNonDefaultValue_ = std::exchange(o.dataMemberHasNonDefaultValue_, 0);
    return *this;
}
PathAttributesContents::~PathAttributesContents() = default;

template <class T>
void PathAttributesContents::pointerIs(Stashed<T>& member, const Mel::PtrConst<T>& v,
                                       uint32_t bit) {
    if (member.get() == v.get()) return;
    member = Stashed<T>(v.get());
    bitIs(bit, v != nullptr);
}

void PathAttributesContents::nextHopIs(const Mel::PtrConst<GenNexthop>& v) & {
    if (nextHop_.get() != v.get()) nextHop_ = Stashed<GenNexthop>(v.get());
}
void PathAttributesContents::aspathAttrIs(const Mel::PtrConst<AspathAttrCanonical>& v) & {
    if (aspathAttr_.get() != v.get()) aspathAttr_ = Stashed<AspathAttrCanonical>(v.get());
}
void PathAttributesContents::clusterListIs(const Mel::PtrConst<ClusterList>& v) & {
    if (clusterList_.get() != v.get()) clusterList_ = Stashed<ClusterList>(v.get());
}

MultiExitDiscriminator PathAttributesContents::med() const noexcept {
    return medSpecified() ? MultiExitDiscriminator(medStorage_) : MultiExitDiscriminator();
}
void PathAttributesContents::medIs(const MultiExitDiscriminator& v) & noexcept {
    flagBitsIs(6, 1, v.isSpecified());
    medStorage_ = v.low32();
}
RoutingLocalPref PathAttributesContents::localPref() const noexcept {
    return localPrefSpecified() ? RoutingLocalPref(localPrefStorage_) : RoutingLocalPref();
}
void PathAttributesContents::localPrefIs(const RoutingLocalPref& v) & noexcept {
    flagBitsIs(7, 1, v.isSpecified());
    localPrefStorage_ = v.low32();
}

void PathAttributesContents::uncommonFlagsStorageIs(uint8_t v) & noexcept {
    if (v == uncommonFlagsStorage_) return;
    uncommonFlagsStorage_ = v;
    bitIs(nonDefaulValueUncommonFlagsStorage, v != 0);
}
void PathAttributesContents::weightIs(RouteWeight v) & noexcept {
    if (v == weight_) return;
    weight_ = v;
    bitIs(nonDefaulValueWeight, v != 0);
}
void PathAttributesContents::bpAsPathWeightIs(RouteWeight v) & noexcept {
    if (v == bpAsPathWeight_) return;
    bpAsPathWeight_ = v;
    bitIs(nonDefaulValueBpAsPathWeight, v != 0);
}
void PathAttributesContents::igpOrRedistMetricStorageIs(uint32_t v) & noexcept {
    if (v == igpOrRedistMetricStorage_) return;
    igpOrRedistMetricStorage_ = v;
    bitIs(nonDefaulValueIgpOrRedistMetricStorage, v != 0);
}

namespace {
// The shared metric word: `own` is the flag bit of the metric being set.
template <class Metric>
void metricIs(PathAttributesContents& c, const Metric& v, uint8_t own) {
    uint8_t flags = c.uncommonFlagsStorage();
    if (v.isSpecified()) {
        if (v.low32() != c.igpOrRedistMetricStorage()) c.igpOrRedistMetricStorageIs(v.low32());
        c.uncommonFlagsStorageIs(uint8_t(flags | own));
        return;
    }
    if (!(flags & own)) return;
    if (c.igpOrRedistMetricStorage() != 0) c.igpOrRedistMetricStorageIs(0);
    c.uncommonFlagsStorageIs(uint8_t(flags & ~own));
}
} // namespace

RedistMetric PathAttributesContents::redistMetric() const noexcept {
    return redistMetricSpecified() ? RedistMetric(igpOrRedistMetricStorage_) : RedistMetric();
}
void PathAttributesContents::redistMetricIs(const RedistMetric& v) & noexcept {
    if (v.isSpecified()) ORV_ASSERT(!igpMetricForNexthopSpecified());
    metricIs(*this, v, 1);
}
IgpMetricForNexthop PathAttributesContents::igpMetricForNexthop() const noexcept {
    return igpMetricForNexthopSpecified() ? IgpMetricForNexthop(igpOrRedistMetricStorage_)
                                          : IgpMetricForNexthop();
}
void PathAttributesContents::igpMetricForNexthopIs(const IgpMetricForNexthop& v) & noexcept {
    if (v.isSpecified()) ORV_ASSERT(!redistMetricSpecified());
    metricIs(*this, v, 2);
}

void PathAttributesContents::llNextHopIs(const Mel::PtrConst<GenNexthop>& v) & {
    pointerIs(llNextHop_, v, nonDefaulValueLlNextHop);
}
void PathAttributesContents::aggregatorIs(const Mel::PtrConst<Aggregator>& v) & {
    pointerIs(aggregator_, v, nonDefaulValueAggregator);
}
void PathAttributesContents::commListIs(const Mel::PtrConst<CommList>& v) & {
    if (commList_.get() == v.get()) return;
    pointerIs(commList_, v, nonDefaulValueCommList);
    if (v) {
        flagBitsIs(8, 1, v->comm(CommList::llgrStale));
        flagBitsIs(9, 1, v->comm(CommList::noLlgr));
    } else {
        flagBitsIs(8, 2, 0);
    }
}
void PathAttributesContents::extCommListIs(const Mel::PtrConst<ExtCommList>& v) & {
    pointerIs(extCommList_, v, nonDefaulValueExtCommList);
}
void PathAttributesContents::extCommIp6ListIs(const Mel::PtrConst<ExtCommIp6List>& v) & {
    pointerIs(extCommIp6List_, v, nonDefaulValueExtCommIp6List);
}
void PathAttributesContents::largeCommListIs(const Mel::PtrConst<LargeCommList>& v) & {
    pointerIs(largeCommList_, v, nonDefaulValueLargeCommList);
}
void PathAttributesContents::pmsiTunnelIs(const Mel::PtrConst<PmsiTunnel>& v) & {
    pointerIs(pmsiTunnel_, v, nonDefaulValuePmsiTunnel);
}
void PathAttributesContents::prefixSidIs(const Mel::PtrConst<PrefixSid>& v) & {
    pointerIs(prefixSid_, v, nonDefaulValuePrefixSid);
}
void PathAttributesContents::tunnelEncapIs(const Mel::PtrConst<TunnelEncap>& v) & {
    ORV_ASSERT(!v || v->everDeduped());
    pointerIs(tunnelEncap_, v, nonDefaulValueTunnelEncap);
}
void PathAttributesContents::domainPathIs(const Mel::PtrConst<DomainPath>& v) & {
    pointerIs(domainPath_, v, nonDefaulValueDomainPath);
}
void PathAttributesContents::aigpMetricIs(const Mel::PtrConst<AccumulatedIgpMetric>& v) & {
    pointerIs(aigpMetric_, v, nonDefaulValueAigpMetric);
}
void PathAttributesContents::linkStateIs(const Mel::PtrConst<LinkStateAttrBase>& v) & {
    pointerIs(linkState_, v, nonDefaulValueLinkState);
}
void PathAttributesContents::customerAttributeSetIs(const Mel::PtrConst<AttributeSet>& v) & {
    pointerIs(customerAttributeSet_, v, nonDefaulValueCustomerAttributeSet);
}
void PathAttributesContents::gunkPathAttrListIs(const Mel::PtrConst<GunkPathAttrList>& v) & {
    if (gunkPathAttrList_.get() == v.get()) return;
    gunkPathAttrList_ = v;
    bitIs(nonDefaulValueGunkPathAttrList, v != nullptr);
}

namespace {
// All 27 members in declaration order, pointers as addresses, for equality and ordering.
auto memberTuple(const PathAttributesContents& c) {
    return std::make_tuple(
        c.tag(), c.medStorage(), c.localPrefStorage(), (const void*)c.nextHopStashed().get(),
        (const void*)c.aspathAttrStashed().get(), (const void*)c.clusterListStashed().get(),
        c.commonFlagsStorage(), c.preference(), c.uncommonFlagsStorage(), c.weight(),
        c.bpAsPathWeight(), c.igpOrRedistMetricStorage(), (const void*)c.llNextHopStashed().get(),
        (const void*)c.aggregatorStashed().get(), (const void*)c.commListStashed().get(),
        (const void*)c.extCommListStashed().get(), (const void*)c.extCommIp6ListStashed().get(),
        (const void*)c.largeCommListStashed().get(), (const void*)c.pmsiTunnelStashed().get(),
        (const void*)c.prefixSidStashed().get(), (const void*)c.tunnelEncapStashed().get(),
        (const void*)c.domainPathStashed().get(), (const void*)c.aigpMetricStashed().get(),
        (const void*)c.linkStateStashed().get(), (const void*)c.customerAttributeSetStashed().get(),
        (const void*)c.gunkPathAttrListRaw().get(), c.dataMemberHasNonDefaultValue());
}
} // namespace

bool PathAttributesContents::operator==(const PathAttributesContents& o) const noexcept {
    return DedupContentHandle::operator==(o) && memberTuple(*this) == memberTuple(o);
}

bool PathAttributesContents::operator<(const PathAttributesContents& o) const noexcept {
    if (DedupContentHandle::operator<(o)) return true;
    if (!DedupContentHandle::operator==(o)) return false;
    auto a = memberTuple(*this), b = memberTuple(o);
    return std::less<>()(a, b);
}

PathAttributesContents::operator bool() const noexcept {
    return !(*this == PathAttributesContents());
}

std::string PathAttributesContents::dataMemberHasNonDefaultValueToStrep(uint32_t mask) {
    static const char* const names[] = {"aggregator",
                                        "aigpMetric",
                                        "bpAsPathWeight",
                                        "commList",
                                        "customerAttributeSet",
                                        "domainPath",
                                        "extCommIp6List",
                                        "extCommList",
                                        "gunkPathAttrList",
                                        "igpOrRedistMetricStorage",
                                        "largeCommList",
                                        "linkState",
                                        "llNextHop",
                                        "pmsiTunnel",
                                        "prefixSid",
                                        "tunnelEncap",
                                        "uncommonFlagsStorage",
                                        "weight"};
    std::string out;
    for (unsigned i = 0; i < 18; ++i) {
        if (!(mask & (1u << i))) continue;
        if (!out.empty()) out += ", ";
        out += names[i];
    }
    return out.empty() ? "<Only attributes present in all PathAttribute types>" : out;
}

// ---- text form ----

template <PathAttributesSubAttribute T>
void subAttributeFormat(std::ostream& os, const T* p) {
    if (!p) {
        os << "None";
        return;
    }
    std::string text;
    if constexpr (std::is_same_v<T, AspathAttrCanonical>) {
        // An AS path has no text of its own: it prints through its stasher, as show output does.
        text = AspathAttrCanonicalStasher::stashStrep(p, &MelStash::StoreManager::instance());
    } else if constexpr (requires { p->toStrep(); }) {
        text = p->toStrep();
    } else {
        std::ostringstream ss;
        ss << *p;
        text = ss.str();
    }
    Mel::formatQuoted(os, text);
}

#define ORV_SUB_ATTRIBUTE_FORMAT(T) template void subAttributeFormat<T>(std::ostream&, const T*);
ORV_SUB_ATTRIBUTE_FORMAT(GenNexthop)
ORV_SUB_ATTRIBUTE_FORMAT(AspathAttrCanonical)
ORV_SUB_ATTRIBUTE_FORMAT(ClusterList)
ORV_SUB_ATTRIBUTE_FORMAT(Aggregator)
ORV_SUB_ATTRIBUTE_FORMAT(PmsiTunnel)
ORV_SUB_ATTRIBUTE_FORMAT(PrefixSid)
ORV_SUB_ATTRIBUTE_FORMAT(TunnelEncap)
ORV_SUB_ATTRIBUTE_FORMAT(DomainPath)
ORV_SUB_ATTRIBUTE_FORMAT(AccumulatedIgpMetric)
ORV_SUB_ATTRIBUTE_FORMAT(LinkStateAttrBase)
ORV_SUB_ATTRIBUTE_FORMAT(AttributeSet)
ORV_SUB_ATTRIBUTE_FORMAT(GunkPathAttrList)
ORV_SUB_ATTRIBUTE_FORMAT(CommList)
ORV_SUB_ATTRIBUTE_FORMAT(ExtCommList)
ORV_SUB_ATTRIBUTE_FORMAT(ExtCommIp6List)
ORV_SUB_ATTRIBUTE_FORMAT(LargeCommList)
#undef ORV_SUB_ATTRIBUTE_FORMAT

void subAttributeParseNone(Mel::ValueParser& p) {
    p.skipBlanks();
    size_t at = p.offset();
    if (p.consume("None")) return;
    throw Mel::NotSupportedException(
        "Not supported: at offset " + std::to_string(at) +
        ": an interned sub-attribute cannot be rebuilt from its text; only None reads back");
}

std::string valueToStrep(const PathAttributesContents& c) {
    return Mel::valueToStrep(c);
}

std::ostream& operator<<(std::ostream& os, const PathAttributesContents& c) {
    Mel::valueFormat(os, c);
    return os;
}

PathAttributesContents::PathAttributesContents(std::string_view text) {
    Mel::valueFromStrepInto(*this, text);
}

} // namespace Routing::Bgp
