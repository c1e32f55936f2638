#include "census/Rib.h"

namespace Census {

namespace {

inline uint64_t mix(uint64_t h) noexcept {
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdULL;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ULL;
    h ^= h >> 33;
    return h;
}

// Host bits cleared: bytes past the length zeroed, the last partial byte masked.
void maskInto(const Prefix& p, uint8_t* out, size_t n) noexcept {
    std::memcpy(out, p.address.bytes.data(), n);
    const size_t full = p.length / 8;
    if (full >= n) return;
    if (unsigned rest = p.length % 8) {
        out[full] &= uint8_t(0xff00u >> rest);
        std::memset(out + full + 1, 0, n - full - 1);
    } else {
        std::memset(out + full, 0, n - full);
    }
}

template <class Map>
size_t mapBytes(const Map& m) noexcept {
    // Slots plus one metadata byte per slot, as the open-addressing layout stores them.
    return m.bucket_count() * (sizeof(typename Map::value_type) + 1) + sizeof(Map);
}

} // namespace

// ---- PeerTable ----------------------------------------------------------------------------------

size_t PeerTable::KeyHash::operator()(const Key& k) const noexcept {
    uint64_t a, b;
    std::memcpy(&a, k.address.data(), 8);
    std::memcpy(&b, k.address.data() + 8, 8);
    return mix(a ^ mix(b ^ (uint64_t(k.as) << 8 | k.family)));
}

uint16_t PeerTable::index(const Peer& p) {
    Key k{p.address.bytes, p.as, p.address.family};
    // Dumps and update streams give one peer's routes in runs.
    if (haveLast_ && k == last_) return lastIndex_;
    auto it = byKey_.find(k);
    if (it != byKey_.end()) {
        last_ = k;
        lastIndex_ = it->second;
        haveLast_ = true;
        return it->second;
    }
    if (peers_.size() >= kMaxPeers) return uint16_t(kMaxPeers - 1);
    uint16_t i = uint16_t(peers_.size());
    byKey_.emplace(k, i);
    peers_.push_back(p);
    return i;
}

size_t PeerTable::memoryBytes() const noexcept {
    return mapBytes(byKey_) + peers_.capacity() * sizeof(Peer);
}

// ---- Rib ----------------------------------------------------------------------------------------

size_t Rib::Hash::operator()(const Key4& k) const noexcept {
    return mix(uint64_t(k.address) << 32 | uint64_t(k.peer) << 16 | uint64_t(k.length) << 8 |
               k.safi);
}

size_t Rib::Hash::operator()(const Key4P& k) const noexcept {
    return mix((*this)(k.key) ^ k.pathId);
}

size_t Rib::Hash::operator()(const Key6& k) const noexcept {
    uint64_t a, b;
    std::memcpy(&a, k.address.data(), 8);
    std::memcpy(&b, k.address.data() + 8, 8);
    return mix(a ^ mix(b ^ mix(uint64_t(k.pathId) << 32 | uint64_t(k.peer) << 16 |
                               uint64_t(k.length) << 8 | k.safi)));
}

Rib::Key4 Rib::key4(uint16_t peer, const Prefix& p, uint8_t safi) noexcept {
    uint8_t b[4];
    maskInto(p, b, 4);
    return Key4{readBe32(b), peer, p.length, safi};
}

Rib::Key6 Rib::key6(uint16_t peer, const Prefix& p, uint8_t safi) noexcept {
    Key6 k{};
    maskInto(p, k.address.data(), 16);
    k.pathId = p.hasPathId ? p.pathId : 0;
    k.peer = peer;
    k.length = p.length;
    k.safi = safi;
    return k;
}

template <class Map, class K>
void Rib::put(Map& m, const K& k, const InSet& in, const OutSet& out) {
    ++counts_.announcements;
    auto [e, inserted] = m.tryEmplace(k);
    if (inserted)
        ++counts_.added;
    else if (e->in.get() == in.get())
        ++counts_.unchanged;
    else
        ++counts_.replaced;
    // Assigning releases the sets the route held before (and with them, when they were the last
    // holders, the objects leave their tables).
    e->in = in.get();
    e->out = out.get();
}

template <class Self, class F>
decltype(auto) Rib::locate(Self& self, uint16_t peer, const Prefix& p, uint8_t safi, F&& f) {
    if (p.address.isV6()) return f(self.v6_, key6(peer, p, safi));
    if (p.hasPathId && p.pathId) return f(self.v4p_, Key4P{key4(peer, p, safi), p.pathId});
    return f(self.v4_, key4(peer, p, safi));
}

void Rib::prefetch(uint16_t peer, const Prefix& prefix, uint8_t safi) const noexcept {
    locate(*this, peer, prefix, safi, [](const auto& m, const auto& k) { m.prefetch(k); });
}

void Rib::announce(uint16_t peer, const Prefix& prefix, uint8_t safi, const InSet& in,
                   const OutSet& out) {
    locate(*this, peer, prefix, safi, [&](auto& m, const auto& k) { put(m, k, in, out); });
}

bool Rib::withdraw(uint16_t peer, const Prefix& prefix, uint8_t safi) {
    ++counts_.withdrawals;
    bool found =
        locate(*this, peer, prefix, safi, [](auto& m, const auto& k) { return m.erase(k); });
    counts_.removed += found;
    return found;
}

Rib::InSet Rib::find(uint16_t peer, const Prefix& prefix, uint8_t safi) const {
    return locate(*this, peer, prefix, safi, [](auto& m, const auto& k) {
        const Entry* e = m.find(k);
        return e ? InSet(e->in.get()) : InSet();
    });
}

void Rib::clear() {
    v4_.clear();
    v4p_.clear();
    v6_.clear();
}

size_t Rib::memoryBytes() const noexcept {
    return v4_.memoryBytes() + v4p_.memoryBytes() + v6_.memoryBytes();
}

} // namespace Census
