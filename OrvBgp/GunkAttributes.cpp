#include "OrvBgp/GunkAttributes.h"

#define ORV_UNIT "OrvBgp/GunkAttributes"
#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <sstream>
#include <typeinfo>

namespace Routing::Bgp {

// ---- GunkPathAttr

uint32_t GunkPathAttr::hashOf(uint8_t attrType, uint8_t attrFlags, uint16_t attrLength,
                              std::span<const uint8_t> data) noexcept {
    Keel::HashMix m(0);
    m.hashMix(attrType);
    m.hashMix(attrFlags);
    m.hashMix(attrLength);
    m.hashMix(static_cast<uint32_t>(data.empty() ? 0 : Keel::hashBytes(data.data(), data.size())));
    return m.result();
}

uint32_t GunkPathAttrContent::hash() const noexcept {
    return GunkPathAttr::hashOf(attrType, attrFlags, attrLength, gunkAttrData);
}

GunkPathAttr::GunkPathAttr(uint8_t attrType, uint8_t attrFlags, uint16_t attrLength,
                           std::span<const uint8_t> data) noexcept
    : attrType_(attrType), attrFlags_(attrFlags), attrLength_(attrLength) {
    ORV_ASSERT(data.size() == attrLength);
    // The data goes in after the object: its block must have the room.
    ORV_ASSERT(MelStash::StoreManager::contains(this) &&
               MelStash::StoreManager::instance().blockSize(this) >=
                   sizeof(GunkPathAttr) + attrLength);
    hashIs(hashOf(attrType, attrFlags, attrLength, data));
    if (attrLength_) std::memcpy(data_, data.data(), attrLength_);
}

GunkPathAttr* GunkPathAttr::make(const GunkPathAttrContent& c) {
    ORV_ASSERT(c.gunkAttrData.size() == c.attrLength);
    return new (MelStash::ExtraBytes{c.attrLength})
        GunkPathAttr(c.attrType, c.attrFlags, c.attrLength, c.gunkAttrData);
}

Mel::Ptr<GunkPathAttr> GunkPathAttrIs(uint8_t attrType, uint8_t attrFlags, uint16_t attrLength,
                                      std::span<const uint8_t> data) {
    return Mel::Ptr<GunkPathAttr>(
        GunkPathAttr::make(GunkPathAttrContent(attrType, attrFlags, attrLength, data)));
}

bool GunkPathAttr::equals(const GunkPathAttrContent& c) const noexcept {
    return attrType_ == c.attrType && attrFlags_ == c.attrFlags && attrLength_ == c.attrLength &&
           c.gunkAttrData.size() == attrLength_ &&
           (attrLength_ == 0 || std::memcmp(data_, c.gunkAttrData.data(), attrLength_) == 0);
}

bool GunkPathAttr::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const GunkPathAttr*>(other);
    return equals(
        GunkPathAttrContent(o->attrType_, o->attrFlags_, o->attrLength_, o->gunkAttrData()));
}

bool GunkPathAttr::compareByContent(const Keel::DedupContentHandle& content) const {
    return equals(static_cast<const GunkPathAttrContent&>(content));
}

Mel::Bytes GunkPathAttr::serialize() const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: GunkPathAttr::serialize()");
    // A transitive attribute we do not understand leaves marked Partial: some speaker on the path
    // (this one) passed it on without acting on it.
    uint8_t flags = attrFlags_;
    if (transitive()) flags |= pathAttrFlagPartial;
    Serialize s;
    SerializePathAttribute(s, attrType_, flags, attrLength_);
    s.addData(data_, attrLength_);
    return s.serializedBytes();
}

void GunkPathAttr::serialize(PathAttributesSerializeStoreMethodBase& store) const {
    store.store(attrType_, serialize());
}

Mel::String GunkPathAttr::toStrep() const {
    std::ostringstream os;
    os << *this;
    return std::move(os).str();
}

Mel::PtrConst<GunkPathAttr> GunkPathAttr::dedup() const {
    return dedup(GunkPathAttrDedupTable::instance());
}

