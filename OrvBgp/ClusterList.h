// ORIGINATOR_ID and CLUSTER_LIST of a reflected route, interned as one immutable ClusterList.
//   auto l = ClusterListDedupTable::instance().findOrCreate(ClusterListContent(origin, {c1, c2}));
//   if (l->findClusterListLoop(localClusterId)) ...;   l->serialize(attrSetStore);
//
// Memory: a list is a 28-byte header plus 4 bytes per cluster id in one store block (the id count
// lives in the handle's user-data bits), so lists of 1 and 4 ids take 32 and 48 bytes. The loop
// caches are a second store block, made on the first loop check: short arrays scanned in order,
// sized for the few local cluster ids a reflector asks about (32 bytes for the first two answers).
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Keel/DumpContext.h"
#include "Mel/Object.h"
#include "Mel/Ptr.h"
#include "Mel/String.h"
#include "Mel/ValueType.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"
#include "Orvnet/IpAddr.h"

#include <boost/container/small_vector.hpp>
#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <span>

namespace Routing::Bgp {

class PathAttributesSerializeStoreMethodBase;
class ClusterListSnapshot;
class ClusterListDedupTable;
class BgpClusterIdSetDedupTable;

// An originator or cluster id: an IPv4 address. 0.0.0.0 as originator id means "absent".
using OriginatorId = Orvnet::IpAddr;

// HashMix from 0 over the originator id, then every cluster id, each as 4 bytes in network order.
uint32_t clusterListHash(OriginatorId originatorId,
                         std::span<const OriginatorId> clusterIds) noexcept;

// The value a ClusterList is interned from. Up to 16 cluster ids are held without an allocation.
class ClusterListContent : public Keel::DedupContentHandle {
public:
    static constexpr size_t inlineClusterIds = 16;

    ClusterListContent() = default;
    ClusterListContent(OriginatorId originatorId, std::span<const OriginatorId> clusterIds)
        : originatorId_(originatorId), clusterId_(clusterIds.begin(), clusterIds.end()) {}
    ClusterListContent(OriginatorId originatorId, std::initializer_list<OriginatorId> clusterIds)
        : originatorId_(originatorId), clusterId_(clusterIds.begin(), clusterIds.end()) {}

    OriginatorId originatorId() const noexcept { return originatorId_; }
    void originatorIdIs(OriginatorId id) noexcept { originatorId_ = id; }
    // In wire order.
    std::span<const OriginatorId> clusterId() const noexcept {
        return {clusterId_.data(), clusterId_.size()};
    }
    size_t clusterIdCount() const noexcept { return clusterId_.size(); }
    void clusterIdEnq(OriginatorId id) { clusterId_.push_back(id); }
    void clusterIdDelAll() noexcept { clusterId_.clear(); }

    uint32_t hash() const noexcept { return clusterListHash(originatorId_, clusterId()); }
    bool operator==(const ClusterListContent& o) const noexcept;
    // Base handle, then originator id, then the ids lexicographically (a proper prefix is less).
    bool operator<(const ClusterListContent& o) const noexcept;

private:
    OriginatorId originatorId_;
    boost::container::small_vector<OriginatorId, inlineClusterIds> clusterId_;

public:
    MEL_VALUE_TYPE(ClusterListContent, "Routing::Bgp::ClusterListContent",
                   (originatorId_, clusterId_))
};

// An interned set of local cluster ids, the question findClusterListLoopMulti answers. Filled while
// not yet interned (changing an interned set ends the process), then interned with dedup().
//   Mel::Ptr<BgpClusterIdSet> s(new BgpClusterIdSet);  s->clusterIdsIs(id1);  s->clusterIdsIs(id2);
//   Mel::PtrConst<BgpClusterIdSet> local = s->dedup();
class BgpClusterIdSet : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(BgpClusterIdSet)

public:
    BgpClusterIdSet();

    const Mel::HashSet<Orvnet::IpAddr>& clusterIds() const noexcept { return clusterIds_; }
    bool clusterIdsContains(Orvnet::IpAddr id) const noexcept { return clusterIds_.contains(id); }
    void clusterIdsIs(Orvnet::IpAddr id);
    void clusterIdsDel(Orvnet::IpAddr id);
    void clusterIdsDelAll();

