// Path attribute type codes, as written in the attribute header.
//   SerializePathAttribute(s, BgpPathAttrType::aigp_, 0x80, 11);
//   ORV_ASSERT(BgpPathAttrType::asPath_ == type || BgpPathAttrType::as4Path_ == type);
#pragma once

#include <cstdint>

namespace Routing::Bgp {

// Constants in a struct rather than an enum: they compare with the plain uint8_t type arguments the
// serializers take, without casts, and add no names to the namespace.
struct BgpPathAttrType {
    static constexpr uint8_t origin_ = 1;
    static constexpr uint8_t asPath_ = 2;
    static constexpr uint8_t nextHop_ = 3;
    static constexpr uint8_t med_ = 4;
    static constexpr uint8_t localPref_ = 5;
    static constexpr uint8_t atomicAggregate_ = 6;
    static constexpr uint8_t aggregator_ = 7;
    static constexpr uint8_t communities_ = 8;
    static constexpr uint8_t originatorId_ = 9;
    static constexpr uint8_t clusterList_ = 10;
    static constexpr uint8_t mpReachNlri_ = 14;
    static constexpr uint8_t mpUnreachNlri_ = 15;
    static constexpr uint8_t extCommunities_ = 16;
    static constexpr uint8_t as4Path_ = 17;
    static constexpr uint8_t as4Aggregator_ = 18;
    static constexpr uint8_t pmsiTunnel_ = 22;
    static constexpr uint8_t tunnelEncap_ = 23;
    static constexpr uint8_t ip6ExtCommunities_ = 25;
    static constexpr uint8_t aigp_ = 26;
    static constexpr uint8_t linkState_ = 29;
    static constexpr uint8_t largeCommunities_ = 32;
    static constexpr uint8_t dPath_ = 36;
    static constexpr uint8_t prefixSid_ = 40;
    static constexpr uint8_t attrSet_ = 128;
};

} // namespace Routing::Bgp
