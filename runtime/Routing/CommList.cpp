#include "Routing/CommList.h"

#include "Orvnet/Ip6Addr.h"
#include "Orvnet/IpAddr.h"

#include <algorithm>
#include <cstdio>

namespace Routing {

bool CommList::comm(uint32_t community) const noexcept {
    return std::find(begin(), end(), community) != end();
}

void CommList::formatElement(std::string& out, uint32_t v) {
    out += std::to_string(v >> 16);
    out.push_back(':');
    out += std::to_string(v & 0xffff);
}

void ExtCommList::formatElement(std::string& out, uint64_t v) {
    uint8_t type = uint8_t(v >> 56) & 0xbf; // the transitive bit does not change the notation
    uint8_t subtype = uint8_t(v >> 48);
    const char* kind = subtype == 0x02 ? "rt " : subtype == 0x03 ? "soo " : nullptr;
    if (kind && type == 0x00) { // 2-octet AS : 4-octet number
        out += kind + std::to_string((v >> 32) & 0xffff) + ":" + std::to_string(v & 0xffffffff);
        return;
    }
    if (kind && type == 0x01) { // IPv4 address : 2-octet number
        out += kind + Orvnet::IpAddr::fromHostOrder(uint32_t(v >> 16)).toString() + ":" +
               std::to_string(v & 0xffff);
        return;
    }
    if (kind && type == 0x02) { // 4-octet AS : 2-octet number
        out += kind + std::to_string((v >> 16) & 0xffffffff) + ":" + std::to_string(v & 0xffff);
        return;
    }
    char buf[24];
    std::snprintf(buf, sizeof buf, "0x%016llx", static_cast<unsigned long long>(v));
    out += buf;
}

void ExtCommIp6List::formatElement(std::string& out, const ExtCommIp6& v) {
    const char* kind = v[1] == 0x02 ? "rt " : v[1] == 0x03 ? "soo " : nullptr;
    if (kind && (v[0] & 0xbf) == 0x00) {
        out += kind;
        out += "[" + Orvnet::Ip6Addr::fromBytes(v.data() + 2).toString() + "]:";
        out += std::to_string(unsigned(v[18]) << 8 | v[19]);
        return;
    }
    out += "0x";
    static const char digits[] = "0123456789abcdef";
    for (uint8_t b : v) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 15]);
    }
}

void LargeCommList::formatElement(std::string& out, const LargeComm& v) {
    out +=
        std::to_string(v.global) + ":" + std::to_string(v.local1) + ":" + std::to_string(v.local2);
}

} // namespace Routing
