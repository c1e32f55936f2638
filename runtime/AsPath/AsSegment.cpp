#include "AsPath/AsSegment.h"

#define ORV_UNIT "AsPath/AsSegment"
#include "Keel/Assert.h"

namespace Routing::Bgp {

AsSet::AsSet(AsSegmentType type) : AsSegment(type) {
    ORV_ASSERT(type.isSet());
}

AsSequence::AsSequence(AsSegmentType type) : AsSegment(type) {
    ORV_ASSERT(type.isSequence());
}

Mel::Ptr<AsSegment> asSegmentFactory(AsSegmentType type,
                                     std::span<const Orvnet::AutonomousSystem> as) {
    ORV_ASSERT(type.isValid());
    Mel::Ptr<AsSegment> s;
    if (type.isSet())
        s = new AsSet(type);
    else
        s = new AsSequence(type);
    s->asReserve(as.size());
    for (Orvnet::AutonomousSystem a : as)
        s->asAppend(a);
    return s;
}

Mel::Ptr<AsSegment> asSegmentFactory(AsSegmentType type, std::initializer_list<uint32_t> as) {
    AsVector v(as.begin(), as.end());
    return asSegmentFactory(type, std::span<const Orvnet::AutonomousSystem>(v.data(), v.size()));
}

} // namespace Routing::Bgp
