#include "OrvBgp/ClusterList.h"

#define ORV_UNIT "OrvBgp/ClusterList"
#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <typeinfo>

namespace Routing::Bgp {

using MelStash::StoreManager;

// ---- hash, equality, order

uint32_t clusterListHash(OriginatorId originatorId,
                         std::span<const OriginatorId> clusterIds) noexcept {
    Keel::HashMix m(0);
    // networkOrder() holds the 4 bytes in wire order, so every platform mixes the same bytes.
    m.hashMix(originatorId.networkOrder());
    for (OriginatorId id : clusterIds)
        m.hashMix(id.networkOrder());
    return m.result();
}

namespace {

bool idsEqual(std::span<const OriginatorId> a, std::span<const OriginatorId> b) noexcept {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size_bytes()) == 0);
}

bool clusterListLess(OriginatorId ao, std::span<const OriginatorId> a, OriginatorId bo,
                     std::span<const OriginatorId> b) noexcept {
    if (ao != bo) return ao < bo;
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
}

void appendStrep(Mel::String& out, std::span<const OriginatorId> ids) {
    for (OriginatorId id : ids) {
        out += id.toString();
        out += ' ';
    }
}

} // namespace

bool ClusterListContent::operator==(const ClusterListContent& o) const noexcept {
    return DedupContentHandle::operator==(o) && originatorId_ == o.originatorId_ &&
           idsEqual(clusterId(), o.clusterId());
}

bool ClusterListContent::operator<(const ClusterListContent& o) const noexcept {
    if (DedupContentHandle::operator<(o)) return true;
    if (o.DedupContentHandle::operator<(*this)) return false;
    return clusterListLess(originatorId_, clusterId(), o.originatorId_, o.clusterId());
}

std::ostream& operator<<(std::ostream& os, const ClusterListContent& c) {
    return os << Mel::valueToStrep(c);
}

// ---- the loop-cache lock

namespace {

std::atomic<bool> edeadlkTolerated{false};

} // namespace

bool clusterListLoopCacheEdeadlkTolerated() noexcept {
    return edeadlkTolerated.load(std::memory_order_relaxed);
}

void clusterListLoopCacheEdeadlkToleratedIs(bool on) noexcept {
    edeadlkTolerated.store(on, std::memory_order_relaxed);
}

ClusterListLoopCacheRwLock::ClusterListLoopCacheRwLock() noexcept {
    int rc = pthread_rwlock_init(&rw_, nullptr);
    ORV_ASSERT(rc == 0);
}

ClusterListLoopCacheRwLock::~ClusterListLoopCacheRwLock() {
    pthread_rwlock_destroy(&rw_);
}

void ClusterListLoopCacheRwLock::readLock() {
    if (int rc = pthread_rwlock_rdlock(&rw_))
        throw Mel::ErrnoException(rc, "clusterListLoopCacheRwLock read lock");
}

bool ClusterListLoopCacheRwLock::writeLock() {
    int rc = pthread_rwlock_wrlock(&rw_);
    if (rc == EDEADLK && clusterListLoopCacheEdeadlkTolerated()) return false;
    if (rc) throw Mel::ErrnoException(rc, "clusterListLoopCacheRwLock write lock");
    return true;
}

void ClusterListLoopCacheRwLock::unlock() {
    if (int rc = pthread_rwlock_unlock(&rw_))
        throw Mel::ErrnoException(rc, "clusterListLoopCacheRwLock unlock");
}

ClusterListLoopCacheRwLock& clusterListLoopCacheRwLock() noexcept {
    // Never destroyed: lists released during exit may still take it.
    static auto* lock = new ClusterListLoopCacheRwLock;
    return *lock;
}

// ---- the loop caches

