#include "census/BgpSession.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Census {

namespace {

constexpr uint8_t kOpen = 1, kUpdate = 2, kNotification = 3, kKeepalive = 4;
// UPDATEs kept to name the one a NOTIFICATION answers: as many as a loopback connection's
// buffers can hold between the speaker reading one and its answer arriving.
constexpr size_t kRecentBytes = 16u << 20;

IpAddress fromSockaddr(const sockaddr_storage& ss) {
    if (ss.ss_family == AF_INET) {
        const auto* in = reinterpret_cast<const sockaddr_in*>(&ss);
        return IpAddress::v4(reinterpret_cast<const uint8_t*>(&in->sin_addr));
    }
    const auto* in6 = reinterpret_cast<const sockaddr_in6*>(&ss);
    return IpAddress::v6(reinterpret_cast<const uint8_t*>(&in6->sin6_addr));
}

int msUntil(std::chrono::steady_clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    deadline - std::chrono::steady_clock::now())
                    .count();
    return left < 0 ? 0 : int(left);
}

} // namespace

bool BgpSession::fail(std::string what) {
    if (error_.empty()) error_ = std::move(what);
    return false;
}

std::string BgpSession::peerName() const {
    std::string s = remote_.isV6() ? "[" + remote_.toString() + "]" : remote_.toString();
    return s + ":" + std::to_string(config_.port);
}

bool BgpSession::open(const Config& c) {
    config_ = c;
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(c.timeoutSeconds));
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* res = nullptr;
    const std::string port = std::to_string(c.port);
    if (int rc = getaddrinfo(c.host.c_str(), port.c_str(), &hints, &res); rc != 0 || !res)
        return fail(c.host + ": " + gai_strerror(rc));
    // Only the first address: nothing goes anywhere the user did not name.
    fd_ = ::socket(res->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        freeaddrinfo(res);
        return fail(std::string("socket: ") + std::strerror(errno));
    }
    int one = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    int rc = ::connect(fd_, res->ai_addr, res->ai_addrlen);
    sockaddr_storage peer{};
    std::memcpy(&peer, res->ai_addr, res->ai_addrlen);
    remote_ = fromSockaddr(peer);
    freeaddrinfo(res);
    if (rc != 0 && errno != EINPROGRESS)
        return fail("connecting to " + peerName() + ": " + std::strerror(errno));
    pollfd p{fd_, POLLOUT, 0};
    if (::poll(&p, 1, msUntil(deadline)) <= 0)
        return fail("connecting to " + peerName() + ": timed out");
    int soError = 0;
    socklen_t len = sizeof soError;
    ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &soError, &len);
    if (soError != 0) return fail("connecting to " + peerName() + ": " + std::strerror(soError));
    sockaddr_storage local{};
    socklen_t llen = sizeof local;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &llen);
    local_ = fromSockaddr(local);

    // OPEN: version 4, our AS (AS_TRANS above 65535), hold time, identifier, capabilities.
    std::vector<uint8_t> open;
    const uint16_t as2 = c.localAs <= 0xffff ? uint16_t(c.localAs) : 23456;
    uint32_t id = local_.isV4() ? local_.v4Value() : 0;
    if (id == 0 || id == remote_.v4Value()) id = 0x0a000000u | (c.localAs & 0xffffffu);
    open = {4,
            uint8_t(as2 >> 8),
            uint8_t(as2),
            uint8_t(c.holdTime >> 8),
            uint8_t(c.holdTime),
            uint8_t(id >> 24),
            uint8_t(id >> 16),
            uint8_t(id >> 8),
            uint8_t(id)};
    // Multiprotocol IPv4 and IPv6 unicast, then the 4-octet AS capability.
    const uint8_t caps[] = {1,
                            4,
                            0,
                            1,
                            0,
                            1,
                            1,
                            4,
                            0,
                            2,
                            0,
                            1,
                            65,
                            4,
                            uint8_t(c.localAs >> 24),
                            uint8_t(c.localAs >> 16),
                            uint8_t(c.localAs >> 8),
                            uint8_t(c.localAs)};
    const size_t capsLen = c.fourByteAs ? sizeof caps : 12;
    open.push_back(uint8_t(capsLen + 2));
    open.push_back(2); // capabilities
    open.push_back(uint8_t(capsLen));
    for (size_t i = 0; i < capsLen; ++i)
        open.push_back(caps[i]);
    if (!sendMessage(kOpen, open)) return false;
    while (!openReceived_)
        if (!receive(msUntil(deadline)) || Clock::now() >= deadline)
            return openReceived_ || fail("no OPEN from " + peerName() + " in time");
    if (!sendMessage(kKeepalive, {})) return false;
    while (!keepaliveReceived_)
        if (!receive(msUntil(deadline)) || (!keepaliveReceived_ && Clock::now() >= deadline))
            return keepaliveReceived_ || fail("no KEEPALIVE from " + peerName() + " in time");
    return true;
}

