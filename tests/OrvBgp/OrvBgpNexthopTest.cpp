#include "OrvBgp/OrvBgpNexthop.h"

#include "Keel/DumpContext.h"
#include "Keel/HashMix.h"
#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Routing::Bgp {
namespace {

using Orvnet::AfiSafi;

class TestNexthop;

struct TestNexthopContent : GenNexthopContent {
    TestNexthopContent(uint32_t k, uint8_t kd);
    uint32_t key;
    uint8_t kind;
};

// A next-hop kind for these tests: a number as content, switches for the queries that take part
// in equality and printing, a writable attribute (label), a domain-dependent one and a collection
// for cloning, and a settable metric and reachability next hop.
class TestNexthop : public GenNexthop {
    MELSTASH_STORE_ALLOCATED(TestNexthop)

public:
    enum Kind : uint8_t {
        self = 1,
        policyReject = 2,
        thirdParty = 4,
        resolved = 8,
        preResolved = 16,
        ribOutExplicit = 32,
        sixPe = 64,
    };
    static inline std::atomic<bool> collide{false};
    static inline std::atomic<bool> dedupReturnsNull{false};

    explicit TestNexthop(uint32_t key, uint8_t kind = 0) : key_(key), kind_(kind) {}
    static uint32_t hashOf(uint32_t key) {
        if (collide) return 0;
        Keel::HashMix m;
        m.hashMix(key);
        return m.result();
    }

    uint32_t key() const { return key_; }
    uint32_t label() const { return label_; }
    void labelIs(uint32_t l) { label_ = l; }
    void domainIs(uint32_t d) { domain_ = d; }
    uint32_t domain() const { return domain_; }
    void reachabilityIs(const GenNexthop* nh) { reach_ = nh; }

    uint32_t hash() const override { return hashOf(key_); }
    bool compareDerived(const GenNexthop* other) const override {
        return static_cast<const TestNexthop*>(other)->key_ == key_;
    }
    bool compareByContentDerived(const GenNexthopContent& content) const override {
        auto& c = static_cast<const TestNexthopContent&>(content);
        return c.key == key_ && c.kind == kind_;
    }
    Mel::PtrConst<GenNexthop> dedup(GenNexthopDedupTableBase* table,
                                    bool allocateUniqueId) override {
        if (dedupReturnsNull) return nullptr;
        return GenNexthop::dedup(table, allocateUniqueId);
    }
    void formatDerivedType(std::ostream& os) const override { os << "test(" << key_ << ")"; }
    AfiSafi afisafi() const override {
        return kind_ & sixPe ? AfiSafi::ipv6Unicast() : AfiSafi::ipv4Unicast();
    }
    uint8_t remoteLabelType() const override { return kind_ & sixPe ? 2 : 0; }
    PathAfiSafiNexthopType pathAfiSafiNexthopType() const override { return {afisafi()}; }
    bool isNexthopSelf() const override { return kind_ & self; }
    bool isPolicyReject() const override { return kind_ & policyReject; }
    bool is3rdParty() const override { return kind_ & thirdParty; }
    bool isResolved() const override { return kind_ & resolved; }
    bool isPreResolved() const override { return kind_ & preResolved; }
    bool isRibOutExplicitAfiSafi() const override { return kind_ & ribOutExplicit; }
    // Third-party next hops go unchanged only to IPv4 peers.
    bool advertise3rdParty(const BgpPeerStatus& peer) const override {
        return peer.peerAddr.isV4();
    }
    Mel::RawPtr<const GenNexthop> reachabilityNexthopGet() const override { return reach_; }
    Mel::RawPtr<const BgpMetricPref> currentMetric() const override { return metric_.get(); }
    void currentMetricIs(const Mel::PtrConst<BgpMetricPref>& m) const override { metric_ = m; }
    Mel::Ptr<GenNexthop> clone() const override {
        Mel::Ptr<TestNexthop> copy(new TestNexthop(key_, kind_));
        copy->cloneFrom(this);
        return copy;
    }

