// The PMSI tunnel attribute (type 22): which provider tunnel carries a route's multicast traffic.
//   auto t = pmsiTunnelIngressReplicationFactory(PmsiTunnel::Flags(), 3, endpointAddr);
//   t->serialize();  t->toStrepForUI();   // "Ingress Replication, MPLS Label: 3, ..."
//
// One interned class per shape of tunnel identifier: opaque bytes (PmsiTunnelGeneral), PIM sender
// and group (PmsiTunnelPim), an ingress-replication endpoint (PmsiTunnelIngressReplication) and an
// mLDP P2MP FEC element (PmsiTunnelMldpP2mpLsp, of which the generic-LSP-identifier form is the
// one built). Identifier bytes are themselves interned (PmsiTunnelIdentifier) and kept inline.
// destash reads an object back from its stored form and returns the interned object equal to it.
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Keel/HashMix.h"
#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "Mel/ValueType.h"
#include "MelStash/CompressedStashSmartPtr.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"
#include "Orvnet/IpGenAddr.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <vector>

class Serialize;

namespace Mel {
class ValueParser;
}

namespace Routing::Bgp {

class PmsiTunnelContent;
class PmsiTunnelGeneral;
class PmsiTunnelPim;
class PmsiTunnelIngressReplication;
class PmsiTunnelMldpP2mpGenericLspId;

// ---- Tunnel identifier bytes -------------------------------------------------------------------

// The lookup value: a plain byte vector, filled before interning.
class PmsiTunnelIdentifierContent : public Keel::DedupContentHandle {
public:
    PmsiTunnelIdentifierContent() = default;
    explicit PmsiTunnelIdentifierContent(std::span<const uint8_t> bytes)
        : tunnelIdentifier_(bytes.begin(), bytes.end()) {}

    // Resize the vector to exactly len and copy the bytes in.
    void populateTunnelIdentifier(const uint8_t* data, size_t len);
    void populateTunnelIdentifierBytes(const Mel::Bytes& bytes);

    const std::vector<uint8_t>& tunnelIdentifier() const noexcept { return tunnelIdentifier_; }
    size_t serializedSize() const noexcept { return tunnelIdentifier_.size(); }
    uint32_t hash() const noexcept;

private:
    std::vector<uint8_t> tunnelIdentifier_;
};

// Interned identifier bytes, inline after the object.
class PmsiTunnelIdentifier : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(PmsiTunnelIdentifier)

public:
    // A new, not yet interned object holding a copy of bytes.
    static PmsiTunnelIdentifier* make(std::span<const uint8_t> bytes);

    std::span<const uint8_t> tunnelIdentifier() const noexcept { return {bytes_, size_}; }
    size_t serializedSize() const noexcept { return size_; }
    std::string toHex() const;
    bool equals(std::span<const uint8_t> bytes) const noexcept;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

private:
    explicit PmsiTunnelIdentifier(std::span<const uint8_t> bytes) noexcept;
    uint32_t size_;
    uint8_t bytes_[0]; // size_ bytes in the same allocation
};

class PmsiTunnelIdentifierDedupTable : public Keel::DedupTable<PmsiTunnelIdentifier> {
public:
    PmsiTunnelIdentifierDedupTable() : DedupTable("PmsiTunnelIdentifierDedupTable") {}
    static PmsiTunnelIdentifierDedupTable& instance();
};

Mel::PtrConst<PmsiTunnelIdentifier> pmsiTunnelIdentifierFactory(std::span<const uint8_t> bytes);
Mel::PtrConst<PmsiTunnelIdentifier>
pmsiTunnelIdentifierFactory(const PmsiTunnelIdentifierContent& content);

// ---- The attribute -----------------------------------------------------------------------------

class PmsiTunnel : public Keel::DedupHandleBase {
    MELSTASH_STORE_ALLOCATED(PmsiTunnel)

public:
    // The attribute's flags octet. Only the top bit has a meaning; the other seven are carried
    // through unchanged under their own names.
    class Flags {
    public:
        static constexpr uint8_t leafInformationRequiredBit = 0x80;

        constexpr Flags() noexcept = default;
        constexpr explicit Flags(uint8_t value) noexcept : value_(value) {}
        constexpr uint8_t value() const noexcept { return value_; }

        bool flagunspecified0x01() const noexcept { return bit(0x01); }
        void flagunspecified0x01Is(bool on) noexcept { bitIs(0x01, on); }
        bool flagunspecified0x02() const noexcept { return bit(0x02); }
        void flagunspecified0x02Is(bool on) noexcept { bitIs(0x02, on); }
        bool flagunspecified0x04() const noexcept { return bit(0x04); }
        void flagunspecified0x04Is(bool on) noexcept { bitIs(0x04, on); }
        bool flagunspecified0x08() const noexcept { return bit(0x08); }
        void flagunspecified0x08Is(bool on) noexcept { bitIs(0x08, on); }
        bool flagunspecified0x10() const noexcept { return bit(0x10); }
        void flagunspecified0x10Is(bool on) noexcept { bitIs(0x10, on); }
        bool flagunspecified0x20() const noexcept { return bit(0x20); }
        void flagunspecified0x20Is(bool on) noexcept { bitIs(0x20, on); }
        bool flagunspecified0x40() const noexcept { return bit(0x40); }
        void flagunspecified0x40Is(bool on) noexcept { bitIs(0x40, on); }
        bool flagLeafInformationRequired() const noexcept { return bit(0x80); }
        void flagLeafInformationRequiredIs(bool on) noexcept { bitIs(0x80, on); }

        friend constexpr bool operator==(Flags, Flags) noexcept = default;

    private:
        bool bit(uint8_t b) const noexcept { return (value_ & b) != 0; }
        void bitIs(uint8_t b, bool on) noexcept { value_ = uint8_t(on ? value_ | b : value_ & ~b); }
        uint8_t value_ = 0;
        MEL_VALUE_TYPE(Flags, "Routing::Bgp::PmsiTunnel::Flags",
                       (flagunspecified0x01, flagunspecified0x01Is, flagunspecified0x02,
                        flagunspecified0x02Is, flagunspecified0x04, flagunspecified0x04Is,
                        flagunspecified0x08, flagunspecified0x08Is, flagunspecified0x10,
                        flagunspecified0x10Is, flagunspecified0x20, flagunspecified0x20Is,
                        flagunspecified0x40, flagunspecified0x40Is, flagLeafInformationRequired,
                        flagLeafInformationRequiredIs))
    };

    // Every code 0-255 is a valid value; the named ones are those with a known meaning.
    enum TunnelType : uint8_t {
        tunnelTypeNoTunnelInformation = 0,
        tunnelTypeRsvpTeP2mpLsp = 1,
        tunnelTypeMldpP2mpLsp = 2,
        tunnelTypePimSsmTree = 3,
        tunnelTypePimSmTree = 4,
        tunnelTypeBidirPimTree = 5,
        tunnelTypeIngressReplication = 6,
        tunnelTypeMldpMp2mpLsp = 7,
        tunnelTypeTransportTunnel = 8,
        tunnelTypeAssistedReplication = 10,
        tunnelTypeBIER = 11,
        tunnelTypeWildcardTransport = 255,
    };

    static bool knownTunnelType(uint8_t code) noexcept;
    static bool compositeTunnelType(uint8_t code) noexcept;
    // The enumerator's name ("tunnelTypePimSsmTree"), or null for a code without one.
    static const char* tunnelTypeName(uint8_t code) noexcept;
    // "pimSsmTree"; "unknown" for codes without a name.
    static const char* tunnelTypeJsonName(uint8_t code) noexcept;
    // "PIM-SSM Tree"; "-" for codes without a name.
    static const char* tunnelTypeDisplayName(uint8_t code) noexcept;

    // The multicast subsystem's tunnel type (0, 1, 2) to ours, and back. Unknown values map to "no
    // information" one way and to 1 the other.
    static TunnelType fromMulticastTunnel(uint8_t multicastTunnelType) noexcept;
    static uint8_t toMulticastTunnel(uint8_t tunnelType) noexcept;

    // An MPLS label has 20 bits. Every label given to a PMSI tunnel or its content keeps only its
    // low 20 bits (0x123456 is 0x23456), so the object's identity, text and wire form agree.
    static constexpr uint32_t mplsLabelMask = 0xfffff;

    Flags flags() const noexcept { return flags_; }
    TunnelType tunnelType() const noexcept { return tunnelType_; }
    uint32_t mplsLabel() const noexcept { return mplsLabel_; }
    bool leafInformationRequired() const noexcept { return flags_.flagLeafInformationRequired(); }
    const char* jsonName() const noexcept { return tunnelTypeJsonName(tunnelType_); }
    // The common fields as a value.
    PmsiTunnelContent content() const noexcept;

    // The whole attribute: flags 0xC0, type 22, then flags, type, the 3-octet label field and the
    // tunnel identifier.
    Mel::Bytes serialize() const;
    virtual size_t serializedTunnelIdentifierSize() const;
    virtual void serializeTunnelIndentifier(Serialize& s) const;

    // Debug form, also what operator<< prints: the class, "mplsLabel=", the flags, the identifier.
    std::string toStrep() const;
    virtual void formatDerivedType(std::ostream& os) const;
    // Display form: "<type name>, MPLS Label: 3, Leaf Information Required: false" and, where the
    // class has one, ", Tunnel ID: " and the identifier.
    virtual std::string toStrepForUI() const;

    // Null when the object is of another class.
    virtual const PmsiTunnelGeneral* castToGeneral() const noexcept { return nullptr; }
    virtual const PmsiTunnelPim* castToPim() const noexcept { return nullptr; }
    virtual const PmsiTunnelIngressReplication* castToIngressReplication() const noexcept {
        return nullptr;
    }
    virtual const PmsiTunnelMldpP2mpGenericLspId* castToMldpP2mpGenericLspId() const noexcept {
        return nullptr;
    }

    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;

    // Reads any PMSI object back from the store, whatever its class.
    static Mel::PtrConst<PmsiTunnel> destash(const void* stored,
                                             MelStash::StoreManager::RawPtr store);

protected:
    PmsiTunnel(Flags flags, TunnelType type, uint32_t mplsLabel) noexcept
        : flags_(flags), tunnelType_(type), mplsLabel_(mplsLabel & mplsLabelMask) {}

    bool compareBase(const PmsiTunnel& other) const noexcept;
    // Mixes a class tag and the common fields; subclasses mix their own fields after.
    void hashBase(Keel::HashMix& m, uint8_t classTag) const noexcept;
    // "mplsLabel=3" and ";leafInformationRequired" and any reserved bits that are set.
    void formatCommon(std::ostream& os) const;

private:
    Flags flags_;
    TunnelType tunnelType_;
    // The label's 20 bits only: what is hashed, compared and shown is what goes on the wire.
    uint32_t mplsLabel_;
};

std::ostream& operator<<(std::ostream& os, const PmsiTunnel& t);

// Text hooks of the tunnel type: the enumerator's name quoted, or the number for codes without
// one. Numbers outside 0-255 are Mel::RangeException.
void melFormat(std::ostream& os, PmsiTunnel::TunnelType t);
void melParse(Mel::ValueParser& p, PmsiTunnel::TunnelType& t);

// ---- Contents ----------------------------------------------------------------------------------

class PmsiTunnelContent : public Keel::DedupContentHandle {
public:
    PmsiTunnelContent() noexcept = default;
    PmsiTunnelContent(PmsiTunnel::TunnelType type, PmsiTunnel::Flags flags,
                      uint32_t mplsLabel) noexcept
        : tunnelType_(type), flags_(flags), mplsLabel_(mplsLabel & PmsiTunnel::mplsLabelMask) {}

    PmsiTunnel::TunnelType tunnelType() const noexcept { return tunnelType_; }
    void tunnelTypeIs(PmsiTunnel::TunnelType t) noexcept { tunnelType_ = t; }
    PmsiTunnel::Flags flags() const noexcept { return flags_; }
    void flagsIs(PmsiTunnel::Flags f) noexcept { flags_ = f; }
    // Low 20 bits only, as PmsiTunnel keeps them (also for a label set through reflection).
    uint32_t mplsLabel() const noexcept { return mplsLabel_ & PmsiTunnel::mplsLabelMask; }
    void mplsLabelIs(uint32_t l) noexcept { mplsLabel_ = l & PmsiTunnel::mplsLabelMask; }

    std::string toStrep() const;
    static PmsiTunnelContent fromStrep(std::string_view text);

    friend bool operator==(const PmsiTunnelContent& a, const PmsiTunnelContent& b) noexcept {
        return a.tunnelType_ == b.tunnelType_ && a.flags_ == b.flags_ &&
               a.mplsLabel() == b.mplsLabel();
    }

private:
    PmsiTunnel::TunnelType tunnelType_ = PmsiTunnel::tunnelTypeNoTunnelInformation;
    PmsiTunnel::Flags flags_;
    uint32_t mplsLabel_ = 0;
    MEL_VALUE_TYPE(PmsiTunnelContent, "Routing::Bgp::PmsiTunnelContent",
                   (tunnelType_, flags_, mplsLabel_))
};

class PmsiTunnelPimContent : public PmsiTunnelContent {
public:
    PmsiTunnelPimContent() noexcept = default;
    PmsiTunnelPimContent(const PmsiTunnelContent& base, const Orvnet::IpGenAddr& sender,
                         const Orvnet::IpGenAddr& group) noexcept
        : PmsiTunnelContent(base), senderAddr_(sender), multicastGroup_(group) {}

    const Orvnet::IpGenAddr& senderAddr() const noexcept { return senderAddr_; }
    void senderAddrIs(const Orvnet::IpGenAddr& a) noexcept { senderAddr_ = a; }
    const Orvnet::IpGenAddr& multicastGroup() const noexcept { return multicastGroup_; }
    void multicastGroupIs(const Orvnet::IpGenAddr& a) noexcept { multicastGroup_ = a; }
    uint32_t hash() const noexcept;

    std::string toStrep() const;
    static PmsiTunnelPimContent fromStrep(std::string_view text);

    friend bool operator==(const PmsiTunnelPimContent&,
                           const PmsiTunnelPimContent&) noexcept = default;

private:
    Orvnet::IpGenAddr senderAddr_;
    Orvnet::IpGenAddr multicastGroup_;
    MEL_VALUE_TYPE_DERIVED(PmsiTunnelPimContent, "Routing::Bgp::PmsiTunnelPimContent",
                           (PmsiTunnelContent), (senderAddr_, multicastGroup_))
};

class PmsiTunnelMldpP2mpLspContent : public PmsiTunnelContent {
public:
    PmsiTunnelMldpP2mpLspContent() noexcept = default;
    PmsiTunnelMldpP2mpLspContent(const PmsiTunnelContent& base, const Orvnet::IpGenAddr& root,
                                 uint8_t opaqueValueType) noexcept
        : PmsiTunnelContent(base), rootAddress_(root), opaqueValueType_(opaqueValueType) {}

    const Orvnet::IpGenAddr& rootAddress() const noexcept { return rootAddress_; }
    void rootAddressIs(const Orvnet::IpGenAddr& a) noexcept { rootAddress_ = a; }
    uint8_t opaqueValueType() const noexcept { return opaqueValueType_; }
    void opaqueValueTypeIs(uint8_t t) noexcept { opaqueValueType_ = t; }

    std::string toStrep() const;
    static PmsiTunnelMldpP2mpLspContent fromStrep(std::string_view text);

    friend bool operator==(const PmsiTunnelMldpP2mpLspContent&,
                           const PmsiTunnelMldpP2mpLspContent&) noexcept = default;

private:
    Orvnet::IpGenAddr rootAddress_;
    uint8_t opaqueValueType_ = 0;
    MEL_VALUE_TYPE_DERIVED(PmsiTunnelMldpP2mpLspContent,
                           "Routing::Bgp::PmsiTunnelMldpP2mpLspContent", (PmsiTunnelContent),
                           (rootAddress_, opaqueValueType_))
};

class PmsiTunnelMldpP2mpGenericLspIdContent : public PmsiTunnelMldpP2mpLspContent {
public:
    PmsiTunnelMldpP2mpGenericLspIdContent() noexcept = default;
    PmsiTunnelMldpP2mpGenericLspIdContent(const PmsiTunnelMldpP2mpLspContent& base,
                                          uint32_t lspId) noexcept
        : PmsiTunnelMldpP2mpLspContent(base), lspId_(lspId) {}

    uint32_t lspId() const noexcept { return lspId_; }
    void lspIdIs(uint32_t id) noexcept { lspId_ = id; }
    uint32_t hash() const noexcept;

    std::string toStrep() const;
    static PmsiTunnelMldpP2mpGenericLspIdContent fromStrep(std::string_view text);

    friend bool operator==(const PmsiTunnelMldpP2mpGenericLspIdContent&,
                           const PmsiTunnelMldpP2mpGenericLspIdContent&) noexcept = default;

private:
    uint32_t lspId_ = 0;
    MEL_VALUE_TYPE_DERIVED(PmsiTunnelMldpP2mpGenericLspIdContent,
                           "Routing::Bgp::PmsiTunnelMldpP2mpGenericLspIdContent",
                           (PmsiTunnelMldpP2mpLspContent), (lspId_))
};

// ---- The classes -------------------------------------------------------------------------------

// Any tunnel type, with the identifier as opaque bytes (null: no identifier).
class PmsiTunnelGeneral : public PmsiTunnel {
    MELSTASH_STORE_ALLOCATED(PmsiTunnelGeneral)

public:
    PmsiTunnelGeneral(Flags flags, TunnelType type, uint32_t mplsLabel,
                      const Mel::PtrConst<PmsiTunnelIdentifier>& id) noexcept;

    const PmsiTunnelIdentifier* tunnelIdentifier() const noexcept {
        return tunnelIdentifier_.get();
    }

    size_t serializedTunnelIdentifierSize() const override;
    void serializeTunnelIndentifier(Serialize& s) const override;
    void formatDerivedType(std::ostream& os) const override;
    const PmsiTunnelGeneral* castToGeneral() const noexcept override { return this; }
    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;

    static uint32_t hashOf(const PmsiTunnelContent& c, const PmsiTunnelIdentifier* id) noexcept;
    static Mel::PtrConst<PmsiTunnelGeneral> destash(const void* stored,
                                                    MelStash::StoreManager::RawPtr store);

private:
    MelStash::CompressedStashSmartPtr<PmsiTunnelIdentifier const, 4> tunnelIdentifier_;
};

// PIM-SSM, PIM-SM or bidir PIM: sender then group, both IPv4 or both IPv6.
class PmsiTunnelPim : public PmsiTunnel {
    MELSTASH_STORE_ALLOCATED(PmsiTunnelPim)

public:
    explicit PmsiTunnelPim(const PmsiTunnelPimContent& c) noexcept;

    const Orvnet::IpGenAddr& senderAddr() const noexcept { return senderAddr_; }
    const Orvnet::IpGenAddr& multicastGroup() const noexcept { return multicastGroup_; }
    PmsiTunnelPimContent pimContent() const noexcept;

    size_t serializedTunnelIdentifierSize() const override;
    void serializeTunnelIndentifier(Serialize& s) const override;
    void formatDerivedType(std::ostream& os) const override;
    std::string toStrepForUI() const override;
    const PmsiTunnelPim* castToPim() const noexcept override { return this; }
    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

    static Mel::PtrConst<PmsiTunnelPim> destash(const void* stored,
                                                MelStash::StoreManager::RawPtr store);

private:
    Orvnet::IpGenAddr senderAddr_;
    Orvnet::IpGenAddr multicastGroup_;
};

// Ingress replication (type 6): the identifier is the replication endpoint, IPv4 or IPv6.
class PmsiTunnelIngressReplication : public PmsiTunnel {
    MELSTASH_STORE_ALLOCATED(PmsiTunnelIngressReplication)

public:
    PmsiTunnelIngressReplication(Flags flags, uint32_t mplsLabel,
                                 const Orvnet::IpGenAddr& endpoint) noexcept;

    const Orvnet::IpGenAddr& replicationEndpoint() const noexcept { return endpoint_; }

    size_t serializedTunnelIdentifierSize() const override;
    void serializeTunnelIndentifier(Serialize& s) const override;
    void formatDerivedType(std::ostream& os) const override;
    std::string toStrepForUI() const override;
    const PmsiTunnelIngressReplication* castToIngressReplication() const noexcept override {
        return this;
    }
    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;

    static uint32_t hashOf(Flags flags, uint32_t mplsLabel,
                           const Orvnet::IpGenAddr& endpoint) noexcept;
    static Mel::PtrConst<PmsiTunnelIngressReplication>
    destash(const void* stored, MelStash::StoreManager::RawPtr store);

private:
    Orvnet::IpGenAddr endpoint_;
};

// mLDP P2MP LSP: the identifier is a P2MP FEC element (type 6, address family, root address, opaque
// value). This class knows no opaque value type of its own: subclasses provide the opaque value.
class PmsiTunnelMldpP2mpLsp : public PmsiTunnel {
    MELSTASH_STORE_ALLOCATED(PmsiTunnelMldpP2mpLsp)

public:
    static constexpr uint8_t p2mpFecElementType = 6;

    explicit PmsiTunnelMldpP2mpLsp(const PmsiTunnelMldpP2mpLspContent& c) noexcept;

    const Orvnet::IpGenAddr& rootAddress() const noexcept { return rootAddress_; }
    uint8_t opaqueValueType() const noexcept { return opaqueValueType_; }

    // Length of the opaque value's own value (after its type and length fields).
    virtual uint16_t opaqueValueLength() const;
    // The whole opaque value: type, 16-bit length, value.
    virtual size_t serializedOpaqueValueSize() const;
    virtual void serializeOpaqueValue(Serialize& s) const;
    virtual void formatOpaqueValue(std::ostream& os) const;

    size_t serializedTunnelIdentifierSize() const override;
    void serializeTunnelIndentifier(Serialize& s) const override;
    void formatDerivedType(std::ostream& os) const override;
    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;

protected:
    bool compareMldp(const PmsiTunnelMldpP2mpLsp& other) const noexcept;
    void hashMldp(Keel::HashMix& m, uint8_t classTag) const noexcept;

private:
    Orvnet::IpGenAddr rootAddress_;
    uint8_t opaqueValueType_;
};

// mLDP P2MP with the generic LSP identifier opaque value (opaque type 1, a 32-bit LSP id).
class PmsiTunnelMldpP2mpGenericLspId : public PmsiTunnelMldpP2mpLsp {
    MELSTASH_STORE_ALLOCATED(PmsiTunnelMldpP2mpGenericLspId)

public:
    static constexpr uint8_t genericLspIdOpaqueType = 1;

    // Sets the tunnel type to 2 and the opaque value type to 1, whatever c holds.
    explicit PmsiTunnelMldpP2mpGenericLspId(
        const PmsiTunnelMldpP2mpGenericLspIdContent& c) noexcept;

    uint32_t lspId() const noexcept { return lspId_; }
    PmsiTunnelMldpP2mpGenericLspIdContent genericLspIdContent() const noexcept;

    uint16_t opaqueValueLength() const override { return 4; }
    size_t serializedOpaqueValueSize() const override { return 7; }
    void serializeOpaqueValue(Serialize& s) const override;
    void formatOpaqueValue(std::ostream& os) const override;
    const PmsiTunnelMldpP2mpGenericLspId* castToMldpP2mpGenericLspId() const noexcept override {
        return this;
    }
    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

    // The content as this class stores it (type 2, opaque type 1).
    static PmsiTunnelMldpP2mpGenericLspIdContent
    normalized(const PmsiTunnelMldpP2mpGenericLspIdContent& c) noexcept;
    static Mel::PtrConst<PmsiTunnelMldpP2mpGenericLspId>
    destash(const void* stored, MelStash::StoreManager::RawPtr store);

private:
    uint32_t lspId_;
};

// ---- Intern tables and factories ---------------------------------------------------------------

// General and ingress-replication tunnels.
class PmsiTunnelDedupTable : public Keel::DedupTable<PmsiTunnel> {
public:
    PmsiTunnelDedupTable() : DedupTable("PmsiTunnelDedupTable") {}
    static PmsiTunnelDedupTable& instance();
};

class PmsiTunnelPimDedupTable : public Keel::DedupTable<PmsiTunnelPim> {
public:
    PmsiTunnelPimDedupTable() : DedupTable("PmsiTunnelPimDedupTable") {}
    static PmsiTunnelPimDedupTable& instance();
};

class PmsiTunnelMldpP2mpGenericLspIdDedupTable
    : public Keel::DedupTable<PmsiTunnelMldpP2mpGenericLspId> {
public:
    PmsiTunnelMldpP2mpGenericLspIdDedupTable()
        : DedupTable("PmsiTunnelMldpP2mpGenericLspIdDedupTable") {}
    static PmsiTunnelMldpP2mpGenericLspIdDedupTable& instance();
};

Mel::PtrConst<PmsiTunnelGeneral>
pmsiTunnelGeneralFactory(PmsiTunnel::Flags flags, PmsiTunnel::TunnelType type, uint32_t mplsLabel,
                         const Mel::PtrConst<PmsiTunnelIdentifier>& id);
// Sender and group must be both IPv4 or both IPv6.
Mel::PtrConst<PmsiTunnelPim> pmsiTunnelPimFactory(PmsiTunnel::Flags flags,
                                                  PmsiTunnel::TunnelType type, uint32_t mplsLabel,
                                                  const Orvnet::IpGenAddr& sender,
                                                  const Orvnet::IpGenAddr& group);
Mel::PtrConst<PmsiTunnelPim> pmsiTunnelPimFactory(const PmsiTunnelPimContent& content);
// The endpoint must be IPv4 or IPv6.
Mel::PtrConst<PmsiTunnelIngressReplication>
pmsiTunnelIngressReplicationFactory(PmsiTunnel::Flags flags, uint32_t mplsLabel,
                                    const Orvnet::IpGenAddr& endpoint);
// The root address must be IPv4 or IPv6.
Mel::PtrConst<PmsiTunnelMldpP2mpGenericLspId>
pmsiTunnelMldpP2mpGenericLspIdFactory(PmsiTunnel::Flags flags, uint32_t mplsLabel,
                                      const Orvnet::IpGenAddr& rootAddress, uint32_t lspId);
Mel::PtrConst<PmsiTunnelMldpP2mpGenericLspId>
pmsiTunnelMldpP2mpGenericLspIdFactory(const PmsiTunnelMldpP2mpGenericLspIdContent& content);

// ---- Reading back from the store ---------------------------------------------------------------
// A stored pointer is the address of the object in the store (it is its own stored record). One
// reader per class is registered when the library loads.

class PmsiTunnelStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<PmsiTunnel> destash(const void* stored,
                                              MelStash::StoreManager::RawPtr store) const = 0;
    virtual std::string stashStrep(const void* stored) const = 0;
    virtual Mel::Bytes stashSerialize(const void* stored) const = 0;
};

} // namespace Routing::Bgp
