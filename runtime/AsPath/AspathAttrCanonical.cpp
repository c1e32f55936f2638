#include "AsPath/AspathAttrCanonical.h"

#define ORV_UNIT "AsPath/AspathAttrCanonical"
#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Exception.h"
#include "MelStash/StoreManager.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace Routing::Bgp {

namespace {

constexpr uint16_t nullSegmentUnit[1] = {0};

} // namespace

// ---------------------------------------------------------------------------------------------
const StoredAsSegment* AsSegmentRun::endPtr() const noexcept {
    const StoredAsSegment* p = first();
    for (uint32_t i = 0; i < count_; ++i)
        p = p->next();
    return p;
}

// ---------------------------------------------------------------------------------------------
AsSegmentRun AspathAttrCanonical::confedPath() const noexcept {
    if (form() == AspathForm::singleSeg) return {};
    const uint16_t* u = storedUnits();
    return {reinterpret_cast<const StoredAsSegment*>(u + 2), u[0]};
}

AsSegmentRun AspathAttrCanonical::path() const noexcept {
    const uint16_t* u = storedUnits();
    switch (layout()) {
    case AspathLayout::bareSequence:
        return AsSegmentRun::bareSequence(u, bareCount());
    case AspathLayout::singleSeg: {
        auto* seg = reinterpret_cast<const StoredAsSegment*>(u);
        return {seg->isNull() ? nullptr : seg, seg->isNull() ? 0u : 1u};
    }
    default:
        break;
    }
    AsSegmentRun confed(reinterpret_cast<const StoredAsSegment*>(u + 2), u[0]);
    return {confed.endPtr(), u[1]};
}

std::span<const uint8_t> AspathAttrCanonical::storedBytes() const noexcept {
    const uint8_t* begin = storedBegin();
    switch (layout()) {
    case AspathLayout::bareSequence:
        return {begin, 2 * size_t(bareCount())};
    case AspathLayout::singleSeg:
        return {begin, reinterpret_cast<const StoredAsSegment*>(begin)->storedBytes()};
    default:
        break;
    }
    const uint8_t* end = reinterpret_cast<const uint8_t*>(path().endPtr());
    return {begin, size_t(end - begin)};
}

void AspathAttrCanonical::storedIs(std::span<const uint16_t> units) noexcept {
    std::memcpy(const_cast<uint8_t*>(storedBegin()), units.data(), units.size_bytes());
}

size_t AspathAttrCanonical::extraBytesFor(size_t bytes) noexcept {
    size_t need = headerBytes + bytes;
    return need > sizeof(AspathAttrCanonical) ? need - sizeof(AspathAttrCanonical) : 0;
}

uint32_t AspathAttrCanonical::bareCount() const noexcept {
    size_t block = MelStash::StoreManager::smallBlockSize(this); // 1 KiB at most
    const uint16_t* u = storedUnits();
    uint32_t n = uint32_t((block - headerBytes) / 2);
    while (u[n - 1] == AsNumbers::escape) // the first unit is a number: the loop stops there
        --n;
    return n;
}

uint32_t AspathAttrCanonical::hash() const {
    return aspathAttrCanonicalHash(layout(), storedBytes());
}

bool AspathAttrCanonical::compare(const Keel::DedupHandleBase* other) const {
    auto* o = dynamic_cast<const AspathAttrCanonical*>(other);
    if (!o || o->layout() != layout()) return false;
    std::span<const uint8_t> a = storedBytes(), b = o->storedBytes();
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size()) == 0;
}

bool AspathAttrCanonical::compareByContent(const Keel::DedupContentHandle& content) const {
    return compareByContent(static_cast<const AspathAttrCanonicalContent&>(content));
}

bool AspathAttrCanonical::compareByContent(
    const AspathAttrCanonicalContent& content) const noexcept {
    if (content.layout() != layout()) return false;
    std::span<const uint16_t> w = content.storedUnits();
    // Compare the stored region word by word without walking it first: the content's words are
    // a well-formed region, so a mismatch is found no later than the object's own end.
    std::span<const uint8_t> mine = storedBytes();
    return mine.size() == w.size_bytes() && std::memcmp(mine.data(), w.data(), mine.size()) == 0;
}

