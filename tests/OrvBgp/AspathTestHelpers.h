// AS paths for tests, written as their text form: "(65010 65011) 100 200 {300 400}".
//   auto p = OrvTest::aspath("100 {300 400}");                  // built as a decoder would
//   auto q = OrvTest::aspath("WithConfed: (65010) | (65020) 100");  // form and placement forced
#pragma once

#include "AsPath/AspathAttrCanonical.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace OrvTest {

// Text: segments in order; bare numbers in a row are one AS_SEQUENCE, {..} AS_SET, (..)
// AS_CONFED_SEQUENCE, [..] AS_CONFED_SET; "/" ends a run of bare numbers (two sequences in a
// row); "-" alone is the empty path. A leading "SingleSeg:", "WithPathVector:" or "WithConfed:"
// forces the form, and then the segments before a "|" are the confederation path, all others the
// ordinary path (no automatic placement).
inline Routing::Bgp::AspathAttrCanonicalContent aspathContent(std::string_view text) {
    using namespace Routing::Bgp;
    AspathAttrCanonicalContent c;
    bool forced = false;
    for (auto [prefix, form] : {std::pair{"SingleSeg:", AspathForm::singleSeg},
                                std::pair{"WithPathVector:", AspathForm::withPathVector},
                                std::pair{"WithConfed:", AspathForm::withConfed}}) {
        if (text.starts_with(prefix)) {
            c.formIs(form);
            forced = true;
            text.remove_prefix(std::string_view(prefix).size());
        }
    }
    bool inConfed = forced && text.find('|') != std::string_view::npos;
    std::vector<Orvnet::AutonomousSystem> as;
    uint16_t type = 0; // of the segment being read, 0 between segments
    char closer = 0;   // the bracket that ends it, 0 for a run of bare numbers
    auto flush = [&] {
        std::span<const Orvnet::AutonomousSystem> s(as.data(), as.size());
        if (!type)
            return;
        else if (!forced)
            c.segmentAdd(type, s);
        else if (inConfed)
            c.confedSegmentAdd(AsSegmentRef(type, s));
        else
            c.pathSegmentAdd(AsSegmentRef(type, s));
        as.clear();
        type = 0;
    };
    for (size_t i = 0; i < text.size();) {
        char ch = text[i];
        if (std::isdigit(static_cast<unsigned char>(ch))) {
            uint64_t v = 0;
            while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])))
                v = v * 10 + uint64_t(text[i++] - '0');
            as.push_back(Orvnet::AutonomousSystem(uint32_t(v)));
            if (!type) type = AsSegmentType::asSequence_;
            continue;
        }
        ++i;
        if (ch == ' ') continue;
        if (closer && ch != closer)
            throw std::invalid_argument("bad AS path text: " + std::string(text));
        flush(); // a closing bracket, or the end of a run of bare numbers
        if (closer) {
            closer = 0;
        } else if (ch == '|') {
            inConfed = false;
        } else if (ch != '-' && ch != '/') {
            static const char brackets[] = "{}1()3[]4"; // opening, closing, segment type
            const char* open = std::strchr(brackets, ch);
            if (!open || (open - brackets) % 3)
                throw std::invalid_argument("bad AS path text: " + std::string(text));
            closer = open[1];
            type = uint16_t(open[2] - '0');
        }
    }
    flush();
    return c;
}

inline Mel::PtrConst<Routing::Bgp::AspathAttrCanonical> aspath(std::string_view text) {
    return Routing::Bgp::aspathAttrCanonicalFactory(aspathContent(text));
}

// n AS numbers from `first` on, as the text of one sequence ("first first+1 ...").
inline std::string asRun(uint32_t first, uint32_t n) {
    std::string s;
    for (uint32_t k = 0; k < n; ++k)
        s += (k ? " " : "") + std::to_string(first + k);
    return s;
}

// The wire value of segments of `type` in 4-byte form holding the AS numbers from `first` on, as
// many in each as `chunks` says; `lead`, when not 0, is the first number of the first segment.
inline std::string sequenceHex(uint32_t first, std::vector<uint32_t> chunks, uint8_t type = 2,
                               uint32_t lead = 0) {
    char buf[16];
    std::string out;
    for (uint32_t k : chunks) {
        std::snprintf(buf, sizeof buf, "%02x%02x", type, k);
        out += buf;
        for (uint32_t i = 0; i < k; ++i) {
            std::snprintf(buf, sizeof buf, "%08x", lead ? lead : first++);
            out += buf;
            lead = 0;
        }
    }
    return out;
}

} // namespace OrvTest
