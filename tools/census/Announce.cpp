#include "census/Announce.h"

#include "census/BgpSession.h"
#include "census/Cli.h"
#include "census/ContentsBuilder.h"
#include "census/MrtDecoder.h"

#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/OrvBgpNexthop.h"
#include "OrvBgp/PathAttributesPeerSerializer.h"
#include "OrvBgp/PathAttributesSerializeStore.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstring>
#include <deque>
#include <exception>
#include <map>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

namespace Census {

namespace {

using Routing::Bgp::PathAttributes;
using InSet = Mel::PtrConst<PathAttributes>;

// A prefix with its host bits cleared, as a map key: family, length, address bytes.
struct RouteKey {
    uint8_t family = 0;
    uint8_t length = 0;
    std::array<uint8_t, 16> bytes{};
    bool operator==(const RouteKey&) const = default;

    static RouteKey of(const Prefix& p) {
        RouteKey k;
        k.family = p.address.family;
        const unsigned maxLen = k.family == 4 ? 32 : 128;
        k.length = uint8_t(std::min<unsigned>(p.length, maxLen));
        for (unsigned i = 0; i < maxLen / 8; ++i) {
            const unsigned bit = i * 8;
            if (bit >= k.length) break;
            const unsigned keep = std::min(8u, k.length - bit);
            k.bytes[i] = uint8_t(p.address.bytes[i] & (0xff00u >> keep));
        }
        return k;
    }
};
struct RouteKeyHash {
    size_t operator()(const RouteKey& k) const noexcept {
        return std::hash<std::string_view>()(
            std::string_view(reinterpret_cast<const char*>(&k), sizeof k));
    }
};

struct PeerTableOfRoutes {
    std::string name; // "address AS n"
    std::string address;
    std::unordered_map<RouteKey, InSet, RouteKeyHash> routes;
};

// Every peer's table as the file leaves it: announcements replace, withdrawals and unusable paths
// remove.
class TableCollector : public MrtHandler {
public:
    void onUpdate(const DecodedUpdate&) override { cached_ = false; }
    void onPath(const DecodedPath& p) override {
        if (p.safi != kSafiUnicast) return;
        if (p.prefix.address.family != 4 && p.prefix.address.family != 6) return;
        PeerTableOfRoutes& t = peer(p.peer);
        const RouteKey key = RouteKey::of(p.prefix);
        if (p.withdrawal() || !p.usable()) {
            t.routes.erase(key);
            return;
        }
        if (p.source == PathSource::RibEntry || !cached_ || cachedSource_ != p.source) {
            set_ = builder_.intern(p);
            cached_ = p.source != PathSource::RibEntry;
            cachedSource_ = p.source;
        }
        if (set_)
            t.routes[key] = set_;
        else
            t.routes.erase(key);
    }

    std::map<std::string, PeerTableOfRoutes>& peers() noexcept { return peers_; }
    void clearCache() { set_ = InSet(); }

private:
    PeerTableOfRoutes& peer(const Peer& p) {
        std::string address = p.address.toString();
        std::string name = address + " AS " + std::to_string(p.as);
        auto [it, added] = peers_.try_emplace(name);
        if (added) {
            it->second.name = name;
            it->second.address = address;
        }
        return it->second;
    }

    ContentsBuilder builder_;
    std::map<std::string, PeerTableOfRoutes> peers_;
    InSet set_;
    bool cached_ = false;
    PathSource cachedSource_ = PathSource::RibEntry;
};

// Collects a set's attributes back to back and remembers where the first one above
// MP_REACH_NLRI (type 14) starts, so that MP_REACH_NLRI can go in between in type order.
class SplitStore : public Routing::Bgp::PathAttributesSerializeStoreMethodBase {
public:
    std::vector<uint8_t> bytes;
    size_t split = std::string::npos;

protected:
    void storeAttribute(uint8_t type, std::span<const uint8_t> attribute) override {
        if (type > 14 && split == std::string::npos) split = bytes.size();
        bytes.insert(bytes.end(), attribute.begin(), attribute.end());
    }
};

void appendNlri(std::vector<uint8_t>& out, const RouteKey& k) {
    out.push_back(k.length);
    out.insert(out.end(), k.bytes.begin(), k.bytes.begin() + (k.length + 7) / 8);
}

size_t nlriSize(const RouteKey& k) {
    return 1 + (k.length + 7) / 8;
}

std::string hex(std::span<const uint8_t> b) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    s.reserve(b.size() * 2);
    for (uint8_t x : b) {
        s += digits[x >> 4];
        s += digits[x & 15];
    }
    return s;
}

} // namespace

