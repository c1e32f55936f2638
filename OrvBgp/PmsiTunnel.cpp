#define ORV_UNIT "OrvBgp/PmsiTunnel"

#include "OrvBgp/PmsiTunnel.h"

#include "Keel/Assert.h"
#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "Mel/ValueParser.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <cstring>
#include <limits>
#include <new>
#include <ostream>
#include <sstream>
#include <typeinfo>

namespace Routing::Bgp {

namespace {

// Distinguishes the classes in hashes, so equal common fields of different classes spread out.
enum ClassTag : uint8_t {
    tagGeneral = 1,
    tagPim = 2,
    tagIngressReplication = 3,
    tagMldpP2mpLsp = 4,
    tagMldpP2mpGenericLspId = 5,
};

void hashMixAddr(Keel::HashMix& m, const Orvnet::IpGenAddr& a) noexcept {
    m.hashMix(uint8_t(a.af()));
    const uint8_t* p = a.data();
    for (size_t i = 0; i < a.byteLength(); i += 4) {
        uint32_t w;
        std::memcpy(&w, p + i, 4);
        m.hashMix(w);
    }
}

struct TunnelTypeInfo {
    const char* name;
    const char* json;
    const char* display;
};

const TunnelTypeInfo* tunnelTypeInfo(uint8_t code) noexcept {
    static const TunnelTypeInfo known[] = {
        {"tunnelTypeNoTunnelInformation", "noInfo", "No Information"},
        {"tunnelTypeRsvpTeP2mpLsp", "rsvpTeP2mpLsp", "RSVP-TE P2MP LSP"},
        {"tunnelTypeMldpP2mpLsp", "mLdpP2mpLsp", "MLDP P2MP LSP"},
        {"tunnelTypePimSsmTree", "pimSsmTree", "PIM-SSM Tree"},
        {"tunnelTypePimSmTree", "pimSmTree", "PIM-SM Tree"},
        {"tunnelTypeBidirPimTree", "bidirPimTree", "PIM Bidir Tree"},
        {"tunnelTypeIngressReplication", "ingressReplication", "Ingress Replication"},
        {"tunnelTypeMldpMp2mpLsp", "mLdpMp2mpLsp", "MLDP MP2MP LSP"},
        {"tunnelTypeTransportTunnel", "transportTunnel", "Transport Tunnel"},
        {nullptr, nullptr, nullptr},
        {"tunnelTypeAssistedReplication", "assistedReplication", "Assisted Replication"},
        {"tunnelTypeBIER", "bier", "BIER"},
    };
    static const TunnelTypeInfo wildcard = {"tunnelTypeWildcardTransport", "wildcardTransport",
                                            "Wildcard Transport"};
    if (code < std::size(known)) return known[code].name ? &known[code] : nullptr;
    return code == PmsiTunnel::tunnelTypeWildcardTransport ? &wildcard : nullptr;
}

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

} // namespace

// ---- Tunnel identifier bytes -------------------------------------------------------------------

void PmsiTunnelIdentifierContent::populateTunnelIdentifier(const uint8_t* data, size_t len) {
    tunnelIdentifier_.resize(len);
    if (len) std::memcpy(tunnelIdentifier_.data(), data, len);
}

void PmsiTunnelIdentifierContent::populateTunnelIdentifierBytes(const Mel::Bytes& bytes) {
    populateTunnelIdentifier(bytes.data(), bytes.size());
}

uint32_t PmsiTunnelIdentifierContent::hash() const noexcept {
    return Keel::hashBytes(tunnelIdentifier_.data(), tunnelIdentifier_.size());
}

PmsiTunnelIdentifier::PmsiTunnelIdentifier(std::span<const uint8_t> bytes) noexcept
    : size_(uint32_t(bytes.size())) {
    if (size_) std::memcpy(bytes_, bytes.data(), size_);
    hashIs(Keel::hashBytes(bytes.data(), bytes.size()));
}

PmsiTunnelIdentifier* PmsiTunnelIdentifier::make(std::span<const uint8_t> bytes) {
    return new (MelStash::ExtraBytes{bytes.size()}) PmsiTunnelIdentifier(bytes);
}

std::string PmsiTunnelIdentifier::toHex() const {
    return Mel::Bytes(bytes_, size_).toHex();
}

bool PmsiTunnelIdentifier::equals(std::span<const uint8_t> bytes) const noexcept {
    return bytes.size() == size_ && (size_ == 0 || std::memcmp(bytes.data(), bytes_, size_) == 0);
}

bool PmsiTunnelIdentifier::compare(const Keel::DedupHandleBase* other) const {
    return static_cast<const PmsiTunnelIdentifier*>(other)->equals(tunnelIdentifier());
}

bool PmsiTunnelIdentifier::compareByContent(const Keel::DedupContentHandle& content) const {
    return equals(static_cast<const PmsiTunnelIdentifierContent&>(content).tunnelIdentifier());
}

PmsiTunnelIdentifierDedupTable& PmsiTunnelIdentifierDedupTable::instance() {
    // Never destroyed: objects released during exit still find their table.
    static auto* table = new PmsiTunnelIdentifierDedupTable;
    return *table;
}

Mel::PtrConst<PmsiTunnelIdentifier> pmsiTunnelIdentifierFactory(std::span<const uint8_t> bytes) {
    auto eq = [](const PmsiTunnelIdentifier& o, std::span<const uint8_t> b) { return o.equals(b); };
    return PmsiTunnelIdentifierDedupTable::instance().findOrCreate(
        Keel::hashBytes(bytes.data(), bytes.size()), bytes,
        [&] { return PmsiTunnelIdentifier::make(bytes); }, eq);
}

Mel::PtrConst<PmsiTunnelIdentifier>
pmsiTunnelIdentifierFactory(const PmsiTunnelIdentifierContent& content) {
    return pmsiTunnelIdentifierFactory(std::span<const uint8_t>(content.tunnelIdentifier()));
}

// ---- PmsiTunnel --------------------------------------------------------------------------------

bool PmsiTunnel::knownTunnelType(uint8_t code) noexcept {
    return tunnelTypeInfo(code) != nullptr;
}

bool PmsiTunnel::compositeTunnelType(uint8_t code) noexcept {
    return code >= 0x80 && code <= 0xFA;
}

const char* PmsiTunnel::tunnelTypeName(uint8_t code) noexcept {
    const TunnelTypeInfo* i = tunnelTypeInfo(code);
    return i ? i->name : nullptr;
}

const char* PmsiTunnel::tunnelTypeJsonName(uint8_t code) noexcept {
    const TunnelTypeInfo* i = tunnelTypeInfo(code);
    return i ? i->json : "unknown";
}

const char* PmsiTunnel::tunnelTypeDisplayName(uint8_t code) noexcept {
    const TunnelTypeInfo* i = tunnelTypeInfo(code);
    return i ? i->display : "-";
}

PmsiTunnel::TunnelType PmsiTunnel::fromMulticastTunnel(uint8_t multicastTunnelType) noexcept {
    switch (multicastTunnelType) {
    case 0:
        return tunnelTypePimSmTree;
    case 1:
        return tunnelTypePimSsmTree;
    case 2:
        return tunnelTypeBidirPimTree;
    default:
        return tunnelTypeNoTunnelInformation;
    }
}

uint8_t PmsiTunnel::toMulticastTunnel(uint8_t tunnelType) noexcept {
    switch (tunnelType) {
    case tunnelTypePimSmTree:
        return 0;
    case tunnelTypeBidirPimTree:
        return 2;
    default:
        return 1;
    }
}

PmsiTunnelContent PmsiTunnel::content() const noexcept {
    return PmsiTunnelContent(tunnelType_, flags_, mplsLabel_);
}

Mel::Bytes PmsiTunnel::serialize() const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: PmsiTunnel::serialize()");
    const size_t size = serializedTunnelIdentifierSize() + 5;
    Serialize s;
    SerializePathAttribute(s, BgpPathAttrType::pmsiTunnel_,
                           pathAttrFlagOptional | pathAttrFlagTransitive, size);
    const size_t valueStart = s.size();
    s.addU8(flags_.value());
    s.addU8(tunnelType_);
    s.add3octetMplsLabelHton(mplsLabel_);
    serializeTunnelIndentifier(s);
    ORV_ASSERT(s.size() - valueStart == size);
    return s.serializedBytes();
}

