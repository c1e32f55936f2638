#include "census/Input.h"

#include <bzlib.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace Census {

ReadError::ReadError(const std::string& file, uint64_t offset, const std::string& what)
    : Mel::Exception(file + ": byte " + std::to_string(offset) + ": " + what), file_(file),
      offset_(offset) {}

InputFile::~InputFile() = default;

void InputFile::fail(const std::string& what) const {
    throw ReadError(name_, produced_, what);
}

namespace {

constexpr size_t kRawChunk = 1 << 18;

// The file descriptor and a buffer of raw (possibly compressed) bytes; the first bytes are
// peeked here to choose the decompressor.
class RawSource {
public:
    RawSource(const std::string& path) : buf_(kRawChunk) {
        if (path == "-") {
            fd_ = STDIN_FILENO;
            owned_ = false;
            name_ = "<stdin>";
        } else {
            fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            name_ = path;
            if (fd_ < 0)
                throw ReadError(path, 0, std::string("cannot open: ") + std::strerror(errno));
        }
    }
    ~RawSource() {
        if (owned_ && fd_ >= 0) ::close(fd_);
    }
    RawSource(const RawSource&) = delete;
    RawSource& operator=(const RawSource&) = delete;

    const std::string& name() const { return name_; }

    // Makes at least want bytes available unless the file ends first; returns what is available.
    size_t fill(size_t want, uint64_t producedForErrors) {
        if (end_ - pos_ >= want || eof_) return end_ - pos_;
        if (pos_ > 0) {
            std::memmove(buf_.data(), buf_.data() + pos_, end_ - pos_);
            end_ -= pos_;
            pos_ = 0;
        }
        while (end_ < want && !eof_) {
            ssize_t n = ::read(fd_, buf_.data() + end_, buf_.size() - end_);
            if (n < 0) {
                if (errno == EINTR) continue;
                throw ReadError(name_, producedForErrors,
                                std::string("read failed: ") + std::strerror(errno));
            }
            if (n == 0) eof_ = true;
            rawOffset_ += static_cast<uint64_t>(n);
            end_ += static_cast<size_t>(n);
        }
        return end_ - pos_;
    }
    // Refills whatever room the buffer has; returns available bytes.
    size_t refill(uint64_t producedForErrors) { return fill(buf_.size(), producedForErrors); }

    uint8_t* data() { return buf_.data() + pos_; }
    size_t available() const { return end_ - pos_; }
    void consume(size_t n) { pos_ += n; }
    bool eof() const { return eof_ && pos_ == end_; }
    // Offset in the raw file of the next unconsumed byte.
    uint64_t rawOffset() const { return rawOffset_ - (end_ - pos_); }

    // Reads straight into dst, bypassing the buffer once it is drained (plain files).
    size_t readDirect(uint8_t* dst, size_t n, uint64_t producedForErrors) {
        if (available() > 0) {
            size_t k = std::min(n, available());
            std::memcpy(dst, data(), k);
            consume(k);
            return k;
        }
        while (!eof_) {
            ssize_t r = ::read(fd_, dst, n);
            if (r < 0) {
                if (errno == EINTR) continue;
                throw ReadError(name_, producedForErrors,
                                std::string("read failed: ") + std::strerror(errno));
            }
            if (r == 0) {
                eof_ = true;
                break;
            }
            rawOffset_ += static_cast<uint64_t>(r);
            return static_cast<size_t>(r);
        }
        return 0;
    }

private:
    int fd_ = -1;
    bool owned_ = true;
    bool eof_ = false;
    std::string name_;
    std::vector<uint8_t> buf_;
    size_t pos_ = 0;
    size_t end_ = 0;
    uint64_t rawOffset_ = 0;
};

class PlainInput final : public InputFile {
public:
    explicit PlainInput(std::unique_ptr<RawSource> raw)
        : InputFile(raw->name(), Compression::None), raw_(std::move(raw)) {}
    size_t read(uint8_t* dst, size_t n) override {
        size_t got = 0;
        while (got < n) {
            size_t k = raw_->readDirect(dst + got, n - got, produced_ + got);
            if (k == 0) break;
            got += k;
        }
        produced_ += got;
        return got;
    }

private:
    std::unique_ptr<RawSource> raw_;
};

class GzipInput final : public InputFile {
public:
    explicit GzipInput(std::unique_ptr<RawSource> raw)
        : InputFile(raw->name(), Compression::Gzip), raw_(std::move(raw)) {
        std::memset(&z_, 0, sizeof z_);
        if (inflateInit2(&z_, 16 + MAX_WBITS) != Z_OK) fail("cannot initialise gzip decompression");
        live_ = true;
    }
    ~GzipInput() override {
        if (live_) inflateEnd(&z_);
    }