// Both caches of one list in one store block. Few distinct ids are asked of a list (the local
// cluster ids), so each cache is a short array scanned in order: entries [0, loopCount) answer
// single ids (key: the id in network order, value 0 or 1); [loopCount, loopCount + multiCount)
// answer sets (key: compressed reference to the set, which the entry keeps alive; value: the id
// found, network order). A full block is replaced by one twice the size. Everything here runs under
// clusterListLoopCacheRwLock.
class ClusterListLoopCaches {
    MELSTASH_STORE_ALLOCATED(ClusterListLoopCaches)

public:
    struct Entry {
        uint32_t key;
        uint32_t value;
    };

    static ClusterListLoopCaches* make(uint32_t capacity) {
        return new (MelStash::ExtraBytes{capacity * sizeof(Entry)}) ClusterListLoopCaches(capacity);
    }
    ~ClusterListLoopCaches() {
        for (const Entry& e : multi())
            static_cast<const BgpClusterIdSet*>(StoreManager::expand(e.key))->refDec();
    }

    std::span<const Entry> loop() const noexcept { return {entries_, loopCount_}; }
    std::span<const Entry> multi() const noexcept { return {entries_ + loopCount_, multiCount_}; }

    static const Entry* find(std::span<const Entry> part, uint32_t key) noexcept {
        for (const Entry& e : part)
            if (e.key == key) return &e;
        return nullptr;
    }

    // Each returns the block now holding the caches: `c` itself, or a larger copy (c is then
    // freed). A key already present is left as it is: a racing thread computed the same answer.
    static ClusterListLoopCaches* withLoop(ClusterListLoopCaches* c, uint32_t id, bool answer) {
        if (c && find(c->loop(), id)) return c;
        c = roomForOne(c);
        std::memmove(c->entries_ + c->loopCount_ + 1, c->entries_ + c->loopCount_,
                     c->multiCount_ * sizeof(Entry));
        c->entries_[c->loopCount_++] = Entry{id, answer ? 1u : 0u};
        return c;
    }
    static ClusterListLoopCaches* withMulti(ClusterListLoopCaches* c, const BgpClusterIdSet* set,
                                            uint32_t answer) {
        uint32_t key = StoreManager::compress(set);
        if (c && find(c->multi(), key)) return c;
        c = roomForOne(c);
        set->refInc();
        c->entries_[c->loopCount_ + c->multiCount_++] = Entry{key, answer};
        return c;
    }

private:
    explicit ClusterListLoopCaches(uint32_t capacity) noexcept : capacity_(capacity) {}

    static ClusterListLoopCaches* roomForOne(ClusterListLoopCaches* c) {
        if (!c) return make(2);
        uint32_t used = c->loopCount_ + c->multiCount_;
        if (used < c->capacity_) return c;
        ClusterListLoopCaches* bigger = make(c->capacity_ * 2);
        std::memcpy(bigger->entries_, c->entries_, used * sizeof(Entry));
        bigger->loopCount_ = c->loopCount_;
        bigger->multiCount_ = c->multiCount_;
        c->multiCount_ = 0; // the set references moved to the copy
        delete c;
        return bigger;
    }

    uint32_t capacity_;
    uint32_t loopCount_ = 0;
    uint32_t multiCount_ = 0;
    Entry entries_[0];
};

// ---- ClusterList

ClusterList::ClusterList(OriginatorId originatorId, std::span<const OriginatorId> ids) noexcept
    : originatorId_(originatorId), count_(static_cast<uint32_t>(ids.size())) {
    hashIs(clusterListHash(originatorId, ids));
    if (!ids.empty()) std::memcpy(static_cast<void*>(ids_), ids.data(), ids.size_bytes());
}