Mel::PtrConst<GunkPathAttr> GunkPathAttr::dedup(GunkPathAttrDedupTable& table) const {
    return table.dedup(Mel::PtrConst<GunkPathAttr>(this));
}

std::ostream& operator<<(std::ostream& os, const GunkPathAttr& attr) {
    char head[48];
    std::snprintf(head, sizeof head, "type=%u,flags=0x%02x,len=%u,data=", attr.attrType(),
                  attr.attrFlags(), attr.attrLength());
    os << head;
    static constexpr char hex[] = "0123456789abcdef";
    for (uint8_t b : attr.gunkAttrData())
        os << hex[b >> 4] << hex[b & 15];
    return os;
}

std::ostream& operator<<(std::ostream& os, const GunkPathAttr* attr) {
    if (!attr) return os << "NULL";
    return os << *attr;
}

GunkPathAttrDedupTable& GunkPathAttrDedupTable::instance() {
    static auto* table = new GunkPathAttrDedupTable("GunkPathAttrDedupTable");
    return *table;
}

namespace {
struct GunkContentEq {
    bool operator()(const GunkPathAttr& a, const GunkPathAttrContent& c) const noexcept {
        return a.equals(c);
    }
};
} // namespace

Mel::PtrConst<GunkPathAttr> gunkPathAttrFactory(uint8_t attrType, uint8_t attrFlags,
                                                uint16_t attrLength,
                                                std::span<const uint8_t> data) {
    return GunkPathAttrDedupTable::instance().findOrCreate(
        GunkPathAttrContent(attrType, attrFlags, attrLength, data));
}

Mel::PtrConst<GunkPathAttr> GunkPathAttrDedupTable::find(const GunkPathAttrContent& content) const {
    return DedupTable::find(content.hash(), content, GunkContentEq{});
}

Mel::PtrConst<GunkPathAttr>
GunkPathAttrDedupTable::findOrCreate(const GunkPathAttrContent& content) {
    return DedupTable::findOrCreate(
        content.hash(), content, [&content] { return GunkPathAttr::make(content); },
        GunkContentEq{});
}

// ---- GunkPathAttrList

void GunkPathAttrList::assertEditable() const noexcept {
    ORV_ASSERT(!everDeduped());
}

const GunkPathAttr* GunkPathAttrList::gunk(uint8_t attrType) const noexcept {
    auto it = std::lower_bound(begin(), end(), attrType,
                               [](const Entry& e, uint8_t t) { return e->attrType() < t; });
    return it != end() && (*it)->attrType() == attrType ? it->get() : nullptr;
}

void GunkPathAttrList::gunkIs(const Mel::PtrConst<GunkPathAttr>& attr) {
    assertEditable();
    ORV_ASSERT(nullptr != attr);
    const uint8_t type = attr->attrType();
    auto it = std::lower_bound(gunk_.begin(), gunk_.end(), type,
                               [](const Entry& e, uint8_t t) { return e->attrType() < t; });
    if (it != gunk_.end() && (*it)->attrType() == type)
        *it = Entry(attr.get());
    else
        gunk_.insert(it, Entry(attr.get()));
}

bool GunkPathAttrList::gunkDel(uint8_t attrType) {
    assertEditable();
    auto it = std::find_if(gunk_.begin(), gunk_.end(),
                           [attrType](const Entry& e) { return e->attrType() == attrType; });
    if (it == gunk_.end()) return false;
    gunk_.erase(it);
    return true;
}

void GunkPathAttrList::gunkDel(const_iterator position) {
    assertEditable();
    ORV_ASSERT(position >= begin() && position < end());
    gunk_.erase(gunk_.begin() + (position - begin()));
}

void GunkPathAttrList::gunkDelAll() {
    assertEditable();
    gunk_.clear();
}

