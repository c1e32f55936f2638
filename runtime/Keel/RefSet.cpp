#include "Keel/RefSet.h"

#define ORV_UNIT "Keel/RefSet"
#include "Keel/Assert.h"

#include <new>

namespace Keel {

namespace {
constexpr std::align_val_t arrayAlign{16};
}

void RefSet::place(uint32_t hash, uint32_t ref) noexcept {
    const uint8_t bit = overflowBit(hash);
    uint32_t g = home(hash);
    for (;;) {
        __m128i c = _mm_load_si128(reinterpret_cast<const __m128i*>(ctrl_) + g);
        // A free slot has its high bit clear.
        if (uint32_t free = ~uint32_t(_mm_movemask_epi8(c)) & 0xffff) {
            uint32_t i = g * groupSlots + uint32_t(__builtin_ctz(free));
            ctrl_[i] = tagOf(hash);
            slots()[i] = ref;
            ++size_;
            return;
        }
        overflow()[g] |= bit;
        if (++g == groups_) g = 0;
    }
}

uint32_t RefSet::groupsFor(uint32_t entries) noexcept {
    uint64_t slots = uint64_t(entries) * 100 / targetLoadPercent + 1;
    uint64_t groups = (slots + groupSlots - 1) / groupSlots;
    ORV_ASSERT_TEXT(groups * groupSlots < npos, "intern table larger than 2^32 slots");
    return uint32_t(groups ? groups : 1);
}

void RefSet::rehash(uint32_t groups, HashOf hashOf, Counter bytes) {
    uint8_t* oldCtrl = ctrl_;
    uint32_t oldGroups = groups_;
    uint32_t* oldSlots = slots();
    size_t n = arrayBytes(groups);
    ctrl_ = static_cast<uint8_t*>(::operator new(n, arrayAlign));
    std::memset(ctrl_, 0, slotsOffset(groups));
    groups_ = groups;
    size_ = 0;
    stale_ = 0;
    if (bytes)
        bytes->fetch_add(int64_t(n) - int64_t(arrayBytes(oldGroups)), std::memory_order_relaxed);
    for (uint32_t i = 0; i < oldGroups * groupSlots; ++i)
        if (oldCtrl[i] & 0x80) place(hashOf(oldSlots[i]), oldSlots[i]);
    if (oldCtrl) ::operator delete(oldCtrl, arrayAlign);
}

void RefSet::insert(uint32_t hash, uint32_t ref, HashOf hashOf, Counter bytes) {
    if (100 * (uint64_t(size_) + 1) > maxLoadPercent * uint64_t(capacity()))
        rehash(groupsFor(size_ + 1), hashOf, bytes);
    place(hash, ref);
}

void RefSet::eraseAt(uint32_t slot, HashOf hashOf, Counter bytes) {
    ORV_ASSERT(slot < capacity() && (ctrl_[slot] & 0x80));
    ctrl_[slot] = 0;
    --size_;
    if (overflow()[slot / groupSlots]) ++stale_;
    if (size_ == 0)
        clear(bytes);
    else if (groups_ > 1 && 100 * uint64_t(size_) < minLoadPercent * uint64_t(capacity()))
        rehash(groupsFor(size_), hashOf, bytes);
    else if (8 * uint64_t(stale_) > capacity())
        rehash(groups_, hashOf, bytes); // clears overflow bits that no entry needs any more
}

void RefSet::clear(Counter bytes) noexcept {
    if (bytes) bytes->fetch_sub(int64_t(arrayBytes(groups_)), std::memory_order_relaxed);
    if (ctrl_) ::operator delete(ctrl_, arrayAlign);
    ctrl_ = nullptr;
    groups_ = size_ = stale_ = 0;
}

} // namespace Keel
