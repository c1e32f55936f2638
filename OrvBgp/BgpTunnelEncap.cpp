#define ORV_UNIT "OrvBgp/BgpTunnelEncap"

#include "OrvBgp/BgpTunnelEncap.h"

#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "Mel/ValueParser.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <boost/describe/enumerators.hpp>
#include <boost/mp11/algorithm.hpp>

#include <cstring>
#include <functional>
#include <new>
#include <ostream>
#include <sstream>

namespace Routing::Bgp {

namespace {

const char* tunnelTypeName(TunnelEncapTunnelType t) noexcept {
    const char* name = nullptr;
    boost::mp11::mp_for_each<boost::describe::describe_enumerators<TunnelEncapTunnelType>>(
        [&](auto d) {
            if (!name && t == d.value) name = d.name;
        });
    return name;
}

template <class T>
const T* expandRef(uint32_t ref) noexcept {
    return static_cast<const T*>(MelStash::StoreManager::expand(ref));
}

// Takes a counted reference for an inline reference slot.
template <class T>
uint32_t holdRef(const T* p) noexcept {
    p->refInc();
    return MelStash::StoreManager::compress(p);
}

const Keel::DedupHandleBase* storedObject(const void* stored) {
    ORV_ASSERT(MelStash::StoreManager::contains(stored));
    return static_cast<const Keel::DedupHandleBase*>(stored);
}

} // namespace

// ---- Tunnel type codes -------------------------------------------------------------------------

TunnelEncapTunnelType TunnelEncapTunnelTypeInstance(unsigned value) {
    if (tunnelTypeName(TunnelEncapTunnelType(value))) return TunnelEncapTunnelType(value);
    throw Mel::RangeException("Routing::Bgp::TunnelEncapTunnelType has no value " +
                              std::to_string(value));
}

TunnelEncapTunnelType TunnelEncapTunnelTypeInstance(std::string_view name) {
    TunnelEncapTunnelType found{};
    bool ok = false;
    boost::mp11::mp_for_each<boost::describe::describe_enumerators<TunnelEncapTunnelType>>(
        [&](auto d) {
            if (!ok && name == d.name) {
                found = d.value;
                ok = true;
            }
        });
    if (!ok)
        throw Mel::ParseException("Routing::Bgp::TunnelEncapTunnelType has no value named '" +
                                  std::string(name) + "'");
    return found;
}

std::string stringValue(TunnelEncapTunnelType t) {
    const char* name = tunnelTypeName(t);
    return name ? name : std::to_string(uint32_t(t));
}

std::string valueToStrep(TunnelEncapTunnelType t) {
    return Mel::valueToStrep(t);
}

TunnelEncapTunnelType strepToTunnelEncapTunnelType(std::string_view text) {
    return Mel::strepToValue<TunnelEncapTunnelType>(text);
}

std::ostream& operator<<(std::ostream& os, TunnelEncapTunnelType t) {
    return os << stringValue(t);
}

// ---- TLV header writer -------------------------------------------------------------------------

SerializedBgpTunnelEncap::SerializedBgpTunnelEncap(unsigned short type,
                                                   unsigned short length) noexcept {
    bytes_[0] = uint8_t(type >> 8);
    bytes_[1] = uint8_t(type);
    bytes_[2] = uint8_t(length >> 8);
    bytes_[3] = uint8_t(length);
}

void SerializedBgpTunnelEncap::appendTo(Serialize& s) const {
    s.addData(bytes());
}

// ---- TLV contents ------------------------------------------------------------------------------

void TunnelEncapTlvContentBase::endpointIs(const Mel::PtrConst<EndpointSubTlv>& e) {
    if (e) e->assertIsDeduped();
    endpoint_ = e;
}

const Mel::PtrConst<UnparsedSubTlv>& TunnelEncapTlvContentBase::unparsedSubTlv(size_t i) const {
    ORV_ASSERT(i < unparsedSubTlv_.size());
    return unparsedSubTlv_[i];
}

void TunnelEncapTlvContentBase::unparsedSubTlvIs(const Mel::PtrConst<UnparsedSubTlv>& s) {
    ORV_ASSERT(s);
    s->assertIsDeduped();
    unparsedSubTlv_.push_back(s);
}

bool operator==(const TunnelEncapTlvContentBase& a, const TunnelEncapTlvContentBase& b) noexcept {
    return static_cast<const Keel::DedupContentHandle&>(a) ==
               static_cast<const Keel::DedupContentHandle&>(b) &&
           a.tunnelType_ == b.tunnelType_ && a.endpoint_.get() == b.endpoint_.get();
}

bool operator<(const TunnelEncapTlvContentBase& a, const TunnelEncapTlvContentBase& b) noexcept {
    const auto& ha = static_cast<const Keel::DedupContentHandle&>(a);
    const auto& hb = static_cast<const Keel::DedupContentHandle&>(b);
    if (ha < hb) return true;
    if (hb < ha) return false;
    if (a.tunnelType_ != b.tunnelType_) return a.tunnelType_ < b.tunnelType_;
    return std::less<const EndpointSubTlv*>()(a.endpoint_.get(), b.endpoint_.get());
}

uint32_t TunnelEncapTlvUnparsedContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(tunnelType_);
    m.hashMix(tlvLen_);
    m.hashMix(Keel::hashBytes(tunnelTlvData_.data(), tunnelTlvData_.size()));
    return m.result();
}

