#include "OrvBgp/DomainPath.h"

#define ORV_UNIT "OrvBgp/DomainPath"
#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <ostream>
#include <typeinfo>

namespace Routing::Bgp {

using MelStash::StoreManager;

namespace {

constexpr size_t domainPathValueLength(size_t n) noexcept {
    return (n + DomainPath::maxDomainSegmentsPerSequence - 1) /
               DomainPath::maxDomainSegmentsPerSequence +
           7 * n;
}
static_assert(domainPathValueLength(DomainPath::maxDomainSegments) <= 0xffff);
static_assert(domainPathValueLength(DomainPath::maxDomainSegments + 1) > 0xffff);

// Reads a decimal number that must fill text exactly and be at most max.
bool parseDecimal(std::string_view text, uint64_t max, uint64_t& out) noexcept {
    if (text.empty() || text.size() > 20) return false;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out);
    return ec == std::errc() && end == text.data() + text.size() && out <= max;
}

} // namespace

// ---- VpnDomainId, DomainSegment

void throwVpnDomainIdRange() {
    throw Mel::RangeException("Routing::Bgp::VpnDomainId::value < 0 or > "
                              "Routing::Bgp::VpnDomainId::maxDomainId not allowed");
}

VpnDomainId::VpnDomainId(int64_t value) {
    if (value < 0 || uint64_t(value) > maxDomainId) throwVpnDomainIdRange();
    value_ = uint64_t(value);
}

std::string VpnDomainId::toString() const {
    return std::to_string(globalAdmin()) + ":" + std::to_string(localAdmin());
}

VpnDomainId VpnDomainId::fromString(std::string_view text) {
    auto colon = text.find(':');
    uint64_t ga = 0, la = 0;
    if (colon == std::string_view::npos || !parseDecimal(text.substr(0, colon), 0xffffffff, ga) ||
        !parseDecimal(text.substr(colon + 1), 0xffff, la))
        throw Mel::ParseException("invalid VPN domain id '" + std::string(text) +
                                  "': expected <global admin>:<local admin> as in 65001:10");
    return VpnDomainId(uint32_t(ga), uint16_t(la));
}

Mel::String DomainSegment::toStrep() const {
    char flag[8];
    std::snprintf(flag, sizeof flag, "/0x%02x", domainFlag());
    Mel::String out = vpnDomainId().toString() + flag;
    if (!valid()) {
        // Make an invalid word visible rather than print a domain it does not hold.
        char high[16];
        std::snprintf(high, sizeof high, "!0x%02x", unsigned(storage_ >> 56));
        out += high;
    }
    return out;
}

DomainSegment DomainSegment::fromString(std::string_view text) {
    auto slash = text.find("/0x");
    uint64_t flag = 0;
    if (slash == std::string_view::npos || text.size() - slash - 3 != 2 ||
        std::from_chars(text.data() + slash + 3, text.data() + text.size(), flag, 16).ptr !=
            text.data() + text.size())
        throw Mel::ParseException("invalid domain segment '" + std::string(text) +
                                  "': expected <global admin>:<local admin>/0x<flag> as in "
                                  "65001:10/0x00");
    return DomainSegment(VpnDomainId::fromString(text.substr(0, slash)), uint8_t(flag));
}

std::ostream& operator<<(std::ostream& os, VpnDomainId id) {
    return os << id.toString();
}

std::ostream& operator<<(std::ostream& os, DomainSegment segment) {
    return os << segment.toStrep();
}

// ---- DomainPathContent

DomainSegment DomainPathContent::domainSegmentAt(size_t index) const {
    ORV_ASSERT(index < domainSegments_.size());
    return domainSegments_[index];
}

namespace {
uint32_t domainPathHash(std::span<const DomainSegment> segments) noexcept {
    Keel::HashMix m(0);
    m.hashMix(static_cast<uint32_t>(segments.size()));
    for (DomainSegment s : segments)
        m.hashMix(s.domainSegmentStorage());
    return m.result();
}
} // namespace

uint32_t DomainPathContent::hash() const noexcept {
    return domainPathHash(domainSegments_);
}

