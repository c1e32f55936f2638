// A byte source over a plain, gzip or bzip2 file, or over stdin; the compression is recognised from
// the first bytes, never from the file name.
//   auto in = Census::InputFile::open("updates.20160811.1600.gz");   // "-" reads stdin
//   while (size_t n = in->read(buf, sizeof buf)) consume(buf, n);
// The census tool's reading side (tools/census) lives in namespace Census: it is not part of the
// library, which never parses the wire itself.
#pragma once

#include "Mel/Exception.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Census {

// A file that cannot be read on. what() names the file and the byte offset; the offset counts
// decompressed bytes, which is where MRT records live, and for a compressed file the message gives
// the compressed offset too.
class ReadError : public Mel::Exception {
public:
    ReadError(const std::string& file, uint64_t offset, const std::string& what);
    const std::string& file() const noexcept { return file_; }
    uint64_t offset() const noexcept { return offset_; }

private:
    std::string file_;
    uint64_t offset_;
};

enum class Compression : uint8_t { None, Gzip, Bzip2 };

class InputFile {
public:
    virtual ~InputFile();

    // Opens path ("-" for stdin) and looks at its first bytes. Throws ReadError when the file
    // cannot be opened.
    static std::unique_ptr<InputFile> open(const std::string& path);

    // Fills dst with up to n decompressed bytes; returns how many, 0 only at the end of the data.
    // Throws ReadError on an I/O error, corrupt compressed data or compressed data cut short;
    // bytes returned before stay valid, except that corruption the format catches only at its
    // next check (gzip: a member's CRC at its end) may already have passed through. Concatenated
    // gzip members and bzip2 streams are read through as one.
    // An error met after some bytes of a call were produced is held back: those bytes are
    // returned, and the next call throws.
    size_t read(uint8_t* dst, size_t n);

    const std::string& name() const noexcept { return name_; }
    Compression compression() const noexcept { return compression_; }
    // Decompressed bytes handed out so far.
    uint64_t offset() const noexcept { return produced_; }

protected:
    InputFile(std::string name, Compression c) : name_(std::move(name)), compression_(c) {}
    // Produces up to n bytes into dst, counting them in got as it goes (got survives a throw).
    virtual void fill(uint8_t* dst, size_t n, size_t& got) = 0;
    // Throws ReadError at the offset of the first byte not produced.
    [[noreturn]] void fail(const std::string& what, size_t got) const;

    std::string name_;
    Compression compression_;
    uint64_t produced_ = 0;
    std::unique_ptr<ReadError> pending_;
};

} // namespace Census