size_t PmsiTunnel::serializedTunnelIdentifierSize() const {
    ORV_ASSERT(!("Not implemented"));
    return 0;
}

void PmsiTunnel::serializeTunnelIndentifier(Serialize&) const {
    ORV_ASSERT(!("Not implemented"));
}

std::string PmsiTunnel::toStrep() const {
    std::ostringstream os;
    formatDerivedType(os);
    return std::move(os).str();
}

void PmsiTunnel::formatDerivedType(std::ostream&) const {
    ORV_ASSERT(!("Not implemented"));
}

std::string PmsiTunnel::toStrepForUI() const {
    std::ostringstream os;
    os << tunnelTypeDisplayName(tunnelType_) << ", MPLS Label: " << mplsLabel_
       << ", Leaf Information Required: " << (leafInformationRequired() ? "true" : "false");
    return std::move(os).str();
}

uint32_t PmsiTunnel::hash() const {
    ORV_ASSERT(!("Not implemented"));
    return 0;
}

bool PmsiTunnel::compare(const Keel::DedupHandleBase*) const {
    ORV_ASSERT(!("Not implemented"));
    return false;
}

bool PmsiTunnel::compareBase(const PmsiTunnel& other) const noexcept {
    return flags_ == other.flags_ && tunnelType_ == other.tunnelType_ &&
           mplsLabel_ == other.mplsLabel_;
}

