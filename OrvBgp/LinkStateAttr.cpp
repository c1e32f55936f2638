#include "OrvBgp/LinkStateAttr.h"

#include "Keel/HashMix.h"
#include "Tracelet/Tracelet.h"

#include <cstring>

namespace Routing::Bgp {

uint32_t LinkStateAttrContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(static_cast<uint32_t>(value.size()));
    m.hashMix(Keel::hashBytes(value.data(), value.size()));
    return m.result();
}

LinkStateAttrDedupTable& LinkStateAttrDedupTable::instance() {
    static auto* t = new LinkStateAttrDedupTable("LinkStateAttrDedupTable");
    return *t;
}

LinkStateAttrBase::LinkStateAttrBase(const LinkStateAttrContent& c)
    : size_(static_cast<uint32_t>(c.value.size())) {
    hashIs(c.hash());
    if (size_) std::memcpy(bytes_, c.value.data(), size_);
}

Mel::PtrConst<LinkStateAttrBase> LinkStateAttrBase::intern(std::span<const uint8_t> value) {
    LinkStateAttrContent c;
    c.value = value;
    return LinkStateAttrDedupTable::instance().findOrCreate(
        c.hash(), c, [&] { return new (MelStash::ExtraBytes{value.size()}) LinkStateAttrBase(c); });
}

bool LinkStateAttrBase::compare(const Keel::DedupHandleBase* other) const {
    auto* o = static_cast<const LinkStateAttrBase*>(other);
    return o->size_ == size_ && std::memcmp(o->bytes_, bytes_, size_) == 0;
}

bool LinkStateAttrBase::compareByContent(const Keel::DedupContentHandle& content) const {
    auto& v = static_cast<const LinkStateAttrContent&>(content).value;
    return v.size() == size_ && (size_ == 0 || std::memcmp(v.data(), bytes_, size_) == 0);
}

void LinkStateAttrBase::serialize(Serialize& s) const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: LinkStateAttrBase::serialize()");
    SerializePathAttribute(s, attrType, attrFlags, size_);
    s.addData(bytes_, size_);
}

Mel::Bytes LinkStateAttrBase::serialize() const {
    Serialize s;
    serialize(s);
    return s.serializedBytes();
}

std::string LinkStateAttrBase::toStrep() const {
    std::string out;
    uint32_t off = 0;
    while (off + 4 <= size_) {
        unsigned type = unsigned(bytes_[off]) << 8 | bytes_[off + 1];
        unsigned len = unsigned(bytes_[off + 2]) << 8 | bytes_[off + 3];
        if (off + 4 + len > size_) break;
        if (!out.empty()) out += ", ";
        out += "tlv " + std::to_string(type) + " len " + std::to_string(len);
        off += 4 + len;
    }
    if (off < size_) {
        if (!out.empty()) out += ", ";
        out += "trailing " + std::to_string(size_ - off) + " bytes";
    }
    return out;
}

} // namespace Routing::Bgp
