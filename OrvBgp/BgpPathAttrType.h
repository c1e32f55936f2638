// BGP path attribute type codes, as the attribute writers name them.
//   if (BgpPathAttrType::as4Path_ == type) ...;
//   SerializePathAttribute(s, BgpPathAttrType::clusterList_, pathAttrFlagOptional, len);
#pragma once

#include <cstdint>

namespace Routing::Bgp {

// A plain (unscoped) enumeration inside a struct: the codes compare directly with the uint8_t type
// fields of the wire and read as BgpPathAttrType::asPath_ at the call site.
struct BgpPathAttrType {
    enum Value : uint8_t {
        origin_ = 1,
        asPath_ = 2,
        nextHop_ = 3,
        med_ = 4,
        localPref_ = 5,
        atomicAggregate_ = 6,
        aggregator_ = 7,
        communities_ = 8,
        originatorId_ = 9,
        clusterList_ = 10,
        mpReachNlri_ = 14,
        mpUnreachNlri_ = 15,
        extCommunities_ = 16,
        as4Path_ = 17,
        as4Aggregator_ = 18,
        pmsiTunnel_ = 22,
        tunnelEncap_ = 23,
        ip6ExtCommunities_ = 25,
        aigp_ = 26,
        largeCommunities_ = 32,
        dPath_ = 36,
        prefixSid_ = 40,
        attrSet_ = 128,
    };
};

} // namespace Routing::Bgp
