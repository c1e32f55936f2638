#include "OrvBgp/BgpPathAttributes.h"
#include "Mel/Reflect.h"
#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "OrvBgp/RibOutBgpPathAttributes.h"
#include "reliability/EveryAttributeHelpers.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <sstream>
#include <thread>

namespace {

using namespace Routing::Bgp;
using C = PathAttributesContents;

// A small population of interned sub-attributes to draw contents from.
struct Pool {
    Pool() {
        for (uint32_t i = 0; i < 4; ++i) {
            commLists.push_back(Routing::CommList::intern({0xfde80000u + i}));
            extCommLists.push_back(Routing::ExtCommList::intern({0x0002fde800000000ULL + i}));
            largeCommLists.push_back(
                Routing::LargeCommList::intern({Routing::LargeComm{65000, i, i}}));
            aggregators.push_back(aggregatorFactory(65000 + i, Orvnet::IpAddr::fromHostOrder(i)));
            aigps.push_back(accumulatedIgpMetricFactory(i + 1));
            AspathAttrCanonicalContent p;
            p.segmentAdd(AsSegmentType::asSequence_, {65001, 100 + i});
            paths.push_back(aspathAttrCanonicalFactory(p));
            nexthops.push_back(
                nhTable.nexthop(Orvnet::IpGenAddr(Orvnet::IpAddr::fromHostOrder(0x0a000001 + i))));
        }
    }
    AddressNexthopDedupTable nhTable{BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast()};
    std::vector<Mel::PtrConst<Routing::CommList>> commLists;
    std::vector<Mel::PtrConst<Routing::ExtCommList>> extCommLists;
    std::vector<Mel::PtrConst<Routing::LargeCommList>> largeCommLists;
    std::vector<Mel::PtrConst<Aggregator>> aggregators;
    std::vector<Mel::PtrConst<AccumulatedIgpMetric>> aigps;
    std::vector<Mel::PtrConst<AspathAttrCanonical>> paths;
    std::vector<Mel::PtrConst<GenNexthop>> nexthops;
};

Pool& pool() {
    static Pool* p = new Pool;
    return *p;
}

// One of each of the remaining members' objects, taken from sets that hold them; alive only for
// the test that uses them, so that other tests' objects of the same value stay their own.
struct Extras {
    Extras() {
        auto& full = every.full;
        auto& uncommon = every.sets[3];
        clusterLists = {full->clusterListGet()};
        ip6Lists = {uncommon->extCommIp6ListGet()};
        pmsiTunnels = {full->pmsiTunnelGet()};
        prefixSids = {full->prefixSidGet()};
        tunnelEncaps = {full->tunnelEncapGet()};
        domainPaths = {full->domainPathGet()};
        linkStates = {uncommon->linkStateGet()};
        attributeSets = {uncommon->customerAttributeSetGet()};
        gunks = {full->gunkPathAttrListGet()};
    }
    // The references every object of the pool and of these holds now, by object.
    std::vector<std::pair<const Keel::DedupHandleBase*, uint32_t>> refCounts() const {
        std::vector<std::pair<const Keel::DedupHandleBase*, uint32_t>> out;
        auto add = [&out](const auto& v) {
            for (const auto& x : v)
                out.emplace_back(x.get(), x->refCount());
        };
        const Pool& p = pool();
        add(p.commLists), add(p.extCommLists), add(p.largeCommLists), add(p.aggregators);
        add(p.aigps), add(p.paths), add(p.nexthops), add(clusterLists), add(ip6Lists);
        add(pmsiTunnels), add(prefixSids), add(tunnelEncaps), add(domainPaths), add(linkStates);
        add(attributeSets), add(gunks);
        return out;
    }
    OrvTest::EveryInterned every;
    std::vector<Mel::PtrConst<ClusterList>> clusterLists;
    std::vector<Mel::PtrConst<Routing::ExtCommIp6List>> ip6Lists;
    std::vector<Mel::PtrConst<PmsiTunnel>> pmsiTunnels;
    std::vector<Mel::PtrConst<PrefixSid>> prefixSids;
    std::vector<Mel::PtrConst<TunnelEncap>> tunnelEncaps;
    std::vector<Mel::PtrConst<DomainPath>> domainPaths;
    std::vector<Mel::PtrConst<LinkStateAttrBase>> linkStates;
    std::vector<Mel::PtrConst<AttributeSet>> attributeSets;
    std::vector<Mel::PtrConst<GunkPathAttrList>> gunks;
};

Mel::PtrConst<PathAttributes> intern(const C& c) {
    return PathAttributesFactory(c).dedupContent(&PathAttributesDedupTable::instance());
}

// The bit set recomputed from the members, as the setters must keep it.
uint32_t recomputedBits(const C& c) {
    uint32_t m = 0;
    auto bit = [&](bool on, uint32_t b) { m |= on ? b : 0; };
    bit(bool(c.aggregator()), C::nonDefaulValueAggregator);
    bit(bool(c.aigpMetric()), C::nonDefaulValueAigpMetric);
    bit(c.bpAsPathWeight() != 0, C::nonDefaulValueBpAsPathWeight);
    bit(bool(c.commList()), C::nonDefaulValueCommList);
    bit(bool(c.customerAttributeSet()), C::nonDefaulValueCustomerAttributeSet);
    bit(bool(c.domainPath()), C::nonDefaulValueDomainPath);
    bit(bool(c.extCommIp6List()), C::nonDefaulValueExtCommIp6List);
    bit(bool(c.extCommList()), C::nonDefaulValueExtCommList);
    bit(bool(c.gunkPathAttrList()), C::nonDefaulValueGunkPathAttrList);
    bit(c.igpOrRedistMetricStorage() != 0, C::nonDefaulValueIgpOrRedistMetricStorage);
    bit(bool(c.largeCommList()), C::nonDefaulValueLargeCommList);
    bit(bool(c.linkState()), C::nonDefaulValueLinkState);
    bit(bool(c.llNextHop()), C::nonDefaulValueLlNextHop);
    bit(bool(c.pmsiTunnel()), C::nonDefaulValuePmsiTunnel);
    bit(bool(c.prefixSid()), C::nonDefaulValuePrefixSid);
    bit(bool(c.tunnelEncap()), C::nonDefaulValueTunnelEncap);
    bit(c.uncommonFlagsStorage() != 0, C::nonDefaulValueUncommonFlagsStorage);
    bit(c.weight() != 0, C::nonDefaulValueWeight);
    return m;
}

// One random setter call; metric setters respect their mutual exclusion. Without extras, only the
// pool's first 16 setters.
void randomSet(C& c, std::mt19937& rng, const Extras* x = nullptr) {
    Pool& p = pool();
    auto pick = [&](auto& v) { return rng() % 3 == 0 ? nullptr : v[rng() % v.size()]; };
    auto any = [&](auto& v) { return v[rng() % v.size()]; };
    const std::function<void()> setters[] = {
        [&] { c.weightIs(RouteWeight(rng() % 3)); },
        [&] { c.bpAsPathWeightIs(RouteWeight(rng() % 3)); },
        [&] { c.commListIs(pick(p.commLists)); },
        [&] { c.extCommListIs(pick(p.extCommLists)); },
        [&] { c.largeCommListIs(pick(p.largeCommLists)); },
        [&] { c.aggregatorIs(pick(p.aggregators)); },
        [&] { c.aigpMetricIs(pick(p.aigps)); },
        [&] { c.llNextHopIs(pick(p.nexthops)); },
        [&] {
            if (!c.igpMetricForNexthopSpecified())
                c.redistMetricIs(rng() % 2 ? RedistMetric(rng() % 2) : RedistMetric());
        },
        [&] {
            if (!c.redistMetricSpecified())
                c.igpMetricForNexthopIs(rng() % 2 ? IgpMetricForNexthop(rng() % 2)
                                                  : IgpMetricForNexthop());
        },
        [&] { c.medIs(rng() % 2 ? MultiExitDiscriminator(rng() % 5) : MultiExitDiscriminator()); },
        [&] { c.nextHopIs(any(p.nexthops)); },
        [&] { c.aspathAttrIs(any(p.paths)); },
        [&] { c.originIs(Origin(rng() % 3)); },
        [&] { c.tagIs(rng() % 3); },
        [&] { c.localPrefIs(rng() % 2 ? RoutingLocalPref(rng() % 3) : RoutingLocalPref()); },
        [&] { c.clusterListIs(pick(x->clusterLists)); },
        [&] { c.extCommIp6ListIs(pick(x->ip6Lists)); },
        [&] { c.pmsiTunnelIs(pick(x->pmsiTunnels)); },
        [&] { c.prefixSidIs(pick(x->prefixSids)); },
        [&] { c.tunnelEncapIs(pick(x->tunnelEncaps)); },
        [&] { c.domainPathIs(pick(x->domainPaths)); },
        [&] { c.linkStateIs(pick(x->linkStates)); },
        [&] { c.customerAttributeSetIs(pick(x->attributeSets)); },
        [&] { c.gunkPathAttrListIs(pick(x->gunks)); },
    };
    setters[rng() % (x ? std::size(setters) : 16)]();
}

// The smallest tier (in size order) whose members hold every non-default value.
PathAttributeType smallestHolding(const C& c) {
    bool full = c.weight() || c.bpAsPathWeight() || c.uncommonFlagsStorage() ||
                c.igpOrRedistMetricStorage() || c.llNextHop() || c.aigpMetric() ||
                c.extCommIp6List() || c.pmsiTunnel() || c.prefixSid() || c.tunnelEncap() ||
                c.domainPath() || c.linkState() || c.customerAttributeSet() || c.gunkPathAttrList();
    if (full) return PathAttributeType::full;
    bool comm = bool(c.commList()), ext = bool(c.extCommList()), large = bool(c.largeCommList()),
         agg = bool(c.aggregator());
    if (large || (ext && agg)) return PathAttributeType::internet;
    if (ext) return PathAttributeType::withExtCommList;
    if (comm || agg) return PathAttributeType::withCommList;
    return PathAttributeType::base;
}

TEST(PathAttributesContents, SettersKeepTheBitSetAfterRandomSequences) {
    std::mt19937 rng(20260722);
    for (int run = 0; run < 200; ++run) {
        C c;
        for (int i = 0; i < 30; ++i) {
            randomSet(c, rng);
            ASSERT_EQ(c.dataMemberHasNonDefaultValue(), recomputedBits(c)) << valueToStrep(c);
        }
    }
}

TEST(PathAttributesContents, DefaultsAndSmallEdges) {
    C c;
    EXPECT_FALSE(bool(c));
    EXPECT_EQ(C::dataMemberHasNonDefaultValueToStrep(c.dataMemberHasNonDefaultValue()),
              "<Only attributes present in all PathAttribute types>");
    EXPECT_EQ(c.pathAttributeType(), PathAttributeType::base);
    c.weightIs(5);
    c.weightIs(0);
    EXPECT_FALSE(bool(c));

    c.commListIs(Routing::CommList::intern({Routing::CommList::llgrStale, 7}));
    EXPECT_TRUE(c.llgrStale());
    EXPECT_FALSE(c.noLlgr());
    c.commListIs(nullptr);
    EXPECT_FALSE(c.llgrStale());
    EXPECT_EQ(c.dataMemberHasNonDefaultValue(), 0u);

    c.redistMetricIs(RedistMetric(0));
    EXPECT_TRUE(c.redistMetricSpecified());
    EXPECT_EQ(c.dataMemberHasNonDefaultValue(), uint32_t(C::nonDefaulValueUncommonFlagsStorage));
    C only = c;
    only.redistMetricIs(RedistMetric());
    EXPECT_EQ(only.dataMemberHasNonDefaultValue(), 0u);

    C igp;
    igp.igpMetricForNexthopIs(IgpMetricForNexthop(9));
    C before = igp;
    igp.redistMetricIs(RedistMetric()); // clearing the other metric leaves this one alone
    EXPECT_EQ(igp, before);
    EXPECT_EQ(igp.igpMetricForNexthop(), IgpMetricForNexthop(9));

    C med;
    med.medIs(MultiExitDiscriminator(5));
    med.medIs(MultiExitDiscriminator());
    EXPECT_FALSE(med.medSpecified());
    med.medStorageIs(42);
    EXPECT_FALSE(med.med().isSpecified());
    C med2;
    med2.medIs(MultiExitDiscriminator());
    EXPECT_NE(med, med2); // storage differs although neither MED is specified

    EXPECT_EQ(C::dataMemberHasNonDefaultValueToStrep(0x1 | 0x8 | 0x20000 | 0x80000000),
              "aggregator, commList, weight");
}

TEST(PathAttributesContents, TextFormAndReadingItBack) {
    C c;
    EXPECT_EQ(valueToStrep(c),
              "Value('Routing::Bgp::PathAttributesContents', ** {'tag': 0, 'medStorage': 0, "
              "'localPrefStorage': 0, 'nextHop': None, 'aspathAttr': None, 'clusterList': None, "
              "'commonFlagsStorage': 0, 'preference': 1, 'uncommonFlagsStorage': 0, 'weight': 0, "
              "'bpAsPathWeight': 0, 'igpOrRedistMetricStorage': 0, 'llNextHop': None, "
              "'aggregator': None, 'commList': None, 'extCommList': None, 'extCommIp6List': None, "
              "'largeCommList': None, 'pmsiTunnel': None, 'prefixSid': None, 'tunnelEncap': None, "
              "'domainPath': None, 'aigpMetric': None, 'linkState': None, "
              "'customerAttributeSet': None, 'gunkPathAttrList': None, "
              "'dataMemberHasNonDefaultValue': 0})");
    c.tagIs(7);
    c.medIs(MultiExitDiscriminator(100));
    c.weightIs(3);
    c.redistMetricIs(RedistMetric(11));
    c.preferenceIs(200);
    C back(valueToStrep(c));
    EXPECT_EQ(back, c);
    C withList;
    withList.commListIs(Routing::CommList::intern({0xfde80064}));
    EXPECT_NE(valueToStrep(withList).find("'commList': '65000:100'"), std::string::npos);
    try {
        C{valueToStrep(withList)};
        ADD_FAILURE() << "a sub-attribute read back from text";
    } catch (const Mel::NotSupportedException& e) {
        EXPECT_NE(std::string(e.what()).find("Not supported"), std::string::npos) << e.what();
    }
    EXPECT_THROW(C("Value('Routing::Bgp::PathAttributesContents', ** {'weight': 70000})"),
                 Mel::ParseException);
    EXPECT_THROW(C("Value('Routing::Bgp::PathAttributesContents', ** {'bogus': 1})"),
                 Mel::ParseException);
}

// ---- reading a set back ----

Mel::PtrConst<RibOutPathAttributes> internOut(const C& c) {
    return RibOutPathAttributesFactory(c).dedupContent(&RibOutPathAttributesDedupTable::instance());
}

// The name of the first getter on which the set and the record disagree, or "" if none does.
std::string sharedDifference(const PathAttributesInterface& a, const C& c) {
#define ORV_SAME(getter, member)                                                                   \
    if (!(a.getter() == c.member())) return #getter;
    ORV_SAME(medGet, med)
    ORV_SAME(localPrefGet, localPref)
    ORV_SAME(aspathAttrGet, aspathAttr)
    ORV_SAME(clusterListGet, clusterList)
    ORV_SAME(aspTypeGet, aspType)
    ORV_SAME(atomicAggregateGet, atomicAggregate)
    ORV_SAME(originGet, origin)
    ORV_SAME(llgrStaleGet, llgrStale)
    ORV_SAME(aggregatorGet, aggregator)
    ORV_SAME(commListGet, commList)
    ORV_SAME(extCommListGet, extCommList)
    ORV_SAME(extCommIp6ListGet, extCommIp6List)
    ORV_SAME(largeCommListGet, largeCommList)
    ORV_SAME(pmsiTunnelGet, pmsiTunnel)
    ORV_SAME(prefixSidGet, prefixSid)
    ORV_SAME(tunnelEncapGet, tunnelEncap)
    ORV_SAME(domainPathGet, domainPath)
    ORV_SAME(aigpMetricGet, aigpMetric)
    ORV_SAME(linkStateGet, linkState)
    ORV_SAME(customerAttributeSetGet, customerAttributeSet)
    ORV_SAME(gunkPathAttrListGet, gunkPathAttrList)
    return "";
}
std::string inboundDifference(const PathAttributes& a, const C& c) {
    ORV_SAME(tagGet, tag)
    ORV_SAME(nextHopGet, nextHop)
    ORV_SAME(preferenceGet, preference)
    ORV_SAME(noLlgrGet, noLlgr)
    ORV_SAME(ipLookupAsBackupGet, ipLookupAsBackup)
    ORV_SAME(weightGet, weight)
    ORV_SAME(bpAsPathWeightGet, bpAsPathWeight)
    ORV_SAME(redistMetricGet, redistMetric)
    ORV_SAME(igpMetricForNexthopGet, igpMetricForNexthop)
    ORV_SAME(llNextHopGet, llNextHop)
#undef ORV_SAME
    return sharedDifference(a, c);
}

// A set of tier t built as read back from the store: a different class with the same members.
Mel::PtrConst<PathAttributes> destashedTwin(PathAttributeType t, const C& c) {
    switch (t) {
    case PathAttributeType::base:
        return PathAttributesCommonDestashed::createMe(c);
    case PathAttributeType::withCommList:
        return PathAttributesWithCommListDestashed::createMe(c);
    case PathAttributeType::withExtCommList:
        return PathAttributesWithExtCommListDestashed::createMe(c);
    case PathAttributeType::internet:
        return PathAttributesInternetDestashed::createMe(c);
    default:
        return FullPathAttributesDestashed::createMe(c);
    }
}
Mel::PtrConst<RibOutPathAttributes> destashedOutTwin(PathAttributeType t, const C& c) {
    switch (t) {
    case PathAttributeType::base:
        return RibOutPathAttributesCommonDestashed::createMe(c);
    case PathAttributeType::withCommList:
        return RibOutPathAttributesWithCommListDestashed::createMe(c);
    case PathAttributeType::withExtCommList:
        return RibOutPathAttributesWithExtCommListDestashed::createMe(c);
    case PathAttributeType::internet:
        return RibOutPathAttributesInternetDestashed::createMe(c);
    default:
        return RibOutFullPathAttributesDestashed::createMe(c);
    }
}

// Contents at each tier's edge, random ones, and every flag word of the eleven bits written
// directly after community lists with and without LLGR_STALE / NO_LLGR over contents of every
// tier: the tier is the smallest that holds them (the edges say which), every getter answers the
// contents' value or the default, and the set gives back exactly what it stores, interns back to
// itself, equals its read-back twin and releases what it held; so does the outbound set made from
// the same contents, which keeps every member the two families share and no flag it does not.
TEST(PathAttributes, ModelBasedTierGettersAndReadBack) {
    Pool& p = pool();
    using T = PathAttributeType;
    std::vector<std::pair<C, T>> cases(7);
    cases[0].first.commListIs(p.commLists[0]);
    cases[0].second = T::withCommList;
    cases[1] = {cases[0].first, T::withExtCommList};
    cases[1].first.extCommListIs(p.extCommLists[0]);
    cases[2] = {cases[1].first, T::internet};
    cases[2].first.aggregatorIs(p.aggregators[0]);
    cases[3].first.largeCommListIs(p.largeCommLists[0]);
    cases[3].second = T::internet;
    cases[4] = {cases[3].first, T::full};
    cases[4].first.weightIs(1);
    cases[5].first.weightIs(0);
    cases[5].second = T::base;
    cases[6].first.extCommListIs(p.extCommLists[1]); // internet without a community list
    cases[6].first.largeCommListIs(p.largeCommLists[1]);
    cases[6].second = T::internet;
    Extras extras;
    std::mt19937 rng(7);
    for (int run = 0; run < 600; ++run) {
        C c;
        for (int i = 0; i < 14; ++i)
            randomSet(c, rng, &extras);
        cases.push_back({c, smallestHolding(c)});
    }
    using Routing::CommList;
    const Mel::PtrConst<CommList> lists[] = {
        nullptr,
        CommList::intern({0xfde80001}),
        CommList::intern({CommList::llgrStale}),
        CommList::intern({CommList::noLlgr, 0xfde80002}),
        CommList::intern({CommList::llgrStale, CommList::noLlgr}),
    };
    // The other members that pick the tier, inbound and outbound.
    const std::function<void(C&)> shapes[] = {
        [](C&) {},
        [&](C& c) { c.aggregatorIs(p.aggregators[1]); },
        [&](C& c) { c.extCommListIs(p.extCommLists[1]); },
        [&](C& c) { c.extCommListIs(p.extCommLists[2]), c.largeCommListIs(p.largeCommLists[2]); },
        [&](C& c) { c.weightIs(9), c.redistMetricIs(RedistMetric(4)); }, // full in, base out
        [&](C& c) { c.aigpMetricIs(p.aigps[2]), c.llNextHopIs(p.nexthops[3]); }, // full both
    };
    for (uint16_t flags = 0; flags <= 0x7ff; ++flags) {
        for (const auto& list : lists) {
            C c;
            c.tagIs(flags);
            c.aspathAttrIs(p.paths[flags % 4]);
            c.nextHopIs(p.nexthops[flags % 4]);
            c.medStorageIs(flags % 3);
            shapes[flags % 6](c);
            c.commListIs(list);
            c.commonFlagsStorageIs(flags);
            cases.push_back({c, smallestHolding(c)});
        }
    }
    // A set keeps only the members other than their defaults, each holding one reference: once
    // the sets are gone, every sub-attribute is back to the references it had.
    const auto before = extras.refCounts();
    for (const auto& [c, tier] : cases) {
        SCOPED_TRACE(valueToStrep(c));
        ASSERT_EQ(smallestHolding(c), tier);
        auto a = intern(c);
        ASSERT_EQ(a->getType(), tier);
        ASSERT_EQ(inboundDifference(*a, c), "");
        C back;
        a->getFullContent(back);
        ASSERT_EQ(back, c);
        ASSERT_EQ(intern(back), a);
        ASSERT_EQ(a->hash(), PathAttributes::contentsHash(a->getType(), c));
        auto twin = destashedTwin(tier, c);
        ASSERT_TRUE(a->compare(twin.get()) && twin->compare(a.get()));
        C made;
        PathAttributesFactory(c).make()->getFullContent(made);
        ASSERT_EQ(made.commonFlagsStorage(), c.commonFlagsStorage());

        auto o = internOut(c);
        ASSERT_EQ(sharedDifference(*o, c), "");
        ASSERT_EQ(o->hash(), RibOutPathAttributes::contentsHash(o->getType(), c));
        auto outTwin = destashedOutTwin(o->getType(), c);
        ASSERT_TRUE(o->compare(outTwin.get()) && outTwin->compare(o.get()));
        C target;
        target.noLlgrIs(!c.noLlgr()); // not kept outbound: stays as the target had it
        target.tagIs(1);
        o->getFullContent(target);
        const uint16_t flags = c.commonFlagsStorage();
        ASSERT_EQ(target.commonFlagsStorage(), (flags & 0x1ff) | (~flags & 0x200));
        ASSERT_EQ(target.tag(), 1u);
        C backOut;
        o->getFullContent(backOut);
        ASSERT_EQ(internOut(backOut), o);
    }
    EXPECT_EQ(extras.refCounts(), before);
    // A twin of another tier, or of the other family, is not equal.
    C only;
    only.aspathAttrIs(p.paths[0]);
    C withList = only;
    withList.commListIs(lists[1]);
    EXPECT_FALSE(intern(only)->compare(destashedTwin(PathAttributeType::withCommList, only).get()));
    EXPECT_FALSE(intern(withList)->compare(destashedTwin(PathAttributeType::base, withList).get()));
    EXPECT_FALSE(intern(only)->compare(internOut(only).get()));

    auto direct =
        fullPathAttributesFactory(0, 0, 0, nullptr, nullptr, nullptr, 0x7ff, 1, 0, 0, 0, 0, nullptr,
                                  nullptr, lists[1], nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    C fromDirect;
    direct->getFullContent(fromDirect);
    EXPECT_EQ(fromDirect.commonFlagsStorage(), 0x7ff);
}

// A setter that leaves its member as it was changes nothing else; a moved-from record is a
// default one.
TEST(PathAttributesContents, UnchangedSettersAndMovedFromRecords) {
    Pool& p = pool();
    using Routing::CommList;
    struct {
        std::vector<uint32_t> comms;
        uint16_t written; // flag bits 8 and 9 written after the list
    } lists[] = {{{CommList::llgrStale}, 0}, {{CommList::noLlgr}, 0x100}, {{7}, 0x300}};
    for (auto& l : lists) {
        C c;
        auto list = CommList::intern(l.comms);
        c.commListIs(list);
        c.commonFlagsStorageIs(l.written);
        c.commListIs(list);
        c.commListIs(c.commList());
        EXPECT_EQ(c.commonFlagsStorage(), l.written);
    }

    std::vector<C> samples(3);
    samples[1].commListIs(p.commLists[0]);
    samples[1].largeCommListIs(p.largeCommLists[0]);
    samples[2].weightIs(4);
    samples[2].aigpMetricIs(p.aigps[0]);
    samples[2].igpMetricForNexthopIs(IgpMetricForNexthop(3));
    samples[2].medIs(MultiExitDiscriminator(8));
    samples[2].preferenceIs(9);
    for (const C& sample : samples) {
        C from = sample;
        C to(std::move(from));
        EXPECT_EQ(to, sample);
        EXPECT_EQ(from, C());
        EXPECT_EQ(intern(from), intern(C()));
        C assigned = samples[2];
        C source = sample;
        assigned = std::move(source);
        EXPECT_EQ(assigned, sample);
        EXPECT_EQ(source, C());
        EXPECT_EQ(source.dataMemberHasNonDefaultValue(), recomputedBits(source));
    }
}

Mel::PtrConst<AspathAttrCanonical> pathWithSet(uint32_t last) {
    AspathAttrCanonicalContent p;
    p.segmentAdd(AsSegmentType::asSequence_, {65001, 65002});
    p.segmentAdd(AsSegmentType::asSet_, {last});
    return aspathAttrCanonicalFactory(p);
}

// The text of a set names its AS path; the record and both factories reflect by name.
TEST(PathAttributesContents, TextNamesTheAsPathAndFieldsReflect) {
    C a, b;
    a.aspathAttrIs(pathWithSet(65003));
    b.aspathAttrIs(pathWithSet(65004));
    EXPECT_NE(valueToStrep(a).find("'aspathAttr': '65001 65002 {65003}'"), std::string::npos)
        << valueToStrep(a);
    std::ostringstream sa;
    sa << a;
    EXPECT_EQ(sa.str(), valueToStrep(a));
    const std::string texts[][2] = {
        {valueToStrep(a), valueToStrep(b)},
        {PathAttributesFactory(a).toStrep(), PathAttributesFactory(b).toStrep()},
        {RibOutPathAttributesFactory(a).toStrep(), RibOutPathAttributesFactory(b).toStrep()},
        {attributeSetFactory(65001, intern(a))->toStrep(),
         attributeSetFactory(65001, intern(b))->toStrep()},
    };
    for (auto& t : texts) {
        EXPECT_NE(t[0], t[1]);
        EXPECT_NE(t[0].find("65001 65002 {65003}"), std::string::npos) << t[0];
    }
    EXPECT_EQ(texts[1][0].rfind("Value('Routing::Bgp::PathAttributesFactory', ** {'contents': "
                                "Value('Routing::Bgp::PathAttributesContents', ",
                                0),
              0u);
    EXPECT_EQ(texts[2][0].rfind("Value('Routing::Bgp::RibOutPathAttributesFactory', ** ", 0), 0u);

    EXPECT_EQ(Mel::fieldGet(a, "aspathAttr"), "'65001 65002 {65003}'");
    Mel::fieldSet(a, "weight", "7");
    Mel::fieldSet(a, "commList", "None");
    EXPECT_EQ(a.weight(), 7);
    EXPECT_EQ(a.dataMemberHasNonDefaultValue(), uint32_t(C::nonDefaulValueWeight));
    Mel::fieldSet(a, "aspathAttr", "None");
    EXPECT_EQ(a.aspathAttr(), nullptr);
    EXPECT_FALSE(Mel::fieldWritable<C>("dataMemberHasNonDefaultValue"));
    try {
        Mel::fieldSet(a, "aspathAttr", "'65001'");
        ADD_FAILURE() << "an AS path read back from text";
    } catch (const Mel::NotSupportedException& e) {
        EXPECT_NE(std::string(e.what()).find("Not supported"), std::string::npos) << e.what();
    }

    C scalars;
    scalars.tagIs(3);
    scalars.localPrefIs(RoutingLocalPref(120));
    scalars.bpAsPathWeightIs(2);
    PathAttributesFactory f(scalars), g;
    EXPECT_EQ(Mel::valueFromStrep<PathAttributesFactory>(f.toStrep()), f);
    Mel::fieldSet(g, "contents", valueToStrep(scalars));
    EXPECT_EQ(g, f);
    EXPECT_TRUE(bool(f));
    EXPECT_FALSE(bool(PathAttributesFactory()));
    EXPECT_NE(f < PathAttributesFactory(), PathAttributesFactory() < f);
    RibOutPathAttributesFactory rf(scalars);
    EXPECT_EQ(Mel::valueFromStrep<RibOutPathAttributesFactory>(rf.toStrep()), rf);
    EXPECT_NE(rf < RibOutPathAttributesFactory(), RibOutPathAttributesFactory() < rf);

    auto x = rf.make(), y = rf.make();
    EXPECT_EQ(x->getType(), PathAttributeType::full);
    EXPECT_NE(x, y);
    EXPECT_FALSE(x->everDeduped());
}

TEST(PathAttributes, FlagBitsAboveTenAreNotPartOfTheSet) {
    C a, b;
    a.commonFlagsStorageIs(0x0013);
    b.commonFlagsStorageIs(0x8013);
    EXPECT_NE(a, b);
    EXPECT_EQ(PathAttributes::contentsHash(PathAttributeType::base, a),
              PathAttributes::contentsHash(PathAttributeType::base, b));
    EXPECT_EQ(intern(a), intern(b));
    EXPECT_EQ(intern(b)->aspTypeGet(), AspType(3));
}

TEST(PathAttributes, MakeBypassesTiersAndTable) {
    C c;
    auto x = PathAttributesFactory(c).make();
    auto y = PathAttributesFactory(c).make();
    EXPECT_EQ(x->getType(), PathAttributeType::full);
    EXPECT_NE(x, y);
    EXPECT_FALSE(x->everDeduped());
    EXPECT_EQ(x->originGet(), Origin::igp); // the tier's stored value, not the base default
}

TEST(PathAttributesStats, CountsCreationsOnlyAndReportsSorted) {
    auto& stats = PathAttributesStats::instance();
    stats.countDelAll();
    Pool& p = pool();
    C w;
    w.weightIs(77);
    auto a = intern(w);
    auto again = intern(w); // found, not created
    EXPECT_EQ(stats.count(C::nonDefaulValueWeight), 1u);
    C w2 = w;
    w2.aigpMetricIs(p.aigps[3]);
    auto b = intern(w2);
    C w3 = w;
    w3.weightIs(78);
    auto c3 = intern(w3);
    EXPECT_EQ(stats.count(C::nonDefaulValueWeight | C::nonDefaulValueAigpMetric), 1u);
    EXPECT_EQ(
        stats.toStrep(),
        "TotalAllocated  TypeAllocated    Attributes not in all types with non-default value\n"
        "             1  full             aigpMetric, weight\n"
        "             2  full             weight\n");
    auto ctx = Keel::DumpContext::toString();
    stats.dumpState(ctx, 2);
    EXPECT_EQ(
        ctx->text(),
        "  PathAttributesStats\n"
        "    TotalAllocated  TypeAllocated    Attributes not in all types with non-default value\n"
        "                 1  full             aigpMetric, weight\n"
        "                 2  full             weight\n");
    stats.countDelAll();
    EXPECT_EQ(stats.count(C::nonDefaulValueWeight), 0u);
    EXPECT_EQ(
        stats.toStrep(),
        "TotalAllocated  TypeAllocated    Attributes not in all types with non-default value\n");
}

// Equal counts print in ascending key order; creations from several threads are all counted once.
TEST(PathAttributesStatsConcurrent, CountsEveryCreationOnceAndOrdersTiesByKey) {
    auto& stats = PathAttributesStats::instance();
    stats.countDelAll();
    Pool& p = pool();
    std::vector<std::thread> threads;
    std::vector<std::vector<Mel::PtrConst<PathAttributes>>> held(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (uint32_t i = 0; i < 50; ++i) {
                C weight;
                weight.weightIs(RouteWeight(1000 + i));
                held[size_t(t)].push_back(intern(weight));
                C agg;
                agg.tagIs(5000 + i);
                agg.aggregatorIs(p.aggregators[0]);
                held[size_t(t)].push_back(intern(agg));
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(stats.count(C::nonDefaulValueWeight), 50u);
    EXPECT_EQ(stats.count(C::nonDefaulValueAggregator), 50u);
    EXPECT_EQ(
        stats.toStrep(),
        "TotalAllocated  TypeAllocated    Attributes not in all types with non-default value\n"
        "            50  withCommList     aggregator\n"
        "            50  full             weight\n");
    stats.countDelAll();
}

TEST(AttributeSet, WrapsTheInnerSetInFourByteForm) {
    AspathAttrCanonicalContent p;
    p.segmentAdd(AsSegmentType::asSequence_, {65001, 70000});
    C inner;
    inner.aspathAttrIs(aspathAttrCanonicalFactory(p));
    inner.medIs(MultiExitDiscriminator(5));
    inner.localPrefIs(RoutingLocalPref(100));
    inner.nextHopIs(pool().nexthops[0]); // travels outside the set: not written
    auto set = attributeSetFactory(65001, intern(inner));
    EXPECT_EQ(set, attributeSetFactory(65001, intern(inner)));
    EXPECT_EQ(set->serialize().toHex(), "c08023"
                                        "0000fde9"
                                        "40010100"
                                        "40020a02020000fde900011170"
                                        "80040400000005"
                                        "40050400000064");
    C outer;
    outer.customerAttributeSetIs(set);
    auto a = intern(outer);
    EXPECT_EQ(a->getType(), PathAttributeType::full);
    AttrSetStringStore store;
    a->serializeInternal(&store, true, false, true);
    EXPECT_EQ(store.attrTypes(), (std::vector<uint8_t>{1, 128}));
}

// The two metrics share one word, sub-attributes are interned before the set (a tunnel
// encapsulation before it is even stored), an ATTR_SET needs its inner set.
TEST(PathAttributesDeathTest, Preconditions) {
    C c;
    c.redistMetricIs(RedistMetric(1));
    EXPECT_DEATH(c.igpMetricForNexthopIs(IgpMetricForNexthop(2)), "!redistMetricSpecified\\(\\)");
    C d;
    d.igpMetricForNexthopIs(IgpMetricForNexthop(2));
    EXPECT_DEATH(d.redistMetricIs(RedistMetric(1)), "!igpMetricForNexthopSpecified\\(\\)");

    C e;
    Mel::PtrConst<TunnelEncap> loose(TunnelEncap::make(TunnelEncapContent()));
    EXPECT_DEATH(e.tunnelEncapIs(loose), "!v \\|\\| v->everDeduped\\(\\)");
    e.tunnelEncapIs(TunnelEncap::intern(TunnelEncapContent()));
    EXPECT_TRUE(e.tunnelEncap());
    e.gunkPathAttrListIs(Mel::PtrConst<GunkPathAttrList>(new GunkPathAttrList()));
    EXPECT_DEATH(intern(e), "__null == \\( _gunkPathAttrList \\) \\|\\| \\( _gunkPathAttrList "
                            "\\)->dedupState\\(\\) != Keel::dedupHandleStateNeverDeduped\\(\\)");

    Mel::PtrConst<AttributeSet> empty(new AttributeSet(65001, nullptr));
    EXPECT_DEATH(empty->serialize(), "originAttributes_");
}

TEST(PathAttributesSerializeStore, WrapsABareOriginatorId) {
    AttrSetStringStore store;
    const uint8_t address[] = {10, 0, 0, 1};
    store.store(9, address);
    EXPECT_EQ(store.bytes().toHex(), "8009040a000001");
    const uint8_t whole[] = {0x80, 9, 4, 10, 0, 0, 2};
    store.store(9, whole);
    EXPECT_EQ(store.bytes().toHex(), "8009040a0000018009040a000002");
}

struct PathAttributesTraits : InternTableOf<PathAttributesDedupTable> {
    using Object = PathAttributesCommon;
    // Tags keep the contents apart; every third holds a community list and every third a weight,
    // so that sets of three tiers meet in the table.
    static C content(int i) {
        C c;
        c.tagIs(uint32_t(i) + 1000);
        if (i % 3 == 1) c.commListIs(pool().commLists[size_t(i % 4)]);
        if (i % 3 == 2) c.weightIs(RouteWeight(1 + i % 2));
        return c;
    }
    static auto intern(const C& c) { return ::intern(c); }
    // A set is interned again from what it reads back.
    static Mel::PtrConst<PathAttributes> dedup(const Mel::PtrConst<PathAttributes>& p) {
        C c;
        p->getFullContent(c);
        return ::intern(c);
    }
};
INSTANTIATE_TYPED_TEST_SUITE_P(PathAttributes, InternContract, PathAttributesTraits);

} // namespace