bool BgpSession::readOpen(std::span<const uint8_t> b) {
    auto reject = [&](uint8_t sub, std::string what) {
        uint8_t body[2] = {2, sub};
        sendMessage(kNotification, body);
        return fail("OPEN from " + peerName() + ": " + what);
    };
    if (b.size() < 10) return reject(0, "too short");
    if (b[0] != 4) return reject(1, "version " + std::to_string(b[0]));
    uint32_t as = readBe16(&b[1]);
    const uint16_t hold = readBe16(&b[3]);
    peerId_ = readBe32(&b[5]);
    if (hold == 1 || hold == 2) return reject(6, "hold time " + std::to_string(hold));
    size_t optLen = b[9];
    if (10 + optLen > b.size()) return reject(0, "optional parameters past the end");
    bool as4 = false;
    for (size_t i = 10; i + 2 <= 10 + optLen;) {
        const uint8_t type = b[i], len = b[i + 1];
        if (i + 2 + len > 10 + optLen) return reject(0, "optional parameter past the end");
        if (type == 2)
            for (size_t j = i + 2; j + 2 <= i + 2 + len;) {
                const uint8_t code = b[j], clen = b[j + 1];
                if (j + 2 + clen > i + 2 + len) break;
                if (code == 1 && clen == 4 && readBe16(&b[j + 2]) == kAfiIpv6 && b[j + 5] == 1)
                    ipv6_ = true;
                if (code == 65 && clen == 4) {
                    as4 = true;
                    as = readBe32(&b[j + 2]);
                }
                j += 2 + clen;
            }
        i += 2 + len;
    }
    if (as != config_.peerAs)
        return reject(2,
                      "AS " + std::to_string(as) + ", expected " + std::to_string(config_.peerAs));
    fourByteAs_ = as4 && config_.fourByteAs;
    hold_ = std::min(hold, config_.holdTime);
    openReceived_ = true;
    return true;
}

bool BgpSession::handle(uint8_t type, std::span<const uint8_t> body) {
    switch (type) {
    case kOpen:
        if (openReceived_) return fail("a second OPEN from " + peerName());
        return readOpen(body);
    case kKeepalive:
        keepaliveReceived_ = true;
        return true;
    case kUpdate:
        return true; // what the speaker sends us is not looked at
    case kNotification: {
        Notification n;
        if (body.size() >= 1) n.code = body[0];
        if (body.size() >= 2) n.subcode = body[1];
        if (body.size() > 2) n.data.assign(body.begin() + 2, body.end());
        notification_ = std::move(n);
        ::close(fd_);
        fd_ = -1;
        return fail("NOTIFICATION from " + peerName());
    }
    default:
        return true;
    }
}

bool BgpSession::receive(int timeoutMs) {
    if (fd_ < 0) return fail("session closed");
    pollfd p{fd_, POLLIN, 0};
    int rc = ::poll(&p, 1, timeoutMs);
    if (rc < 0 && errno != EINTR) return fail(std::string("poll: ") + std::strerror(errno));
    // Closed or reset: what came before is handed over first (a NOTIFICATION explains it).
    std::string gone;
    if (rc > 0) {
        uint8_t buf[8192];
        for (;;) {
            ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
            if (n > 0) {
                in_.insert(in_.end(), buf, buf + n);
                lastReceived_ = Clock::now();
                continue;
            }
            if (n == 0) {
                gone = peerName() + " closed the connection";
                break;
            }
            if (errno == EAGAIN || errno == EWOULDBLOCK) break;
            if (errno == EINTR) continue;
            gone = std::string("reading: ") + std::strerror(errno);
            break;
        }
    }
    size_t off = 0;
    while (in_.size() - off >= kHeaderSize) {
        const size_t len = readBe16(&in_[off + 16]);
        if (len < kHeaderSize || len > 65535)
            return fail("a message of length " + std::to_string(len));
        if (in_.size() - off < len) break;
        const uint8_t type = in_[off + 18];
        std::vector<uint8_t> body(in_.begin() + off + kHeaderSize, in_.begin() + off + len);
        off += len;
        if (!handle(type, body)) return false;
    }
    in_.erase(in_.begin(), in_.begin() + off);
    if (!gone.empty()) return fail(gone);
    if (hold_ && openReceived_ && Clock::now() - lastReceived_ > std::chrono::seconds(hold_)) {
        uint8_t body[2] = {4, 0};
        sendMessage(kNotification, body);
        return fail("hold timer expired: nothing from " + peerName() + " in " +
                    std::to_string(hold_) + " s");
    }
    return true;
}

