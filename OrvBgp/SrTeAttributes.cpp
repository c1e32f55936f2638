#define ORV_UNIT "OrvBgp/SrTeAttributes"

#include "OrvBgp/SrTeAttributes.h"

#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Reflect.h"
#include "Mel/ValueParser.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <cstring>
#include <ostream>
#include <sstream>
#include <typeinfo>

namespace Routing::Bgp {

using U32 = uint32_t;

namespace {

const Keel::DedupHandleBase* storedObject(const void* stored) {
    ORV_ASSERT(MelStash::StoreManager::contains(stored));
    return static_cast<const Keel::DedupHandleBase*>(stored);
}

template <class T>
const T& storedAs(const void* stored) {
    const Keel::DedupHandleBase* obj = storedObject(stored);
    ORV_ASSERT(typeid(*obj) == typeid(T));
    return static_cast<const T&>(*obj);
}

template <class Reader>
const Reader& readerFor(const void* stored) {
    const Keel::DedupHandleBase* obj = storedObject(stored);
    const Reader* reader = MelStash::StashReaderRegistry::readerFor<Reader>(typeid(*obj));
    ORV_ASSERT(nullptr != reader);
    return *reader;
}

// The members of a prefix SID are compared by identity, so they must be interned before the
// attribute's hash is taken: an object built but never interned would hash by an address that no
// equal object shares.
void hashMixInterned(Keel::HashMix& m, const Keel::DedupHandleBase* p) {
    ORV_ASSERT_TEXT(nullptr == p || p->dedupState() != Keel::dedupHandleStateNeverDeduped(),
                    "__null == ( p ) || ( p )->dedupState() != "
                    "Keel::dedupHandleStateNeverDeduped()");
    m.hashMix(static_cast<const void*>(p));
}

uint32_t prefixSidHash(const LabelIndexTlv* labelIndex, const OriginatorSrgbTlv* originatorSrgb,
                       const Srv6ServiceTlv* srv6Service) {
    Keel::HashMix m;
    hashMixInterned(m, labelIndex);
    hashMixInterned(m, originatorSrgb);
    hashMixInterned(m, srv6Service);
    return m.result();
}

Mel::Bytes prefixSidSerialize(const LabelIndexTlv* labelIndex,
                              const OriginatorSrgbTlv* originatorSrgb,
                              const Srv6ServiceTlv* srv6Service) {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: PrefixSid::serialize()");
    Mel::Bytes tlvs[3];
    if (labelIndex) tlvs[0] = labelIndex->serialize();
    if (originatorSrgb) tlvs[1] = originatorSrgb->serialize();
    if (srv6Service) tlvs[2] = srv6Service->serialize();
    size_t length = 0;
    for (const Mel::Bytes& t : tlvs)
        length += t.size();
    Serialize s;
    SerializePathAttribute(s, BgpPathAttrType::prefixSid_,
                           pathAttrFlagOptional | pathAttrFlagTransitive, length);
    for (const Mel::Bytes& t : tlvs)
        s.addBytes(t);
    return s.serializedBytes();
}

void prefixSidFormat(std::ostream& os, const LabelIndexTlv* labelIndex,
                     const OriginatorSrgbTlv* originatorSrgb, const Srv6ServiceTlv* srv6Service) {
    os << "prefixSID=< ";
    if (labelIndex) os << "labelIndex=" << labelIndex->labelIndex() << " ";
    // The ranges are bracketed each; the list itself is not closed.
    if (originatorSrgb) os << "SRGB=< " << originatorSrgb->toStrep();
    if (srv6Service) os << "srv6Service=" << *srv6Service;
    os << " >";
}

} // namespace

// ---- Label-Index TLV ---------------------------------------------------------------------------

uint32_t LabelIndexTlvContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(labelIndex_);
    return m.result();
}

void melFormat(std::ostream& os, const LabelIndexTlvContent& c) {
    os << c.labelIndex();
}

void melParse(Mel::ValueParser& p, LabelIndexTlvContent& c) {
    c.labelIndexIs(uint32_t(p.parseUnsigned(UINT32_MAX)));
}

LabelIndexTlv::LabelIndexTlv(const LabelIndexTlvContent& content) noexcept
    : labelIndex_(content.labelIndex()) {
    hashIs(content.hash());
}

Mel::Ptr<LabelIndexTlv> LabelIndexTlv::create(const LabelIndexTlvContent& content) {
    return Mel::Ptr<LabelIndexTlv>(new LabelIndexTlv(content));
}

