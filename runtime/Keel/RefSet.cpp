#include "Keel/RefSet.h"

#define ORV_UNIT "Keel/RefSet"
#include "Keel/Assert.h"

#include <new>

namespace Keel {

void RefSet::place(uint32_t hash, uint32_t ref) noexcept {
    uint32_t p = home(hash);
    for (;;) {
        // A free slot (empty or removed) has its high bit clear.
        if (uint64_t m = ~load(p) & highBits) {
            uint32_t i = p + uint32_t(__builtin_ctzll(m) >> 3);
            if (i >= cap_) i -= cap_;
            if (ctrl_[i] == 1) --removed_;
            ctrlIs(i, uint8_t(tagOf(hash)));
            slots()[i] = ref;
            ++size_;
            return;
        }
        p += window;
        if (p >= cap_) p -= cap_;
    }
}

uint32_t RefSet::capacityFor(uint32_t entries) noexcept {
    uint64_t want = uint64_t(entries) * 100 / targetLoadPercent + 1;
    ORV_ASSERT_TEXT(want < npos, "intern table larger than 2^32 slots");
    return uint32_t(want < window ? window : want);
}

void RefSet::rehash(uint32_t newCap, HashOf hashOf, Counter bytes) {
    uint8_t* oldCtrl = ctrl_;
    uint32_t oldCap = cap_;
    uint32_t* oldSlots = slots();
    size_t n = arrayBytes(newCap);
    ctrl_ = static_cast<uint8_t*>(::operator new(n));
    std::memset(ctrl_, 0, slotsOffset(newCap));
    cap_ = newCap;
    size_ = 0;
    removed_ = 0;
    if (bytes)
        bytes->fetch_add(int64_t(n) - int64_t(arrayBytes(oldCap)), std::memory_order_relaxed);
    for (uint32_t i = 0; i < oldCap; ++i)
        if (oldCtrl[i] & 0x80) place(hashOf(oldSlots[i]), oldSlots[i]);
    ::operator delete(oldCtrl);
}

void RefSet::insert(uint32_t hash, uint32_t ref, HashOf hashOf, Counter bytes) {
    // Full and removed slots stay at or below maxLoadPercent of the capacity; a rehash leaves
    // the entries at targetLoadPercent (removed slots are dropped, so a set that only churns keeps
    // its size).
    if (100 * (uint64_t(size_) + removed_ + 1) > maxLoadPercent * uint64_t(cap_))
        rehash(capacityFor(size_ + 1), hashOf, bytes);
    place(hash, ref);
}

void RefSet::eraseAt(uint32_t slot, HashOf hashOf, Counter bytes) {
    ORV_ASSERT(slot < cap_ && (ctrl_[slot] & 0x80));
    uint32_t next = slot + 1 == cap_ ? 0 : slot + 1;
    // Every probe that reaches this slot for a later entry continues to the next one; when that is
    // empty, no entry lies beyond, and this slot can be empty too.
    if (ctrl_[next] == 0) {
        ctrlIs(slot, 0);
    } else {
        ctrlIs(slot, 1);
        ++removed_;
    }
    --size_;
    if (size_ == 0)
        clear(bytes);
    else if (cap_ > window && 100 * uint64_t(size_) < minLoadPercent * uint64_t(cap_))
        rehash(capacityFor(size_), hashOf, bytes);
}

void RefSet::clear(Counter bytes) noexcept {
    if (bytes) bytes->fetch_sub(int64_t(arrayBytes(cap_)), std::memory_order_relaxed);
    ::operator delete(ctrl_);
    ctrl_ = nullptr;
    cap_ = size_ = removed_ = 0;
}

} // namespace Keel
