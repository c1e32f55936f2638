// The open-addressing set behind the intern tables: 4-byte references, found by a caller's hash and
// equality, with one control byte per slot and nothing else.
//   Keel::RefSet s;  uint32_t i = s.find(h, [&](uint32_t ref) { return ...; });
//   if (i == Keel::RefSet::npos) s.insert(h, ref, hashOf, &bytesCounter);
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

namespace Keel {

// Linear probing over a capacity of any size (not a power of two: the home slot is the hash scaled
// to the capacity), read eight control bytes at a time. A control byte is 0 for an empty slot, 1
// for a removed one and 0x80 | 7 hash bits for a full one, so a probe compares references only
// where those bits agree. Once full and removed slots pass maxLoadPercent of the capacity the set
// is rebuilt at targetLoadPercent, so it runs 70-92 % full: 5 bytes a slot, about 6.2 an entry;
// it shrinks back to targetLoadPercent once fewer than minLoadPercent of its slots hold entries
// (a table that held many paths of an update stream, most since withdrawn, gives the memory
// back), and frees its array when it empties. The smallest array has eight slots (48 bytes).
// Removing an entry whose next slot is empty empties its slot outright. The set itself is 20
// bytes (one pointer to its one array, three counts), so a sharded table's empty shards cost
// little. Not thread-safe: the intern table locks around it.
class RefSet {
public:
    static constexpr uint32_t npos = ~uint32_t(0);
    static constexpr uint32_t window = 8;
    static constexpr uint32_t maxLoadPercent = 92, targetLoadPercent = 70, minLoadPercent = 30;
    // Recomputes an entry's hash when the set grows.
    using HashOf = uint32_t (*)(uint32_t ref);

    // Counts the array memory it allocates or frees in *bytes when that is given.
    using Counter = std::atomic<int64_t>*;

    RefSet() noexcept = default;
    RefSet(const RefSet&) = delete;
    RefSet& operator=(const RefSet&) = delete;
    // The owner clears the set (with its counter) before it goes.
    ~RefSet() { clear(nullptr); }

    uint32_t size() const noexcept { return size_; }
    uint32_t capacity() const noexcept { return cap_; }
    size_t memoryBytes() const noexcept { return arrayBytes(cap_); }

    // The slot of the entry with this hash for which eq(ref) holds, or npos.
    template <class Eq>
    uint32_t find(uint32_t hash, Eq&& eq) const {
        if (!cap_) return npos;
        const uint64_t tag = tagOf(hash) * lowBytes;
        uint32_t p = home(hash);
        for (uint32_t seen = 0; seen < cap_; seen += window) {
            uint64_t w = load(p);
            for (uint64_t m = zeroBytes(w ^ tag); m; m &= m - 1) {
                uint32_t i = p + uint32_t(__builtin_ctzll(m) >> 3);
                if (i >= cap_) i -= cap_;
                if (eq(slots()[i])) return i;
            }
            if (zeroBytes(w)) return npos; // an empty slot ends every probe that passes it
            p += window;
            if (p >= cap_) p -= cap_;
        }
        return npos;
    }
    uint32_t refAt(uint32_t slot) const noexcept { return slots()[slot]; }

    // Adds ref, which the set must not hold; hashOf gives the others' hashes if the set grows.
    void insert(uint32_t hash, uint32_t ref, HashOf hashOf, Counter bytes);
    void eraseAt(uint32_t slot, HashOf hashOf, Counter bytes);
    // Empties the set and frees its array.
    void clear(Counter bytes) noexcept;

    template <class F>
    void forEach(F&& f) const {
        for (uint32_t i = 0; i < cap_; ++i)
            if (ctrl_[i] & 0x80) f(slots()[i]);
    }

private:
    static constexpr uint64_t lowBytes = 0x0101010101010101ull;
    static constexpr uint64_t highBits = 0x8080808080808080ull;

    static uint64_t tagOf(uint32_t hash) noexcept { return 0x80 | (hash & 0x7f); }
    // A mark in each byte of w that is zero (and possibly in bytes after one that is: callers
    // either check candidates or only ask whether any byte is zero).
    static uint64_t zeroBytes(uint64_t w) noexcept { return (w - lowBytes) & ~w & highBits; }
    // The array: control bytes (the capacity, then window - 1 repeated), then the references.
    static size_t slotsOffset(uint32_t cap) noexcept {
        return (size_t(cap) + window - 1 + 3) & ~size_t(3);
    }
    static size_t arrayBytes(uint32_t cap) noexcept {
        return cap ? slotsOffset(cap) + size_t(cap) * sizeof(uint32_t) : 0;
    }
    uint32_t* slots() const noexcept {
        return reinterpret_cast<uint32_t*>(ctrl_ + slotsOffset(cap_));
    }
    // The home slot: the hash, mixed so that the bits a sharded table spends on choosing the shard
    // still count, scaled to the capacity.
    uint32_t home(uint32_t hash) const noexcept {
        return uint32_t((uint64_t(hash * 0x9E3779B1u) * cap_) >> 32);
    }
    // Eight control bytes from slot p on; the last window - 1 bytes repeat the first ones.
    uint64_t load(uint32_t p) const noexcept {
        uint64_t w;
        std::memcpy(&w, ctrl_ + p, sizeof w);
        return w;
    }
    void ctrlIs(uint32_t i, uint8_t v) noexcept {
        ctrl_[i] = v;
        if (i < window - 1) ctrl_[cap_ + i] = v;
    }
    static uint32_t capacityFor(uint32_t entries) noexcept;
    void rehash(uint32_t newCap, HashOf hashOf, Counter bytes);
    void place(uint32_t hash, uint32_t ref) noexcept;

    uint8_t* ctrl_ = nullptr;
    uint32_t cap_ = 0;
    uint32_t size_ = 0;
    uint32_t removed_ = 0;
};

} // namespace Keel
