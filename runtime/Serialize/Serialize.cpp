#define ORV_UNIT "Serialize/Serialize"

#include "Serialize/Serialize.h"

#include "Keel/Assert.h"

void Serialize::patchU8(size_t offset, uint8_t v) {
    ORV_ASSERT(offset < size());
    buf_[offset] = v;
}

void Serialize::patchU16hton(size_t offset, uint16_t v) {
    ORV_ASSERT(offset + 2 <= size());
    buf_[offset] = uint8_t(v >> 8);
    buf_[offset + 1] = uint8_t(v);
}

void Serialize::patchU32hton(size_t offset, uint32_t v) {
    ORV_ASSERT(offset + 4 <= size());
    for (int i = 0; i < 4; ++i)
        buf_[offset + i] = uint8_t(v >> (24 - 8 * i));
}

bool Serialize::isInline() const noexcept {
    // small_vector keeps its inline storage right after the header it shares with the vector.
    const uint8_t* p = buf_.data();
    const uint8_t* self = reinterpret_cast<const uint8_t*>(&buf_);
    return p >= self && p < self + sizeof(buf_);
}

void Serialize::truncate(size_t offset) {
    ORV_ASSERT(offset <= size());
    buf_.resize(offset);
}

void Serialize::dropFront(size_t n) {
    ORV_ASSERT(n <= size());
    buf_.erase(buf_.begin(), buf_.begin() + n);
}

const char* pathAttributeTypeName(uint8_t type) noexcept {
    switch (type) {
    case 1:
        return "ORIGIN";
    case 2:
        return "AS_PATH";
    case 3:
        return "NEXT_HOP";
    case 4:
        return "MULTI_EXIT_DISC";
    case 5:
        return "LOCAL_PREF";
    case 6:
        return "ATOMIC_AGGREGATE";
    case 7:
        return "AGGREGATOR";
    case 8:
        return "COMMUNITIES";
    case 9:
        return "ORIGINATOR_ID";
    case 10:
        return "CLUSTER_LIST";
    case 14:
        return "MP_REACH_NLRI";
    case 15:
        return "MP_UNREACH_NLRI";
    case 16:
        return "EXTENDED_COMMUNITIES";
    case 17:
        return "AS4_PATH";
    case 18:
        return "AS4_AGGREGATOR";
    case 22:
        return "PMSI_TUNNEL";
    case 23:
        return "TUNNEL_ENCAPSULATION";
    case 25:
        return "IPV6_EXTENDED_COMMUNITIES";
    case 26:
        return "AIGP";
    case 29:
        return "BGP_LS";
    case 32:
        return "LARGE_COMMUNITY";
    case 36:
        return "D_PATH";
    case 40:
        return "PREFIX_SID";
    case 128:
        return "ATTR_SET";
    default:
        return nullptr;
    }
}

namespace {

void checkValueLen(uint8_t type, size_t valueLen) {
    if (valueLen > 0xffff) throw PathAttributeTooLongException(type, valueLen);
}

} // namespace

PathAttributeTooLongException::PathAttributeTooLongException(uint8_t type, size_t valueLen)
    : Mel::Exception(std::string(pathAttributeTypeName(type) ? pathAttributeTypeName(type)
                                                             : "path attribute") +
                     " (type " + std::to_string(type) + ") cannot be written: value of " +
                     std::to_string(valueLen) + " bytes, more than 65535"),
      type_(type), valueLen_(valueLen) {}

size_t SerializePathAttribute(Serialize& s, uint8_t type, uint8_t flags, size_t valueLen) {
    checkValueLen(type, valueLen);
    if (valueLen <= 0xff && !(flags & pathAttrFlagExtendedLength)) {
        s.addU8(flags);
        s.addU8(type);
        s.addU8(uint8_t(valueLen));
        return 3;
    }
    s.addU8(flags | pathAttrFlagExtendedLength);
    s.addU8(type);
    s.addU16hton(uint16_t(valueLen));
    return 4;
}

size_t SerializePathAttributeAutoExtLen::valueSize() const {
    ORV_ASSERT(!patched_);
    return size() - reservedHeaderSize;
}

Mel::Bytes SerializePathAttributeAutoExtLen::valueBytes() const {
    ORV_ASSERT(!patched_);
    return Mel::Bytes(data() + reservedHeaderSize, size() - reservedHeaderSize);
}

void SerializePathAttributeAutoExtLen::patchHdr(uint8_t type, uint8_t flags) {
    ORV_ASSERT(!patched_);
    size_t valueLen = size() - reservedHeaderSize;
    checkValueLen(type, valueLen);
    patched_ = true;
    if (valueLen <= 0xff && !(flags & pathAttrFlagExtendedLength)) {
        // 3-byte header in bytes 1-3, then drop byte 0.
        patchU8(1, flags);
        patchU8(2, type);
        patchU8(3, uint8_t(valueLen));
        dropFront(1);
    } else {
        patchU8(0, flags | pathAttrFlagExtendedLength);
        patchU8(1, type);
        patchU16hton(2, uint16_t(valueLen));
    }
}

Mel::Bytes SerializePathAttributeAutoExtLen::patchHdrAndStringify(uint8_t type, uint8_t flags) {
    patchHdr(type, flags);
    return serializedBytes();
}

std::string SerializePathAttributeAutoExtLen::patchHdrAndString(uint8_t type, uint8_t flags) {
    patchHdr(type, flags);
    return serializedString();
}

Mel::Bytes pathAttributeBytes(uint8_t type, uint8_t flags, std::span<const uint8_t> value) {
    Serialize s;
    SerializePathAttribute(s, type, flags, value.size());
    s.addData(value);
    return s.serializedBytes();
}
