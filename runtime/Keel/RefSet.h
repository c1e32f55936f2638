// The open-addressing set behind the intern tables: 4-byte references, found by a caller's hash and
// equality, with 7 hash bits per slot to filter on and one overflow byte per group of sixteen.
//   Keel::RefSet s;  uint32_t i = s.find(h, [&](uint32_t ref) { return ...; });
//   if (i == Keel::RefSet::npos) s.insert(h, ref, hashOf, &bytesCounter);
#pragma once

#include <emmintrin.h>

#include <atomic>
#include <cstdint>
#include <cstring>

namespace Keel {

// Slots come in groups of sixteen, any number of groups (the home group is the hash scaled to the
// group count, not masked). Each full slot carries 7 bits of its entry's hash, so a probe compares
// a whole group at once and dereferences an object only where the hash bits agree. Two layouts:
// - packed (while every reference held is below 2^25, i.e. its object lies in the store's first
//   256 MiB): a slot is one 32-bit word, the hash bits above a 25-bit reference, 0 when empty; a
//   group is one 64-byte cache line. 4.06 bytes a slot.
// - wide (once a reference of 2^25 or more arrives): one control byte per slot (0 empty, 0x80 | 7
//   hash bits full) and the 4-byte references in an array of their own. 5.06 bytes a slot.
// A set starts packed and turns wide when a larger reference is inserted; a rebuild picks the
// layout again from the references it holds. A group's overflow byte gets the bit of a hash (one
// of eight) when an insertion of that hash finds the group full and moves on; a probe stops at
// the first group whose overflow byte lacks its hash's bit. Removing an entry just empties its
// slot: nothing marks it. Overflow bits outlive the entries that set them, so once removals from
// overflowed groups reach an eighth of the capacity the set is rebuilt, as it is when it passes
// maxLoadPercent (rebuilt at targetLoadPercent, so it runs 62-87 % full) or drops below
// minLoadPercent; it frees its array when it empties. The smallest array is one group. Not
// thread-safe: the intern table locks around it.
class RefSet {
public:
    static constexpr uint32_t npos = ~uint32_t(0);
    static constexpr uint32_t groupSlots = 16;
    static constexpr uint32_t maxLoadPercent = 87, targetLoadPercent = 62, minLoadPercent = 30;
    // References below packedLimit fit a packed slot.
    static constexpr uint32_t packedRefBits = 25, packedLimit = 1u << packedRefBits;
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
    size_t memoryBytes() const noexcept { return arrayBytes(groups_, wide_); }
    bool wide() const noexcept { return wide_; }

    // The slot of the entry with this hash for which eq(ref) holds, or npos.
    template <class Eq>
    uint32_t find(uint32_t hash, Eq&& eq) const {
        if (!groups_) return npos;
        const uint8_t bit = overflowBit(hash);
        const uint8_t* over = overflow();
        uint32_t g = home(hash);
        if (!wide_) {
            const __m128i tag = _mm_set1_epi8(char(packedTagOf(hash)));
            const uint32_t* words = packedSlots();
            for (uint32_t n = 0; n < groups_; ++n) {
                for (uint32_t m = packedMatch(words + size_t(g) * groupSlots, tag); m; m &= m - 1) {
                    uint32_t i = g * groupSlots + uint32_t(__builtin_ctz(m));
                    if (eq(words[i] & (packedLimit - 1))) return i;
                }
                if (!(over[g] & bit)) return npos;
                if (++g == groups_) g = 0;
            }
            return npos;
        }
        const __m128i tag = _mm_set1_epi8(char(tagOf(hash)));
        const uint32_t* refs = wideRefs();
        for (uint32_t n = 0; n < groups_; ++n) {
            __m128i c = _mm_load_si128(reinterpret_cast<const __m128i*>(ctrl_) + g);
            for (uint32_t m = uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(c, tag))); m; m &= m - 1) {
                uint32_t i = g * groupSlots + uint32_t(__builtin_ctz(m));
                if (eq(refs[i])) return i;
            }
            if (!(over[g] & bit)) return npos;
            if (++g == groups_) g = 0;
        }
        return npos;
    }
    uint32_t refAt(uint32_t slot) const noexcept {
        return wide_ ? wideRefs()[slot] : packedSlots()[slot] & (packedLimit - 1);
    }

    // Adds ref (not 0), which the set must not hold; hashOf gives the others' hashes if the set is
    // rebuilt.
    void insert(uint32_t hash, uint32_t ref, HashOf hashOf, Counter bytes);
    void eraseAt(uint32_t slot, HashOf hashOf, Counter bytes);
    // Empties the set and frees its array.
    void clear(Counter bytes) noexcept;

    template <class F>
    void forEach(F&& f) const {
        for (uint32_t i = 0; i < capacity(); ++i)
            if (full(i)) f(refAt(i));
    }