bool operator==(const TunnelEncapTlvUnparsedContent& a,
                const TunnelEncapTlvUnparsedContent& b) noexcept {
    return static_cast<const TunnelEncapTlvContentBase&>(a) ==
               static_cast<const TunnelEncapTlvContentBase&>(b) &&
           a.tlvLen_ == b.tlvLen_ && a.tunnelTlvData_ == b.tunnelTlvData_;
}

bool operator<(const TunnelEncapTlvUnparsedContent& a,
               const TunnelEncapTlvUnparsedContent& b) noexcept {
    const auto& ba = static_cast<const TunnelEncapTlvContentBase&>(a);
    const auto& bb = static_cast<const TunnelEncapTlvContentBase&>(b);
    if (ba < bb) return true;
    if (bb < ba) return false;
    if (a.tlvLen_ != b.tlvLen_) return a.tlvLen_ < b.tlvLen_;
    return a.tunnelTlvData_ < b.tunnelTlvData_;
}

std::ostream& operator<<(std::ostream& os, const TunnelEncapTlvContentBase& c) {
    Mel::valueFormat(os, c);
    return os;
}

std::ostream& operator<<(std::ostream& os, const TunnelEncapTlvUnparsedContent& c) {
    Mel::valueFormat(os, c);
    return os;
}

void unparsedSubTlvFormatDerivedType(std::ostream& os, const TunnelEncapTlvContentBase& content) {
    if (!content.unparsedSubTlvs()) return;
    os << " #UnparsedSubTlvs=" << content.unparsedSubTlvs();
    for (size_t i = 0; i < content.unparsedSubTlvs(); ++i)
        os << " SubTlv#:" << i << *content.unparsedSubTlv(i);
}

// ---- TunnelEncapTlvBase ------------------------------------------------------------------------

uint16_t TunnelEncapTlvBase::tunnelType() const {
    ORV_ASSERT(0 && "Need to be implemented by derived classes");
    return 0;
}

bool TunnelEncapTlvBase::compare(const Keel::DedupHandleBase* other) const {
    return compareDerived(static_cast<const TunnelEncapTlvBase*>(other));
}

bool TunnelEncapTlvBase::compareByContent(const Keel::DedupContentHandle& content) const {
    return compareByContentDerived(static_cast<const TunnelEncapTlvContentBase&>(content));
}

Mel::PtrConst<TunnelEncapTlvBase>
TunnelEncapTlvBase::dedupContent(TunnelEncapTlvDedupTableBase* table,
                                 const TunnelEncapTlvContentBase& content, uint32_t hash) {
    ORV_ASSERT(table);
    if (auto found = table->find(hash, content)) return found;
    Mel::PtrConst<TunnelEncapTlvBase> made(table->allocateTunEncapTlvContent(content));
    Mel::PtrConst<TunnelEncapTlvBase> dedupHandle;
    if (made) {
        // Filed under its own hash, the object must answer later lookups by this one.
        ORV_ASSERT(made->hash() == hash);
        dedupHandle = table->dedup(made);
    }
    ORV_ASSERT(dedupHandle);
    return dedupHandle;
}