void PmsiTunnel::hashBase(Keel::HashMix& m, uint8_t classTag) const noexcept {
    m.hashMix(classTag);
    m.hashMix(flags_.value());
    m.hashMix(uint8_t(tunnelType_));
    m.hashMix(mplsLabel_);
}

void PmsiTunnel::formatCommon(std::ostream& os) const {
    os << "mplsLabel=" << mplsLabel_;
    if (leafInformationRequired()) os << ";leafInformationRequired";
    if (uint8_t reserved = flags_.value() & ~Flags::leafInformationRequiredBit) {
        const char* hex = "0123456789abcdef";
        os << ";flags=0x" << hex[reserved >> 4] << hex[reserved & 0xf];
    }
}

Mel::PtrConst<PmsiTunnel> PmsiTunnel::destash(const void* stored,
                                              MelStash::StoreManager::RawPtr store) {
    const Keel::DedupHandleBase* obj = storedObject(stored);
    const auto* reader =
        MelStash::StashReaderRegistry::readerFor<PmsiTunnelStashReader>(typeid(*obj));
    ORV_ASSERT(nullptr != reader);
    return reader->destash(stored, store);
}

std::ostream& operator<<(std::ostream& os, const PmsiTunnel& t) {
    t.formatDerivedType(os);
    return os;
}

void melFormat(std::ostream& os, PmsiTunnel::TunnelType t) {
    if (const char* name = PmsiTunnel::tunnelTypeName(t))
        Mel::formatQuoted(os, name);
    else
        os << unsigned(t);
}

void melParse(Mel::ValueParser& p, PmsiTunnel::TunnelType& t) {
    const char c = p.peek();
    if (c == '\'' || c == '"') {
        const size_t at = p.offset();
        const std::string name = p.parseQuoted();
        for (unsigned code = 0; code <= 255; ++code) {
            const char* n = PmsiTunnel::tunnelTypeName(uint8_t(code));
            if (n && name == n) {
                t = PmsiTunnel::TunnelType(code);
                return;
            }
        }
        p.failAt(at, "unknown tunnel type '" + name + "'");
    }
    const int64_t v =
        p.parseSigned(std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max());
    if (v < 0)
        throw Mel::RangeException(
            "Routing::Bgp::PmsiTunnelContent::tunnelType < min() not allowed");
    if (v > 255)
        throw Mel::RangeException(
            "Routing::Bgp::PmsiTunnelContent::tunnelType > max() not allowed");
    t = PmsiTunnel::TunnelType(v);
}

// ---- Contents ----------------------------------------------------------------------------------

std::string PmsiTunnelContent::toStrep() const {
    return Mel::valueToStrep(*this);
}
PmsiTunnelContent PmsiTunnelContent::fromStrep(std::string_view text) {
    return Mel::valueFromStrep<PmsiTunnelContent>(text);
}

