// Interned AS paths: equal paths are one immutable object in the store, held by 4-byte references.
//   AspathAttrCanonicalContent c; c.segmentAdd(AsSegmentType::asSequence_, {65001, 100});
//   Mel::PtrConst<AspathAttrCanonical> p = aspathAttrCanonicalFactory(c);  // SingleSeg form
#pragma once

#include "AsPath/AsSegment.h"
#include "Keel/DedupTable.h"
#include "Mel/Ptr.h"
#include "MelStash/DedupHandle.h"

#include <boost/container/small_vector.hpp>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <span>
#include <string>

namespace Routing::Bgp {

// The three stored forms. The content picks the smallest that holds the path: SingleSeg for zero
// or one ordinary segment and no confederation segment, WithConfed when the path starts with
// confederation segments, WithPathVector otherwise.
enum class AspathForm : uint8_t { singleSeg = 1, withPathVector = 2, withConfed = 3 };

// How a path's stored region is laid out: as its form, or (bareSequence) as a SingleSeg path whose
// one AS_SEQUENCE is stored without its segment header. Hashing and equality tell layouts apart.
enum class AspathLayout : uint8_t {
    singleSeg = 1,
    withPathVector = 2,
    withConfed = 3,
    bareSequence = 4
};

// The segments of one list of a path, read in order as AsSegmentRef values: a run of stored
// segments that follow one another in their path's allocation, or the one AS_SEQUENCE of a path
// stored without its segment header (a bare sequence, see AspathAttrCanonicalBareSequence).
class AsSegmentRun {
public:
    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = AsSegmentRef;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = AsSegmentRef;

        iterator() noexcept = default;
        iterator(const StoredAsSegment* p, uint32_t left) noexcept : p_(p), left_(left) {}
        iterator(const uint16_t* bareUnits, uint32_t left, uint32_t bareCount) noexcept
            : p_(bareUnits), left_(left), bareCount_(bareCount) {}
        AsSegmentRef operator*() const noexcept {
            if (bareCount_)
                return {AsSegmentType::asSequence_,
                        AsNumbers::packed(static_cast<const uint16_t*>(p_), bareCount_)};
            return *stored();
        }
        // The stored segment the iterator is at; null in a bare sequence.
        const StoredAsSegment* stored() const noexcept {
            return bareCount_ ? nullptr : static_cast<const StoredAsSegment*>(p_);
        }
        iterator& operator++() noexcept {
            p_ = bareCount_ ? nullptr : stored()->next();
            --left_;
            return *this;
        }
        iterator operator++(int) noexcept {
            iterator r = *this;
            ++*this;
            return r;
        }
        // Iterators of one run compare by how many segments they have left.
        bool operator==(const iterator& o) const noexcept { return left_ == o.left_; }

    private:
        const void* p_ = nullptr;
        uint32_t left_ = 0;
        uint32_t bareCount_ = 0; // AS numbers of a bare sequence; 0 for stored segments
    };

    AsSegmentRun() noexcept = default;
    AsSegmentRun(const StoredAsSegment* first, uint32_t count) noexcept
        : first_(first), count_(count) {}
    // The one segment of a bare sequence: count AS numbers of one unit each at units.
    static AsSegmentRun bareSequence(const uint16_t* units, uint32_t count) noexcept {
        AsSegmentRun r;
        r.first_ = units;
        r.count_ = 1;
        r.bareCount_ = count;
        return r;
    }

    // The first stored segment (the run's stored pointer); null for an empty run of a SingleSeg
    // and for a bare sequence, which has no stored segment.
    const StoredAsSegment* first() const noexcept {
        return bareCount_ ? nullptr : static_cast<const StoredAsSegment*>(first_);
    }
    bool bare() const noexcept { return bareCount_ != 0; }
    uint32_t size() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }
    iterator begin() const noexcept {
        if (bareCount_) return {static_cast<const uint16_t*>(first_), count_, bareCount_};
        return {first(), count_};
    }
    iterator end() const noexcept { return {}; }
    // Just past the last segment: where the next run starts (runs of stored segments only).
    const StoredAsSegment* endPtr() const noexcept;

private:
    const void* first_ = nullptr;
    uint32_t count_ = 0;
    uint32_t bareCount_ = 0;
};

class AspathAttrCanonicalContent;

