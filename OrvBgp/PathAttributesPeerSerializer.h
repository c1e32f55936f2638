// An attribute set written for one peer: the AS path with or without the local AS, AS4_PATH and
// AS4_AGGREGATOR for a 2-byte peer, LOCAL_PREF and the reflection attributes only where the peer
// may see them.
//   PathAttributesPeer peer;
//   peer.fourByteAsIs(false).localAsIs(65001).nextHopIs(Orvnet::IpAddr::fromString("192.0.2.1"));
//   Serialize out;  PathAttributesPeerSerializer::serialize(*set, peer, out);   // set: inbound or
//                                                                                // outbound tier
//
// What this writer does, and what it leaves to the agent, of what a speaker's outgoing UPDATE must
// be (RFC 4271, 5065, 6793):
// - Here: ascending type codes; ORIGIN and AS_PATH always (an empty AS_PATH where the set holds
//   none); the local AS prepended by the peer's type; AS4_PATH from the ordinary segments only and
//   AS4_AGGREGATOR to a 2-byte peer when an AS number did not fit; our confederation member AS in
//   AGGREGATOR replaced by the confederation identifier toward peers outside the confederation;
//   LOCAL_PREF only to internal and confederation peers; ORIGINATOR_ID and CLUSTER_LIST only to
//   internal peers; the IPv4 NEXT_HOP the peer description names.
// - The agent: which routes a peer gets and the attributes export policy sets (a LOCAL_PREF for
//   internal peers when the set holds none, not passing on a MED received from another AS, the
//   reflector's own cluster id and ORIGINATOR_ID, AIGP and ATTR_SET only inside their domain,
//   private AS removal); the next hop of other families in MP_REACH_NLRI, and MP_UNREACH_NLRI;
//   the UPDATE framing, the withdrawn routes and NLRI, and keeping a message within its size.
#pragma once

#include "Mel/ValueType.h"
#include "Orvnet/AutonomousSystem.h"
#include "Orvnet/IpAddr.h"
#include "Serialize/Serialize.h"

#include <cstdint>
#include <string>

namespace Routing::Bgp {

class PathAttributesInterface;
class PathAttributesSerializeStoreMethodBase;

// The peer a set is written for. An internal peer shares our AS (our member AS inside a
// confederation); a confederation peer is an external peer in another member AS of our
// confederation; any other external peer sees confedId (when set) as our AS.
class PathAttributesPeer {
public:
    // Where the IPv4 NEXT_HOP attribute comes from: none (the next hop travels in MP_REACH_NLRI,
    // which the agent writes), the set's own next hop (when it is IPv4), or the address given.
    enum class NextHop : uint8_t { none, fromSet, address };
    BOOST_DESCRIBE_NESTED_ENUM(NextHop, none, fromSet, address)

    bool fourByteAs() const noexcept { return fourByteAs_; }
    PathAttributesPeer& fourByteAsIs(bool v) noexcept {
        fourByteAs_ = v;
        return *this;
    }
    bool internal() const noexcept { return internal_; }
    PathAttributesPeer& internalIs(bool v) noexcept {
        internal_ = v;
        return *this;
    }
    bool confedPeer() const noexcept { return confedPeer_; }
    PathAttributesPeer& confedPeerIs(bool v) noexcept {
        confedPeer_ = v;
        return *this;
    }
    // Our AS: the member AS when we are in a confederation.
    Orvnet::AutonomousSystem localAs() const noexcept { return localAs_; }
    PathAttributesPeer& localAsIs(Orvnet::AutonomousSystem v) noexcept {
        localAs_ = v;
        return *this;
    }
    // Our confederation's identifier; 0 when we are in none.
    Orvnet::AutonomousSystem confedId() const noexcept { return confedId_; }
    PathAttributesPeer& confedIdIs(Orvnet::AutonomousSystem v) noexcept {
        confedId_ = v;
        return *this;
    }
    bool prependOwnDisabled() const noexcept { return prependOwnDisabled_; }
    PathAttributesPeer& prependOwnDisabledIs(bool v) noexcept {
        prependOwnDisabled_ = v;
        return *this;
    }
    NextHop nextHopMode() const noexcept { return nextHopMode_; }
    Orvnet::IpAddr nextHop() const noexcept { return nextHop_; }
    // Writes this address as NEXT_HOP (mode address).
    PathAttributesPeer& nextHopIs(Orvnet::IpAddr a) noexcept {
        nextHopMode_ = NextHop::address;
        nextHop_ = a;
        return *this;
    }
    PathAttributesPeer& nextHopModeIs(NextHop m) noexcept {
        nextHopMode_ = m;
        return *this;
    }

    // The AS the peer sees as ours: the confederation identifier toward an external peer outside
    // the confederation, else the local AS.
    Orvnet::AutonomousSystem advertisedAs() const noexcept {
        return !internal_ && !confedPeer_ && confedId_.value() != 0 ? confedId_ : localAs_;
    }
    // Whether LOCAL_PREF goes to this peer.
    bool seesLocalPref() const noexcept { return internal_ || confedPeer_; }

    std::string toStrep() const;
    friend bool operator==(const PathAttributesPeer&, const PathAttributesPeer&) = default;

private:
    bool fourByteAs_ = true;
    bool internal_ = false;
    bool confedPeer_ = false;
    bool prependOwnDisabled_ = false;
    NextHop nextHopMode_ = NextHop::none;
    Orvnet::AutonomousSystem localAs_;
    Orvnet::AutonomousSystem confedId_;
    Orvnet::IpAddr nextHop_;

    MEL_VALUE_TYPE(PathAttributesPeer, "Routing::Bgp::PathAttributesPeer",
                   (fourByteAs_, internal_, confedPeer_, localAs_, confedId_, prependOwnDisabled_,
                    nextHopMode_, nextHop_))
};

class PathAttributesPeerSerializer {
public:
    // Every attribute of the set as this peer gets it, in ascending type code, one store call per
    // attribute. The set may be of any tier, inbound or outbound. An external peer needs a local
    // AS: its absence is the AS path serializer's assertion "peerInternal". A value too long for
    // its attribute is refused by the attribute header writer, and that reaches the caller.
    static void serialize(const PathAttributesInterface& set, const PathAttributesPeer& peer,
                          PathAttributesSerializeStoreMethodBase& store);
    // The same attributes appended back to back to out. Without a heap allocation while they fit
    // out's inline room, except for the tunnel, segment-routing and ATTR_SET attributes, which
    // their own serializers hand over as byte strings.
    static void serialize(const PathAttributesInterface& set, const PathAttributesPeer& peer,
                          Serialize& out);
};

} // namespace Routing::Bgp
