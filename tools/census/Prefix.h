// Addresses and prefixes as they arrive in MRT records and BGP NLRI, and their text forms.
//   std::vector<Census::Prefix> out; bool ok = Census::parsePrefixes(wire, 4, false, out);
//   out[0].toString() == "10.0.0.0/8";  Census::IpAddress::v4(0x0a000001).toString() == "10.0.0.1"
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Census {

inline uint16_t readBe16(const uint8_t* p) {
    return uint16_t((p[0] << 8) | p[1]);
}
inline uint32_t readBe32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}
inline uint64_t readBe64(const uint8_t* p) {
    return (uint64_t(readBe32(p)) << 32) | readBe32(p + 4);
}

// BGP address family identifiers, and the SAFIs this reader decodes.
inline constexpr uint16_t kAfiIpv4 = 1;
inline constexpr uint16_t kAfiIpv6 = 2;
inline constexpr uint8_t kSafiUnicast = 1;
inline constexpr uint8_t kSafiMulticast = 2;

// An IPv4 or IPv6 address; family 0 means absent. IPv4 sits in the first four bytes.
struct IpAddress {
    uint8_t family = 0;
    std::array<uint8_t, 16> bytes{};

    static IpAddress v4(uint32_t hostOrder);
    static IpAddress v4(const uint8_t* wire);
    static IpAddress v6(const uint8_t* wire);

    bool isV4() const noexcept { return family == 4; }
    bool isV6() const noexcept { return family == 6; }
    uint32_t v4Value() const noexcept { return readBe32(bytes.data()); }

    // Dotted quad for IPv4; for IPv6 the libc (RFC 5952) form, "::ffff:1.2.3.4" for mapped ones.
    // An absent address prints as "".
    void appendTo(std::string& out) const;
    std::string toString() const;

    friend bool operator==(const IpAddress&, const IpAddress&) = default;
};

// Appends the dotted quad of a host-order IPv4 address.
void appendIpv4(std::string& out, uint32_t hostOrder);

// A prefix as received: the bits past the length are kept, not masked off (they are part of what
// arrived, and dumps show them).
struct Prefix {
    IpAddress address;
    uint8_t length = 0;
    bool hasPathId = false;
    uint32_t pathId = 0;

    // "10.0.0.0/8"; the path id is not part of it.
    void appendTo(std::string& out) const;
    std::string toString() const;
};

// Decodes NLRI-encoded prefixes (RFC 4271 4.3; with a 4-byte path id before each when addPath,
// RFC 7911) of the given family (4 or 6) and appends them to out. Returns false at the first
// malformed one (a length beyond 32/128, or bytes cut short); the ones before it stay in out.
bool parsePrefixes(std::span<const uint8_t> wire, uint8_t family, bool addPath,
                   std::vector<Prefix>& out);

} // namespace Census
