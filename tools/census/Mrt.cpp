#include "census/Mrt.h"

#include <algorithm>
#include <cstring>

namespace Census {

namespace {

constexpr size_t kHeaderSize = 12;

uint32_t be32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}
uint16_t be16(const uint8_t* p) {
    return uint16_t((p[0] << 8) | p[1]);
}

} // namespace

MrtReader::MrtReader(std::unique_ptr<InputFile> in, size_t bufferSize)
    : in_(std::move(in)), cap_(std::max<size_t>(bufferSize, 64)) {
    buf_.reset(new uint8_t[cap_]);
}

size_t MrtReader::ensure(size_t want) {
    if (end_ - pos_ >= want) return end_ - pos_;
    if (pos_ > 0) {
        std::memmove(buf_.get(), buf_.get() + pos_, end_ - pos_);
        base_ += pos_;
        end_ -= pos_;
        pos_ = 0;
    }
    while (end_ < want && !eof_) {
        if (end_ == cap_) {
            // Grow only as far as bytes actually arrive: a corrupt length field costs at most
            // the size of the file, never its own claim.
            size_t cap = std::min<size_t>(std::max(cap_ * 2, size_t(64)), std::max(want, cap_ + 1));
            std::unique_ptr<uint8_t[]> grown(new uint8_t[cap]);
            std::memcpy(grown.get(), buf_.get(), end_);
            buf_ = std::move(grown);
            cap_ = cap;
        }
        // The first reads are short, so the first record is out before a whole buffer has been
        // decompressed; they double up to the buffer's size.
        const size_t room = std::min(cap_ - end_, std::max(step_, want - end_));
        step_ = std::min(step_ * 2, cap_);
        size_t n = in_->read(buf_.get() + end_, room);
        if (n == 0) eof_ = true;
        end_ += n;
    }
    return end_ - pos_;
}

bool MrtReader::next(MrtRecord& rec) {
    size_t have = ensure(kHeaderSize);
    if (have == 0) return false;
    uint64_t at = base_ + pos_;
    if (have < kHeaderSize)
        throw ReadError(in_->name(), at,
                        "MRT header cut short: " + std::to_string(have) + " of 12 bytes present");
    const uint8_t* h = buf_.get() + pos_;
    rec.offset = at;
    rec.timestamp = be32(h);
    rec.type = be16(h + 4);
    rec.subtype = be16(h + 6);
    uint32_t length = be32(h + 8);
    rec.microseconds = 0;

    size_t total = kHeaderSize + size_t(length);
    have = ensure(total);
    if (have < total)
        throw ReadError(in_->name(), at,
                        "MRT record cut short: header (type " + std::to_string(rec.type) +
                            ", subtype " + std::to_string(rec.subtype) + ") says " +
                            std::to_string(length) + " bytes, " +
                            std::to_string(have - kHeaderSize) + " present");
    const uint8_t* body = buf_.get() + pos_ + kHeaderSize;
    size_t bodyLen = length;
    if (rec.type == Mrt::kBgp4mpEt) {
        if (length < 4)
            throw ReadError(in_->name(), at,
                            "BGP4MP_ET record of " + std::to_string(length) +
                                " bytes cannot hold its microseconds");
        rec.microseconds = be32(body);
        body += 4;
        bodyLen -= 4;
    }
    rec.body = {body, bodyLen};
    pos_ += total;
    ++records_;
    return true;
}

} // namespace Census
