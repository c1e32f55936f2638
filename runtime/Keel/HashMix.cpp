#include "Keel/HashMix.h"

#include <sys/random.h>

#include <cstdlib>
#include <ctime>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace Keel {

namespace {
uint64_t makeSeed() noexcept {
    if (const char* env = std::getenv("ORV_HASH_SEED")) return std::strtoull(env, nullptr, 10);
    uint64_t seed = 0;
    if (getrandom(&seed, sizeof seed, 0) != sizeof seed)
        seed = static_cast<uint64_t>(std::time(nullptr)) * 0x9e3779b97f4a7c15ULL;
    return seed;
}
} // namespace

uint64_t hashSeed() noexcept {
    static const uint64_t seed = makeSeed();
    return seed;
}

uint32_t hashBytes(const void* data, size_t len) noexcept {
    if (len == 0) return 0;
    return static_cast<uint32_t>(XXH3_64bits_withSeed(data, len, hashSeed()));
}

} // namespace Keel