uint32_t PmsiTunnelPimContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(uint8_t(tagPim));
    m.hashMix(flags().value());
    m.hashMix(uint8_t(tunnelType()));
    m.hashMix(mplsLabel());
    hashMixAddr(m, senderAddr_);
    hashMixAddr(m, multicastGroup_);
    return m.result();
}

std::string PmsiTunnelPimContent::toStrep() const {
    return Mel::valueToStrep(*this);
}
PmsiTunnelPimContent PmsiTunnelPimContent::fromStrep(std::string_view text) {
    return Mel::valueFromStrep<PmsiTunnelPimContent>(text);
}

std::string PmsiTunnelMldpP2mpLspContent::toStrep() const {
    return Mel::valueToStrep(*this);
}
PmsiTunnelMldpP2mpLspContent PmsiTunnelMldpP2mpLspContent::fromStrep(std::string_view text) {
    return Mel::valueFromStrep<PmsiTunnelMldpP2mpLspContent>(text);
}

uint32_t PmsiTunnelMldpP2mpGenericLspIdContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(uint8_t(tagMldpP2mpGenericLspId));
    m.hashMix(flags().value());
    m.hashMix(uint8_t(tunnelType()));
    m.hashMix(mplsLabel());
    hashMixAddr(m, rootAddress());
    m.hashMix(opaqueValueType());
    m.hashMix(lspId_);
    return m.result();
}

std::string PmsiTunnelMldpP2mpGenericLspIdContent::toStrep() const {
    return Mel::valueToStrep(*this);
}
PmsiTunnelMldpP2mpGenericLspIdContent
PmsiTunnelMldpP2mpGenericLspIdContent::fromStrep(std::string_view text) {
    return Mel::valueFromStrep<PmsiTunnelMldpP2mpGenericLspIdContent>(text);
}

// ---- PmsiTunnelGeneral -------------------------------------------------------------------------

PmsiTunnelGeneral::PmsiTunnelGeneral(Flags flags, TunnelType type, uint32_t mplsLabel,
                                     const Mel::PtrConst<PmsiTunnelIdentifier>& id) noexcept
    : PmsiTunnel(flags, type, mplsLabel), tunnelIdentifier_(id) {}

size_t PmsiTunnelGeneral::serializedTunnelIdentifierSize() const {
    return tunnelIdentifier_ ? tunnelIdentifier_->serializedSize() : 0;
}

void PmsiTunnelGeneral::serializeTunnelIndentifier(Serialize& s) const {
    if (tunnelIdentifier_) s.addData(tunnelIdentifier_->tunnelIdentifier());
}

void PmsiTunnelGeneral::formatDerivedType(std::ostream& os) const {
    os << "General;type=" << jsonName() << "(" << unsigned(tunnelType()) << ");";
    formatCommon(os);
    os << ";tunnelIdentifier=0x" << (tunnelIdentifier_ ? tunnelIdentifier_->toHex() : "");
}

uint32_t PmsiTunnelGeneral::hashOf(const PmsiTunnelContent& c,
                                   const PmsiTunnelIdentifier* id) noexcept {
    Keel::HashMix m;
    m.hashMix(uint8_t(tagGeneral));
    m.hashMix(c.flags().value());
    m.hashMix(uint8_t(c.tunnelType()));
    m.hashMix(c.mplsLabel());
    m.hashMix(static_cast<const void*>(id));
    return m.result();
}

uint32_t PmsiTunnelGeneral::hash() const {
    return hashOf(content(), tunnelIdentifier_.get());
}

bool PmsiTunnelGeneral::compare(const Keel::DedupHandleBase* other) const {
    const PmsiTunnelGeneral* o = static_cast<const PmsiTunnel*>(other)->castToGeneral();
    return o && compareBase(*o) && tunnelIdentifier_ == o->tunnelIdentifier_;
}

Mel::PtrConst<PmsiTunnelGeneral> PmsiTunnelGeneral::destash(const void* stored,
                                                            MelStash::StoreManager::RawPtr) {
    const auto& o = storedAs<PmsiTunnelGeneral>(stored);
    Mel::PtrConst<PmsiTunnelIdentifier> id;
    if (o.tunnelIdentifier_)
        id = pmsiTunnelIdentifierFactory(o.tunnelIdentifier_->tunnelIdentifier());
    return pmsiTunnelGeneralFactory(o.flags(), o.tunnelType(), o.mplsLabel(), id);
}

