// The census RIB: per (peer, prefix, path id) the current inbound attribute set and the outbound
// set built from it. Announcements replace, withdrawals release.
//   Census::Rib rib;  rib.announce(peer, prefix, kSafiUnicast, inSet, outSet);
//   rib.withdraw(peer, prefix, kSafiUnicast);  rib.clear();   // every set released
// The prefix is keyed with its host bits masked off (10.0.0.1/8 and 10.0.0.0/8 are one route, as
// for a router). IPv4 routes without a path id (0 counts as none) live in a map of their own, so
// that such an entry costs 16 bytes; add-path IPv4 routes and IPv6 routes have one map each.
#pragma once

#include "census/MrtDecoder.h"
#include "census/Prefix.h"
#include "census/RouteTable.h"

#include "Mel/Ptr.h"
#include "Mel/String.h"
#include "MelStash/CompressedStashSmartPtr.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/RibOutBgpPathAttributes.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace Census {

// Peers numbered in order of first appearance: the RIB keys them by that 16-bit number. More than
// 65535 distinct peers share the last number (a collector has a few hundred).
class PeerTable {
public:
    static constexpr uint32_t kMaxPeers = 0xffff;

    uint16_t index(const Peer& p);
    size_t size() const noexcept { return peers_.size(); }
    const Peer& at(uint16_t i) const { return peers_.at(i); }
    size_t memoryBytes() const noexcept;

private:
    struct Key {
        std::array<uint8_t, 16> address;
        uint32_t as;
        uint8_t family;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        size_t operator()(const Key& k) const noexcept;
    };
    Mel::HashMap<Key, uint16_t, KeyHash> byKey_;
    std::vector<Peer> peers_;
    Key last_{};
    uint16_t lastIndex_ = 0;
    bool haveLast_ = false;
};

struct RibCounts {
    uint64_t announcements = 0; // calls to announce
    uint64_t added = 0;         // announcements of a route the RIB did not hold
    uint64_t replaced = 0;      // announcements that changed the route's inbound set
    uint64_t unchanged = 0;     // announcements with the set the route already had
    uint64_t withdrawals = 0;   // calls to withdraw
    uint64_t removed = 0;       // withdrawals of a route the RIB held
};

class Rib {
public:
    using InSet = Mel::PtrConst<Routing::Bgp::PathAttributes>;
    using OutSet = Mel::PtrConst<Routing::Bgp::RibOutPathAttributes>;

    Rib() = default;
    Rib(const Rib&) = delete;
    Rib& operator=(const Rib&) = delete;

    // Installs (or replaces) the route's sets; the RIB holds one reference on each.
    void announce(uint16_t peer, const Prefix& prefix, uint8_t safi, const InSet& in,
                  const OutSet& out);
    // Removes the route and releases its sets; false when the RIB did not hold it.
    bool withdraw(uint16_t peer, const Prefix& prefix, uint8_t safi);
    // The route's inbound set, or null.
    InSet find(uint16_t peer, const Prefix& prefix, uint8_t safi) const;
    // Makes room for about n IPv4 routes without path ids (the bulk of any table) at once.
    void reserve(size_t n) { v4_.reserve(n); }
    // Releases every route.
    void clear();

    size_t size() const noexcept { return v4_.size() + v4p_.size() + v6_.size(); }
    const RibCounts& counts() const noexcept { return counts_; }
    // Bytes of the RIB's own arrays (slots and their metadata), not the sets it references.
    size_t memoryBytes() const noexcept;

    // f(const PathAttributes&, const RibOutPathAttributes*) for every route (outbound may be null).
    // The sets are scattered over the store: each route's are prefetched a few routes before f
    // sees them.
    template <class F>
    void forEach(F&& f) const {
        constexpr size_t kAhead = 8;
        const Entry* ring[kAhead];
        size_t n = 0;
        auto each = [&](const auto&, const Entry& e) {
            __builtin_prefetch(e.in.get());
            if (e.out.get()) __builtin_prefetch(e.out.get());
            const Entry*& slot = ring[n++ % kAhead];
            if (n > kAhead) f(*slot->in.get(), slot->out.get());
            slot = &e;
        };
        v4_.forEach(each);
        v4p_.forEach(each);
        v6_.forEach(each);
        for (size_t i = n > kAhead ? n - kAhead : 0; i < n; ++i)
            f(*ring[i % kAhead]->in.get(), ring[i % kAhead]->out.get());
    }

    // Starts loading the route's slot into the cache; announce, withdraw or find of the same
    // route a little later then finds it there.
    void prefetch(uint16_t peer, const Prefix& prefix, uint8_t safi) const noexcept;

private:
    struct Entry {
        MelStash::CompressedStashSmartPtr<Routing::Bgp::PathAttributes const, 4> in;
        MelStash::CompressedStashSmartPtr<Routing::Bgp::RibOutPathAttributes const, 4> out;
    };
    struct Key4 {
        uint32_t address; // masked
        uint16_t peer;
        uint8_t length;
        uint8_t safi;
        bool operator==(const Key4&) const = default;
        static constexpr Key4 empty() noexcept { return {0, 0, 0xff, 0}; }
    };
    struct Key4P {
        Key4 key;
        uint32_t pathId;
        bool operator==(const Key4P&) const = default;
        static constexpr Key4P empty() noexcept { return {Key4::empty(), 0}; }
    };
    struct Key6 {
        std::array<uint8_t, 16> address; // masked
        uint32_t pathId;
        uint16_t peer;
        uint8_t length;
        uint8_t safi;
        bool operator==(const Key6&) const = default;
        static constexpr Key6 empty() noexcept { return {{}, 0, 0, 0xff, 0}; }
    };
    struct Hash {
        size_t operator()(const Key4& k) const noexcept;
        size_t operator()(const Key4P& k) const noexcept;
        size_t operator()(const Key6& k) const noexcept;
    };
    static Key4 key4(uint16_t peer, const Prefix& p, uint8_t safi) noexcept;
    static Key6 key6(uint16_t peer, const Prefix& p, uint8_t safi) noexcept;
    template <class Map, class K>
    void put(Map& m, const K& k, const InSet& in, const OutSet& out);
    // Calls f(map, key) with the map and key the route belongs in.
    template <class Self, class F>
    static decltype(auto) locate(Self& self, uint16_t peer, const Prefix& p, uint8_t safi, F&& f);

    // A prefix length of 0xff marks an empty slot: no route has one.
    RouteTable<Key4, Entry, Hash> v4_;
    RouteTable<Key4P, Entry, Hash> v4p_;
    RouteTable<Key6, Entry, Hash> v6_;
    RibCounts counts_;
};

} // namespace Census
