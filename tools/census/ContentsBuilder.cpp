#include "census/ContentsBuilder.h"

#include "census/WireDecoders.h"

#include "AsPath/AspathAttrCanonical.h"
#include "Mel/Exception.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/ClusterList.h"
#include "OrvBgp/GunkAttributes.h"
#include "Routing/CommList.h"

#include <boost/container/small_vector.hpp>

#include <cstring>
#include <vector>

namespace Census {

using namespace Routing::Bgp;
using Routing::CommList;
using Routing::ExtCommIp6;
using Routing::ExtCommIp6List;
using Routing::ExtCommList;
using Routing::LargeComm;
using Routing::LargeCommList;

const char* buildOutcomeName(BuildOutcome o) {
    switch (o) {
    case BuildOutcome::Interned:
        return "interned";
    case BuildOutcome::KeptUnknown:
        return "kept-unknown";
    case BuildOutcome::Discarded:
        return "discarded";
    case BuildOutcome::Duplicate:
        return "duplicate";
    case BuildOutcome::NotInSet:
        return "not-in-set";
    }
    return "?";
}

uint64_t BuildCounts::total(BuildOutcome o) const noexcept {
    uint64_t n = 0;
    for (const auto& t : byType)
        n += t[size_t(o)];
    return n;
}

void BuildCounts::merge(const BuildCounts& o) noexcept {
    paths += o.paths;
    built += o.built;
    withdrawals += o.withdrawals;
    unusable += o.unusable;
    for (size_t t = 0; t < byType.size(); ++t)
        for (size_t i = 0; i < kBuildOutcomeCount; ++i)
            byType[t][i] += o.byType[t][i];
}

bool nextHopFromMpReach(const DecodedPath& path) noexcept {
    if (path.source == PathSource::MpReach) return true;
    if (path.source != PathSource::RibEntry || !path.attributes) return false;
    // RIB dumps carry IPv6 next hops in the abbreviated MP_REACH_NLRI; IPv4 entries use NEXT_HOP
    // when they have one.
    return path.afi != kAfiIpv4 || !path.attributes->has(AttrType::kNextHop);
}

// Where outcomes go: straight into the counts, or held back until an ATTR_SET is known to be
// kept (its inner attributes count only then).
struct ContentsBuilder::Outcomes {
    BuildCounts* counts = nullptr;
    boost::container::small_vector<std::pair<uint8_t, BuildOutcome>, 16> pending;

