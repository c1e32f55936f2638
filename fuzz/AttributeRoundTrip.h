// Fuzz target over received attribute sections: decode (the census decoder), build the contents
// and intern the set (ContentsBuilder), write the set back (serializeInternal), decode that again
// and build again. The second decode must give the same set, and writing it the same bytes; the
// one difference allowed is the Partial bit that an unknown optional transitive attribute takes
// when it is passed on (RFC 4271 5), and then the third decode must give the second set.
//   OrvFuzz::attributeRoundTrip(bytes);   // throws OrvFuzz::CheckFailure when a property fails
// Input: one context byte (bit 0: the session speaks 4-byte AS numbers; bit 1: add-path NLRI),
// then the attribute section. The set is written as to the peer it came from: an internal one,
// in its AS number width, NEXT_HOP only where the path's next hop came from it. MP_REACH_NLRI is
// no attribute of the set: the received one goes along with the second decode.
#pragma once

#include "FuzzCheck.h"

#include "census/AttributeDecoder.h"
#include "census/ContentsBuilder.h"
#include "census/MrtDecoder.h"
#include "census/RoundTrip.h"

#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/GunkAttributes.h"
#include "OrvBgp/PathAttributesSerializeStore.h"

#include <algorithm>
#include <span>
#include <string>
#include <vector>

namespace OrvFuzz {

namespace RoundTripFuzz {

// Hex of the first bytes, for failure messages.
inline std::string hexOf(std::span<const uint8_t> b) {
    static const char* digits = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < b.size() && i < 512; ++i) {
        s += digits[b[i] >> 4];
        s += digits[b[i] & 15];
    }
    return s;
}

// The path one attribute section announces: the first MP_REACH_NLRI prefix when it carries
// decoded prefixes, else 10.0.0.0/8 in the NLRI field.
inline Census::DecodedPath pathOf(const Census::DecodedAttributes& a, uint8_t asnSize,
                                  const Census::MrtRecord& record) {
    Census::DecodedPath p;
    p.record = &record;
    p.asnSize = asnSize;
    p.attributes = &a;
    p.action = a.action;
    if (a.has(Census::AttrType::kMpReach) && a.mpReach.supported && !a.mpReachPrefixes.empty()) {
        p.source = Census::PathSource::MpReach;
        p.afi = a.mpReach.afi;
        p.safi = a.mpReach.safi;
        p.prefix = a.mpReachPrefixes.front();
    } else {
        p.source = Census::PathSource::NlriField;
        p.prefix.address = Census::IpAddress::v4(0x0a000000);
        p.prefix.length = 8;
    }
    return p;
}

// One pass: the set written as to the peer it came from (and the received MP_REACH_NLRI after
// it), decoded and built again.
struct Pass {
    Routing::Bgp::AttrSetStringStore written;
    std::vector<uint8_t> again;
    Routing::Bgp::PathAttributesContents contents;
    Mel::PtrConst<Routing::Bgp::PathAttributes> set;
};

inline void writeAndRead(const Routing::Bgp::PathAttributes& set,
                         const Census::DecodedAttributes& received,
                         const Census::AttributeContext& ctx, bool writeNextHop,
                         const Census::MrtRecord& record, Census::ContentsBuilder& builder,
                         Pass& out) {
    set.serializeInternal(&out.written, ctx.asnSize == 4, true, writeNextHop);
    out.again.assign(out.written.str().begin(), out.written.str().end());
    for (const Census::PathAttribute& attr : received.list)
        if (attr.type == Census::AttrType::kMpReach && received.has(attr.type)) {
            out.again.insert(out.again.end(), attr.wire.begin(), attr.wire.end());
            break;
        }
    Census::AttributeDecoder decoder;
    const Census::DecodedAttributes& a = decoder.decode(out.again, ctx);
    std::string issues;
    for (const Census::AttributeIssue& i : a.issues)
        issues += " type " + std::to_string(i.type) + " " + Census::malformationName(i.what);
    ORV_FUZZ_CHECK(a.issues.empty(), "what the set wrote decodes with issues:" + issues +
                                         "; written " + hexOf(out.again));
    ORV_FUZZ_CHECK(builder.build(pathOf(a, ctx.asnSize, record), out.contents),
                   "written set not built again");
    out.set = Routing::Bgp::PathAttributes::dedupContent(
        &Routing::Bgp::PathAttributesDedupTable::instance(), out.contents);
}

// b is a as passed on: the same but for Partial set on the unknown transitive attributes.
inline bool samePassedOn(const Routing::Bgp::PathAttributesContents& a,
                         const Routing::Bgp::PathAttributesContents& b) {
    Routing::Bgp::PathAttributesContents x = a, y = b;
    x.gunkPathAttrListIs(nullptr);
    y.gunkPathAttrListIs(nullptr);
    if (!(x == y) || !a.gunkPathAttrList() || !b.gunkPathAttrList()) return false;
    const auto& la = *a.gunkPathAttrList();
    const auto& lb = *b.gunkPathAttrList();
    if (la.gunkCount() != lb.gunkCount()) return false;
    for (auto i = la.begin(), j = lb.begin(); i != la.end(); ++i, ++j) {
        const Routing::Bgp::GunkPathAttr& g = *i->get();
        const Routing::Bgp::GunkPathAttr& h = *j->get();
        const uint8_t passed = g.transitive() ? g.attrFlags() | 0x20 : g.attrFlags();
        if (g.attrType() != h.attrType() || h.attrFlags() != passed ||
            !std::ranges::equal(g.gunkAttrData(), h.gunkAttrData()))
            return false;
    }
    return true;
}

} // namespace RoundTripFuzz