ClusterList::~ClusterList() {
    delete caches();
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
size_t ClusterList::idsOffset() noexcept {
    return offsetof(ClusterList, ids_);
}
#pragma GCC diagnostic pop

ClusterList* allocClusterListForDedup(const ClusterListContent& content) {
    const size_t n = content.clusterIdCount();
    ORV_ASSERT(n <= ClusterList::maxHeldClusterIds);
    // The ids start in the tail padding of the class, so only what overhangs sizeof is extra.
    const size_t end = ClusterList::idsOffset() + n * sizeof(OriginatorId);
    const size_t extra = end > sizeof(ClusterList) ? end - sizeof(ClusterList) : 0;
    return new (MelStash::ExtraBytes{extra})
        ClusterList(content.originatorId(), content.clusterId());
}

ClusterListLoopCaches* ClusterList::caches() const noexcept {
    return static_cast<ClusterListLoopCaches*>(StoreManager::expand(cachesRef_));
}

bool ClusterList::findClusterListLoop(OriginatorId id) const {
    ClusterListLoopCacheRwLock& lock = clusterListLoopCacheRwLock();
    lock.readLock();
    const ClusterListLoopCaches* c = caches();
    const auto* hit = c ? ClusterListLoopCaches::find(c->loop(), id.networkOrder()) : nullptr;
    const bool cached = hit != nullptr;
    const bool cachedAnswer = hit && hit->value != 0;
    lock.unlock();
    if (cached) return cachedAnswer;

    auto ids = clusterId();
    const bool found = std::find(ids.begin(), ids.end(), id) != ids.end();

    const bool held = lock.writeLock();
    try {
        cachesRef_ = StoreManager::compress(
            ClusterListLoopCaches::withLoop(caches(), id.networkOrder(), found));
    } catch (...) {
        if (held) lock.unlock();
        throw;
    }
    if (held) lock.unlock();
    return found;
}

Orvnet::IpAddr ClusterList::findClusterListLoopMulti(const BgpClusterIdSet* set) const {
    ORV_ASSERT(nullptr != set);
    // The cache is keyed by the set's identity, which stands for its content only once interned.
    ORV_ASSERT(set->isDeduped());
    const uint32_t key = StoreManager::compress(set);
    ClusterListLoopCacheRwLock& lock = clusterListLoopCacheRwLock();
    lock.readLock();
    const ClusterListLoopCaches* c = caches();
    const auto* hit = c ? ClusterListLoopCaches::find(c->multi(), key) : nullptr;
    const bool cached = hit != nullptr;
    const uint32_t cachedAnswer = hit ? hit->value : 0;
    lock.unlock();
    if (cached) return Orvnet::IpAddr::fromNetworkOrder(cachedAnswer);

    Orvnet::IpAddr found;
    for (OriginatorId id : clusterId()) {
        if (set->clusterIdsContains(id)) {
            found = id;
            break;
        }
    }

    const bool held = lock.writeLock();
    try {
        cachesRef_ = StoreManager::compress(
            ClusterListLoopCaches::withMulti(caches(), set, found.networkOrder()));
    } catch (...) {
        if (held) lock.unlock();
        throw;
    }
    if (held) lock.unlock();
    return found;
}

size_t ClusterList::clusterListLoopCacheSize() const {
    ClusterListLoopCacheRwLock& lock = clusterListLoopCacheRwLock();
    lock.readLock();
    const ClusterListLoopCaches* c = caches();
    size_t n = c ? c->loop().size() : 0;
    lock.unlock();
    return n;
}

size_t ClusterList::clusterListMultiLoopCacheSize() const {
    ClusterListLoopCacheRwLock& lock = clusterListLoopCacheRwLock();
    lock.readLock();
    const ClusterListLoopCaches* c = caches();
    size_t n = c ? c->multi().size() : 0;
    lock.unlock();
    return n;
}

void ClusterList::serialize(PathAttributesSerializeStoreMethodBase& store) const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: ClusterList::serialize()");
    // The originator id goes to the store as its bare address; the store writes its header.
    if (!originatorId_.isZero())
        store.store(BgpPathAttrType::originatorId_,
                    std::span<const uint8_t>(originatorId_.data(), 4));
    auto ids = clusterId();
    if (!ids.empty()) {
        Serialize s;
        SerializePathAttribute(s, BgpPathAttrType::clusterList_, pathAttrFlagOptional,
                               4 * ids.size());
        for (OriginatorId id : ids)
            s.addIpv4Addr(id);
        store.store(BgpPathAttrType::clusterList_, s.span());
    }
}