bool loadAnnounceTable(const std::string& file, const std::string& fromPeer, AnnounceTable& out,
                       std::string& error) {
    TableCollector collector;
    FileResult fr = readMrtFile(file, collector);
    collector.clearCache();
    if (!fr.ok) {
        error = fr.error;
        return false;
    }
    PeerTableOfRoutes* table = nullptr;
    for (auto& [name, t] : collector.peers()) {
        if (!fromPeer.empty() ? t.address == fromPeer
                              : !table || t.routes.size() > table->routes.size())
            table = &t;
        if (table && !fromPeer.empty()) break;
    }
    if (!table) {
        error = fromPeer.empty() ? file + ": no routes" : file + ": no peer " + fromPeer;
        return false;
    }
    out.peer = table->name;
    out.address = table->address;
    out.routes.clear();
    out.routes.reserve(table->routes.size());
    for (auto& [key, set] : table->routes) {
        Prefix p;
        p.address.family = key.family;
        p.address.bytes = key.bytes;
        p.length = key.length;
        out.routes.emplace_back(p, std::move(set));
    }
    return true;
}

std::string notificationName(uint8_t code, uint8_t subcode) {
    static const char* const codes[] = {nullptr,
                                        "Message Header Error",
                                        "OPEN Message Error",
                                        "UPDATE Message Error",
                                        "Hold Timer Expired",
                                        "Finite State Machine Error",
                                        "Cease",
                                        "ROUTE-REFRESH Message Error"};
    static const char* const header[] = {nullptr, "Connection Not Synchronized",
                                         "Bad Message Length", "Bad Message Type"};
    static const char* const open[] = {nullptr,
                                       "Unsupported Version Number",
                                       "Bad Peer AS",
                                       "Bad BGP Identifier",
                                       "Unsupported Optional Parameter",
                                       nullptr,
                                       "Unacceptable Hold Time",
                                       "Unsupported Capability",
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       "Role Mismatch"};
    static const char* const update[] = {nullptr,
                                         "Malformed Attribute List",
                                         "Unrecognized Well-known Attribute",
                                         "Missing Well-known Attribute",
                                         "Attribute Flags Error",
                                         "Attribute Length Error",
                                         "Invalid ORIGIN Attribute",
                                         nullptr,
                                         "Invalid NEXT_HOP Attribute",
                                         "Optional Attribute Error",
                                         "Invalid Network Field",
                                         "Malformed AS_PATH"};
    static const char* const cease[] = {nullptr,
                                        "Maximum Number of Prefixes Reached",
                                        "Administrative Shutdown",
                                        "Peer De-configured",
                                        "Administrative Reset",
                                        "Connection Rejected",
                                        "Other Configuration Change",
                                        "Connection Collision Resolution",
                                        "Out of Resources",
                                        "Hard Reset",
                                        "BFD Down"};
    auto pick = [](const char* const* names, size_t n, uint8_t i) -> const char* {
        return i < n ? names[i] : nullptr;
    };
    const char* c = pick(codes, std::size(codes), code);
    const char* s = nullptr;
    switch (code) {
    case 1:
        s = pick(header, std::size(header), subcode);
        break;
    case 2:
        s = pick(open, std::size(open), subcode);
        break;
    case 3:
        s = pick(update, std::size(update), subcode);
        break;
    case 6:
        s = pick(cease, std::size(cease), subcode);
        break;
    default:
        break;
    }
    std::string out = c ? c : "code " + std::to_string(code);
    out += " / ";
    out += s ? s : (subcode == 0 ? "Unspecific" : "subcode " + std::to_string(subcode));
    return out;
}

