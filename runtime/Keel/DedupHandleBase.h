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

// The state word: bits 31-29 state, bits 28-17 index of the owning table, bits 16-0 user data.
// The reference count includes the table's own hold while the object is deduped. 16 bytes with the
// virtual table pointer; types that cache their hash add 4 more (see DedupHandleWithHash).
class DedupHandleBase {
public:
    static constexpr unsigned userDataBits = 17;
    static constexpr uint32_t userDataMask = (1u << userDataBits) - 1;

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

    // Fast paths inline; the rare cases (an object on its way out, the release that may leave only
    // the table's hold) go out of line.
    void refInc() const noexcept {
        if (state_.load(std::memory_order_relaxed) >> 29 ==
            uint32_t(DedupHandleState::beingDestroyed)) [[unlikely]]
            refIncWhilstDetached();
        refs_.fetch_add(1, std::memory_order_relaxed);
    }
    void refDec() const noexcept {
        uint32_t c = refs_.load(std::memory_order_relaxed);
        if (c > 2 &&
            state_.load(std::memory_order_acquire) >> 29 == uint32_t(DedupHandleState::deduped) &&
            refs_.compare_exchange_strong(c, c - 1, std::memory_order_acq_rel,
                                          std::memory_order_relaxed)) [[likely]]
            return;
        refDecSlow();
    }
    uint32_t refCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

    DedupHandleState dedupState() const noexcept {
        return static_cast<DedupHandleState>(state_.load(std::memory_order_acquire) >> 29);
    }
    bool isDeduped() const noexcept { return dedupState() == DedupHandleState::deduped; }
    bool everDeduped() const noexcept { return dedupState() != DedupHandleState::neverDeduped; }
    // Ends the process unless the object is interned.
    void assertIsDeduped() const noexcept;
    DedupTableBase* dedupTable() const noexcept;

    // User-data bits may change on an interned (otherwise immutable) object, hence const.
    uint32_t userData() const noexcept {
        return state_.load(std::memory_order_relaxed) & userDataMask;
    }
    uint32_t userBits(unsigned pos, unsigned width) const noexcept {
        return (userData() >> pos) & ((1u << width) - 1);
    }
    void userBitsIs(unsigned pos, unsigned width, uint32_t value) const noexcept;

protected:
    // Called once, just before an object that was interned is deleted (after it left its table).
    virtual void handleDestroy() noexcept {}

private:
    friend class DedupTableBase;
    [[noreturn]] void refIncWhilstDetached() const noexcept;
    void refDecSlow() const noexcept;
    void destroy() const noexcept;
    uint32_t tableIndex() const noexcept {
        return (state_.load(std::memory_order_relaxed) >> userDataBits) & 0xfff;
    }

    mutable std::atomic<uint32_t> refs_{0};
    mutable std::atomic<uint32_t> state_{0};
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
