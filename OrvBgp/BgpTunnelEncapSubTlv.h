// Sub-TLVs of tunnel encapsulation TLVs: interned, immutable, compared by identity.
//   auto e = EndpointSubTlv::intern(Orvnet::IpGenAddr::fromString("192.0.2.1"));
//   e->serialize();   // 06 0a 00 00 00 00 00 01 c0 00 02 01
//
// One class per sub-TLV the library understands (EndpointSubTlv, ColorSubTlv), and UnparsedSubTlv
// for every other type, which carries its value as raw bytes. Each has its own intern table
// (`XDedupTable::instance()`) and interns through `X::intern`. A sub-TLV header has a one-byte
// type and a one-byte length, or a two-byte length when the type is 128 or more.
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "Mel/ValueType.h"
#include "MelStash/DedupHandle.h"
#include "MelStash/StoreManager.h"
#include "Orvnet/IpGenAddr.h"

#include <boost/describe/enum.hpp>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

class Serialize;

namespace Mel {
class ValueParser;
}

namespace Routing::Bgp {

// ---- Sub-TLV type codes ------------------------------------------------------------------------

enum class TunnelEncapSubTlvType : uint8_t {
    reserved = 0,
    color = 4,
    endpoint = 6,
    udpPort = 8,
    preference = 12,
    bindingSid = 13,
    enlp = 14,
    segmentList = 128,
    wanId = 192,
    bytes = 193,
    ipsecDim = 194,
    ipsecKeyData = 195,
    ipsecSa = 196,
};
BOOST_DESCRIBE_ENUM(TunnelEncapSubTlvType, reserved, color, endpoint, udpPort, preference,
                    bindingSid, enlp, segmentList, wanId, bytes, ipsecDim, ipsecKeyData, ipsecSa)

// The named value with that number; a number without a name is Mel::RangeException.
TunnelEncapSubTlvType TunnelEncapSubTlvTypeInstance(unsigned value);
// The value of that name ("endpoint"); an unknown name is Mel::ParseException.
TunnelEncapSubTlvType TunnelEncapSubTlvTypeInstance(std::string_view name);
// The name, or the decimal number for a value without one.
std::string stringValue(TunnelEncapSubTlvType t);
// The Value form: the name quoted ('endpoint'), or the number. strepToTunnelEncapSubTlvType reads
// either back (Mel::ParseException otherwise).
std::string valueToStrep(TunnelEncapSubTlvType t);
TunnelEncapSubTlvType strepToTunnelEncapSubTlvType(std::string_view text);
std::ostream& operator<<(std::ostream& os, TunnelEncapSubTlvType t);

// ---- Sub-TLV header writer ---------------------------------------------------------------------

// The header of one sub-TLV: type, then the length in two bytes when the type's high bit is set,
// else in one byte (only the low 8 bits of `length` are written).
//   SerializedBgpTunnelEncapSubTlv hdr(6, 10);  hdr.appendTo(s);   // 06 0a
class SerializedBgpTunnelEncapSubTlv {
public:
    SerializedBgpTunnelEncapSubTlv(unsigned char type, unsigned short length) noexcept;

    static constexpr bool hasTwoByteLength(unsigned char type) noexcept { return type >= 0x80; }
    // 2 or 3.
    static constexpr size_t headerSize(unsigned char type) noexcept {
        return hasTwoByteLength(type) ? 3 : 2;
    }

    std::span<const uint8_t> bytes() const noexcept { return {bytes_, size_}; }
    size_t size() const noexcept { return size_; }
    void appendTo(Serialize& s) const;

private:
    uint8_t bytes_[3];
    uint8_t size_;
};

// ---- Common base -------------------------------------------------------------------------------

// Every sub-TLV: its type, its value length, its wire form and its stream form. The hash is
// computed once, when the object is built.
class TunnelEncapSubTlvBase : public MelStash::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(TunnelEncapSubTlvBase)

public:
    virtual uint8_t subTlvType() const noexcept = 0;
    // The length written in the header (for UnparsedSubTlv the stored length, as given).
    virtual uint16_t subTlvLen() const noexcept = 0;
    // Appends header and value.
    virtual void serializeInto(Serialize& s) const = 0;
    // Bytes serializeInto appends.
    virtual size_t serializedSize() const noexcept = 0;
    virtual void format(std::ostream& os) const = 0;

    Mel::Bytes serialize() const;
    std::string toStrep() const;
};

std::ostream& operator<<(std::ostream& os, const TunnelEncapSubTlvBase& t);

// ---- Endpoint (type 6) -------------------------------------------------------------------------

class EndpointSubTlvContent : public Keel::DedupContentHandle {
public:
    EndpointSubTlvContent() noexcept = default;
    explicit EndpointSubTlvContent(const Orvnet::IpGenAddr& a) noexcept : address_(a) {}

