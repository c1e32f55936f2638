#include "census/Prefix.h"

#include <arpa/inet.h>
#include <cstring>

namespace Census {

IpAddress IpAddress::v4(uint32_t hostOrder) {
    IpAddress a;
    a.family = 4;
    a.bytes[0] = uint8_t(hostOrder >> 24);
    a.bytes[1] = uint8_t(hostOrder >> 16);
    a.bytes[2] = uint8_t(hostOrder >> 8);
    a.bytes[3] = uint8_t(hostOrder);
    return a;
}

IpAddress IpAddress::v4(const uint8_t* wire) {
    IpAddress a;
    a.family = 4;
    std::memcpy(a.bytes.data(), wire, 4);
    return a;
}

IpAddress IpAddress::v6(const uint8_t* wire) {
    IpAddress a;
    a.family = 6;
    std::memcpy(a.bytes.data(), wire, 16);
    return a;
}

void appendIpv4(std::string& out, uint32_t v) {
    char buf[16];
    char* p = buf;
    for (int shift = 24; shift >= 0; shift -= 8) {
        unsigned octet = (v >> shift) & 0xff;
        if (octet >= 100) {
            *p++ = char('0' + octet / 100);
            *p++ = char('0' + octet / 10 % 10);
        } else if (octet >= 10) {
            *p++ = char('0' + octet / 10);
        }
        *p++ = char('0' + octet % 10);
        if (shift) *p++ = '.';
    }
    out.append(buf, size_t(p - buf));
}

void IpAddress::appendTo(std::string& out) const {
    if (family == 4) {
        appendIpv4(out, v4Value());
    } else if (family == 6) {
        char buf[INET6_ADDRSTRLEN];
        if (inet_ntop(AF_INET6, bytes.data(), buf, sizeof buf)) out.append(buf);
    }
}

std::string IpAddress::toString() const {
    std::string s;
    appendTo(s);
    return s;
}

void Prefix::appendTo(std::string& out) const {
    address.appendTo(out);
    out.push_back('/');
    out.append(std::to_string(length));
}

std::string Prefix::toString() const {
    std::string s;
    appendTo(s);
    return s;
}

bool parsePrefixes(std::span<const uint8_t> wire, uint8_t family, bool addPath,
                   std::vector<Prefix>& out) {
    const uint8_t* p = wire.data();
    const uint8_t* end = p + wire.size();
    const unsigned maxBits = family == 4 ? 32 : 128;
    while (p < end) {
        Prefix pfx;
        pfx.address.family = family;
        if (addPath) {
            if (end - p < 5) return false;
            pfx.hasPathId = true;
            pfx.pathId = readBe32(p);
            p += 4;
        }
        unsigned bits = *p++;
        if (bits > maxBits) return false;
        size_t nbytes = (bits + 7) / 8;
        if (size_t(end - p) < nbytes) return false;
        std::memcpy(pfx.address.bytes.data(), p, nbytes);
        p += nbytes;
        pfx.length = uint8_t(bits);
        out.push_back(pfx);
    }
    return true;
}

} // namespace Census