bool LabelIndexTlv::compare(const Keel::DedupHandleBase* other) const {
    return labelIndex_ == static_cast<const LabelIndexTlv*>(other)->labelIndex_;
}

bool LabelIndexTlv::compareByContent(const Keel::DedupContentHandle& content) const {
    return labelIndex_ == static_cast<const LabelIndexTlvContent&>(content).labelIndex();
}

Mel::Bytes LabelIndexTlv::serialize() const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: LabelIndexTlv::serialize()");
    Serialize serialized;
    serialized.addU8(tlvType);
    serialized.addU16hton(7);
    serialized.addU8(0);      // reserved
    serialized.addU16hton(0); // flags
    serialized.addU32hton(labelIndex_);
    ORV_ASSERT(10 == serialized.size());
    return serialized.serializedBytes();
}

std::string LabelIndexTlv::toStrep() const {
    return std::to_string(labelIndex_);
}

Mel::PtrConst<LabelIndexTlv> LabelIndexTlv::dedupContent(LabelIndexTlvDedupTable& table,
                                                         const LabelIndexTlvContent& content) {
    return table.findOrCreate(content.hash(), content, [&] { return new LabelIndexTlv(content); });
}

Mel::PtrConst<LabelIndexTlv> LabelIndexTlv::dedup(LabelIndexTlvDedupTable& table) const {
    return table.dedup(Mel::PtrConst<LabelIndexTlv>(this));
}

Mel::PtrConst<LabelIndexTlv> LabelIndexTlv::destash(const void* stored,
                                                    MelStash::StoreManager::RawPtr store) {
    return readerFor<LabelIndexTlvStashReader>(stored).destash(stored, store);
}

LabelIndexTlvDedupTable& LabelIndexTlvDedupTable::instance() {
    // Never destroyed: objects released during exit still find their table.
    static auto* table = new LabelIndexTlvDedupTable;
    return *table;
}

Mel::PtrConst<LabelIndexTlv> labelIndexTlvFactory(uint32_t labelIndex) {
    return LabelIndexTlv::dedupContent(LabelIndexTlvDedupTable::instance(),
                                       LabelIndexTlvContent(labelIndex));
}

// ---- Originator SRGB TLV -----------------------------------------------------------------------

uint32_t OriginatorSrgbTlvContent::hash() const noexcept {
    return OriginatorSrgbTlv::hashOf(srgb_);
}

uint32_t OriginatorSrgbTlv::hashOf(std::span<const SrgbRange> ranges) noexcept {
    Keel::HashMix m(ranges.size());
    for (const SrgbRange& r : ranges)
        m.hashMix(uint64_t(r.base()) << 32 | r.range());
    return m.result();
}

OriginatorSrgbTlv::OriginatorSrgbTlv(std::span<const SrgbRange> ranges) noexcept
    : count_(uint32_t(ranges.size())) {
    for (size_t i = 0; i < ranges.size(); ++i)
        new (&ranges_[i]) SrgbRange(ranges[i]);
    hashIs(hashOf(ranges));
}

OriginatorSrgbTlv* OriginatorSrgbTlv::make(std::span<const SrgbRange> ranges) {
    return new (MelStash::ExtraBytes{ranges.size_bytes()}) OriginatorSrgbTlv(ranges);
}

Mel::Ptr<OriginatorSrgbTlv> OriginatorSrgbTlv::create(std::span<const SrgbRange> ranges) {
    return Mel::Ptr<OriginatorSrgbTlv>(make(ranges));
}

bool OriginatorSrgbTlv::equals(std::span<const SrgbRange> ranges) const noexcept {
    if (ranges.size() != count_) return false;
    for (size_t i = 0; i < count_; ++i)
        if (ranges[i] != ranges_[i]) return false;
    return true;
}

bool OriginatorSrgbTlv::compare(const Keel::DedupHandleBase* other) const {
    return static_cast<const OriginatorSrgbTlv*>(other)->equals(ranges());
}

bool OriginatorSrgbTlv::compareByContent(const Keel::DedupContentHandle& content) const {
    return equals(static_cast<const OriginatorSrgbTlvContent&>(content).ranges());
}