uint32_t GunkPathAttrList::hash() const {
    Keel::HashMix m(0);
    m.hashMix(static_cast<uint32_t>(gunk_.size()));
    for (const Entry& attr : gunk_) {
        // Identity stands for content only among interned attributes.
        ORV_ASSERT(attr->isDeduped());
        m.hashMix(static_cast<const void*>(attr.get()));
    }
    return m.result();
}

bool GunkPathAttrList::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const GunkPathAttrList*>(other);
    if (o->gunk_.size() != gunk_.size()) return false;
    const Entry* i = first();
    const Entry* j = o->first();
    while (i && j) {
        if (i->get() != j->get()) return false;
        i = next(i);
        j = o->next(j);
    }
    ORV_ASSERT(!i && !j);
    return true;
}

Mel::PtrConst<GunkPathAttrList> GunkPathAttrList::dedup() const {
    return dedup(GunkPathAttrListDedupTable::instance());
}

Mel::PtrConst<GunkPathAttrList> GunkPathAttrList::dedup(GunkPathAttrListDedupTable& table) const {
    return table.dedup(Mel::PtrConst<GunkPathAttrList>(this));
}

// ---- stored attributes and lists

namespace {
const bool stashReadersRegistered = [] {
    static const GunkPathAttrStashReader attrReader;
    static const GunkPathAttrListStashReader listReader;
    MelStash::StashReaderRegistry::registerReader(typeid(GunkPathAttr), &attrReader);
    MelStash::StashReaderRegistry::registerReader(typeid(GunkPathAttrList), &listReader);
    return true;
}();

template <class Reader>
const Reader& readerOf(const void* stored) {
    ORV_ASSERT(nullptr != stored);
    const auto* obj = static_cast<const Keel::DedupHandleBase*>(stored);
    const auto* reader = MelStash::StashReaderRegistry::readerFor<Reader>(typeid(*obj));
    ORV_ASSERT(nullptr != reader);
    return *reader;
}
} // namespace

Mel::PtrConst<GunkPathAttr> GunkPathAttrStashReader::destash(const void* stored,
                                                             MelStash::StoreManager::RawPtr) const {
    const auto* a =
        static_cast<const GunkPathAttr*>(static_cast<const Keel::DedupHandleBase*>(stored));
    return gunkPathAttrFactory(a->attrType(), a->attrFlags(), a->attrLength(), a->gunkAttrData());
}

Mel::PtrConst<GunkPathAttrList>
GunkPathAttrListStashReader::destash(const void* stored,
                                     MelStash::StoreManager::RawPtr store) const {
    const auto* l =
        static_cast<const GunkPathAttrList*>(static_cast<const Keel::DedupHandleBase*>(stored));
    Mel::Ptr<GunkPathAttrList> list(new GunkPathAttrList);
    for (const GunkPathAttrList::Entry& e : *l)
        list->gunkIs(GunkPathAttr::destash(e.get(), store));
    return list->dedup();
}

Mel::PtrConst<GunkPathAttr> GunkPathAttr::destash(const void* stored,
                                                  MelStash::StoreManager::RawPtr store) {
    return readerOf<GunkPathAttrStashReader>(stored).destash(stored, store);
}

Mel::PtrConst<GunkPathAttrList> GunkPathAttrList::destash(const void* stored,
                                                          MelStash::StoreManager::RawPtr store) {
    return readerOf<GunkPathAttrListStashReader>(stored).destash(stored, store);
}

void GunkPathAttrList::serialize(PathAttributesSerializeStoreMethodBase& store) const {
    for (const Entry& e : gunk_)
        e->serialize(store);
}

Mel::String GunkPathAttrList::toStrep() const {
    std::ostringstream os;
    os << *this;
    return std::move(os).str();
}

std::ostream& operator<<(std::ostream& os, const GunkPathAttrList& list) {
    for (const auto& e : list)
        os << e.get() << ' ';
    return os;
}

GunkPathAttrListDedupTable& GunkPathAttrListDedupTable::instance() {
    static auto* table = new GunkPathAttrListDedupTable("GunkPathAttrListDedupTable");
    return *table;
}

} // namespace Routing::Bgp
