#include "OrvBgp/PathAttributesSerializeStore.h"

#define ORV_UNIT "OrvBgp/PathAttributesSerializeStore"
#include "Keel/Assert.h"

namespace Routing::Bgp {

void AttrSetStringStore::store(uint8_t attrType, std::span<const uint8_t> attribute) {
    // Byte 1 of every attribute header is its type.
    ORV_ASSERT(attribute.size() >= 3 && attribute[1] == attrType);
    out_.append(reinterpret_cast<const char*>(attribute.data()), attribute.size());
    types_.push_back(attrType);
}

} // namespace Routing::Bgp
