#include "Keel/RefSet.h"

#define ORV_UNIT "Keel/RefSet"
#include "Keel/Assert.h"

#include <new>

namespace Keel {

namespace {
// A packed group is one cache line.
constexpr std::align_val_t arrayAlign{64};
} // namespace

void RefSet::place(uint32_t hash, uint32_t ref) noexcept {
    const uint8_t bit = overflowBit(hash);
    uint8_t* over = overflow();
    uint32_t g = home(hash);
    for (;;) {
        uint32_t free;
        if (wide_) {
            __m128i c = _mm_load_si128(reinterpret_cast<const __m128i*>(ctrl_) + g);
            free = ~uint32_t(_mm_movemask_epi8(c)) & 0xffff; // a free slot has its high bit clear
        } else {
            // A free slot is 0; a full one's tag never is.
            free = packedMatch(packedSlots() + size_t(g) * groupSlots, _mm_setzero_si128());
        }
        if (free) {
            uint32_t i = g * groupSlots + uint32_t(__builtin_ctz(free));
            if (wide_) {
                ctrl_[i] = tagOf(hash);
                wideRefs()[i] = ref;
            } else {
                packedSlots()[i] = packedTagOf(hash) << packedRefBits | ref;
            }
            ++size_;
            return;
        }
        over[g] |= bit;
        if (++g == groups_) g = 0;
    }
}

uint32_t RefSet::groupsFor(uint32_t entries) noexcept {
    uint64_t slots = uint64_t(entries) * 100 / targetLoadPercent + 1;
    uint64_t groups = (slots + groupSlots - 1) / groupSlots;
    ORV_ASSERT_TEXT(groups * groupSlots < npos, "intern table larger than 2^32 slots");
    return uint32_t(groups ? groups : 1);
}

void RefSet::rehash(uint32_t groups, bool forceWide, HashOf hashOf, Counter bytes) {
    const uint8_t* oldArray = ctrl_;
    const uint32_t oldGroups = groups_;
    const bool oldWide = wide_;
    // Only a wide set can hold a reference too large to pack.
    bool wide = forceWide;
    for (uint32_t i = 0; !wide && oldWide && i < capacity(); ++i)
        wide = full(i) && refAt(i) >= packedLimit;
    // Read the old entries through a set that still describes the old array.
    RefSet old;
    old.ctrl_ = ctrl_;
    old.groups_ = oldGroups;
    old.wide_ = oldWide;

    size_t n = arrayBytes(groups, wide);
    ctrl_ = static_cast<uint8_t*>(::operator new(n, arrayAlign));
    std::memset(ctrl_, 0, n);
    groups_ = groups;
    wide_ = wide;
    size_ = 0;
    stale_ = 0;
    if (bytes)
        bytes->fetch_add(int64_t(n) - int64_t(arrayBytes(oldGroups, oldWide)),
                         std::memory_order_relaxed);
    old.forEach([&](uint32_t ref) { place(hashOf(ref), ref); });
    old.ctrl_ = nullptr;
    old.groups_ = 0;
    if (oldArray) ::operator delete(const_cast<uint8_t*>(oldArray), arrayAlign);
}

void RefSet::insert(uint32_t hash, uint32_t ref, HashOf hashOf, Counter bytes) {
    ORV_ASSERT(ref != 0);
    if (100 * (uint64_t(size_) + 1) > maxLoadPercent * uint64_t(capacity()))
        rehash(groupsFor(size_ + 1), ref >= packedLimit, hashOf, bytes);
    else if (!wide_ && ref >= packedLimit)
        rehash(groups_, true, hashOf, bytes);
    place(hash, ref);
}

void RefSet::eraseAt(uint32_t slot, HashOf hashOf, Counter bytes) {
    ORV_ASSERT(slot < capacity() && full(slot));
    if (wide_)
        ctrl_[slot] = 0;
    else
        packedSlots()[slot] = 0;
    --size_;
    if (overflow()[slot / groupSlots]) ++stale_;
    if (size_ == 0)
        clear(bytes);
    else if (groups_ > 1 && 100 * uint64_t(size_) < minLoadPercent * uint64_t(capacity()))
        rehash(groupsFor(size_), false, hashOf, bytes);
    else if (8 * uint64_t(stale_) > capacity())
        rehash(groups_, false, hashOf, bytes); // clears overflow bits that no entry needs any more
}

void RefSet::clear(Counter bytes) noexcept {
    if (bytes) bytes->fetch_sub(int64_t(arrayBytes(groups_, wide_)), std::memory_order_relaxed);
    if (ctrl_) ::operator delete(ctrl_, arrayAlign);
    ctrl_ = nullptr;
    groups_ = size_ = stale_ = 0;
    wide_ = false;
}

} // namespace Keel
