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
    s.out = RibOutPathAttributes::dedupContent(&RibOutPathAttributesDedupTable::instance(), c);
    return s;
}

} // namespace Census
