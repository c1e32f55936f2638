#include "OrvBgp/ClusterList.h"

#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"
#include "support/InternContract.h"
#include "support/TsharkHelpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <random>
#include <thread>
#include <vector>

namespace Routing::Bgp {
namespace {

OriginatorId ip(const char* s) {
    return OriginatorId::fromString(s);
}

Mel::PtrConst<ClusterList> intern(const ClusterListContent& c) {
    return ClusterListDedupTable::instance().findOrCreate(c);
}

std::vector<uint8_t> serialized(const ClusterList& l) {
    AttrSetStringStore store;
    l.serialize(store);
    auto b = store.bytes();
    return {b.begin(), b.end()};
}

ClusterListContent idsRange(const char* prefix, int n, OriginatorId originator = {}) {
    ClusterListContent c;
    c.originatorIdIs(originator);
    for (int i = 0; i < n; ++i)
        c.clusterIdEnq(ip((std::string(prefix) + std::to_string(i)).c_str()));
    return c;
}

// ---- wire forms

TEST(ClusterList, WireFormsMatchVectors) {
    auto vectors = OrvTest::readWireVectors(ORV_TEST_DATA_DIR "/ClusterList/wire.txt");
    const std::map<std::string, ClusterListContent> lists = {
        {"empty", ClusterListContent()},
        {"originator_only", ClusterListContent(ip("10.0.0.1"), {})},
        {"ids_3", ClusterListContent({}, {ip("10.0.0.1"), ip("10.0.0.2"), ip("10.0.0.3")})},
        {"originator_and_1", ClusterListContent(ip("192.0.2.1"), {ip("10.0.0.1")})},
        {"ids_63", idsRange("10.1.0.", 63)},
        {"ids_64", idsRange("10.1.0.", 64)},
    };
    ASSERT_EQ(vectors.size(), lists.size());
    for (const auto& [name, content] : lists) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(vectors.count(name));
        EXPECT_EQ(serialized(*intern(content)), vectors.at(name));
    }
}

// ---- value: hash, equality, order, text

// Lists order by originator id, then lexicographically by their ids (numerically, a proper prefix
// first); contents and interned lists alike. Equality and the hash need the same ids in the same
// order and the same originator (an empty list is not a list of 0.0.0.0).
TEST(ClusterList, OrderEqualityAndHash) {
    const std::vector<ClusterListContent> sorted = {
        {},
        ClusterListContent({}, {ip("0.0.0.0")}),
        ClusterListContent({}, {ip("1.1.1.1")}),
        ClusterListContent({}, {ip("1.1.1.1"), ip("2.2.2.2")}),
        ClusterListContent({}, {ip("9.0.0.0")}),
        ClusterListContent({}, {ip("10.0.0.0")}), // numeric, not byte-string, order
        ClusterListContent({}, {ip("10.0.0.1"), ip("10.0.0.2")}),
        ClusterListContent({}, {ip("10.0.0.2"), ip("10.0.0.1")}),
        ClusterListContent(ip("1.0.0.1"), {ip("10.0.0.1"), ip("10.0.0.2")}),
        ClusterListContent(ip("1.0.0.2"), {ip("10.0.0.1"), ip("10.0.0.2")}),
        ClusterListContent(ip("1.1.1.1"), {}),
    };
    for (size_t i = 0; i < sorted.size(); ++i) {
        for (size_t j = 0; j < sorted.size(); ++j) {
            SCOPED_TRACE(::testing::Message() << i << " vs " << j);
            EXPECT_EQ(sorted[i] < sorted[j], i < j);
            EXPECT_EQ(*intern(sorted[i]) < *intern(sorted[j]), i < j);
            EXPECT_EQ(sorted[i] == sorted[j], i == j);
            EXPECT_EQ(sorted[i].hash() == sorted[j].hash(), i == j);
            EXPECT_EQ(intern(sorted[i]).get() == intern(sorted[j]).get(), i == j);
        }
    }
}

TEST(ClusterList, IdsBeyondTheInlineSpaceSurviveInterning) {
    // 0..20 ids covers the tail-padding start, the inline content limit (16) and beyond.
    for (int n = 0; n <= 20; ++n) {
        auto c = idsRange("10.9.0.", n, ip("192.0.2.1"));
        auto l = intern(c);
        ASSERT_EQ(l->clusterIdCount(), size_t(n));
        EXPECT_TRUE(l->content() == c) << n;
        EXPECT_EQ(l->hash(), c.hash());
    }
}

// The list's text ends every id with a blank; the content's value form reads back.
TEST(ClusterList, TextForms) {
    auto l = intern(ClusterListContent(ip("192.0.2.1"), {ip("10.0.0.1"), ip("10.0.0.2")}));
    EXPECT_EQ(l->toStrep(), "10.0.0.1 10.0.0.2 ");
    EXPECT_EQ(ClusterList::destashStrep(l.get(), &MelStash::StoreManager::instance()),
              "10.0.0.1 10.0.0.2 ");
    EXPECT_EQ(intern(ClusterListContent(ip("192.0.2.1"), {}))->toStrep(), "");
    const ClusterListContent c(ip("192.0.2.1"), {ip("10.0.0.1"), ip("10.0.0.2")});
    const std::string text = Mel::valueToStrep(c);
    EXPECT_EQ(text, "Value('Routing::Bgp::ClusterListContent', ** {'originatorId': '192.0.2.1', "
                    "'clusterId': ['10.0.0.1', '10.0.0.2']})");
    EXPECT_TRUE(Mel::valueFromStrep<ClusterListContent>(text) == c);
    EXPECT_THROW(Mel::valueFromStrep<ClusterListContent>(
                     "Value('Routing::Bgp::ClusterListContent', ** {'clusterId': ['10.0.0.256']})"),
                 Mel::ParseException);
}

// ---- stored lists

TEST(ClusterList, DestashInternsTheStoredValue) {
    auto l = intern(ClusterListContent(ip("192.0.2.1"), {ip("10.0.0.1")}));
    auto& store = MelStash::StoreManager::instance();
    EXPECT_EQ(ClusterList::destash(l.get(), &store).get(), l.get());

    // A list from another table comes back as the equal list of the process-wide table.
    ClusterListDedupTable other("ClusterListTestTable");
    auto elsewhere = other.findOrCreate(ClusterListContent(ip("192.0.2.2"), {ip("10.0.0.9")}));
    auto back = ClusterList::destash(elsewhere.get(), &store);
    EXPECT_NE(back.get(), elsewhere.get());
    EXPECT_EQ(back.get(), intern(elsewhere->content()).get());
}

TEST(ClusterListDeathTest, TooManyIdsForOneAttribute) {
    auto c = idsRange("10.0.0.", 0);
    for (size_t i = 0; i < ClusterList::maxClusterIds; ++i)
        c.clusterIdEnq(OriginatorId::fromHostOrder(uint32_t(i + 1)));
    auto l = intern(c);
    AttrSetStringStore store;
    l->serialize(store);
    EXPECT_EQ(store.str().size(), 4 + 4 * ClusterList::maxClusterIds);
    // A reflector's own id on top of the longest list: held, and writing it is an error the caller
    // handles.
    c.clusterIdEnq(OriginatorId::fromHostOrder(0x0afffffe));
    auto longer = intern(c);
    AttrSetStringStore none;
    EXPECT_THROW(longer->serialize(none), PathAttributeTooLongException);
    for (size_t i = c.clusterIdCount(); i <= ClusterList::maxHeldClusterIds; ++i)
        c.clusterIdEnq(OriginatorId::fromHostOrder(uint32_t(i + 1)));
    EXPECT_DEATH(allocClusterListForDedup(c), "n <= ClusterList::maxHeldClusterIds");
}

// ---- loop checks

Mel::PtrConst<BgpClusterIdSet> idSet(std::initializer_list<const char*> ids) {
    Mel::Ptr<BgpClusterIdSet> s(new BgpClusterIdSet);
    for (const char* id : ids)
        s->clusterIdsIs(ip(id));
    return s->dedup();
}

// The originator id is not a cluster id; a set answers the first list entry it holds. Each id or
// set is cached once: the second pass answers from the caches, and an equal set interned again is
// the same object and so the same entry.
TEST(ClusterList, LoopChecksAnswerAndCacheOncePerKey) {
    auto l = intern(
        ClusterListContent(ip("10.0.0.7"), {ip("10.0.0.1"), ip("10.0.0.2"), ip("10.0.0.3")}));
    for (int pass = 0; pass < 2; ++pass) {
        SCOPED_TRACE(pass);
        EXPECT_FALSE(l->findClusterListLoop(ip("10.0.0.7")));
        EXPECT_TRUE(l->findClusterListLoop(ip("10.0.0.2")));
        EXPECT_FALSE(l->findClusterListLoop(ip("10.0.0.4")));
        const auto second =
            pass ? idSet({"10.0.0.2", "10.0.0.3"}) : idSet({"10.0.0.3", "10.0.0.2"});
        EXPECT_EQ(l->findClusterListLoopMulti(second.get()), ip("10.0.0.2"));
        EXPECT_EQ(l->findClusterListLoopMulti(idSet({"10.0.0.9"}).get()), OriginatorId());
        EXPECT_EQ(l->findClusterListLoopMulti(idSet({}).get()), OriginatorId());
    }
    EXPECT_EQ(l->clusterListLoopCacheSize(), 3u);
    EXPECT_EQ(l->clusterListMultiLoopCacheSize(), 3u);
}

TEST(ClusterList, CachesGrowPastTheirFirstBlockAndKeepEveryAnswer) {
    auto l = intern(idsRange("10.5.0.", 12));
    std::vector<Mel::PtrConst<BgpClusterIdSet>> sets;
    // Interleave both caches so that single-id entries are inserted in front of set entries.
    for (int i = 0; i < 24; ++i) {
        auto id = ip(("10.5.0." + std::to_string(i)).c_str());
        EXPECT_EQ(l->findClusterListLoop(id), i < 12) << i;
        Mel::Ptr<BgpClusterIdSet> s(new BgpClusterIdSet);
        s->clusterIdsIs(id);
        s->clusterIdsIs(ip("192.0.2.1"));
        sets.push_back(s->dedup());
        EXPECT_EQ(l->findClusterListLoopMulti(sets.back().get()), i < 12 ? id : OriginatorId());
    }
    EXPECT_EQ(l->clusterListLoopCacheSize(), 24u);
    EXPECT_EQ(l->clusterListMultiLoopCacheSize(), 24u);
    for (int i = 0; i < 24; ++i) {
        auto id = ip(("10.5.0." + std::to_string(i)).c_str());
        EXPECT_EQ(l->findClusterListLoop(id), i < 12) << i;
        EXPECT_EQ(l->findClusterListLoopMulti(sets[i].get()), i < 12 ? id : OriginatorId()) << i;
    }
}

TEST(ClusterList, MultiLoopCacheKeepsItsSetsAliveUntilTheListGoes) {
    const int64_t before = BgpClusterIdSet::melStashTypeStats().objects.load();
    {
        auto l = intern(ClusterListContent({}, {ip("10.0.0.1")}));
        idSet({"10.77.0.1"}); // interned and released at once: gone
        EXPECT_EQ(BgpClusterIdSet::melStashTypeStats().objects.load(), before);
        l->findClusterListLoopMulti(idSet({"10.77.0.2"}).get());
        EXPECT_EQ(BgpClusterIdSet::melStashTypeStats().objects.load(), before + 1);
    }
    EXPECT_EQ(BgpClusterIdSet::melStashTypeStats().objects.load(), before);
}

TEST(ClusterListConcurrent, LoopChecksFromManyThreadsAgreeWithAScan) {
    // One shared list, four threads asking overlapping ids and sets in different orders.
    auto content = idsRange("10.3.0.", 10);
    auto l = intern(content);
    std::vector<OriginatorId> pool;
    for (int i = 0; i < 17; ++i)
        pool.push_back(ip(("10.3.0." + std::to_string(i)).c_str()));
    std::vector<Mel::PtrConst<BgpClusterIdSet>> sets;
    for (size_t i = 0; i + 1 < pool.size(); ++i) {
        Mel::Ptr<BgpClusterIdSet> s(new BgpClusterIdSet);
        s->clusterIdsIs(pool[i]);
        s->clusterIdsIs(pool[i + 1]);
        sets.push_back(s->dedup());
    }
    auto scan = [&](OriginatorId id) {
        auto ids = content.clusterId();
        return std::find(ids.begin(), ids.end(), id) != ids.end();
    };
    auto scanMulti = [&](const BgpClusterIdSet& s) {
        for (OriginatorId id : content.clusterId())
            if (s.clusterIdsContains(id)) return id;
        return OriginatorId();
    };
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 rng(1000 + t);
            for (int i = 0; i < 4000; ++i) {
                OriginatorId id = pool[rng() % pool.size()];
                if (l->findClusterListLoop(id) != scan(id)) wrong.fetch_add(1);
                const auto& s = sets[rng() % sets.size()];
                if (l->findClusterListLoopMulti(s.get()) != scanMulti(*s)) wrong.fetch_add(1);
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(l->clusterListLoopCacheSize(), pool.size());
    EXPECT_EQ(l->clusterListMultiLoopCacheSize(), sets.size());
}

TEST(ClusterListConcurrent, ChecksOnManyListsWhileListsComeAndGo) {
    // Lists are interned, checked and released by several threads at once, so caches are made and
    // freed while other lists' caches are read under the same lock.
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 rng(2000 + t);
            for (int i = 0; i < 1500; ++i) {
                int n = int(rng() % 5) + 1;
                auto c = idsRange("10.4.0.", n);
                auto l = intern(c);
                auto probe = ip(("10.4.0." + std::to_string(rng() % 6)).c_str());
                bool expect = false;
                for (OriginatorId id : c.clusterId())
                    expect |= id == probe;
                if (l->findClusterListLoop(probe) != expect) wrong.fetch_add(1);
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(wrong.load(), 0);
}

// ---- the cache lock

TEST(ClusterListLoopCacheLock, EdeadlkOnTheWriteLockOnlyWhenTolerated) {
    auto& lock = clusterListLoopCacheRwLock();
    ASSERT_FALSE(clusterListLoopCacheEdeadlkTolerated()); // off unless the agent turns it on
    ASSERT_TRUE(lock.writeLock());
    try {
        lock.writeLock();
        ADD_FAILURE() << "a second write lock from the holder must fail";
    } catch (const Mel::ErrnoException& e) {
        EXPECT_EQ(e.err(), EDEADLK);
    }
    clusterListLoopCacheEdeadlkToleratedIs(true);
    EXPECT_FALSE(lock.writeLock()); // tolerated: not taken again
    // The read lock is never tolerated.
    EXPECT_THROW(lock.readLock(), Mel::ErrnoException);
    clusterListLoopCacheEdeadlkToleratedIs(false);
    lock.unlock();
    // And the lock still works for the checks.
    auto l = intern(ClusterListContent({}, {ip("10.0.0.1")}));
    EXPECT_TRUE(l->findClusterListLoop(ip("10.0.0.1")));
}

// ---- snapshot and id sets

TEST(ClusterList, SnapshotIsAnIndexedCopyThatEditsApart) {
    auto l = intern(ClusterListContent(ip("192.0.2.1"), {ip("10.0.0.1"), ip("10.0.0.2")}));
    auto snap = l->clusterIdSnapshot();
    using E = ClusterListSnapshot::MelClusterId;
    ASSERT_EQ(snap->clusterIdCount(), 2u);
    EXPECT_EQ(*snap->clusterIdFront(), (E{0, ip("10.0.0.1")}));
    EXPECT_EQ(*snap->clusterIdBack(), (E{1, ip("10.0.0.2")}));

    EXPECT_EQ(snap->clusterIdEnq(ip("10.0.0.3")), (E{2, ip("10.0.0.3")}));
    snap->clusterIdIs(1, ip("10.0.0.20")); // replaces
    snap->clusterIdIs(7, ip("10.0.0.7"));  // inserts in index order
    EXPECT_TRUE(snap->clusterIdDeq());
    EXPECT_FALSE(snap->clusterIdDel(0)); // already dequeued
    EXPECT_FALSE(snap->clusterIdDel(E{2, ip("10.0.0.99")}));
    EXPECT_TRUE(snap->clusterIdDel(E{2, ip("10.0.0.3")}));
    EXPECT_EQ(snap->clusterIdEnq(ip("10.0.0.8")).index, 8u); // after the highest index given
    std::vector<E> expect = {{1, ip("10.0.0.20")}, {7, ip("10.0.0.7")}, {8, ip("10.0.0.8")}};
    EXPECT_TRUE(std::equal(snap->clusterIds().begin(), snap->clusterIds().end(), expect.begin(),
                           expect.end()));

    // The interned list is untouched; the snapshot makes a new one.
    EXPECT_EQ(l->toStrep(), "10.0.0.1 10.0.0.2 ");
    auto edited = intern(snap->content(l->originatorId()));
    EXPECT_EQ(edited->toStrep(), "10.0.0.20 10.0.0.7 10.0.0.8 ");
    EXPECT_EQ(edited->originatorId(), ip("192.0.2.1"));
    snap->clusterIdDelAll();
    EXPECT_EQ(snap->clusterIdFront(), nullptr);
    EXPECT_FALSE(snap->clusterIdDeq());
}

TEST(BgpClusterIdSet, EqualSetsInternOnceWhateverTheOrder) {
    Mel::Ptr<BgpClusterIdSet> a(new BgpClusterIdSet), b(new BgpClusterIdSet);
    for (const char* id : {"10.0.0.1", "10.0.0.2", "10.0.0.3"})
        a->clusterIdsIs(ip(id));
    for (const char* id : {"10.0.0.3", "10.0.0.9", "10.0.0.1", "10.0.0.2"})
        b->clusterIdsIs(ip(id));
    b->clusterIdsDel(ip("10.0.0.9"));
    b->clusterIdsIs(ip("10.0.0.1")); // already present
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_EQ(a->dedup().get(), b->dedup().get());

    Mel::Ptr<BgpClusterIdSet> c(new BgpClusterIdSet);
    c->clusterIdsIs(ip("10.0.0.1"));
    c->clusterIdsDelAll();
    Mel::Ptr<BgpClusterIdSet> d(new BgpClusterIdSet);
    EXPECT_EQ(c->hash(), d->hash());
    EXPECT_NE(c->hash(), a->hash());
}

TEST(BgpClusterIdSet, DumpLineCountsIds) {
    auto s = idSet({"10.0.0.1", "10.0.0.2"});
    auto ctx = Keel::DumpContext::toString();
    s->dumpState(ctx, 4);
    EXPECT_EQ(ctx->text(), "    clusterIds #2\n");
}

// A stored class without a reader, a loop check with a set not interned, an interned set changed,
// an attribute stored under another type.
TEST(ClusterListDeathTest, Preconditions) {
    Mel::Ptr<BgpClusterIdSet> set(new BgpClusterIdSet);
    auto& store = MelStash::StoreManager::instance();
    EXPECT_DEATH(ClusterList::destash(set.get(), &store), "nullptr != reader");
    EXPECT_DEATH(ClusterList::destashStrep(set.get(), &store), "nullptr != reader");
    auto l = intern(ClusterListContent({}, {ip("10.0.0.1")}));
    EXPECT_DEATH(l->findClusterListLoopMulti(set.get()), "set->isDeduped\\(\\)");
    set->clusterIdsIs(ip("10.0.0.1"));
    auto shared = set->dedup();
    ASSERT_EQ(shared.get(), set.get());
    EXPECT_DEATH(set->clusterIdsIs(ip("10.0.0.2")), "!everDeduped\\(\\)");
    EXPECT_DEATH(set->clusterIdsDelAll(), "!everDeduped\\(\\)");
    AttrSetStringStore attrs;
    auto attr = OrvTest::bytesFromHex("80 0a 04 0a 00 00 01");
    EXPECT_DEATH(attrs.store(9, std::span<const uint8_t>(attr)),
                 "attribute.size\\(\\) >= 3 && attribute\\[1\\] == attrType");
}

// ---- the interning contract

struct ClusterListTraits {
    using Object = ClusterList;
    static ClusterListContent content(int i) {
        return idsRange("10.8.0.", i % 7, OriginatorId::fromHostOrder(uint32_t(0xc0000200 + i)));
    }
    static Mel::PtrConst<ClusterList> intern(const ClusterListContent& c) {
        return clusterListFactory(c);
    }
    static size_t tableSize() { return ClusterListDedupTable::instance().size(); }
    static auto dedup(const Mel::PtrConst<ClusterList>& p) {
        return ClusterListDedupTable::instance().dedup(p);
    }
};

struct BgpClusterIdSetTraits {
    using Object = BgpClusterIdSet;
    static int content(int i) { return i; }
    static Mel::PtrConst<BgpClusterIdSet> intern(int i) {
        Mel::Ptr<BgpClusterIdSet> s(new BgpClusterIdSet);
        for (int k = 0; k <= i % 5; ++k)
            s->clusterIdsIs(OriginatorId::fromHostOrder(uint32_t(0x0a060000 + i * 8 + k)));
        return s->dedup();
    }
    static size_t tableSize() { return BgpClusterIdSetDedupTable::instance().size(); }
    static auto dedup(const Mel::PtrConst<BgpClusterIdSet>& p) { return p->dedup(); }
};

INSTANTIATE_TYPED_TEST_SUITE_P(ClusterList, InternContract, ::testing::Types<ClusterListTraits>);
INSTANTIATE_TYPED_TEST_SUITE_P(BgpClusterIdSet, InternContract,
                               ::testing::Types<BgpClusterIdSetTraits>);

} // namespace
} // namespace Routing::Bgp
