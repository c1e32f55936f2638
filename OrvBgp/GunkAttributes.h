// Path attributes this speaker does not recognise, kept verbatim so they can be passed on.
//   auto a = GunkPathAttrDedupTable::instance().findOrCreate(GunkPathAttrContent(200, 0xc0, 3,
//   bytes)); Mel::Ptr<GunkPathAttrList> l(new GunkPathAttrList);  l->gunkIs(a);  auto shared =
//   l->dedup();
//
// Text forms: one attribute prints as "type=200,flags=0xc0,len=3,data=0a0b0c" ("NULL" for a null
// pointer); a list prints its attributes in type order, each followed by one blank.
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "Mel/String.h"
#include "MelStash/CompressedStashSmartPtr.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"

#include <boost/container/small_vector.hpp>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>

namespace Routing::Bgp {

class PathAttributesSerializeStoreMethodBase;
class GunkPathAttrDedupTable;
class GunkPathAttrListDedupTable;

// A lookup key for GunkPathAttr: the attribute as received, data not copied.
struct GunkPathAttrContent : Keel::DedupContentHandle {
    GunkPathAttrContent(uint8_t type, uint8_t flags, uint16_t length,
                        std::span<const uint8_t> data) noexcept
        : attrType(type), attrFlags(flags), attrLength(length), gunkAttrData(data) {}

    uint8_t attrType;
    uint8_t attrFlags;
    uint16_t attrLength;
    std::span<const uint8_t> gunkAttrData;

    uint32_t hash() const noexcept;
};

// One unknown attribute. The value bytes sit in the object's own store block after a 24-byte
// header.
class GunkPathAttr : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(GunkPathAttr)

public:
    // HashMix from 0 over type (1 byte), flags (1 byte), length (2 bytes), hashBytes(data) (4
    // bytes).
    static uint32_t hashOf(uint8_t attrType, uint8_t attrFlags, uint16_t attrLength,
                           std::span<const uint8_t> data) noexcept;

    // The attribute as received. Its data lives inline, after the object, so the object must be
    // allocated with room for it (GunkPathAttrIs and the table do so); data.size() must equal
    // attrLength:
    //   new (MelStash::ExtraBytes{data.size()}) GunkPathAttr(200, 0xc0, 3, data)
    GunkPathAttr(uint8_t attrType, uint8_t attrFlags, uint16_t attrLength,
                 std::span<const uint8_t> data) noexcept;
    GunkPathAttr(const GunkPathAttr&) = delete;

    uint8_t attrType() const noexcept { return attrType_; }
    uint8_t attrFlags() const noexcept { return attrFlags_; }
    uint16_t attrLength() const noexcept { return attrLength_; }
    std::span<const uint8_t> gunkAttrData() const noexcept { return {data_, attrLength_}; }
    // The data as an owned byte string.
    Mel::Bytes gunkAttrDataBytes() const { return Mel::Bytes(data_, attrLength_); }
    bool transitive() const noexcept { return attrFlags_ & 0x40; }

    // The whole attribute as it is passed on: the flags as received, plus Partial (0x20) when
    // transitive; the extended-length form when received so or when the value needs it.
    Mel::Bytes serialize() const;
    void serialize(PathAttributesSerializeStoreMethodBase& store) const;
    Mel::String toStrep() const;

    // This object if it is the first of its content, else the interned equal one.
    Mel::PtrConst<GunkPathAttr> dedup() const;
    Mel::PtrConst<GunkPathAttr> dedup(GunkPathAttrDedupTable& table) const;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;
    bool equals(const GunkPathAttrContent& c) const noexcept;

    // `stored` is the address of a stored GunkPathAttr; its value is interned in
    // GunkPathAttrDedupTable::instance().
    static Mel::PtrConst<GunkPathAttr> destash(const void* stored,
                                               MelStash::StoreManager::RawPtr store);

private:
    friend Mel::Ptr<GunkPathAttr> GunkPathAttrIs(uint8_t, uint8_t, uint16_t,
                                                 std::span<const uint8_t>);
    friend class GunkPathAttrDedupTable;
    static GunkPathAttr* make(const GunkPathAttrContent& c);

    uint8_t attrType_;
    uint8_t attrFlags_;
    uint16_t attrLength_;
    uint8_t data_[0]; // attrLength_ bytes in the same block
};

// A new, not yet interned attribute (type, flags, length, data); data.size() must equal the length.
Mel::Ptr<GunkPathAttr> GunkPathAttrIs(uint8_t attrType, uint8_t attrFlags, uint16_t attrLength,
                                      std::span<const uint8_t> data);