// ---- PmsiTunnelPim -----------------------------------------------------------------------------

namespace {
size_t pimIdentifierSize(const Orvnet::IpGenAddr& sender, const Orvnet::IpGenAddr& group) {
    const size_t len = sender.byteLength() + group.byteLength();
    ORV_ASSERT(len == 8 || len == 32);
    return len;
}
} // namespace

PmsiTunnelPim::PmsiTunnelPim(const PmsiTunnelPimContent& c) noexcept
    : PmsiTunnel(c.flags(), c.tunnelType(), c.mplsLabel()), senderAddr_(c.senderAddr()),
      multicastGroup_(c.multicastGroup()) {
    pimIdentifierSize(senderAddr_, multicastGroup_);
}

PmsiTunnelPimContent PmsiTunnelPim::pimContent() const noexcept {
    return PmsiTunnelPimContent(content(), senderAddr_, multicastGroup_);
}

size_t PmsiTunnelPim::serializedTunnelIdentifierSize() const {
    return pimIdentifierSize(senderAddr_, multicastGroup_);
}

void PmsiTunnelPim::serializeTunnelIndentifier(Serialize& s) const {
    s.addIpGenAddr(senderAddr_);
    s.addIpGenAddr(multicastGroup_);
}

void PmsiTunnelPim::formatDerivedType(std::ostream& os) const {
    os << "Pim;";
    formatCommon(os);
    os << ";type=" << jsonName() << "(" << unsigned(tunnelType()) << ");sender=" << senderAddr_
       << ";group=" << multicastGroup_;
}

std::string PmsiTunnelPim::toStrepForUI() const {
    return PmsiTunnel::toStrepForUI() + ", Tunnel ID: " + senderAddr_.toString() + ", " +
           multicastGroup_.toString();
}

uint32_t PmsiTunnelPim::hash() const {
    return pimContent().hash();
}

bool PmsiTunnelPim::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const PmsiTunnelPim*>(other);
    return compareBase(*o) && senderAddr_ == o->senderAddr_ &&
           multicastGroup_ == o->multicastGroup_;
}

bool PmsiTunnelPim::compareByContent(const Keel::DedupContentHandle& content) const {
    return pimContent() == static_cast<const PmsiTunnelPimContent&>(content);
}

Mel::PtrConst<PmsiTunnelPim> PmsiTunnelPim::destash(const void* stored,
                                                    MelStash::StoreManager::RawPtr) {
    return pmsiTunnelPimFactory(storedAs<PmsiTunnelPim>(stored).pimContent());
}

// ---- PmsiTunnelIngressReplication --------------------------------------------------------------

namespace {
size_t endpointSize(const Orvnet::IpGenAddr& endpoint) {
    const size_t len = endpoint.byteLength();
    ORV_ASSERT(len == 4 || len == 16);
    return len;
}
} // namespace

PmsiTunnelIngressReplication::PmsiTunnelIngressReplication(
    Flags flags, uint32_t mplsLabel, const Orvnet::IpGenAddr& endpoint) noexcept
    : PmsiTunnel(flags, tunnelTypeIngressReplication, mplsLabel), endpoint_(endpoint) {
    endpointSize(endpoint_);
}

size_t PmsiTunnelIngressReplication::serializedTunnelIdentifierSize() const {
    return endpointSize(endpoint_);
}

void PmsiTunnelIngressReplication::serializeTunnelIndentifier(Serialize& s) const {
    s.addIpGenAddr(endpoint_);
}

void PmsiTunnelIngressReplication::formatDerivedType(std::ostream& os) const {
    os << "IngressReplication;";
    formatCommon(os);
    os << ";endpoint=" << endpoint_;
}

std::string PmsiTunnelIngressReplication::toStrepForUI() const {
    return PmsiTunnel::toStrepForUI() + ", Tunnel ID: " + endpoint_.toString();
}