Mel::PtrConst<TunnelEncapTlvBase>
TunnelEncapTlvBase::dedup(TunnelEncapTlvDedupTableBase* table) const {
    ORV_ASSERT(table);
    Mel::PtrConst<TunnelEncapTlvBase> self(this);
    if (everDeduped()) {
        // Interned once already: only its own table can hold it.
        ORV_ASSERT(dedupTable() == table);
        return self;
    }
    Mel::PtrConst<TunnelEncapTlvBase> dedupHandle = table->dedup(self);
    ORV_ASSERT(dedupHandle);
    return dedupHandle;
}

Mel::PtrConst<TunnelEncapTlvBase>
TunnelEncapTlvBase::destash(const void* stored, MelStash::StoreManager::RawPtr store) {
    const Keel::DedupHandleBase* obj = storedObject(stored);
    const auto* reader =
        MelStash::StashReaderRegistry::readerFor<TunnelEncapTlvStashReader>(typeid(*obj));
    ORV_ASSERT(nullptr != reader);
    return reader->destash(stored, store);
}

void TunnelEncapTlvBase::serializeInto(Serialize& s) const {
    s.addBytes(serialize());
}

std::string TunnelEncapTlvBase::toStrep() const {
    std::ostringstream os;
    formatDerivedType(os);
    return std::move(os).str();
}

// ---- TunnelEncapTlvUnparsed --------------------------------------------------------------------

TunnelEncapTlvUnparsed::TunnelEncapTlvUnparsed(const TunnelEncapTlvUnparsedContent& c) noexcept
    : hash_(c.hash()), tunnelType_(c.tunnelType()), tlvLen_(c.tlvLen()), endpoint_(c.endpoint()),
      subTlvCount_(uint16_t(c.unparsedSubTlvs())), dataSize_(uint16_t(c.tunnelTlvData().size())) {
    for (size_t i = 0; i < subTlvCount_; ++i)
        subTlvRefs_[i] = holdRef(c.unparsedSubTlv(i).get());
    if (dataSize_) std::memcpy(subTlvRefs_ + subTlvCount_, c.tunnelTlvData().data(), dataSize_);
}

TunnelEncapTlvUnparsed::~TunnelEncapTlvUnparsed() {
    for (size_t i = 0; i < subTlvCount_; ++i)
        expandRef<UnparsedSubTlv>(subTlvRefs_[i])->refDec();
}

TunnelEncapTlvUnparsed* TunnelEncapTlvUnparsed::make(const TunnelEncapTlvUnparsedContent& content) {
    ORV_ASSERT(content.tunnelTlvData().size() <= 0xffff);
    ORV_ASSERT(content.unparsedSubTlvs() <= 0xffff);
    const size_t extra = content.unparsedSubTlvs() * 4 + content.tunnelTlvData().size();
    return new (MelStash::ExtraBytes{extra}) TunnelEncapTlvUnparsed(content);
}

Mel::PtrConst<TunnelEncapTlvUnparsed>
TunnelEncapTlvUnparsed::TunnelEncapTlvUnparsedIs(const TunnelEncapTlvUnparsedContent& content) {
    return Mel::PtrConst<TunnelEncapTlvUnparsed>(make(content));
}

Mel::PtrConst<TunnelEncapTlvUnparsed>
TunnelEncapTlvUnparsed::intern(const TunnelEncapTlvUnparsedContent& content) {
    auto tlv = dedupContent(&TunnelEncapTlvUnparsedDedupTable::instance(), content, content.hash());
    return Mel::PtrConst<TunnelEncapTlvUnparsed>::adopt(
        static_cast<const TunnelEncapTlvUnparsed*>(tlv.detach()));
}

std::span<const uint8_t> TunnelEncapTlvUnparsed::tunnelTlvData() const noexcept {
    return {reinterpret_cast<const uint8_t*>(subTlvRefs_ + subTlvCount_), dataSize_};
}

const UnparsedSubTlv* TunnelEncapTlvUnparsed::unparsedSubTlv(size_t i) const {
    ORV_ASSERT(i < subTlvCount_);
    return expandRef<UnparsedSubTlv>(subTlvRefs_[i]);
}

