#include "OrvBgp/DomainPath.h"

#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"
#include "support/InternContract.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <list>
#include <random>
#include <thread>
#include <vector>

namespace Routing::Bgp {
namespace {

// Segment i of the test paths: 65000+i:i with flag byte i & 0xff (as tests/data/DomainPath says).
DomainSegment seg(int i) {
    return DomainSegment(VpnDomainId(uint32_t(65000 + i), uint16_t(i)), uint8_t(i));
}

DomainPathContent pathOf(int n) {
    DomainPathContent c;
    for (int i = 0; i < n; ++i)
        c.domainSegmentEnq(seg(i));
    return c;
}

Mel::PtrConst<DomainPath> intern(const DomainPathContent& c) {
    return DomainPathDedupTable::instance().findOrCreate(c);
}

std::vector<uint8_t> vec(const Mel::Bytes& b) {
    return {b.begin(), b.end()};
}

const char* const kRangeText = "Routing::Bgp::VpnDomainId::value < 0 or > "
                               "Routing::Bgp::VpnDomainId::maxDomainId not allowed";

// ---- wire form

TEST(DomainPath, WireFormsMatchVectors) {
    auto vectors = OrvTest::readWireVectors(ORV_TEST_DATA_DIR "/DomainPath/wire.txt");
    ASSERT_EQ(vectors.size(), 6u);
    for (int n : {0, 1, 2, 255, 256, 511}) {
        const std::string name = "segments_" + std::to_string(n);
        SCOPED_TRACE(name);
        ASSERT_TRUE(vectors.count(name));
        auto p = intern(pathOf(n));
        EXPECT_EQ(vec(p->serialize()), vectors.at(name));
        AttrSetStringStore store;
        p->serialize(store);
        EXPECT_EQ(vec(store.bytes()), vectors.at(name));
    }
}

// At trace level 5 the counts are named, and the bytes stay the same.
TEST(DomainPath, TraceNamesTheCountsAndChangesNothing) {
    OrvTest::TraceCapture at5(5);
    EXPECT_EQ(
        vec(intern(pathOf(256))->serialize()),
        OrvTest::readWireVectors(ORV_TEST_DATA_DIR "/DomainPath/wire.txt").at("segments_256"));
    EXPECT_EQ(at5.lines, (std::vector<std::string>{"Serializing: DomainPath::serialize()",
                                                   "numDomainSequence 2, domainPathSize 256"}));
}

// ---- ids and segments

const auto rangeError = ::testing::ThrowsMessage<Mel::RangeException>(::testing::StrEq(kRangeText));

TEST(VpnDomainId, RangeIsFortyEightBits) {
    EXPECT_EQ(VpnDomainId(int64_t(VpnDomainId::maxDomainId)), VpnDomainId(0xffffffff, 0xffff));
    EXPECT_EQ(VpnDomainId(int64_t(0x0000fde9000a)), VpnDomainId(65001, 10));
    for (int64_t bad : {int64_t(-1), int64_t(VpnDomainId::maxDomainId + 1), INT64_MAX})
        EXPECT_THAT([bad] { (void)VpnDomainId(bad); }, rangeError) << bad;
}

// One word: the global administrator first, the flag last (and so the order).
TEST(DomainSegment, PacksIntoOneWordAndTextFormsReadBack) {
    DomainSegment s(VpnDomainId(0x01020304, 0x0506), 0x07);
    EXPECT_EQ(s.domainSegmentStorage(), 0x0001020304050607u);
    EXPECT_EQ(s.vpnDomainId(), VpnDomainId(0x01020304, 0x0506));
    EXPECT_EQ(s.domainFlag(), 0x07);
    EXPECT_EQ(seg(10).toStrep(), "65010:10/0x0a");
    EXPECT_EQ(DomainSegment::fromString("65010:10/0x0a"), seg(10));
    EXPECT_EQ(DomainSegment::fromString("4294967295:65535/0xff"),
              DomainSegment(VpnDomainId(0xffffffff, 0xffff), 0xff));
    for (const char* bad : {"", "65010:10", "65010/0x0a", "4294967296:1/0x00", "1:65536/0x00",
                            "1:1/0x1", "1:1/0x0g", "-1:1/0x00"})
        EXPECT_THROW(DomainSegment::fromString(bad), Mel::ParseException) << bad;

    EXPECT_EQ(intern(pathOf(2))->toStrep(), "65000:0/0x00 65001:1/0x01");
    EXPECT_EQ(intern(pathOf(0))->toStrep(), "");
    const auto c = pathOf(2);
    const auto text = Mel::valueToStrep(c);
    EXPECT_EQ(text, "Value('Routing::Bgp::DomainPathContent', ** {'domainSegments': "
                    "['65000:0/0x00', '65001:1/0x01']})");
    EXPECT_TRUE(Mel::valueFromStrep<DomainPathContent>(text) == c);
}

TEST(DomainPath, SegmentWithHighBitsRefusesToSerialize) {
    DomainPathContent c = pathOf(2);
    DomainSegment bad;
    bad.domainSegmentStorageIs(uint64_t(1) << 56 | 0x0000fde9000a00);
    c.domainSegmentEnq(bad);
    auto p = intern(c);
    EXPECT_NE(p.get(), intern(pathOf(2)).get());
    EXPECT_THAT([&] { p->serialize(); }, rangeError) << "bits 56-63 set";
    EXPECT_NE(p->toStrep().find("!0x01"), std::string::npos) << p->toStrep();
}

// ---- interning

TEST(DomainPath, InternsBySegmentsInOrder) {
    auto a = intern(pathOf(3));
    DomainPathContent reversed;
    for (int i = 2; i >= 0; --i)
        reversed.domainSegmentEnq(seg(i));
    EXPECT_NE(intern(reversed).get(), a.get());
    DomainPathContent flagged;
    for (int i = 0; i < 3; ++i)
        flagged.domainSegmentEnq(DomainSegment(seg(i).vpnDomainId(), uint8_t(i == 1 ? 9 : i)));
    EXPECT_NE(intern(flagged).get(), a.get());
    EXPECT_NE(intern(pathOf(2)).get(), a.get());
    EXPECT_EQ(a->domainSegmentAt(2), seg(2));
    EXPECT_EQ(DomainPathDedupTable::instance().find(pathOf(3)).get(), a.get());
}

TEST(DomainPath, DestashInternsTheStoredValue) {
    auto& store = MelStash::StoreManager::instance();
    auto a = intern(pathOf(4));
    EXPECT_EQ(DomainPath::destash(a.get(), &store).get(), a.get());
    DomainPathDedupTable other("DomainPathTestTable");
    auto elsewhere = other.findOrCreate(pathOf(5));
    EXPECT_EQ(DomainPath::destash(elsewhere.get(), &store).get(), intern(pathOf(5)).get());
}

TEST(DomainPathDeathTest, IndexAndSizeLimits) {
    auto p = intern(pathOf(2));
    EXPECT_DEATH(p->domainSegmentAt(2), "index < domainSegmentCount\\(\\)");
    EXPECT_DEATH(intern(pathOf(int(DomainPath::maxHeldDomainSegments) + 1)),
                 "segments.size\\(\\) <= maxHeldDomainSegments");
    // The largest path that fits one attribute is written; one segment more is held, and writing
    // it is an error the caller handles.
    auto big = intern(pathOf(int(DomainPath::maxDomainSegments)));
    EXPECT_EQ(big->serialize().size(), 4u + 37 + 7 * DomainPath::maxDomainSegments);
    auto longer = intern(pathOf(int(DomainPath::maxDomainSegments) + 1));
    EXPECT_THROW(longer->serialize(), PathAttributeTooLongException);
}

// ---- the lookup cache

TEST(DomainPath, LruKeepsTenEvictsTheLeastRecentAndNeverChangesAnAnswer) {
    auto p = intern(pathOf(8));
    // Ids 0..7 are in the path, 8.. are not.
    auto id = [](int i) { return seg(i).vpnDomainId(); };
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(p->containsDomainId(id(i)), i < 8);
    // Most recent first; a hit moves its id to the front, an eleventh id evicts the oldest.
    std::list<VpnDomainId> model;
    for (int i = 9; i >= 0; --i)
        model.push_back(id(i));
    ASSERT_EQ(p->domainIdLookupCacheIds(), std::vector<VpnDomainId>(model.begin(), model.end()));
    std::mt19937 rng(7);
    for (int step = 0; step < 2000; ++step) {
        int i = int(rng() % 16);
        ASSERT_EQ(p->containsDomainId(id(i)), i < 8) << step;
        model.remove(id(i));
        model.push_front(id(i));
        if (model.size() > DomainPath::maxLruCacheSize) model.pop_back();
        ASSERT_EQ(p->domainIdLookupCacheIds(), std::vector<VpnDomainId>(model.begin(), model.end()))
            << step;
    }
}

TEST(DomainPath, LookupMatchesTheIdNotTheFlag) {
    DomainPathContent c;
    c.domainSegmentEnq(DomainSegment(VpnDomainId(65001, 1), 0x80));
    auto p = intern(c);
    EXPECT_TRUE(p->containsDomainId(VpnDomainId(65001, 1)));
    EXPECT_FALSE(p->containsDomainId(VpnDomainId(65001, 0x0180)));
    EXPECT_FALSE(intern(pathOf(0))->containsDomainId(VpnDomainId(65001, 1)));
}

TEST(DomainPathConcurrent, LookupsFromManyThreadsAgreeWithAScan) {
    auto p = intern(pathOf(12));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 rng(300 + t);
            for (int i = 0; i < 5000; ++i) {
                int k = int(rng() % 24);
                if (p->containsDomainId(seg(k).vpnDomainId()) != (k < 12)) wrong.fetch_add(1);
                if (p->domainIdLookupCacheIds().size() > DomainPath::maxLruCacheSize)
                    wrong.fetch_add(1);
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(wrong.load(), 0);
}

// ---- the interning contract

struct DomainPathTraits : InternTableOf<DomainPathDedupTable> {
    using Object = DomainPath;
    static DomainPathContent content(int i) {
        DomainPathContent c;
        for (int k = 0; k <= i % 4; ++k)
            c.domainSegmentEnq(DomainSegment(VpnDomainId(uint32_t(i), uint16_t(k)), 0));
        return c;
    }
    static Mel::PtrConst<DomainPath> intern(const DomainPathContent& c) {
        return domainPathFactory(c);
    }
    static auto dedup(const Mel::PtrConst<DomainPath>& p) {
        return p->dedup(DomainPathDedupTable::instance());
    }
};

INSTANTIATE_TYPED_TEST_SUITE_P(DomainPath, InternContract, ::testing::Types<DomainPathTraits>);

} // namespace
} // namespace Routing::Bgp
