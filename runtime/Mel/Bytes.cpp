#include "Mel/Bytes.h"

#include "Mel/Exception.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace Mel {

Bytes::Bytes(const void* data, size_t len) {
    if (len == 0) return;
    if (len > UINT32_MAX) throw RangeException("Mel::Bytes: byte string longer than 4 GiB");
    void* mem = std::malloc(offsetof(Rep, data) + len);
    if (!mem) throw std::bad_alloc();
    rep_ = static_cast<Rep*>(mem);
    new (&rep_->refs) std::atomic<uint32_t>(1);
    rep_->size = static_cast<uint32_t>(len);
    std::memcpy(rep_->data, data, len);
}

Bytes::Bytes(std::initializer_list<uint8_t> il) : Bytes(il.begin(), il.size()) {}

Bytes::Bytes(const Bytes& o) noexcept : rep_(o.rep_) {
    if (rep_) rep_->refs.fetch_add(1, std::memory_order_relaxed);
}

Bytes& Bytes::operator=(const Bytes& o) noexcept {
    Bytes tmp(o);
    std::swap(rep_, tmp.rep_);
    return *this;
}

Bytes& Bytes::operator=(Bytes&& o) noexcept {
    Bytes tmp(std::move(o));
    std::swap(rep_, tmp.rep_);
    return *this;
}

Bytes::~Bytes() {
    if (rep_ && rep_->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) std::free(rep_);
}

const uint8_t* Bytes::data() const noexcept {
    static const uint8_t empty = 0;
    return rep_ ? rep_->data : &empty;
}

size_t Bytes::size() const noexcept {
    return rep_ ? rep_->size : 0;
}

std::string Bytes::toHex() const {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(size() * 2);
    for (uint8_t b : *this) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 15]);
    }
    return out;
}

Bytes Bytes::fromHex(std::string_view hex) {
    std::vector<uint8_t> out;
    int hi = -1;
    for (size_t i = 0; i < hex.size(); ++i) {
        char c = hex[i];
        if (c == ' ' || c == '\n' || c == '\t' || c == ':') continue;
        int v;
        if (c >= '0' && c <= '9')
            v = c - '0';
        else if (c >= 'a' && c <= 'f')
            v = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            v = c - 'A' + 10;
        else
            throw ParseException("bad hex digit '" + std::string(1, c) + "' at offset " +
                                 std::to_string(i));
        if (hi < 0)
            hi = v;
        else {
            out.push_back(static_cast<uint8_t>(hi << 4 | v));
            hi = -1;
        }
    }
    if (hi >= 0) throw ParseException("odd number of hex digits");
    return Bytes(out);
}

} // namespace Mel