    size_t read(uint8_t* dst, size_t n) override {
        size_t got = 0;
        while (got < n && !done_) {
            if (!inMember_) {
                // Between members: the end of the file, or another gzip header.
                if (raw_->fill(2, produced_ + got) == 0) {
                    done_ = true;
                    break;
                }
                if (raw_->available() < 2 || raw_->data()[0] != 0x1f || raw_->data()[1] != 0x8b) {
                    produced_ += got;
                    fail(where() + "trailing bytes after gzip data");
                }
                inflateReset(&z_);
                inMember_ = true;
            }
            if (raw_->available() == 0) raw_->refill(produced_ + got);
            size_t room = std::min<size_t>(n - got, 1u << 30);
            size_t inBefore = std::min<size_t>(raw_->available(), 1u << 30);
            z_.next_in = raw_->data();
            z_.avail_in = static_cast<uInt>(inBefore);
            z_.next_out = dst + got;
            z_.avail_out = static_cast<uInt>(room);
            int rc = inflate(&z_, Z_NO_FLUSH);
            size_t usedIn = inBefore - z_.avail_in;
            size_t madeOut = room - z_.avail_out;
            raw_->consume(usedIn);
            got += madeOut;
            if (rc == Z_STREAM_END) {
                inMember_ = false;
                continue;
            }
            if (rc != Z_OK && rc != Z_BUF_ERROR) {
                produced_ += got;
                fail(where() + "corrupt gzip data (" + (z_.msg ? z_.msg : "zlib error") + ")");
            }
            if (usedIn == 0 && madeOut == 0 && raw_->available() == 0 &&
                raw_->refill(produced_ + got) == 0) {
                produced_ += got;
                fail(where() + "gzip data cut short (no end of stream)");
            }
        }
        produced_ += got;
        return got;
    }

private:
    std::string where() const {
        return "at compressed byte " + std::to_string(raw_->rawOffset()) + ": ";
    }

    std::unique_ptr<RawSource> raw_;
    z_stream z_;
    bool live_ = false;
    bool inMember_ = false;
    bool done_ = false;
};

class Bzip2Input final : public InputFile {
public:
    explicit Bzip2Input(std::unique_ptr<RawSource> raw)
        : InputFile(raw->name(), Compression::Bzip2), raw_(std::move(raw)) {}
    ~Bzip2Input() override {
        if (live_) BZ2_bzDecompressEnd(&bz_);
    }

    size_t read(uint8_t* dst, size_t n) override {
        size_t got = 0;
        while (got < n && !done_) {
            if (!inStream_) {
                if (raw_->fill(3, produced_ + got) == 0) {
                    done_ = true;
                    break;
                }
                const uint8_t* p = raw_->data();
                if (raw_->available() < 3 || p[0] != 'B' || p[1] != 'Z' || p[2] != 'h') {
                    produced_ += got;
                    fail(where() + "trailing bytes after bzip2 data");
                }
                start();
            }
            if (raw_->available() == 0) raw_->refill(produced_ + got);
            size_t room = std::min<size_t>(n - got, 1u << 30);
            size_t inBefore = std::min<size_t>(raw_->available(), 1u << 30);
            bz_.next_in = reinterpret_cast<char*>(raw_->data());
            bz_.avail_in = static_cast<unsigned>(inBefore);
            bz_.next_out = reinterpret_cast<char*>(dst + got);
            bz_.avail_out = static_cast<unsigned>(room);
            int rc = BZ2_bzDecompress(&bz_);
            size_t usedIn = inBefore - bz_.avail_in;
            size_t madeOut = room - bz_.avail_out;
            raw_->consume(usedIn);
            got += madeOut;
            if (rc == BZ_STREAM_END) {
                BZ2_bzDecompressEnd(&bz_);
                live_ = false;
                inStream_ = false;
                continue;
            }
            if (rc != BZ_OK) {
                produced_ += got;
                fail(where() + "corrupt bzip2 data (code " + std::to_string(rc) + ")");
            }
            if (usedIn == 0 && madeOut == 0 && raw_->available() == 0 &&
                raw_->refill(produced_ + got) == 0) {
                produced_ += got;
                fail(where() + "bzip2 data cut short (no end of stream)");
            }
        }
        produced_ += got;
        return got;
    }

private:
    void start() {
        std::memset(&bz_, 0, sizeof bz_);
        if (BZ2_bzDecompressInit(&bz_, 0, 0) != BZ_OK)
            fail("cannot initialise bzip2 decompression");
        live_ = true;
        inStream_ = true;
    }
    std::string where() const {
        return "at compressed byte " + std::to_string(raw_->rawOffset()) + ": ";
    }

    std::unique_ptr<RawSource> raw_;
    bz_stream bz_;
    bool live_ = false;
    bool inStream_ = false;
    bool done_ = false;
};

} // namespace

std::unique_ptr<InputFile> InputFile::open(const std::string& path) {
    auto raw = std::make_unique<RawSource>(path);
    raw->fill(3, 0);
    const uint8_t* p = raw->data();
    size_t n = raw->available();
    if (n >= 2 && p[0] == 0x1f && p[1] == 0x8b) return std::make_unique<GzipInput>(std::move(raw));
    if (n >= 3 && p[0] == 'B' && p[1] == 'Z' && p[2] == 'h')
        return std::make_unique<Bzip2Input>(std::move(raw));
    return std::make_unique<PlainInput>(std::move(raw));
}

} // namespace Census