    MEL_VALUE_TYPE_DERIVED(TestNexthop, "Test::TestNexthop", (GenNexthop),
                           (key_, kind_, label_, domain_, labels_))

protected:
    void cloneAttributes(const GenNexthop& src) override {
        cloneAttributesAs<TestNexthop>(static_cast<const TestNexthop&>(src), {"key", "kind"},
                                       {"domain"});
    }

private:
    uint32_t key_;
    uint8_t kind_;
    uint32_t label_ = 0;
    uint32_t domain_ = 0;
    std::vector<uint32_t> labels_;
    const GenNexthop* reach_ = nullptr;
    mutable Mel::PtrConst<BgpMetricPref> metric_;
};

TestNexthopContent::TestNexthopContent(uint32_t k, uint8_t kd)
    : GenNexthopContent(typeid(TestNexthop)), key(k), kind(kd) {}

// A kind nobody registered a stash reader for.
class UnstashedNexthop final : public TestNexthop {
public:
    using TestNexthop::TestNexthop;
};

class TestStashReader : public GenNexthopStashReader {
public:
    Mel::Ptr<GenNexthop> destash(const GenNexthop* stashed,
                                 MelStash::StoreManager::RawPtr) const override {
        auto* s = static_cast<const TestNexthop*>(stashed);
        Mel::Ptr<TestNexthop> nh(new TestNexthop(s->key()));
        nh->labelIs(s->label());
        return nh;
    }
};
const bool testReaderRegistered = [] {
    static TestStashReader reader;
    MelStash::StashReaderRegistry::registerReader(typeid(TestNexthop), &reader);
    return true;
}();

class TestNexthopTable : public GenNexthopDedupTableBase {
public:
    explicit TestNexthopTable(
        BgpVrfIdBase vrf = BgpVrfIdBase(7),
        Mel::Ptr<BgpMetricPrefDedupTable> metrics =
            Mel::Ptr<BgpMetricPrefDedupTable>(&BgpMetricPrefDedupTable::instance()))
        : GenNexthopDedupTableBase("TestNexthopDedupTable", vrf, AfiSafi::ipv4Unicast(),
                                   std::move(metrics)) {}