// An AS path: confederation segments (`confedPath`, only in the WithConfed form) followed by the
// ordinary segments (`path`). The segments live in the object's own allocation, right after the
// 12-byte object header, in 16-bit units (StoredAsSegment), so a one-segment path of n AS numbers
// below 65535 takes 14 + 2n bytes (rounded up to 8: five numbers in 24 bytes, nine in 32).
// Layout after the header: SingleSeg holds one StoredAsSegment (the null segment when the path is
// empty), or is a bare sequence (AspathAttrCanonicalBareSequence: the numbers alone, which saves
// the block a two-byte header would push a path into); the other forms hold two units
// (confederation segment count, ordinary segment count) and then the confederation segments and
// the ordinary segments.
// The hash is not cached; it is XXH3 over that stored region, cheap to recompute when the table
// grows.
// All three forms are counted together in the store's figures, under AspathAttrCanonical.
class AspathAttrCanonical : public MelStash::DedupHandle {
    MELSTASH_STORE_ALLOCATED(AspathAttrCanonical)

public:
    // The object header: virtual table pointer and reference-count word.
    static constexpr size_t headerBytes = sizeof(void*) + sizeof(uint32_t);

    virtual AspathLayout layout() const noexcept = 0;
    AspathForm form() const noexcept {
        AspathLayout l = layout();
        return l == AspathLayout::bareSequence ? AspathForm::singleSeg : AspathForm(l);
    }

    AsSegmentRun confedPath() const noexcept;
    AsSegmentRun path() const noexcept;
    uint32_t confedSegmentCount() const noexcept { return confedPath().size(); }
    uint32_t segmentCount() const noexcept { return path().size(); }
    bool empty() const noexcept { return confedPath().empty() && path().empty(); }

    // The stored region after the object header (what hash and equality read).
    std::span<const uint8_t> storedBytes() const noexcept;

    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;
    bool compareByContent(const AspathAttrCanonicalContent& content) const noexcept;

    // A new object (not interned, no reference taken) of the content's form. Paths are built only
    // this way: the object's size depends on the content.
    static AspathAttrCanonical* make(const AspathAttrCanonicalContent& content);

protected:
    AspathAttrCanonical() noexcept = default;
    const uint8_t* storedBegin() const noexcept {
        return reinterpret_cast<const uint8_t*>(this) + headerBytes;
    }
    const uint16_t* storedUnits() const noexcept {
        return reinterpret_cast<const uint16_t*>(storedBegin());
    }
    // Copies the stored region in after the header; the object was allocated with room for it
    // (the region may start in the class's tail padding).
    void storedIs(std::span<const uint16_t> units) noexcept;
    // The bytes to allocate beyond sizeof for a stored region of `bytes`.
    static size_t extraBytesFor(size_t bytes) noexcept;
    // The AS numbers of a bare sequence: the units that fill the block, less the 0xffff padding.
    uint32_t bareCount() const noexcept;
};

class AspathAttrCanonicalSingleSeg : public AspathAttrCanonical {
public:
    AspathLayout layout() const noexcept override { return AspathLayout::singleSeg; }

    // A fresh path (not interned) of this form; segment may be null (empty path).
    static Mel::PtrConst<AspathAttrCanonicalSingleSeg> create(const AsSegment* segment);

protected:
    friend class AspathAttrCanonical;
    AspathAttrCanonicalSingleSeg() noexcept = default;
};

// The SingleSeg form of the commonest path: one AS_SEQUENCE of 1 to maxCount numbers, each below
// 65520 (one unit). Its units alone follow the header and fill the store block; the units left
// over at the end (at most three: blocks come in 8-byte steps up to 1 KiB) hold 0xffff, which no
// such number takes, so the count is read from the block size. Nothing else about the path
// changes: it is the SingleSeg form to every reader.
class AspathAttrCanonicalBareSequence final : public AspathAttrCanonicalSingleSeg {
public:
    static constexpr uint32_t maxCount = 500;
    AspathLayout layout() const noexcept override { return AspathLayout::bareSequence; }

protected:
    friend class AspathAttrCanonical;
    AspathAttrCanonicalBareSequence() noexcept = default;
};

class AspathAttrCanonicalWithPathVector : public AspathAttrCanonical {
public:
    AspathLayout layout() const noexcept override { return AspathLayout::withPathVector; }

    static Mel::PtrConst<AspathAttrCanonicalWithPathVector> create(const AsSegmentVector& path);

protected:
    friend class AspathAttrCanonical;
    AspathAttrCanonicalWithPathVector() noexcept = default;
};

class AspathAttrCanonicalWithConfed : public AspathAttrCanonicalWithPathVector {
public:
    AspathLayout layout() const noexcept override { return AspathLayout::withConfed; }