uint32_t PmsiTunnelIngressReplication::hashOf(Flags flags, uint32_t mplsLabel,
                                              const Orvnet::IpGenAddr& endpoint) noexcept {
    Keel::HashMix m;
    m.hashMix(uint8_t(tagIngressReplication));
    m.hashMix(flags.value());
    m.hashMix(uint8_t(tunnelTypeIngressReplication));
    m.hashMix(mplsLabel & mplsLabelMask);
    hashMixAddr(m, endpoint);
    return m.result();
}

uint32_t PmsiTunnelIngressReplication::hash() const {
    return hashOf(flags(), mplsLabel(), endpoint_);
}

bool PmsiTunnelIngressReplication::compare(const Keel::DedupHandleBase* other) const {
    const PmsiTunnelIngressReplication* o =
        static_cast<const PmsiTunnel*>(other)->castToIngressReplication();
    return o && compareBase(*o) && endpoint_ == o->endpoint_;
}

Mel::PtrConst<PmsiTunnelIngressReplication>
PmsiTunnelIngressReplication::destash(const void* stored, MelStash::StoreManager::RawPtr) {
    const auto& o = storedAs<PmsiTunnelIngressReplication>(stored);
    return pmsiTunnelIngressReplicationFactory(o.flags(), o.mplsLabel(), o.endpoint_);
}

// ---- mLDP P2MP ---------------------------------------------------------------------------------

PmsiTunnelMldpP2mpLsp::PmsiTunnelMldpP2mpLsp(const PmsiTunnelMldpP2mpLspContent& c) noexcept
    : PmsiTunnel(c.flags(), c.tunnelType(), c.mplsLabel()), rootAddress_(c.rootAddress()),
      opaqueValueType_(c.opaqueValueType()) {
    endpointSize(rootAddress_);
}

uint16_t PmsiTunnelMldpP2mpLsp::opaqueValueLength() const {
    ORV_ASSERT(!("Not implemented"));
    return 0;
}

size_t PmsiTunnelMldpP2mpLsp::serializedOpaqueValueSize() const {
    ORV_ASSERT(!("Not implemented"));
    return 0;
}

void PmsiTunnelMldpP2mpLsp::serializeOpaqueValue(Serialize&) const {
    ORV_ASSERT(!("Not implemented"));
}

void PmsiTunnelMldpP2mpLsp::formatOpaqueValue(std::ostream&) const {
    ORV_ASSERT(!("Not implemented"));
}

size_t PmsiTunnelMldpP2mpLsp::serializedTunnelIdentifierSize() const {
    // FEC type, address family, address length, root address, opaque length, opaque value.
    return 1 + 2 + 1 + endpointSize(rootAddress_) + 2 + serializedOpaqueValueSize();
}

void PmsiTunnelMldpP2mpLsp::serializeTunnelIndentifier(Serialize& s) const {
    s.addU8(p2mpFecElementType);
    s.addU16hton(uint16_t(rootAddress_.af()));
    s.addU8(uint8_t(endpointSize(rootAddress_)));
    s.addIpGenAddr(rootAddress_);
    s.addU16hton(uint16_t(serializedOpaqueValueSize()));
    serializeOpaqueValue(s);
}

void PmsiTunnelMldpP2mpLsp::formatDerivedType(std::ostream& os) const {
    os << "MLDP P2MP, Root Address: " << rootAddress_ << ", ";
    formatOpaqueValue(os);
    os << ";";
    formatCommon(os);
}

uint32_t PmsiTunnelMldpP2mpLsp::hash() const {
    Keel::HashMix m;
    hashMldp(m, tagMldpP2mpLsp);
    return m.result();
}

bool PmsiTunnelMldpP2mpLsp::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const PmsiTunnel*>(other);
    return typeid(*o) == typeid(*this) &&
           compareMldp(static_cast<const PmsiTunnelMldpP2mpLsp&>(*o));
}

bool PmsiTunnelMldpP2mpLsp::compareMldp(const PmsiTunnelMldpP2mpLsp& other) const noexcept {
    return compareBase(other) && rootAddress_ == other.rootAddress_ &&
           opaqueValueType_ == other.opaqueValueType_;
}

void PmsiTunnelMldpP2mpLsp::hashMldp(Keel::HashMix& m, uint8_t classTag) const noexcept {
    hashBase(m, classTag);
    hashMixAddr(m, rootAddress_);
    m.hashMix(opaqueValueType_);
}

