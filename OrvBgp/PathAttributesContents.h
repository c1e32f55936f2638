// The mutable record of one path's attributes, from which an interned PathAttributes is made.
//   PathAttributesContents c;  c.nextHopIs(nh);  c.aspathAttrIs(path);
//   c.medIs(MultiExitDiscriminator(10)); Mel::PtrConst<PathAttributes> set =
//   PathAttributesFactory(c).dedupContent(&PathAttributesDedupTable::instance());
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Mel/Ptr.h"
#include "Mel/ValueParser.h"
#include "Mel/ValueType.h"
#include "MelStash/CompressedStashSmartPtr.h"
#include "Routing/RouteScalars.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

namespace Routing {
class CommList;
class ExtCommList;
class ExtCommIp6List;
class LargeCommList;
} // namespace Routing

namespace Routing::Bgp {

class GenNexthop;
class AspathAttrCanonical;
class ClusterList;
class Aggregator;
class PmsiTunnel;
class PrefixSid;
class TunnelEncap;
class DomainPath;
class AccumulatedIgpMetric;
class LinkStateAttrBase;
class AttributeSet;
class GunkPathAttrList;

using Routing::CommList;
using Routing::ExtCommIp6List;
using Routing::ExtCommList;
using Routing::LargeCommList;

// The five storage tiers of an attribute set (and the link-bandwidth variant, which this library
// does not build).
enum class PathAttributeType : uint8_t {
    base = 0,
    withCommList = 1,
    withExtCommList = 2,
    internet = 3,
    full = 4,
    withRibOutLbwContext = 5,
};
const char* pathAttributeTypeName(PathAttributeType t) noexcept;

// ORIGIN codes as BGP sends them.
enum class Origin : uint8_t { igp = 0, egp = 1, incomplete = 2 };

// How the path's AS path was learnt (3 bits): from no peer (locally originated), an external peer,
// an internal peer, or a confederation peer. 0 is "unknown", the record's default.
enum class AspType : uint8_t {
    unknown = 0,
    local = 1,
    external = 2,
    internal = 3,
    confedExternal = 4
};

class PathAttributesContents : public Keel::DedupContentHandle {
public:
    // One bit per member that the smaller tiers leave out, in alphabetical order of the members.
    // The spelling of the enumerators is part of the interface.
    enum DataMemberHasNonDefaultValue : uint32_t {
        nonDefaulValueAggregator = 0x1,
        nonDefaulValueAigpMetric = 0x2,
        nonDefaulValueBpAsPathWeight = 0x4,
        nonDefaulValueCommList = 0x8,
        nonDefaulValueCustomerAttributeSet = 0x10,
        nonDefaulValueDomainPath = 0x20,
        nonDefaulValueExtCommIp6List = 0x40,
        nonDefaulValueExtCommList = 0x80,
        nonDefaulValueGunkPathAttrList = 0x100,
        nonDefaulValueIgpOrRedistMetricStorage = 0x200,
        nonDefaulValueLargeCommList = 0x400,
        nonDefaulValueLinkState = 0x800,
        nonDefaulValueLlNextHop = 0x1000,
        nonDefaulValuePmsiTunnel = 0x2000,
        nonDefaulValuePrefixSid = 0x4000,
        nonDefaulValueTunnelEncap = 0x8000,
        nonDefaulValueUncommonFlagsStorage = 0x10000,
        nonDefaulValueWeight = 0x20000,
    };
    // Bits that only the full tier can hold.
    static constexpr uint32_t fullOnlyMask = 0x3FB76;
    // The flag bits of commonFlagsStorage that exist; the others are dropped by every tier.
    static constexpr uint16_t commonFlagsMask = 0x7ff;

    template <class T>
    using Stashed = MelStash::CompressedStashSmartPtr<T const, 4>;

