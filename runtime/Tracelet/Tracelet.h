// Leveled trace lines, free when off.
//   TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: TunnelEncap::serialize()");
//   TRACE_AT(Tracelet::handle("Census"), 8, TRACE_SOURCE_POS << " id 0x" << std::hex << id);
#pragma once

#include <atomic>
#include <functional>
#include <iosfwd>
#include <sstream>
#include <string>
#include <string_view>

// Levels run from 0 (rare, important) to 9 (most verbose). A handle switched on at level n
// writes the lines of levels 0 to n; a handle that is off writes none. The check is one relaxed
// load and one compare, and the streamed expression is not evaluated at all when it fails.
//
// Switching on: the environment variable ORV_TRACE, read once at load, is a comma-separated list
// of entries "Name:level" or "Name" (meaning level 9); the name "*" means every handle. Later
// entries override earlier ones; a malformed entry is reported on stderr and ignored. Example:
// ORV_TRACE='*:2,OrvBgp:8,Census'. At run time, Handle::levelIs or Tracelet::configure.
//
// Output: each line is handed whole, under one process-wide mutex, to the installed sink; the
// default sink writes "<handle>:<level> <text>\n" to stderr. A sink receives only <text>.
namespace Tracelet {

class Handle {
public:
    static constexpr int off = -1;
    static constexpr int maxLevel = 9;

    // Handles are made by Tracelet::handle(); this constructor is for constant-initialized
    // handles such as orvBgp()'s, which the registry adopts when it starts.
    constexpr explicit Handle(std::string_view name) noexcept : name_(name) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    std::string_view name() const noexcept { return name_; }
    int level() const noexcept { return level_.load(std::memory_order_relaxed); }
    // off (-1) or 0-9; anything else is a programming error.
    void levelIs(int level);
    bool enabled(int level) const noexcept {
        return level <= level_.load(std::memory_order_relaxed);
    }
    // Writes one line whatever the level; TRACE_AT checks enabled() first.
    void write(int level, std::string_view text) const;

private:
    std::string_view name_;
    std::atomic<int> level_{off};
};

// The process-wide handle of that name, made on first use with the level ORV_TRACE (or the
// last configure()) gives it. The reference stays valid for the life of the process; callers
// on hot paths keep it: static Tracelet::Handle& trace = Tracelet::handle("Census");
Handle& handle(std::string_view name);

extern constinit Handle orvBgpHandle;
// The library's default handle, "OrvBgp".
inline Handle& orvBgp() noexcept {
    return orvBgpHandle;
}

// Replaces the whole configuration, as if ORV_TRACE had held `settings`: every handle not named is
// switched off. Throws Mel::ParseException naming the bad entry, leaving levels unchanged.
void configure(std::string_view settings);

// Re-reads ORV_TRACE and applies it as configure() would, except that malformed entries are
// reported on stderr and skipped. Load time does this once; call again after changing it.
void configureFromEnvironment();

using Sink = std::function<void(std::string_view text)>;
// Installs a sink (an empty one restores stderr) and returns the previous one. Calls to the sink
// are serialised, so it need not be thread-safe; it must not trace itself (the lock is held).
Sink sinkIs(Sink sink);

// Installs a sink for its lifetime, then puts the previous one back.
class ScopedSink {
public:
    explicit ScopedSink(Sink sink) : previous_(sinkIs(std::move(sink))) {}
    ~ScopedSink() { sinkIs(std::move(previous_)); }
    ScopedSink(const ScopedSink&) = delete;
    ScopedSink& operator=(const ScopedSink&) = delete;

private:
    Sink previous_;
};

// Where a trace statement stands; streams as "<file name>:<line> <function signature>".
struct SourcePos {
    const char* file;
    int line;
    const char* function;
    // The file name without its directories.
    std::string_view fileName() const noexcept;
};
std::ostream& operator<<(std::ostream& os, const SourcePos& pos);

} // namespace Tracelet

#define TRACE_SOURCE_POS (::Tracelet::SourcePos{__FILE__, __LINE__, __PRETTY_FUNCTION__})

#define TRACE_AT(handle, level, expr)                                                              \
    do {                                                                                           \
        const ::Tracelet::Handle& traceletHandle_ = (handle);                                      \
        if (traceletHandle_.enabled(level)) [[unlikely]] {                                         \
            std::ostringstream traceletStream_;                                                    \
            traceletStream_ << expr;                                                               \
            traceletHandle_.write(level, traceletStream_.view());                                  \
        }                                                                                          \
    } while (0)
