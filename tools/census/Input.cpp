#include "census/Input.h"

#include <bzlib.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <vector>

namespace Census {

ReadError::ReadError(const std::string& file, uint64_t offset, const std::string& what)
    : Mel::Exception(file + ": byte " + std::to_string(offset) + ": " + what), file_(file),
      offset_(offset) {}

InputFile::~InputFile() = default;

void InputFile::fail(const std::string& what, size_t got) const {
    throw ReadError(name_, produced_ + got, what);
}

size_t InputFile::read(uint8_t* dst, size_t n) {
    if (pending_) throw ReadError(*pending_);
    size_t got = 0;
    try {
        fill(dst, n, got);
    } catch (const ReadError& e) {
        if (got == 0) throw;
        pending_ = std::make_unique<ReadError>(e);
    }
    produced_ += got;
    return got;
}

namespace {

constexpr size_t kRawChunk = 64 << 10;
constexpr size_t kMaxStep = size_t(1) << 30; // what one zlib/bzip2 call may be handed

// The file descriptor and a buffer of raw (possibly compressed) bytes; the first bytes are
// peeked here to choose the decompressor. Read errors throw with the decompressed offset the
// caller gives.
class RawSource {
public:
    explicit RawSource(const std::string& path) {
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
    size_t fill(size_t want, uint64_t at) {
        if (end_ - pos_ >= want || eof_) return end_ - pos_;
        if (pos_ > 0) {
            std::memmove(buf_.data(), buf_.data() + pos_, end_ - pos_);
            end_ -= pos_;
            pos_ = 0;
        }
        while (end_ < want && !eof_) {
            size_t n = sysRead(buf_.data() + end_, buf_.size() - end_, at);
            eof_ = n == 0;
            end_ += n;
        }
        return end_ - pos_;
    }
    // Tops the buffer up if it is empty; returns available bytes.
    size_t refill(uint64_t at) { return end_ > pos_ ? end_ - pos_ : fill(buf_.size(), at); }

    uint8_t* data() { return buf_.data() + pos_; }
    size_t available() const { return end_ - pos_; }
    void consume(size_t n) { pos_ += n; }
    // Offset in the raw file of the next unconsumed byte.
    uint64_t rawOffset() const { return rawOffset_ - (end_ - pos_); }

    // Reads straight into dst once the buffer is drained (plain files).
    size_t readDirect(uint8_t* dst, size_t n, uint64_t at) {
        if (available() > 0) {
            size_t k = std::min(n, available());
            std::memcpy(dst, data(), k);
            consume(k);
            return k;
        }
        if (eof_) return 0;
        size_t k = sysRead(dst, n, at);
        eof_ = k == 0;
        return k;
    }

private:
    size_t sysRead(uint8_t* dst, size_t n, uint64_t at) {
        for (;;) {
            ssize_t r = ::read(fd_, dst, n);
            if (r >= 0) {
                rawOffset_ += uint64_t(r);
                return size_t(r);
            }
            if (errno != EINTR)
                throw ReadError(name_, at, std::string("read failed: ") + std::strerror(errno));
        }
    }

    int fd_ = -1;
    bool owned_ = true;
    bool eof_ = false;
    std::string name_;
    // Left uninitialised: a small file touches only the pages it fills (one file of a long stream
    // of five-minute updates is often smaller than the buffer).
    struct Buffer {
        std::unique_ptr<uint8_t[]> bytes{new uint8_t[kRawChunk]};
        uint8_t* data() noexcept { return bytes.get(); }
        static constexpr size_t size() noexcept { return kRawChunk; }
    } buf_;
    size_t pos_ = 0;
    size_t end_ = 0;
    uint64_t rawOffset_ = 0;
};

class PlainInput final : public InputFile {
public:
    explicit PlainInput(std::unique_ptr<RawSource> raw)
        : InputFile(raw->name(), Compression::None), raw_(std::move(raw)) {}

private:
    void fill(uint8_t* dst, size_t n, size_t& got) override {
        while (got < n) {
            size_t k = raw_->readDirect(dst + got, n - got, produced_ + got);
            if (k == 0) break;
            got += k;
        }
    }