    PathAttributesContents() noexcept;
    PathAttributesContents(const PathAttributesContents&);
    // A move leaves the source equal to a default record (no references, bit set empty).
    PathAttributesContents(PathAttributesContents&&) noexcept;
    PathAttributesContents& operator=(const PathAttributesContents&);
    PathAttributesContents& operator=(PathAttributesContents&&) noexcept;
    ~PathAttributesContents();
    // Parses the text valueToStrep prints. Sub-attribute members read back only as None (an
    // interned object cannot be rebuilt from its printed form); anything else throws
    // Mel::NotSupportedException ("Not supported: ..."), and malformed text Mel::ParseException.
    // The printed bit set is output only: the members' setters rebuild it.
    explicit PathAttributesContents(std::string_view text);

    // ---- members every tier stores ----
    Routing::RouteTag tag() const noexcept { return tag_; }
    void tagIs(Routing::RouteTag v) & noexcept { tag_ = v; }
    uint32_t medStorage() const noexcept { return medStorage_; }
    void medStorageIs(uint32_t v) & noexcept { medStorage_ = v; }
    uint32_t localPrefStorage() const noexcept { return localPrefStorage_; }
    void localPrefStorageIs(uint32_t v) & noexcept { localPrefStorage_ = v; }
    Mel::PtrConst<GenNexthop> nextHop() const noexcept { return nextHop_.ptr(); }
    void nextHopIs(const Mel::PtrConst<GenNexthop>& v) &;
    Mel::PtrConst<AspathAttrCanonical> aspathAttr() const noexcept { return aspathAttr_.ptr(); }
    void aspathAttrIs(const Mel::PtrConst<AspathAttrCanonical>& v) &;
    Mel::PtrConst<ClusterList> clusterList() const noexcept { return clusterList_.ptr(); }
    void clusterListIs(const Mel::PtrConst<ClusterList>& v) &;
    uint16_t commonFlagsStorage() const noexcept { return commonFlagsStorage_; }
    void commonFlagsStorageIs(uint16_t v) & noexcept { commonFlagsStorage_ = v; }
    Routing::RoutePreference preference() const noexcept { return preference_; }
    void preferenceIs(Routing::RoutePreference v) & noexcept { preference_ = v; }

    MultiExitDiscriminator med() const noexcept;
    void medIs(const MultiExitDiscriminator& v) & noexcept;
    RoutingLocalPref localPref() const noexcept;
    void localPrefIs(const RoutingLocalPref& v) & noexcept;

    // Bit fields of commonFlagsStorage.
    AspType aspType() const noexcept { return AspType(commonFlagsStorage_ & 7); }
    void aspTypeIs(AspType v) & noexcept { flagBitsIs(0, 3, uint16_t(v)); }
    bool atomicAggregate() const noexcept { return commonFlagsStorage_ >> 3 & 1; }
    void atomicAggregateIs(bool v) & noexcept { flagBitsIs(3, 1, v); }
    Origin origin() const noexcept { return Origin(commonFlagsStorage_ >> 4 & 3); }
    void originIs(Origin v) & noexcept { flagBitsIs(4, 2, uint16_t(v)); }
    bool medSpecified() const noexcept { return commonFlagsStorage_ >> 6 & 1; }
    bool localPrefSpecified() const noexcept { return commonFlagsStorage_ >> 7 & 1; }
    bool llgrStale() const noexcept { return commonFlagsStorage_ >> 8 & 1; }
    void llgrStaleIs(bool v) & noexcept { flagBitsIs(8, 1, v); }
    bool noLlgr() const noexcept { return commonFlagsStorage_ >> 9 & 1; }
    void noLlgrIs(bool v) & noexcept { flagBitsIs(9, 1, v); }
    bool ipLookupAsBackup() const noexcept { return commonFlagsStorage_ >> 10 & 1; }
    void ipLookupAsBackupIs(bool v) & noexcept { flagBitsIs(10, 1, v); }

