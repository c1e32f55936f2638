// A one-byte lock for short critical sections (an intern-table probe, a free-list pop).
//   Keel::SpinLock lock;  { std::lock_guard g(lock); ... }
#pragma once

#include <sched.h>

#include <atomic>

namespace Keel {

// Test-and-test-and-set; after a short spin the waiter yields its core, so a holder that was
// preempted gets to run (these machines have fewer cores than busy threads).
class SpinLock {
public:
    void lock() noexcept {
        while (locked_.exchange(true, std::memory_order_acquire)) {
            for (int spins = 0; locked_.load(std::memory_order_relaxed); ++spins)
                if (spins >= 64) sched_yield();
        }
    }
    bool try_lock() noexcept { return !locked_.exchange(true, std::memory_order_acquire); }
    void unlock() noexcept { locked_.store(false, std::memory_order_release); }

private:
    std::atomic<bool> locked_{false};
};

} // namespace Keel
