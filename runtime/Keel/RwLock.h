// A reader-writer lock over pthread_rwlock, with RAII guards.
//   Keel::RwLock lock;  { Keel::RwLock::ReadGuard g(lock); ... }  { Keel::RwLock::WriteGuard
//   g(lock); ... } Keel::RwLock tolerant(/*tolerateEdeadlk=*/true);   // see below
#pragma once

#include <pthread.h>

namespace Keel {

// With tolerateEdeadlk, a lock call that pthread refuses with EDEADLK (the calling thread already
// holds the lock for writing) returns false instead of ending the process; the caller then goes on
// without taking it, relying on the hold it already has. Any other failure is a programming error.
class RwLock {
public:
    explicit RwLock(bool tolerateEdeadlk = false) noexcept;
    RwLock(const RwLock&) = delete;
    RwLock& operator=(const RwLock&) = delete;
    ~RwLock();

    bool tolerateEdeadlk() const noexcept { return tolerateEdeadlk_; }
    // True when taken; false only for a tolerated EDEADLK.
    bool readLock() noexcept;
    bool writeLock() noexcept;
    void unlock() noexcept;

    class ReadGuard {
    public:
        explicit ReadGuard(RwLock& l) noexcept : l_(l), held_(l.readLock()) {}
        ~ReadGuard() {
            if (held_) l_.unlock();
        }
        ReadGuard(const ReadGuard&) = delete;
        ReadGuard& operator=(const ReadGuard&) = delete;

    private:
        RwLock& l_;
        bool held_;
    };
    class WriteGuard {
    public:
        explicit WriteGuard(RwLock& l) noexcept : l_(l), held_(l.writeLock()) {}
        ~WriteGuard() {
            if (held_) l_.unlock();
        }
        WriteGuard(const WriteGuard&) = delete;
        WriteGuard& operator=(const WriteGuard&) = delete;

    private:
        RwLock& l_;
        bool held_;
    };

private:
    pthread_rwlock_t rw_;
    bool tolerateEdeadlk_;
};

} // namespace Keel
