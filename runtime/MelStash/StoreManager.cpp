#include "MelStash/StoreManager.h"

#define ORV_UNIT "MelStash/StoreManager"
#include "Keel/Assert.h"
#include "Keel/SpinLock.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define ORV_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORV_ASAN 1
#endif
#endif
#ifdef ORV_ASAN
#include <sanitizer/asan_interface.h>
#define ORV_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define ORV_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define ORV_POISON(p, n) ((void)(p), (void)(n))
#define ORV_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace MelStash {

namespace {

constexpr size_t pageShift = StoreManager::pageShift;
constexpr size_t pageSize = size_t(1) << pageShift;
constexpr size_t commitChunk = size_t(4) << 20;
constexpr size_t smallLimit = 1024;
constexpr int smallClasses = smallLimit / 8; // 8, 16, ... 1024
constexpr int largeClasses = 8 * (20 - 10);  // eight per doubling, 1 KiB to 1 MiB
constexpr int numClasses = smallClasses + largeClasses;

int classOf(size_t size) noexcept {
    if (size <= smallLimit) return size == 0 ? 0 : static_cast<int>((size + 7) / 8 - 1);
    int k = 63 - __builtin_clzll(size - 1); // size in (2^k, 2^(k+1)]
    size_t step = size_t(1) << (k - 3);
    size_t over = size - (size_t(1) << k);
    return smallClasses + (k - 10) * 8 + static_cast<int>((over + step - 1) / step) - 1;
}

size_t classSize(int c) noexcept {
    if (c < smallClasses) return size_t(c + 1) * 8;
    int k = (c - smallClasses) / 8 + 10;
    int j = (c - smallClasses) % 8 + 1;
    return (size_t(1) << k) + size_t(j) * (size_t(1) << (k - 3));
}

struct SizeClass {
    Keel::SpinLock spin;
    void* freeList = nullptr;
    char* cur = nullptr;
    char* end = nullptr;
    std::atomic<int64_t> live{0};
};

std::atomic<TypeStats*> statsHead{nullptr};

size_t reserveSize() {
    if (const char* env = std::getenv("ORV_STORE_RESERVE_MB")) {
        size_t mb = std::strtoull(env, nullptr, 10);
        if (mb >= 64) return mb << 20;
    }
#if defined(__SANITIZE_THREAD__)
    return size_t(4) << 30;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
    return size_t(4) << 30;
#endif
#endif
    return size_t(32) << 30; // 2^32 references of 8 bytes
}

} // namespace

struct StoreManager::Impl {
    SizeClass classes[numClasses];
    std::mutex growMutex;
    size_t top = pageSize; // first page never used: reference 0 is null
    uint8_t* pageClass = nullptr;
};

TypeStats::TypeStats(const char* n, Kind k) : name(n), kind(k) {
    StoreManager::registerStats(this);
}

void StoreManager::registerStats(TypeStats* s) noexcept {
    TypeStats* head = statsHead.load(std::memory_order_relaxed);
    do {
        s->next = head;
    } while (!statsHead.compare_exchange_weak(head, s, std::memory_order_release,
                                              std::memory_order_relaxed));
}

std::vector<TypeStatsSnapshot> StoreManager::typeStats() {
    std::vector<TypeStatsSnapshot> out;
    for (TypeStats* s = statsHead.load(std::memory_order_acquire); s; s = s->next)
        out.push_back({s->name, s->kind, s->objects.load(), s->bytes.load(), s->created.load()});
    std::reverse(out.begin(), out.end());
    return out;
}

StoreManager& StoreManager::instance() noexcept {
    static StoreManager* store = new StoreManager(); // never destroyed: objects may outlive statics
    return *store;
}