AspathAttrCanonical* AspathAttrCanonical::make(const AspathAttrCanonicalContent& content) {
    std::span<const uint16_t> units = content.storedUnits();
    const AspathLayout layout = content.layout();
    size_t bytes = units.size_bytes();
    // A bare sequence takes its whole block (8-byte steps at these sizes) and pads it.
    if (layout == AspathLayout::bareSequence)
        bytes = ((headerBytes + bytes + 7) & ~size_t(7)) - headerBytes;
    MelStash::ExtraBytes extra{extraBytesFor(bytes)};
    AspathAttrCanonical* p = nullptr;
    switch (layout) {
    case AspathLayout::singleSeg:
        p = new (extra) AspathAttrCanonicalSingleSeg();
        break;
    case AspathLayout::bareSequence:
        p = new (extra) AspathAttrCanonicalBareSequence();
        break;
    case AspathLayout::withPathVector:
        p = new (extra) AspathAttrCanonicalWithPathVector();
        break;
    case AspathLayout::withConfed:
        p = new (extra) AspathAttrCanonicalWithConfed();
        break;
    }
    p->storedIs(units);
    if (layout == AspathLayout::bareSequence) {
        auto* pad = const_cast<uint16_t*>(p->storedUnits()) + units.size();
        std::fill(pad, pad + (bytes - units.size_bytes()) / 2, AsNumbers::escape);
        ORV_ASSERT(MelStash::StoreManager::instance().blockSize(p) == headerBytes + bytes);
    }
    return p;
}

Mel::PtrConst<AspathAttrCanonicalSingleSeg>
AspathAttrCanonicalSingleSeg::create(const AsSegment* segment) {
    AspathAttrCanonicalContent c;
    c.formIs(AspathForm::singleSeg);
    if (segment) c.pathSegmentAdd(*segment);
    return Mel::PtrConst<AspathAttrCanonicalSingleSeg>(
        static_cast<const AspathAttrCanonicalSingleSeg*>(make(c)));
}

Mel::PtrConst<AspathAttrCanonicalWithPathVector>
AspathAttrCanonicalWithPathVector::create(const AsSegmentVector& path) {
    AspathAttrCanonicalContent c;
    c.formIs(AspathForm::withPathVector);
    for (const auto& s : path)
        c.pathSegmentAdd(*s);
    return Mel::PtrConst<AspathAttrCanonicalWithPathVector>(
        static_cast<const AspathAttrCanonicalWithPathVector*>(make(c)));
}

Mel::PtrConst<AspathAttrCanonicalWithConfed>
AspathAttrCanonicalWithConfed::create(const AsSegmentVector& confedPath,
                                      const AsSegmentVector& path) {
    AspathAttrCanonicalContent c;
    c.formIs(AspathForm::withConfed);
    for (const auto& s : confedPath)
        c.confedSegmentAdd(*s);
    for (const auto& s : path)
        c.pathSegmentAdd(*s);
    return Mel::PtrConst<AspathAttrCanonicalWithConfed>(
        static_cast<const AspathAttrCanonicalWithConfed*>(make(c)));
}

// ---------------------------------------------------------------------------------------------
template <class Range>
void AspathAttrCanonicalContent::add(bool confed, AsSegmentType type, const Range& as) {
    if (!type.isValid())
        throw Mel::RangeException("AS path segment type " + std::to_string(type.value()) +
                                  " is not one of 1-4");
    if (as.size() > StoredAsSegment::maxAsCount)
        throw Mel::RangeException("AS path segment of " + std::to_string(as.size()) +
                                  " AS numbers is longer than " +
                                  std::to_string(StoredAsSegment::maxAsCount));
    uint32_t& count = confed ? confedCount_ : pathCount_;
    if (count == maxSegments)
        throw Mel::RangeException("AS path with more than " + std::to_string(maxSegments) +
                                  (confed ? " confederation segments" : " segments"));
    if (confed) {
        segment_.clear();
        StoredAsSegment::append(segment_, type, as);
        units_.insert(units_.begin() + confedEnd_, segment_.begin(), segment_.end());
        confedEnd_ += segment_.size();
    } else {
        size_t before = units_.size();
        StoredAsSegment::append(units_, type, as);
        // One header unit and one unit per number: no escapes, a short count.
        if (pathCount_ == 0)
            firstPathBare_ = type == AsSegmentType::asSequence_ && !as.empty() &&
                             as.size() <= AspathAttrCanonicalBareSequence::maxCount &&
                             units_.size() - before == as.size() + 1;
    }
    ++count;
    units_[0] = uint16_t(confedCount_);
    units_[1] = uint16_t(pathCount_);
}

