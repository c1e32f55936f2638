// AS path segments: the live, mutable segment objects (AsSet, AsSequence) and the stored record a
// path keeps inline.
//   Mel::Ptr<AsSegment> s = asSegmentFactory(AsSegmentType::asSequence_, {65001, 100});
//   for (Orvnet::AutonomousSystem as : s->as()) ...;   AsSegmentRef r = *s;  r.asCount() == 2
#pragma once

#include "AsPath/AsSegmentType.h"
#include "Mel/Object.h"
#include "Mel/Ptr.h"
#include "Orvnet/AutonomousSystem.h"

#include <boost/container/vector.hpp>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <span>
#include <vector>

namespace Routing::Bgp {

using AsVector = boost::container::vector<Orvnet::AutonomousSystem>;

// A live segment: built by hand or read back from a stored path (destash), mutable until it is
// handed to a path. Not interned; interned paths keep their segments inline (StoredAsSegment).
class AsSegment : public Mel::Object {
public:
    AsSegmentType segmentType() const noexcept { return segmentType_; }
    uint32_t asCount() const noexcept { return uint32_t(as_.size()); }
    const AsVector& as() const noexcept { return as_; }
    const AsVector* asRawPtr() const noexcept { return &as_; }
    AsVector* asRawPtr() noexcept { return &as_; }
    void asReserve(size_t n) { as_.reserve(n); }
    void asAppend(Orvnet::AutonomousSystem as) { as_.push_back(as); }

    // Same type and the same AS numbers in the same order.
    friend bool operator==(const AsSegment& a, const AsSegment& b) noexcept {
        return a.segmentType_ == b.segmentType_ && a.as_ == b.as_;
    }

protected:
    explicit AsSegment(AsSegmentType type) noexcept : segmentType_(type) {}

private:
    AsSegmentType segmentType_;
    AsVector as_;
};

// AS_SET or AS_CONFED_SET; constructing it with a sequence type ends the process.
class AsSet : public AsSegment {
public:
    explicit AsSet(AsSegmentType type = AsSegmentType::asSet_);
};

// AS_SEQUENCE or AS_CONFED_SEQUENCE; constructing it with a set type ends the process.
class AsSequence : public AsSegment {
public:
    explicit AsSequence(AsSegmentType type = AsSegmentType::asSequence_);
};

using AsSegmentVector = std::vector<Mel::Ptr<AsSegment>>;

// A new AsSequence for types 2 and 3, a new AsSet for 1 and 4, holding `as`. Any other type ends
// the process (decoders reject unknown segment types before they build segments).
Mel::Ptr<AsSegment> asSegmentFactory(AsSegmentType type,
                                     std::span<const Orvnet::AutonomousSystem> as);
Mel::Ptr<AsSegment> asSegmentFactory(AsSegmentType type, std::initializer_list<uint32_t> as);

// The AS numbers of one segment, live or stored, read in order: a live segment's plain array of
// 4-byte numbers, or a stored segment's packed 16-bit units (see StoredAsSegment). A forward range
// whose elements are values, not references.
class AsNumbers {
public:
    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Orvnet::AutonomousSystem;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = Orvnet::AutonomousSystem;

        iterator() noexcept = default;
        iterator(const void* p, uint32_t left, bool packed) noexcept
            : p_(p), left_(left), packed_(packed) {}
        Orvnet::AutonomousSystem operator*() const noexcept {
            if (!packed_) return *static_cast<const Orvnet::AutonomousSystem*>(p_);
            auto* u = static_cast<const uint16_t*>(p_);
            if (u[0] < escapeShort) return uint32_t(u[0]);
            if (u[0] != escape) return uint32_t(u[0] & 0xf) << 16 | u[1];
            return uint32_t(u[1]) << 16 | u[2];
        }
        iterator& operator++() noexcept {
            if (!packed_) {
                p_ = static_cast<const Orvnet::AutonomousSystem*>(p_) + 1;
            } else {
                p_ = static_cast<const uint16_t*>(p_) + unitsAt(static_cast<const uint16_t*>(p_));
            }
            --left_;
            return *this;
        }
        iterator operator++(int) noexcept {
            iterator r = *this;
            ++*this;
            return r;
        }
        // Iterators of one range compare by how many numbers they have left.
        bool operator==(const iterator& o) const noexcept { return left_ == o.left_; }
        // Where the iterator points: past the last number, the end of the segment's storage.
        const void* position() const noexcept { return p_; }

    private:
        const void* p_ = nullptr;
        uint32_t left_ = 0;
        bool packed_ = false;
    };