    // ---- members with a non-default bit ----
    uint8_t uncommonFlagsStorage() const noexcept { return uncommonFlagsStorage_; }
    void uncommonFlagsStorageIs(uint8_t v) & noexcept;
    bool redistMetricSpecified() const noexcept { return uncommonFlagsStorage_ & 1; }
    bool igpMetricForNexthopSpecified() const noexcept { return uncommonFlagsStorage_ >> 1 & 1; }
    RouteWeight weight() const noexcept { return weight_; }
    void weightIs(RouteWeight v) & noexcept;
    RouteWeight bpAsPathWeight() const noexcept { return bpAsPathWeight_; }
    void bpAsPathWeightIs(RouteWeight v) & noexcept;
    uint32_t igpOrRedistMetricStorage() const noexcept { return igpOrRedistMetricStorage_; }
    void igpOrRedistMetricStorageIs(uint32_t v) & noexcept;
    RedistMetric redistMetric() const noexcept;
    void redistMetricIs(const RedistMetric& v) & noexcept;
    IgpMetricForNexthop igpMetricForNexthop() const noexcept;
    void igpMetricForNexthopIs(const IgpMetricForNexthop& v) & noexcept;

    Mel::PtrConst<GenNexthop> llNextHop() const noexcept { return llNextHop_.ptr(); }
    void llNextHopIs(const Mel::PtrConst<GenNexthop>& v) &;
    Mel::PtrConst<Aggregator> aggregator() const noexcept { return aggregator_.ptr(); }
    void aggregatorIs(const Mel::PtrConst<Aggregator>& v) &;
    Mel::PtrConst<CommList> commList() const noexcept { return commList_.ptr(); }
    // Also sets llgrStale and noLlgr from the list's well-known communities; does nothing when
    // the list is the one held (flags written since stay as written).
    void commListIs(const Mel::PtrConst<CommList>& v) &;
    Mel::PtrConst<ExtCommList> extCommList() const noexcept { return extCommList_.ptr(); }
    void extCommListIs(const Mel::PtrConst<ExtCommList>& v) &;
    Mel::PtrConst<ExtCommIp6List> extCommIp6List() const noexcept { return extCommIp6List_.ptr(); }
    void extCommIp6ListIs(const Mel::PtrConst<ExtCommIp6List>& v) &;
    Mel::PtrConst<LargeCommList> largeCommList() const noexcept { return largeCommList_.ptr(); }
    void largeCommListIs(const Mel::PtrConst<LargeCommList>& v) &;
    Mel::PtrConst<PmsiTunnel> pmsiTunnel() const noexcept { return pmsiTunnel_.ptr(); }
    void pmsiTunnelIs(const Mel::PtrConst<PmsiTunnel>& v) &;
    Mel::PtrConst<PrefixSid> prefixSid() const noexcept { return prefixSid_.ptr(); }
    void prefixSidIs(const Mel::PtrConst<PrefixSid>& v) &;
    Mel::PtrConst<TunnelEncap> tunnelEncap() const noexcept { return tunnelEncap_.ptr(); }
    // Only null or an object interned at least once ("!v || v->everDeduped()").
    void tunnelEncapIs(const Mel::PtrConst<TunnelEncap>& v) &;
    Mel::PtrConst<DomainPath> domainPath() const noexcept { return domainPath_.ptr(); }
    void domainPathIs(const Mel::PtrConst<DomainPath>& v) &;
    Mel::PtrConst<AccumulatedIgpMetric> aigpMetric() const noexcept { return aigpMetric_.ptr(); }
    void aigpMetricIs(const Mel::PtrConst<AccumulatedIgpMetric>& v) &;
    Mel::PtrConst<LinkStateAttrBase> linkState() const noexcept { return linkState_.ptr(); }
    void linkStateIs(const Mel::PtrConst<LinkStateAttrBase>& v) &;
    Mel::PtrConst<AttributeSet> customerAttributeSet() const noexcept {
        return customerAttributeSet_.ptr();
    }
    void customerAttributeSetIs(const Mel::PtrConst<AttributeSet>& v) &;
    Mel::PtrConst<GunkPathAttrList> gunkPathAttrList() const noexcept { return gunkPathAttrList_; }
    void gunkPathAttrListIs(const Mel::PtrConst<GunkPathAttrList>& v) &;

