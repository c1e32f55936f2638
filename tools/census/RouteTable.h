// The census RIB's hash table: open addressing with linear probing and backward-shift deletion.
// A key's slot and the slots it probes after share cache lines, and the caller can prefetch the
// slot a key will land in well before the lookup (while the path's attributes are still being
// interned), which is where a full table's RIB spends its time otherwise.
//   RouteTable<Key, Value, Hash> t;  t.prefetch(k);  ...
//   auto [v, inserted] = t.tryEmplace(k);  t.find(k);  t.erase(k);
// Key must provide a static empty() that no stored key equals. The table keeps at most three
// slots in four occupied.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace Census {

// Slot arrays of 64 KiB and more are mapped on their own with their pages populated in one call
// (every slot is written as the array is made, and a page fault each costs several times as much,
// above all in a virtual machine); from a megabyte on they are asked for huge pages too. Their
// memory goes back to the system when freed.
void* routeTableAllocate(size_t bytes);
void routeTableDeallocate(void* p, size_t bytes) noexcept;

template <class K, class V, class H>
class RouteTable {
public:
    RouteTable() = default;
    RouteTable(const RouteTable&) = delete;
    RouteTable& operator=(const RouteTable&) = delete;
    ~RouteTable() { release(); }

    size_t size() const noexcept { return size_; }
    size_t capacity() const noexcept { return slots_ ? mask_ + 1 : 0; }
    // Bytes of the slot array and the table itself.
    size_t memoryBytes() const noexcept { return capacity() * sizeof(Slot) + sizeof(*this); }

    // Makes room for n entries at once, sparing the doublings on the way there.
    void reserve(size_t n) {
        size_t want = 64;
        while (want * 3 < n * 4)
            want *= 2;
        if (want > capacity()) grow(want);
    }

    void prefetch(const K& k) const noexcept {
        if (slots_) __builtin_prefetch(&slots_[H()(k) & mask_], 1);
    }

    // The value of k, default-constructed and inserted when k was not there.
    std::pair<V*, bool> tryEmplace(const K& k) {
        if ((size_ + 1) * 4 > capacity() * 3) grow(capacity() ? capacity() * 2 : 64);
        for (size_t i = H()(k) & mask_;; i = (i + 1) & mask_) {
            Slot& s = slots_[i];
            if (s.key == k) return {&s.value, false};
            if (s.key == K::empty()) {
                s.key = k;
                ++size_;
                return {&s.value, true};
            }
        }
    }

    V* find(const K& k) noexcept {
        if (!slots_) return nullptr;
        for (size_t i = H()(k) & mask_;; i = (i + 1) & mask_) {
            Slot& s = slots_[i];
            if (s.key == k) return &s.value;
            if (s.key == K::empty()) return nullptr;
        }
    }
    const V* find(const K& k) const noexcept { return const_cast<RouteTable*>(this)->find(k); }

    bool erase(const K& k) {
        if (!slots_) return false;
        size_t i = H()(k) & mask_;
        for (;; i = (i + 1) & mask_) {
            if (slots_[i].key == k) break;
            if (slots_[i].key == K::empty()) return false;
        }
        slots_[i].value = V();
        // Backward shift: every later key of the run whose home is not between the hole and
        // itself moves into the hole, so that no probe stops short of it.
        for (size_t j = (i + 1) & mask_; !(slots_[j].key == K::empty()); j = (j + 1) & mask_) {
            const size_t home = H()(slots_[j].key) & mask_;
            if (((j - home) & mask_) >= ((j - i) & mask_)) {
                slots_[i].key = slots_[j].key;
                slots_[i].value = std::move(slots_[j].value);
                i = j;
            }
        }
        slots_[i].key = K::empty();
        --size_;
        return true;
    }

    // f(const K&, const V&) for every entry.
    template <class F>
    void forEach(F&& f) const {
        for (size_t i = 0; i < capacity(); ++i)
            if (!(slots_[i].key == K::empty())) f(slots_[i].key, slots_[i].value);
    }

    // Destroys every value and frees the slots.
    void clear() noexcept {
        release();
        slots_ = nullptr;
        mask_ = 0;
        size_ = 0;
    }

private:
    struct Slot {
        K key = K::empty();
        V value{};
    };

    static Slot* allocateSlots(size_t n) {
        Slot* s = static_cast<Slot*>(routeTableAllocate(n * sizeof(Slot)));
        for (size_t i = 0; i < n; ++i)
            new (&s[i]) Slot();
        return s;
    }
    void release() noexcept {
        if (!slots_) return;
        const size_t n = mask_ + 1;
        for (size_t i = 0; i < n; ++i)
            slots_[i].~Slot();
        routeTableDeallocate(slots_, n * sizeof(Slot));
    }
    void grow(size_t n) {
        const size_t oldN = capacity();
        Slot* fresh = allocateSlots(n);
        const size_t mask = n - 1;
        for (size_t i = 0; i < oldN; ++i) {
            Slot& s = slots_[i];
            if (s.key == K::empty()) continue;
            size_t j = H()(s.key) & mask;
            while (!(fresh[j].key == K::empty()))
                j = (j + 1) & mask;
            fresh[j].key = s.key;
            fresh[j].value = std::move(s.value);
        }
        release();
        slots_ = fresh;
        mask_ = mask;
    }

    Slot* slots_ = nullptr;
    size_t mask_ = 0;
    size_t size_ = 0;
};

} // namespace Census
