// An owned, immutable byte string; copies share one buffer.
//   Mel::Bytes b(data, len);
//   for (uint8_t x : b) ...;  b.size();  b.toHex() == "c0080400"
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Mel {

class Bytes {
public:
    Bytes() noexcept = default;
    Bytes(const void* data, size_t len);
    explicit Bytes(std::span<const uint8_t> s) : Bytes(s.data(), s.size()) {}
    explicit Bytes(std::string_view s) : Bytes(s.data(), s.size()) {}
    explicit Bytes(const std::vector<uint8_t>& v) : Bytes(v.data(), v.size()) {}
    Bytes(std::initializer_list<uint8_t> il);
    Bytes(const Bytes& o) noexcept;
    Bytes(Bytes&& o) noexcept : rep_(o.rep_) { o.rep_ = nullptr; }
    Bytes& operator=(const Bytes& o) noexcept;
    Bytes& operator=(Bytes&& o) noexcept;
    ~Bytes();

    // Parses hex digits ("c0 08 04" or "c00804"; blanks ignored). Throws Mel::ParseException.
    static Bytes fromHex(std::string_view hex);

    const uint8_t* data() const noexcept;
    size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const uint8_t* begin() const noexcept { return data(); }
    const uint8_t* end() const noexcept { return data() + size(); }
    uint8_t operator[](size_t i) const noexcept { return data()[i]; }
    std::span<const uint8_t> span() const noexcept { return {data(), size()}; }
    std::string_view view() const noexcept {
        return {reinterpret_cast<const char*>(data()), size()};
    }
    std::vector<uint8_t> toVector() const { return {begin(), end()}; }
    // Lower-case hex, no separators.
    std::string toHex() const;

    friend bool operator==(const Bytes& a, const Bytes& b) noexcept { return a.view() == b.view(); }
    friend auto operator<=>(const Bytes& a, const Bytes& b) noexcept {
        return a.view() <=> b.view();
    }

private:
    struct Rep {
        std::atomic<uint32_t> refs;
        uint32_t size;
        uint8_t data[1];
    };
    Rep* rep_ = nullptr;
};

} // namespace Mel
