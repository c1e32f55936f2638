#include "MelStash/StashReader.h"

#include <mutex>
#include <shared_mutex>
#include <unordered_map>

namespace MelStash {

namespace {
struct Registry {
    std::shared_mutex mutex;
    std::unordered_map<std::type_index, const StashReaderBase*> readers;
};
Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}
} // namespace

void StashReaderRegistry::registerReader(std::type_index cls, const StashReaderBase* reader) {
    Registry& r = registry();
    std::unique_lock lock(r.mutex);
    r.readers[cls] = reader;
}

const StashReaderBase* StashReaderRegistry::find(std::type_index cls) noexcept {
    Registry& r = registry();
    std::shared_lock lock(r.mutex);
    auto it = r.readers.find(cls);
    return it == r.readers.end() ? nullptr : it->second;
}

} // namespace MelStash
