// Hand-made attribute sections (tests/data/ContentsBuilder/sections.txt) decoded as the census
// decoder decodes them, each as one received path.
//   census_test::Received r("every_common_type");   builder.build(r.path(), contents);
//   census_test::Received v6("mp_reach_link_local", 4, Census::PathSource::MpReach,
//   Census::kAfiIpv6);
#pragma once

#include "census/MrtDecoder.h"
#include "support/TsharkHelpers.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace census_test {

inline const std::map<std::string, std::vector<uint8_t>>& sections() {
    static const auto vectors =
        OrvTest::readWireVectors(std::string(ORV_TEST_DATA_DIR) + "/ContentsBuilder/sections.txt");
    return vectors;
}

class Received {
public:
    explicit Received(const std::string& name, uint8_t asnSize = 4,
                      Census::PathSource source = Census::PathSource::NlriField,
                      uint16_t afi = Census::kAfiIpv4)
        : Received(sections().at(name), asnSize, source, afi) {}
    Received(std::vector<uint8_t> bytes, uint8_t asnSize, Census::PathSource source, uint16_t afi)
        : bytes_(std::move(bytes)) {
        Census::AttributeContext ctx;
        ctx.asnSize = asnSize;
        const Census::DecodedAttributes& a = decoder_.decode(bytes_, ctx);
        path_.source = source;
        path_.asnSize = asnSize;
        path_.afi = afi;
        path_.attributes = &a;
        path_.action = a.action;
        // As the MRT decoder rules: an announcement without ORIGIN or AS_PATH, or an IPv4 one in
        // the NLRI field without NEXT_HOP, is not usable.
        using Census::AttrType::kAsPath, Census::AttrType::kNextHop, Census::AttrType::kOrigin;
        if (!a.has(kOrigin) || !a.has(kAsPath) ||
            (source == Census::PathSource::NlriField && !a.has(kNextHop)))
            path_.action = Census::worse(path_.action, Census::ErrorAction::TreatAsWithdraw);
    }
    Received(const Received&) = delete;
    Received& operator=(const Received&) = delete;

    const Census::DecodedPath& path() const noexcept { return path_; }
    const Census::DecodedAttributes& attributes() const noexcept { return *path_.attributes; }

private:
    std::vector<uint8_t> bytes_;
    Census::AttributeDecoder decoder_;
    Census::DecodedPath path_;
};

} // namespace census_test