    bool claimsUniqueIds = false;
    bool uniqueNexthopIdsEnabled() const override { return claimsUniqueIds; }
    Mel::Ptr<GenNexthop> allocateGenNexthop(const GenNexthopContent& content) override {
        auto& c = static_cast<const TestNexthopContent&>(content);
        return Mel::Ptr<GenNexthop>(new TestNexthop(c.key, c.kind));
    }
    Mel::PtrConst<TestNexthop> intern(uint32_t key, uint8_t kind = 0, bool unique = false) {
        TestNexthopContent c(key, kind);
        return Mel::ptrStaticCast<const TestNexthop>(
            GenNexthop::dedupContent(this, c, TestNexthop::hashOf(key), unique));
    }
    // Stands for a derived table that numbered nh without recording an allocator.
    static void forceId(const GenNexthop* nh, uint32_t id) { nexthopIdIs(nh, nh->id(), id, {}); }
};

// The death-test pattern of this unit's assertion `condition`.
std::string dies(const std::string& condition) {
    return OrvTest::assertionPattern("OrvBgp/OrvBgpNexthop", condition);
}

class GenNexthopTest : public ::testing::Test {
protected:
    void TearDown() override {
        TestNexthop::collide = false;
        TestNexthop::dedupReturnsNull = false;
    }
};

// ---- Identifier allocator of next hops

// The factory's allocator (named "Nexthop", 1 reserved) is read back in the allocator's own tests;
// through the reflection glue it is built, initialized, then given its fields.
TEST(GenNexthopIdAllocator, ReservesNoIdOnEveryConstructionPath) {
    Mel::Ptr<GenNexthopIdAllocator> r;
    Mel::valueFromStrepInto(r, "Value('Routing::Bgp::GenNexthopIdAllocator', ** {})");
    ASSERT_TRUE(r);
    EXPECT_EQ(r->largestAllocatedId(), 1u);
    EXPECT_EQ(r->allocate(), 2u);
    Mel::valueFromStrepInto(
        r, "Value('Routing::Bgp::GenNexthopIdAllocator', ** {'largestAllocatedId': 90})");
    EXPECT_EQ(r->allocate(), 91u);
}

TEST(GenNexthopIdAllocatorDeathTest, FirstIdentifierMustBeNoId) {
    auto a = GenNexthopIdAllocatorIs();
    EXPECT_DEATH(a->handleInitialized(), dies("noId() == allocatedNoId"));
}

// ---- Value types

TEST(GenNexthopFlags, OneBooleanOfOneByte) {
    EXPECT_EQ(Mel::valueToStrep(GenNexthop::Flags(1)), "True");
    EXPECT_EQ(Mel::valueToStrep(GenNexthop::Flags()), "False");
    EXPECT_TRUE(GenNexthop::Flags(1).nexthopUnchanged());
    EXPECT_THROW(GenNexthop::Flags(2), Mel::RangeException);
    EXPECT_THROW(GenNexthop::Flags(255), Mel::RangeException);
    EXPECT_EQ(Mel::valueFromStrep<GenNexthop::Flags>("True"), GenNexthop::Flags(1));
}

TEST(BgpVrfIdBase, InvalidWhenTopBitSetOrNumberIsFfffff) {
    EXPECT_TRUE(BgpVrfIdBase::invalidVrfId().isInvalid());
    EXPECT_TRUE(BgpVrfIdBase().isInvalid());
    EXPECT_TRUE(BgpVrfIdBase(0x80000000).isInvalid());
    EXPECT_TRUE(BgpVrfIdBase(0x00ffffff).isInvalid());
    EXPECT_TRUE(BgpVrfIdBase(0x20ffffff).isInvalid()) << "only the low 29 bits count";
    EXPECT_FALSE(BgpVrfIdBase(0).isInvalid());
    EXPECT_FALSE(BgpVrfIdBase(0x1fffffff).isInvalid());
    EXPECT_FALSE(BgpVrfIdBase(0x40000001).isInvalid());
    EXPECT_EQ(BgpVrfIdBase(0x40000001).vrfNumber(), 1u);
}

TEST(BgpMetricPrefDedupTable, CanonicalRecordsAreInternedOnce) {
    BgpMetricPrefDedupTable table("TestMetricDedupTable");
    EXPECT_EQ(table.size(), 3u);
    const BgpMetricPref* unknown = table.unknownMetric();
    const BgpMetricPref* invalid = table.invalidMetric();
    const BgpMetricPref* pre = table.preResolvedMetric();
    const uint64_t all = 0xFFFFFFFFFFFFFFFFull;
    struct {
        const BgpMetricPref* record;
        uint64_t metric; // also the metric for the BRIB
        int preference;  // also the preference for the BRIB
        bool valid;
    } const rows[] = {{unknown, 0, 255, false}, {invalid, all, 255, false}, {pre, 1, 1, true}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.metric);
        EXPECT_EQ(r.record->metric(), r.metric);
        EXPECT_EQ(r.record->metricForBrib(), r.metric);
        EXPECT_EQ(r.record->preference(), r.preference);
        EXPECT_EQ(r.record->preferenceForBrib(), r.preference);
        EXPECT_EQ(r.record->valid(), r.valid);
    }
    EXPECT_EQ(unknown->viaType(), 255);
    EXPECT_FALSE(pre->partOfLoop());
    EXPECT_EQ(table.metricPref(BgpMetricPrefContent::invalid()).get(), invalid);
    BgpMetricPrefContent loop = BgpMetricPrefContent::preResolved();
    loop.partOfLoop = true;
    auto l = table.metricPref(loop);
    EXPECT_NE(l.get(), pre);
    EXPECT_EQ(table.size(), 4u);
    l.reset();
    EXPECT_EQ(table.size(), 3u);
}

// ---- Interning

