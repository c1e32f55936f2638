#define ORV_UNIT "OrvBgp/BgpTunnelEncapSubTlv"

#include "OrvBgp/BgpTunnelEncapSubTlv.h"

#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Exception.h"
#include "Mel/Reflect.h"
#include "Mel/ValueParser.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <boost/describe/enumerators.hpp>
#include <boost/mp11/algorithm.hpp>

#include <cstring>
#include <new>
#include <ostream>
#include <sstream>

namespace Routing::Bgp {

namespace {

// Distinguishes the classes in hashes.
enum ClassTag : uint8_t { tagEndpoint = 1, tagColor = 2, tagUnparsed = 3 };

const char* subTlvTypeName(TunnelEncapSubTlvType t) noexcept {
    const char* name = nullptr;
    boost::mp11::mp_for_each<boost::describe::describe_enumerators<TunnelEncapSubTlvType>>(
        [&](auto d) {
            if (!name && t == d.value) name = d.name;
        });
    return name;
}

constexpr uint8_t colorExtCommType = 0x03;
constexpr uint8_t colorExtCommSubType = 0x0b;

} // namespace

// ---- Sub-TLV type codes ------------------------------------------------------------------------

TunnelEncapSubTlvType TunnelEncapSubTlvTypeInstance(unsigned value) {
    if (value <= 0xff && subTlvTypeName(TunnelEncapSubTlvType(value)))
        return TunnelEncapSubTlvType(value);
    throw Mel::RangeException("Routing::Bgp::TunnelEncapSubTlvType has no value " +
                              std::to_string(value));
}

TunnelEncapSubTlvType TunnelEncapSubTlvTypeInstance(std::string_view name) {
    for (unsigned v = 0; v <= 0xff; ++v) {
        const char* n = subTlvTypeName(TunnelEncapSubTlvType(v));
        if (n && name == n) return TunnelEncapSubTlvType(v);
    }
    throw Mel::ParseException("Routing::Bgp::TunnelEncapSubTlvType has no value named '" +
                              std::string(name) + "'");
}

std::string stringValue(TunnelEncapSubTlvType t) {
    const char* name = subTlvTypeName(t);
    return name ? name : std::to_string(unsigned(t));
}

std::string valueToStrep(TunnelEncapSubTlvType t) {
    return Mel::valueToStrep(t);
}

TunnelEncapSubTlvType strepToTunnelEncapSubTlvType(std::string_view text) {
    return Mel::strepToValue<TunnelEncapSubTlvType>(text);
}

std::ostream& operator<<(std::ostream& os, TunnelEncapSubTlvType t) {
    return os << stringValue(t);
}

// ---- Header writer -----------------------------------------------------------------------------

SerializedBgpTunnelEncapSubTlv::SerializedBgpTunnelEncapSubTlv(unsigned char type,
                                                               unsigned short length) noexcept {
    bytes_[0] = type;
    if (hasTwoByteLength(type)) {
        bytes_[1] = uint8_t(length >> 8);
        bytes_[2] = uint8_t(length);
        size_ = 3;
    } else {
        bytes_[1] = uint8_t(length);
        bytes_[2] = 0;
        size_ = 2;
    }
}

void SerializedBgpTunnelEncapSubTlv::appendTo(Serialize& s) const {
    s.addData(bytes());
}

// ---- Common base -------------------------------------------------------------------------------

Mel::Bytes TunnelEncapSubTlvBase::serialize() const {
    Serialize s;
    serializeInto(s);
    return s.serializedBytes();
}

std::string TunnelEncapSubTlvBase::toStrep() const {
    std::ostringstream os;
    format(os);
    return std::move(os).str();
}

std::ostream& operator<<(std::ostream& os, const TunnelEncapSubTlvBase& t) {
    t.format(os);
    return os;
}

// ---- Endpoint ----------------------------------------------------------------------------------

uint32_t EndpointSubTlvContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(uint8_t(tagEndpoint));
    m.hashMix(uint8_t(address_.af()));
    const uint8_t* p = address_.data();
    for (size_t i = 0; i < address_.byteLength(); i += 4) {
        uint32_t w;
        std::memcpy(&w, p + i, 4);
        m.hashMix(w);
    }
    return m.result();
}