StoreManager::StoreManager() : impl_(new Impl) {
    size_t want = reserveSize();
    void* region = MAP_FAILED;
    constexpr size_t hugePage = size_t(2) << 20;
    while (want >= (size_t(64) << 20)) {
        region = mmap(nullptr, want + hugePage, PROT_NONE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (region != MAP_FAILED) break;
        want /= 2;
    }
    ORV_ASSERT(region != MAP_FAILED);
    // Aligned to a huge page, and asked for huge pages: a store of millions of objects then costs
    // one page fault and one TLB entry per 2 MiB rather than per 4 KiB. Resident memory grows by
    // at most one huge page beyond what is committed and touched.
    base_ = reinterpret_cast<char*>((uintptr_t(region) + hugePage - 1) & ~uintptr_t(hugePage - 1));
    reserved_ = want;
#ifdef MADV_HUGEPAGE
    madvise(base_, reserved_, MADV_HUGEPAGE);
#endif
    size_t pages = want >> pageShift;
    void* table = mmap(nullptr, pages, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ORV_ASSERT(table != MAP_FAILED);
    impl_->pageClass = static_cast<uint8_t*>(table);
    pageClass_ = impl_->pageClass;
}

void* StoreManager::allocate(size_t size, TypeStats& stats) {
    if (size > maxAllocation) throw std::bad_alloc();
    int c = classOf(size);
    size_t cs = classSize(c);
    SizeClass& sc = impl_->classes[c];
    void* p;
    {
        std::lock_guard lock(sc.spin);
        if (sc.freeList) {
            p = sc.freeList;
            ORV_UNPOISON(p, sizeof(void*));
            sc.freeList = *static_cast<void**>(p);
        } else {
            // By distance: the class starts with no slab (cur and end null), and null + cs is
            // undefined.
            if (static_cast<size_t>(sc.end - sc.cur) < cs) {
                size_t slab = std::max(pageSize, (cs + pageSize - 1) & ~(pageSize - 1));
                std::lock_guard grow(impl_->growMutex);
                size_t top = impl_->top;
                if (top + slab > reserved_) throw std::bad_alloc();
                size_t committed = committed_.load(std::memory_order_relaxed);
                if (top + slab > committed) {
                    size_t need = (top + slab - committed + commitChunk - 1) & ~(commitChunk - 1);
                    if (committed + need > reserved_) need = reserved_ - committed;
                    if (mprotect(base_ + committed, need, PROT_READ | PROT_WRITE) != 0)
                        throw std::bad_alloc();
                    committed_.fetch_add(need, std::memory_order_relaxed);
                }
                for (size_t pg = top >> pageShift; pg < (top + slab) >> pageShift; ++pg)
                    impl_->pageClass[pg] = static_cast<uint8_t>(c + 1);
                impl_->top = top + slab;
                sc.cur = base_ + top;
                sc.end = sc.cur + slab;
                ORV_POISON(sc.cur, slab);
            }
            p = sc.cur;
            sc.cur += cs;
        }
    }
    ORV_UNPOISON(p, cs);
    sc.live.fetch_add(1, std::memory_order_relaxed);
    stats.objects.fetch_add(1, std::memory_order_relaxed);
    stats.created.fetch_add(1, std::memory_order_relaxed);
    stats.bytes.fetch_add(static_cast<int64_t>(cs), std::memory_order_relaxed);
    return p;
}

size_t StoreManager::blockSize(const void* p) const noexcept {
    size_t off = static_cast<size_t>(static_cast<const char*>(p) - base_);
    return classSize(impl_->pageClass[off >> pageShift] - 1);
}

void StoreManager::deallocate(void* p, TypeStats& stats) noexcept {
    if (!p) return;
    ORV_ASSERT(contains(p));
    size_t off = static_cast<size_t>(static_cast<char*>(p) - base_);
    int c = impl_->pageClass[off >> pageShift] - 1;
    ORV_ASSERT(c >= 0);
    size_t cs = classSize(c);
    SizeClass& sc = impl_->classes[c];
    ORV_POISON(p, cs);
    {
        std::lock_guard lock(sc.spin);
        ORV_UNPOISON(p, sizeof(void*));
        *static_cast<void**>(p) = sc.freeList;
        ORV_POISON(p, sizeof(void*));
        sc.freeList = p;
    }
    sc.live.fetch_sub(1, std::memory_order_relaxed);
    stats.objects.fetch_sub(1, std::memory_order_relaxed);
    stats.bytes.fetch_sub(static_cast<int64_t>(cs), std::memory_order_relaxed);
}

int64_t StoreManager::liveBytes() const noexcept {
    int64_t total = 0;
    for (int c = 0; c < numClasses; ++c)
        total += impl_->classes[c].live.load(std::memory_order_relaxed) *
                 static_cast<int64_t>(classSize(c));
    return total;
}

int64_t StoreManager::liveObjects() const noexcept {
    int64_t total = 0;
    for (int c = 0; c < numClasses; ++c)
        total += impl_->classes[c].live.load(std::memory_order_relaxed);
    return total;
}

} // namespace MelStash