// The contract over one table of the test kind; contents cycle through plain, nexthop-self and
// policy-reject next hops of one key, which the table must keep apart.
struct TestNexthopTraits {
    using Object = TestNexthop;
    static TestNexthopTable& table() {
        static auto* t = new TestNexthopTable;
        return *t;
    }
    static std::pair<uint32_t, uint8_t> content(int i) {
        const uint8_t kinds[] = {0, TestNexthop::self, TestNexthop::policyReject};
        return {uint32_t(i / 3), kinds[i % 3]};
    }
    static Mel::PtrConst<TestNexthop> intern(const std::pair<uint32_t, uint8_t>& c) {
        return table().intern(c.first, c.second);
    }
    static size_t tableSize() { return table().internTable().size(); }
};
INSTANTIATE_TYPED_TEST_SUITE_P(GenNexthop, InternContract, ::testing::Types<TestNexthopTraits>);

TEST_F(GenNexthopTest, InternedObjectsTakeTheTablesVrfAndContext) {
    TestNexthopTable table(BgpVrfIdBase(0x40000007));
    auto a = table.intern(5);
    EXPECT_EQ(a->vrfId(), BgpVrfIdBase(0x40000007));
    EXPECT_EQ(a->id(), GenNexthopIdAllocator::noId());
    EXPECT_EQ(a->dedupTableContext()->table, &table);
}

// Interning a built object finds the interned one by content, the flags included, although
// compareDerived alone says equal (same key).
TEST_F(GenNexthopTest, BuiltObjectsFindTheirInternedTwin) {
    TestNexthopTable table;
    auto plain = table.intern(5);
    auto self = table.intern(5, TestNexthop::self);
    for (const auto& nh : {plain, self}) {
        Mel::Ptr<GenNexthop> built(new TestNexthop(5, nh->isNexthopSelf() ? TestNexthop::self : 0));
        EXPECT_EQ(built->dedup(&table, false).get(), nh.get());
        EXPECT_FALSE(built->isDeduped());
        EXPECT_TRUE(nh->compare(built.get()));
    }
    EXPECT_FALSE(plain->compare(self.get()));
}

TEST_F(GenNexthopTest, CollidingHashesStillFindTheirOwnObject) {
    TestNexthop::collide = true;
    TestNexthopTable table;
    std::vector<Mel::PtrConst<TestNexthop>> held;
    for (uint32_t k = 0; k < 50; ++k)
        held.push_back(table.intern(k));
    for (uint32_t k = 0; k < 50; ++k)
        EXPECT_EQ(table.intern(k), held[k]);
    EXPECT_EQ(table.internTable().size(), 50u);
}

TEST_F(GenNexthopTest, StringForm) {
    std::ostringstream null;
    null << static_cast<const GenNexthop*>(nullptr);
    EXPECT_EQ(null.str(), "NULL");
    Mel::Ptr<TestNexthop> fresh(new TestNexthop(5));
    EXPECT_EQ(fresh->toStrep(), "vrfNotAccessible;test(5);id=invalid");

    TestNexthopTable table(BgpVrfIdBase(0x40000007));
    auto nh = table.intern(5);
    EXPECT_EQ(nh->toStrep(), "7;test(5);id=none");
    auto all = table.intern(6, TestNexthop::self | TestNexthop::policyReject |
                                   TestNexthop::thirdParty | TestNexthop::resolved |
                                   TestNexthop::preResolved | TestNexthop::ribOutExplicit);
    EXPECT_EQ(all->toStrep(),
              "7;test(6);res;preRes;nexthopSelf;3rdParty;ribOutExplicitAfiSafi;policyReject;"
              "id=none");
    TestNexthopTable::forceId(nh.get(), 0x1f);
    std::ostringstream os;
    os << Mel::PtrConst<GenNexthop>(nh);
    EXPECT_EQ(os.str(), "7;test(5);id=0x1f");
    TestNexthopTable::forceId(nh.get(), GenNexthopIdAllocator::noId());
}