EndpointSubTlv::EndpointSubTlv(const EndpointSubTlvContent& c) noexcept : address_(c.address()) {
    hashIs(c.hash());
}

Mel::PtrConst<EndpointSubTlv> EndpointSubTlv::intern(const EndpointSubTlvContent& c) {
    return EndpointSubTlvDedupTable::instance().findOrCreate(c.hash(), c,
                                                             [&] { return new EndpointSubTlv(c); });
}

void EndpointSubTlv::serializeInto(Serialize& s) const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: EndpointSubTlv::serialize()");
    SerializedBgpTunnelEncapSubTlv(subTlvType(), subTlvLen()).appendTo(s);
    s.addU32hton(0);
    s.addU16hton(uint16_t(address_.af()));
    s.addIpGenAddr(address_);
}

void EndpointSubTlv::format(std::ostream& os) const {
    os << "Endpoint=";
    if (address_.isEmpty())
        os << "none";
    else
        os << address_;
}

bool EndpointSubTlv::compare(const Keel::DedupHandleBase* other) const {
    return address_ == static_cast<const EndpointSubTlv*>(other)->address_;
}

bool EndpointSubTlv::compareByContent(const Keel::DedupContentHandle& content) const {
    return address_ == static_cast<const EndpointSubTlvContent&>(content).address();
}

EndpointSubTlvDedupTable& EndpointSubTlvDedupTable::instance() {
    // Never destroyed: objects released during exit still find their table.
    static auto* table = new EndpointSubTlvDedupTable;
    return *table;
}

// ---- Color -------------------------------------------------------------------------------------

uint32_t ColorSubTlvContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(uint8_t(tagColor));
    m.hashMix(flags_);
    m.hashMix(color_);
    return m.result();
}

ColorSubTlv::ColorSubTlv(const ColorSubTlvContent& c) noexcept
    : flags_(c.flags()), color_(c.color()) {
    hashIs(c.hash());
}

Mel::PtrConst<ColorSubTlv> ColorSubTlv::intern(const ColorSubTlvContent& c) {
    return ColorSubTlvDedupTable::instance().findOrCreate(c.hash(), c,
                                                          [&] { return new ColorSubTlv(c); });
}

void ColorSubTlv::serializeInto(Serialize& s) const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: ColorSubTlv::serialize()");
    SerializedBgpTunnelEncapSubTlv(subTlvType(), subTlvLen()).appendTo(s);
    s.addU8(colorExtCommType);
    s.addU8(colorExtCommSubType);
    s.addU16hton(flags_);
    s.addU32hton(color_);
}

void ColorSubTlv::format(std::ostream& os) const {
    os << "Color=" << color_;
    if (flags_) {
        const char* hex = "0123456789abcdef";
        os << ",flags=0x" << hex[flags_ >> 12] << hex[(flags_ >> 8) & 0xf]
           << hex[(flags_ >> 4) & 0xf] << hex[flags_ & 0xf];
    }
}

bool ColorSubTlv::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const ColorSubTlv*>(other);
    return color_ == o->color_ && flags_ == o->flags_;
}

bool ColorSubTlv::compareByContent(const Keel::DedupContentHandle& content) const {
    return this->content() == static_cast<const ColorSubTlvContent&>(content);
}

ColorSubTlvDedupTable& ColorSubTlvDedupTable::instance() {
    static auto* table = new ColorSubTlvDedupTable;
    return *table;
}

// ---- Unparsed ----------------------------------------------------------------------------------

uint32_t UnparsedSubTlvContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(uint8_t(tagUnparsed));
    m.hashMix(subTlvType_);
    m.hashMix(subTlvLen_);
    m.hashMix(Keel::hashBytes(subTlvData_.data(), subTlvData_.size()));
    return m.result();
}

std::ostream& operator<<(std::ostream& os, const UnparsedSubTlvContent& c) {
    Mel::valueFormat(os, c);
    return os;
}

UnparsedSubTlv::UnparsedSubTlv(const UnparsedSubTlvContent& c) noexcept
    : subTlvType_(c.subTlvType()), subTlvLen_(c.subTlvLen()),
      dataSize_(uint16_t(c.subTlvData().size())) {
    if (dataSize_) std::memcpy(data_, c.subTlvData().data(), dataSize_);
    hashIs(c.hash());
}

