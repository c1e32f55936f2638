// --announce against a real BGP speaker: BIRD 2, started here on a loopback address and a free
// port with a generated configuration, fed one peer's table of a real dump, and asked through its
// own CLI what it holds. Skipped, saying why, when BIRD is not installed or will not start.
#include "census/Announce.h"

#include "CensusTestUtil.h"

#include "OrvBgp/BgpPathAttributesMisc.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace Census;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

std::string findProgram(const char* name) {
    for (const char* dir : {"/usr/sbin", "/usr/bin", "/sbin", "/usr/local/sbin"}) {
        std::string p = std::string(dir) + "/" + name;
        if (::access(p.c_str(), X_OK) == 0) return p;
    }
    return {};
}

// A socket bound to 127.0.0.1 on a port the kernel chose, and that port.
std::pair<int, uint16_t> bindLoopback() {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(0x7f000001);
    socklen_t len = sizeof a;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&a), len) != 0) return {fd, 0};
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    return {fd, ntohs(a.sin_port)};
}

// A port nobody listens on at the moment.
uint16_t freePort() {
    const auto [fd, port] = bindLoopback();
    ::close(fd);
    return port;
}

// Output of a command, bounded by `timeout`.
std::string capture(const std::string& cmd) {
    std::string out;
    std::FILE* p = ::popen(("timeout 120 " + cmd + " 2>&1").c_str(), "r");
    if (!p) return out;
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    ::pclose(p);
    return out;
}

// One BIRD on 127.0.0.2, its files in a directory of its own, stopped by its PID.
class Bird {
public:
    ~Bird() { stop(); }

