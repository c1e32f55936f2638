#include "Keel/DedupTable.h"

#define ORV_UNIT "Keel/DedupTable"
#include "Keel/Assert.h"
#include "Keel/RefSet.h"
#include "Keel/SpinLock.h"
#include "Mel/Exception.h"
#include "MelStash/StoreManager.h"

#include <cstdlib>
#include <map>
#include <mutex>
#include <typeinfo>
#include <vector>

namespace Keel {

namespace {

using MelStash::StoreManager;

inline const DedupHandleBase* obj(uint32_t ref) noexcept {
    return static_cast<const DedupHandleBase*>(StoreManager::expand(ref));
}

uint32_t hashOfRef(uint32_t ref) {
    return obj(ref)->hash();
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

// One cache line each, so threads working in different shards do not contend for one line.
struct alignas(64) DedupTableBase::Shard {
    RefSet set;
    Keel::SpinLock spin;
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

DedupTableBase::DedupTableBase(std::string name, bool multiThreaded, Sharding sharding)
    : name_(std::move(name)), multiThreaded_(multiThreaded) {
    bool sharded = multiThreaded_ && sharding == Sharding::sixteenShards;
    numShards_ = sharded ? 16 : 1;
    shardShift_ = sharded ? 28 : 32;
    {
        std::lock_guard lock(registryMutex);
        stats_ = statsForName(name_);
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
    // The store's line for the table counts the shards' arrays; memoryBytes() adds the shards.
    shards_.reset(new Shard[numShards_]);
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
        std::vector<uint32_t> refs;
        refs.reserve(sh.set.size());
        sh.set.forEach([&refs](uint32_t r) { refs.push_back(r); });
        sh.set.clear(&stats_->bytes);
        for (uint32_t r : refs) {
            const DedupHandleBase* o = obj(r);
            // deduped (1) becomes detached (3) and the table's hold goes, in one step.
            uint32_t before = o->word_.fetch_add((uint32_t(2) << DedupHandleBase::stateShift) - 1,
                                                 std::memory_order_acq_rel);
            if ((before & DedupHandleBase::countMask) == 1) o->destroy();
        }
    }
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
        n += shards_[i].set.memoryBytes() + sizeof(Shard);
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
    uint32_t i = sh.set.find(hash, [eq, ctx](uint32_t r) { return eq(ctx, obj(r)); });
    if (i == RefSet::npos) return nullptr;
    const DedupHandleBase* o = obj(sh.set.refAt(i));
    o->refInc();
    return const_cast<DedupHandleBase*>(o);
}

void DedupTableBase::insertLocked(Shard& sh, const DedupHandleBase* o, uint32_t hash) noexcept {
    ORV_ASSERT_TEXT(StoreManager::contains(o), "interned object outside the store");
    ORV_ASSERT(o->dedupState() == DedupHandleState::neverDeduped);
    // The registry lists this table for the object's type; most tables see one or a few types,
    // so the last one listed is remembered.
    const std::type_info* type = &typeid(*o);
    if (type != lastTypeListed_.load(std::memory_order_relaxed)) {
        if (!listsTable(ownersOf(type), index_)) {
            std::lock_guard lock(registryMutex);
            addOwnerLocked(type, index_);
        }
        lastTypeListed_.store(type, std::memory_order_relaxed);
    }
    // neverDeduped (0) becomes deduped (1) and the table's hold is taken, in one step.
    uint32_t before = o->word_.fetch_add((uint32_t(1) << DedupHandleBase::stateShift) + 1,
                                         std::memory_order_acq_rel);
    if ((before & DedupHandleBase::countMask) >= DedupHandleBase::maxRefCount)
        o->refIncRejected(before);
    sh.set.insert(hash, StoreManager::compress(o), &hashOfRef, &stats_->bytes);
}

DedupHandleBase* DedupTableBase::findOrCreateImpl(uint32_t hash, EqFn eq, const void* eqCtx,
                                                  MakeFn make, void* makeCtx) {
    Shard& sh = shardFor(hash);
    ShardLock lock(sh.spin, multiThreaded_);
    uint32_t i = sh.set.find(hash, [eq, eqCtx](uint32_t r) { return eq(eqCtx, obj(r)); });
    if (i != RefSet::npos) {
        const DedupHandleBase* o = obj(sh.set.refAt(i));
        o->refInc();
        return const_cast<DedupHandleBase*>(o);
    }
    DedupHandleBase* o = make(makeCtx);
    if (!o) return nullptr;
#ifndef NDEBUG
    ORV_ASSERT_TEXT(o->hash() == hash, "made object's hash differs from the lookup hash");
#endif
    o->word_.fetch_add(1, std::memory_order_relaxed); // the caller's
    insertLocked(sh, o, hash);
    return o;
}

DedupHandleBase* DedupTableBase::dedupImpl(const DedupHandleBase* o) {
    uint32_t hash = o->hash();
    Shard& sh = shardFor(hash);
    ShardLock lock(sh.spin, multiThreaded_);
    uint32_t i = sh.set.find(hash, [o](uint32_t r) { return o->compare(obj(r)); });
    // An object interned here already finds itself: it is returned as it is.
    const DedupHandleBase* result = i != RefSet::npos ? obj(sh.set.refAt(i)) : o;
    if (i == RefSet::npos) insertLocked(sh, o, hash);
    result->refInc();
    return const_cast<DedupHandleBase*>(result);
}

bool DedupTableBase::releaseLast(const DedupHandleBase* o) noexcept {
    bool destroy = false;
    {
        uint32_t hash = o->hash();
        Shard& sh = shardFor(hash);
        ShardLock lock(sh.spin, multiThreaded_);
        uint32_t ref = StoreManager::compress(o);
        uint32_t i = sh.set.find(hash, [ref](uint32_t r) { return r == ref; });
        if (i == RefSet::npos) return false; // another table's object
        uint32_t before = o->word_.fetch_sub(1, std::memory_order_acq_rel);
        if ((before & DedupHandleBase::countMask) == 2) {
            sh.set.eraseAt(i, &hashOfRef, &stats_->bytes);
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
    uint32_t ref = StoreManager::compress(o);
    return sh.set.find(hash, [ref](uint32_t r) { return r == ref; }) != RefSet::npos;
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
