#include "census/Progress.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Census {

Progress::Progress(std::FILE* out, std::string what, uint64_t total)
    : out_(out), what_(std::move(what)), total_(total), start_(std::chrono::steady_clock::now()),
      last_(start_) {}

void Progress::finish() {
    if (!out_ || finished_) return;
    finished_ = true;
    draw(done_, paths_, true);
    std::fputc('\n', out_);
    std::fflush(out_);
}

void Progress::draw(uint64_t done, uint64_t paths, bool force) {
    auto now = std::chrono::steady_clock::now();
    if (!force && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    done_ = std::max(done_, done);
    paths_ = std::max(paths_, paths);
    double secs = std::chrono::duration<double>(now - start_).count();
    double rate = secs > 0 ? double(paths_) / secs : 0;
    constexpr int width = 30;
    char bar[width + 1];
    if (total_) {
        int fill = int(std::min<double>(1.0, double(done_) / double(total_)) * width);
        std::fill(bar, bar + fill, '#');
        std::fill(bar + fill, bar + width, '.');
    } else {
        // Unknown total: a block that walks along the bar.
        std::fill(bar, bar + width, '.');
        int at = int(calls_ / 64) % (width - 3);
        std::fill(bar + at, bar + at + 3, '#');
    }
    bar[width] = '\0';
    if (total_)
        std::fprintf(out_, "\r%-24.24s [%s] %5.1f%%  %10llu paths  %8.0f paths/s ", what_.c_str(),
                     bar, 100.0 * std::min<double>(1.0, double(done_) / double(total_)),
                     (unsigned long long)paths_, rate);
    else
        std::fprintf(out_, "\r%-24.24s [%s] %7.1f MB  %10llu paths  %8.0f paths/s ", what_.c_str(),
                     bar, double(done_) / 1e6, (unsigned long long)paths_, rate);
    std::fflush(out_);
}

bool Progress::isTerminal(std::FILE* out) {
    return out && isatty(fileno(out));
}

uint64_t Progress::expectedBytes(const std::string& path) {
    if (path == "-") return 0;
    // Only a regular file is opened (a named pipe would wait for its writer); plain reads, as
    // this runs once per file before anything else, where a stream's set-up would show.
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return 0;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    uint64_t n = 0;
    unsigned char head[3] = {};
    if (fstat(fd, &st) == 0) {
        if (pread(fd, head, 3, 0) < 3) {
            n = uint64_t(st.st_size);
        } else if (head[0] == 0x1f && head[1] == 0x8b) {
            // ISIZE: the member's length mod 2^32, little-endian, in the last four bytes.
            unsigned char t[4];
            if (st.st_size >= 18 && pread(fd, t, 4, st.st_size - 4) == 4)
                n = uint64_t(t[0]) | uint64_t(t[1]) << 8 | uint64_t(t[2]) << 16 |
                    uint64_t(t[3]) << 24;
        } else if (!(head[0] == 'B' && head[1] == 'Z' && head[2] == 'h')) {
            n = uint64_t(st.st_size);
        }
    }
    ::close(fd);
    return n;
}

} // namespace Census