TunnelEncapTlvUnparsedContent TunnelEncapTlvUnparsed::content() const {
    TunnelEncapTlvUnparsedContent c(tunnelType_, tlvLen_, Mel::Bytes(tunnelTlvData()));
    c.endpointIs(endpoint_.ptr());
    for (size_t i = 0; i < subTlvCount_; ++i)
        c.unparsedSubTlvIs(Mel::PtrConst<UnparsedSubTlv>(unparsedSubTlv(i)));
    return c;
}

bool TunnelEncapTlvUnparsed::equals(uint16_t type, uint16_t len,
                                    std::span<const uint8_t> data) const noexcept {
    return tunnelType_ == type && tlvLen_ == len && dataSize_ == data.size() &&
           (dataSize_ == 0 || std::memcmp(tunnelTlvData().data(), data.data(), dataSize_) == 0);
}

bool TunnelEncapTlvUnparsed::compareDerived(const TunnelEncapTlvBase* other) const {
    const auto* o = static_cast<const TunnelEncapTlvUnparsed*>(other);
    return equals(o->tunnelType_, o->tlvLen_, o->tunnelTlvData());
}

bool TunnelEncapTlvUnparsed::compareByContentDerived(
    const TunnelEncapTlvContentBase& content) const {
    const auto& c = static_cast<const TunnelEncapTlvUnparsedContent&>(content);
    return equals(c.tunnelType(), c.tlvLen(), c.tunnelTlvData().span());
}

void TunnelEncapTlvUnparsed::formatDerivedType(std::ostream& os) const {
    os << "T=" << tunnelType_ << " L=" << tlvLen_;
}

Mel::Bytes TunnelEncapTlvUnparsed::serialize() const {
    Serialize s;
    serializeInto(s);
    return s.serializedBytes();
}

void TunnelEncapTlvUnparsed::serializeInto(Serialize& s) const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: TunnelEncapTlvUnparsed::serialize()");
    SerializedBgpTunnelEncap(tunnelType_, tlvLen_).appendTo(s);
    s.addData(tunnelTlvData());
}

Mel::PtrConst<TunnelEncapTlvUnparsed>
TunnelEncapTlvUnparsed::destash(const void* stored, MelStash::StoreManager::RawPtr) {
    const Keel::DedupHandleBase* obj = storedObject(stored);
    ORV_ASSERT(typeid(*obj) == typeid(TunnelEncapTlvUnparsed));
    return intern(static_cast<const TunnelEncapTlvUnparsed*>(obj)->content());
}

TunnelEncapTlvBase* TunnelEncapTlvUnparsedDedupTable::allocateTunEncapTlvContent(
    const TunnelEncapTlvContentBase& content) const {
    return TunnelEncapTlvUnparsed::make(static_cast<const TunnelEncapTlvUnparsedContent&>(content));
}

TunnelEncapTlvUnparsedDedupTable& TunnelEncapTlvUnparsedDedupTable::instance() {
    // Never destroyed: objects released during exit still find their table.
    static auto* table = tunnelEncapTlvUnparsedDedupTableFactory().release();
    return *table;
}

std::unique_ptr<TunnelEncapTlvUnparsedDedupTable> tunnelEncapTlvUnparsedDedupTableFactory() {
    return std::make_unique<TunnelEncapTlvUnparsedDedupTable>(Keel::multiThreadedOrvbgp());
}

Mel::PtrConst<TunnelEncapTlvUnparsed>
tunnelEncapTlvUnparsedFactory(const TunnelEncapTlvUnparsedContent& content) {
    return TunnelEncapTlvUnparsed::TunnelEncapTlvUnparsedIs(content);
}

// ---- TunnelEncapContent ------------------------------------------------------------------------

void TunnelEncapContent::tunnelTlvIs(const Mel::PtrConst<TunnelEncapTlvBase>& tlv) {
    ORV_ASSERT(tlv);
    tlv->assertIsDeduped();
    tunnelTlv_.push_back(tlv);
}

const Mel::PtrConst<TunnelEncapTlvBase>& TunnelEncapContent::tunnelTlv(size_t i) const {
    ORV_ASSERT(i < tunnelTlv_.size());
    return tunnelTlv_[i];
}