Mel::Bytes OriginatorSrgbTlv::serialize() const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: OriginatorSrgbTlv::serialize()");
    const size_t srgbLen = 6 * size_t(count_);
    ORV_ASSERT(2 + srgbLen <= 0xffff);
    Serialize serialized;
    serialized.addU8(tlvType);
    serialized.addU16hton(uint16_t(2 + srgbLen));
    serialized.addU16hton(0); // flags
    for (const SrgbRange* i = ranges_; i != ranges_ + count_; ++i) {
        ORV_ASSERT_TEXT((i->base() & 0xFF000000) == 0, "( i->base() & 0xFF000000 ) == 0");
        ORV_ASSERT_TEXT((i->range() & 0xFF000000) == 0, "( i->range() & 0xFF000000 ) == 0");
        serialized.addU24hton(i->base());
        serialized.addU24hton(i->range());
    }
    ORV_ASSERT_TEXT((U32)(5 + srgbLen) == serialized.size(),
                    "( U32 )( 5 + srgbLen ) == serialized.size()");
    return serialized.serializedBytes();
}

std::string OriginatorSrgbTlv::toStrep() const {
    std::string s;
    for (const SrgbRange& r : ranges())
        s += "[" + std::to_string(r.base()) + ":" + std::to_string(r.range()) + "]";
    return s;
}

Mel::PtrConst<OriginatorSrgbTlv>
OriginatorSrgbTlv::dedupContent(OriginatorSrgbTlvDedupTable& table,
                                const OriginatorSrgbTlvContent& content) {
    return table.findOrCreate(content.hash(), content, [&] { return make(content.ranges()); });
}

Mel::PtrConst<OriginatorSrgbTlv>
OriginatorSrgbTlv::dedup(OriginatorSrgbTlvDedupTable& table) const {
    return table.dedup(Mel::PtrConst<OriginatorSrgbTlv>(this));
}

Mel::PtrConst<OriginatorSrgbTlv> OriginatorSrgbTlv::destash(const void* stored,
                                                            MelStash::StoreManager::RawPtr store) {
    return readerFor<OriginatorSrgbTlvStashReader>(stored).destash(stored, store);
}

OriginatorSrgbTlvDedupTable& OriginatorSrgbTlvDedupTable::instance() {
    static auto* table = new OriginatorSrgbTlvDedupTable;
    return *table;
}

Mel::PtrConst<OriginatorSrgbTlv> originatorSrgbTlvFactory(std::span<const SrgbRange> ranges) {
    auto eq = [](const OriginatorSrgbTlv& o, std::span<const SrgbRange> r) { return o.equals(r); };
    return OriginatorSrgbTlvDedupTable::instance().findOrCreate(
        OriginatorSrgbTlv::hashOf(ranges), ranges, [&] { return OriginatorSrgbTlv::make(ranges); },
        eq);
}

// ---- PrefixSidContent --------------------------------------------------------------------------

void PrefixSidContent::valueSet(Mel::PtrConst<LabelIndexTlv> labelIndex,
                                Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb,
                                Mel::PtrConst<Srv6ServiceTlv> srv6Service) noexcept {
    labelIndex_ = std::move(labelIndex);
    originatorSrgb_ = std::move(originatorSrgb);
    srv6Service_ = std::move(srv6Service);
}

void PrefixSidContent::prepareForRecycle() noexcept {
    valueSet(nullptr, nullptr, nullptr);
}

uint32_t PrefixSidContent::hash() const {
    return prefixSidHash(labelIndex_.get(), originatorSrgb_.get(), srv6Service_.get());
}

Mel::PtrConst<PrefixSid> PrefixSidContent::dedup(PrefixSidDedupTable& table) const {
    return PrefixSid::dedupContent(table, *this);
}

std::string PrefixSidContent::toStrep() const {
    return Mel::valueToStrep(*this);
}

PrefixSidContent PrefixSidContent::fromStrep(std::string_view text) {
    return Mel::valueFromStrep<PrefixSidContent>(text);
}

void melFormat(std::ostream& os, const Mel::PtrConst<LabelIndexTlv>& p) {
    if (p)
        os << p->labelIndex();
    else
        os << "None";
}

void melParse(Mel::ValueParser& p, Mel::PtrConst<LabelIndexTlv>& v) {
    if (p.consume("None")) {
        v = nullptr;
        return;
    }
    v = labelIndexTlvFactory(uint32_t(p.parseUnsigned(UINT32_MAX)));
}

void melFormat(std::ostream& os, const Mel::PtrConst<OriginatorSrgbTlv>& p) {
    if (p)
        Mel::valueFormat(os, p->content());
    else
        os << "None";
}