private:
    static uint8_t tagOf(uint32_t hash) noexcept { return uint8_t(0x80 | (hash & 0x7f)); }
    // 7 hash bits, never 0, so that an empty packed slot (0) matches no tag.
    static uint32_t packedTagOf(uint32_t hash) noexcept {
        uint32_t t = hash & 0x7f;
        return t | uint32_t(t == 0);
    }
    static uint8_t overflowBit(uint32_t hash) noexcept { return uint8_t(1u << ((hash >> 7) & 7)); }
    // The slots of a packed group whose tag is `tag` (broadcast to every byte), as a 16-bit mask.
    static uint32_t packedMatch(const uint32_t* group, __m128i tag) noexcept {
        auto* v = reinterpret_cast<const __m128i*>(group);
        const int shift = int(packedRefBits);
        // The four words' tags (0-127) narrowed to sixteen bytes, compared at once.
        __m128i lo = _mm_packs_epi32(_mm_srli_epi32(_mm_load_si128(v), shift),
                                     _mm_srli_epi32(_mm_load_si128(v + 1), shift));
        __m128i hi = _mm_packs_epi32(_mm_srli_epi32(_mm_load_si128(v + 2), shift),
                                     _mm_srli_epi32(_mm_load_si128(v + 3), shift));
        return uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_packus_epi16(lo, hi), tag)));
    }
    // Packed: the slots (64-byte groups), then one overflow byte per group. Wide: control bytes,
    // overflow bytes, then the references.
    static size_t wideRefsOffset(uint32_t groups) noexcept {
        return (size_t(groups) * (groupSlots + 1) + 3) & ~size_t(3);
    }
    static size_t arrayBytes(uint32_t groups, bool wide) noexcept {
        if (!groups) return 0;
        size_t slots = size_t(groups) * groupSlots * sizeof(uint32_t);
        return wide ? wideRefsOffset(groups) + slots : slots + groups;
    }
    const uint32_t* packedSlots() const noexcept { return reinterpret_cast<uint32_t*>(ctrl_); }
    uint32_t* packedSlots() noexcept { return reinterpret_cast<uint32_t*>(ctrl_); }
    uint8_t* overflow() const noexcept {
        return ctrl_ + size_t(groups_) * groupSlots * (wide_ ? 1 : sizeof(uint32_t));
    }
    uint32_t* wideRefs() const noexcept {
        return reinterpret_cast<uint32_t*>(ctrl_ + wideRefsOffset(groups_));
    }
    bool full(uint32_t slot) const noexcept {
        return wide_ ? (ctrl_[slot] & 0x80) != 0 : packedSlots()[slot] != 0;
    }
    // The home group: the hash, mixed so that the bits a sharded table spends on choosing the
    // shard still count, scaled to the group count.
    uint32_t home(uint32_t hash) const noexcept {
        return uint32_t((uint64_t(hash * 0x9E3779B1u) * groups_) >> 32);
    }
    static uint32_t groupsFor(uint32_t entries) noexcept;
    // Rebuilds with `groups` groups, wide if forceWide or any reference held needs it.
    void rehash(uint32_t groups, bool forceWide, HashOf hashOf, Counter bytes);
    void place(uint32_t hash, uint32_t ref) noexcept;

    uint8_t* ctrl_ = nullptr; // the array (control bytes first when wide)
    uint32_t groups_ = 0;
    uint32_t size_ = 0;
    uint32_t stale_ = 0; // removals from groups with overflow bits since the last rebuild
    bool wide_ = false;
};

} // namespace Keel