UnparsedSubTlv* UnparsedSubTlv::make(const UnparsedSubTlvContent& c) {
    ORV_ASSERT(c.subTlvData().size() <= 0xffff);
    return new (MelStash::ExtraBytes{c.subTlvData().size()}) UnparsedSubTlv(c);
}

Mel::PtrConst<UnparsedSubTlv> UnparsedSubTlv::intern(const UnparsedSubTlvContent& c) {
    return UnparsedSubTlvDedupTable::instance().findOrCreate(c.hash(), c, [&] { return make(c); });
}

UnparsedSubTlvContent UnparsedSubTlv::content() const {
    return UnparsedSubTlvContent(subTlvType_, subTlvLen_, Mel::Bytes(data_, dataSize_));
}

std::string UnparsedSubTlv::valueToStrep() const {
    return Mel::valueToStrep(content());
}

void UnparsedSubTlv::serializeInto(Serialize& s) const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: UnparsedSubTlv::serialize()");
    SerializedBgpTunnelEncapSubTlv(subTlvType_, subTlvLen_).appendTo(s);
    s.addData(data_, dataSize_);
}

void UnparsedSubTlv::format(std::ostream& os) const {
    os << "{T=" << unsigned(subTlvType_) << " L=" << subTlvLen_ << " V=0x"
       << Mel::Bytes(data_, dataSize_).toHex() << "}";
}

bool UnparsedSubTlv::equals(uint8_t type, uint16_t len,
                            std::span<const uint8_t> data) const noexcept {
    return subTlvType_ == type && subTlvLen_ == len && dataSize_ == data.size() &&
           (dataSize_ == 0 || std::memcmp(data_, data.data(), dataSize_) == 0);
}

bool UnparsedSubTlv::compare(const Keel::DedupHandleBase* other) const {
    const auto* o = static_cast<const UnparsedSubTlv*>(other);
    return equals(o->subTlvType_, o->subTlvLen_, o->subTlvData());
}

bool UnparsedSubTlv::compareByContent(const Keel::DedupContentHandle& content) const {
    const auto& c = static_cast<const UnparsedSubTlvContent&>(content);
    return equals(c.subTlvType(), c.subTlvLen(), c.subTlvData().span());
}

UnparsedSubTlvDedupTable& UnparsedSubTlvDedupTable::instance() {
    static auto* table = new UnparsedSubTlvDedupTable;
    return *table;
}

// ---- Text hooks --------------------------------------------------------------------------------

namespace {

template <class Obj, class Content>
void formatSubTlvPtr(std::ostream& os, const Mel::PtrConst<Obj>& p) {
    if (!p)
        os << "None";
    else
        Mel::valueFormat(os, p->content());
}

template <class Obj, class Content>
void parseSubTlvPtr(Mel::ValueParser& p, Mel::PtrConst<Obj>& v) {
    if (p.consume("None")) {
        v = nullptr;
        return;
    }
    Content c;
    Mel::valueParse(p, c);
    v = Obj::intern(c);
}

} // namespace

void melFormat(std::ostream& os, const Mel::PtrConst<EndpointSubTlv>& p) {
    formatSubTlvPtr<EndpointSubTlv, EndpointSubTlvContent>(os, p);
}
void melParse(Mel::ValueParser& p, Mel::PtrConst<EndpointSubTlv>& v) {
    parseSubTlvPtr<EndpointSubTlv, EndpointSubTlvContent>(p, v);
}
void melFormat(std::ostream& os, const Mel::PtrConst<ColorSubTlv>& p) {
    formatSubTlvPtr<ColorSubTlv, ColorSubTlvContent>(os, p);
}
void melParse(Mel::ValueParser& p, Mel::PtrConst<ColorSubTlv>& v) {
    parseSubTlvPtr<ColorSubTlv, ColorSubTlvContent>(p, v);
}
void melFormat(std::ostream& os, const Mel::PtrConst<UnparsedSubTlv>& p) {
    formatSubTlvPtr<UnparsedSubTlv, UnparsedSubTlvContent>(os, p);
}
void melParse(Mel::ValueParser& p, Mel::PtrConst<UnparsedSubTlv>& v) {
    parseSubTlvPtr<UnparsedSubTlv, UnparsedSubTlvContent>(p, v);
}

} // namespace Routing::Bgp