uint32_t TunnelEncapContent::hash() const noexcept {
    Keel::HashMix m;
    for (const auto& tlv : tunnelTlv_)
        m.hashMix(uint32_t(tlv->hash()));
    return m.result();
}

bool tunnelEncapCompareImpl(const TunnelEncapContent& a, const TunnelEncapContent& b) noexcept {
    if (a.tunnelTlvs() != b.tunnelTlvs()) return false;
    if (a.tunnelTlvs() == 0) return true;
    for (size_t i = 0; i < a.tunnelTlvs(); ++i) {
        if (a.tunnelTlvList()[i].get() != b.tunnelTlvList()[i].get()) return false;
    }
    return true;
}

bool operator==(const TunnelEncapContent& a, const TunnelEncapContent& b) noexcept {
    return tunnelEncapCompareImpl(a, b);
}

bool operator<(const TunnelEncapContent& a, const TunnelEncapContent& b) noexcept {
    return static_cast<const Keel::DedupContentHandle&>(a) <
           static_cast<const Keel::DedupContentHandle&>(b);
}

namespace {
template <class Tlvs>
void formatTlvs(std::ostream& os, size_t count, Tlvs&& tlvAt) {
    os << "<#Tlvs=" << count << ' ';
    for (size_t i = 0; i < count; ++i) {
        os << "Tlv#" << i << " {";
        tlvAt(i)->formatDerivedType(os);
        os << '}';
    }
    os << " >";
}
} // namespace

void melFormat(std::ostream& os, const Mel::PtrConst<TunnelEncapTlvBase>& tlv) {
    if (!tlv)
        os << "None";
    else
        Mel::formatQuoted(os, tlv->toStrep());
}

void melParse(Mel::ValueParser& p, Mel::PtrConst<TunnelEncapTlvBase>&) {
    p.skipBlanks();
    throw Mel::NotSupportedException("Not supported: at offset " + std::to_string(p.offset()) +
                                     ": a tunnel encapsulation TLV does not read back from its "
                                     "text");
}

std::ostream& operator<<(std::ostream& os, const TunnelEncapContent& c) {
    formatTlvs(os, c.tunnelTlvs(), [&](size_t i) { return c.tunnelTlvList()[i].get(); });
    return os;
}

// ---- TunnelEncap -------------------------------------------------------------------------------

TunnelEncap::TunnelEncap(const TunnelEncapContent& c) noexcept : count_(uint32_t(c.tunnelTlvs())) {
    for (size_t i = 0; i < count_; ++i)
        tlvRefs_[i] = holdRef(c.tunnelTlvList()[i].get());
    hashIs(c.hash());
}

TunnelEncap::~TunnelEncap() {
    for (size_t i = 0; i < count_; ++i)
        expandRef<TunnelEncapTlvBase>(tlvRefs_[i])->refDec();
}

TunnelEncap* TunnelEncap::make(const TunnelEncapContent& content) {
    return new (MelStash::ExtraBytes{content.tunnelTlvs() * 4}) TunnelEncap(content);
}

Mel::PtrConst<TunnelEncap> TunnelEncap::TunnelEncapIs(const TunnelEncapContent& content) {
    return Mel::PtrConst<TunnelEncap>(make(content));
}

Mel::PtrConst<TunnelEncap> TunnelEncap::intern(const TunnelEncapContent& content) {
    return dedupContent(&TunnelEncapDedupTable::instance(), content);
}

Mel::PtrConst<TunnelEncap> TunnelEncap::dedupContent(TunnelEncapDedupTable* table,
                                                     const TunnelEncapContent& content) {
    ORV_ASSERT(table);
    const uint32_t hash = content.hash();
    if (auto found = table->find(hash, content)) return found;
    Mel::PtrConst<TunnelEncap> made(table->allocateTunnelEncapContent(content));
    Mel::PtrConst<TunnelEncap> dedupHandle;
    if (made) dedupHandle = table->dedup(made);
    ORV_ASSERT(dedupHandle);
    return dedupHandle;
}

Mel::PtrConst<TunnelEncap> TunnelEncap::dedup(TunnelEncapDedupTable* table) const {
    ORV_ASSERT(table);
    Mel::PtrConst<TunnelEncap> self(this);
    if (everDeduped()) {
        ORV_ASSERT(dedupTable() == table);
        return self;
    }
    Mel::PtrConst<TunnelEncap> dedupHandle = table->dedup(self);
    ORV_ASSERT(dedupHandle);
    return dedupHandle;
}