// ---- the lookup cache

// The LRU cache of one path: entries most recently used first, each the id's 48-bit value shifted
// left once with the answer in bit 0. Ten entries make a linear scan the cheapest lookup and a
// shift the cheapest reordering. One slot beyond the limit holds the newest entry until the trim.
class DomainIdLookupCache {
    MELSTASH_STORE_ALLOCATED(DomainIdLookupCache)

public:
    uint32_t size = 0;
    uint64_t entries[DomainPath::maxLruCacheSize + 1];

    // Moves entry i to the front.
    void touch(uint32_t i) noexcept {
        uint64_t e = entries[i];
        std::memmove(entries + 1, entries, i * sizeof(uint64_t));
        entries[0] = e;
    }
    void pushFront(uint64_t e) noexcept {
        std::memmove(entries + 1, entries, size * sizeof(uint64_t));
        entries[0] = e;
        ++size;
    }
};

namespace {
std::mutex& domainIdLookupCacheMutex() {
    static auto* m = new std::mutex; // never destroyed: paths released during exit may take it
    return *m;
}
} // namespace

// ---- DomainPath

DomainPath::DomainPath(std::span<const DomainSegment> segments) noexcept
    : count_(static_cast<uint32_t>(segments.size())) {
    hashIs(domainPathHash(segments));
    if (!segments.empty())
        std::memcpy(static_cast<void*>(segments_), segments.data(), segments.size_bytes());
}

DomainPath::~DomainPath() {
    delete cache();
}

DomainPath* DomainPath::make(std::span<const DomainSegment> segments) {
    ORV_ASSERT(segments.size() <= maxHeldDomainSegments);
    return new (MelStash::ExtraBytes{segments.size_bytes()}) DomainPath(segments);
}

DomainSegment DomainPath::domainSegmentAt(size_t index) const {
    ORV_ASSERT(index < domainSegmentCount());
    return segments_[index];
}

DomainIdLookupCache* DomainPath::cache() const noexcept {
    return static_cast<DomainIdLookupCache*>(StoreManager::expand(cacheRef_));
}

Mel::Bytes DomainPath::serialize() const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: DomainPath::serialize()");
    const auto segments = domainSegments();
    const size_t n = segments.size();
    const size_t sequences = (n + maxDomainSegmentsPerSequence - 1) / maxDomainSegmentsPerSequence;
    TRACE_AT(Tracelet::orvBgp(), 5, "numDomainSequence " << sequences << ", domainPathSize " << n);
    Serialize s;
    SerializePathAttribute(s, BgpPathAttrType::dPath_,
                           pathAttrFlagOptional | pathAttrFlagTransitive, sequences + 7 * n);
    for (size_t i = 0; i < n; ++i) {
        if (i % maxDomainSegmentsPerSequence == 0)
            s.addU8(uint8_t(std::min(n - i, maxDomainSegmentsPerSequence)));
        const DomainSegment seg = segments[i];
        if (!seg.valid()) throwVpnDomainIdRange();
        const VpnDomainId id = seg.vpnDomainId();
        s.addU32hton(id.globalAdmin());
        s.addU16hton(id.localAdmin());
        s.addU8(seg.domainFlag());
    }
    return s.serializedBytes();
}

void DomainPath::serialize(PathAttributesSerializeStoreMethodBase& store) const {
    store.store(BgpPathAttrType::dPath_, serialize());
}

bool DomainPath::containsDomainId(VpnDomainId id) const {
    std::lock_guard lock(domainIdLookupCacheMutex());
    DomainIdLookupCache* c = cache();
    if (!c) {
        c = new DomainIdLookupCache;
        cacheRef_ = StoreManager::compress(c);
    }
    for (uint32_t i = 0; i < c->size; ++i) {
        if (c->entries[i] >> 1 == id.value()) {
            c->touch(i);
            return c->entries[0] & 1;
        }
    }
    bool found = false;
    for (DomainSegment s : domainSegments()) {
        if (s.vpnDomainId() == id) {
            found = true;
            break;
        }
    }
    c->pushFront(id.value() << 1 | (found ? 1 : 0));
    handleDomainIdLruMaxCacheSize();
    return found;
}

