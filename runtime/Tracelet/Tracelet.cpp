#define ORV_UNIT "Tracelet/Tracelet"

#include "Tracelet/Tracelet.h"

#include "Keel/Assert.h"
#include "Mel/Exception.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <utility>
#include <vector>

namespace Tracelet {

constinit Handle orvBgpHandle("OrvBgp");

namespace {

using Config = std::vector<std::pair<std::string, int>>;

// Parses a configuration; calls bad(entry, reason) for each malformed entry and skips it.
template <class OnBad>
Config parseSettings(std::string_view settings, OnBad&& bad) {
    Config config;
    while (!settings.empty()) {
        size_t comma = settings.find(',');
        std::string_view entry = settings.substr(0, comma);
        settings = comma == std::string_view::npos ? std::string_view() : settings.substr(comma + 1);
        if (entry.empty()) continue;
        size_t colon = entry.find(':');
        std::string_view name = entry.substr(0, colon);
        int level = Handle::maxLevel;
        if (name.empty()) {
            bad(entry, "no handle name");
            continue;
        }
        if (colon != std::string_view::npos) {
            std::string_view lv = entry.substr(colon + 1);
            if (lv.size() != 1 || lv[0] < '0' || lv[0] > '9') {
                bad(entry, "level must be one digit 0-9");
                continue;
            }
            level = lv[0] - '0';
        }
        config.emplace_back(name, level);
    }
    return config;
}

int levelFor(const Config& config, std::string_view name) {
    int level = Handle::off;
    for (const auto& [n, l] : config)
        if (n == name || n == "*") level = l;
    return level;
}

struct Registry {
    std::mutex mutex; // guards handles and config
    std::map<std::string, std::unique_ptr<Handle>, std::less<>> handles;
    Config config;

    std::mutex outputMutex; // serialises lines and guards sink
    Sink sink;

    // Makes `c` the configuration and sets every handle's level from it.
    void apply(Config c) {
        std::lock_guard lock(mutex);
        config = std::move(c);
        orvBgpHandle.levelIs(levelFor(config, orvBgpHandle.name()));
        for (auto& [name, h] : handles)
            h->levelIs(levelFor(config, name));
    }
};

Config environmentConfig() {
    const char* env = std::getenv("ORV_TRACE");
    if (!env) return {};
    return parseSettings(env, [](std::string_view entry, const char* reason) {
        std::fprintf(stderr, "Tracelet: ignoring ORV_TRACE entry '%.*s': %s\n", int(entry.size()),
                     entry.data(), reason);
    });
}

Registry& registry() {
    // Never destroyed: handles stay usable while other static objects are torn down.
    static Registry* r = [] {
        auto* reg = new Registry;
        reg->apply(environmentConfig());
        return reg;
    }();
    return *r;
}

// Applies ORV_TRACE at load, before any handle is asked for.
[[maybe_unused]] const bool loaded = (registry(), true);

} // namespace

void Handle::levelIs(int level) {
    ORV_ASSERT(level >= off && level <= maxLevel);
    level_.store(level, std::memory_order_relaxed);
}

void Handle::write(int level, std::string_view text) const {
    Registry& r = registry();
    std::lock_guard lock(r.outputMutex);
    if (r.sink) {
        r.sink(text);
        return;
    }
    std::string line;
    line.reserve(name_.size() + text.size() + 4);
    line.append(name_).append(":").append(std::to_string(level)).append(" ");
    line.append(text).append("\n");
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

Handle& handle(std::string_view name) {
    Registry& r = registry();
    if (name == orvBgpHandle.name()) return orvBgpHandle;
    std::lock_guard lock(r.mutex);
    auto it = r.handles.find(name);
    if (it == r.handles.end()) {
        // The key owns the characters the handle's name views.
        it = r.handles.emplace(std::string(name), nullptr).first;
        it->second = std::make_unique<Handle>(it->first);
        it->second->levelIs(levelFor(r.config, name));
    }
    return *it->second;
}

void configure(std::string_view settings) {
    Config config = parseSettings(settings, [](std::string_view entry, const char* reason) {
        throw Mel::ParseException("invalid trace setting '" + std::string(entry) + "': " + reason);
    });
    registry().apply(std::move(config));
}

void configureFromEnvironment() {
    registry().apply(environmentConfig());
}

Sink sinkIs(Sink sink) {
    Registry& r = registry();
    std::lock_guard lock(r.outputMutex);
    std::swap(r.sink, sink);
    return sink;
}

std::string_view SourcePos::fileName() const noexcept {
    std::string_view f(file);
    size_t slash = f.rfind('/');
    return slash == std::string_view::npos ? f : f.substr(slash + 1);
}

std::ostream& operator<<(std::ostream& os, const SourcePos& pos) {
    return os << pos.fileName() << ':' << pos.line << ' ' << pos.function;
}

} // namespace Tracelet