bool BgpSession::sendMessage(uint8_t type, std::span<const uint8_t> body) {
    if (fd_ < 0) return fail("session closed");
    std::vector<uint8_t> m(16, 0xff);
    const size_t len = kHeaderSize + body.size();
    m.push_back(uint8_t(len >> 8));
    m.push_back(uint8_t(len));
    m.push_back(type);
    m.insert(m.end(), body.begin(), body.end());
    size_t done = 0;
    const auto limit = std::chrono::seconds(hold_ ? hold_ : 90);
    auto deadline = Clock::now() + limit;
    while (done < m.size()) {
        ssize_t n = ::send(fd_, m.data() + done, m.size() - done, MSG_NOSIGNAL);
        if (n > 0) {
            done += size_t(n);
            deadline = Clock::now() + limit;
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            const std::string why = std::strerror(errno);
            // The speaker may have said why before it went.
            if (type != kNotification) receive(0);
            return fail("writing to " + peerName() + ": " + why);
        }
        if (type == kNotification) return false; // no waiting to say goodbye
        // Full: read meanwhile, which also catches a NOTIFICATION.
        pollfd p{fd_, POLLOUT | POLLIN, 0};
        if (::poll(&p, 1, msUntil(deadline)) <= 0)
            return fail("writing to " + peerName() + ": timed out");
        if ((p.revents & POLLIN) && !receive(0)) return false;
    }
    lastSent_ = Clock::now();
    bytes_ += m.size();
    if (type == kUpdate) {
        ++updates_;
        recentBytes_ += m.size();
        recent_.push_back(std::move(m));
        while (recentBytes_ > kRecentBytes) {
            recentBytes_ -= recent_.front().size();
            recent_.pop_front();
        }
    }
    return true;
}

bool BgpSession::sendUpdate(std::span<const uint8_t> body) {
    if (kHeaderSize + body.size() > kMaxMessage) return fail("an UPDATE over 4096 bytes");
    if (!sendMessage(kUpdate, body)) return false;
    // A NOTIFICATION is best caught close to the UPDATE that provoked it.
    return receive(0);
}

bool BgpSession::serviceUntil(const std::function<bool()>& done) {
    for (;;) {
        if (done()) return true;
        if (!receive(100)) return false;
        if (hold_ && Clock::now() - lastSent_ >= std::chrono::seconds(hold_) / 3 &&
            !sendMessage(kKeepalive, {}))
            return false;
    }
}

bool BgpSession::settle() {
    const auto deadline = Clock::now() + std::chrono::seconds(hold_ ? hold_ : 90);
    for (;;) {
        int queued = 0;
        if (fd_ < 0) return fail("session closed");
        if (::ioctl(fd_, SIOCOUTQ, &queued) != 0 || queued == 0) break;
        if (Clock::now() > deadline) return fail(peerName() + " stopped reading");
        if (!receive(50)) return false;
    }
    const auto quiet = Clock::now() + std::chrono::seconds(1);
    return serviceUntil([&] { return Clock::now() >= quiet; });
}

void BgpSession::shutdown() {
    if (fd_ < 0) return;
    uint8_t body[2] = {6, 2};
    sendMessage(kNotification, body);
    ::shutdown(fd_, SHUT_WR);
    // Give the speaker a moment to read it before the connection goes.
    pollfd p{fd_, POLLIN, 0};
    ::poll(&p, 1, 200);
    close();
}

void BgpSession::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

std::vector<uint8_t> BgpSession::likelyCause(const Notification& n) const {
    if (recent_.empty()) return {};
    if (!n.data.empty())
        for (auto it = recent_.rbegin(); it != recent_.rend(); ++it)
            if (std::search(it->begin(), it->end(), n.data.begin(), n.data.end()) != it->end())
                return *it;
    return recent_.back();
}

} // namespace Census