TEST(GenNexthopDeathTest, VrfIsSetOnce) {
    Mel::Ptr<TestNexthop> nh(new TestNexthop(5));
    EXPECT_DEATH(nh->vrfId(), dies("!vrfId_.isInvalid()"));
    nh->vrfIdIs(BgpVrfIdBase(4));
    nh->vrfIdIs(BgpVrfIdBase(4));
    EXPECT_EQ(nh->vrfId(), BgpVrfIdBase(4));
    const std::string text = dies("vrfId_ == BgpVrfIdBase::invalidVrfId() || vrfId_ == vrfId");
    EXPECT_DEATH(nh->vrfIdIs(BgpVrfIdBase(5)), text);
    TestNexthopTable other(BgpVrfIdBase(9));
    EXPECT_DEATH(nh->dedup(&other, false), text);
}

// ---- Flags

// Each flag setter keeps the other flags and the interned object as they were.
TEST_F(GenNexthopTest, FlagsShareTheStateWordWithoutDisturbingInterning) {
    Mel::Ptr<TestNexthop> fresh(new TestNexthop(5));
    EXPECT_EQ(fresh->nhPreference(), 255);
    EXPECT_FALSE(fresh->nhMetricIsknown());
    EXPECT_FALSE(fresh->resolutionRibProfileValid());
    fresh->nhPreferenceIs(17); // allowed before interning while the metric is unknown
    EXPECT_EQ(fresh->nhPreference(), 17);

    TestNexthopTable table;
    auto nh = table.intern(5);
    nh->nhMetricIsknownIs(true);
    nh->nhPreferenceIs(0);
    nh->resolutionRibProfileValidIs(true);
    EXPECT_TRUE(nh->nhMetricIsknown() && nh->resolutionRibProfileValid());
    EXPECT_EQ(nh->nhPreference(), 0);
    nh->nhPreferenceIs(255);
    nh->resolutionRibProfileValidIs(false);
    EXPECT_TRUE(nh->nhMetricIsknown()) << "neighbouring bits untouched";
    EXPECT_EQ(nh->nhPreference(), 255);
    EXPECT_FALSE(nh->resolutionRibProfileValid());
    EXPECT_EQ(table.intern(5), nh) << "still found and still the table's";
}

// ---- Metrics and the table context

TEST_F(GenNexthopTest, SpecialMetricsComeFromTheContextsTable) {
    Mel::Ptr<BgpMetricPrefDedupTable> metrics(new BgpMetricPrefDedupTable("OwnMetricTable"));
    TestNexthopTable own(BgpVrfIdBase(1), metrics);
    TestNexthopTable shared(BgpVrfIdBase(2));
    auto a = own.intern(5);
    auto b = shared.intern(5);
    EXPECT_EQ(a->unknownMetric(), metrics->unknownMetric());
    EXPECT_EQ(a->invalidMetric(), metrics->invalidMetric());
    EXPECT_EQ(a->preResolvedMetric(), metrics->preResolvedMetric());
    BgpMetricPrefDedupTable& instance = BgpMetricPrefDedupTable::instance();
    EXPECT_EQ(b->unknownMetric(), instance.unknownMetric());
    EXPECT_NE(a->unknownMetric(), b->unknownMetric());
}

// The special metrics, the table context and two flag setters need an interned next hop, the
// metrics a table that still lives.
TEST(GenNexthopDeathTest, WhatNeedsAnInternedNexthop) {
    Mel::Ptr<TestNexthop> fresh(new TestNexthop(5));
    EXPECT_DEATH(fresh->unknownMetric(), dies("everDeduped()"));
    EXPECT_DEATH(fresh->invalidMetric(), dies("everDeduped()"));
    EXPECT_DEATH(fresh->preResolvedMetric(), dies("everDeduped()"));
    EXPECT_DEATH(fresh->dedupTableContext(), dies("everDeduped()"));
    EXPECT_DEATH(fresh->resolutionRibProfileValidIs(true), dies("isDeduped() || !isValid"));
    EXPECT_DEATH(fresh->nhMetricIsknownIs(true), dies("everDeduped()"));
    fresh->userBitsIs(1, 1, 1); // what no setter can do on a never interned object
    EXPECT_DEATH(fresh->nhPreferenceIs(1), dies("everDeduped() || !nhMetricIsknown()"));
    Mel::PtrConst<TestNexthop> orphan;
    {
        TestNexthopTable table;
        orphan = table.intern(5);
    }
    EXPECT_DEATH(orphan->unknownMetric(), dies("context != nullptr"));
}