AnnounceResult announceTable(const AnnounceOptions& o) {
    AnnounceResult r;
    using Clock = std::chrono::steady_clock;

    // The table first: a file that cannot be read costs no session.
    AnnounceTable table;
    if (!loadAnnounceTable(o.file, o.fromPeer, table, r.error)) return r;
    r.peer = table.peer;
    r.tableRoutes = table.routes.size();
    if (o.log)
        std::fprintf(o.log, "announce: %s: table of %s, %llu routes\n", o.file.c_str(),
                     r.peer.c_str(), static_cast<unsigned long long>(r.tableRoutes));

    // The prefixes of each set together, sets in order of first appearance.
    struct Group {
        const PathAttributes* set;
        std::vector<RouteKey> v4, v6;
    };
    std::vector<Group> groups;
    {
        std::unordered_map<const PathAttributes*, size_t> index;
        for (const auto& [prefix, set] : table.routes) {
            auto [it, added] = index.try_emplace(set.get(), groups.size());
            if (added) groups.push_back({set.get(), {}, {}});
            const RouteKey key = RouteKey::of(prefix);
            (key.family == 4 ? groups[it->second].v4 : groups[it->second].v6).push_back(key);
        }
    }

    BgpSession session;
    BgpSession::Config sc;
    sc.host = o.host;
    sc.port = o.port;
    sc.localAs = o.localAs;
    sc.peerAs = o.peerAs;
    sc.fourByteAs = !o.twoByteAs;
    sc.holdTime = o.holdTime;
    sc.timeoutSeconds = o.timeoutSeconds;
    auto fail = [&](std::string what) {
        r.ok = false;
        r.error = std::move(what);
        if (session.notification()) {
            const BgpSession::Notification& n = *session.notification();
            r.notification = true;
            r.code = n.code;
            r.subcode = n.subcode;
            r.notificationText = notificationName(n.code, n.subcode);
            if (!n.data.empty()) r.notificationText += ", data " + hex(n.data);
            r.provokingUpdate = hex(session.likelyCause(n));
        }
        session.close();
        return r;
    };
    if (!session.open(sc)) return fail(session.error());
    if (o.log)
        std::fprintf(o.log, "announce: session up with %s (AS %u), %s AS numbers\n",
                     session.peerName().c_str(), o.peerAs,
                     session.fourByteAs() ? "4-byte" : "2-byte");

    Routing::Bgp::PathAttributesPeer peer;
    peer.fourByteAsIs(session.fourByteAs())
        .internalIs(o.peerAs == o.localAs)
        .confedPeerIs(o.confedId != 0 && o.peerAs != o.localAs)
        .localAsIs(o.localAs)
        .confedIdIs(o.confedId);
    Routing::Bgp::PathAttributesPeer peer4 = peer, peer6 = peer;
    if (session.localAddress().isV4())
        peer4.nextHopIs(Orvnet::IpAddr::fromHostOrder(session.localAddress().v4Value()));
    else
        peer4.nextHopModeIs(Routing::Bgp::PathAttributesPeer::NextHop::fromSet);
    const bool v6Session = session.localAddress().isV6();

    const Clock::time_point t0 = Clock::now();
    std::vector<uint8_t> body;
    SplitStore attrs;
    for (const Group& g : groups) {
        for (int family : {4, 6}) {
            const auto& prefixes = family == 4 ? g.v4 : g.v6;
            if (prefixes.empty()) continue;
            // IPv6: our own address over an IPv6 session, else the set's own IPv6 next hop.
            std::array<uint8_t, 16> nextHop6{};
            if (family == 6 && v6Session) {
                nextHop6 = session.localAddress().bytes;
            } else if (family == 6) {
                const Routing::Bgp::GenNexthop* nh = g.set->nextHopGet().get();
                const Orvnet::IpGenAddr a = nh ? nh->addrOrNone() : Orvnet::IpGenAddr();
                if (a.isV6()) std::memcpy(nextHop6.data(), a.data(), 16);
            }
            if (family == 6 && (!session.ipv6() || nextHop6 == std::array<uint8_t, 16>{})) {
                r.skipped += prefixes.size();
                continue;
            }
            attrs.bytes.clear();
            attrs.split = std::string::npos;
            try {
                Routing::Bgp::PathAttributesPeerSerializer::serialize(
                    *g.set, family == 4 ? peer4 : peer6, attrs);
            } catch (const std::exception&) {
                // A value longer than an attribute can carry: the set cannot be sent as held.
                r.skipped += prefixes.size();
                continue;
            }
            // Room for NLRI: the message less header (19), the two length fields (4), the
            // attributes and, for IPv6, MP_REACH_NLRI's own header and fields (4 + 5 + 16).
            const size_t fixed =
                BgpSession::kHeaderSize + 4 + attrs.bytes.size() + (family == 6 ? 25 : 0);
            if (fixed + 17 > BgpSession::kMaxMessage) {
                r.skipped += prefixes.size();
                continue;
            }
            const size_t room = BgpSession::kMaxMessage - fixed;
            size_t i = 0;
            while (i < prefixes.size()) {
                std::vector<uint8_t> nlri;
                size_t n = 0;
                while (i < prefixes.size() && nlri.size() + nlriSize(prefixes[i]) <= room) {
                    appendNlri(nlri, prefixes[i++]);
                    ++n;
                }
                body.clear();
                body.push_back(0); // no withdrawn routes
                body.push_back(0);
                const size_t split = std::min(attrs.split, attrs.bytes.size());
                const size_t attrLen =
                    attrs.bytes.size() + (family == 6 ? 9 + 16 + nlri.size() : 0);
                body.push_back(uint8_t(attrLen >> 8));
                body.push_back(uint8_t(attrLen));
                if (family == 4) {
                    body.insert(body.end(), attrs.bytes.begin(), attrs.bytes.end());
                    body.insert(body.end(), nlri.begin(), nlri.end());
                } else {
                    body.insert(body.end(), attrs.bytes.begin(), attrs.bytes.begin() + split);
                    const size_t mpLen = 5 + 16 + nlri.size();
                    body.insert(body.end(),
                                {0x90, 14, uint8_t(mpLen >> 8), uint8_t(mpLen), 0, 2, 1, 16});
                    body.insert(body.end(), nextHop6.begin(), nextHop6.end());
                    body.push_back(0);
                    body.insert(body.end(), nlri.begin(), nlri.end());
                    body.insert(body.end(), attrs.bytes.begin() + split, attrs.bytes.end());
                }
                if (!session.sendUpdate(body)) return fail(session.error());
                r.routes += n;
            }
        }
    }
    // End-of-RIB: an empty UPDATE for IPv4, an empty MP_UNREACH_NLRI for IPv6.
    if (!session.sendUpdate({0, 0, 0, 0})) return fail(session.error());
    if (session.ipv6() && !session.sendUpdate({0, 0, 0, 6, 0x80, 15, 3, 0, 2, 1}))
        return fail(session.error());
    r.seconds = std::chrono::duration<double>(Clock::now() - t0).count();
    r.updates = session.updatesSent();
    r.bytes = session.bytesSent();
    if (o.log)
        std::fprintf(o.log, "announce: End-of-RIB sent after %llu routes\n",
                     static_cast<unsigned long long>(r.routes));

    if (!session.settle()) return fail(session.error());
    if (o.whileOpen) {
        std::atomic<bool> done{false};
        std::thread t([&] {
            o.whileOpen();
            done = true;
        });
        bool up = session.serviceUntil([&] { return done.load(); });
        t.join();
        if (!up) return fail(session.error());
    }
    r.bytes = session.bytesSent();
    session.shutdown();
    r.ok = true;
    return r;
}