PmsiTunnelMldpP2mpGenericLspIdContent PmsiTunnelMldpP2mpGenericLspId::normalized(
    const PmsiTunnelMldpP2mpGenericLspIdContent& c) noexcept {
    PmsiTunnelMldpP2mpGenericLspIdContent n = c;
    n.tunnelTypeIs(tunnelTypeMldpP2mpLsp);
    n.opaqueValueTypeIs(genericLspIdOpaqueType);
    return n;
}

PmsiTunnelMldpP2mpGenericLspId::PmsiTunnelMldpP2mpGenericLspId(
    const PmsiTunnelMldpP2mpGenericLspIdContent& c) noexcept
    : PmsiTunnelMldpP2mpLsp(normalized(c)), lspId_(c.lspId()) {}

PmsiTunnelMldpP2mpGenericLspIdContent
PmsiTunnelMldpP2mpGenericLspId::genericLspIdContent() const noexcept {
    return PmsiTunnelMldpP2mpGenericLspIdContent(
        PmsiTunnelMldpP2mpLspContent(content(), rootAddress(), opaqueValueType()), lspId_);
}

void PmsiTunnelMldpP2mpGenericLspId::serializeOpaqueValue(Serialize& s) const {
    s.addU8(opaqueValueType());
    s.addU16hton(opaqueValueLength());
    s.addU32hton(lspId_);
}

void PmsiTunnelMldpP2mpGenericLspId::formatOpaqueValue(std::ostream& os) const {
    os << "LSP ID: " << lspId_;
}

uint32_t PmsiTunnelMldpP2mpGenericLspId::hash() const {
    return genericLspIdContent().hash();
}

bool PmsiTunnelMldpP2mpGenericLspId::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const PmsiTunnelMldpP2mpGenericLspId*>(other);
    return compareMldp(*o) && lspId_ == o->lspId_;
}

bool PmsiTunnelMldpP2mpGenericLspId::compareByContent(
    const Keel::DedupContentHandle& content) const {
    return genericLspIdContent() ==
           static_cast<const PmsiTunnelMldpP2mpGenericLspIdContent&>(content);
}

Mel::PtrConst<PmsiTunnelMldpP2mpGenericLspId>
PmsiTunnelMldpP2mpGenericLspId::destash(const void* stored, MelStash::StoreManager::RawPtr) {
    return pmsiTunnelMldpP2mpGenericLspIdFactory(
        storedAs<PmsiTunnelMldpP2mpGenericLspId>(stored).genericLspIdContent());
}

// ---- Tables and factories ----------------------------------------------------------------------

PmsiTunnelDedupTable& PmsiTunnelDedupTable::instance() {
    static auto* table = new PmsiTunnelDedupTable;
    return *table;
}

PmsiTunnelPimDedupTable& PmsiTunnelPimDedupTable::instance() {
    static auto* table = new PmsiTunnelPimDedupTable;
    return *table;
}

PmsiTunnelMldpP2mpGenericLspIdDedupTable& PmsiTunnelMldpP2mpGenericLspIdDedupTable::instance() {
    static auto* table = new PmsiTunnelMldpP2mpGenericLspIdDedupTable;
    return *table;
}

Mel::PtrConst<PmsiTunnelGeneral>
pmsiTunnelGeneralFactory(PmsiTunnel::Flags flags, PmsiTunnel::TunnelType type, uint32_t mplsLabel,
                         const Mel::PtrConst<PmsiTunnelIdentifier>& id) {
    if (id) id->assertIsDeduped();
    const PmsiTunnelContent c(type, flags, mplsLabel);
    auto eq = [&](const PmsiTunnel& o, const PmsiTunnelContent& k) {
        const PmsiTunnelGeneral* g = o.castToGeneral();
        return g && g->content() == k && g->tunnelIdentifier() == id.get();
    };
    auto made = PmsiTunnelDedupTable::instance().findOrCreate(
        PmsiTunnelGeneral::hashOf(c, id.get()), c,
        [&] { return new PmsiTunnelGeneral(flags, type, mplsLabel, id); }, eq);
    return Mel::PtrConst<PmsiTunnelGeneral>::adopt(made.detach()->castToGeneral());
}

