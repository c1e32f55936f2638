#include "census/RouteTable.h"

#include <sys/mman.h>

namespace Census {

namespace {
constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kMapped = size_t(1) << 20;
size_t mappedSize(size_t bytes) noexcept {
    return (bytes + kHugePage - 1) & ~(kHugePage - 1);
}
} // namespace

void* routeTableAllocate(size_t bytes) {
    if (bytes < kMapped) return ::operator new(bytes);
    const size_t size = mappedSize(bytes);
    // A huge page more than needed, so that a 2 MiB-aligned run can be kept and the rest returned.
    void* raw =
        mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) throw std::bad_alloc();
    const uintptr_t start = uintptr_t(raw);
    const uintptr_t aligned = (start + kHugePage - 1) & ~uintptr_t(kHugePage - 1);
    if (aligned > start) munmap(raw, aligned - start);
    if (const size_t tail = start + size + kHugePage - (aligned + size))
        munmap(reinterpret_cast<void*>(aligned + size), tail);
#ifdef MADV_HUGEPAGE
    madvise(reinterpret_cast<void*>(aligned), size, MADV_HUGEPAGE);
#endif
    return reinterpret_cast<void*>(aligned);
}

void routeTableDeallocate(void* p, size_t bytes) noexcept {
    if (bytes < kMapped)
        ::operator delete(p);
    else
        munmap(p, mappedSize(bytes));
}

} // namespace Census
