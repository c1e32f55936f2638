// The bgp-attr-census command line, callable in-process (tools/census/main.cpp is only this).
//   int status = Census::censusMain(argc, argv, stdout, stderr);
// Exit status: 0; 1 when a file could not be read to its end (everything read before it is still
// in the report) or an output file could not be written; 2 for a usage error.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace Census {

// A whole decimal number within T's range and nothing else ("12" yes; "", "12x", "-1" no).
template <class T>
bool parseNumber(const char* s, T& v) {
    const char* end = s + std::strlen(s);
    auto [p, ec] = std::from_chars(s, end, v);
    return ec == std::errc() && p == end && p != s;
}

struct CliOptions {
    std::vector<std::string> files;
    bool dump = false;
    bool measure = false;
    bool roundTrip = true;
    bool progress = true;
    unsigned threads = 1;
    uint64_t paths = 1000000;
    uint32_t peers = 20;
    uint64_t seed = 1;
    bool syntheticAsked = false;
    std::string json;
    std::string svg;
};

// Parses argv[1..]; nullopt (with the reason in error) for a usage error.
std::optional<CliOptions> parseCensusArgs(int argc, const char* const* argv, std::string& error);

// With exitWhenDone, the process ends (std::_Exit, after flushing out and err) once the report is
// written, without releasing the routes one by one first: the tool's main uses it, since the
// system takes the memory back at once. In-process callers keep the default and get a return.
int censusMain(int argc, const char* const* argv, std::FILE* out, std::FILE* err,
               bool exitWhenDone = false);

} // namespace Census