Mel::String ClusterList::toStrep() const {
    Mel::String out;
    appendStrep(out, clusterId());
    return out;
}

Mel::Ptr<ClusterListSnapshot> ClusterList::clusterIdSnapshot() const {
    Mel::Ptr<ClusterListSnapshot> snap(new ClusterListSnapshot);
    for (OriginatorId id : clusterId())
        snap->clusterIdEnq(id);
    return snap;
}

bool ClusterList::equals(OriginatorId originatorId,
                         std::span<const OriginatorId> ids) const noexcept {
    return originatorId_ == originatorId && idsEqual(clusterId(), ids);
}

bool ClusterList::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const ClusterList*>(other);
    return equals(o->originatorId_, o->clusterId());
}

bool ClusterList::compareByContent(const Keel::DedupContentHandle& content) const {
    const auto& c = static_cast<const ClusterListContent&>(content);
    return equals(c.originatorId(), c.clusterId());
}

bool ClusterList::operator<(const ClusterList& o) const noexcept {
    return clusterListLess(originatorId_, clusterId(), o.originatorId_, o.clusterId());
}

std::ostream& operator<<(std::ostream& os, const ClusterList& l) {
    return os << l.toStrep();
}

// ---- stored lists

namespace {

const ClusterList* storedList(const void* stored) noexcept {
    return static_cast<const ClusterList*>(static_cast<const Keel::DedupHandleBase*>(stored));
}

const ClusterListStashReader& readerFor(const void* stored) {
    ORV_ASSERT(nullptr != stored);
    const auto* obj = static_cast<const Keel::DedupHandleBase*>(stored);
    const auto* reader =
        MelStash::StashReaderRegistry::readerFor<ClusterListStashReader>(typeid(*obj));
    ORV_ASSERT(nullptr != reader);
    return *reader;
}

const bool stashReaderRegistered = [] {
    static const ClusterListStashReader reader;
    MelStash::StashReaderRegistry::registerReader(typeid(ClusterList), &reader);
    return true;
}();

} // namespace

Mel::PtrConst<ClusterList> ClusterListStashReader::destash(const void* stored,
                                                           StoreManager::RawPtr) const {
    const ClusterList* l = storedList(stored);
    return ClusterListDedupTable::instance().findOrCreate(l->content());
}

Mel::String ClusterListStashReader::stashStrep(const void* stored, StoreManager::RawPtr) const {
    Mel::String out;
    appendStrep(out, storedList(stored)->clusterId());
    return out;
}

Mel::PtrConst<ClusterList> ClusterList::destash(const void* stored, StoreManager::RawPtr store) {
    return readerFor(stored).destash(stored, store);
}

Mel::String ClusterList::destashStrep(const void* stored, StoreManager::RawPtr store) {
    return readerFor(stored).stashStrep(stored, store);
}

// ---- tables

ClusterListDedupTable& ClusterListDedupTable::instance() {
    static auto* table = new ClusterListDedupTable("ClusterListDedupTable");
    return *table;
}

namespace {
struct ContentEq {
    bool operator()(const ClusterList& l, const ClusterListContent& c) const noexcept {
        return l.equals(c.originatorId(), c.clusterId());
    }
};
} // namespace

Mel::PtrConst<ClusterList> ClusterListDedupTable::find(const ClusterListContent& content) const {
    return DedupTable::find(content.hash(), content, ContentEq{});
}

Mel::PtrConst<ClusterList> clusterListFactory(const ClusterListContent& content) {
    return ClusterListDedupTable::instance().findOrCreate(content);
}

Mel::PtrConst<ClusterList> ClusterListDedupTable::findOrCreate(const ClusterListContent& content) {
    return DedupTable::findOrCreate(
        content.hash(), content, [&content] { return allocClusterListForDedup(content); },
        ContentEq{});
}

// ---- BgpClusterIdSet

BgpClusterIdSet::BgpClusterIdSet() {
    rehash();
}

