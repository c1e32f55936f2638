// AIGP and aggregator: wire forms against the vectors, the AS substitution rules, the text forms,
// reading back from the store, and the interning contract.
#include "OrvBgp/BgpPathAttributesMisc.h"

#include "Mel/Reflect.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Routing::Bgp {
namespace {

using OrvTest::assertionPattern;
using OrvTest::hexOf;

const Orvnet::IpAddr id10001 = Orvnet::IpAddr::fromString("10.0.0.1");

// ---- Interning contract

struct AigpTraits : InternTableDedupOf<AccumulatedIgpMetricDedupTable> {
    using Object = AccumulatedIgpMetric;
    static uint64_t content(int i) { return uint64_t(i) << 33 | 5; }
    static Mel::PtrConst<AccumulatedIgpMetric> intern(uint64_t m) {
        return accumulatedIgpMetricFactory(m);
    }
};

struct AggregatorTraits : InternTableDedupOf<AggregatorDedupTable> {
    using Object = Aggregator;
    // Same address with different AS numbers, and the reverse: both fields must count.
    static AggregatorContent content(int i) {
        return i % 2 ? AggregatorContent(65000 + i, id10001)
                     : AggregatorContent(65000, Orvnet::IpAddr::fromHostOrder(0x0a000000 + i));
    }
    static Mel::PtrConst<Aggregator> intern(const AggregatorContent& c) {
        return aggregatorFactory(c.autonomousSystem(), c.aggregatorId());
    }
};

using MiscTypes = ::testing::Types<AigpTraits, AggregatorTraits>;
INSTANTIATE_TYPED_TEST_SUITE_P(Misc, InternContract, MiscTypes);

// ---- AIGP

// Only the all-ones metric is invalid, and says so in print.
TEST(AccumulatedIgpMetric, WireAndTextForms) {
    const auto v = OrvTest::attrWireVectors("Aigp");
    auto big = accumulatedIgpMetricFactory(uint64_t(1) << 40);
    auto invalid = accumulatedIgpMetricFactory(~uint64_t(0));
    EXPECT_EQ(hexOf(accumulatedIgpMetricFactory(5)->serialize()), hexOf(v.at("metric_5")));
    EXPECT_EQ(hexOf(big->serialize()), hexOf(v.at("metric_2to40")));
    EXPECT_EQ(hexOf(invalid->serialize()), hexOf(v.at("metric_invalid")));
    EXPECT_TRUE(invalid->isInvalid());
    EXPECT_FALSE(accumulatedIgpMetricFactory(~uint64_t(0) - 1)->isInvalid());
    EXPECT_FALSE(accumulatedIgpMetricFactory(0)->isInvalid());

    EXPECT_EQ(big->toStrep(),
              "Value('Routing::Bgp::AccumulatedIgpMetricContent', ** {'metric': 1099511627776})");
    auto back = Mel::valueFromStrep<AccumulatedIgpMetricContent>(big->toStrep());
    EXPECT_EQ(accumulatedIgpMetricFactory(back.metric()).get(), big.get());
    std::ostringstream os;
    os << *invalid;
    EXPECT_EQ(os.str(), "aigp=18446744073709551615(invalid)");
}

// ---- Aggregator

TEST(Aggregator, WireAndTextForms) {
    const auto v = OrvTest::attrWireVectors("Aggregator");
    auto a = aggregatorFactory(65001, id10001);
    auto big = aggregatorFactory(4200000000u, id10001);
    struct Case {
        const char* name;
        const Aggregator& agg;
        uint8_t type;
        bool fourByteAs;
        uint32_t replacement;
        uint32_t matched;
    } cases[] = {
        {"agg_2byte_peer", *a, 7, false, 0, 0},
        {"agg_4byte_peer", *a, 7, true, 0, 0},
        {"as4agg_4byte_peer", *a, 18, true, 0, 0},
        {"big_agg_2byte_peer", *big, 7, false, 0, 0},
        {"big_as4agg", *big, 18, true, 0, 0},
        {"replaced_2byte_peer", *a, 7, false, 65010, 65001},
        {"replaced_4byte_peer", *a, 7, true, 65010, 65001},
        // A matched AS other than the stored one changes nothing.
        {"agg_2byte_peer", *a, 7, false, 65010, 65002},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(hexOf(c.agg.serialize(c.type, c.fourByteAs, c.replacement, c.matched)),
                  hexOf(v.at(c.name)));
    }
    EXPECT_EQ(big->toStrep(), "(aggregated by 4200000000 10.0.0.1)");
    std::ostringstream os;
    os << *big;
    EXPECT_EQ(os.str(), "AS=4200000000 Id=10.0.0.1");
    const std::string strep = Mel::valueToStrep(big->content());
    EXPECT_EQ(strep, "Value('Routing::Bgp::AggregatorContent', ** {'autonomousSystem': "
                     "'4200000000', 'aggregatorId': '10.0.0.1'})");
    EXPECT_EQ(Mel::valueFromStrep<AggregatorContent>(strep), big->content());
}

// An aggregator written under another type, or as AS4_AGGREGATOR to a 2-byte peer; a stored
// class without a reader.
TEST(MiscDeathTest, Preconditions) {
    auto a = aggregatorFactory(65001, id10001);
    auto dies = [](const char* text) {
        return assertionPattern("OrvBgp/BgpPathAttributesMisc", text);
    };
    EXPECT_DEATH(a->serialize(2, true, 0, 0), dies("BgpPathAttrType::aggregator_ == type || "
                                                   "BgpPathAttrType::as4Aggregator_ == type"));
    EXPECT_DEATH(a->serialize(18, false, 0, 0),
                 dies("BgpPathAttrType::as4Aggregator_ != type || fourByteAs"));
    Mel::PtrConst<OrvTest::UnregisteredStoreObject> u(new OrvTest::UnregisteredStoreObject);
    EXPECT_DEATH(AccumulatedIgpMetric::destash(u.get(), &MelStash::StoreManager::instance()),
                 dies("nullptr != reader"));
}

TEST(MiscSerialize, TracesAtLevelFiveWithoutChangingTheBytes) {
    auto m = accumulatedIgpMetricFactory(5);
    {
        OrvTest::TraceCapture at4(4);
        m->serialize();
        EXPECT_TRUE(at4.lines.empty());
    }
    OrvTest::TraceCapture at5(5);
    EXPECT_EQ(m->serialize(), OrvTest::attrWireVectors("Aigp").at("metric_5"));
    EXPECT_EQ(aggregatorFactory(65001, id10001)->serialize(7, true, 0, 0),
              OrvTest::attrWireVectors("Aggregator").at("agg_4byte_peer"));
    EXPECT_EQ(at5.lines, (std::vector<std::string>{"Serializing: AccumulatedIgpMetric::serialize()",
                                                   "Serializing: Aggregator::serialize()"}));
}

// ---- Reading back from the store

TEST(MiscDestash, ReadsBackTheInternedObject) {
    auto* store = &MelStash::StoreManager::instance();
    auto m = accumulatedIgpMetricFactory(77);
    auto a = aggregatorFactory(65001, id10001);
    EXPECT_EQ(AccumulatedIgpMetric::destash(m.get(), store).get(), m.get());
    EXPECT_EQ(Aggregator::destash(a.get(), store).get(), a.get());

    // An equal object built outside the table reads back as the interned one.
    Mel::PtrConst<Aggregator> loose(new Aggregator(AggregatorContent(65001, id10001)));
    EXPECT_EQ(Aggregator::destash(loose.get(), store).get(), a.get());

    auto* reader = MelStash::StashReaderRegistry::readerFor<AccumulatedIgpMetricStashReader>(
        typeid(AccumulatedIgpMetric));
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->stashSerialize(m.get()), m->serialize());
    EXPECT_EQ(reader->stashStrep(m.get()), m->toStrep());
}

} // namespace
} // namespace Routing::Bgp