    const Orvnet::IpGenAddr& address() const noexcept { return address_; }
    void addressIs(const Orvnet::IpGenAddr& a) noexcept { address_ = a; }
    uint32_t hash() const noexcept;

    friend bool operator==(const EndpointSubTlvContent&,
                           const EndpointSubTlvContent&) noexcept = default;

private:
    Orvnet::IpGenAddr address_;
    MEL_VALUE_TYPE(EndpointSubTlvContent, "Routing::Bgp::EndpointSubTlvContent", (address_))
};

// The tunnel egress endpoint: 4 reserved bytes (written 0), the address family (0 for no
// address, 1 IPv4, 2 IPv6) in two bytes, then the address.
class EndpointSubTlv : public TunnelEncapSubTlvBase {
    MELSTASH_STORE_ALLOCATED(EndpointSubTlv)

public:
    explicit EndpointSubTlv(const EndpointSubTlvContent& c) noexcept;
    static Mel::PtrConst<EndpointSubTlv> intern(const EndpointSubTlvContent& c);
    static Mel::PtrConst<EndpointSubTlv> intern(const Orvnet::IpGenAddr& a) {
        return intern(EndpointSubTlvContent(a));
    }

    const Orvnet::IpGenAddr& address() const noexcept { return address_; }
    EndpointSubTlvContent content() const noexcept { return EndpointSubTlvContent(address_); }

    uint8_t subTlvType() const noexcept override {
        return uint8_t(TunnelEncapSubTlvType::endpoint);
    }
    uint16_t subTlvLen() const noexcept override { return uint16_t(6 + address_.byteLength()); }
    void serializeInto(Serialize& s) const override;
    size_t serializedSize() const noexcept override { return 2 + subTlvLen(); }
    // "Endpoint=192.0.2.1" ("Endpoint=none" without an address).
    void format(std::ostream& os) const override;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

private:
    Orvnet::IpGenAddr address_;
};

class EndpointSubTlvDedupTable : public Keel::DedupTable<EndpointSubTlv> {
public:
    EndpointSubTlvDedupTable() : DedupTable("EndpointSubTlvDedupTable") {}
    static EndpointSubTlvDedupTable& instance();
};

// ---- Color (type 4) ----------------------------------------------------------------------------

class ColorSubTlvContent : public Keel::DedupContentHandle {
public:
    ColorSubTlvContent() noexcept = default;
    explicit ColorSubTlvContent(uint32_t color, uint16_t flags = 0) noexcept
        : flags_(flags), color_(color) {}

    uint16_t flags() const noexcept { return flags_; }
    void flagsIs(uint16_t f) noexcept { flags_ = f; }
    uint32_t color() const noexcept { return color_; }
    void colorIs(uint32_t c) noexcept { color_ = c; }
    uint32_t hash() const noexcept;

    friend bool operator==(const ColorSubTlvContent&, const ColorSubTlvContent&) noexcept = default;

private:
    uint16_t flags_ = 0;
    uint32_t color_ = 0;
    MEL_VALUE_TYPE(ColorSubTlvContent, "Routing::Bgp::ColorSubTlvContent", (flags_, color_))
};

// The color, as the 8 bytes of a color extended community: 0x03 0x0b, two flag bytes, the 32-bit
// color value.
class ColorSubTlv : public TunnelEncapSubTlvBase {
    MELSTASH_STORE_ALLOCATED(ColorSubTlv)

public:
    explicit ColorSubTlv(const ColorSubTlvContent& c) noexcept;
    static Mel::PtrConst<ColorSubTlv> intern(const ColorSubTlvContent& c);
    static Mel::PtrConst<ColorSubTlv> intern(uint32_t color) {
        return intern(ColorSubTlvContent(color));
    }

    uint16_t flags() const noexcept { return flags_; }
    uint32_t color() const noexcept { return color_; }
    ColorSubTlvContent content() const noexcept { return ColorSubTlvContent(color_, flags_); }

    uint8_t subTlvType() const noexcept override { return uint8_t(TunnelEncapSubTlvType::color); }
    uint16_t subTlvLen() const noexcept override { return 8; }
    void serializeInto(Serialize& s) const override;
    size_t serializedSize() const noexcept override { return 10; }
    // "Color=100", then ",flags=0x0001" when flags are set.
    void format(std::ostream& os) const override;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

private:
    uint16_t flags_;
    uint32_t color_;
};

class ColorSubTlvDedupTable : public Keel::DedupTable<ColorSubTlv> {
public:
    ColorSubTlvDedupTable() : DedupTable("ColorSubTlvDedupTable") {}
    static ColorSubTlvDedupTable& instance();
};

// ---- Unparsed ----------------------------------------------------------------------------------

