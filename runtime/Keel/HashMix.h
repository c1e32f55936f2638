// Hash mixing for interned contents: seeded once per process so peers cannot craft collisions.
//   Keel::HashMix m(0); m.hashMix(uint16_t(type)); m.hashMix(uint32_t(addr));
//   uint32_t h = m.result();
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>

namespace Keel {

// The per-process seed: random at start-up, or ORV_HASH_SEED (decimal) for reproducible runs.
uint64_t hashSeed() noexcept;

// A 64-bit multiply-xorshift mixer. Mixing is order-sensitive and width-sensitive (a 1-byte 5 and a
// 4-byte 5 mix differently); the low 32 bits of the finalised state are the hash.
class HashMix {
public:
    explicit HashMix(uint64_t init = 0) noexcept : h_(init ^ hashSeed()) {}

    template <std::integral T>
    requires(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 ||
             sizeof(T) == 8) void hashMix(T v) noexcept {
        mixWord(static_cast<uint64_t>(v) + (uint64_t(sizeof(T)) << 60));
    }
    // Mixes a pointer's address (8 bytes).
    void hashMix(const void* p) noexcept { hashMix(reinterpret_cast<uintptr_t>(p)); }

    uint32_t result() const noexcept {
        uint64_t h = h_;
        h ^= h >> 33;
        h *= 0xff51afd7ed558ccdULL;
        h ^= h >> 33;
        h *= 0xc4ceb9fe1a85ec53ULL;
        h ^= h >> 33;
        return static_cast<uint32_t>(h);
    }

private:
    void mixWord(uint64_t v) noexcept {
        h_ = (h_ ^ v) * 0x9e3779b97f4a7c15ULL;
        h_ ^= h_ >> 29;
    }
    uint64_t h_;
};

// 32-bit hash of a byte string (XXH3, seeded with the process seed). 0 for an empty string.
uint32_t hashBytes(const void* data, size_t len) noexcept;

} // namespace Keel