void DomainPath::handleDomainIdLruMaxCacheSize() const noexcept {
    DomainIdLookupCache* c = cache();
    while (c->size > maxLruCacheSize)
        --c->size; // the last entry is the least recently used
}

std::vector<VpnDomainId> DomainPath::domainIdLookupCacheIds() const {
    std::lock_guard lock(domainIdLookupCacheMutex());
    std::vector<VpnDomainId> out;
    if (const DomainIdLookupCache* c = cache())
        for (uint32_t i = 0; i < c->size; ++i)
            out.push_back(VpnDomainId(int64_t(c->entries[i] >> 1)));
    return out;
}

Mel::String DomainPath::toStrep() const {
    Mel::String out;
    for (DomainSegment s : domainSegments()) {
        if (!out.empty()) out += ' ';
        out += s.toStrep();
    }
    return out;
}

std::ostream& operator<<(std::ostream& os, const DomainPath& path) {
    return os << path.toStrep();
}

bool DomainPath::equals(std::span<const DomainSegment> segments) const noexcept {
    return segments.size() == domainSegmentCount() &&
           (segments.empty() ||
            std::memcmp(segments.data(), segments_, segments.size_bytes()) == 0);
}

bool DomainPath::compare(const Keel::DedupHandleBase* other) const {
    return equals(static_cast<const DomainPath*>(other)->domainSegments());
}

bool DomainPath::compareByContent(const Keel::DedupContentHandle& content) const {
    return equals(static_cast<const DomainPathContent&>(content).domainSegments());
}

// ---- stored paths

namespace {
const bool stashReaderRegistered = [] {
    static const DomainPathStashReader reader;
    MelStash::StashReaderRegistry::registerReader(typeid(DomainPath), &reader);
    return true;
}();
} // namespace

Mel::PtrConst<DomainPath> DomainPathStashReader::destash(const void* stored,
                                                         StoreManager::RawPtr) const {
    const auto* p =
        static_cast<const DomainPath*>(static_cast<const Keel::DedupHandleBase*>(stored));
    return DomainPathDedupTable::instance().findOrCreate(p->content());
}

Mel::PtrConst<DomainPath> DomainPath::dedup() const {
    return dedup(DomainPathDedupTable::instance());
}

Mel::PtrConst<DomainPath> DomainPath::dedup(DomainPathDedupTable& table) const {
    return table.dedup(Mel::PtrConst<DomainPath>(this));
}

Mel::PtrConst<DomainPath> domainPathFactory(const DomainPathContent& content) {
    return DomainPathDedupTable::instance().findOrCreate(content);
}

Mel::PtrConst<DomainPath> DomainPath::destash(const void* stored, StoreManager::RawPtr store) {
    ORV_ASSERT(nullptr != stored);
    const auto* obj = static_cast<const Keel::DedupHandleBase*>(stored);
    const auto* reader =
        MelStash::StashReaderRegistry::readerFor<DomainPathStashReader>(typeid(*obj));
    ORV_ASSERT(nullptr != reader);
    return reader->destash(stored, store);
}

// ---- table

DomainPathDedupTable& DomainPathDedupTable::instance() {
    static auto* table = new DomainPathDedupTable("DomainPathDedupTable");
    return *table;
}

namespace {
struct DomainContentEq {
    bool operator()(const DomainPath& p, const DomainPathContent& c) const noexcept {
        return p.equals(c.domainSegments());
    }
};
} // namespace

Mel::PtrConst<DomainPath> DomainPathDedupTable::find(const DomainPathContent& content) const {
    return DedupTable::find(content.hash(), content, DomainContentEq{});
}

Mel::PtrConst<DomainPath> DomainPathDedupTable::findOrCreate(const DomainPathContent& content) {
    return DedupTable::findOrCreate(
        content.hash(), content, [&content] { return DomainPath::make(content.domainSegments()); },
        DomainContentEq{});
}

} // namespace Routing::Bgp