    // Packed units from escapeShort up announce a number that does not fit one unit: escapeShort
    // | h (h below 15) holds its high half, the next unit its low half; escape is followed by
    // both halves.
    static constexpr uint16_t escapeShort = 0xfff0;
    static constexpr uint16_t escape = 0xffff;
    // How many units the number stored at u takes.
    static uint32_t unitsAt(const uint16_t* u) noexcept {
        return u[0] < escapeShort ? 1 : u[0] != escape ? 2 : 3;
    }
    template <class Units>
    static void appendPacked(Units& units, uint32_t v) {
        if (v < escapeShort) {
            units.push_back(uint16_t(v));
        } else if ((v >> 16) < 0xf) {
            units.push_back(uint16_t(escapeShort | v >> 16));
            units.push_back(uint16_t(v));
        } else {
            units.push_back(escape);
            units.push_back(uint16_t(v >> 16));
            units.push_back(uint16_t(v));
        }
    }

    AsNumbers() noexcept = default;
    AsNumbers(std::span<const Orvnet::AutonomousSystem> plain) noexcept
        : p_(plain.data()), n_(uint32_t(plain.size())), packed_(false) {}
    static AsNumbers packed(const uint16_t* units, uint32_t count) noexcept {
        AsNumbers a;
        a.p_ = units;
        a.n_ = count;
        a.packed_ = true;
        return a;
    }

    uint32_t size() const noexcept { return n_; }
    bool empty() const noexcept { return n_ == 0; }
    iterator begin() const noexcept { return {p_, n_, packed_}; }
    iterator end() const noexcept { return {nullptr, 0, packed_}; }
    Orvnet::AutonomousSystem front() const noexcept { return *begin(); }

private:
    const void* p_ = nullptr;
    uint32_t n_ = 0;
    bool packed_ = false;
};

// One segment as a path stores it, inside the path's own allocation, in 16-bit host-order units:
// a header unit (type code in the top 3 bits, AS count in the low 13; a count of 8191 or more
// puts 8191 there and the count in the next two units, high half first), then the AS numbers, one
// unit each below 65520; a larger one below 983040 (every public 4-byte AS number so far) takes
// two units (0xfff0 | its high half, then its low half), any other three (0xffff, high half, low
// half). So a path of 2-byte AS numbers costs two bytes a number, and a 4-byte number in it costs
// four rather than making every number four. The unit 0 (type 0, no AS numbers) is the null
// segment of an empty path. Segments of a path follow one another without gaps.
class StoredAsSegment {
public:
    static constexpr uint32_t maxAsCount = 0xffffff;
    static constexpr uint16_t countInHeader = 0x1fff;

    static constexpr uint16_t headerUnit(AsSegmentType type, uint32_t asCount) noexcept {
        return uint16_t((type.value() & 7) << 13 |
                        (asCount < countInHeader ? asCount : countInHeader));
    }
    // Appends the stored form of one segment to units.
    template <class Units, class Range>
    static void append(Units& units, AsSegmentType type, const Range& as) {
        uint32_t n = uint32_t(as.size());
        units.push_back(headerUnit(type, n));
        if (n >= countInHeader) {
            units.push_back(uint16_t(n >> 16));
            units.push_back(uint16_t(n));
        }
        for (auto a : as)
            AsNumbers::appendPacked(units, Orvnet::AutonomousSystem(a).value());
    }

    AsSegmentType segmentType() const noexcept { return AsSegmentType(uint16_t(unit_ >> 13)); }
    uint32_t asCount() const noexcept {
        uint32_t n = unit_ & countInHeader;
        return n < countInHeader ? n : uint32_t(units()[1]) << 16 | units()[2];
    }
    bool isNull() const noexcept { return unit_ == 0; }
    AsNumbers as() const noexcept { return AsNumbers::packed(numbersBegin(), asCount()); }
    // The segment stored after this one (meaningful only while the run has more).
    const StoredAsSegment* next() const noexcept {
        const uint16_t* p = numbersBegin();
        for (uint32_t i = asCount(); i > 0; --i)
            p += AsNumbers::unitsAt(p);
        return reinterpret_cast<const StoredAsSegment*>(p);
    }
    size_t storedBytes() const noexcept {
        return size_t(reinterpret_cast<const char*>(next()) - reinterpret_cast<const char*>(this));
    }

private:
    const uint16_t* units() const noexcept { return &unit_; }
    const uint16_t* numbersBegin() const noexcept {
        return units() + ((unit_ & countInHeader) < countInHeader ? 1 : 3);
    }
    uint16_t unit_;
};
static_assert(sizeof(StoredAsSegment) == 2);

// A non-owning view of one segment, live or stored: what the serializers read.
struct AsSegmentRef {
    AsSegmentType type;
    AsNumbers as;

    AsSegmentRef(AsSegmentType t, AsNumbers a) noexcept : type(t), as(a) {}
    AsSegmentRef(const StoredAsSegment& s) noexcept : type(s.segmentType()), as(s.as()) {}
    AsSegmentRef(const AsSegment& s) noexcept
        : type(s.segmentType()),
          as(std::span<const Orvnet::AutonomousSystem>(s.as().data(), s.as().size())) {}

    AsSegmentType segmentType() const noexcept { return type; }
    uint32_t asCount() const noexcept { return as.size(); }
};

} // namespace Routing::Bgp
