// The base of every interned object: an atomic reference count and a state word.
//   class Foo : public Keel::DedupHandleBase { MELSTASH_STORE_ALLOCATED(Foo)  uint32_t hash() const
//   override; ... }; Keel::DedupTable<Foo> table("FooDedupTable");  Mel::PtrConst<Foo> f =
//   table.findOrCreate(h, content, make);
#pragma once

#include "Mel/Ptr.h"

#include <atomic>
#include <cstdint>

namespace Keel {

class DedupTableBase;

// Base of the content records that intern tables look objects up by. It adds no data.
class DedupContentHandle {
public:
    bool operator==(const DedupContentHandle&) const noexcept { return true; }
    bool operator<(const DedupContentHandle&) const noexcept { return false; }
};

enum class DedupHandleState : uint8_t {
    neverDeduped = 0,   // built, not (yet) in any table
    deduped = 1,        // in its table, shared
    beingDestroyed = 2, // left its table on its last release; about to be deleted
    detached = 3,       // left its table without being destroyed (table torn down)
};

constexpr DedupHandleState dedupHandleStateNeverDeduped() noexcept {
    return DedupHandleState::neverDeduped;
}

// The header is the virtual table pointer and one 32-bit atomic word: bits 31-30 the dedup state,
// bits 29-0 the reference count, which includes the table's own hold while the object is deduped.
// 12 bytes, so derived members start at offset 12; types that cache their hash add 4 more (see
// DedupHandleWithHash). The owning table is not stored: the table registry knows which tables
// hold objects of each dynamic type (DedupTableBase::ownerOf). One object takes at most
// maxRefCount references (about 2^30); one more ends the process.
class DedupHandleBase {
public:
    static constexpr unsigned stateShift = 30;
    static constexpr uint32_t countMask = (1u << stateShift) - 1;
    static constexpr uint32_t maxRefCount = countMask - 1;
    static_assert(maxRefCount >= (1u << 29), "a popular set may be shared by millions of routes");

    DedupHandleBase() noexcept = default;
    DedupHandleBase(const DedupHandleBase&) noexcept {}
    DedupHandleBase& operator=(const DedupHandleBase&) = delete;
    virtual ~DedupHandleBase() = default;

    // The content hash the object's table files it under; must not change once interned.
    virtual uint32_t hash() const = 0;
    // Content equality with another object of the same table.
    virtual bool compare(const DedupHandleBase* other) const = 0;
    // Content equality with a lookup record; the default is "Not implemented".
    virtual bool compareByContent(const DedupContentHandle& content) const;

    // Fast paths inline; the rare cases (an object on its way out, a count at its limit, the
    // release that may leave only the table's hold) go out of line.
    void refInc() const noexcept {
        uint32_t w = word_.fetch_add(1, std::memory_order_relaxed);
        if ((w >> stateShift) == uint32_t(DedupHandleState::beingDestroyed) ||
            (w & countMask) >= maxRefCount) [[unlikely]]
            refIncRejected(w);
    }
    void refDec() const noexcept {
        uint32_t w = word_.load(std::memory_order_relaxed);
        if ((w & countMask) > 2 && (w >> stateShift) == uint32_t(DedupHandleState::deduped) &&
            word_.compare_exchange_strong(w, w - 1, std::memory_order_acq_rel,
                                          std::memory_order_relaxed)) [[likely]]
            return;
        refDecSlow();
    }
    uint32_t refCount() const noexcept { return word_.load(std::memory_order_relaxed) & countMask; }

    DedupHandleState dedupState() const noexcept {
        return static_cast<DedupHandleState>(word_.load(std::memory_order_acquire) >> stateShift);
    }
    bool isDeduped() const noexcept { return dedupState() == DedupHandleState::deduped; }
    bool everDeduped() const noexcept { return dedupState() != DedupHandleState::neverDeduped; }
    // Ends the process unless the object is interned.
    void assertIsDeduped() const noexcept;
    // The table the object is interned in; null unless it is.
    DedupTableBase* dedupTable() const noexcept;

protected:
    // Called once, just before an object that was interned is deleted (after it left its table).
    virtual void handleDestroy() noexcept {}

private:
    friend class DedupTableBase;
    friend struct DedupHandleTestAccess; // tests only: sets the count near its limit
    [[noreturn]] void refIncRejected(uint32_t before) const noexcept;
    void refDecSlow() const noexcept;
    void destroy() const noexcept;

    mutable std::atomic<uint32_t> word_{0};
};

// For types that cache their hash: set it once in the constructor with hashIs().
class DedupHandleWithHash : public DedupHandleBase {
public:
    uint32_t hash() const final { return hash_; }

protected:
    void hashIs(uint32_t h) noexcept { hash_ = h; }

private:
    uint32_t hash_ = 0;
};

// The process flag that chooses the locked (default) or lock-free form of intern tables made after
// it is set. ORV_MULTI_THREADED=0 in the environment starts the process with it off.
bool multiThreadedOrvbgp() noexcept;
void multiThreadedOrvbgpIs(bool on) noexcept;

} // namespace Keel
