// One outgoing BGP session over TCP, as far as sending a table needs: OPEN with the multiprotocol
// capability for IPv4 and IPv6 unicast (and, with fourByteAs, the 4-octet AS capability), the
// KEEPALIVE exchange, UPDATEs, the hold timer, a NOTIFICATION either way. Every wait is bounded.
//   Census::BgpSession s;
//   if (!s.open({.host = "127.0.0.1", .port = 1790, .localAs = 65001, .peerAs = 65002})) ...
//   s.sendUpdate(body);   // the UPDATE without its 19-byte header
//   s.serviceUntil(done);  s.shutdown();
// Only the address given is ever connected to. Our BGP identifier is the session's local IPv4
// address, or 10.x.y.z from the local AS where that is not usable (an IPv6 session, or an address
// equal to the speaker's identifier).
#pragma once

#include "census/Prefix.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Census {

class BgpSession {
public:
    static constexpr size_t kHeaderSize = 19;
    static constexpr size_t kMaxMessage = 4096;

    struct Config {
        std::string host;
        uint16_t port = 179;
        uint32_t localAs = 0;
        uint32_t peerAs = 0;
        bool fourByteAs = true;
        uint16_t holdTime = 90;
        double timeoutSeconds = 30;
    };
    struct Notification {
        uint8_t code = 0, subcode = 0;
        std::vector<uint8_t> data;
    };

    BgpSession() = default;
    BgpSession(const BgpSession&) = delete;
    BgpSession& operator=(const BgpSession&) = delete;
    ~BgpSession() { close(); }

    // Connects and runs the OPEN exchange up to Established; false with error() otherwise.
    bool open(const Config& c);
    // Sends one UPDATE; false with error() when the session failed (a NOTIFICATION received,
    // the connection lost, a timeout). Incoming messages are read meanwhile.
    bool sendUpdate(std::span<const uint8_t> body);
    bool sendUpdate(std::initializer_list<uint8_t> body) {
        return sendUpdate(std::span<const uint8_t>(body.begin(), body.size()));
    }
    // Keeps the session up (KEEPALIVEs, reading, the hold timer) until done() is true, looking
    // at it every 100 ms; false with error() when the session failed first.
    bool serviceUntil(const std::function<bool()>& done);
    // Waits until the speaker's TCP has taken every byte sent, then a second more, watching for
    // a NOTIFICATION: BGP acknowledges nothing, so this is as close to "accepted" as it gets.
    bool settle();
    // Cease / Administrative Shutdown, then close.
    void shutdown();
    void close();

    const std::string& error() const noexcept { return error_; }
    const std::optional<Notification>& notification() const noexcept { return notification_; }
    // Of the UPDATEs sent last, the one a NOTIFICATION most likely answers: the newest that holds
    // the NOTIFICATION's data (an UPDATE error names the attribute at fault), else the newest.
    std::vector<uint8_t> likelyCause(const Notification& n) const;

    bool fourByteAs() const noexcept { return fourByteAs_; }
    bool ipv6() const noexcept { return ipv6_; }
    const IpAddress& localAddress() const noexcept { return local_; }
    std::string peerName() const;
    uint64_t updatesSent() const noexcept { return updates_; }
    uint64_t bytesSent() const noexcept { return bytes_; }

private:
    using Clock = std::chrono::steady_clock;

    bool fail(std::string what);
    bool sendMessage(uint8_t type, std::span<const uint8_t> body);
    // Reads what is there (waiting up to timeoutMs for something) and handles whole messages;
    // false when the session failed.
    bool receive(int timeoutMs);
    bool handle(uint8_t type, std::span<const uint8_t> body);
    bool readOpen(std::span<const uint8_t> body);

    int fd_ = -1;
    Config config_;
    std::string error_;
    std::optional<Notification> notification_;
    std::vector<uint8_t> in_;
    bool openReceived_ = false;
    bool keepaliveReceived_ = false;
    bool fourByteAs_ = false;
    bool ipv6_ = false;
    uint16_t hold_ = 0; // negotiated, seconds; 0: no keepalives
    IpAddress local_, remote_;
    uint32_t peerId_ = 0;
    Clock::time_point lastSent_{}, lastReceived_{};
    uint64_t updates_ = 0, bytes_ = 0;
    std::deque<std::vector<uint8_t>> recent_; // the last UPDATEs sent, whole
    size_t recentBytes_ = 0;
};

} // namespace Census