void melParse(Mel::ValueParser& p, Mel::PtrConst<OriginatorSrgbTlv>& v) {
    if (p.consume("None")) {
        v = nullptr;
        return;
    }
    OriginatorSrgbTlvContent c;
    Mel::valueParse(p, c);
    v = originatorSrgbTlvFactory(c.ranges());
}

void melFormat(std::ostream& os, const Mel::PtrConst<Srv6ServiceTlv>& p) {
    if (p)
        Mel::valueFormat(os, p->content());
    else
        os << "None";
}

void melParse(Mel::ValueParser& p, Mel::PtrConst<Srv6ServiceTlv>& v) {
    if (p.consume("None")) {
        v = nullptr;
        return;
    }
    Srv6ServiceTlvContent c;
    Mel::valueParse(p, c);
    v = srv6ServiceTlvFactory(c);
}

// ---- PrefixSid ---------------------------------------------------------------------------------

PrefixSid::PrefixSid(const PrefixSidContent& content) noexcept
    : labelIndex_(content.labelIndex()), originatorSrgb_(content.originatorSrgb()),
      srv6Service_(content.srv6Service()) {
    hashIs(content.hash());
}

Mel::Ptr<PrefixSid> PrefixSid::create(const PrefixSidContent& content) {
    return Mel::Ptr<PrefixSid>(new PrefixSid(content));
}

PrefixSidContent PrefixSid::content() const {
    return PrefixSidContent(labelIndex_.ptr(), originatorSrgb_.ptr(), srv6Service_.ptr());
}

bool PrefixSid::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const PrefixSid*>(other);
    return labelIndex_ == o->labelIndex_ && originatorSrgb_ == o->originatorSrgb_ &&
           srv6Service_ == o->srv6Service_;
}

bool PrefixSid::compareByContent(const Keel::DedupContentHandle& content) const {
    const auto& c = static_cast<const PrefixSidContent&>(content);
    return labelIndex_.get() == c.labelIndex().get() &&
           originatorSrgb_.get() == c.originatorSrgb().get() &&
           srv6Service_.get() == c.srv6Service().get();
}

Mel::Bytes PrefixSid::serialize() const {
    return prefixSidSerialize(labelIndexGet(), originatorSrgbGet(), srv6ServiceGet());
}

void PrefixSid::formatForTraceDisplay(std::ostream& os) const {
    prefixSidFormat(os, labelIndexGet(), originatorSrgbGet(), srv6ServiceGet());
}

std::string PrefixSid::toStrep() const {
    std::ostringstream os;
    formatForTraceDisplay(os);
    return std::move(os).str();
}

Mel::PtrConst<PrefixSid> PrefixSid::dedupContent(PrefixSidDedupTable& table,
                                                 const PrefixSidContent& content) {
    return table.findOrCreate(content.hash(), content, [&] { return new PrefixSid(content); });
}

Mel::PtrConst<PrefixSid> PrefixSid::dedup(PrefixSidDedupTable& table) const {
    return table.dedup(Mel::PtrConst<PrefixSid>(this));
}

Mel::Ptr<PrefixSidDestashed> PrefixSid::destash(const void* stored,
                                                MelStash::StoreManager::RawPtr store) {
    return readerFor<PrefixSidStashReader>(stored).destash(stored, store);
}

PrefixSidDedupTable& PrefixSidDedupTable::instance() {
    static auto* table = new PrefixSidDedupTable;
    return *table;
}

Mel::PtrConst<PrefixSid> prefixSidFactory(const PrefixSidContent& content) {
    return PrefixSid::dedupContent(PrefixSidDedupTable::instance(), content);
}

Mel::PtrConst<PrefixSid> prefixSidFactory(Mel::PtrConst<LabelIndexTlv> labelIndex,
                                          Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb,
                                          Mel::PtrConst<Srv6ServiceTlv> srv6Service) {
    return prefixSidFactory(
        PrefixSidContent(std::move(labelIndex), std::move(originatorSrgb), std::move(srv6Service)));
}

std::ostream& operator<<(std::ostream& os, const PrefixSid& sid) {
    sid.formatForTraceDisplay(os);
    return os;
}

// ---- PrefixSidDestashed ------------------------------------------------------------------------

void PrefixSidDestashed::valueSet(Mel::PtrConst<LabelIndexTlv> labelIndex,
                                  Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb,
                                  Mel::PtrConst<Srv6ServiceTlv> srv6Service) noexcept {
    labelIndex_ = std::move(labelIndex);
    originatorSrgb_ = std::move(originatorSrgb);
    srv6Service_ = std::move(srv6Service);
}