inline Mel::Ptr<GunkPathAttr> GunkPathAttrIs(uint8_t attrType, uint8_t attrFlags,
                                             uint16_t attrLength, const Mel::Bytes& data) {
    return GunkPathAttrIs(attrType, attrFlags, attrLength, data.span());
}

// The interned attribute (type, flags, length, data), in GunkPathAttrDedupTable::instance().
Mel::PtrConst<GunkPathAttr> gunkPathAttrFactory(uint8_t attrType, uint8_t attrFlags,
                                                uint16_t attrLength, std::span<const uint8_t> data);

class GunkPathAttrDedupTable : public Keel::DedupTable<GunkPathAttr> {
public:
    using DedupTable::DedupTable;
    using DedupTable::find;
    using DedupTable::findOrCreate;
    static GunkPathAttrDedupTable& instance();

    // Allocates only on a miss.
    Mel::PtrConst<GunkPathAttr> find(const GunkPathAttrContent& content) const;
    Mel::PtrConst<GunkPathAttr> findOrCreate(const GunkPathAttrContent& content);
};

// The unknown attributes of one path: at most one per type, in ascending type order, each an
// interned GunkPathAttr held by a 4-byte reference. Edited while not yet interned (editing an
// interned list ends the process), then interned with dedup().
class GunkPathAttrList : public Keel::DedupHandleBase {
    MELSTASH_STORE_ALLOCATED(GunkPathAttrList)

public:
    using Entry = MelStash::CompressedStashSmartPtr<const GunkPathAttr, 4>;
    using const_iterator = const Entry*;

    GunkPathAttrList() = default;
    GunkPathAttrList(const GunkPathAttrList& o) : Keel::DedupHandleBase(o), gunk_(o.gunk_) {}

    size_t gunkCount() const noexcept { return gunk_.size(); }
    const_iterator begin() const noexcept { return gunk_.data(); }
    const_iterator end() const noexcept { return gunk_.data() + gunk_.size(); }
    // The attribute of that type, or null.
    const GunkPathAttr* gunk(uint8_t attrType) const noexcept;

    // Adds attr under its attrType, replacing an attribute of the same type.
    void gunkIs(const Mel::PtrConst<GunkPathAttr>& attr);
    // False when there is none of that type.
    bool gunkDel(uint8_t attrType);
    void gunkDel(const_iterator position);
    void gunkDelAll();

    // HashMix from 0 over the count (4 bytes), then each attribute's identity (8 bytes), in type
    // order. Every attribute must be interned.
    uint32_t hash() const override;
    // The same interned attributes in the same order.
    bool compare(const Keel::DedupHandleBase* other) const override;

    Mel::PtrConst<GunkPathAttrList> dedup() const;
    Mel::PtrConst<GunkPathAttrList> dedup(GunkPathAttrListDedupTable& table) const;

    // Each attribute as GunkPathAttr::serialize writes it, in type order.
    void serialize(PathAttributesSerializeStoreMethodBase& store) const;
    Mel::String toStrep() const;

    // `stored` is the address of a stored GunkPathAttrList; the list of the same attributes is
    // interned in GunkPathAttrListDedupTable::instance().
    static Mel::PtrConst<GunkPathAttrList> destash(const void* stored,
                                                   MelStash::StoreManager::RawPtr store);

private:
    void assertEditable() const noexcept;
    // Walks the entries: null past the last.
    const Entry* first() const noexcept { return gunk_.empty() ? nullptr : gunk_.data(); }
    const Entry* next(const Entry* e) const noexcept { return e + 1 == end() ? nullptr : e + 1; }

    boost::container::small_vector<Entry, 2> gunk_;
};

class GunkPathAttrListDedupTable : public Keel::DedupTable<GunkPathAttrList> {
public:
    using DedupTable::DedupTable;
    static GunkPathAttrListDedupTable& instance();
};

// Read a stored attribute, or list, back; registered for typeid(GunkPathAttr) and
// typeid(GunkPathAttrList).
class GunkPathAttrStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<GunkPathAttr> destash(const void* stored,
                                                MelStash::StoreManager::RawPtr store) const;
};
class GunkPathAttrListStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<GunkPathAttrList> destash(const void* stored,
                                                    MelStash::StoreManager::RawPtr store) const;
};

std::ostream& operator<<(std::ostream& os, const GunkPathAttr* attr);
std::ostream& operator<<(std::ostream& os, const GunkPathAttr& attr);
std::ostream& operator<<(std::ostream& os, const GunkPathAttrList& list);

} // namespace Routing::Bgp
