#include "census/RouteTable.h"

#include <sys/mman.h>

namespace Census {

namespace {
constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kPage = size_t(4) << 10;
constexpr size_t kMapped = size_t(64) << 10;
constexpr size_t kHuge = size_t(1) << 20;
size_t mappedSize(size_t bytes) noexcept {
    const size_t unit = bytes >= kHuge ? kHugePage : kPage;
    return (bytes + unit - 1) & ~(unit - 1);
}
} // namespace

void* routeTableAllocate(size_t bytes) {
    if (bytes < kMapped) return ::operator new(bytes);
    const size_t size = mappedSize(bytes);
    if (bytes < kHuge) {
        // Every slot is written at once: the pages come in one call instead of a fault each.
        void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        if (p == MAP_FAILED) throw std::bad_alloc();
        return p;
    }
    // A huge page more than needed, so that a 2 MiB-aligned run can be kept and the rest returned.
    void* raw =
        mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) throw std::bad_alloc();
    const uintptr_t start = uintptr_t(raw);
    const uintptr_t aligned = (start + kHugePage - 1) & ~uintptr_t(kHugePage - 1);
    if (aligned > start) munmap(raw, aligned - start);
    if (const size_t tail = start + size + kHugePage - (aligned + size))
        munmap(reinterpret_cast<void*>(aligned + size), tail);
    void* p = reinterpret_cast<void*>(aligned);
#ifdef MADV_HUGEPAGE
    madvise(p, size, MADV_HUGEPAGE);
#endif
#ifdef MADV_POPULATE_WRITE
    // Best effort (Linux 5.14 on): where it is refused, the pages fault in as the slots are set.
    madvise(p, (bytes + kPage - 1) & ~(kPage - 1), MADV_POPULATE_WRITE);
#endif
    return p;
}

void routeTableDeallocate(void* p, size_t bytes) noexcept {
    if (bytes < kMapped)
        ::operator delete(p);
    else
        munmap(p, mappedSize(bytes));
}

} // namespace Census