    std::unique_ptr<RawSource> raw_;
};

// Shared loop of the two decompressors: Codec provides start() (a new member or stream),
// step() (one call of the library; returns true at the end of a member or stream) and the magic
// bytes that may follow a finished member.
template <class Codec>
class CompressedInput final : public InputFile {
public:
    CompressedInput(std::unique_ptr<RawSource> raw, Compression c)
        : InputFile(raw->name(), c), raw_(std::move(raw)) {}

private:
    void fill(uint8_t* dst, size_t n, size_t& got) override {
        while (got < n && !done_) {
            if (!inMember_) {
                // Between members: the end of the file, or another header.
                if (raw_->fill(Codec::kMagic.size(), produced_ + got) == 0) {
                    done_ = true;
                    break;
                }
                if (raw_->available() < Codec::kMagic.size() ||
                    !std::equal(Codec::kMagic.begin(), Codec::kMagic.end(), raw_->data()))
                    fail(where() + "trailing bytes after " + Codec::kName + " data", got);
                codec_.start(*this, got);
                inMember_ = true;
            }
            raw_->refill(produced_ + got);
            const size_t room = std::min(n - got, kMaxStep);
            const size_t inBefore = std::min(raw_->available(), kMaxStep);
            size_t usedIn = 0, madeOut = 0;
            std::string error;
            const bool end =
                codec_.step(raw_->data(), inBefore, dst + got, room, usedIn, madeOut, error);
            raw_->consume(usedIn);
            got += madeOut;
            if (!error.empty())
                fail(where() + "corrupt " + Codec::kName + " data (" + error + ")", got);
            if (end) {
                inMember_ = false;
                continue;
            }
            // No progress with nothing left to feed: the data stops inside a member.
            if (usedIn == 0 && madeOut == 0 && raw_->refill(produced_ + got) == 0)
                fail(where() + Codec::kName + " data cut short (no end of stream)", got);
        }
    }

    std::string where() const {
        return "at compressed byte " + std::to_string(raw_->rawOffset()) + ": ";
    }

    friend Codec;
    std::unique_ptr<RawSource> raw_;
    Codec codec_;
    bool inMember_ = false;
    bool done_ = false;
};

struct GzipCodec {
    static constexpr std::array<uint8_t, 2> kMagic{0x1f, 0x8b};
    static constexpr const char* kName = "gzip";

    GzipCodec() {
        std::memset(&z, 0, sizeof z);
        live = inflateInit2(&z, 16 + MAX_WBITS) == Z_OK;
    }
    ~GzipCodec() {
        if (live) inflateEnd(&z);
    }
    template <class Input>
    void start(Input& in, size_t got) {
        if (!live || inflateReset(&z) != Z_OK) in.fail("cannot initialise gzip decompression", got);
    }
    bool step(uint8_t* in, size_t inLen, uint8_t* out, size_t outLen, size_t& usedIn,
              size_t& madeOut, std::string& error) {
        z.next_in = in;
        z.avail_in = uInt(inLen);
        z.next_out = out;
        z.avail_out = uInt(outLen);
        int rc = inflate(&z, Z_NO_FLUSH);
        usedIn = inLen - z.avail_in;
        madeOut = outLen - z.avail_out;
        if (rc != Z_OK && rc != Z_BUF_ERROR && rc != Z_STREAM_END)
            error = z.msg ? z.msg : "zlib error " + std::to_string(rc);
        return rc == Z_STREAM_END;
    }

    z_stream z;
    bool live = false;
};

struct Bzip2Codec {
    static constexpr std::array<uint8_t, 3> kMagic{'B', 'Z', 'h'};
    static constexpr const char* kName = "bzip2";

    ~Bzip2Codec() { stop(); }
    template <class Input>
    void start(Input& in, size_t got) {
        stop();
        std::memset(&bz, 0, sizeof bz);
        if (BZ2_bzDecompressInit(&bz, 0, 0) != BZ_OK)
            in.fail("cannot initialise bzip2 decompression", got);
        live = true;
    }
    bool step(uint8_t* in, size_t inLen, uint8_t* out, size_t outLen, size_t& usedIn,
              size_t& madeOut, std::string& error) {
        bz.next_in = reinterpret_cast<char*>(in);
        bz.avail_in = unsigned(inLen);
        bz.next_out = reinterpret_cast<char*>(out);
        bz.avail_out = unsigned(outLen);
        int rc = BZ2_bzDecompress(&bz);
        usedIn = inLen - bz.avail_in;
        madeOut = outLen - bz.avail_out;
        if (rc != BZ_OK && rc != BZ_STREAM_END) error = "libbz2 code " + std::to_string(rc);
        return rc == BZ_STREAM_END;
    }
    void stop() {
        if (live) BZ2_bzDecompressEnd(&bz);
        live = false;
    }

    bz_stream bz;
    bool live = false;
};

} // namespace

std::unique_ptr<InputFile> InputFile::open(const std::string& path) {
    auto raw = std::make_unique<RawSource>(path);
    raw->fill(3, 0);
    const uint8_t* p = raw->data();
    const size_t n = raw->available();
    if (n >= 2 && p[0] == 0x1f && p[1] == 0x8b)
        return std::make_unique<CompressedInput<GzipCodec>>(std::move(raw), Compression::Gzip);
    if (n >= 3 && p[0] == 'B' && p[1] == 'Z' && p[2] == 'h')
        return std::make_unique<CompressedInput<Bzip2Codec>>(std::move(raw), Compression::Bzip2);
    return std::make_unique<PlainInput>(std::move(raw));
}

} // namespace Census
