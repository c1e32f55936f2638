// Stored AS paths read back, printed and written as AS_PATH in place, without a live object.
//   OrvFmt::DynamicBuffer text; AspathAttrCanonicalStasher::stashStrep(text, p.get(), store,
//   false); Mel::Bytes attr = AspathAttrCanonicalStasher::stashSerialize(p.get(), store, true);
#pragma once

#include "AsPath/AspathAttrCanonical.h"
#include "Mel/Bytes.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"
#include "OrvFmt/DynamicBuffer.h"
#include "Serialize/Serialize.h"

#include <cstdint>
#include <string>

namespace Routing::Bgp {

// A stored path is an interned AspathAttrCanonical: it already lives in the store, so its stored
// pointer (writerPtr) is the object's address and the store's translation of it is the identity.
// A stored segment is a StoredAsSegment inside its path; a run of `count` stored segments is
// given by the pointer to its first one (the rest follow it in memory).

// What each stored path form registers in the stash-reader registry, under the typeid of its
// class.
class AspathAttrCanonicalStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<AspathAttrCanonical>
    destash(const void* writerPtr, MelStash::StoreManager::RawPtr store) const = 0;
    virtual void stashStrep(OrvFmt::DynamicBufferInterface& buffer, const void* writerPtr,
                            MelStash::StoreManager::RawPtr store, bool asdot) const = 0;
    virtual Mel::Bytes stashSerialize(const void* writerPtr, MelStash::StoreManager::RawPtr store,
                                      bool hasPathAttrHeader) const = 0;
};

// The entry point for any stored path: finds the reader of the stored object's class and calls
// its operation of the same name. No reader ends the process ("nullptr != reader").
class AspathAttrCanonicalStasher {
public:
    // A fresh live path of the stored form (not interned: that is the caller's business).
    static Mel::PtrConst<AspathAttrCanonical> destash(const void* writerPtr,
                                                      MelStash::StoreManager::RawPtr store);
    // Appends the text form: segments separated by one blank, AS numbers in asplain, or in asdot
    // (high.low for numbers from 65536 on) when asdot is set.
    static void stashStrep(OrvFmt::DynamicBufferInterface& buffer, const void* writerPtr,
                           MelStash::StoreManager::RawPtr store, bool asdot);
    static std::string stashStrep(const void* writerPtr, MelStash::StoreManager::RawPtr store,
                                  bool asdot = false);
    // The AS_PATH value in 4-byte form, or with hasPathAttrHeader the whole attribute (flags 0x40,
    // type 2, length extended above 255 bytes). No local AS, no AS_TRANS.
    static Mel::Bytes stashSerialize(const void* writerPtr, MelStash::StoreManager::RawPtr store,
                                     bool hasPathAttrHeader);
};

class AspathAttrCanonicalSingleSegStasher : public AspathAttrCanonicalStashReader {
public:
    Mel::PtrConst<AspathAttrCanonical> destash(const void* writerPtr,
                                               MelStash::StoreManager::RawPtr store) const override;
    void stashStrep(OrvFmt::DynamicBufferInterface& buffer, const void* writerPtr,
                    MelStash::StoreManager::RawPtr store, bool asdot) const override;
    Mel::Bytes stashSerialize(const void* writerPtr, MelStash::StoreManager::RawPtr store,
                              bool hasPathAttrHeader) const override;
};

class AspathAttrCanonicalWithPathVectorStasher : public AspathAttrCanonicalStashReader {
public:
    Mel::PtrConst<AspathAttrCanonical> destash(const void* writerPtr,
                                               MelStash::StoreManager::RawPtr store) const override;
    void stashStrep(OrvFmt::DynamicBufferInterface& buffer, const void* writerPtr,
                    MelStash::StoreManager::RawPtr store, bool asdot) const override;
    Mel::Bytes stashSerialize(const void* writerPtr, MelStash::StoreManager::RawPtr store,
                              bool hasPathAttrHeader) const override;
};

class AspathAttrCanonicalWithConfedStasher : public AspathAttrCanonicalStashReader {
public:
    Mel::PtrConst<AspathAttrCanonical> destash(const void* writerPtr,
                                               MelStash::StoreManager::RawPtr store) const override;
    void stashStrep(OrvFmt::DynamicBufferInterface& buffer, const void* writerPtr,
                    MelStash::StoreManager::RawPtr store, bool asdot) const override;
    Mel::Bytes stashSerialize(const void* writerPtr, MelStash::StoreManager::RawPtr store,
                              bool hasPathAttrHeader) const override;
};

// One stored segment. Stored segments have no class of their own, so the reader is chosen by the
// stored type code: forStored() gives the reader of codes 1-4, or the reader of "unsupported"
// codes, which reads a segment without AS numbers as null (prints and writes nothing) and throws
// Mel::NotSupportedException for one with AS numbers, except when printing (delimiters "?").
class AsSegmentStasher : public MelStash::StashReaderBase {
public:
    explicit AsSegmentStasher(AsSegmentType type) noexcept : segmentType_(type) {}
    AsSegmentType segmentType() const noexcept { return segmentType_; }

    static const AsSegmentStasher& forStored(const void* writerPtr) noexcept;

    // A new AsSequence (types 2, 3) or AsSet (1, 4) with the stored AS numbers.
    virtual Mel::Ptr<AsSegment> destash(const void* writerPtr,
                                        MelStash::StoreManager::RawPtr store) const;
    virtual void stashStrep(OrvFmt::DynamicBufferInterface& buffer, const void* writerPtr,
                            MelStash::StoreManager::RawPtr store, bool asdot) const;
    // 4-byte AS numbers in wire segments of at most 255; a set of more than 255 ends the process
    // ("elements <= 0xff").
    virtual void stashSerialize(Serialize& serialize, const void* writerPtr,
                                MelStash::StoreManager::RawPtr store) const;

private:
    AsSegmentType segmentType_;
};

// Over a run of `count` stored segments starting at `segments`.
void allSegmentsDestash(uint32_t count, const void* segments, AsSegmentVector& vector,
                        MelStash::StoreManager::RawPtr store);
// Puts one blank before each segment that prints anything, except while isFirst is set; returns
// isFirst, cleared once anything was printed.
bool allSegmentsStrep(uint32_t count, const void* segments, OrvFmt::DynamicBufferInterface& buffer,
                      MelStash::StoreManager::RawPtr store, bool isFirst, bool asdot);
void allSegmentsSerialize(uint32_t count, const void* segments, Serialize& serialize,
                          MelStash::StoreManager::RawPtr store);

// One AS number in asplain, or in asdot when asdot is set.
void asStrep(OrvFmt::DynamicBufferInterface& buffer, Orvnet::AutonomousSystem as, bool asdot);

} // namespace Routing::Bgp
