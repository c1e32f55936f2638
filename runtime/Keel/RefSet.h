// The open-addressing set behind the intern tables: 4-byte references, found by a caller's hash and
// equality, with one control byte per slot and one overflow byte per group of sixteen.
//   Keel::RefSet s;  uint32_t i = s.find(h, [&](uint32_t ref) { return ...; });
//   if (i == Keel::RefSet::npos) s.insert(h, ref, hashOf, &bytesCounter);
#pragma once

#include <emmintrin.h>

#include <atomic>
#include <cstdint>
#include <cstring>

namespace Keel {

// Slots come in groups of sixteen, any number of groups (the home group is the hash scaled to the
// group count, not masked). A control byte is 0 for an empty slot and 0x80 | 7 hash bits for a
// full one, so a probe compares 16 bytes at once and dereferences an object only where the hash
// bits agree. A group's overflow byte gets the bit of a hash (one of eight) when an insertion of
// that hash finds the group full and moves on; a probe stops at the first group whose overflow
// byte lacks its hash's bit. Removing an entry just empties its slot: nothing marks it. Overflow
// bits outlive the entries that set them, so once removals from overflowed groups reach an eighth
// of the capacity the set is rebuilt, as it is when it passes maxLoadPercent (rebuilt at
// targetLoadPercent, so it runs 62-87 % full: 5.06 bytes a slot, about 6.8 an entry) or drops
// below minLoadPercent; it frees its array when it empties. The smallest array is one group (88
// bytes). Not thread-safe: the intern table locks around it.
class RefSet {
public:
    static constexpr uint32_t npos = ~uint32_t(0);
    static constexpr uint32_t groupSlots = 16;
    static constexpr uint32_t maxLoadPercent = 87, targetLoadPercent = 62, minLoadPercent = 30;
    // Recomputes an entry's hash when the set is rebuilt.
    using HashOf = uint32_t (*)(uint32_t ref);
    // Counts the array memory it allocates or frees in *bytes when that is given.
    using Counter = std::atomic<int64_t>*;

    RefSet() noexcept = default;
    RefSet(const RefSet&) = delete;
    RefSet& operator=(const RefSet&) = delete;
    // The owner clears the set (with its counter) before it goes.
    ~RefSet() { clear(nullptr); }

    uint32_t size() const noexcept { return size_; }
    uint32_t capacity() const noexcept { return groups_ * groupSlots; }
    size_t memoryBytes() const noexcept { return arrayBytes(groups_); }

    // The slot of the entry with this hash for which eq(ref) holds, or npos.
    template <class Eq>
    uint32_t find(uint32_t hash, Eq&& eq) const {
        if (!groups_) return npos;
        const __m128i tag = _mm_set1_epi8(char(tagOf(hash)));
        const uint8_t bit = overflowBit(hash);
        const uint32_t* refs = slots();
        uint32_t g = home(hash);
        for (uint32_t n = 0; n < groups_; ++n) {
            __m128i c = _mm_load_si128(reinterpret_cast<const __m128i*>(ctrl_) + g);
            for (uint32_t m = uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(c, tag))); m; m &= m - 1) {
                uint32_t i = g * groupSlots + uint32_t(__builtin_ctz(m));
                if (eq(refs[i])) return i;
            }
            if (!(overflow()[g] & bit)) return npos;
            if (++g == groups_) g = 0;
        }
        return npos;
    }
    uint32_t refAt(uint32_t slot) const noexcept { return slots()[slot]; }

    // Adds ref, which the set must not hold; hashOf gives the others' hashes if the set is rebuilt.
    void insert(uint32_t hash, uint32_t ref, HashOf hashOf, Counter bytes);
    void eraseAt(uint32_t slot, HashOf hashOf, Counter bytes);
    // Empties the set and frees its array.
    void clear(Counter bytes) noexcept;

    template <class F>
    void forEach(F&& f) const {
        for (uint32_t i = 0; i < capacity(); ++i)
            if (ctrl_[i] & 0x80) f(slots()[i]);
    }

private:
    static uint8_t tagOf(uint32_t hash) noexcept { return uint8_t(0x80 | (hash & 0x7f)); }
    static uint8_t overflowBit(uint32_t hash) noexcept { return uint8_t(1u << ((hash >> 7) & 7)); }
    // The array: control bytes, one overflow byte per group, then the references.
    static size_t slotsOffset(uint32_t groups) noexcept {
        return (size_t(groups) * (groupSlots + 1) + 3) & ~size_t(3);
    }
    static size_t arrayBytes(uint32_t groups) noexcept {
        return groups ? slotsOffset(groups) + size_t(groups) * groupSlots * sizeof(uint32_t) : 0;
    }
    uint8_t* overflow() const noexcept { return ctrl_ + size_t(groups_) * groupSlots; }
    uint32_t* slots() const noexcept {
        return reinterpret_cast<uint32_t*>(ctrl_ + slotsOffset(groups_));
    }
    // The home group: the hash, mixed so that the bits a sharded table spends on choosing the
    // shard still count, scaled to the group count.
    uint32_t home(uint32_t hash) const noexcept {
        return uint32_t((uint64_t(hash * 0x9E3779B1u) * groups_) >> 32);
    }
    static uint32_t groupsFor(uint32_t entries) noexcept;
    void rehash(uint32_t groups, HashOf hashOf, Counter bytes);
    void place(uint32_t hash, uint32_t ref) noexcept;

    uint8_t* ctrl_ = nullptr;
    uint32_t groups_ = 0;
    uint32_t size_ = 0;
    uint32_t stale_ = 0; // removals from groups with overflow bits since the last rebuild
};

} // namespace Keel
