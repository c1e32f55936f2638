// The byte writer for wire encodings, and the path-attribute header writers.
//   Serialize s;  s.addU8(1);  s.addU16hton(0x0102);  s.addAs2(70000);   // writes 23456
//   Mel::Bytes b = s.serializedBytes();                                  // 01 01 02 5b a0
#pragma once

#include "Mel/Bytes.h"
#include "Mel/Exception.h"
#include "Orvnet/AutonomousSystem.h"
#include "Orvnet/Ip6Addr.h"
#include "Orvnet/IpAddr.h"
#include "Orvnet/IpGenAddr.h"

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

// Appends values in network byte order. The first 4096 bytes live inside the object, so
// encoding an ordinary attribute never touches the heap. Patching at an offset past size()
// is a programming error.
class Serialize {
public:
    static constexpr size_t inlineCapacity = 4096;

    Serialize() = default;

    void addU8(uint8_t v) { buf_.push_back(v); }
    void addU16hton(uint16_t v) {
        uint8_t* p = grow(2);
        p[0] = uint8_t(v >> 8);
        p[1] = uint8_t(v);
    }
    // The low 24 bits of v.
    void addU24hton(uint32_t v) {
        uint8_t* p = grow(3);
        p[0] = uint8_t(v >> 16);
        p[1] = uint8_t(v >> 8);
        p[2] = uint8_t(v);
    }
    void addU32hton(uint32_t v) {
        uint8_t* p = grow(4);
        p[0] = uint8_t(v >> 24);
        p[1] = uint8_t(v >> 16);
        p[2] = uint8_t(v >> 8);
        p[3] = uint8_t(v);
    }
    void addU64hton(uint64_t v) {
        addU32hton(uint32_t(v >> 32));
        addU32hton(uint32_t(v));
    }
    // The 3-octet MPLS label field: the 20-bit label in the high-order bits, then 3 bits of
    // traffic class (written 0) and the bottom-of-stack bit. Label bits above 20 are dropped.
    void add3octetMplsLabelHton(uint32_t label, bool bottomOfStack = false) {
        addU24hton((label & 0xfffffu) << 4 | (bottomOfStack ? 1u : 0u));
    }
    void addIpv4Addr(Orvnet::IpAddr a) { addData(a.data(), 4); }
    void addIpv6Addr(const Orvnet::Ip6Addr& a) { addData(a.data(), 16); }
    // 4 or 16 bytes; nothing for the empty address.
    void addIpGenAddr(const Orvnet::IpGenAddr& a) { addData(a.data(), a.byteLength()); }
    void addData(const void* data, size_t len) {
        if (len) std::memcpy(grow(len), data, len);
    }
    void addData(std::span<const uint8_t> s) { addData(s.data(), s.size()); }
    void addData(std::string_view s) { addData(s.data(), s.size()); }
    void addBytes(const Mel::Bytes& b) { addData(b.data(), b.size()); }
    // 2-byte AS field: numbers above 65535 are written as AS_TRANS (23456). Returns true
    // exactly when that substitution was made.
    bool addAs2(Orvnet::AutonomousSystem as) {
        addU16hton(as.as2ByteOrTrans());
        return !as.is2Byte();
    }
    void addAs4(Orvnet::AutonomousSystem as) { addU32hton(as.value()); }
    // n zero bytes, for fields filled in later with the patch operations.
    void addZeros(size_t n) { buf_.insert(buf_.end(), n, uint8_t(0)); }

    void patchU8(size_t offset, uint8_t v);
    void patchU16hton(size_t offset, uint16_t v);
    void patchU32hton(size_t offset, uint32_t v);

    size_t size() const noexcept { return buf_.size(); }
    bool empty() const noexcept { return buf_.empty(); }
    const uint8_t* data() const noexcept { return buf_.data(); }
    std::span<const uint8_t> span() const noexcept { return {buf_.data(), buf_.size()}; }
    // True while the contents still sit in the inline buffer.
    bool isInline() const noexcept;
    void clear() noexcept { buf_.clear(); }
    // Drops the bytes from offset on.
    void truncate(size_t offset);

