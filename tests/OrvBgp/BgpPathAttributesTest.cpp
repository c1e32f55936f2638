#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <random>
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

// One random setter call; metric setters respect their mutual exclusion.
void randomSet(C& c, std::mt19937& rng) {
    Pool& p = pool();
    auto pick = [&](auto& v) { return rng() % 3 == 0 ? nullptr : v[rng() % v.size()]; };
    switch (rng() % 14) {
    case 0:
        c.weightIs(RouteWeight(rng() % 3));
        break;
    case 1:
        c.bpAsPathWeightIs(RouteWeight(rng() % 3));
        break;
    case 2:
        c.commListIs(pick(p.commLists));
        break;
    case 3:
        c.extCommListIs(pick(p.extCommLists));
        break;
    case 4:
        c.largeCommListIs(pick(p.largeCommLists));
        break;
    case 5:
        c.aggregatorIs(pick(p.aggregators));
        break;
    case 6:
        c.aigpMetricIs(pick(p.aigps));
        break;
    case 7:
        c.llNextHopIs(pick(p.nexthops));
        break;
    case 8:
        if (!c.igpMetricForNexthopSpecified())
            c.redistMetricIs(rng() % 2 ? RedistMetric(rng() % 2) : RedistMetric());
        break;
    case 9:
        if (!c.redistMetricSpecified())
            c.igpMetricForNexthopIs(rng() % 2 ? IgpMetricForNexthop(rng() % 2)
                                              : IgpMetricForNexthop());
        break;
    case 10:
        c.medIs(rng() % 2 ? MultiExitDiscriminator(rng() % 5) : MultiExitDiscriminator());
        break;
    case 11:
        c.nextHopIs(p.nexthops[rng() % p.nexthops.size()]);
        break;
    case 12:
        c.aspathAttrIs(p.paths[rng() % p.paths.size()]);
        break;
    case 13:
        c.originIs(Origin(rng() % 3));
        break;
    }
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
    EXPECT_EQ(c.dataMemberHasNonDefaultValue(), 0u);
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

TEST(PathAttributesContentsDeathTest, MetricsShareOneWord) {
    C c;
    c.redistMetricIs(RedistMetric(1));
    EXPECT_DEATH(c.igpMetricForNexthopIs(IgpMetricForNexthop(2)), "!redistMetricSpecified\\(\\)");
    C d;
    d.igpMetricForNexthopIs(IgpMetricForNexthop(2));
    EXPECT_DEATH(d.redistMetricIs(RedistMetric(1)), "!igpMetricForNexthopSpecified\\(\\)");
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
    EXPECT_THROW(C{valueToStrep(withList)}, Mel::NotSupportedException);
    EXPECT_THROW(C("Value('Routing::Bgp::PathAttributesContents', ** {'weight': 70000})"),
                 Mel::ParseException);
    EXPECT_THROW(C("Value('Routing::Bgp::PathAttributesContents', ** {'bogus': 1})"),
                 Mel::ParseException);
}

TEST(PathAttributes, TierSelectionCases) {
    Pool& p = pool();
    auto tierOf = [](auto&& set) {
        C c;
        set(c);
        return intern(c)->getType();
    };
    using T = PathAttributeType;
    EXPECT_EQ(tierOf([&](C& c) { c.commListIs(p.commLists[0]); }), T::withCommList);
    EXPECT_EQ(
        tierOf([&](C& c) { c.commListIs(p.commLists[0]), c.extCommListIs(p.extCommLists[0]); }),
        T::withExtCommList);
    EXPECT_EQ(tierOf([&](C& c) {
                  c.commListIs(p.commLists[0]), c.extCommListIs(p.extCommLists[0]),
                      c.aggregatorIs(p.aggregators[0]);
              }),
              T::internet);
    EXPECT_EQ(tierOf([&](C& c) { c.largeCommListIs(p.largeCommLists[0]); }), T::internet);
    EXPECT_EQ(tierOf([&](C& c) { c.largeCommListIs(p.largeCommLists[0]), c.weightIs(1); }),
              T::full);
    EXPECT_EQ(tierOf([&](C& c) { c.weightIs(0); }), T::base);

    C ext;
    ext.extCommListIs(p.extCommLists[1]);
    ext.largeCommListIs(p.largeCommLists[1]);
    auto internet = intern(ext);
    EXPECT_EQ(internet->getType(), T::internet);
    EXPECT_EQ(internet->commListGet(), nullptr);

    C wext;
    wext.commListIs(p.commLists[1]);
    wext.extCommListIs(p.extCommLists[1]);
    auto w = intern(wext);
    EXPECT_EQ(w->aggregatorGet(), nullptr);
    EXPECT_EQ(w->weightGet(), 0);
}

// Random contents: the tier is the smallest that holds them, and every getter answers the
// contents' value or the default.
TEST(PathAttributes, ModelBasedTierAndGetters) {
    std::mt19937 rng(7);
    for (int run = 0; run < 300; ++run) {
        C c;
        for (int i = 0; i < 8; ++i)
            randomSet(c, rng);
        auto a = intern(c);
        ASSERT_EQ(a->getType(), smallestHolding(c)) << valueToStrep(c);
        EXPECT_EQ(a->medGet(), c.med());
        EXPECT_EQ(a->originGet(), c.origin());
        EXPECT_EQ(a->nextHopGet(), c.nextHop());
        EXPECT_EQ(a->aspathAttrGet(), c.aspathAttr());
        EXPECT_EQ(a->weightGet(), c.weight());
        EXPECT_EQ(a->bpAsPathWeightGet(), c.bpAsPathWeight());
        EXPECT_EQ(a->redistMetricGet(), c.redistMetric());
        EXPECT_EQ(a->igpMetricForNexthopGet(), c.igpMetricForNexthop());
        EXPECT_EQ(a->commListGet(), c.commList());
        EXPECT_EQ(a->extCommListGet(), c.extCommList());
        EXPECT_EQ(a->largeCommListGet(), c.largeCommList());
        EXPECT_EQ(a->aggregatorGet(), c.aggregator());
        EXPECT_EQ(a->aigpMetricGet(), c.aigpMetric());
        EXPECT_EQ(a->llNextHopGet(), c.llNextHop());
        C back;
        a->getFullContent(back);
        EXPECT_EQ(back, c);
        EXPECT_EQ(intern(back), a);
        EXPECT_EQ(a->hash(), PathAttributes::contentsHash(a->getType(), c));
    }
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

TEST(PathAttributesDeathTest, SubAttributesMustBeInternedFirst) {
    C c;
    c.gunkPathAttrListIs(Mel::PtrConst<GunkPathAttrList>(new GunkPathAttrList()));
    EXPECT_DEATH(intern(c), "__null == \\( _gunkPathAttrList \\) \\|\\| \\( _gunkPathAttrList "
                            "\\)->dedupState\\(\\) != Keel::dedupHandleStateNeverDeduped\\(\\)");
}

TEST(PathAttributesStats, CountsCreationsOnlyAndReportsSorted) {
    auto& stats = PathAttributesStats::instance();
    stats.countDelAll();
    Pool& p = pool();
    C w;
    w.weightIs(77);
    auto a = intern(w);
    auto again = intern(w);
    EXPECT_EQ(a, again);
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

TEST(PathAttributesConcurrent, EqualContentsInternToOneObject) {
    Pool& p = pool();
    auto contentOf = [&](int i) {
        C c;
        c.aspathAttrIs(p.paths[size_t(i % 4)]);
        c.commListIs(p.commLists[size_t(i % 3)]);
        c.weightIs(RouteWeight(i % 2));
        return c;
    };
    std::vector<Mel::PtrConst<PathAttributes>> kept(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            kept[size_t(t)] = intern(contentOf(5));
            for (int i = 0; i < 3000; ++i) {
                auto a = intern(contentOf(i));
                if (a->commListGet() != p.commLists[size_t(i % 3)]) ADD_FAILURE();
            }
        });
    for (auto& t : threads)
        t.join();
    for (auto& k : kept)
        EXPECT_EQ(k, kept[0]);
    EXPECT_EQ(intern(contentOf(5)), kept[0]);
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

TEST(AttributeSetDeathTest, NeedsItsInnerSet) {
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

struct PathAttributesTraits {
    using Object = PathAttributesCommon;
    static C content(int i) {
        C c;
        c.tagIs(uint32_t(i) + 1000);
        return c;
    }
    static auto intern(const C& c) { return ::intern(c); }
    static size_t tableSize() { return PathAttributesDedupTable::instance().size(); }
};
INSTANTIATE_TYPED_TEST_SUITE_P(PathAttributes, InternContract, PathAttributesTraits);

} // namespace
