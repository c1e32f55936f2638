// MRT (RFC 6396) record framing over an InputFile: one record at a time, its body a view into a
// large reused buffer, so reading allocates nothing per record.
//   Census::MrtReader reader(Census::InputFile::open("bview.20020722.2337.gz"));
//   Census::MrtRecord rec; while (reader.next(rec)) use(rec.type, rec.body);
#pragma once

#include "census/Input.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace Census {

namespace Mrt {
// Record types.
inline constexpr uint16_t kTableDump = 12;
inline constexpr uint16_t kTableDumpV2 = 13;
inline constexpr uint16_t kBgp4mp = 16;
inline constexpr uint16_t kBgp4mpEt = 17;

// TABLE_DUMP subtypes: the address family of prefix and peer.
inline constexpr uint16_t kTableDumpAfiIpv4 = 1;
inline constexpr uint16_t kTableDumpAfiIpv6 = 2;

// TABLE_DUMP_V2 subtypes (RFC 6396, RFC 8050 for the add-path ones).
inline constexpr uint16_t kPeerIndexTable = 1;
inline constexpr uint16_t kRibIpv4Unicast = 2;
inline constexpr uint16_t kRibIpv4Multicast = 3;
inline constexpr uint16_t kRibIpv6Unicast = 4;
inline constexpr uint16_t kRibIpv6Multicast = 5;
inline constexpr uint16_t kRibGeneric = 6;
inline constexpr uint16_t kRibIpv4UnicastAddPath = 8;
inline constexpr uint16_t kRibIpv4MulticastAddPath = 9;
inline constexpr uint16_t kRibIpv6UnicastAddPath = 10;
inline constexpr uint16_t kRibIpv6MulticastAddPath = 11;
inline constexpr uint16_t kRibGenericAddPath = 12;

// BGP4MP and BGP4MP_ET subtypes.
inline constexpr uint16_t kStateChange = 0;
inline constexpr uint16_t kMessage = 1;
inline constexpr uint16_t kMessageAs4 = 4;
inline constexpr uint16_t kStateChangeAs4 = 5;
inline constexpr uint16_t kMessageLocal = 6;
inline constexpr uint16_t kMessageAs4Local = 7;
inline constexpr uint16_t kMessageAddPath = 8;
inline constexpr uint16_t kMessageAs4AddPath = 9;
inline constexpr uint16_t kMessageLocalAddPath = 10;
inline constexpr uint16_t kMessageAs4LocalAddPath = 11;
} // namespace Mrt

struct MrtRecord {
    uint64_t offset = 0; // of the record header, in decompressed bytes from the start of the file
    uint32_t timestamp = 0;
    uint32_t microseconds = 0; // BGP4MP_ET only
    uint16_t type = 0;
    uint16_t subtype = 0;
    // The body after the common header (and after the microseconds of an _ET record). Valid until
    // the next call to next().
    std::span<const uint8_t> body;
};

class MrtReader {
public:
    // Small enough to stay in the second-level cache between the decompressor writing it and the
    // decoder reading it, and to cost few pages for a small file.
    static constexpr size_t kDefaultBufferSize = 64 << 10;

    // bufferSize is the starting size; the buffer grows for a record that does not fit.
    explicit MrtReader(std::unique_ptr<InputFile> in, size_t bufferSize = kDefaultBufferSize);

    // Reads the next record; false at a clean end of the data. Throws ReadError (file name and
    // offset of the offending record) for a header or body cut short, an _ET record too short to
    // hold its microseconds, or any error of the input itself. Records returned before stay valid
    // as data: nothing after an error is guessed at.
    bool next(MrtRecord& rec);

    const std::string& fileName() const noexcept { return in_->name(); }
    uint64_t recordsRead() const noexcept { return records_; }
    // Offset just past the last record returned.
    uint64_t offset() const noexcept { return base_ + pos_; }

private:
    // Makes want bytes from pos_ available, moving and growing the buffer as needed; returns how
    // many are available (fewer only at the end of the data).
    size_t ensure(size_t want);

    std::unique_ptr<InputFile> in_;
    std::unique_ptr<uint8_t[]> buf_; // not zeroed: only bytes read into it are ever looked at
    size_t cap_ = 0;
    size_t step_ = 16 << 10; // the next read's size, ramping up to cap_
    size_t pos_ = 0;
    size_t end_ = 0;
    uint64_t base_ = 0; // file offset of buf_[0]
    bool eof_ = false;
    uint64_t records_ = 0;
};

} // namespace Census
