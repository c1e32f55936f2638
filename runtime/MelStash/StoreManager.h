// The arena that holds every interned object, addressed by 32-bit compressed references.
//   class ClusterList : public Keel::DedupHandleBase { MELSTASH_STORE_ALLOCATED(ClusterList) ... };
//   uint32_t ref = MelStash::StoreManager::compress(p);  p == MelStash::StoreManager::expand(ref);
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace MelStash {

// Live objects and bytes of one type (or one table's memory). Registered once, never freed.
struct TypeStats {
    enum class Kind : uint8_t { storeObject, tableMemory };
    explicit TypeStats(const char* name, Kind kind = Kind::storeObject);
    TypeStats(const TypeStats&) = delete;
    TypeStats& operator=(const TypeStats&) = delete;

    const char* name;
    Kind kind;
    std::atomic<int64_t> objects{0};
    std::atomic<int64_t> bytes{0};
    std::atomic<int64_t> created{0}; // total ever allocated
    TypeStats* next = nullptr;
};

struct TypeStatsSnapshot {
    std::string name;
    TypeStats::Kind kind;
    int64_t objects;
    int64_t bytes;
    int64_t created;
};

// Extra bytes allocated after an object, for a trailing array: `new (MelStash::ExtraBytes{n})
// X(...)`.
struct ExtraBytes {
    size_t n;
};

// One process-wide store. The region is reserved once (address space only) and committed as it
// fills; allocation is by size class (8-byte steps up to 1 KiB, then eight classes per doubling up
// to 1 MiB), each with its own free list. Which class a block belongs to is kept per 64 KiB page,
// so blocks carry no header. Reference 0 is null: the first page is never handed out.
class StoreManager {
public:
    using RawPtr = StoreManager*;

    static constexpr size_t maxAllocation = size_t(1) << 20;

    static StoreManager& instance() noexcept;

    // Throws std::bad_alloc when the region is exhausted or size exceeds maxAllocation.
    void* allocate(size_t size, TypeStats& stats);
    void deallocate(void* p, TypeStats& stats) noexcept;
    // Usable size of the block p (its size class).
    size_t blockSize(const void* p) const noexcept;
    // The same for a block known to be at most 1 KiB (the 8-byte-step classes), from the page
    // table alone: what a hot path that reads an object's length from its block can afford.
    static size_t smallBlockSize(const void* p) noexcept {
        return size_t(pageClass_[size_t(static_cast<const char*>(p) - base_) >> pageShift]) * 8;
    }
    static constexpr unsigned pageShift = 16; // 64 KiB pages carry the size class of their blocks

    static uint32_t compress(const void* p) noexcept {
        return p ? static_cast<uint32_t>((static_cast<const char*>(p) - base_) >> 3) : 0;
    }
    static void* expand(uint32_t ref) noexcept {
        return ref ? base_ + (static_cast<uint64_t>(ref) << 3) : nullptr;
    }
    static bool contains(const void* p) noexcept {
        auto c = static_cast<const char*>(p);
        return c >= base_ && c < base_ + reserved_;
    }

    size_t reservedBytes() const noexcept { return reserved_; }
    size_t committedBytes() const noexcept { return committed_.load(std::memory_order_relaxed); }
    // Bytes in blocks handed out and not yet freed (by size class), and their number.
    int64_t liveBytes() const noexcept;
    int64_t liveObjects() const noexcept;

    // Every registered TypeStats, in registration order.
    static std::vector<TypeStatsSnapshot> typeStats();
    static void registerStats(TypeStats* s) noexcept;

private:
    StoreManager();
    struct Impl;
    Impl* impl_;
    static inline char* base_ = nullptr;
    static inline size_t reserved_ = 0;
    static inline const uint8_t* pageClass_ = nullptr; // class + 1 per page, 0 for none
    std::atomic<size_t> committed_{0};
};

} // namespace MelStash

// Routes a class's allocation to the store and counts its live objects and bytes under its own
// name. Derived classes that do not repeat it are counted under the nearest class that does.
#define MELSTASH_STORE_ALLOCATED(Class)                                                            \
public:                                                                                            \
    static ::MelStash::TypeStats& melStashTypeStats() noexcept {                                   \
        static ::MelStash::TypeStats stats(#Class);                                                \
        return stats;                                                                              \
    }                                                                                              \
    static void* operator new(size_t size) {                                                       \
        return ::MelStash::StoreManager::instance().allocate(size, melStashTypeStats());           \
    }                                                                                              \
    static void* operator new(size_t size, ::MelStash::ExtraBytes extra) {                         \
        return ::MelStash::StoreManager::instance().allocate(size + extra.n, melStashTypeStats()); \
    }                                                                                              \
    static void operator delete(void* p) noexcept {                                                \
        ::MelStash::StoreManager::instance().deallocate(p, melStashTypeStats());                   \
    }                                                                                              \
    static void operator delete(void* p, ::MelStash::ExtraBytes) noexcept {                        \
        ::MelStash::StoreManager::instance().deallocate(p, melStashTypeStats());                   \
    }                                                                                              \
                                                                                                   \
private:
