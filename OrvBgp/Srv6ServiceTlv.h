// The SRv6 service TLV of the prefix SID attribute (L3 type 5, L2 type 6), interned.
//   Srv6ServiceTlvContent c(true, Orvnet::Ip6Addr::fromString("2001:db8::1"), 19, {});
//   auto tlv = srv6ServiceTlvFactory(c);  tlv->serialize();  tlv->toStrep();  // "L3 2001:db8::1,
//   End.DT4"
//
// The TLV carries one SRv6 SID Information sub-TLV, with the SID Structure sub-sub-TLV only when
// the structure's locBlockLen is non-zero (a zero locBlockLen means "no structure").
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "Mel/ValueType.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"
#include "Orvnet/Ip6Addr.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace Routing::Bgp {

// IANA SRv6 endpoint behaviour codes the display form names (Srv6::Iana::Srv6EndpointBehaviorType).
namespace Srv6::Iana {
using Srv6EndpointBehaviorType = uint16_t;
}

// "End.DT4" for 19 and so on; "unknown" for codes without a name here.
const char* srv6EndpointBehaviorName(Srv6::Iana::Srv6EndpointBehaviorType code) noexcept;

class Srv6SidStructureTlvContent {
public:
    constexpr Srv6SidStructureTlvContent() noexcept = default;
    constexpr Srv6SidStructureTlvContent(uint8_t locBlockLen, uint8_t locNodeLen, uint8_t fnLen,
                                         uint8_t argLen, uint8_t transLen,
                                         uint8_t transOff) noexcept
        : locBlockLen_(locBlockLen), locNodeLen_(locNodeLen), fnLen_(fnLen), argLen_(argLen),
          transLen_(transLen), transOff_(transOff) {}

    uint8_t locBlockLen() const noexcept { return locBlockLen_; }
    uint8_t locNodeLen() const noexcept { return locNodeLen_; }
    uint8_t fnLen() const noexcept { return fnLen_; }
    uint8_t argLen() const noexcept { return argLen_; }
    uint8_t transLen() const noexcept { return transLen_; }
    uint8_t transOff() const noexcept { return transOff_; }
    // A structure whose locBlockLen is 0 counts as absent.
    bool present() const noexcept { return locBlockLen_ != 0; }

    friend auto operator<=>(const Srv6SidStructureTlvContent&,
                            const Srv6SidStructureTlvContent&) noexcept = default;

private:
    uint8_t locBlockLen_ = 0;
    uint8_t locNodeLen_ = 0;
    uint8_t fnLen_ = 0;
    uint8_t argLen_ = 0;
    uint8_t transLen_ = 0;
    uint8_t transOff_ = 0;
    MEL_VALUE_TYPE(Srv6SidStructureTlvContent, "Routing::Bgp::Srv6SidStructureTlvContent",
                   (locBlockLen_, locNodeLen_, fnLen_, argLen_, transLen_, transOff_))
};

class Srv6ServiceTlvContent : public Keel::DedupContentHandle {
public:
    Srv6ServiceTlvContent() noexcept = default;
    Srv6ServiceTlvContent(bool l3Service, const Orvnet::Ip6Addr& sidValue,
                          Srv6::Iana::Srv6EndpointBehaviorType endpointBehavior,
                          const Srv6SidStructureTlvContent& structure) noexcept
        : l3Service_(l3Service), sidValue_(sidValue), endpointBehavior_(endpointBehavior),
          sidStructureTlvContent_(structure) {}

    // True for an SRv6 L3 service (TLV type 5), false for L2 (type 6).
    bool l3Service() const noexcept { return l3Service_; }
    void l3ServiceIs(bool l3) noexcept { l3Service_ = l3; }
    const Orvnet::Ip6Addr& sidValue() const noexcept { return sidValue_; }
    void sidValueIs(const Orvnet::Ip6Addr& sid) noexcept { sidValue_ = sid; }
    Srv6::Iana::Srv6EndpointBehaviorType endpointBehavior() const noexcept {
        return endpointBehavior_;
    }
    void endpointBehaviorIs(Srv6::Iana::Srv6EndpointBehaviorType b) noexcept {
        endpointBehavior_ = b;
    }
    const Srv6SidStructureTlvContent& sidStructureTlvContent() const noexcept {
        return sidStructureTlvContent_;
    }
    void sidStructureTlvContentIs(const Srv6SidStructureTlvContent& s) noexcept {
        sidStructureTlvContent_ = s;
    }

    uint32_t hash() const noexcept;
    std::string toStrep() const;
    static Srv6ServiceTlvContent fromStrep(std::string_view text);

    // Field order: l3Service, sidValue, endpointBehavior, then the structure field by field.
    friend std::strong_ordering operator<=>(const Srv6ServiceTlvContent& a,
                                            const Srv6ServiceTlvContent& b) noexcept {
        if (auto c = a.l3Service_ <=> b.l3Service_; c != 0) return c;
        if (auto c = a.sidValue_ <=> b.sidValue_; c != 0) return c;
        if (auto c = a.endpointBehavior_ <=> b.endpointBehavior_; c != 0) return c;
        return a.sidStructureTlvContent_ <=> b.sidStructureTlvContent_;
    }
    friend bool operator==(const Srv6ServiceTlvContent&,
                           const Srv6ServiceTlvContent&) noexcept = default;

private:
    bool l3Service_ = true;
    Orvnet::Ip6Addr sidValue_;
    Srv6::Iana::Srv6EndpointBehaviorType endpointBehavior_ = 0;
    Srv6SidStructureTlvContent sidStructureTlvContent_;
    MEL_VALUE_TYPE(Srv6ServiceTlvContent, "Routing::Bgp::Srv6ServiceTlvContent",
                   (l3Service_, sidValue_, endpointBehavior_, sidStructureTlvContent_))
};

class Srv6ServiceTlvDedupTable;

class Srv6ServiceTlv : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(Srv6ServiceTlv)

public:
    static constexpr uint8_t l3ServiceTlvType = 5;
    static constexpr uint8_t l2ServiceTlvType = 6;

    // Built, not interned; intern with dedup().
    static Mel::Ptr<Srv6ServiceTlv> create(const Srv6ServiceTlvContent& content);

    bool l3Service() const noexcept { return content_.l3Service(); }
    const Orvnet::Ip6Addr& sidValue() const noexcept { return content_.sidValue(); }
    Srv6::Iana::Srv6EndpointBehaviorType endpointBehavior() const noexcept {
        return content_.endpointBehavior();
    }
    const Srv6SidStructureTlvContent& sidStructureTlvContent() const noexcept {
        return content_.sidStructureTlvContent();
    }
    const Srv6ServiceTlvContent& content() const noexcept { return content_; }

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

    // The whole TLV: 28 bytes, or 37 with the structure.
    Mel::Bytes serialize() const;
    // "L3 2001:db8::1, End.DT4" and, with a structure, " [32, 16, 16, 0, 16, 64]".
    std::string toStrep() const;

    static Mel::PtrConst<Srv6ServiceTlv> dedupContent(Srv6ServiceTlvDedupTable& table,
                                                      const Srv6ServiceTlvContent& content);
    // Interns this object, built with create(): returns it, or the equal object already interned.
    Mel::PtrConst<Srv6ServiceTlv> dedup(Srv6ServiceTlvDedupTable& table) const;

    static Mel::PtrConst<Srv6ServiceTlv> destash(const void* stored,
                                                 MelStash::StoreManager::RawPtr store);

private:
    explicit Srv6ServiceTlv(const Srv6ServiceTlvContent& content) noexcept;
    Srv6ServiceTlvContent content_;
};

class Srv6ServiceTlvDedupTable : public Keel::DedupTable<Srv6ServiceTlv> {
public:
    Srv6ServiceTlvDedupTable() : DedupTable("Srv6ServiceTlvDedupTable") {}
    static Srv6ServiceTlvDedupTable& instance();
};

Mel::PtrConst<Srv6ServiceTlv> srv6ServiceTlvFactory(const Srv6ServiceTlvContent& content);

std::ostream& operator<<(std::ostream& os, const Srv6ServiceTlv& tlv);

// A stored pointer is the address of the object in the store (it is its own stored record).
class Srv6ServiceTlvStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<Srv6ServiceTlv> destash(const void* stored,
                                                  MelStash::StoreManager::RawPtr store) const;
    virtual std::string stashStrep(const void* stored) const;
    virtual Mel::Bytes stashSerialize(const void* stored) const;
};

} // namespace Routing::Bgp
