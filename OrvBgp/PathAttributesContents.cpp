#include "OrvBgp/PathAttributesContents.h"

#define ORV_UNIT "OrvBgp/PathAttributesContents"
#include "Keel/Assert.h"
#include "Mel/Exception.h"
#include "Mel/ValueParser.h"
#include "OrvBgp/PathAttributesMembers.h"

#include <ostream>
#include <sstream>
#include <tuple>

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
PathAttributesContents::PathAttributesContents(PathAttributesContents&&) noexcept = default;
PathAttributesContents& PathAttributesContents::operator=(const PathAttributesContents&) = default;
PathAttributesContents&
PathAttributesContents::operator=(PathAttributesContents&&) noexcept = default;
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

namespace {

template <class T>
void formatSub(std::ostream& os, const T* p) {
    if (!p) {
        os << "None";
        return;
    }
    std::string text;
    if constexpr (requires { p->toStrep(); })
        text = p->toStrep();
    else if constexpr (requires(std::ostream & s) { s << *p; }) {
        std::ostringstream ss;
        ss << *p;
        text = ss.str();
    } else
        text = "<object>";
    Mel::formatQuoted(os, text);
}

const char* const fieldNames[] = {"tag",
                                  "medStorage",
                                  "localPrefStorage",
                                  "nextHop",
                                  "aspathAttr",
                                  "clusterList",
                                  "commonFlagsStorage",
                                  "preference",
                                  "uncommonFlagsStorage",
                                  "weight",
                                  "bpAsPathWeight",
                                  "igpOrRedistMetricStorage",
                                  "llNextHop",
                                  "aggregator",
                                  "commList",
                                  "extCommList",
                                  "extCommIp6List",
                                  "largeCommList",
                                  "pmsiTunnel",
                                  "prefixSid",
                                  "tunnelEncap",
                                  "domainPath",
                                  "aigpMetric",
                                  "linkState",
                                  "customerAttributeSet",
                                  "gunkPathAttrList",
                                  "dataMemberHasNonDefaultValue"};

} // namespace

std::string valueToStrep(const PathAttributesContents& c) {
    std::ostringstream os;
    os << "Value('Routing::Bgp::PathAttributesContents', ** {";
    unsigned i = 0;
    auto name = [&] {
        os << (i ? ", '" : "'") << fieldNames[i] << "': ";
        ++i;
    };
    name(), os << c.tag_;
    name(), os << c.medStorage_;
    name(), os << c.localPrefStorage_;
    name(), formatSub(os, c.nextHop_.get());
    name(), formatSub(os, c.aspathAttr_.get());
    name(), formatSub(os, c.clusterList_.get());
    name(), os << c.commonFlagsStorage_;
    name(), os << unsigned(c.preference_);
    name(), os << unsigned(c.uncommonFlagsStorage_);
    name(), os << c.weight_;
    name(), os << c.bpAsPathWeight_;
    name(), os << c.igpOrRedistMetricStorage_;
    name(), formatSub(os, c.llNextHop_.get());
    name(), formatSub(os, c.aggregator_.get());
    name(), formatSub(os, c.commList_.get());
    name(), formatSub(os, c.extCommList_.get());
    name(), formatSub(os, c.extCommIp6List_.get());
    name(), formatSub(os, c.largeCommList_.get());
    name(), formatSub(os, c.pmsiTunnel_.get());
    name(), formatSub(os, c.prefixSid_.get());
    name(), formatSub(os, c.tunnelEncap_.get());
    name(), formatSub(os, c.domainPath_.get());
    name(), formatSub(os, c.aigpMetric_.get());
    name(), formatSub(os, c.linkState_.get());
    name(), formatSub(os, c.customerAttributeSet_.get());
    name(), formatSub(os, c.gunkPathAttrList_.get());
    name(), os << c.dataMemberHasNonDefaultValue_;
    os << "})";
    return os.str();
}

std::ostream& operator<<(std::ostream& os, const PathAttributesContents& c) {
    return os << valueToStrep(c);
}

PathAttributesContents::PathAttributesContents(std::string_view text) {
    Mel::ValueParser p(text);
    p.valueBegin("Routing::Bgp::PathAttributesContents");
    std::string field;
    size_t at = 0;
    uint32_t storedMask = 0;
    bool maskGiven = false;
    for (bool first = true; p.fieldNext(first, field, &at); first = false) {
        unsigned idx = 0;
        while (idx < 27 && field != fieldNames[idx])
            ++idx;
        if (idx == 27)
            throw Mel::ParseException("at offset " + std::to_string(at) + ": unknown field '" +
                                      field + "' of Routing::Bgp::PathAttributesContents");
        switch (idx) {
        case 0:
            tag_ = uint32_t(p.parseUnsigned(UINT32_MAX));
            break;
        case 1:
            medStorage_ = uint32_t(p.parseUnsigned(UINT32_MAX));
            break;
        case 2:
            localPrefStorage_ = uint32_t(p.parseUnsigned(UINT32_MAX));
            break;
        case 6:
            commonFlagsStorage_ = uint16_t(p.parseUnsigned(UINT16_MAX));
            break;
        case 7:
            preference_ = uint8_t(p.parseUnsigned(UINT8_MAX));
            break;
        case 8:
            uncommonFlagsStorageIs(uint8_t(p.parseUnsigned(UINT8_MAX)));
            break;
        case 9:
            weightIs(RouteWeight(p.parseUnsigned(UINT16_MAX)));
            break;
        case 10:
            bpAsPathWeightIs(RouteWeight(p.parseUnsigned(UINT16_MAX)));
            break;
        case 11:
            igpOrRedistMetricStorageIs(uint32_t(p.parseUnsigned(UINT32_MAX)));
            break;
        case 26:
            storedMask = uint32_t(p.parseUnsigned(UINT32_MAX));
            maskGiven = true;
            break;
        default:
            if (!p.consume("None"))
                throw Mel::NotSupportedException(
                    "at offset " + std::to_string(p.offset()) + ": sub-attribute '" + field +
                    "' cannot be rebuilt from text; only None reads back");
        }
    }
    p.expectEnd();
    // The bit set follows the members; a printed one that disagrees is refused.
    if (maskGiven && storedMask != dataMemberHasNonDefaultValue_)
        throw Mel::ParseException("dataMemberHasNonDefaultValue " + std::to_string(storedMask) +
                                  " does not match the members (" +
                                  std::to_string(dataMemberHasNonDefaultValue_) + ")");
}

} // namespace Routing::Bgp
