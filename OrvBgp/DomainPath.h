// D-PATH (attribute 36): the VPN domains a route has crossed, interned as one immutable DomainPath.
//   DomainPathContent c;  c.domainSegmentEnq(DomainSegment(VpnDomainId(65001, 10), 0));
//   auto p = DomainPathDedupTable::instance().findOrCreate(c);  p->containsDomainId(id);
//   p->serialize();
//
// A segment prints as "<global admin>:<local admin>/0x<flag byte>" ("65001:10/0x00"); a path prints
// its segments in order, separated by one blank. A path is a 24-byte header plus 8 bytes per
// segment in one store block (the segment count lives in the handle's user-data bits); the lookup
// cache is a second block, made on the first containsDomainId.
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "Mel/String.h"
#include "Mel/ValueType.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Routing::Bgp {

class PathAttributesSerializeStoreMethodBase;

// A 48-bit VPN domain id: 4-byte global administrator, 2-byte local administrator.
class VpnDomainId {
public:
    static constexpr uint64_t maxDomainId = (uint64_t(1) << 48) - 1;

    constexpr VpnDomainId() noexcept = default;
    constexpr VpnDomainId(uint32_t globalAdmin, uint16_t localAdmin) noexcept
        : value_(uint64_t(globalAdmin) << 16 | localAdmin) {}
    // Throws Mel::RangeException for a value below 0 or above maxDomainId.
    explicit VpnDomainId(int64_t value);

    constexpr uint64_t value() const noexcept { return value_; }
    constexpr uint32_t globalAdmin() const noexcept { return uint32_t(value_ >> 16); }
    constexpr uint16_t localAdmin() const noexcept { return uint16_t(value_); }

    // "<global admin>:<local admin>", both decimal.
    std::string toString() const;
    // Reads toString's form; throws Mel::ParseException naming the text.
    static VpnDomainId fromString(std::string_view text);

    friend constexpr bool operator==(VpnDomainId, VpnDomainId) noexcept = default;
    friend constexpr auto operator<=>(VpnDomainId, VpnDomainId) noexcept = default;

private:
    uint64_t value_ = 0;
};

// The range error for domain ids and segment words.
[[noreturn]] void throwVpnDomainIdRange();

// One D-PATH segment in one 64-bit word: global administrator in bits 24-55, local administrator
// in bits 8-23, the flag byte in bits 0-7; bits 56-63 are zero in a valid segment.
class DomainSegment {
public:
    constexpr DomainSegment() noexcept = default;
    constexpr DomainSegment(VpnDomainId id, uint8_t flag) noexcept { vpnDomainSegmentIs(id, flag); }

    constexpr void vpnDomainSegmentIs(VpnDomainId id, uint8_t flag) noexcept {
        storage_ = id.value() << 8 | flag;
    }
    // Any word; one with bits 56-63 set makes serialization throw.
    constexpr void domainSegmentStorageIs(uint64_t storage) noexcept { storage_ = storage; }
    constexpr uint64_t domainSegmentStorage() const noexcept { return storage_; }

    constexpr VpnDomainId vpnDomainId() const noexcept {
        return VpnDomainId(uint32_t(storage_ >> 24), uint16_t(storage_ >> 8));
    }
    constexpr uint8_t domainFlag() const noexcept { return uint8_t(storage_); }
    constexpr bool valid() const noexcept { return (storage_ >> 56) == 0; }

    // "65001:10/0x00"
    Mel::String toStrep() const;
    std::string toString() const { return toStrep(); }
    // Reads toStrep's form; throws Mel::ParseException naming the text.
    static DomainSegment fromString(std::string_view text);

    friend constexpr bool operator==(DomainSegment, DomainSegment) noexcept = default;
    friend constexpr auto operator<=>(DomainSegment, DomainSegment) noexcept = default;

private:
    uint64_t storage_ = 0;
};

// The value a DomainPath is interned from.
class DomainPathContent : public Keel::DedupContentHandle {
public:
    DomainPathContent() = default;
    explicit DomainPathContent(std::span<const DomainSegment> segments)
        : domainSegments_(segments.begin(), segments.end()) {}

    std::span<const DomainSegment> domainSegments() const noexcept { return domainSegments_; }
    size_t domainSegmentCount() const noexcept { return domainSegments_.size(); }
    DomainSegment domainSegmentAt(size_t index) const;
    void domainSegmentEnq(DomainSegment segment) { domainSegments_.push_back(segment); }
    void domainSegmentDelAll() noexcept { domainSegments_.clear(); }

