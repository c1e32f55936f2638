// Where attribute serializers deliver their output: one call per attribute, in the order written.
//   AttrSetStringStore store;  clusterList->serialize(store);
//   store.bytes().toHex() == "800904c0000201800a04c0000202";  store.attrTypes() == {9, 10}
#pragma once

#include "Mel/Bytes.h"
#include "Mel/String.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Routing::Bgp {

// The sink interface of the attribute-set serializer. Serializers call store(type, bytes); a sink
// receives, through storeAttribute, the complete path attribute as it goes on the wire: flags,
// type, 1- or 2-byte length, then the value, valid only during the call (a sink that keeps it
// copies it). The one exception on the calling side is ORIGINATOR_ID, which the cluster list hands
// over as its bare 4-byte address; store() wraps it (flags 0x80, type 9, length 4) before the sink
// sees it.
class PathAttributesSerializeStoreMethodBase {
public:
    virtual ~PathAttributesSerializeStoreMethodBase() = default;
    void store(uint8_t attrType, std::span<const uint8_t> bytes);
    void store(uint8_t attrType, const Mel::Bytes& bytes) { store(attrType, bytes.span()); }

protected:
    virtual void storeAttribute(uint8_t attrType, std::span<const uint8_t> attribute) = 0;
};

// Gathers the attributes it is given, back to back, in the order given. Asserts that each
// attribute's header names the type it is stored under.
class AttrSetStringStore : public PathAttributesSerializeStoreMethodBase {
public:
protected:
    void storeAttribute(uint8_t attrType, std::span<const uint8_t> attribute) override;

public:
    const Mel::String& str() const noexcept { return out_; }
    Mel::Bytes bytes() const { return Mel::Bytes(out_.data(), out_.size()); }
    // The types stored, in order.
    const std::vector<uint8_t>& attrTypes() const noexcept { return types_; }
    void clear() noexcept {
        out_.clear();
        types_.clear();
    }

private:
    Mel::String out_;
    std::vector<uint8_t> types_;
};

} // namespace Routing::Bgp
