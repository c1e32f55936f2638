// Fuzz target over MRT files: arbitrary bytes framed into records, decoded, and every path printed
// in the bgpdump form with its decoded attributes summarised, twice (whole reads into a small
// growing buffer, then 7-byte reads into a large one); the two runs must agree exactly.
//   OrvFuzz::mrtRecords(bytes);   // throws OrvFuzz::CheckFailure when a property fails
// A file cut short or with a broken header may end the read (ReadError naming the input and
// offset): that is the reader's documented answer, not a finding.
#pragma once

#include "FuzzCheck.h"

#include "census/BgpdumpFormat.h"
#include "census/Input.h"
#include "census/Mrt.h"
#include "census/MrtDecoder.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <string>

namespace OrvFuzz {

namespace MrtFuzz {

inline constexpr const char* kInputName = "<fuzz input>";

// The input as an uncompressed file, handed out at most `chunk` bytes a read.
class MemoryInput : public Census::InputFile {
public:
    MemoryInput(std::span<const uint8_t> data, size_t chunk)
        : InputFile(kInputName, Census::Compression::None), data_(data), chunk_(chunk) {}

protected:
    void fill(uint8_t* dst, size_t n, size_t& got) override {
        size_t take = std::min({n, chunk_, data_.size() - at_});
        if (take) std::memcpy(dst, data_.data() + at_, take);
        at_ += take;
        got += take;
    }

private:
    std::span<const uint8_t> data_;
    size_t chunk_;
    size_t at_ = 0;
};

// The bgpdump text plus a line per path of what the text leaves out (the RFC 7606 verdict, the
// effective AS path, every list attribute item), so that all of the decoded record is read.
class Summary : public Census::BgpdumpFormatter {
public:
    Summary() : BgpdumpFormatter(nullptr) {}

    void onPath(const Census::DecodedPath& p) override {
        BgpdumpFormatter::onPath(p);
        extra += p.usable() ? "U " : "X ";
        extra += Census::errorActionName(p.action);
        extra += ' ';
        p.prefix.appendTo(extra);
        if (const Census::DecodedAttributes* a = p.attributes) {
            extra += ' ';
            a->effectiveAsPath().appendTo(extra);
            extra += " agg " + std::to_string(a->effectiveAggregator().as);
            uint64_t sum = 0;
            for (size_t i = 0; i < a->communities.size(); ++i)
                sum += a->communities[i];
            for (size_t i = 0; i < a->extCommunities.size(); ++i)
                sum += a->extCommunities[i];
            for (size_t i = 0; i < a->largeCommunities.size(); ++i)
                sum += a->largeCommunities[i].local2;
            for (size_t i = 0; i < a->clusterList.size(); ++i)
                sum += a->clusterList[i];
            for (size_t i = 0; i < a->ipv6ExtCommunities.size(); ++i)
                sum += a->ipv6ExtCommunities[i][19];
            for (const Census::PathAttribute& attr : a->list)
                sum += attr.wire.size() + attr.value.size() + uint8_t(attr.action);
            for (const Census::AttributeIssue& i : a->issues)
                sum += uint8_t(i.what) * 7u + i.type;
            extra += " sum " + std::to_string(sum);
            extra += " nh ";
            a->mpReach.nextHop.appendTo(extra);
        }
        extra += '\n';
    }
    void onUpdate(const Census::DecodedUpdate& u) override {
        extra += "update " + std::to_string(u.withdrawn.size()) + " " +
                 std::to_string(u.nlri.size()) + "\n";
    }

    std::string extra;
};

struct Run {
    std::string text;
    std::string extra;
    Census::DecodeCounts counts;
    uint64_t records = 0;
    uint64_t offset = 0;
    bool ok = true;
    std::string error;
};

inline Run decodeAll(std::span<const uint8_t> data, size_t chunk, size_t bufferSize) {
    Run r;
    Summary out;
    Census::MrtDecoder decoder(out);
    Census::MrtReader reader(std::make_unique<MemoryInput>(data, chunk), bufferSize);
    try {
        Census::MrtRecord rec;
        while (reader.next(rec)) {
            ORV_FUZZ_CHECK(rec.body.size() <= data.size(), "record body larger than the input");
            decoder.decode(rec);
        }
        r.offset = reader.offset();
    } catch (const Census::ReadError& e) {
        r.ok = false;
        r.error = e.what();
        r.offset = e.offset();
    }
    out.flush();
    r.text = out.text();
    r.extra = std::move(out.extra);
    r.counts = decoder.counts();
    r.records = reader.recordsRead();
    return r;
}

} // namespace MrtFuzz

inline void mrtRecords(std::span<const uint8_t> data) {
    using MrtFuzz::decodeAll;
    MrtFuzz::Run whole = decodeAll(data, data.size() + 1, 64);
    MrtFuzz::Run pieces = decodeAll(data, 7, 1 << 16);

    ORV_FUZZ_CHECK(whole.offset <= data.size(), "offset " + std::to_string(whole.offset));
    ORV_FUZZ_CHECK(whole.ok || whole.error.rfind(std::string(MrtFuzz::kInputName) + ": ", 0) == 0,
                   "error does not name the input: " + whole.error);
    ORV_FUZZ_CHECK(whole.ok == pieces.ok, whole.error + " / " + pieces.error);
    ORV_FUZZ_CHECK(whole.error == pieces.error, whole.error + " / " + pieces.error);
    ORV_FUZZ_CHECK(whole.offset == pieces.offset, "offsets differ");
    ORV_FUZZ_CHECK(whole.records == pieces.records && whole.records == whole.counts.records,
                   "record counts differ");
    ORV_FUZZ_CHECK(whole.text == pieces.text, "bgpdump text differs between the two reads");
    ORV_FUZZ_CHECK(whole.extra == pieces.extra, "decoded attributes differ between the two reads");
    ORV_FUZZ_CHECK(whole.counts.malformed.total() == pieces.counts.malformed.total() &&
                       whole.counts.announcements == pieces.counts.announcements &&
                       whole.counts.withdrawals == pieces.counts.withdrawals &&
                       whole.counts.malformedRecords == pieces.counts.malformedRecords,
                   "counts differ between the two reads");
}

} // namespace OrvFuzz
