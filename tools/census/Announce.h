// --announce: the final table of one peer of an MRT file, sent to a real BGP speaker over one
// session, with every attribute set written by the library for that speaker.
//   Census::AnnounceOptions o;  o.host = "127.0.0.1";  o.port = 1790;  o.localAs = 65001;
//   o.peerAs = 65002;  o.file = "bview.20020722.2337.gz";
//   Census::AnnounceResult r = Census::announceTable(o);   // r.ok, r.routes, r.updates, r.bytes
//
// Choices made here:
// - The peer's type follows from the AS numbers: peerAs equal to localAs is an internal peer; with
//   confedId, any other peerAs is another member AS of our confederation (a confederation peer);
//   without it, an external peer. Our OPEN carries localAs (AS_TRANS in the 2-byte field above
//   65535).
// - The next hop is ourselves where the session's family allows: the local IPv4 address as
//   NEXT_HOP over an IPv4 session, the local IPv6 address in MP_REACH_NLRI over an IPv6 one. The
//   other family keeps the next hop the dump gave the route (speakers refuse an IPv4-mapped IPv6
//   next hop without the extended next hop capability).
// - One path per prefix: the peer's last announcement of it (path ids are not sent); prefixes
//   are sent with their host bits cleared. IPv6 routes are sent only when the speaker's OPEN
//   offers IPv6 unicast and a next hop is at hand; others are counted as not sent.
// - The session is closed with a Cease NOTIFICATION (administrative shutdown) once End-of-RIB is
//   sent, the speaker's TCP has taken every byte and a second has passed without a NOTIFICATION,
//   and whileOpen (if any) has returned; the speaker then drops the routes, as it should.
#pragma once

#include "census/Prefix.h"

#include "Mel/Ptr.h"
#include "OrvBgp/BgpPathAttributes.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Census {

// One peer's final table in an MRT file: announcements replace, withdrawals and paths RFC 7606
// has withdrawn remove; one path per prefix (path ids dropped), prefixes with host bits cleared.
struct AnnounceTable {
    std::string peer;    // "address AS n"
    std::string address; // the peer's address as --from-peer names it
    std::vector<std::pair<Prefix, Mel::PtrConst<Routing::Bgp::PathAttributes>>> routes;
};
// The table of fromPeer, or of the peer with the most routes when it is empty; false with error
// when the file cannot be read to its end or holds no such peer.
bool loadAnnounceTable(const std::string& file, const std::string& fromPeer, AnnounceTable& out,
                       std::string& error);

struct AnnounceOptions {
    std::string host; // numeric address or name; only its first address is used
    uint16_t port = 179;
    uint32_t localAs = 0;
    uint32_t peerAs = 0;
    uint32_t confedId = 0;  // 0: not in a confederation
    bool twoByteAs = false; // do not offer the 4-octet AS capability
    std::string fromPeer;   // address of the dump's peer to send; empty: the one with most routes
    std::string file;
    uint16_t holdTime = 90;
    double timeoutSeconds =
        30; // connecting, and each wait for the speaker during the OPEN exchange
    // Called on another thread after End-of-RIB, while this one keeps the session up (KEEPALIVEs,
    // watching for a NOTIFICATION); the session closes when it returns.
    std::function<void()> whileOpen;
    std::FILE* log = nullptr; // progress lines, or null
};

struct AnnounceResult {
    bool ok = false;
    std::string error; // what failed, when not ok
    std::string peer;  // the dump's peer whose table was sent: address and AS
    uint64_t tableRoutes = 0;
    uint64_t updates = 0; // UPDATEs sent, End-of-RIB markers included
    uint64_t routes = 0;  // prefixes sent
    uint64_t bytes = 0;   // bytes of all BGP messages sent
    // Routes not sent: of a family the speaker did not offer or without a next hop for it, or of
    // a set that cannot be written (a value too long for its attribute, or over one UPDATE).
    uint64_t skipped = 0;
    double seconds = 0; // from the first UPDATE to the last End-of-RIB
    // A NOTIFICATION received: its code and subcode, their names, and the UPDATE (hex, whole
    // message) most likely to have provoked it.
    bool notification = false;
    uint8_t code = 0, subcode = 0;
    std::string notificationText;
    std::string provokingUpdate;
};

AnnounceResult announceTable(const AnnounceOptions& opts);

// "Cease / Administrative Shutdown" for 6, 2; numbers for codes RFC 4271 and its updates do not
// name.
std::string notificationName(uint8_t code, uint8_t subcode);

// True when argv asks for --announce; announceMain then parses the whole command line.
bool wantsAnnounce(int argc, const char* const* argv);
// Exit status: 0 when the table went out and the session closed cleanly, 1 on a NOTIFICATION or
// a failed connection or file, 2 for a usage error.
int announceMain(int argc, const char* const* argv, std::FILE* out, std::FILE* err);

} // namespace Census