    // Empty when BIRD runs with the protocol `proto` (named p1); else why it does not.
    std::string start(const std::string& proto, uint16_t port) {
        const std::string bird = findProgram("bird"), birdc = findProgram("birdc");
        if (bird.empty() || birdc.empty()) return "BIRD 2 (bird, birdc) is not installed";
        birdc_ = birdc;
        char tmpl[] = "/tmp/orv-bird-XXXXXX";
        if (!::mkdtemp(tmpl)) return "no temporary directory";
        dir_ = tmpl;
        sock_ = dir_ + "/ctl";
        std::ofstream(dir_ + "/bird.conf")
            << "router id 127.0.0.2;\n"
               "log \""
            << dir_ << "/bird.log\" all;\n"
            << "protocol device { scan time 3600; }\n"
               "protocol bgp p1 {\n"
               "  strict bind on; passive on; multihop; hold time 240;\n"
               "  local 127.0.0.2 port "
            << port << proto
            << "  ipv4 { import all; export none; };\n"
               "  ipv6 { import all; export none; };\n"
               "}\n";
        pid_ = ::fork();
        if (pid_ == 0) {
            int null = ::open((dir_ + "/stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            ::dup2(null, 1);
            ::dup2(null, 2);
            ::execl(bird.c_str(), bird.c_str(), "-f", "-c", (dir_ + "/bird.conf").c_str(), "-s",
                    sock_.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        if (pid_ < 0) return "fork failed";
        const auto deadline = Clock::now() + std::chrono::seconds(15);
        while (Clock::now() < deadline) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return "BIRD did not start: " + census_test::readText(dir_ + "/stdout") +
                       census_test::readText(dir_ + "/bird.log");
            }
            // Up, and p1 listening for us.
            if (fs::exists(sock_) && cli("show protocols p1").find("Passive") != std::string::npos)
                return {};
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return "BIRD did not answer on its control socket within 15 s";
    }

    std::string cli(const std::string& cmd) const {
        return capture(birdc_ + " -s " + sock_ + " " + cmd);
    }
    std::string log() const { return census_test::readText(dir_ + "/bird.log"); }

    // Routes p1 imported (both channels), from its own counters.
    uint64_t imported() const {
        std::istringstream in(cli("show protocols all p1"));
        uint64_t total = 0;
        for (std::string line; std::getline(in, line);)
            if (auto at = line.find("Routes:"); at != std::string::npos)
                total += std::strtoull(line.c_str() + at + 7, nullptr, 10);
        return total;
    }

    void stop() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            int status = 0;
            const auto deadline = Clock::now() + std::chrono::seconds(10);
            while (::waitpid(pid_, &status, WNOHANG) == 0) {
                if (Clock::now() > deadline) ::kill(pid_, SIGKILL);
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            pid_ = -1;
        }
        if (!dir_.empty()) {
            std::error_code ec;
            fs::remove_all(dir_, ec);
            dir_.clear();
        }
    }

private:
    pid_t pid_ = -1;
    std::string dir_, sock_, birdc_;
};

// A route's attributes as BIRD shows them: "BGP.origin" -> "IGP".
using Attrs = std::map<std::string, std::string>;

// The attributes compared, on one line; "-" for one not there.
std::string describe(const Attrs& a) {
    std::string s;
    for (const char* key : {"BGP.origin", "BGP.as_path", "BGP.med", "BGP.local_pref",
                            "BGP.community", "BGP.aggregator"}) {
        const auto it = a.find(key);
        s += std::string(key + 4) + " [" + (it == a.end() ? "-" : it->second) + "] ";
    }
    return s;
}

std::map<std::string, Attrs> parseRoutes(const std::string& text) {
    std::map<std::string, Attrs> routes;
    std::istringstream in(text);
    Attrs* cur = nullptr;
    std::string* last = nullptr;
    for (std::string line; std::getline(in, line);) {
        const size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos) continue;
        if (start == 0) {
            // A route starts with its prefix; any other unindented line ends it.
            const std::string first = line.substr(0, line.find(' '));
            cur = first.find('/') == std::string::npos ? nullptr : &routes[first];
            last = nullptr;
            continue;
        }
        if (!cur) continue;
        const size_t colon = line.find(": ");
        if (colon == std::string::npos || line.compare(start, 4, "BGP.") != 0) {
            // BIRD breaks a long value over lines of its own.
            if (last) *last += " " + line.substr(start);
            continue;
        }
        last = &((*cur)[line.substr(start, colon - start)] = line.substr(colon + 2));
    }
    return routes;
}

enum class PeerType { external, internal, confed };

struct SessionCase {
    const char* name;
    const char* file;
    PeerType type;
    bool twoByte;
    uint32_t ourAs, birdAs, confedId;
    const char* fromPeer = ""; // the dump's peer; by default the one with most routes
};

// What BIRD must show for a route of the dump, sent over this session.
Attrs expected(const Routing::Bgp::PathAttributes& set, const SessionCase& k) {
    using namespace Routing::Bgp;
    Attrs s;
    static const char* const origins[] = {"IGP", "EGP", "Incomplete", "?"};
    s["BGP.origin"] = origins[uint8_t(set.originGet()) & 3];
    std::string& path = s["BGP.as_path"];
    auto add = [&](const std::string& t) {
        if (!path.empty()) path += ' ';
        path += t;
    };
    if (k.type == PeerType::external) add(std::to_string(k.confedId ? k.confedId : k.ourAs));
    if (k.type == PeerType::confed) add("(" + std::to_string(k.ourAs) + ")");
    auto segments = [&](const AsSegmentRun& run) {
        for (AsSegmentRef seg : run) {
            std::string numbers;
            for (Orvnet::AutonomousSystem as : seg.as)
                numbers += (numbers.empty() ? "" : " ") + std::to_string(as.value());
            // AS_SET, AS_SEQUENCE, AS_CONFED_SEQUENCE, AS_CONFED_SET.
            static const char* const brackets[] = {"{}", "", "()", "[]"};
            const std::string b = brackets[(seg.segmentType().value() - 1) & 3];
            add(b.empty() ? numbers : b[0] + numbers + b[1]);
        }
    };
    if (auto p = set.aspathAttrGet()) {
        if (k.type != PeerType::external) segments(p->confedPath());
        segments(p->path());
    }
    if (set.medGet().isSpecified()) s["BGP.med"] = std::to_string(set.medGet().value());
    // Toward an external peer none is sent; where none arrives BIRD sets its default, 100.
    s["BGP.local_pref"] = k.type != PeerType::external && set.localPrefGet().isSpecified()
                              ? std::to_string(set.localPrefGet().value())
                              : "100";
    if (auto c = set.commListGet()) {
        std::string& text = s["BGP.community"];
        for (auto x = c->begin(); x != c->begin() + c->size(); ++x)
            text += (text.empty() ? "(" : " (") + std::to_string(*x >> 16) + "," +
                    std::to_string(*x & 0xffff) + ")";
    }
    if (auto a = set.aggregatorGet())
        s["BGP.aggregator"] =
            a->aggregatorId().toString() + " AS" + std::to_string(a->autonomousSystem().value());
    return s;
}

std::string birdProtocol(const SessionCase& k) {
    std::ostringstream c;
    // A 2-byte speaker whose AS does not fit says AS_TRANS in its OPEN.
    const uint32_t ourOpenAs = k.twoByte && k.ourAs > 0xffff ? 23456 : k.ourAs;
    c << " as " << k.birdAs << ";\n  neighbor 127.0.0.1 as " << ourOpenAs << ";\n";
    if (k.type == PeerType::confed)
        c << "  confederation " << k.confedId << ";\n  confederation member yes;\n";
    return c.str();
}

class AnnounceToBird : public testing::TestWithParam<SessionCase> {};

// Every route the daemon holds has the attributes the dump gave it, with our AS where the session
// calls for it; it holds every route sent, and the session ends without a NOTIFICATION.
TEST_P(AnnounceToBird, DaemonHoldsEveryRouteAsTheDumpSays) {
    const SessionCase& k = GetParam();
    CENSUS_NEED_SHARED(file, k.file);
    AnnounceTable table;
    std::string error;
    ASSERT_TRUE(loadAnnounceTable(file, k.fromPeer, table, error)) << error;

    Bird bird;
    const uint16_t port = freePort();
    if (std::string why = bird.start(birdProtocol(k), port); !why.empty()) GTEST_SKIP() << why;

    AnnounceOptions o;
    o.host = "127.0.0.2";
    o.port = port;
    o.localAs = k.ourAs;
    o.peerAs = k.birdAs;
    o.confedId = k.type == PeerType::confed || k.confedId ? k.confedId : 0;
    o.twoByteAs = k.twoByte;
    o.file = file;
    o.fromPeer = k.fromPeer;
    o.timeoutSeconds = 20;
    std::string shown;
    uint64_t imported = 0;
    o.whileOpen = [&] {
        // BIRD has the routes once its counters stop moving at the number sent.
        const auto deadline = Clock::now() + std::chrono::seconds(120);
        uint64_t last = ~0ull;
        while (Clock::now() < deadline) {
            imported = bird.imported();
            if (imported == table.routes.size() || imported == last) break;
            last = imported;
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
        }
        shown = bird.cli("show route all protocol p1");
    };
    AnnounceResult r = announceTable(o);
    ASSERT_TRUE(r.ok) << r.error << " " << r.notificationText << "\n"
                      << r.provokingUpdate << "\n"
                      << bird.log();
    EXPECT_FALSE(r.notification);
    EXPECT_EQ(r.routes, table.routes.size());
    EXPECT_EQ(r.skipped, 0u);
    EXPECT_EQ(imported, table.routes.size()) << bird.log();

    const std::map<std::string, Attrs> held = parseRoutes(shown);
    EXPECT_EQ(held.size(), table.routes.size());
    size_t wrong = 0, missing = 0;
    for (const auto& [prefix, set] : table.routes) {
        const std::string key = prefix.toString();
        auto it = held.find(key);
        if (it == held.end()) {
            if (++missing <= 5) ADD_FAILURE() << key << ": not held";
            continue;
        }
        const std::string got = describe(it->second), want = describe(expected(*set, k));
        if (got != want && ++wrong <= 5)
            ADD_FAILURE() << key << "\n  held: " << got << "\n  want: " << want;
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(missing, 0u);
}

const char kUpdates[] = "updates.20160811.1600.gz";
const char kTable2002[] = "bview.20020722.2337.gz";

INSTANTIATE_TEST_SUITE_P(
    Sessions, AnnounceToBird,
    testing::Values(
        SessionCase{"External4Byte", kUpdates, PeerType::external, false, 4200000001u, 64990, 0},
        SessionCase{"External2Byte", kUpdates, PeerType::external, true, 4200000001u, 64990, 0},
        // A peer with IPv6 routes: MP_REACH_NLRI.
        SessionCase{"Internal", kUpdates, PeerType::internal, false, 64990, 64990, 0,
                    "2001:7f8:54::71"},
        SessionCase{"Confederation", kUpdates, PeerType::confed, false, 65012, 65011, 65500},
        SessionCase{"FullTable2002External2Byte", kTable2002, PeerType::external, true, 4200000001u,
                    64990, 0}),
    [](const testing::TestParamInfo<SessionCase>& i) { return std::string(i.param.name); });

// A speaker of our own on loopback takes the session and answers the first UPDATE with
// UPDATE Message Error / Malformed AS_PATH, its data that UPDATE's body: the run ends with exit 1,
// the NOTIFICATION decoded and that UPDATE named, though more may have been sent by then.
TEST(Announce, NotificationEndsTheRunNamingTheUpdate) {
    CENSUS_NEED_SHARED(file, kUpdates);
    const auto listening = bindLoopback(); // plain names below: the speaker captures them
    const int ls = listening.first;
    const uint16_t port = listening.second;
    ASSERT_NE(port, 0);
    ASSERT_EQ(::listen(ls, 1), 0);

    std::vector<uint8_t> firstUpdate;
    std::thread speaker([&] {
        pollfd p{ls, POLLIN, 0};
        if (::poll(&p, 1, 20000) <= 0) return;
        int fd = ::accept(ls, nullptr, nullptr);
        timeval tv{20, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        auto send = [&](uint8_t type, const census_test::Bytes& body) {
            using namespace census_test;
            const Bytes m = cat({Bytes(16, 0xff), u16(uint16_t(19 + body.size())), u8(type), body});
            (void)!::write(fd, m.data(), m.size());
        };
        std::vector<uint8_t> in;
        uint8_t buf[4096];
        for (bool done = false; !done;) {
            ssize_t n = ::read(fd, buf, sizeof buf);
            if (n <= 0) break;
            in.insert(in.end(), buf, buf + n);
            while (!done && in.size() >= 19 && in.size() >= size_t(in[16] << 8 | in[17])) {
                const size_t len = size_t(in[16] << 8 | in[17]);
                std::vector<uint8_t> msg(in.begin(), in.begin() + len);
                in.erase(in.begin(), in.begin() + len);
                if (msg[18] == 1) {
                    // AS 64990, hold 90, id 127.0.0.9, IPv4 unicast and 4-byte AS 64990.
                    send(1, {4, 0xfd, 0xde, 0, 90, 127, 0,  0, 9, 14, 2,    12,
                             1, 4,    0,    1, 0,  1,   65, 4, 0, 0,  0xfd, 0xde});
                    send(4, {});
                } else if (msg[18] == 2) {
                    firstUpdate = msg;
                    send(3, census_test::cat({{3, 11}, {msg.begin() + 19, msg.end()}}));
                    done = true;
                }
            }
        }
        ::close(fd);
    });

    const census_test::Outcome o =
        census_test::runCensus({"--announce", "127.0.0.1:" + std::to_string(port), "--local-as",
                                "64901", "--peer-as", "64990", file});
    speaker.join();
    ::close(ls);

    EXPECT_EQ(o.status, 1);
    ASSERT_FALSE(firstUpdate.empty());
    const std::string hex = Mel::Bytes(firstUpdate).toHex();
    EXPECT_NE(o.err.find("NOTIFICATION 3/11: UPDATE Message Error / Malformed AS_PATH"),
              std::string::npos)
        << o.err;
    EXPECT_NE(o.err.find("provoked by the UPDATE " + hex + "\n"), std::string::npos) << o.err;
}

// Usage errors exit 2 naming the fault before anything is read or sent; a speaker that is not
// there exits 1 naming the address.
TEST(Announce, CommandLineFaults) {
    struct Row {
        std::vector<std::string> args;
        int status;
        const char* message;
    };
    const std::string file = census_test::sharedMrt(kUpdates);
    const std::string closed = "127.0.0.1:" + std::to_string(freePort());
    const std::vector<Row> rows = {
        {{"--announce"}, 2, "--announce needs a value"},
        {{"--announce", "h:99999", "--local-as", "1", "--peer-as", "2", "f"}, 2, "bad port 99999"},
        {{"--announce", "[::1", "--local-as", "1", "--peer-as", "2", "f"}, 2, "no ] in [::1"},
        {{"--announce", "h", "--peer-as", "2", "f"}, 2, "needs --local-as and --peer-as"},
        {{"--announce", "h", "--local-as", "0", "--peer-as", "2", "f"}, 2, "wants an AS number"},
        {{"--announce", "h", "--local-as", "1", "--peer-as", "2"}, 2, "--announce needs FILE"},
        {{"--announce", "h", "--local-as", "1", "--peer-as", "2", "--linger", "x", "f"},
         2,
         "--linger wants"},
        {{"--announce", closed, "--local-as", "1", "--peer-as", "2", file},
         1,
         "connecting to 127.0.0.1"},
    };
    for (const Row& row : rows) {
        if (row.status == 1 && file.empty()) continue;
        const census_test::Outcome o = census_test::runCensus(row.args);
        EXPECT_EQ(o.status, row.status) << row.message;
        EXPECT_NE(o.err.find(row.message), std::string::npos) << o.err;
    }
}

} // namespace
