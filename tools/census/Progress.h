// A one-line progress bar on a terminal: what is being read, how far, how fast.
//   Census::Progress bar(stderr, "bview.20020722.2337.gz", totalBytes);  // 0: total unknown
//   bar.update(bytesDone, pathsDone); ... bar.finish();
// It redraws at most ten times a second, so callers may update it per record. Whether to show it
// at all is the caller's decision (Progress::wanted: a terminal and a large input).
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace Census {

class Progress {
public:
    // Inputs smaller than this (decompressed bytes, or paths for the synthetic table) finish
    // before a bar would help.
    static constexpr uint64_t kLargeBytes = 4u << 20;
    static constexpr uint64_t kLargePaths = 200000;

    Progress(std::FILE* out, std::string what, uint64_t total);
    ~Progress() { finish(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void update(uint64_t done, uint64_t paths) {
        if (!out_ || ++calls_ % 64) return;
        draw(done, paths, false);
    }
    // Draws the final state and ends the line.
    void finish();
    void finalIs(uint64_t done, uint64_t paths) {
        done_ = done;
        paths_ = paths;
    }

    // Whether a bar belongs on out: it is a terminal.
    static bool isTerminal(std::FILE* out);
    // The decompressed size of a file when it can be known without reading it: the size of a
    // plain file, the trailer of a one-member gzip file; 0 otherwise (bzip2, stdin).
    static uint64_t expectedBytes(const std::string& path);

private:
    void draw(uint64_t done, uint64_t paths, bool force);

    std::FILE* out_;
    std::string what_;
    uint64_t total_;
    uint64_t calls_ = 0;
    uint64_t done_ = 0;
    uint64_t paths_ = 0;
    bool finished_ = false;
    std::chrono::steady_clock::time_point start_, last_;
};

} // namespace Census
