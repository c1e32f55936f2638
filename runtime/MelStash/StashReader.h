// The stash-reader registry: a stored class maps to the reader that reads it back, prints it and
// writes it, without building a live object.
//   static AsSequenceReader reader;
//   MelStash::StashReaderRegistry::registerReader(typeid(AsSequence), &reader); auto* r =
//   MelStash::StashReaderRegistry::readerFor<AspathReader>(typeid(*stored));  // null if none
#pragma once

#include <typeindex>
#include <typeinfo>

namespace MelStash {

// Families derive their reader interfaces (destash, stashStrep, stashSerialize with the family's
// own signatures) from this base.
class StashReaderBase {
public:
    virtual ~StashReaderBase() = default;
};

class StashReaderRegistry {
public:
    // Replaces any reader registered for the class before. Readers live as long as the process.
    static void registerReader(std::type_index cls, const StashReaderBase* reader);
    static const StashReaderBase* find(std::type_index cls) noexcept;
    template <class R>
    static const R* readerFor(std::type_index cls) noexcept {
        return dynamic_cast<const R*>(find(cls));
    }
};

} // namespace MelStash
