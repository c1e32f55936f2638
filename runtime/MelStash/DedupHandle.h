// The compressed store's interned-object base: a Keel::DedupHandleBase whose objects live in the
// store.
//   class PathAttributes : public MelStash::DedupHandle { ... };   // allocation routed to the
//   store MelStash::CompressedStashSmartPtr<PathAttributes const, 4> p(obj);
#pragma once

#include "Keel/DedupHandleBase.h"
#include "MelStash/StoreManager.h"

namespace MelStash {

// Subclasses that want their own line in the store's figures repeat MELSTASH_STORE_ALLOCATED.
class DedupHandle : public Keel::DedupHandleBase {
    MELSTASH_STORE_ALLOCATED(DedupHandle)
};

// The same, caching the hash (4 more bytes).
class DedupHandleWithHash : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(DedupHandleWithHash)
};

} // namespace MelStash