Mel::PtrConst<PmsiTunnelPim> pmsiTunnelPimFactory(const PmsiTunnelPimContent& content) {
    return PmsiTunnelPimDedupTable::instance().findOrCreate(
        content.hash(), content, [&] { return new PmsiTunnelPim(content); });
}

Mel::PtrConst<PmsiTunnelPim> pmsiTunnelPimFactory(PmsiTunnel::Flags flags,
                                                  PmsiTunnel::TunnelType type, uint32_t mplsLabel,
                                                  const Orvnet::IpGenAddr& sender,
                                                  const Orvnet::IpGenAddr& group) {
    return pmsiTunnelPimFactory(
        PmsiTunnelPimContent(PmsiTunnelContent(type, flags, mplsLabel), sender, group));
}

Mel::PtrConst<PmsiTunnelIngressReplication>
pmsiTunnelIngressReplicationFactory(PmsiTunnel::Flags flags, uint32_t mplsLabel,
                                    const Orvnet::IpGenAddr& endpoint) {
    const PmsiTunnelContent c(PmsiTunnel::tunnelTypeIngressReplication, flags, mplsLabel);
    auto eq = [&](const PmsiTunnel& o, const PmsiTunnelContent& k) {
        const PmsiTunnelIngressReplication* r = o.castToIngressReplication();
        return r && r->content() == k && r->replicationEndpoint() == endpoint;
    };
    auto made = PmsiTunnelDedupTable::instance().findOrCreate(
        PmsiTunnelIngressReplication::hashOf(flags, mplsLabel, endpoint), c,
        [&] { return new PmsiTunnelIngressReplication(flags, mplsLabel, endpoint); }, eq);
    return Mel::PtrConst<PmsiTunnelIngressReplication>::adopt(
        made.detach()->castToIngressReplication());
}

Mel::PtrConst<PmsiTunnelMldpP2mpGenericLspId>
pmsiTunnelMldpP2mpGenericLspIdFactory(const PmsiTunnelMldpP2mpGenericLspIdContent& content) {
    const auto c = PmsiTunnelMldpP2mpGenericLspId::normalized(content);
    return PmsiTunnelMldpP2mpGenericLspIdDedupTable::instance().findOrCreate(
        c.hash(), c, [&] { return new PmsiTunnelMldpP2mpGenericLspId(c); });
}

Mel::PtrConst<PmsiTunnelMldpP2mpGenericLspId>
pmsiTunnelMldpP2mpGenericLspIdFactory(PmsiTunnel::Flags flags, uint32_t mplsLabel,
                                      const Orvnet::IpGenAddr& rootAddress, uint32_t lspId) {
    return pmsiTunnelMldpP2mpGenericLspIdFactory(PmsiTunnelMldpP2mpGenericLspIdContent(
        PmsiTunnelMldpP2mpLspContent(
            PmsiTunnelContent(PmsiTunnel::tunnelTypeMldpP2mpLsp, flags, mplsLabel), rootAddress,
            PmsiTunnelMldpP2mpGenericLspId::genericLspIdOpaqueType),
        lspId));
}

// ---- Stash readers -----------------------------------------------------------------------------

namespace {

template <class T>
class PmsiTunnelStashReaderFor final : public PmsiTunnelStashReader {
public:
    Mel::PtrConst<PmsiTunnel> destash(const void* stored,
                                      MelStash::StoreManager::RawPtr store) const override {
        return T::destash(stored, store);
    }
    std::string stashStrep(const void* stored) const override {
        return storedAs<T>(stored).toStrep();
    }
    Mel::Bytes stashSerialize(const void* stored) const override {
        return storedAs<T>(stored).serialize();
    }
};

// Registers one reader per PMSI class with the store when the library loads.
struct PmsiTunnelKestrelRegisterer {
    template <class T>
    static void add() {
        static const PmsiTunnelStashReaderFor<T> reader;
        MelStash::StashReaderRegistry::registerReader(typeid(T), &reader);
    }
    PmsiTunnelKestrelRegisterer() {
        add<PmsiTunnelGeneral>();
        add<PmsiTunnelPim>();
        add<PmsiTunnelIngressReplication>();
        add<PmsiTunnelMldpP2mpGenericLspId>();
    }
} registerer;

} // namespace

} // namespace Routing::Bgp
