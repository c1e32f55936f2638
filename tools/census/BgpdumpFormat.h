// The one-line-per-path text of `bgpdump -m` (version 1.6.2), byte for byte, for comparing this
// reader with that tool: RIB entries as "TABLE_DUMP|..." / "TABLE_DUMP2|...", UPDATE prefixes as
// "BGP4MP|ts|A|..." / "BGP4MP|ts|W|...", state changes as "BGP4MP|ts|STATE|...".
//   Census::BgpdumpFormatter fmt(stdout);  Census::MrtDecoder dec(fmt);  ... dec.decode(rec); ...
//   fmt.flush();                            // or BgpdumpFormatter fmt(nullptr) and fmt.text()
// It prints what arrived, as that tool does: paths that RFC 7606 would treat as withdrawn are
// printed all the same, and multicast RIB subtypes, which that tool does not read, are not. Where
// that tool folds AS4_PATH in its own way (see BgpdumpFormat.cpp) the text follows it, not
// DecodedAttributes::effectiveAsPath().
#pragma once

#include "census/MrtDecoder.h"

#include <cstdio>
#include <string>

namespace Census {

class BgpdumpFormatter : public MrtHandler {
public:
    // With a sink the text is written there in large blocks; without, it collects in text().
    explicit BgpdumpFormatter(std::FILE* sink) : sink_(sink) {}
    ~BgpdumpFormatter() override;

    void onPath(const DecodedPath& p) override;
    void onStateChange(const StateChange& s) override;

    void flush();
    // The errno of the first write to the sink that failed; 0 while none has.
    int writeError() const noexcept { return writeError_; }
    const std::string& text() const noexcept { return out_; }
    uint64_t lines() const noexcept { return lines_; }

private:
    void header(const MrtRecord& rec, bool addPath, bool local, const char* kind);
    void maybeFlush() {
        if (sink_ && out_.size() >= (1 << 16)) flush();
    }

    std::FILE* sink_;
    std::string out_;
    AsPath scratch_;
    uint64_t lines_ = 0;
    int writeError_ = 0;
};

// An IPv6 address as that tool prints it: the longest run of zero groups becomes "::" even when
// it is one group long (the first of equal runs), and an address whose first six groups are zero,
// or the first five zero and the sixth ffff, ends in a dotted quad ("::1" and "::" excepted).
// The reader's own text (IpAddress::appendTo) keeps the RFC 5952 form.
void appendBgpdumpIpv6(std::string& out, const uint8_t* bytes16);

// The AS path as that tool prints it: sequences space-separated, "{a,b}" sets, "(a b)"
// confederation sequences, "[a,b]" confederation sets, cut with "..." past about 7900 characters.
void appendBgpdumpAsPath(std::string& out, const AsPath& path);

} // namespace Census
