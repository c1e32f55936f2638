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

// One segment as a path stores it, inside the path's own allocation: a 4-byte word (type code in
// the high 8 bits, AS count in the low 24 bits) followed directly by the AS numbers (4 bytes
// each, host order). Segments of a path follow one another without gaps. The word 0 (type 0, no
// AS numbers) is the null segment of an empty path.
class StoredAsSegment {
public:
    static constexpr uint32_t maxAsCount = 0xffffff;

    static constexpr uint32_t headerWord(AsSegmentType type, uint32_t asCount) noexcept {
        return uint32_t(type.value() & 0xff) << 24 | (asCount & maxAsCount);
    }
    static constexpr size_t storedBytesFor(uint32_t asCount) noexcept {
        return 4 + 4 * size_t(asCount);
    }

    AsSegmentType segmentType() const noexcept { return AsSegmentType(uint16_t(word_ >> 24)); }
    uint32_t asCount() const noexcept { return word_ & maxAsCount; }
    bool isNull() const noexcept { return word_ == 0; }
    // The AS numbers sit right after the header word.
    std::span<const Orvnet::AutonomousSystem> as() const noexcept {
        return {reinterpret_cast<const Orvnet::AutonomousSystem*>(this + 1), asCount()};
    }
    size_t storedBytes() const noexcept { return storedBytesFor(asCount()); }
    // The segment stored after this one (meaningful only while the run has more).
    const StoredAsSegment* next() const noexcept {
        return reinterpret_cast<const StoredAsSegment*>(reinterpret_cast<const char*>(this) +
                                                        storedBytes());
    }

private:
    uint32_t word_;
};
static_assert(sizeof(StoredAsSegment) == 4 && sizeof(Orvnet::AutonomousSystem) == 4);

// A non-owning view of one segment, live or stored: what the serializers read.
struct AsSegmentRef {
    AsSegmentType type;
    std::span<const Orvnet::AutonomousSystem> as;

    AsSegmentRef(AsSegmentType t, std::span<const Orvnet::AutonomousSystem> a) noexcept
        : type(t), as(a) {}
    AsSegmentRef(const StoredAsSegment& s) noexcept : type(s.segmentType()), as(s.as()) {}
    AsSegmentRef(const AsSegment& s) noexcept
        : type(s.segmentType()), as(s.as().data(), s.as().size()) {}

    AsSegmentType segmentType() const noexcept { return type; }
    uint32_t asCount() const noexcept { return uint32_t(as.size()); }
};

} // namespace Routing::Bgp