void AspathAttrCanonicalContent::segmentAdd(AsSegmentType type,
                                            std::span<const Orvnet::AutonomousSystem> as) {
    add(pathCount_ == 0 && type.isConfed(), type, as);
}

void AspathAttrCanonicalContent::segmentAdd(AsSegmentType type, std::span<const uint32_t> as) {
    add(pathCount_ == 0 && type.isConfed(), type, as);
}

void AspathAttrCanonicalContent::segmentAdd(AsSegmentType type, AsNumbers as) {
    add(pathCount_ == 0 && type.isConfed(), type, as);
}

void AspathAttrCanonicalContent::segmentAdd(const AsSegment& segment) {
    AsSegmentRef r(segment);
    segmentAdd(r.type, r.as);
}

void AspathAttrCanonicalContent::confedSegmentAdd(AsSegmentRef segment) {
    add(true, segment.type, segment.as);
}

void AspathAttrCanonicalContent::pathSegmentAdd(AsSegmentRef segment) {
    add(false, segment.type, segment.as);
}

AspathForm AspathAttrCanonicalContent::form() const noexcept {
    if (form_) return AspathForm(form_);
    if (confedCount_) return AspathForm::withConfed;
    return pathCount_ <= 1 ? AspathForm::singleSeg : AspathForm::withPathVector;
}

AspathLayout AspathAttrCanonicalContent::layout() const noexcept {
    AspathForm f = form();
    if (f == AspathForm::singleSeg && pathCount_ == 1 && confedCount_ == 0 && firstPathBare_)
        return AspathLayout::bareSequence;
    return AspathLayout(f);
}

std::span<const uint16_t> AspathAttrCanonicalContent::storedUnits() const noexcept {
    switch (form()) {
    case AspathForm::singleSeg:
        ORV_ASSERT(confedCount_ == 0 && pathCount_ <= 1);
        if (pathCount_ == 0) return nullSegmentUnit;
        if (firstPathBare_) return {units_.data() + 3, units_.size() - 3}; // no segment header
        return {units_.data() + 2, units_.size() - 2};
    case AspathForm::withPathVector:
        ORV_ASSERT(confedCount_ == 0);
        break;
    case AspathForm::withConfed:
        break;
    }
    return {units_.data(), units_.size()};
}

uint32_t AspathAttrCanonicalContent::hash() const noexcept {
    std::span<const uint16_t> w = storedUnits();
    return aspathAttrCanonicalHash(layout(),
                                   {reinterpret_cast<const uint8_t*>(w.data()), w.size_bytes()});
}

void AspathAttrCanonicalContent::clear() noexcept {
    units_.assign(2, 0);
    confedEnd_ = 2;
    confedCount_ = 0;
    pathCount_ = 0;
    form_ = 0;
    firstPathBare_ = false;
}

uint32_t aspathAttrCanonicalHash(AspathLayout layout, std::span<const uint8_t> stored) noexcept {
    Keel::HashMix m(0);
    m.hashMix(uint8_t(layout));
    m.hashMix(Keel::hashBytes(stored.data(), stored.size()));
    return m.result();
}

// ---------------------------------------------------------------------------------------------
AspathAttrCanonicalDedupTable& AspathAttrCanonicalDedupTable::instance() {
    // Never destroyed: paths may be released by other static destructors at exit.
    static auto* table = new AspathAttrCanonicalDedupTable();
    return *table;
}

Mel::PtrConst<AspathAttrCanonical>
AspathAttrCanonicalDedupTable::find(const AspathAttrCanonicalContent& content) const {
    return DedupTable::find(content.hash(), content);
}

Mel::PtrConst<AspathAttrCanonical>
AspathAttrCanonicalDedupTable::findOrCreate(const AspathAttrCanonicalContent& content) {
    return DedupTable::findOrCreate(content.hash(), content,
                                    [&] { return AspathAttrCanonical::make(content); });
}

Mel::PtrConst<AspathAttrCanonical>
aspathAttrCanonicalFactory(const AspathAttrCanonicalContent& content) {
    return AspathAttrCanonicalDedupTable::instance().findOrCreate(content);
}

} // namespace Routing::Bgp