    uint32_t dataMemberHasNonDefaultValue() const noexcept { return dataMemberHasNonDefaultValue_; }
    // The tier these contents select.
    PathAttributeType pathAttributeType() const noexcept;

    // Raw views for the tier code, without reference counting.
    const Stashed<GenNexthop>& nextHopStashed() const noexcept { return nextHop_; }
    const Stashed<AspathAttrCanonical>& aspathAttrStashed() const noexcept { return aspathAttr_; }
    const Stashed<ClusterList>& clusterListStashed() const noexcept { return clusterList_; }
    const Stashed<GenNexthop>& llNextHopStashed() const noexcept { return llNextHop_; }
    const Stashed<Aggregator>& aggregatorStashed() const noexcept { return aggregator_; }
    const Stashed<CommList>& commListStashed() const noexcept { return commList_; }
    const Stashed<ExtCommList>& extCommListStashed() const noexcept { return extCommList_; }
    const Stashed<ExtCommIp6List>& extCommIp6ListStashed() const noexcept {
        return extCommIp6List_;
    }
    const Stashed<LargeCommList>& largeCommListStashed() const noexcept { return largeCommList_; }
    const Stashed<PmsiTunnel>& pmsiTunnelStashed() const noexcept { return pmsiTunnel_; }
    const Stashed<PrefixSid>& prefixSidStashed() const noexcept { return prefixSid_; }
    const Stashed<TunnelEncap>& tunnelEncapStashed() const noexcept { return tunnelEncap_; }
    const Stashed<DomainPath>& domainPathStashed() const noexcept { return domainPath_; }
    const Stashed<AccumulatedIgpMetric>& aigpMetricStashed() const noexcept { return aigpMetric_; }
    const Stashed<LinkStateAttrBase>& linkStateStashed() const noexcept { return linkState_; }
    const Stashed<AttributeSet>& customerAttributeSetStashed() const noexcept {
        return customerAttributeSet_;
    }
    const Mel::PtrConst<GunkPathAttrList>& gunkPathAttrListRaw() const noexcept {
        return gunkPathAttrList_;
    }

    bool operator==(const PathAttributesContents& o) const noexcept;
    bool operator<(const PathAttributesContents& o) const noexcept;
    // True when the record differs from a default-constructed one.
    explicit operator bool() const noexcept;

    // "aggregator, commList" for the set bits; "<Only attributes present in all PathAttribute
    // types>" when none of the eighteen is set.
    static std::string dataMemberHasNonDefaultValueToStrep(uint32_t mask);

private:
    void flagBitsIs(unsigned pos, unsigned width, uint16_t v) noexcept {
        uint16_t mask = uint16_t(((1u << width) - 1) << pos);
        commonFlagsStorage_ = uint16_t((commonFlagsStorage_ & ~mask) | ((v << pos) & mask));
    }
    void bitIs(uint32_t bit, bool on) noexcept {
        dataMemberHasNonDefaultValue_ =
            on ? dataMemberHasNonDefaultValue_ | bit : dataMemberHasNonDefaultValue_ & ~bit;
    }
    template <class T>
    void pointerIs(Stashed<T>& member, const Mel::PtrConst<T>& v, uint32_t bit);

    Routing::RouteTag tag_ = 0;
    uint32_t medStorage_ = 0;
    uint32_t localPrefStorage_ = 0;
    Stashed<GenNexthop> nextHop_;
    Stashed<AspathAttrCanonical> aspathAttr_;
    Stashed<ClusterList> clusterList_;
    uint16_t commonFlagsStorage_ = 0;
    Routing::RoutePreference preference_ = 1;
    uint8_t uncommonFlagsStorage_ = 0;
    RouteWeight weight_ = 0;
    RouteWeight bpAsPathWeight_ = 0;
    uint32_t igpOrRedistMetricStorage_ = 0;
    Stashed<GenNexthop> llNextHop_;
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
    uint32_t dataMemberHasNonDefaultValue_ = 0;

