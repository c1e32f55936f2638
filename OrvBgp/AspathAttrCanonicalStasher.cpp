#include "OrvBgp/AspathAttrCanonicalStasher.h"

#define ORV_UNIT "OrvBgp/AspathAttrCanonicalStasher"
#include "Keel/Assert.h"
#include "Mel/Exception.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "Tracelet/Tracelet.h"

#include <typeinfo>

namespace Routing::Bgp {

using MelStash::StoreManager;

namespace {

// Interned objects live in the store at their own addresses: translating a stored pointer is the
// identity, whichever store is named.
template <class T>
const T* stored(const void* writerPtr, StoreManager::RawPtr /*store*/) noexcept {
    return static_cast<const T*>(writerPtr);
}

const AspathAttrCanonicalStashReader* readerOf(const void* writerPtr, StoreManager::RawPtr store) {
    auto* obj = stored<Keel::DedupHandleBase>(writerPtr, store);
    return MelStash::StashReaderRegistry::readerFor<AspathAttrCanonicalStashReader>(typeid(*obj));
}

// Codes outside 1-4.
class UnsupportedAsSegmentStasher : public AsSegmentStasher {
public:
    UnsupportedAsSegmentStasher() noexcept : AsSegmentStasher(AsSegmentType()) {}

    Mel::Ptr<AsSegment> destash(const void* writerPtr, StoreManager::RawPtr store) const override {
        auto* seg = stored<StoredAsSegment>(writerPtr, store);
        if (seg->asCount() == 0) return nullptr;
        throw Mel::NotSupportedException("Not supported: stored AS path segment type " +
                                         std::to_string(seg->segmentType().value()));
    }
    void stashSerialize(Serialize&, const void* writerPtr,
                        StoreManager::RawPtr store) const override {
        auto* seg = stored<StoredAsSegment>(writerPtr, store);
        if (seg->asCount() == 0) return;
        throw Mel::NotSupportedException("Not supported: stored AS path segment type " +
                                         std::to_string(seg->segmentType().value()));
    }
};

// Indexed by type code - 1.
const AsSegmentStasher segmentStashers[] = {
    AsSegmentStasher(AsSegmentType::asSet_),
    AsSegmentStasher(AsSegmentType::asSequence_),
    AsSegmentStasher(AsSegmentType::asConfedSequence_),
    AsSegmentStasher(AsSegmentType::asConfedSet_),
};
const UnsupportedAsSegmentStasher unsupportedSegmentStasher;

const AspathAttrCanonicalSingleSegStasher singleSegStasher;
const AspathAttrCanonicalWithPathVectorStasher withPathVectorStasher;
const AspathAttrCanonicalWithConfedStasher withConfedStasher;

[[maybe_unused]] const bool readersRegistered = [] {
    using MelStash::StashReaderRegistry;
    StashReaderRegistry::registerReader(typeid(AspathAttrCanonicalSingleSeg), &singleSegStasher);
    StashReaderRegistry::registerReader(typeid(AspathAttrCanonicalBareSequence), &singleSegStasher);
    StashReaderRegistry::registerReader(typeid(AspathAttrCanonicalWithPathVector),
                                        &withPathVectorStasher);
    StashReaderRegistry::registerReader(typeid(AspathAttrCanonicalWithConfed), &withConfedStasher);
    return true;
}();

// One segment, live or stored, of the given type.
Mel::Ptr<AsSegment> segmentDestash(AsSegmentType type, AsSegmentRef seg);
void segmentStrep(OrvFmt::DynamicBufferInterface& buffer, AsSegmentRef seg, bool asdot);
void segmentSerialize(Serialize& serialize, AsSegmentType type, AsSegmentRef seg);

Mel::Bytes finish(SerializePathAttributeAutoExtLen& s, bool hasPathAttrHeader) {
    if (!hasPathAttrHeader) return s.valueBytes();
    return s.patchHdrAndStringify(BgpPathAttrType::asPath_, pathAttrFlagTransitive);
}

} // namespace

// ---------------------------------------------------------------------------------------------
Mel::PtrConst<AspathAttrCanonical> AspathAttrCanonicalStasher::destash(const void* writerPtr,
                                                                       StoreManager::RawPtr store) {
    const AspathAttrCanonicalStashReader* reader = readerOf(writerPtr, store);
    ORV_ASSERT(nullptr != reader);
    return reader->destash(writerPtr, store);
}

void AspathAttrCanonicalStasher::stashStrep(OrvFmt::DynamicBufferInterface& buffer,
                                            const void* writerPtr, StoreManager::RawPtr store,
                                            bool asdot) {
    const AspathAttrCanonicalStashReader* reader = readerOf(writerPtr, store);
    ORV_ASSERT(nullptr != reader);
    reader->stashStrep(buffer, writerPtr, store, asdot);
}

std::string AspathAttrCanonicalStasher::stashStrep(const void* writerPtr,
                                                   StoreManager::RawPtr store, bool asdot) {
    OrvFmt::DynamicBuffer buffer;
    stashStrep(buffer, writerPtr, store, asdot);
    return buffer.str();
}

Mel::Bytes AspathAttrCanonicalStasher::stashSerialize(const void* writerPtr,
                                                      StoreManager::RawPtr store,
                                                      bool hasPathAttrHeader) {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: AspathAttrCanonicalStasher::stashSerialize()");
    const AspathAttrCanonicalStashReader* reader = readerOf(writerPtr, store);
    ORV_ASSERT(nullptr != reader);
    return reader->stashSerialize(writerPtr, store, hasPathAttrHeader);
}

// ---------------------------------------------------------------------------------------------
Mel::PtrConst<AspathAttrCanonical>
AspathAttrCanonicalSingleSegStasher::destash(const void* writerPtr,
                                             StoreManager::RawPtr store) const {
    AsSegmentRun run = stored<AspathAttrCanonicalSingleSeg>(writerPtr, store)->path();
    Mel::Ptr<AsSegment> segment;
    if (run.bare())
        segment = segmentDestash(AsSegmentType::asSequence_, *run.begin());
    else if (const StoredAsSegment* s = run.first())
        segment = AsSegmentStasher::forStored(s).destash(s, store);
    return AspathAttrCanonicalSingleSeg::create(segment.get());
}

void AspathAttrCanonicalSingleSegStasher::stashStrep(OrvFmt::DynamicBufferInterface& buffer,
                                                     const void* writerPtr,
                                                     StoreManager::RawPtr store, bool asdot) const {
    AsSegmentRun run = stored<AspathAttrCanonicalSingleSeg>(writerPtr, store)->path();
    if (run.bare())
        segmentStrep(buffer, *run.begin(), asdot);
    else
        allSegmentsStrep(run.size(), run.first(), buffer, store, true, asdot);
}

Mel::Bytes AspathAttrCanonicalSingleSegStasher::stashSerialize(const void* writerPtr,
                                                               StoreManager::RawPtr store,
                                                               bool hasPathAttrHeader) const {
    AsSegmentRun run = stored<AspathAttrCanonicalSingleSeg>(writerPtr, store)->path();
    SerializePathAttributeAutoExtLen s;
    if (run.bare())
        segmentSerialize(s, AsSegmentType::asSequence_, *run.begin());
    else
        allSegmentsSerialize(run.size(), run.first(), s, store);
    return finish(s, hasPathAttrHeader);
}

// ---------------------------------------------------------------------------------------------
Mel::PtrConst<AspathAttrCanonical>
AspathAttrCanonicalWithPathVectorStasher::destash(const void* writerPtr,
                                                  StoreManager::RawPtr store) const {
    AsSegmentRun run = stored<AspathAttrCanonicalWithPathVector>(writerPtr, store)->path();
    AsSegmentVector path;
    allSegmentsDestash(run.size(), run.first(), path, store);
    return AspathAttrCanonicalWithPathVector::create(path);
}

void AspathAttrCanonicalWithPathVectorStasher::stashStrep(OrvFmt::DynamicBufferInterface& buffer,
                                                          const void* writerPtr,
                                                          StoreManager::RawPtr store,
                                                          bool asdot) const {
    AsSegmentRun run = stored<AspathAttrCanonicalWithPathVector>(writerPtr, store)->path();
    allSegmentsStrep(run.size(), run.first(), buffer, store, true, asdot);
}

Mel::Bytes AspathAttrCanonicalWithPathVectorStasher::stashSerialize(const void* writerPtr,
                                                                    StoreManager::RawPtr store,
                                                                    bool hasPathAttrHeader) const {
    AsSegmentRun run = stored<AspathAttrCanonicalWithPathVector>(writerPtr, store)->path();
    SerializePathAttributeAutoExtLen s;
    allSegmentsSerialize(run.size(), run.first(), s, store);
    return finish(s, hasPathAttrHeader);
}

// ---------------------------------------------------------------------------------------------
Mel::PtrConst<AspathAttrCanonical>
AspathAttrCanonicalWithConfedStasher::destash(const void* writerPtr,
                                              StoreManager::RawPtr store) const {
    auto* p = stored<AspathAttrCanonicalWithConfed>(writerPtr, store);
    AsSegmentRun confedRun = p->confedPath(), run = p->path();
    AsSegmentVector confedPath, path;
    allSegmentsDestash(confedRun.size(), confedRun.first(), confedPath, store);
    allSegmentsDestash(run.size(), run.first(), path, store);
    return AspathAttrCanonicalWithConfed::create(confedPath, path);
}

void AspathAttrCanonicalWithConfedStasher::stashStrep(OrvFmt::DynamicBufferInterface& buffer,
                                                      const void* writerPtr,
                                                      StoreManager::RawPtr store,
                                                      bool asdot) const {
    auto* p = stored<AspathAttrCanonicalWithConfed>(writerPtr, store);
    AsSegmentRun confedRun = p->confedPath(), run = p->path();
    // isFirst stays set across an empty confederation path, so no blank leads the text.
    bool isFirst =
        allSegmentsStrep(confedRun.size(), confedRun.first(), buffer, store, true, asdot);
    allSegmentsStrep(run.size(), run.first(), buffer, store, isFirst, asdot);
}

Mel::Bytes AspathAttrCanonicalWithConfedStasher::stashSerialize(const void* writerPtr,
                                                                StoreManager::RawPtr store,
                                                                bool hasPathAttrHeader) const {
    auto* p = stored<AspathAttrCanonicalWithConfed>(writerPtr, store);
    AsSegmentRun confedRun = p->confedPath(), run = p->path();
    SerializePathAttributeAutoExtLen s;
    allSegmentsSerialize(confedRun.size(), confedRun.first(), s, store);
    allSegmentsSerialize(run.size(), run.first(), s, store);
    return finish(s, hasPathAttrHeader);
}

// ---------------------------------------------------------------------------------------------
const AsSegmentStasher& AsSegmentStasher::forStored(const void* writerPtr) noexcept {
    AsSegmentType t = static_cast<const StoredAsSegment*>(writerPtr)->segmentType();
    return t.isValid() ? segmentStashers[t.value() - 1] : unsupportedSegmentStasher;
}

namespace {

Mel::Ptr<AsSegment> segmentDestash(AsSegmentType type, AsSegmentRef seg) {
    Mel::Ptr<AsSegment> s;
    if (type.isSet())
        s = new AsSet(type);
    else
        s = new AsSequence(type);
    s->asReserve(seg.asCount());
    for (Orvnet::AutonomousSystem as : seg.as)
        s->asAppend(as);
    return s;
}

} // namespace

Mel::Ptr<AsSegment> AsSegmentStasher::destash(const void* writerPtr,
                                              StoreManager::RawPtr store) const {
    return segmentDestash(segmentType_, *stored<StoredAsSegment>(writerPtr, store));
}

void asStrep(OrvFmt::DynamicBufferInterface& buffer, Orvnet::AutonomousSystem as, bool asdot) {
    uint32_t v = as.value();
    if (asdot && v > 0xffff) {
        buffer.appendUnsigned(v >> 16);
        buffer.append('.');
        buffer.appendUnsigned(v & 0xffff);
    } else {
        buffer.appendUnsigned(v);
    }
}

namespace {

void segmentStrep(OrvFmt::DynamicBufferInterface& buffer, AsSegmentRef seg, bool asdot) {
    if (seg.asCount() == 0) return;
    AsSegmentType type = seg.segmentType();
    buffer.append(AsSegmentType::segmentDelimiterStrep(type, true));
    bool first = true;
    for (Orvnet::AutonomousSystem as : seg.as) {
        if (!first) buffer.append(' ');
        first = false;
        asStrep(buffer, as, asdot);
    }
    buffer.append(AsSegmentType::segmentDelimiterStrep(type, false));
}

} // namespace

void AsSegmentStasher::stashStrep(OrvFmt::DynamicBufferInterface& buffer, const void* writerPtr,
                                  StoreManager::RawPtr store, bool asdot) const {
    segmentStrep(buffer, *stored<StoredAsSegment>(writerPtr, store), asdot);
}

namespace {

void segmentSerialize(Serialize& serialize, AsSegmentType type, AsSegmentRef seg) {
    uint32_t elements = seg.asCount();
    if (elements == 0) return;
    if (type.isSet()) ORV_ASSERT(elements <= 0xff);
    AsNumbers::iterator as = seg.as.begin();
    uint16_t typeBits = uint16_t(type.value() << 8);
    while (elements) {
        uint32_t chunk = elements < 0xff ? elements : 0xff;
        serialize.addU16hton(uint16_t(typeBits | chunk));
        for (uint32_t i = 0; i < chunk; ++i, ++as)
            serialize.addU32hton((*as).value());
        elements -= chunk;
    }
}

} // namespace

void AsSegmentStasher::stashSerialize(Serialize& serialize, const void* writerPtr,
                                      StoreManager::RawPtr store) const {
    segmentSerialize(serialize, segmentType_, *stored<StoredAsSegment>(writerPtr, store));
}

// ---------------------------------------------------------------------------------------------
void allSegmentsDestash(uint32_t count, const void* segments, AsSegmentVector& vector,
                        StoreManager::RawPtr store) {
    vector.reserve(vector.size() + count);
    for (AsSegmentRun::iterator it(static_cast<const StoredAsSegment*>(segments), count), end;
         it != end; ++it) {
        // A segment of an unsupported type without AS numbers reads as null: nothing to keep.
        if (Mel::Ptr<AsSegment> s =
                AsSegmentStasher::forStored(it.stored()).destash(it.stored(), store))
            vector.push_back(std::move(s));
    }
}

bool allSegmentsStrep(uint32_t count, const void* segments, OrvFmt::DynamicBufferInterface& buffer,
                      StoreManager::RawPtr store, bool isFirst, bool asdot) {
    for (AsSegmentRun::iterator it(static_cast<const StoredAsSegment*>(segments), count), end;
         it != end; ++it) {
        if (it.stored()->asCount() == 0) continue; // prints nothing, takes no blank
        if (!isFirst) buffer.append(' ');
        AsSegmentStasher::forStored(it.stored()).stashStrep(buffer, it.stored(), store, asdot);
        isFirst = false;
    }
    return isFirst;
}

void allSegmentsSerialize(uint32_t count, const void* segments, Serialize& serialize,
                          StoreManager::RawPtr store) {
    for (AsSegmentRun::iterator it(static_cast<const StoredAsSegment*>(segments), count), end;
         it != end; ++it)
        AsSegmentStasher::forStored(it.stored()).stashSerialize(serialize, it.stored(), store);
}

} // namespace Routing::Bgp
