#include "census/Ingest.h"

#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/RibOutBgpPathAttributes.h"

namespace Census {

using namespace Routing::Bgp;

IngestCounts& IngestCounts::operator+=(const IngestCounts& o) {
    announced += o.announced;
    withdrawn += o.withdrawn;
    unusable += o.unusable;
    setsInterned += o.setsInterned;
    buildFailures += o.buildFailures;
    internTicks += o.internTicks;
    return *this;
}

Ingest::~Ingest() = default;

InternedSets Ingest::intern(const PathAttributesContents& c) {
    ++counts_.setsInterned;
    InternedSets s;
    s.in = PathAttributes::dedupContent(&PathAttributesDedupTable::instance(), c);
    InternedSets& cached =
        outCache_[(uintptr_t(s.in.get()) >> 3) * 0x9e3779b97f4a7c15ULL >> 54 & (kOutCacheSize - 1)];
    if (cached.in.get() != s.in.get()) {
        InternedSets& gone = releasing_[releaseAt_++ % kReleaseLag];
        gone = std::move(cached); // releases the pair pushed out kReleaseLag times ago
        __builtin_prefetch(gone.in.get(), 1);
        __builtin_prefetch(gone.out.get(), 1);
        cached.in = s.in;
        cached.out =
            RibOutPathAttributes::dedupContent(&RibOutPathAttributesDedupTable::instance(), c);
    }
    s.out = cached.out;
    return s;
}

void Ingest::dropCaches() {
    for (size_t i = 0; i < kOutCacheSize; ++i)
        outCache_[i] = InternedSets();
    releasing_.fill(InternedSets());
}

} // namespace Census