TEST_F(GenNexthopTest, DerivedQueries) {
    TestNexthopTable table;
    BgpPeerStatus v4Peer{Orvnet::IpGenAddr::fromString("192.0.2.1"), {}};
    BgpPeerStatus v6Peer{Orvnet::IpGenAddr::fromString("2001:db8::1"), {}};
    auto plain = table.intern(1);
    auto self = table.intern(2, TestNexthop::self);
    auto third = table.intern(3, TestNexthop::thirdParty);
    auto sixPe = table.intern(4, TestNexthop::sixPe);
    auto pre = table.intern(5, TestNexthop::preResolved);
    auto reject = table.intern(6, TestNexthop::policyReject);

    EXPECT_FALSE(plain->isNexthopSelfForPeer(v4Peer));
    EXPECT_TRUE(self->isNexthopSelfForPeer(v6Peer));
    EXPECT_FALSE(third->isNexthopSelfForPeer(v4Peer)) << "advertised unchanged";
    EXPECT_TRUE(third->isNexthopSelfForPeer(v6Peer)) << "not advertised 3rd-party";
    EXPECT_TRUE(sixPe->isSixPe());
    EXPECT_FALSE(plain->isSixPe());
    EXPECT_EQ(sixPe->afiSafi(), AfiSafi::ipv6Unicast());
    EXPECT_TRUE(plain->requiresViaConfig());
    EXPECT_FALSE(pre->requiresViaConfig());
    EXPECT_FALSE(reject->requiresViaConfig());
    EXPECT_EQ(plain->getSkipNexthopResolutionNexthop(&table), plain);
    EXPECT_TRUE(plain->getResolvedNexthopInfoSet()->infos.empty());

    // Reachability: none, unknown metric, known metric, a measured metric not valid.
    Mel::Ptr<TestNexthop> watcher(new TestNexthop(9));
    EXPECT_FALSE(watcher->reachabilityNexthopMetricUnknown());
    watcher->reachabilityIs(plain.get());
    plain->currentMetricIs(table.context().bgpMetricPrefDedupTable->metricPref({}));
    EXPECT_TRUE(watcher->reachabilityNexthopMetricUnknown());
    BgpMetricPrefContent known;
    known.metric = 10;
    known.valid = true;
    plain->currentMetricIs(table.context().bgpMetricPrefDedupTable->metricPref(known));
    EXPECT_FALSE(watcher->reachabilityNexthopMetricUnknown());
    BgpMetricPrefContent invalidButMeasured; // not valid, yet a metric: not "unknown"
    invalidButMeasured.metric = 10;
    plain->currentMetricIs(table.context().bgpMetricPrefDedupTable->metricPref(invalidButMeasured));
    EXPECT_FALSE(watcher->reachabilityNexthopMetricUnknown());
    plain->currentMetricIs(nullptr);
}

// ---- Identifiers

TEST(GenNexthopDeathTest, BaseTableNeverHandsOutUniqueIdentifiers) {
    TestNexthopTable table;
    auto nh = table.intern(5, 0, /*unique=*/true); // not enabled: quietly noId
    EXPECT_EQ(nh->id(), GenNexthopIdAllocator::noId());
    table.claimsUniqueIds = true; // but never overrode assignIdToNexthop
    EXPECT_DEATH(table.intern(6, 0, true), dies("!allocateUniqueId || !uniqueNexthopIdsEnabled()"));
    table.claimsUniqueIds = false;
    TestNexthopTable::forceId(nh.get(), 5);
    EXPECT_DEATH(table.intern(5), dies("nh->id() == GenNexthopIdAllocator::invalidId() || nh->id() "
                                       "== GenNexthopIdAllocator::noId()"));
    // Dying with an identifier and no allocator to give it back to.
    EXPECT_DEATH(
        nh.reset(),
        dies("id() == GenNexthopIdAllocator::noId() || id() == BgpIdAllocator::invalidId()"));
    TestNexthopTable::forceId(nh.get(), GenNexthopIdAllocator::noId());
}

