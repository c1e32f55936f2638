// One thread's share of a census: its peers' RIB, and the interning of every path it is handed.
// Paths are split between threads by peer, so a RIB is only ever touched by its own thread; the
// library's intern tables are shared and interned into concurrently.
//   Census::Ingest in;  auto sets = in.intern(contents);
//   in.announce(peer, prefix, Census::kSafiUnicast, sets);   // or in.withdraw(peer, prefix, safi)
#pragma once

#include "census/Rib.h"

#include "OrvBgp/PathAttributesContents.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace Census {

// The clock of the per-path timings: the time-stamp counter where there is one (a few cycles a
// read, against tens of nanoseconds for the system clock in a virtual machine), nanoseconds of
// the steady clock elsewhere. Ticks become seconds through TickRate, taken over a whole run.
inline uint64_t ticksNow() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count());
#endif
}

// Seconds per tick, measured against the steady clock over the intervals it is fed.
class TickRate {
public:
    void start() noexcept {
        wall0_ = std::chrono::steady_clock::now();
        ticks0_ = ticksNow();
    }
    // Ends the interval begun by start(); returns its wall seconds.
    double stop() noexcept {
        double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0_).count();
        wallSeconds_ += s;
        ticks_ += ticksNow() - ticks0_;
        return s;
    }
    double seconds(uint64_t ticks) const noexcept {
        return ticks_ ? double(ticks) * wallSeconds_ / double(ticks_) : 0.0;
    }

private:
    std::chrono::steady_clock::time_point wall0_{};
    uint64_t ticks0_ = 0, ticks_ = 0;
    double wallSeconds_ = 0;
};

struct IngestCounts {
    uint64_t announced = 0;     // paths put in the RIB (RIB entries and announcements)
    uint64_t withdrawn = 0;     // withdrawals handed to the RIB
    uint64_t unusable = 0;      // paths RFC 7606 treats as withdrawn (withdrawn from the RIB too)
    uint64_t setsInterned = 0;  // inbound/outbound set pairs looked up (one per UPDATE or entry)
    uint64_t buildFailures = 0; // decoded paths the library could not take (counted, not used)
    uint64_t internTicks = 0;   // time spent building contents, interning and updating the RIB

    IngestCounts& operator+=(const IngestCounts& o);
};

struct InternedSets {
    Rib::InSet in;
    Rib::OutSet out;
};

class Ingest {
public:
    Ingest() = default;
    Ingest(const Ingest&) = delete;
    Ingest& operator=(const Ingest&) = delete;
    virtual ~Ingest();

    // The interned inbound set of the contents and the outbound set built from the same contents.
    InternedSets intern(const Routing::Bgp::PathAttributesContents& c);
    void announce(uint16_t peer, const Prefix& prefix, uint8_t safi, const InternedSets& sets) {
        ++counts_.announced;
        rib_.announce(peer, prefix, safi, sets.in, sets.out);
    }
    void withdraw(uint16_t peer, const Prefix& prefix, uint8_t safi) {
        ++counts_.withdrawn;
        rib_.withdraw(peer, prefix, safi);
    }

    Rib& rib() noexcept { return rib_; }
    const Rib& rib() const noexcept { return rib_; }
    PeerTable& peers() noexcept { return peers_; }
    const PeerTable& peers() const noexcept { return peers_; }
    IngestCounts& counts() noexcept { return counts_; }
    const IngestCounts& counts() const noexcept { return counts_; }

    // Releases the sets held on the side to save work on the next paths (the outbound sets of
    // recent inbound sets, and in an MRT census the last set and the wire forms of recent sets),
    // so that the tables and the store's counters hold what the RIB holds, no more.
    virtual void dropCaches();
    // Releases every route, and the sets held on the side (the sets leave their tables when
    // nothing else holds them).
    void clear() {
        dropCaches();
        rib_.clear();
    }

protected:
    void addTime(uint64_t sinceTicks) noexcept { counts_.internTicks += ticksNow() - sinceTicks; }

    Rib rib_;
    PeerTable peers_;
    IngestCounts counts_;

private:
    // The outbound set is a function of the inbound set it is built from: the pairs met last are
    // kept (with a reference on both, so that an address cannot come back as another set), and
    // a path whose inbound set is among them skips the outbound lookup.
    static constexpr size_t kOutCacheSize = 1024;
    std::unique_ptr<InternedSets[]> outCache_{new InternedSets[kOutCacheSize]};
    // A pair pushed out of the cache is released kReleaseLag pushes later, its sets' reference
    // counts prefetched meanwhile: they are seldom in cache by then, and a release waits for them.
    static constexpr size_t kReleaseLag = 8;
    std::array<InternedSets, kReleaseLag> releasing_{};
    size_t releaseAt_ = 0;
};

} // namespace Census