PrefixSidContent PrefixSidDestashed::content() const {
    return PrefixSidContent(labelIndex_, originatorSrgb_, srv6Service_);
}

Mel::Bytes PrefixSidDestashed::serialize() const {
    return prefixSidSerialize(labelIndexGet(), originatorSrgbGet(), srv6ServiceGet());
}

void PrefixSidDestashed::formatForTraceDisplay(std::ostream& os) const {
    prefixSidFormat(os, labelIndexGet(), originatorSrgbGet(), srv6ServiceGet());
}

std::string PrefixSidDestashed::toStrep() const {
    std::ostringstream os;
    formatForTraceDisplay(os);
    return std::move(os).str();
}

std::ostream& operator<<(std::ostream& os, const PrefixSidDestashed& sid) {
    sid.formatForTraceDisplay(os);
    return os;
}

// ---- Stash readers -----------------------------------------------------------------------------

Mel::PtrConst<LabelIndexTlv>
LabelIndexTlvStashReader::destash(const void* stored, MelStash::StoreManager::RawPtr) const {
    return labelIndexTlvFactory(storedAs<LabelIndexTlv>(stored).labelIndex());
}
std::string LabelIndexTlvStashReader::stashStrep(const void* stored) const {
    return storedAs<LabelIndexTlv>(stored).toStrep();
}
Mel::Bytes LabelIndexTlvStashReader::stashSerialize(const void* stored) const {
    return storedAs<LabelIndexTlv>(stored).serialize();
}

Mel::PtrConst<OriginatorSrgbTlv>
OriginatorSrgbTlvStashReader::destash(const void* stored, MelStash::StoreManager::RawPtr) const {
    return originatorSrgbTlvFactory(storedAs<OriginatorSrgbTlv>(stored).ranges());
}
std::string OriginatorSrgbTlvStashReader::stashStrep(const void* stored) const {
    return storedAs<OriginatorSrgbTlv>(stored).toStrep();
}
Mel::Bytes OriginatorSrgbTlvStashReader::stashSerialize(const void* stored) const {
    return storedAs<OriginatorSrgbTlv>(stored).serialize();
}

Mel::Ptr<PrefixSidDestashed>
PrefixSidStashReader::destash(const void* stored, MelStash::StoreManager::RawPtr store) const {
    const PrefixSid& sid = storedAs<PrefixSid>(stored);
    Mel::Ptr<PrefixSidDestashed> out(new PrefixSidDestashed);
    Mel::PtrConst<LabelIndexTlv> labelIndex;
    Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb;
    Mel::PtrConst<Srv6ServiceTlv> srv6Service;
    if (const auto* p = sid.labelIndexGet())
        labelIndex = LabelIndexTlv::destash(static_cast<const Keel::DedupHandleBase*>(p), store);
    if (const auto* p = sid.originatorSrgbGet())
        originatorSrgb =
            OriginatorSrgbTlv::destash(static_cast<const Keel::DedupHandleBase*>(p), store);
    if (const auto* p = sid.srv6ServiceGet())
        srv6Service = Srv6ServiceTlv::destash(static_cast<const Keel::DedupHandleBase*>(p), store);
    out->valueSet(std::move(labelIndex), std::move(originatorSrgb), std::move(srv6Service));
    return out;
}
std::string PrefixSidStashReader::stashStrep(const void* stored) const {
    return storedAs<PrefixSid>(stored).toStrep();
}
Mel::Bytes PrefixSidStashReader::stashSerialize(const void* stored) const {
    return storedAs<PrefixSid>(stored).serialize();
}

namespace {

// Registers this family's readers with the store when the library loads.
struct SrTeAttributesStashRegisterer {
    SrTeAttributesStashRegisterer() {
        static const LabelIndexTlvStashReader labelIndexReader;
        static const OriginatorSrgbTlvStashReader srgbReader;
        static const PrefixSidStashReader prefixSidReader;
        MelStash::StashReaderRegistry::registerReader(typeid(LabelIndexTlv), &labelIndexReader);
        MelStash::StashReaderRegistry::registerReader(typeid(OriginatorSrgbTlv), &srgbReader);
        MelStash::StashReaderRegistry::registerReader(typeid(PrefixSid), &prefixSidReader);
    }
} registerer;

} // namespace

} // namespace Routing::Bgp