Mel::PtrConst<TunnelEncap> TunnelEncap::destash(const void* stored,
                                                MelStash::StoreManager::RawPtr) {
    const Keel::DedupHandleBase* obj = storedObject(stored);
    ORV_ASSERT(typeid(*obj) == typeid(TunnelEncap));
    return intern(static_cast<const TunnelEncap*>(obj)->content());
}

const TunnelEncapTlvBase* TunnelEncap::tunnelTlv(size_t i) const {
    ORV_ASSERT(i < count_);
    return expandRef<TunnelEncapTlvBase>(tlvRefs_[i]);
}

TunnelEncapContent TunnelEncap::content() const {
    TunnelEncapContent c;
    for (size_t i = 0; i < count_; ++i)
        c.tunnelTlvIs(Mel::PtrConst<TunnelEncapTlvBase>(tunnelTlv(i)));
    return c;
}

Mel::Bytes TunnelEncap::serialize() const {
    Tracelet::Handle& trace = Tracelet::orvBgp();
    TRACE_AT(trace, 5, "Serializing: TunnelEncap::serialize()");
    // The TLVs go straight after a reserved header, which is then written for the final length
    // (moving the value down a byte when the short form fits): one buffer, no copies per TLV.
    SerializePathAttributeAutoExtLen s;
    for (size_t i = 0; i < count_; ++i) {
        const TunnelEncapTlvBase* tlv = tunnelTlv(i);
        TRACE_AT(trace, 5,
                 "Serializing: TunnelEncap::serialize() for tunnelType " << tlv->tunnelType());
        tlv->serializeInto(s);
    }
    return s.patchHdrAndStringify(BgpPathAttrType::tunnelEncap_,
                                  pathAttrFlagOptional | pathAttrFlagTransitive);
}

std::string TunnelEncap::toStrep() const {
    std::ostringstream os;
    os << this;
    return std::move(os).str();
}

bool TunnelEncap::sameTlvs(std::span<const Mel::PtrConst<TunnelEncapTlvBase>> tlvs) const noexcept {
    if (tlvs.size() != count_) return false;
    for (size_t i = 0; i < count_; ++i) {
        if (MelStash::StoreManager::compress(tlvs[i].get()) != tlvRefs_[i]) return false;
    }
    return true;
}

bool TunnelEncap::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const TunnelEncap*>(other);
    return count_ == o->count_ &&
           (count_ == 0 || std::memcmp(tlvRefs_, o->tlvRefs_, count_ * sizeof(uint32_t)) == 0);
}

bool TunnelEncap::compareByContent(const Keel::DedupContentHandle& content) const {
    return sameTlvs(static_cast<const TunnelEncapContent&>(content).tunnelTlvList());
}

std::ostream& operator<<(std::ostream& os, const TunnelEncap* t) {
    if (!t) return os << "NULL";
    formatTlvs(os, t->tunnelTlvs(), [&](size_t i) { return t->tunnelTlv(i); });
    return os;
}

TunnelEncap*
TunnelEncapDedupTable::allocateTunnelEncapContent(const TunnelEncapContent& content) const {
    return TunnelEncap::make(content);
}

TunnelEncapDedupTable& TunnelEncapDedupTable::instance() {
    static auto* table = tunnelEncapDedupTableFactory().release();
    return *table;
}

std::unique_ptr<TunnelEncapDedupTable> tunnelEncapDedupTableFactory() {
    return std::make_unique<TunnelEncapDedupTable>(Keel::multiThreadedOrvbgp());
}

Mel::PtrConst<TunnelEncap> tunnelEncapFactory(const TunnelEncapContent& content) {
    return TunnelEncap::TunnelEncapIs(content);
}

// ---- Stash readers -----------------------------------------------------------------------------

namespace {
struct TunnelEncapKestrelRegisterer {
    TunnelEncapKestrelRegisterer() { registerTunnelEncapTlvStashReader<TunnelEncapTlvUnparsed>(); }
} registerer;
} // namespace

} // namespace Routing::Bgp