TEST(GenNexthopDeathTest, OperationsAKindMustProvide) {
    TestNexthopTable table;
    auto nh = table.intern(5);
    const std::string text = dies("!\"Not implemented\"");
    EXPECT_DEATH(nh->serialize(), text);
    EXPECT_DEATH(nh->getIntfId(), text);
    EXPECT_DEATH(nh->ribTransport(), text);
    EXPECT_DEATH(nh->getLifeTimeNotifier(), text);
    EXPECT_DEATH(nh->GenNexthop::currentMetric(), text);
    EXPECT_DEATH(nh->GenNexthop::compareDerived(nh.get()), text);
    EXPECT_DEATH(table.GenNexthopDedupTableBase::allocateGenNexthop(TestNexthopContent(1, 0)),
                 text);
    // Both throw the no-implementation exception, each with its own text.
    Mel::Ptr<TestNexthop> fresh(new TestNexthop(5));
    const std::pair<std::function<void()>, std::string> throwing[] = {
        {[&] { nh->GenNexthop::clone(); }, "Not supported"},
        {[&] { fresh->resolutionRibProfileIs(Routing::Rib::ResolutionRibProfile(2)); },
         "Not implemented"},
    };
    for (const auto& [op, text] : throwing) {
        try {
            op();
            ADD_FAILURE() << text << ": no exception";
        } catch (const Mel::NotImplementedException& e) {
            EXPECT_EQ(std::string(e.what()), text);
        }
    }
    EXPECT_EQ(table.getRibOutExplicitAfiSafiNexthopSelf(), nullptr);
    EXPECT_EQ(table.getLocalRouteNexthop({}, {}, {}), nullptr);
}

// Interning that yields nothing, comparing with another kind, cloning from a source not interned
// or of another kind, reading back a class without a reader.
TEST(GenNexthopDeathTest, InterningComparingCloningAndReadingBack) {
    TestNexthopTable table;
    TestNexthop::dedupReturnsNull = true;
    EXPECT_DEATH(table.intern(5), dies("dedupHandle"));
    TestNexthop::dedupReturnsNull = false;

    auto nh = table.intern(5);
    Mel::Ptr<UnstashedNexthop> other(new UnstashedNexthop(5));
    nh->assertComparable(table.intern(6).get());
    const std::string comparable = dies("other != nullptr && typeid(*this) == typeid(*other)");
    EXPECT_DEATH(nh->assertComparable(other.get()), comparable);
    EXPECT_DEATH(nh->assertComparable(nullptr), comparable);

    Mel::Ptr<TestNexthop> dst(new TestNexthop(5));
    Mel::Ptr<TestNexthop> fresh(new TestNexthop(5));
    dst->cloneFrom(nh.get());
    EXPECT_DEATH(dst->cloneFrom(nullptr), dies("src != nullptr"));
    EXPECT_DEATH(dst->cloneFrom(fresh.get()), dies("src->isDeduped()"));
    EXPECT_DEATH(other->cloneFrom(nh.get()), dies("srcT && dstT && srcT == dstT"));

    EXPECT_DEATH(GenNexthop::destash(other.get(), nullptr), dies("nullptr != reader"));
}

// ---- Cloning

