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
    }
    for (size_t i = 0; i < numShards_; ++i) {
        Shard& sh = shards_[i];
        std::vector<uint32_t> refs(sh.set.begin(), sh.set.end());
        sh.set.clear();
        for (uint32_t r : refs) {
            const DedupHandleBase* o = obj(r);
            o->state_.store(uint32_t(DedupHandleState::detached) << 29 | o->userData(),
                            std::memory_order_release);
            if (o->refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) o->destroy();
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
    o->refs_.fetch_add(1, std::memory_order_relaxed);
    return const_cast<DedupHandleBase*>(o);
}

void DedupTableBase::insertLocked(Shard& sh, const DedupHandleBase* o) noexcept {
    ORV_ASSERT_TEXT(StoreManager::contains(o), "interned object outside the store");
    ORV_ASSERT(o->dedupState() == DedupHandleState::neverDeduped);
    o->state_.store(uint32_t(DedupHandleState::deduped) << 29 |
                        index_ << DedupHandleBase::userDataBits | o->userData(),
                    std::memory_order_release);
    o->refs_.fetch_add(1, std::memory_order_relaxed); // the table's hold
    sh.set.insert(StoreManager::compress(o));
}

DedupHandleBase* DedupTableBase::findOrCreateImpl(uint32_t hash, EqFn eq, const void* eqCtx,
                                                  MakeFn make, void* makeCtx) {
    Shard& sh = shardFor(hash);
    ShardLock lock(sh.spin, multiThreaded_);
    auto it = sh.set.find(LookupKey{hash, eq, eqCtx});
    if (it != sh.set.end()) {
        const DedupHandleBase* o = obj(*it);
        o->refs_.fetch_add(1, std::memory_order_relaxed);
        return const_cast<DedupHandleBase*>(o);
    }
    DedupHandleBase* o = make(makeCtx);
    if (!o) return nullptr;
#ifndef NDEBUG
    ORV_ASSERT_TEXT(o->hash() == hash, "made object's hash differs from the lookup hash");
#endif
    o->refs_.fetch_add(1, std::memory_order_relaxed); // the caller's
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
    result->refs_.fetch_add(1, std::memory_order_relaxed);
    return const_cast<DedupHandleBase*>(result);
}

void DedupTableBase::releaseLast(const DedupHandleBase* o) noexcept {
    bool destroy = false;
    {
        Shard& sh = shardFor(o->hash());
        ShardLock lock(sh.spin, multiThreaded_);
        if (o->refs_.fetch_sub(1, std::memory_order_acq_rel) == 2) {
            size_t erased = sh.set.erase(LookupKey{o->hash(), &identityEq, o});
            ORV_ASSERT(erased == 1);
            o->state_.store(uint32_t(DedupHandleState::beingDestroyed) << 29 | o->userData(),
                            std::memory_order_release);
            o->refs_.store(0, std::memory_order_relaxed);
            destroy = true;
        }
    }
    if (destroy) o->destroy();
}

// ---- DedupHandleBase ----

bool DedupHandleBase::compareByContent(const DedupContentHandle&) const {
    throw Mel::NotImplementedException();
}

void DedupHandleBase::refIncWhilstDetached() const noexcept {
    // A lookup can never reach an object on its way out; anything else that does is a bug.
    ORV_ASSERT_TEXT(dedupState() != DedupHandleState::beingDestroyed,
                    "assertDedupHandleRefIncWhilstDetached");
    std::abort();
}

void DedupHandleBase::refDecSlow() const noexcept {
    uint32_t c = refs_.load(std::memory_order_relaxed);
    for (;;) {
        uint32_t st = state_.load(std::memory_order_acquire);
        if (DedupHandleState(st >> 29) != DedupHandleState::deduped) {
            if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy();
            return;
        }
        ORV_ASSERT_TEXT(c >= 2, "refCount() >= 2");
        if (c == 2) {
            DedupTableBase::tableAt((st >> userDataBits) & 0xfff)->releaseLast(this);
            return;
        }
        if (refs_.compare_exchange_weak(c, c - 1, std::memory_order_acq_rel,
                                        std::memory_order_relaxed))
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
    return isDeduped() ? DedupTableBase::tableAt(tableIndex()) : nullptr;
}

void DedupHandleBase::userBitsIs(unsigned pos, unsigned width, uint32_t value) const noexcept {
    uint32_t mask = ((1u << width) - 1) << pos;
    uint32_t cur = state_.load(std::memory_order_relaxed);
    while (!state_.compare_exchange_weak(cur, (cur & ~mask) | ((value << pos) & mask),
                                         std::memory_order_relaxed)) {
    }
}

} // namespace Keel