inline void attributeRoundTrip(std::span<const uint8_t> data) {
    using namespace RoundTripFuzz;
    using Routing::Bgp::PathAttributes;
    if (data.empty()) return;
    Census::AttributeContext ctx;
    ctx.asnSize = (data[0] & 1) ? 4 : 2;
    ctx.addPath = data[0] & 2;
    const std::span<const uint8_t> section = data.subspan(1);
    const Census::MrtRecord record;

    Census::AttributeDecoder firstDecoder;
    const Census::DecodedAttributes& first = firstDecoder.decode(section, ctx);
    const Census::DecodedPath firstPath = pathOf(first, ctx.asnSize, record);
    Census::ContentsBuilder builder;
    Routing::Bgp::PathAttributesContents contents;
    if (!builder.build(firstPath, contents)) return;
    auto& table = Routing::Bgp::PathAttributesDedupTable::instance();
    const Mel::PtrConst<PathAttributes> set = PathAttributes::dedupContent(&table, contents);
    ORV_FUZZ_CHECK(set, "no set interned");
    Census::RoundTrip().check(firstPath, *set);

    const bool writeNextHop = !Census::nextHopFromMpReach(firstPath);
    Pass second;
    writeAndRead(*set, first, ctx, writeNextHop, record, builder, second);
    if (second.set.get() != set.get()) {
        ORV_FUZZ_CHECK(samePassedOn(contents, second.contents),
                       "second decode gives another set: " + Routing::Bgp::valueToStrep(contents) +
                           " then " + Routing::Bgp::valueToStrep(second.contents) + "; written " +
                           hexOf(second.again));
        Pass third;
        writeAndRead(*second.set, first, ctx, writeNextHop, record, builder, third);
        ORV_FUZZ_CHECK(
            third.set.get() == second.set.get(),
            "third decode gives another set: " + Routing::Bgp::valueToStrep(second.contents) +
                " then " + Routing::Bgp::valueToStrep(third.contents));
        return;
    }
    Routing::Bgp::AttrSetStringStore again;
    set->serializeInternal(&again, ctx.asnSize == 4, true, writeNextHop);
    ORV_FUZZ_CHECK(again.str() == second.written.str(), "written differently the second time");
}

} // namespace OrvFuzz