    // Same ids, in any order.
    bool compare(const Keel::DedupHandleBase* other) const override;
    // "<indent blanks>clusterIds #<count>"
    void dumpState(const Mel::PtrConst<Keel::DumpContext>& ctx, int indent) const;
    // This set if it is the first of its content, else the interned equal one.
    Mel::PtrConst<BgpClusterIdSet> dedup() const;
    Mel::PtrConst<BgpClusterIdSet> dedup(BgpClusterIdSetDedupTable& table) const;

private:
    void rehash() noexcept;

    Mel::HashSet<Orvnet::IpAddr> clusterIds_;
    uint64_t idHashSum_ = 0; // order-independent sum of the ids' own hashes
};

class BgpClusterIdSetDedupTable : public Keel::DedupTable<BgpClusterIdSet> {
public:
    using DedupTable::DedupTable;
    static BgpClusterIdSetDedupTable& instance();
};

class ClusterListLoopCaches;

class ClusterList : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(ClusterList)

public:
    // The most ids whose CLUSTER_LIST value (4 bytes each) fits a 2-byte attribute length.
    static constexpr size_t maxClusterIds = 16383;
    // The most ids a list holds (its count is a 17-bit field). A reflector that
    // adds its own id to the longest list received gets one more than maxClusterIds: it is held,
    // and writing it throws PathAttributeTooLongException.
    static constexpr size_t maxHeldClusterIds = (size_t(1) << 17) - 1;

    ClusterList(const ClusterList&) = delete;
    ~ClusterList() override;

    OriginatorId originatorId() const noexcept { return originatorId_; }
    std::span<const OriginatorId> clusterId() const noexcept { return {ids_, clusterIdCount()}; }
    size_t clusterIdCount() const noexcept { return count_; }
    ClusterListContent content() const { return ClusterListContent(originatorId_, clusterId()); }

    // Does id occur in the list? Cached per list under clusterListLoopCacheRwLock.
    bool findClusterListLoop(OriginatorId id) const;
    // The first id of the list, in list order, that is in the interned set `set`; 0.0.0.0 if none.
    // Cached per list and set; the cache holds a reference to the set.
    Orvnet::IpAddr findClusterListLoopMulti(const BgpClusterIdSet* set) const;
    // Entries in the two caches (one per distinct id or set asked).
    size_t clusterListLoopCacheSize() const;
    size_t clusterListMultiLoopCacheSize() const;

    // ORIGINATOR_ID (type 9) unless the originator id is 0, then CLUSTER_LIST (type 10, flags 0x80)
    // unless the list is empty; each as a whole attribute.
    void serialize(PathAttributesSerializeStoreMethodBase& store) const;
    // Every cluster id followed by one blank ("10.0.0.1 10.0.0.2 "); the originator id is not
    // shown.
    Mel::String toStrep() const;
    // A fresh, editable copy of the ids in order.
    Mel::Ptr<ClusterListSnapshot> clusterIdSnapshot() const;

    // `stored` is the address of a stored object (a ClusterList in the store). destash interns its
    // value in ClusterListDedupTable::instance(); destashStrep prints it as toStrep does.
    static Mel::PtrConst<ClusterList> destash(const void* stored,
                                              MelStash::StoreManager::RawPtr store);
    static Mel::String destashStrep(const void* stored, MelStash::StoreManager::RawPtr store);

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;
    bool equals(OriginatorId originatorId, std::span<const OriginatorId> ids) const noexcept;
    // As ClusterListContent orders.
    bool operator<(const ClusterList& o) const noexcept;

private:
    friend ClusterList* allocClusterListForDedup(const ClusterListContent& content);
    ClusterList(OriginatorId originatorId, std::span<const OriginatorId> ids) noexcept;
    static size_t idsOffset() noexcept;
    ClusterListLoopCaches* caches() const noexcept;

    OriginatorId originatorId_;
    // Compressed store reference to the loop caches, 0 until the first check; guarded by
    // clusterListLoopCacheRwLock.
    mutable uint32_t cachesRef_ = 0;
    uint32_t count_;
    OriginatorId ids_[0]; // clusterIdCount() ids in the same block
};