// ---- command line ------------------------------------------------------------------------------

namespace {

const char kAnnounceUsage[] =
    "usage: bgp-attr-census --announce HOST[:PORT] --local-as AS --peer-as AS [--two-byte-as]\n"
    "                       [--confed-id AS] [--from-peer ADDR] [--linger SECONDS] FILE\n"
    "  Sends the final table of one peer of FILE to the BGP speaker at HOST (port 179 by\n"
    "  default; [v6]:PORT for IPv6) over one session, then End-of-RIB, and closes it.\n"
    "  --local-as AS      our AS (our member AS with --confed-id)\n"
    "  --peer-as AS       the speaker's AS: ours for an internal session; with --confed-id any\n"
    "                     other is a member AS of our confederation\n"
    "  --two-byte-as      do not offer 4-byte AS numbers (AS_PATH with AS4_PATH)\n"
    "  --confed-id AS     our confederation's identifier\n"
    "  --from-peer ADDR   the dump's peer whose table is sent (default: most routes)\n"
    "  --linger SECONDS   keep the session up that long after End-of-RIB\n";

} // namespace

bool wantsAnnounce(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--announce") == 0) return true;
    return false;
}

int announceMain(int argc, const char* const* argv, std::FILE* out, std::FILE* err) {
    AnnounceOptions o;
    o.log = err;
    double linger = 0;
    std::string error;
    bool haveLocal = false, havePeer = false;
    for (int i = 1; i < argc && error.empty(); ++i) {
        const char* a = argv[i];
        auto value = [&]() -> const char* {
            if (i + 1 >= argc) {
                error = std::string(a) + " needs a value";
                return nullptr;
            }
            return argv[++i];
        };
        auto as = [&](uint32_t& v) {
            const char* s = value();
            if (s && (!parseNumber(s, v) || v == 0))
                error = std::string(a) + " wants an AS number 1 to 4294967295, not " + s;
        };
        if (std::strcmp(a, "--announce") == 0) {
            const char* s = value();
            if (!s) break;
            std::string hp = s;
            std::string port;
            if (!hp.empty() && hp[0] == '[') {
                size_t close = hp.find(']');
                if (close == std::string::npos) {
                    error = "--announce: no ] in " + hp;
                    break;
                }
                o.host = hp.substr(1, close - 1);
                if (close + 1 < hp.size()) {
                    if (hp[close + 1] != ':') error = "--announce wants [ADDR]:PORT, not " + hp;
                    port = hp.substr(close + 2);
                }
            } else if (std::count(hp.begin(), hp.end(), ':') == 1) {
                o.host = hp.substr(0, hp.find(':'));
                port = hp.substr(hp.find(':') + 1);
            } else {
                o.host = hp;
            }
            uint32_t p = 0;
            if (!port.empty() && (!parseNumber(port.c_str(), p) || p == 0 || p > 65535))
                error = "--announce: bad port " + port;
            if (p) o.port = uint16_t(p);
            if (o.host.empty()) error = "--announce needs a host";
        } else if (std::strcmp(a, "--local-as") == 0) {
            as(o.localAs);
            haveLocal = true;
        } else if (std::strcmp(a, "--peer-as") == 0) {
            as(o.peerAs);
            havePeer = true;
        } else if (std::strcmp(a, "--confed-id") == 0) {
            as(o.confedId);
        } else if (std::strcmp(a, "--two-byte-as") == 0) {
            o.twoByteAs = true;
        } else if (std::strcmp(a, "--from-peer") == 0) {
            if (const char* s = value()) o.fromPeer = s;
        } else if (std::strcmp(a, "--linger") == 0) {
            const char* s = value();
            char* end = nullptr;
            if (s) linger = std::strtod(s, &end);
            if (s && (end == s || *end || linger < 0 || linger > 86400))
                error = std::string("--linger wants 0 to 86400 seconds, not ") + s;
        } else if (std::strcmp(a, "-h") == 0 || std::strcmp(a, "--help") == 0) {
            std::fputs(kAnnounceUsage, out);
            return 0;
        } else if (std::strcmp(a, "--no-progress") == 0) {
            // accepted for symmetry with a census run; --announce shows no bar
        } else if (a[0] == '-' && a[1] != '\0') {
            error = std::string("unknown option with --announce: ") + a;
        } else if (o.file.empty()) {
            o.file = a;
        } else {
            error = "--announce takes one FILE";
        }
    }
    if (error.empty() && (!haveLocal || !havePeer))
        error = "--announce needs --local-as and --peer-as";
    if (error.empty() && o.file.empty()) error = "--announce needs FILE";
    if (!error.empty()) {
        std::fprintf(err, "bgp-attr-census: %s\n%s", error.c_str(), kAnnounceUsage);
        return 2;
    }
    if (linger > 0)
        o.whileOpen = [linger] {
            std::this_thread::sleep_for(std::chrono::duration<double>(linger));
        };
    AnnounceResult r = announceTable(o);
    if (!r.peer.empty())
        std::fprintf(out, "table of %s: %llu routes\n", r.peer.c_str(),
                     static_cast<unsigned long long>(r.tableRoutes));
    if (r.updates)
        std::fprintf(out,
                     "sent %llu routes in %llu UPDATEs (End-of-RIB included), %llu bytes, in "
                     "%.3f s: %.0f routes/s\n",
                     static_cast<unsigned long long>(r.routes),
                     static_cast<unsigned long long>(r.updates),
                     static_cast<unsigned long long>(r.bytes), r.seconds,
                     r.seconds > 0 ? double(r.routes) / r.seconds : 0.0);
    if (r.skipped)
        std::fprintf(out,
                     "not sent: %llu routes (a family the speaker did not offer, or a set "
                     "too large for one UPDATE)\n",
                     static_cast<unsigned long long>(r.skipped));
    if (!r.ok) {
        std::fprintf(err, "bgp-attr-census: --announce: %s\n", r.error.c_str());
        if (r.notification) {
            std::fprintf(err, "NOTIFICATION %u/%u: %s\n", r.code, r.subcode,
                         r.notificationText.c_str());
            if (!r.provokingUpdate.empty())
                std::fprintf(err, "provoked by the UPDATE %s\n", r.provokingUpdate.c_str());
        }
        return 1;
    }
    std::fprintf(out, "session closed\n");
    return std::fflush(out) == 0 ? 0 : 1;
}

} // namespace Census