TEST_F(GenNexthopTest, CloneCopiesWritableAttributesAndTracesEachDecision) {
    TestNexthopTable table;
    Mel::Ptr<TestNexthop> built(new TestNexthop(5));
    built->labelIs(300);
    built->domainIs(4);
    auto src = Mel::ptrStaticCast<const TestNexthop>(built->dedup(&table, false));
    src->nhPreferenceIs(9);
    OrvTest::TraceCapture trace(8);
    auto copy = Mel::ptrStaticCast<TestNexthop>(src->clone());
    EXPECT_EQ(copy->label(), 300u);
    EXPECT_EQ(copy->domain(), 0u) << "domain dependent";
    EXPECT_EQ(copy->nhPreference(), 255) << "flags are no data members";
    EXPECT_EQ(copy->id(), GenNexthopIdAllocator::invalidId());
    EXPECT_FALSE(copy->everDeduped());
    EXPECT_EQ(trace.lines, (std::vector<std::string>{
                               "Skipping: vrfId (attribute shouldn't be cloned)",
                               "Skipping: id (not writable)",
                               "Skipping: resolutionRibProfileValid (no data member)",
                               "Skipping: nhMetricIsknown (no data member)",
                               "Skipping: nhPreference (no data member)",
                               "Skipping: key (constructor argument)",
                               "Skipping: kind (constructor argument)",
                               "Skipping: domain (domain dependent attr)",
                               "Processing: label",
                               "Copied: label",
                               "Skipping: labels (collection)",
                           }));
}

// ---- Reading back from the store

// A fresh, equal object in the stored object's VRF; a stored object without a VRF leaves the fresh
// one without.
TEST_F(GenNexthopTest, DestashBuildsAFreshEqualNexthopInTheStoredVrf) {
    TestNexthopTable table(BgpVrfIdBase(12));
    auto stored = table.intern(5);
    auto back = GenNexthop::destash(stored.get(), &MelStash::StoreManager::instance());
    EXPECT_FALSE(back->everDeduped());
    EXPECT_TRUE(back->compare(stored.get()));
    EXPECT_EQ(back->vrfId(), BgpVrfIdBase(12));
    Mel::Ptr<TestNexthop> loose(new TestNexthop(6));
    EXPECT_EQ(GenNexthop::destash(loose.get(), nullptr)->toStrep(),
              "vrfNotAccessible;test(6);id=invalid");
}

// ---- Binary trace and dumps

TEST_F(GenNexthopTest, BinaryTraceRecordsAndTimer) {
    TestNexthopTable table(BgpVrfIdBase(0x102));
    auto nh = table.intern(5);
    nh->nhPreferenceIs(1);
    // VRF, identifier, flag word, address length (no address).
    const std::string record = "00000102"
                               "00000001"
                               "00000004"
                               "00";
    QtRingBuffer ring(20);
    nh->qtPut(ring);
    EXPECT_EQ(Mel::Bytes(ring.contents().data(), ring.contents().size()).toHex(), record);
    nh->qtPut(ring); // 26 bytes written into 20: the newest 20 remain
    auto kept = ring.contents();
    EXPECT_EQ(Mel::Bytes(kept.data(), kept.size()).toHex(), record.substr(12) + record);

    QtTimerStats& timer = GenNexthop::dedupContentTimer();
    uint64_t before = timer.count.load();
    table.intern(5);
    EXPECT_EQ(timer.count.load(), before) << "free while binary tracing is off";
    qtTimingEnabledIs(true);
    table.intern(5);
    qtTimingEnabledIs(false);
    EXPECT_EQ(timer.count.load(), before + 1);
}

TEST_F(GenNexthopTest, DumpState) {
    TestNexthopTable table(BgpVrfIdBase(3));
    auto self = table.intern(1, TestNexthop::self);
    table.nexthopSelfIs(self);
    auto ctx = Keel::DumpContext::toString();
    table.dumpState(*ctx, 2);
    const std::string text = ctx->text();
    for (const char* line :
         {"  TestNexthopDedupTable\n", "    vrfId 3\n", "    afiSafi ipv4Unicast\n",
          "    entries 1\n", "    nexthopSelf 3;test(1);nexthopSelf;id=none\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
}

} // namespace
} // namespace Routing::Bgp
