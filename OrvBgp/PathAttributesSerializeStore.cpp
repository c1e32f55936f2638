#include "OrvBgp/PathAttributesSerializeStore.h"

#define ORV_UNIT "OrvBgp/PathAttributesSerializeStore"
#include "Keel/Assert.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "Serialize/Serialize.h"

namespace Routing::Bgp {

void PathAttributesSerializeStoreMethodBase::store(uint8_t attrType,
                                                   std::span<const uint8_t> bytes) {
    if (attrType == BgpPathAttrType::originatorId_ && bytes.size() == 4) {
        uint8_t attribute[7] = {
            pathAttrFlagOptional, attrType, 4, bytes[0], bytes[1], bytes[2], bytes[3]};
        storeAttribute(attrType, attribute);
        return;
    }
    storeAttribute(attrType, bytes);
}

void AttrSetStringStore::storeAttribute(uint8_t attrType, std::span<const uint8_t> attribute) {
    // Byte 1 of every attribute header is its type.
    ORV_ASSERT(attribute.size() >= 3 && attribute[1] == attrType);
    out_.append(reinterpret_cast<const char*>(attribute.data()), attribute.size());
    types_.push_back(attrType);
}

} // namespace Routing::Bgp