    Mel::Bytes serializedBytes() const { return Mel::Bytes(buf_.data(), buf_.size()); }
    std::string serializedString() const {
        return std::string(reinterpret_cast<const char*>(buf_.data()), buf_.size());
    }

protected:
    // Removes the first n bytes.
    void dropFront(size_t n);

private:
    uint8_t* grow(size_t n) {
        size_t old = buf_.size();
        buf_.resize(old + n, boost::container::default_init);
        return buf_.data() + old;
    }

    boost::container::small_vector<uint8_t, inlineCapacity> buf_;
};

// Path attribute flag bits.
inline constexpr uint8_t pathAttrFlagOptional = 0x80;
inline constexpr uint8_t pathAttrFlagTransitive = 0x40;
inline constexpr uint8_t pathAttrFlagPartial = 0x20;
inline constexpr uint8_t pathAttrFlagExtendedLength = 0x10;

// The attribute type's name ("AS_PATH", "LARGE_COMMUNITY"), or nullptr for a code without one.
const char* pathAttributeTypeName(uint8_t type) noexcept;

// A path attribute whose value does not fit the 2-byte length field. Legal held values get there
// (a long path received with 2-byte AS numbers and written with 4-byte ones, a cluster list one id
// longer than the longest that arrives), so this is an error the caller handles, never a stop:
// the attribute cannot be sent as it stands. what() names the attribute and the value's length:
//   "AS_PATH (type 2) cannot be written: value of 70000 bytes, more than 65535"
class PathAttributeTooLongException : public Mel::Exception {
public:
    PathAttributeTooLongException(uint8_t type, size_t valueLen);
    uint8_t type() const noexcept { return type_; }
    size_t valueLen() const noexcept { return valueLen_; }

private:
    uint8_t type_;
    size_t valueLen_;
};

// Writes the header of a path attribute whose value length is known: flags, type, then a
// 1-byte length when valueLen <= 255 and flags lack 0x10, else flags | 0x10 and a 2-byte
// length. The caller appends the value next. Returns the header size, 3 or 4. A valueLen
// above 65535 throws PathAttributeTooLongException and writes nothing.
size_t SerializePathAttribute(Serialize& s, uint8_t type, uint8_t flags, size_t valueLen);

// A Serialize that starts with 4 reserved header bytes; the caller appends the value and then
// calls patchHdrAndStringify, which writes the header for the final length. When the value fits
// a 1-byte length the value is moved down one byte (at most 255 bytes move), so afterwards the
// buffer holds exactly the attribute and size()/serializedBytes() agree with the result.
//   SerializePathAttributeAutoExtLen s;  s.addU32hton(65001);
//   Mel::Bytes attr = s.patchHdrAndStringify(2, 0x40);
class SerializePathAttributeAutoExtLen : public Serialize {
public:
    static constexpr size_t reservedHeaderSize = 4;

    SerializePathAttributeAutoExtLen() { addZeros(reservedHeaderSize); }

    // Before patching: the value appended so far.
    size_t valueSize() const;
    Mel::Bytes valueBytes() const;
    // Fills in flags, type and length as SerializePathAttribute would (0x10 is added when the
    // value exceeds 255 bytes or the caller set it), and returns the whole attribute. Once only;
    // a value above 65535 bytes throws PathAttributeTooLongException.
    Mel::Bytes patchHdrAndStringify(uint8_t type, uint8_t flags);
    // The same, as a std::string.
    std::string patchHdrAndString(uint8_t type, uint8_t flags);

private:
    void patchHdr(uint8_t type, uint8_t flags);
    bool patched_ = false;
};

// The whole attribute for a value at hand, header chosen as SerializePathAttribute does.
//   pathAttributeBytes(26, 0x80, Mel::Bytes::fromHex("01000b0000000000000005"))
Mel::Bytes pathAttributeBytes(uint8_t type, uint8_t flags, std::span<const uint8_t> value);
inline Mel::Bytes pathAttributeBytes(uint8_t type, uint8_t flags, const Mel::Bytes& value) {
    return pathAttributeBytes(type, flags, value.span());
}