class UnparsedSubTlvContent : public Keel::DedupContentHandle {
public:
    UnparsedSubTlvContent() = default;
    // subTlvLen is the data's size.
    UnparsedSubTlvContent(uint8_t type, const Mel::Bytes& data)
        : subTlvType_(type), subTlvLen_(uint16_t(data.size())), subTlvData_(data) {}
    UnparsedSubTlvContent(uint8_t type, uint16_t len, const Mel::Bytes& data)
        : subTlvType_(type), subTlvLen_(len), subTlvData_(data) {}

    uint8_t subTlvType() const noexcept { return subTlvType_; }
    void subTlvTypeIs(uint8_t t) noexcept { subTlvType_ = t; }
    uint16_t subTlvLen() const noexcept { return subTlvLen_; }
    void subTlvLenIs(uint16_t l) noexcept { subTlvLen_ = l; }
    const Mel::Bytes& subTlvData() const noexcept { return subTlvData_; }
    void subTlvDataIs(const Mel::Bytes& d) { subTlvData_ = d; }
    uint32_t hash() const noexcept;

    friend bool operator==(const UnparsedSubTlvContent&,
                           const UnparsedSubTlvContent&) noexcept = default;

private:
    uint8_t subTlvType_ = 0;
    uint16_t subTlvLen_ = 0;
    Mel::Bytes subTlvData_;
    MEL_VALUE_TYPE(UnparsedSubTlvContent, "Routing::Bgp::UnparsedSubTlvContent",
                   (subTlvType_, subTlvLen_, subTlvData_))
};

std::ostream& operator<<(std::ostream& os, const UnparsedSubTlvContent& c);

// A sub-TLV no class understands: type, the length to write (as received, even where it differs
// from the data's size) and the value bytes, inline after the object. At most 65535 data bytes.
class UnparsedSubTlv : public TunnelEncapSubTlvBase {
    MELSTASH_STORE_ALLOCATED(UnparsedSubTlv)

public:
    // A new, not yet interned object.
    static UnparsedSubTlv* make(const UnparsedSubTlvContent& c);
    static Mel::PtrConst<UnparsedSubTlv> intern(const UnparsedSubTlvContent& c);

    std::span<const uint8_t> subTlvData() const noexcept { return {data_, dataSize_}; }
    UnparsedSubTlvContent content() const;
    // The content's Value form.
    std::string valueToStrep() const;

    uint8_t subTlvType() const noexcept override { return subTlvType_; }
    uint16_t subTlvLen() const noexcept override { return subTlvLen_; }
    void serializeInto(Serialize& s) const override;
    size_t serializedSize() const noexcept override {
        return SerializedBgpTunnelEncapSubTlv::headerSize(subTlvType_) + dataSize_;
    }
    // "{T=200 L=3 V=0xabcdef}".
    void format(std::ostream& os) const override;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

private:
    explicit UnparsedSubTlv(const UnparsedSubTlvContent& c) noexcept;
    bool equals(uint8_t type, uint16_t len, std::span<const uint8_t> data) const noexcept;

    uint8_t subTlvType_;
    uint16_t subTlvLen_;
    uint16_t dataSize_;
    uint8_t data_[0]; // dataSize_ bytes in the same allocation
};

class UnparsedSubTlvDedupTable : public Keel::DedupTable<UnparsedSubTlv> {
public:
    UnparsedSubTlvDedupTable() : DedupTable("UnparsedSubTlvDedupTable") {}
    static UnparsedSubTlvDedupTable& instance();
};

// The interned sub-TLV of that content, in its class's table.
inline Mel::PtrConst<EndpointSubTlv> endpointSubTlvFactory(const EndpointSubTlvContent& c) {
    return EndpointSubTlv::intern(c);
}
inline Mel::PtrConst<ColorSubTlv> colorSubTlvFactory(const ColorSubTlvContent& c) {
    return ColorSubTlv::intern(c);
}
inline Mel::PtrConst<UnparsedSubTlv> unparsedSubTlvFactory(const UnparsedSubTlvContent& c) {
    return UnparsedSubTlv::intern(c);
}

// ---- Text hooks for contents that point to sub-TLVs --------------------------------------------
// A pointer prints as None or as its content's Value form; reading back interns the content.

void melFormat(std::ostream& os, const Mel::PtrConst<EndpointSubTlv>& p);
void melParse(Mel::ValueParser& p, Mel::PtrConst<EndpointSubTlv>& v);
void melFormat(std::ostream& os, const Mel::PtrConst<ColorSubTlv>& p);
void melParse(Mel::ValueParser& p, Mel::PtrConst<ColorSubTlv>& v);
void melFormat(std::ostream& os, const Mel::PtrConst<UnparsedSubTlv>& p);
void melParse(Mel::ValueParser& p, Mel::PtrConst<UnparsedSubTlv>& v);

} // namespace Routing::Bgp
