// Small 32-bit identifiers for objects that other threads and tables refer to by number.
//   Mel::Ptr<Routing::Bgp::BgpIdAllocator> ids = Routing::Bgp::BgpInstanceEpochAllocatorIs();
//   uint32_t epoch = ids->allocate();   ...   ids->free(epoch);   // freed ids come back first
#pragma once

#include "Mel/Object.h"
#include "Mel/Ptr.h"
#include "Mel/String.h"
#include "Mel/ValueType.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

namespace Routing::Bgp {

// One entry of an allocator's free list: the freed identifier (`value`) and its position in the
// queue (`index`, one more than the entry appended before it).
class MelFreeId : public Mel::Object {
public:
    MelFreeId() noexcept = default;
    MelFreeId(uint32_t index, uint32_t value) noexcept : index_(index), value_(value) {}

    uint32_t index() const noexcept { return index_; }
    uint32_t value() const noexcept { return value_; }
    void valueIs(uint32_t value) noexcept { value_ = value; }
    // The entry after this one, towards the tail; null at the tail.
    Mel::Ptr<MelFreeId> next() const noexcept { return next_; }

    MEL_VALUE_TYPE(MelFreeId, "Routing::Bgp::MelFreeId", (index_, value_))

private:
    friend class BgpIdAllocator;
    uint32_t index_ = 0;
    uint32_t value_ = 0;
    Mel::Ptr<MelFreeId> next_;
};

// Hands out identifiers 1, 2, 3 ... and takes them back; a freed identifier is handed out again
// (oldest freed first) before a new one is minted. 0 is never handed out. There is deliberately
// no check against double frees: a doubly freed identifier is later handed out twice.
//
// Only allocate() and free() lock; the other accessors are for a caller that holds the
// allocator alone (set-up, restoring state, tests). Locking is skipped when the process flag
// Keel::multiThreadedOrvbgp() is off.
class BgpIdAllocator : public Mel::Object {
public:
    static constexpr uint32_t invalidId() noexcept { return 0; }

    explicit BgpIdAllocator(Mel::String name);
    ~BgpIdAllocator() override;
    BgpIdAllocator(const BgpIdAllocator&) = delete;
    BgpIdAllocator& operator=(const BgpIdAllocator&) = delete;

    const Mel::String& name() const noexcept { return name_; }

    // A reused or new identifier, never 0; wrapping past 4294967295 ends the process.
    uint32_t allocate();
    // Gives id back; id 0 ends the process.
    void free(uint32_t id);

    // The highest identifier ever minted; it never goes down.
    uint32_t largestAllocatedId() const noexcept {
        return largestAllocatedId_.load(std::memory_order_relaxed);
    }
    void largestAllocatedIdInc(uint32_t delta) noexcept {
        largestAllocatedId_.fetch_add(delta, std::memory_order_relaxed);
    }
    // Sets the counter outright, for restoring saved state.
    void largestAllocatedIdIs(uint32_t v) noexcept {
        largestAllocatedId_.store(v, std::memory_order_relaxed);
    }

    // The free list, a FIFO queue ordered by index.
    Mel::Ptr<MelFreeId> freeId(uint32_t index) const noexcept;
    // Updates the entry with that index, or inserts a new one at its place in index order.
    void freeIdIs(uint32_t index, uint32_t value);
    void freeIdDel(uint32_t index) noexcept;
    void freeIdDelAll() noexcept;
    // Appends value at the tail, with an index one past the tail's.
    void freeIdEnq(uint32_t value);
    // Removes the head and returns its value; 0 when the list is empty.
    uint32_t freeIdDeq() noexcept;
    Mel::Ptr<MelFreeId> freeIdFront() const noexcept { return freeIdHead_; }
    Mel::Ptr<MelFreeId> freeIdBack() const noexcept { return freeIdTail_; }
    uint32_t freeIdCount() const noexcept { return freeIdCount_; }
    // The index the next entry gets when the list is empty.
    uint32_t freeIdNextIndex() const noexcept { return freeIdNextIndex_; }
    // The whole list, head first, as one field of the string form; setting it replaces the list
    // (entries are put in index order).
    std::vector<Mel::Ptr<MelFreeId>> freeIds() const;
    void freeIdsIs(const std::vector<Mel::Ptr<MelFreeId>>& ids);

    MEL_VALUE_TYPE(BgpIdAllocator, "Routing::Bgp::BgpIdAllocator",
                   (name, largestAllocatedId, largestAllocatedIdIs, freeIds, freeIdsIs))

private:
    Mel::String name_;
    std::mutex mutex_;
    std::atomic<uint32_t> largestAllocatedId_{0};
    Mel::Ptr<MelFreeId> freeIdHead_;
    Mel::Ptr<MelFreeId> freeIdTail_;
    uint32_t freeIdNextIndex_ = 0;
    uint32_t freeIdCount_ = 0;
};

// Identifiers of BGP instance epochs.
class BgpInstanceEpochAllocator : public BgpIdAllocator {
public:
    BgpInstanceEpochAllocator() : BgpIdAllocator("BgpInstanceEpoch") {}
};

Mel::Ptr<BgpIdAllocator> BgpIdAllocatorIs(Mel::String name);
Mel::Ptr<BgpInstanceEpochAllocator> BgpInstanceEpochAllocatorIs();

} // namespace Routing::Bgp
