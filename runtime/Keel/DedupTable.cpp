#include "Keel/DedupTable.h"

#define ORV_UNIT "Keel/DedupTable"
#include "Keel/Assert.h"
#include "Keel/SpinLock.h"
#include "Mel/Exception.h"
#include "MelStash/StoreManager.h"

#include <boost/unordered/unordered_flat_set.hpp>

#include <cstdlib>
#include <map>
#include <mutex>
#include <typeinfo>
#include <vector>

namespace Keel {

namespace {

using MelStash::StoreManager;

// Counts a table's array memory under the table's name.
template <class T>
struct CountingAllocator {
    using value_type = T;
    MelStash::TypeStats* stats;
    explicit CountingAllocator(MelStash::TypeStats* s) noexcept : stats(s) {}
    template <class U>
    CountingAllocator(const CountingAllocator<U>& o) noexcept : stats(o.stats) {}
    T* allocate(size_t n) {
        stats->bytes.fetch_add(static_cast<int64_t>(n * sizeof(T)), std::memory_order_relaxed);
        return std::allocator<T>().allocate(n);
    }
    void deallocate(T* p, size_t n) noexcept {
        stats->bytes.fetch_sub(static_cast<int64_t>(n * sizeof(T)), std::memory_order_relaxed);
        std::allocator<T>().deallocate(p, n);
    }
    template <class U>
    bool operator==(const CountingAllocator<U>& o) const noexcept {
        return stats == o.stats;
    }
};

struct LookupKey {
    uint32_t hash;
    bool (*eq)(const void*, const DedupHandleBase*);
    const void* ctx;
};

inline const DedupHandleBase* obj(uint32_t ref) noexcept {
    return static_cast<const DedupHandleBase*>(StoreManager::expand(ref));
}

struct RefHash {
    using is_transparent = void;
    size_t operator()(uint32_t ref) const noexcept { return obj(ref)->hash(); }
    size_t operator()(const LookupKey& k) const noexcept { return k.hash; }
};

struct RefEq {
    using is_transparent = void;
    bool operator()(uint32_t a, uint32_t b) const noexcept { return a == b; }
    bool operator()(const LookupKey& k, uint32_t ref) const { return k.eq(k.ctx, obj(ref)); }
    bool operator()(uint32_t ref, const LookupKey& k) const { return k.eq(k.ctx, obj(ref)); }
};

using RefSet = boost::unordered_flat_set<uint32_t, RefHash, RefEq, CountingAllocator<uint32_t>>;

bool identityEq(const void* ctx, const DedupHandleBase* o) {
    return ctx == o;
}
bool objectEq(const void* ctx, const DedupHandleBase* o) {
    return static_cast<const DedupHandleBase*>(ctx)->compare(o);
}

constexpr uint32_t maxTables = 4096;
std::mutex registryMutex;
std::atomic<DedupTableBase*> registry[maxTables];
uint32_t registryNext = 1;

// Which tables hold objects of each dynamic type, so an object need not carry its table. Read
// without a lock; written under registryMutex, copy on write: a type's list of table indices is
// replaced whole and the old one kept (never freed, so a reader never sees it go). A type is
// nearly always held by one table; where several live tables hold one type (next hops of several
// contexts), the release asks each table whether the object is its own.
using OwnerList = std::vector<uint16_t>;
constexpr size_t typeSlotBits = 10;
struct TypeOwners {
    std::atomic<const std::type_info*> type{nullptr};
    std::atomic<const OwnerList*> tables{nullptr};
};
TypeOwners typeOwners[size_t(1) << typeSlotBits];
std::vector<std::unique_ptr<const OwnerList>>& retiredOwnerLists() {
    static auto* lists = new std::vector<std::unique_ptr<const OwnerList>>;
    return *lists;
}

size_t typeSlot(const std::type_info* t) noexcept {
    return size_t((reinterpret_cast<uintptr_t>(t) >> 3) * 0x9E3779B97F4A7C15ull >>
                  (64 - typeSlotBits));
}

// The tables that hold objects of type t; null when none ever did.
const OwnerList* ownersOf(const std::type_info* t) noexcept {
    for (size_t i = typeSlot(t), n = 0; n < (size_t(1) << typeSlotBits); ++n) {
        TypeOwners& e = typeOwners[i];
        const std::type_info* k = e.type.load(std::memory_order_acquire);
        if (k == t) return e.tables.load(std::memory_order_acquire);
        if (!k) return nullptr;
        i = (i + 1) & ((size_t(1) << typeSlotBits) - 1);
    }
    return nullptr;
}

bool listsTable(const OwnerList* l, uint32_t index) noexcept {
    if (!l) return false;
    for (uint16_t t : *l)
        if (t == index) return true;
    return false;
}

// Under registryMutex: replaces one type's list with what edit makes of a copy.
template <class Edit>
void editOwnersLocked(TypeOwners& e, Edit edit) {
    const OwnerList* old = e.tables.load(std::memory_order_relaxed);
    auto next = std::make_unique<OwnerList>(old ? *old : OwnerList());
    edit(*next);
    e.tables.store(next.get(), std::memory_order_release);
    retiredOwnerLists().push_back(std::move(next));
}

// Under registryMutex: lists table `index` for type t.
void addOwnerLocked(const std::type_info* t, uint32_t index) {
    size_t i = typeSlot(t);
    for (size_t n = 0;; ++n) {
        ORV_ASSERT_TEXT(n < (size_t(1) << typeSlotBits), "too many interned types");
        const std::type_info* k = typeOwners[i].type.load(std::memory_order_relaxed);
        if (k == t) break;
        if (!k) {
            typeOwners[i].type.store(t, std::memory_order_release);
            break;
        }
        i = (i + 1) & ((size_t(1) << typeSlotBits) - 1);
    }
    if (listsTable(typeOwners[i].tables.load(std::memory_order_relaxed), index)) return;
    editOwnersLocked(typeOwners[i], [index](OwnerList& l) { l.push_back(uint16_t(index)); });
}

MelStash::TypeStats* statsForName(const std::string& name) {
    static std::map<std::string, MelStash::TypeStats*>* byName =
        new std::map<std::string, MelStash::TypeStats*>;
    auto it = byName->find(name);
    if (it != byName->end()) return it->second;
    // TypeStats keeps the name pointer for the process's life: point it at the map's own key,
    // which never moves and is never freed (a separately allocated string would read as a leak).
    it = byName->emplace(name, nullptr).first;
    it->second = new MelStash::TypeStats(it->first.c_str(), MelStash::TypeStats::Kind::tableMemory);
    return it->second;
}

std::atomic<bool>& multiThreadedFlag() {
    static std::atomic<bool> flag{[] {
        const char* env = std::getenv("ORV_MULTI_THREADED");
        return !(env && env[0] == '0');
    }()};
    return flag;
}

} // namespace

bool multiThreadedOrvbgp() noexcept {
    return multiThreadedFlag().load(std::memory_order_relaxed);
}
void multiThreadedOrvbgpIs(bool on) noexcept {
    multiThreadedFlag().store(on, std::memory_order_relaxed);
}

struct alignas(64) DedupTableBase::Shard {
    explicit Shard(MelStash::TypeStats* stats)
        : set(0, RefHash(), RefEq(), CountingAllocator<uint32_t>(stats)) {}
    Keel::SpinLock spin;
    RefSet set;
};

namespace {
// Locks a shard only in the multi-threaded form.
class ShardLock {
public:
    ShardLock(Keel::SpinLock& m, bool on) : m_(on ? &m : nullptr) {
        if (m_) m_->lock();
    }
    ~ShardLock() {
        if (m_) m_->unlock();
    }
    ShardLock(const ShardLock&) = delete;
    ShardLock& operator=(const ShardLock&) = delete;

private:
    Keel::SpinLock* m_;
};
} // namespace

DedupTableBase::DedupTableBase(std::string name, bool multiThreaded)
    : name_(std::move(name)), multiThreaded_(multiThreaded) {
    numShards_ = multiThreaded_ ? 16 : 1;
    shardShift_ = multiThreaded_ ? 28 : 32;
    MelStash::TypeStats* stats;
    {
        std::lock_guard lock(registryMutex);
        stats = statsForName(name_);
        uint32_t idx = 0;
        for (uint32_t n = 0; n < maxTables - 1 && !idx; ++n) {
            uint32_t cand = registryNext;
            registryNext = registryNext + 1 == maxTables ? 1 : registryNext + 1;
            if (!registry[cand].load(std::memory_order_relaxed)) idx = cand;
        }
        ORV_ASSERT_TEXT(idx != 0, "too many intern tables");
        index_ = idx;
        registry[idx].store(this, std::memory_order_release);
    }
    shards_.reset(static_cast<Shard*>(nullptr));
    auto* raw = static_cast<Shard*>(
        ::operator new[](sizeof(Shard) * numShards_, std::align_val_t(alignof(Shard))));
    for (size_t i = 0; i < numShards_; ++i)
        new (&raw[i]) Shard(stats);
    shards_.reset(raw);
}

DedupTableBase::~DedupTableBase() {
    {
        std::lock_guard lock(registryMutex);
        registry[index_].store(nullptr, std::memory_order_release);
        for (TypeOwners& e : typeOwners)
            if (listsTable(e.tables.load(std::memory_order_relaxed), index_))
                editOwnersLocked(e, [this](OwnerList& l) { std::erase(l, uint16_t(index_)); });
    }
    for (size_t i = 0; i < numShards_; ++i) {
        Shard& sh = shards_[i];
        std::vector<uint32_t> refs(sh.set.begin(), sh.set.end());
        sh.set.clear();
        for (uint32_t r : refs) {
            const DedupHandleBase* o = obj(r);
            // deduped (1) becomes detached (3) and the table's hold goes, in one step.
            uint32_t before = o->word_.fetch_add((uint32_t(2) << DedupHandleBase::stateShift) - 1,
                                                 std::memory_order_acq_rel);
            if ((before & DedupHandleBase::countMask) == 1) o->destroy();
        }
        sh.~Shard();
    }
    ::operator delete[](shards_.release(), std::align_val_t(alignof(Shard)));
}

size_t DedupTableBase::size() const noexcept {
    size_t n = 0;
    for (size_t i = 0; i < numShards_; ++i) {
        ShardLock lock(shards_[i].spin, multiThreaded_);
        n += shards_[i].set.size();
    }
    return n;
}

size_t DedupTableBase::memoryBytes() const noexcept {
    size_t n = 0;
    for (size_t i = 0; i < numShards_; ++i) {
        ShardLock lock(shards_[i].spin, multiThreaded_);
        const RefSet& s = shards_[i].set;
        // Slots plus one metadata byte per slot, as the open-addressing layout stores them.
        n += s.bucket_count() * (sizeof(uint32_t) + 1) + sizeof(Shard);
    }
    return n;
}

void DedupTableBase::forEachTable(const std::function<void(const DedupTableBase&)>& f) {
    std::lock_guard lock(registryMutex);
    for (uint32_t i = 1; i < maxTables; ++i)
        if (DedupTableBase* t = registry[i].load(std::memory_order_acquire)) f(*t);
}

DedupTableBase* DedupTableBase::tableAt(uint32_t index) noexcept {
    return index < maxTables ? registry[index].load(std::memory_order_acquire) : nullptr;
}

DedupTableBase::Shard& DedupTableBase::shardFor(uint32_t hash) const noexcept {
    return shards_[shardShift_ >= 32 ? 0 : hash >> shardShift_];
}

DedupHandleBase* DedupTableBase::findImpl(uint32_t hash, EqFn eq, const void* ctx) const {
    Shard& sh = shardFor(hash);
    ShardLock lock(sh.spin, multiThreaded_);
    auto it = sh.set.find(LookupKey{hash, eq, ctx});
    if (it == sh.set.end()) return nullptr;
    const DedupHandleBase* o = obj(*it);
    o->refInc();
    return const_cast<DedupHandleBase*>(o);
}

void DedupTableBase::insertLocked(Shard& sh, const DedupHandleBase* o) noexcept {
    ORV_ASSERT_TEXT(StoreManager::contains(o), "interned object outside the store");
    ORV_ASSERT(o->dedupState() == DedupHandleState::neverDeduped);
    const std::type_info* type = &typeid(*o);
    if (!listsTable(ownersOf(type), index_)) {
        std::lock_guard lock(registryMutex);
        addOwnerLocked(type, index_);
    }
    // neverDeduped (0) becomes deduped (1) and the table's hold is taken, in one step.
    uint32_t before = o->word_.fetch_add((uint32_t(1) << DedupHandleBase::stateShift) + 1,
                                         std::memory_order_acq_rel);
    if ((before & DedupHandleBase::countMask) >= DedupHandleBase::maxRefCount)
        o->refIncRejected(before);
    sh.set.insert(StoreManager::compress(o));
}

DedupHandleBase* DedupTableBase::findOrCreateImpl(uint32_t hash, EqFn eq, const void* eqCtx,
                                                  MakeFn make, void* makeCtx) {
    Shard& sh = shardFor(hash);
    ShardLock lock(sh.spin, multiThreaded_);
    auto it = sh.set.find(LookupKey{hash, eq, eqCtx});
    if (it != sh.set.end()) {
        const DedupHandleBase* o = obj(*it);
        o->refInc();
        return const_cast<DedupHandleBase*>(o);
    }
    DedupHandleBase* o = make(makeCtx);
    if (!o) return nullptr;
#ifndef NDEBUG
    ORV_ASSERT_TEXT(o->hash() == hash, "made object's hash differs from the lookup hash");
#endif
    o->word_.fetch_add(1, std::memory_order_relaxed); // the caller's
    insertLocked(sh, o);
    return o;
}

DedupHandleBase* DedupTableBase::dedupImpl(const DedupHandleBase* o) {
    uint32_t hash = o->hash();
    Shard& sh = shardFor(hash);
    ShardLock lock(sh.spin, multiThreaded_);
    auto it = sh.set.find(LookupKey{hash, &objectEq, o});
    // An object interned here already finds itself: it is returned as it is.
    const DedupHandleBase* result = it != sh.set.end() ? obj(*it) : o;
    if (it == sh.set.end()) insertLocked(sh, o);
    result->refInc();
    return const_cast<DedupHandleBase*>(result);
}

bool DedupTableBase::releaseLast(const DedupHandleBase* o) noexcept {
    bool destroy = false;
    {
        uint32_t hash = o->hash();
        Shard& sh = shardFor(hash);
        ShardLock lock(sh.spin, multiThreaded_);
        auto it = sh.set.find(LookupKey{hash, &identityEq, o});
        if (it == sh.set.end()) return false; // another table's object
        uint32_t before = o->word_.fetch_sub(1, std::memory_order_acq_rel);
        if ((before & DedupHandleBase::countMask) == 2) {
            sh.set.erase(it);
            o->word_.store(uint32_t(DedupHandleState::beingDestroyed)
                               << DedupHandleBase::stateShift,
                           std::memory_order_release);
            destroy = true;
        }
    }
    if (destroy) o->destroy();
    return true;
}

bool DedupTableBase::holds(const DedupHandleBase* o) const noexcept {
    uint32_t hash = o->hash();
    Shard& sh = shardFor(hash);
    ShardLock lock(sh.spin, multiThreaded_);
    return sh.set.find(LookupKey{hash, &identityEq, o}) != sh.set.end();
}

DedupTableBase* DedupTableBase::ownerOf(const DedupHandleBase* o) noexcept {
    const OwnerList* l = ownersOf(&typeid(*o));
    if (!l || l->empty()) return nullptr;
    if (l->size() == 1) return tableAt(l->front());
    for (uint16_t i : *l)
        if (DedupTableBase* t = tableAt(i); t && t->holds(o)) return t;
    return nullptr;
}

// ---- DedupHandleBase ----

bool DedupHandleBase::compareByContent(const DedupContentHandle&) const {
    throw Mel::NotImplementedException();
}

void DedupHandleBase::refIncRejected(uint32_t before) const noexcept {
    // A lookup can never reach an object on its way out; anything else that does is a bug.
    ORV_ASSERT_TEXT((before >> stateShift) != uint32_t(DedupHandleState::beingDestroyed),
                    "assertDedupHandleRefIncWhilstDetached");
    ORV_ASSERT_TEXT((before & countMask) < maxRefCount, "reference count beyond its limit");
    std::abort();
}

void DedupHandleBase::refDecSlow() const noexcept {
    uint32_t w = word_.load(std::memory_order_acquire);
    for (;;) {
        if (DedupHandleState(w >> stateShift) != DedupHandleState::deduped) {
            if ((word_.fetch_sub(1, std::memory_order_acq_rel) & countMask) == 1) destroy();
            return;
        }
        ORV_ASSERT_TEXT((w & countMask) >= 2, "refCount() >= 2");
        if ((w & countMask) == 2) {
            // Possibly the last outside reference: the owning table decides under its lock.
            if (const OwnerList* l = ownersOf(&typeid(*this)))
                for (uint16_t i : *l)
                    if (DedupTableBase* t = DedupTableBase::tableAt(i); t && t->releaseLast(this))
                        return;
            // The table was torn down meanwhile and detached the object: release it as such.
            w = word_.load(std::memory_order_acquire);
            ORV_ASSERT_TEXT(DedupHandleState(w >> stateShift) != DedupHandleState::deduped,
                            "interned object in no table");
            continue;
        }
        if (word_.compare_exchange_weak(w, w - 1, std::memory_order_acq_rel,
                                        std::memory_order_acquire))
            return;
    }
}

void DedupHandleBase::destroy() const noexcept {
    auto* self = const_cast<DedupHandleBase*>(this);
    if (dedupState() != DedupHandleState::neverDeduped) self->handleDestroy();
    delete self;
}

void DedupHandleBase::assertIsDeduped() const noexcept {
    ORV_ASSERT_IN("Keel/DedupHandleBase", isDeduped());
}

DedupTableBase* DedupHandleBase::dedupTable() const noexcept {
    return isDeduped() ? DedupTableBase::ownerOf(this) : nullptr;
}

} // namespace Keel