    // Text form and get/set by name. Sub-attributes print through their own text (an AS path as
    // its stored segments, '65001 65002 {65003}') and read back only as None.
    MEL_VALUE_TYPE(PathAttributesContents, "Routing::Bgp::PathAttributesContents",
                   (tag_, medStorage_, localPrefStorage_, nextHop, nextHopIs, aspathAttr,
                    aspathAttrIs, clusterList, clusterListIs, commonFlagsStorage_, preference_,
                    uncommonFlagsStorage, uncommonFlagsStorageIs, weight, weightIs, bpAsPathWeight,
                    bpAsPathWeightIs, igpOrRedistMetricStorage, igpOrRedistMetricStorageIs,
                    llNextHop, llNextHopIs, aggregator, aggregatorIs, commList, commListIs,
                    extCommList, extCommListIs, extCommIp6List, extCommIp6ListIs, largeCommList,
                    largeCommListIs, pmsiTunnel, pmsiTunnelIs, prefixSid, prefixSidIs, tunnelEncap,
                    tunnelEncapIs, domainPath, domainPathIs, aigpMetric, aigpMetricIs, linkState,
                    linkStateIs, customerAttributeSet, customerAttributeSetIs, gunkPathAttrList,
                    gunkPathAttrListIs, dataMemberHasNonDefaultValue))
};

// The tier a non-default bit set selects.
PathAttributeType dataMemberHasNonDefaultValueToPathAttributeType(uint32_t mask) noexcept;

std::string valueToStrep(const PathAttributesContents& c);
std::ostream& operator<<(std::ostream& os, const PathAttributesContents& c);

// The sub-attribute types a set points to, and their text in a set's text form: quoted, None when
// null. Reading one back accepts only None.
template <class T>
concept PathAttributesSubAttribute =
    std::is_same_v<T, GenNexthop> || std::is_same_v<T, AspathAttrCanonical> ||
    std::is_same_v<T, ClusterList> || std::is_same_v<T, Aggregator> ||
    std::is_same_v<T, PmsiTunnel> || std::is_same_v<T, PrefixSid> ||
    std::is_same_v<T, TunnelEncap> || std::is_same_v<T, DomainPath> ||
    std::is_same_v<T, AccumulatedIgpMetric> || std::is_same_v<T, LinkStateAttrBase> ||
    std::is_same_v<T, AttributeSet> || std::is_same_v<T, GunkPathAttrList> ||
    std::is_same_v<T, CommList> || std::is_same_v<T, ExtCommList> ||
    std::is_same_v<T, ExtCommIp6List> || std::is_same_v<T, LargeCommList>;

template <PathAttributesSubAttribute T>
void subAttributeFormat(std::ostream& os, const T* p);
void subAttributeParseNone(Mel::ValueParser& p);

template <PathAttributesSubAttribute T>
void melFormat(std::ostream& os, const Mel::PtrConst<T>& p) {
    subAttributeFormat(os, p.get());
}
template <PathAttributesSubAttribute T>
void melParse(Mel::ValueParser& p, Mel::PtrConst<T>& v) {
    subAttributeParseNone(p);
    v = nullptr;
}

} // namespace Routing::Bgp

namespace Routing {
// The community lists live in Routing: their hooks must be found there.
template <class T>
requires(std::is_same_v<T, CommList> || std::is_same_v<T, ExtCommList> ||
         std::is_same_v<T, ExtCommIp6List> ||
         std::is_same_v<T, LargeCommList>) void melFormat(std::ostream& os,
                                                          const Mel::PtrConst<T>& p) {
    Bgp::subAttributeFormat(os, p.get());
}
template <class T>
requires(std::is_same_v<T, CommList> || std::is_same_v<T, ExtCommList> ||
         std::is_same_v<T, ExtCommIp6List> ||
         std::is_same_v<T, LargeCommList>) void melParse(Mel::ValueParser& p, Mel::PtrConst<T>& v) {
    Bgp::subAttributeParseNone(p);
    v = nullptr;
}
} // namespace Routing