// A new, not yet interned ClusterList holding content (the maker ClusterListDedupTable uses).
ClusterList* allocClusterListForDedup(const ClusterListContent& content);

class ClusterListDedupTable : public Keel::DedupTable<ClusterList> {
public:
    using DedupTable::DedupTable;
    using DedupTable::find;
    using DedupTable::findOrCreate;
    static ClusterListDedupTable& instance();

    Mel::PtrConst<ClusterList> find(const ClusterListContent& content) const;
    Mel::PtrConst<ClusterList> findOrCreate(const ClusterListContent& content);
};

// The interned ClusterList of that content (ClusterListDedupTable::instance()).
Mel::PtrConst<ClusterList> clusterListFactory(const ClusterListContent& content);

// An editable, ordered queue of cluster ids, each entry carrying its index. clusterIdEnq appends
// with the index after the highest one given so far (0 for the first); clusterIdIs places an id at
// a chosen index, replacing the entry there. Entries stay in index order.
class ClusterListSnapshot : public Mel::Object {
public:
    struct MelClusterId {
        uint32_t index = 0;
        OriginatorId id;
        bool operator==(const MelClusterId&) const noexcept = default;
    };

    std::span<const MelClusterId> clusterIds() const noexcept { return {ids_.data(), ids_.size()}; }
    size_t clusterIdCount() const noexcept { return ids_.size(); }
    // Null when empty.
    const MelClusterId* clusterIdFront() const noexcept {
        return ids_.empty() ? nullptr : &ids_.front();
    }
    const MelClusterId* clusterIdBack() const noexcept {
        return ids_.empty() ? nullptr : &ids_.back();
    }
    MelClusterId clusterIdEnq(OriginatorId id);
    // Removes the front entry; false when empty.
    bool clusterIdDeq() noexcept;
    void clusterIdIs(uint32_t index, OriginatorId id);
    // False when there is no such entry.
    bool clusterIdDel(uint32_t index) noexcept;
    bool clusterIdDel(const MelClusterId& entry) noexcept;
    void clusterIdDelAll() noexcept { ids_.clear(); }
    // The ids in order, for interning a new list.
    ClusterListContent content(OriginatorId originatorId) const;

private:
    boost::container::small_vector<MelClusterId, ClusterListContent::inlineClusterIds> ids_;
    uint32_t nextIndex_ = 0;
};

// Reads a stored ClusterList back; registered for typeid(ClusterList).
class ClusterListStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<ClusterList> destash(const void* stored,
                                               MelStash::StoreManager::RawPtr store) const;
    virtual Mel::String stashStrep(const void* stored, MelStash::StoreManager::RawPtr store) const;
};

// The one process-wide reader-writer lock over the loop caches of every ClusterList. A failing lock
// or unlock call throws Mel::ErrnoException, except a write lock refused with EDEADLK (the thread
// already holds the lock for writing) while clusterListLoopCacheEdeadlkTolerated() is on: writeLock
// then returns false and the caller goes on under the hold it has. The flag is off by default.
class ClusterListLoopCacheRwLock {
public:
    ClusterListLoopCacheRwLock() noexcept;
    ClusterListLoopCacheRwLock(const ClusterListLoopCacheRwLock&) = delete;
    ClusterListLoopCacheRwLock& operator=(const ClusterListLoopCacheRwLock&) = delete;
    ~ClusterListLoopCacheRwLock();

    void readLock();
    // True when taken, false for a tolerated EDEADLK.
    bool writeLock();
    void unlock();

private:
    pthread_rwlock_t rw_;
};

ClusterListLoopCacheRwLock& clusterListLoopCacheRwLock() noexcept;
bool clusterListLoopCacheEdeadlkTolerated() noexcept;
void clusterListLoopCacheEdeadlkToleratedIs(bool on) noexcept;

std::ostream& operator<<(std::ostream& os, const ClusterList& l);
std::ostream& operator<<(std::ostream& os, const ClusterListContent& c);

} // namespace Routing::Bgp
