#include "Keel/RwLock.h"

#define ORV_UNIT "Keel/RwLock"
#include "Keel/Assert.h"

#include <cerrno>

namespace Keel {

RwLock::RwLock(bool tolerateEdeadlk) noexcept : tolerateEdeadlk_(tolerateEdeadlk) {
    int rc = pthread_rwlock_init(&rw_, nullptr);
    ORV_ASSERT(rc == 0);
}

RwLock::~RwLock() {
    pthread_rwlock_destroy(&rw_);
}

bool RwLock::readLock() noexcept {
    int rc = pthread_rwlock_rdlock(&rw_);
    if (rc == EDEADLK && tolerateEdeadlk_) return false;
    ORV_ASSERT(rc == 0);
    return true;
}

bool RwLock::writeLock() noexcept {
    int rc = pthread_rwlock_wrlock(&rw_);
    if (rc == EDEADLK && tolerateEdeadlk_) return false;
    ORV_ASSERT(rc == 0);
    return true;
}

void RwLock::unlock() noexcept {
    int rc = pthread_rwlock_unlock(&rw_);
    ORV_ASSERT(rc == 0);
}

} // namespace Keel