void BgpClusterIdSet::rehash() noexcept {
    Keel::HashMix m(0);
    m.hashMix(static_cast<uint32_t>(clusterIds_.size()));
    m.hashMix(idHashSum_);
    hashIs(m.result());
}

namespace {
uint64_t idHash(Orvnet::IpAddr id) noexcept {
    Keel::HashMix m(0);
    m.hashMix(id.networkOrder());
    return m.result();
}
} // namespace

void BgpClusterIdSet::clusterIdsIs(Orvnet::IpAddr id) {
    ORV_ASSERT(!everDeduped());
    if (clusterIds_.insert(id).second) {
        idHashSum_ += idHash(id);
        rehash();
    }
}

void BgpClusterIdSet::clusterIdsDel(Orvnet::IpAddr id) {
    ORV_ASSERT(!everDeduped());
    if (clusterIds_.erase(id)) {
        idHashSum_ -= idHash(id);
        rehash();
    }
}

void BgpClusterIdSet::clusterIdsDelAll() {
    ORV_ASSERT(!everDeduped());
    clusterIds_.clear();
    idHashSum_ = 0;
    rehash();
}

bool BgpClusterIdSet::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const BgpClusterIdSet*>(other);
    if (o->clusterIds_.size() != clusterIds_.size()) return false;
    for (Orvnet::IpAddr id : clusterIds_)
        if (!o->clusterIds_.contains(id)) return false;
    return true;
}

void BgpClusterIdSet::dumpState(const Mel::PtrConst<Keel::DumpContext>& ctx, int indent) const {
    ctx->printf("%*cclusterIds #%u\n", indent, ' ', static_cast<unsigned>(clusterIds_.size()));
}

Mel::PtrConst<BgpClusterIdSet> BgpClusterIdSet::dedup() const {
    return dedup(BgpClusterIdSetDedupTable::instance());
}

Mel::PtrConst<BgpClusterIdSet> BgpClusterIdSet::dedup(BgpClusterIdSetDedupTable& table) const {
    return table.dedup(Mel::PtrConst<BgpClusterIdSet>(this));
}

BgpClusterIdSetDedupTable& BgpClusterIdSetDedupTable::instance() {
    static auto* table = new BgpClusterIdSetDedupTable("BgpClusterIdSetDedupTable");
    return *table;
}

// ---- ClusterListSnapshot

ClusterListSnapshot::MelClusterId ClusterListSnapshot::clusterIdEnq(OriginatorId id) {
    MelClusterId e{nextIndex_, id};
    ids_.push_back(e);
    ++nextIndex_;
    return e;
}

bool ClusterListSnapshot::clusterIdDeq() noexcept {
    if (ids_.empty()) return false;
    ids_.erase(ids_.begin());
    return true;
}

void ClusterListSnapshot::clusterIdIs(uint32_t index, OriginatorId id) {
    auto it = std::lower_bound(ids_.begin(), ids_.end(), index,
                               [](const MelClusterId& e, uint32_t i) { return e.index < i; });
    if (it != ids_.end() && it->index == index)
        it->id = id;
    else
        ids_.insert(it, MelClusterId{index, id});
    nextIndex_ = std::max(nextIndex_, index + 1);
}

bool ClusterListSnapshot::clusterIdDel(uint32_t index) noexcept {
    auto it = std::lower_bound(ids_.begin(), ids_.end(), index,
                               [](const MelClusterId& e, uint32_t i) { return e.index < i; });
    if (it == ids_.end() || it->index != index) return false;
    ids_.erase(it);
    return true;
}

bool ClusterListSnapshot::clusterIdDel(const MelClusterId& entry) noexcept {
    auto it = std::find(ids_.begin(), ids_.end(), entry);
    if (it == ids_.end()) return false;
    ids_.erase(it);
    return true;
}

ClusterListContent ClusterListSnapshot::content(OriginatorId originatorId) const {
    ClusterListContent c;
    c.originatorIdIs(originatorId);
    for (const MelClusterId& e : ids_)
        c.clusterIdEnq(e.id);
    return c;
}

} // namespace Routing::Bgp