    // HashMix from 0 over the count (4 bytes), then every segment word (8 bytes), in order.
    uint32_t hash() const noexcept;
    bool operator==(const DomainPathContent& o) const noexcept {
        return domainSegments_ == o.domainSegments_;
    }

private:
    std::vector<DomainSegment> domainSegments_;

public:
    MEL_VALUE_TYPE(DomainPathContent, "Routing::Bgp::DomainPathContent", (domainSegments_))
};

class DomainIdLookupCache;
class DomainPathDedupTable;

class DomainPath : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(DomainPath)

public:
    static constexpr size_t maxDomainSegmentsPerSequence = 255;
    static constexpr size_t maxLruCacheSize = 10;
    // The most segments whose value (one count byte per sequence, 7 bytes per segment) fits a
    // 2-byte attribute length.
    static constexpr size_t maxDomainSegments = 9356;
    // The most segments a path holds: far more than any received path, and within both the count
    // a 32-bit count and one store block. A path one domain longer than the
    // longest received is held; writing it throws PathAttributeTooLongException.
    static constexpr size_t maxHeldDomainSegments = 0xffff;

    DomainPath(const DomainPath&) = delete;
    ~DomainPath() override;

    size_t domainSegmentCount() const noexcept { return count_; }
    std::span<const DomainSegment> domainSegments() const noexcept {
        return {segments_, domainSegmentCount()};
    }
    DomainSegment domainSegmentAt(size_t index) const;
    DomainPathContent content() const { return DomainPathContent(domainSegments()); }

    // The whole attribute: type 36, flags 0xC0, the segments in sequences of at most 255. Throws
    // Mel::RangeException for a segment with bits 56-63 set.
    Mel::Bytes serialize() const;
    void serialize(PathAttributesSerializeStoreMethodBase& store) const;

    // Does a segment carry this id? Answers are kept in a per-path LRU cache of maxLruCacheSize
    // ids, under one process-wide mutex.
    bool containsDomainId(VpnDomainId id) const;
    // The ids now cached, most recently used first.
    std::vector<VpnDomainId> domainIdLookupCacheIds() const;

    Mel::String toStrep() const;
    // `stored` is the address of a stored DomainPath; its value is interned in
    // DomainPathDedupTable::instance().
    static Mel::PtrConst<DomainPath> destash(const void* stored,
                                             MelStash::StoreManager::RawPtr store);

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;
    bool equals(std::span<const DomainSegment> segments) const noexcept;

    // The interned object equal to this one: this one when it is interned already.
    Mel::PtrConst<DomainPath> dedup() const;
    Mel::PtrConst<DomainPath> dedup(DomainPathDedupTable& table) const;

private:
    friend class DomainPathDedupTable;
    explicit DomainPath(std::span<const DomainSegment> segments) noexcept;
    static DomainPath* make(std::span<const DomainSegment> segments);
    DomainIdLookupCache* cache() const noexcept;
    // Drops least recently used entries until at most maxLruCacheSize remain. Under the mutex.
    void handleDomainIdLruMaxCacheSize() const noexcept;

    // Compressed store reference to the lookup cache, 0 until the first lookup; guarded by the
    // process-wide lookup mutex.
    mutable uint32_t cacheRef_ = 0;
    uint32_t count_;
    DomainSegment segments_[0]; // domainSegmentCount() words in the same block
};

class DomainPathDedupTable : public Keel::DedupTable<DomainPath> {
public:
    using DedupTable::DedupTable;
    using DedupTable::find;
    using DedupTable::findOrCreate;
    static DomainPathDedupTable& instance();

    Mel::PtrConst<DomainPath> find(const DomainPathContent& content) const;
    Mel::PtrConst<DomainPath> findOrCreate(const DomainPathContent& content);
};

// Reads a stored DomainPath back; registered for typeid(DomainPath).
class DomainPathStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<DomainPath> destash(const void* stored,
                                              MelStash::StoreManager::RawPtr store) const;
};

// The interned DomainPath of that content (DomainPathDedupTable::instance()).
Mel::PtrConst<DomainPath> domainPathFactory(const DomainPathContent& content);

std::ostream& operator<<(std::ostream& os, VpnDomainId id);
std::ostream& operator<<(std::ostream& os, DomainSegment segment);
std::ostream& operator<<(std::ostream& os, const DomainPath& path);

} // namespace Routing::Bgp