    void add(uint8_t type, BuildOutcome o) {
        if (counts)
            ++counts->byType[type][size_t(o)];
        else
            pending.emplace_back(type, o);
    }
    void flushTo(Outcomes& parent) {
        for (auto& [t, o] : pending)
            parent.add(t, o);
        pending.clear();
    }
};

// Buffers reused from path to path, so that a path whose sub-attributes are interned already costs
// no allocation.
struct ContentsBuilder::Scratch {
    AspathAttrCanonicalContent asPath;
    ClusterListContent clusterList;
    std::vector<uint32_t> comms;
    std::vector<uint64_t> extComms;
    std::vector<ExtCommIp6> extComms6;
    std::vector<LargeComm> largeComms;
    AttributeDecoder inner; // ATTR_SET contents
};

ContentsBuilder::ContentsBuilder()
    : ContentsBuilder(Mel::Ptr<NexthopTable>(new NexthopTable(BgpVrfIdBase::defaultVrfId(),
                                                              Orvnet::AfiSafi::ipv4Unicast())),
                      Mel::Ptr<NexthopTable>(new NexthopTable(BgpVrfIdBase::defaultVrfId(),
                                                              Orvnet::AfiSafi::ipv6Unicast()))) {}

ContentsBuilder::ContentsBuilder(Mel::Ptr<NexthopTable> ipv4, Mel::Ptr<NexthopTable> ipv6)
    : nh4_(std::move(ipv4)), nh6_(std::move(ipv6)), scratch_(new Scratch) {}

ContentsBuilder::~ContentsBuilder() = default;

bool ContentsBuilder::build(const DecodedPath& path, PathAttributesContents& out) {
    ++counts_.paths;
    out = PathAttributesContents();
    if (path.withdrawal()) {
        ++counts_.withdrawals;
        return false;
    }
    if (!path.usable()) {
        ++counts_.unusable;
        return false;
    }
    if (path.attributes) {
        Outcomes outcomes;
        outcomes.counts = &counts_;
        fill(*path.attributes, &path, outcomes, out);
    }
    ++counts_.built;
    return true;
}

Mel::PtrConst<PathAttributes> ContentsBuilder::intern(const DecodedPath& path,
                                                      const PathAttributesDedupTable& table) {
    if (!build(path, contents_)) return {};
    Mel::PtrConst<PathAttributes> set = PathAttributes::dedupContent(&table, contents_);
    contents_ = PathAttributesContents(); // no hidden references between calls
    return set;
}

namespace {

Orvnet::IpGenAddr genAddr(const IpAddress& a) {
    if (a.isV4()) return Orvnet::IpAddr::fromBytes(a.bytes.data());
    return Orvnet::Ip6Addr::fromBytes(a.bytes.data());
}

Orvnet::IpAddr ipv4(uint32_t hostOrder) {
    return Orvnet::IpAddr::fromHostOrder(hostOrder);
}

} // namespace

void ContentsBuilder::fill(const DecodedAttributes& a, const DecodedPath* path, Outcomes& outcomes,
                           PathAttributesContents& out) {
    using T = BgpPathAttrType;
    Scratch& s = *scratch_;
    const bool mpNextHop = path && nextHopFromMpReach(*path);
    boost::container::small_vector<Mel::PtrConst<GunkPathAttr>, 4> gunk;
    std::array<uint64_t, 4> seen{};
    bool clusterListSeen = false;

    auto keepVerbatim = [&](const PathAttribute& attr) {
        gunk.push_back(GunkPathAttrDedupTable::instance().findOrCreate(
            GunkPathAttrContent(attr.type, attr.flags, uint16_t(attr.value.size()), attr.value)));
        outcomes.add(attr.type, BuildOutcome::KeptUnknown);
    };
    // The object of a decoder of WireDecoders, or the attribute kept verbatim, or discarded.
    auto decoded = [&](const PathAttribute& attr, auto result, auto set) {
        switch (result.verdict) {
        case Wire::Verdict::Held:
            set(result.object);
            outcomes.add(attr.type, BuildOutcome::Interned);
            break;
        case Wire::Verdict::NotHeld:
            keepVerbatim(attr);
            break;
        case Wire::Verdict::Malformed:
            outcomes.add(attr.type, BuildOutcome::Discarded);
            break;
        }
    };

    for (const PathAttribute& attr : a.list) {
        const uint8_t type = attr.type;
        const uint64_t bit = uint64_t(1) << (type & 63);
        if (seen[type >> 6] & bit) {
            outcomes.add(type, BuildOutcome::Duplicate);
            continue;
        }
        seen[type >> 6] |= bit;
        if (type == T::mpReachNlri_ || type == T::mpUnreachNlri_) {
            outcomes.add(type, BuildOutcome::NotInSet);
            continue;
        }
        const uint8_t expected = Wire::expectedFlags(type);
        if (attr.action != ErrorAction::None ||
            (expected != 0xff && (attr.flags & 0xc0) != expected)) {
            outcomes.add(type, BuildOutcome::Discarded);
            continue;
        }
        try {
            switch (type) {
            case T::origin_:
                out.originIs(Origin(a.origin));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            case T::asPath_: {
                const AsPath& p = a.effectiveAsPath();
                s.asPath.clear();
                for (const AsPath::Segment& seg : p.segments)
                    s.asPath.segmentAdd(Routing::Bgp::AsSegmentType(seg.type), p.asnsOf(seg));
                out.aspathAttrIs(aspathAttrCanonicalFactory(s.asPath));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            }
            case T::nextHop_:
                // Taken after the loop, once the path's own next hop is known.
                outcomes.add(type, path && !mpNextHop ? BuildOutcome::Interned
                                   : path             ? BuildOutcome::NotInSet
                                                      : BuildOutcome::Discarded);
                break;
            case T::med_:
                out.medIs(MultiExitDiscriminator(a.med));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            case T::localPref_:
                out.localPrefIs(RoutingLocalPref(a.localPref));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            case T::atomicAggregate_:
                out.atomicAggregateIs(true);
                outcomes.add(type, BuildOutcome::Interned);
                break;
            case T::aggregator_: {
                const Aggregator& g = a.effectiveAggregator();
                out.aggregatorIs(aggregatorFactory(g.as, ipv4(g.address)));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            }
            case T::as4Path_:
                outcomes.add(type, a.merged ? BuildOutcome::Interned : BuildOutcome::Discarded);
                break;
            case T::as4Aggregator_:
                outcomes.add(type,
                             a.useAs4Aggregator ? BuildOutcome::Interned : BuildOutcome::Discarded);
                break;
            case T::communities_:
                s.comms.resize(a.communities.size());
                for (size_t i = 0; i < s.comms.size(); ++i)
                    s.comms[i] = a.communities[i];
                out.commListIs(CommList::intern(s.comms));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            case T::extCommunities_:
                s.extComms.resize(a.extCommunities.size());
                for (size_t i = 0; i < s.extComms.size(); ++i)
                    s.extComms[i] = a.extCommunities[i];
                out.extCommListIs(ExtCommList::intern(s.extComms));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            case T::ip6ExtCommunities_:
                s.extComms6.resize(a.ipv6ExtCommunities.size());
                for (size_t i = 0; i < s.extComms6.size(); ++i)
                    std::memcpy(s.extComms6[i].data(), a.ipv6ExtCommunities.item(i), 20);
                out.extCommIp6ListIs(ExtCommIp6List::intern(s.extComms6));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            case T::largeCommunities_:
                s.largeComms.resize(a.largeCommunities.size());
                for (size_t i = 0; i < s.largeComms.size(); ++i) {
                    const LargeCommunity c = a.largeCommunities[i];
                    s.largeComms[i] = {c.global, c.local1, c.local2};
                }
                out.largeCommListIs(LargeCommList::intern(s.largeComms));
                outcomes.add(type, BuildOutcome::Interned);
                break;
            case T::originatorId_:
                // 0.0.0.0 is the cluster list's "no originator": such a value is kept verbatim.
                if (a.originatorId == 0)
                    keepVerbatim(attr);
                else
                    outcomes.add(type, BuildOutcome::Interned);
                clusterListSeen = true;
                break;
            case T::clusterList_:
                outcomes.add(type, BuildOutcome::Interned);
                clusterListSeen = true;
                break;
            case T::pmsiTunnel_:
                decoded(attr, Wire::pmsiTunnel(attr.value),
                        [&](const auto& o) { out.pmsiTunnelIs(o); });
                break;
            case T::tunnelEncap_:
                decoded(attr, Wire::tunnelEncap(attr.value),
                        [&](const auto& o) { out.tunnelEncapIs(o); });
                break;
            case T::aigp_:
                decoded(attr, Wire::aigp(attr.value), [&](const auto& o) { out.aigpMetricIs(o); });
                break;
            case T::linkState_:
                decoded(attr, Wire::linkState(attr.value),
                        [&](const auto& o) { out.linkStateIs(o); });
                break;
            case T::dPath_:
                decoded(attr, Wire::domainPath(attr.value),
                        [&](const auto& o) { out.domainPathIs(o); });
                break;
            case T::prefixSid_:
                decoded(attr, Wire::prefixSid(attr.value),
                        [&](const auto& o) { out.prefixSidIs(o); });
                break;
            case T::attrSet_:
                if (!path) // an ATTR_SET inside an ATTR_SET
                    outcomes.add(type, BuildOutcome::Discarded);
                else if (!attributeSet(attr.value, outcomes, out))
                    keepVerbatim(attr);
                break;
            default:
                keepVerbatim(attr);
                break;
            }
        } catch (const std::exception&) {
            // A value the library refuses (an AS path beyond its limits): attribute discard.
            outcomes.add(type, BuildOutcome::Discarded);
        }
    }

    if (clusterListSeen && (a.has(T::originatorId_) || a.has(T::clusterList_))) {
        ClusterListContent& c = s.clusterList;
        c.clusterIdDelAll();
        c.originatorIdIs(ipv4(a.has(T::originatorId_) ? a.originatorId : 0));
        if (a.has(T::clusterList_))
            for (size_t i = 0; i < a.clusterList.size(); ++i)
                c.clusterIdEnq(ipv4(a.clusterList[i]));
        if (c.originatorId() != Orvnet::IpAddr() || c.clusterIdCount())
            out.clusterListIs(ClusterListDedupTable::instance().findOrCreate(c));
    }

    if (path) {
        NexthopTable& table = path->afi == kAfiIpv4 ? *nh4_ : *nh6_;
        if (mpNextHop) {
            const MpReach& m = a.mpReach;
            if (a.has(T::mpReachNlri_) && m.nextHop.family) {
                out.nextHopIs(table.nexthop(genAddr(m.nextHop)));
                if (m.linkLocalNextHop.family)
                    out.llNextHopIs(table.nexthop(genAddr(m.linkLocalNextHop)));
            }
        } else if (a.has(T::nextHop_)) {
            out.nextHopIs(table.nexthop(ipv4(a.nextHop)));
        }
    }

    if (!gunk.empty()) {
        Mel::Ptr<GunkPathAttrList> list(new GunkPathAttrList);
        for (const auto& g : gunk)
            list->gunkIs(g);
        out.gunkPathAttrListIs(list->dedup());
    }
}

bool ContentsBuilder::attributeSet(std::span<const uint8_t> value, Outcomes& outcomes,
                                   PathAttributesContents& out) {
    if (value.size() < 4) {
        outcomes.add(BgpPathAttrType::attrSet_, BuildOutcome::Discarded);
        return true;
    }
    AttributeContext ctx;
    ctx.asnSize = 4;
    const DecodedAttributes& inner = scratch_->inner.decode(value.subspan(4), ctx);
    if (inner.action >= ErrorAction::TreatAsWithdraw) {
        outcomes.add(BgpPathAttrType::attrSet_, BuildOutcome::Discarded);
        return true;
    }
    Outcomes innerOutcomes;
    PathAttributesContents innerContents;
    fill(inner, nullptr, innerOutcomes, innerContents);
    Mel::PtrConst<PathAttributes> innerSet =
        PathAttributes::dedupContent(&PathAttributesDedupTable::instance(), innerContents);
    Mel::PtrConst<AttributeSet> set = attributeSetFactory(readBe32(value.data()), innerSet);
    if (!Wire::writesValue(set->serialize(), value)) return false;
    out.customerAttributeSetIs(set);
    outcomes.add(BgpPathAttrType::attrSet_, BuildOutcome::Interned);
    innerOutcomes.flushTo(outcomes);
    return true;
}

} // namespace Census
