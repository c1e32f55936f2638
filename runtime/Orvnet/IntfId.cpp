#include "Orvnet/IntfId.h"

#include "Mel/Exception.h"

#include <charconv>
#include <ostream>

namespace Orvnet {

IntfId IntfId::fromString(std::string_view text) {
    std::string_view t = text;
    if (t == "intfNone") return IntfId();
    if (t.starts_with("intf")) t.remove_prefix(4);
    int base = 10;
    if (t.starts_with("0x") || t.starts_with("0X")) {
        t.remove_prefix(2);
        base = 16;
    }
    uint32_t v = 0;
    // from_chars takes no sign or prefix, so "intf-1" and "0x0x1" fail here.
    auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v, base);
    if (t.empty() || ec != std::errc() || p != t.data() + t.size())
        throw Mel::ParseException("invalid interface id '" + std::string(text) +
                                  "': expected intfNone, intf<number> or a number");
    return IntfId(v);
}

std::string IntfId::toString() const {
    return v_ == 0 ? std::string("intfNone") : "intf" + std::to_string(v_);
}

std::ostream& operator<<(std::ostream& os, IntfId a) {
    return os << a.toString();
}

} // namespace Orvnet