    static Mel::PtrConst<AspathAttrCanonicalWithConfed> create(const AsSegmentVector& confedPath,
                                                               const AsSegmentVector& path);

protected:
    friend class AspathAttrCanonical;
    AspathAttrCanonicalWithConfed() noexcept = default;
};

static_assert(sizeof(AspathAttrCanonicalSingleSeg) == sizeof(AspathAttrCanonical) &&
              sizeof(AspathAttrCanonicalBareSequence) == sizeof(AspathAttrCanonical) &&
              sizeof(AspathAttrCanonicalWithConfed) == sizeof(AspathAttrCanonical) &&
              AspathAttrCanonical::headerBytes == 12);

// The value a path is built from, and looked up by: the builder for decoded segments. It keeps
// the segments already in their stored layout, so looking a path up costs no allocation.
// Segment types outside 1-4, more than 2^24 - 1 AS numbers in a segment and more than 65535
// segments in either list are input errors: Mel::RangeException.
class AspathAttrCanonicalContent : public Keel::DedupContentHandle {
public:
    static constexpr uint32_t maxSegments = 0xffff;

    AspathAttrCanonicalContent() { units_.assign(2, 0); }

    // In the order of the UPDATE: confederation segments (types 3, 4) that come before every
    // other segment form the confederation path; all later segments, whatever their type, form
    // the ordinary path. That keeps the received order, so the path serializes back to the
    // bytes it was decoded from.
    void segmentAdd(AsSegmentType type, std::span<const Orvnet::AutonomousSystem> as);
    void segmentAdd(AsSegmentType type, std::span<const uint32_t> as);
    void segmentAdd(AsSegmentType type, AsNumbers as);
    void segmentAdd(AsSegmentType type, std::initializer_list<uint32_t> as) {
        segmentAdd(type, std::span<const uint32_t>(as.begin(), as.size()));
    }
    void segmentAdd(const AsSegment& segment);
    // Explicit placement, for paths built by other means than decoding (destash, tests).
    void confedSegmentAdd(AsSegmentRef segment);
    void pathSegmentAdd(AsSegmentRef segment);

    // Overrides the form the content would pick. SingleSeg needs at most one ordinary segment and
    // no confederation segment, WithPathVector no confederation segment (else the process ends
    // when the form is used).
    void formIs(AspathForm form) noexcept { form_ = uint8_t(form); }
    AspathForm form() const noexcept;
    // The form, or bareSequence when a SingleSeg path's segment qualifies.
    AspathLayout layout() const noexcept;

    uint32_t confedSegmentCount() const noexcept { return confedCount_; }
    uint32_t segmentCount() const noexcept { return pathCount_; }
    // The stored region of an AspathAttrCanonical of layout().
    std::span<const uint16_t> storedUnits() const noexcept;
    uint32_t hash() const noexcept;
    void clear() noexcept;

private:
    template <class Range>
    void add(bool confed, AsSegmentType type, const Range& as);

    // [confederation segment count][ordinary segment count][confederation segments][ordinary
    // segments], in stored units
    boost::container::small_vector<uint16_t, 128> units_;
    boost::container::small_vector<uint16_t, 64> segment_; // one segment being added
    size_t confedEnd_ = 2; // index of the first ordinary segment's unit
    uint32_t confedCount_ = 0;
    uint32_t pathCount_ = 0;
    uint8_t form_ = 0;           // 0: picked from the segments
    bool firstPathBare_ = false; // the first ordinary segment may be stored as a bare sequence
};

// The hash an AS path of `layout` with the stored region `stored` has.
uint32_t aspathAttrCanonicalHash(AspathLayout layout, std::span<const uint8_t> stored) noexcept;

class AspathAttrCanonicalDedupTable : public Keel::DedupTable<AspathAttrCanonical> {
public:
    explicit AspathAttrCanonicalDedupTable(std::string name = "AspathAttrCanonicalDedupTable",
                                           bool multiThreaded = Keel::multiThreadedOrvbgp())
        : DedupTable(std::move(name), multiThreaded) {}

    // The process-wide table, made on first use and never destroyed.
    static AspathAttrCanonicalDedupTable& instance();

    using DedupTable::dedup;
    using DedupTable::find;
    using DedupTable::findOrCreate;
    Mel::PtrConst<AspathAttrCanonical> find(const AspathAttrCanonicalContent& content) const;
    Mel::PtrConst<AspathAttrCanonical> findOrCreate(const AspathAttrCanonicalContent& content);
};

// The interned path of this content, from the process-wide table.
Mel::PtrConst<AspathAttrCanonical>
aspathAttrCanonicalFactory(const AspathAttrCanonicalContent& content);

} // namespace Routing::Bgp
