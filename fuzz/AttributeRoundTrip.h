// Fuzz target over received attribute sections: decode (the census decoder), build the contents
// and intern the set (ContentsBuilder), write the set back (serializeInternal), decode that again
// and build again. The second decode must give the same set, and writing it the same bytes.
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
#include "OrvBgp/PathAttributesSerializeStore.h"

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

    const bool fourByte = ctx.asnSize == 4;
    const bool writeNextHop = !Census::nextHopFromMpReach(firstPath);
    Routing::Bgp::AttrSetStringStore written;
    set->serializeInternal(&written, fourByte, true, writeNextHop);

    std::vector<uint8_t> again(written.str().begin(), written.str().end());
    for (const Census::PathAttribute& attr : first.list)
        if (attr.type == Census::AttrType::kMpReach && first.has(attr.type)) {
            again.insert(again.end(), attr.wire.begin(), attr.wire.end());
            break;
        }
    Census::AttributeDecoder secondDecoder;
    const Census::DecodedAttributes& second = secondDecoder.decode(again, ctx);
    std::string issues;
    for (const Census::AttributeIssue& i : second.issues)
        issues += " type " + std::to_string(i.type) + " " + Census::malformationName(i.what);
    ORV_FUZZ_CHECK(second.issues.empty(), "what the set wrote decodes with issues:" + issues +
                                              "; written " + hexOf(again));
    const Census::DecodedPath secondPath = pathOf(second, ctx.asnSize, record);
    Routing::Bgp::PathAttributesContents contentsAgain;
    ORV_FUZZ_CHECK(builder.build(secondPath, contentsAgain), "written set not built again");
    const Mel::PtrConst<PathAttributes> setAgain =
        PathAttributes::dedupContent(&table, contentsAgain);
    ORV_FUZZ_CHECK(setAgain.get() == set.get(),
                   "second decode gives another set: " + Routing::Bgp::valueToStrep(contents) +
                       " then " + Routing::Bgp::valueToStrep(contentsAgain) + "; written " +
                       hexOf(again));
    Routing::Bgp::AttrSetStringStore writtenAgain;
    setAgain->serializeInternal(&writtenAgain, fourByte, true, writeNextHop);
    ORV_FUZZ_CHECK(writtenAgain.str() == written.str(), "written differently the second time");
}

} // namespace OrvFuzz
