#define ORV_UNIT "OrvBgp/VxlanTunnelTlv"

#include "OrvBgp/VxlanTunnelTlv.h"

#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Reflect.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <new>
#include <ostream>
#include <typeinfo>

namespace Routing::Bgp {

namespace {
constexpr uint16_t vxlanType = uint16_t(TunnelEncapTunnelType::vxlan);
} // namespace

// ---- Content -----------------------------------------------------------------------------------

void VxlanTunnelTlvContent::colorIs(const Mel::PtrConst<ColorSubTlv>& c) {
    if (c) c->assertIsDeduped();
    color_ = c;
}

uint32_t VxlanTunnelTlvContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(tunnelType_);
    m.hashMix(uint32_t(endpoint_ ? endpoint_->hash() : 0));
    m.hashMix(uint32_t(color_ ? color_->hash() : 0));
    for (const auto& s : unparsedSubTlv_)
        m.hashMix(uint32_t(s->hash()));
    return m.result();
}

bool operator==(const VxlanTunnelTlvContent& a, const VxlanTunnelTlvContent& b) noexcept {
    if (!(static_cast<const TunnelEncapTlvContentBase&>(a) ==
          static_cast<const TunnelEncapTlvContentBase&>(b)) ||
        a.color_.get() != b.color_.get() || a.unparsedSubTlvs() != b.unparsedSubTlvs())
        return false;
    for (size_t i = 0; i < a.unparsedSubTlvs(); ++i) {
        if (a.unparsedSubTlvList()[i].get() != b.unparsedSubTlvList()[i].get()) return false;
    }
    return true;
}

std::ostream& operator<<(std::ostream& os, const VxlanTunnelTlvContent& c) {
    Mel::valueFormat(os, c);
    return os;
}

// ---- Object ------------------------------------------------------------------------------------

VxlanTunnelTlv::VxlanTunnelTlv(const VxlanTunnelTlvContent& c) noexcept
    : hash_(c.hash()), endpoint_(c.endpoint()), color_(c.color()),
      subTlvCount_(uint32_t(c.unparsedSubTlvs())) {
    for (size_t i = 0; i < subTlvCount_; ++i) {
        const UnparsedSubTlv* s = c.unparsedSubTlvList()[i].get();
        s->refInc();
        subTlvRefs_[i] = MelStash::StoreManager::compress(s);
    }
}

VxlanTunnelTlv::~VxlanTunnelTlv() {
    for (size_t i = 0; i < subTlvCount_; ++i)
        unparsedSubTlv(i)->refDec();
}

VxlanTunnelTlv* VxlanTunnelTlv::make(const VxlanTunnelTlvContent& content) {
    ORV_ASSERT(content.tunnelType() == vxlanType);
    // The value length must fit the TLV header.
    size_t len = 0;
    if (content.endpoint()) len += content.endpoint()->serializedSize();
    if (content.color()) len += content.color()->serializedSize();
    for (const auto& s : content.unparsedSubTlvList())
        len += s->serializedSize();
    ORV_ASSERT(len <= 0xffff);
    return new (MelStash::ExtraBytes{content.unparsedSubTlvs() * 4}) VxlanTunnelTlv(content);
}

Mel::PtrConst<VxlanTunnelTlv> VxlanTunnelTlv::intern(const VxlanTunnelTlvContent& content) {
    if (content.tunnelType() != vxlanType) {
        VxlanTunnelTlvContent c = content;
        c.tunnelTypeIs(vxlanType);
        return intern(c);
    }
    auto tlv = dedupContent(&VxlanTunnelTlvDedupTable::instance(), content, content.hash());
    return Mel::PtrConst<VxlanTunnelTlv>::adopt(static_cast<const VxlanTunnelTlv*>(tlv.detach()));
}

const UnparsedSubTlv* VxlanTunnelTlv::unparsedSubTlv(size_t i) const {
    ORV_ASSERT(i < subTlvCount_);
    return static_cast<const UnparsedSubTlv*>(MelStash::StoreManager::expand(subTlvRefs_[i]));
}

VxlanTunnelTlvContent VxlanTunnelTlv::content() const {
    VxlanTunnelTlvContent c;
    c.endpointIs(endpoint_.ptr());
    c.colorIs(color_.ptr());
    for (size_t i = 0; i < subTlvCount_; ++i)
        c.unparsedSubTlvIs(Mel::PtrConst<UnparsedSubTlv>(unparsedSubTlv(i)));
    return c;
}

size_t VxlanTunnelTlv::valueLength() const noexcept {
    size_t len = 0;
    if (endpoint_) len += endpoint_->serializedSize();
    if (color_) len += color_->serializedSize();
    for (size_t i = 0; i < subTlvCount_; ++i)
        len += static_cast<const UnparsedSubTlv*>(MelStash::StoreManager::expand(subTlvRefs_[i]))
                   ->serializedSize();
    return len;
}

bool VxlanTunnelTlv::sameSubTlvs(const VxlanTunnelTlvContent& c) const noexcept {
    if (c.endpoint().get() != endpoint_.get() || c.color().get() != color_.get() ||
        c.unparsedSubTlvs() != subTlvCount_)
        return false;
    for (size_t i = 0; i < subTlvCount_; ++i) {
        if (MelStash::StoreManager::compress(c.unparsedSubTlvList()[i].get()) != subTlvRefs_[i])
            return false;
    }
    return true;
}

bool VxlanTunnelTlv::compareDerived(const TunnelEncapTlvBase* other) const {
    const auto* o = static_cast<const VxlanTunnelTlv*>(other);
    if (endpoint_ != o->endpoint_ || color_ != o->color_ || subTlvCount_ != o->subTlvCount_)
        return false;
    for (size_t i = 0; i < subTlvCount_; ++i) {
        if (subTlvRefs_[i] != o->subTlvRefs_[i]) return false;
    }
    return true;
}

bool VxlanTunnelTlv::compareByContentDerived(const TunnelEncapTlvContentBase& content) const {
    const auto& c = static_cast<const VxlanTunnelTlvContent&>(content);
    return c.tunnelType() == vxlanType && sameSubTlvs(c);
}

void VxlanTunnelTlv::formatDerivedType(std::ostream& os) const {
    os << "T=" << vxlanType << " L=" << valueLength();
    if (endpoint_) os << ' ' << *endpoint_;
    if (color_) os << ' ' << *color_;
    TunnelEncapTlvContentBase subTlvs;
    for (size_t i = 0; i < subTlvCount_; ++i)
        subTlvs.unparsedSubTlvIs(Mel::PtrConst<UnparsedSubTlv>(unparsedSubTlv(i)));
    unparsedSubTlvFormatDerivedType(os, subTlvs);
}

Mel::Bytes VxlanTunnelTlv::serialize() const {
    Serialize s;
    serializeInto(s);
    return s.serializedBytes();
}

void VxlanTunnelTlv::serializeInto(Serialize& s) const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: VxlanTunnelTlv::serialize()");
    SerializedBgpTunnelEncap(vxlanType, uint16_t(valueLength())).appendTo(s);
    if (endpoint_) endpoint_->serializeInto(s);
    if (color_) color_->serializeInto(s);
    for (size_t i = 0; i < subTlvCount_; ++i)
        unparsedSubTlv(i)->serializeInto(s);
}

Mel::PtrConst<VxlanTunnelTlv> VxlanTunnelTlv::destash(const void* stored,
                                                      MelStash::StoreManager::RawPtr) {
    ORV_ASSERT(MelStash::StoreManager::contains(stored));
    const auto* obj = static_cast<const Keel::DedupHandleBase*>(stored);
    ORV_ASSERT(typeid(*obj) == typeid(VxlanTunnelTlv));
    return intern(static_cast<const VxlanTunnelTlv*>(obj)->content());
}

// ---- Table and factories -----------------------------------------------------------------------

TunnelEncapTlvBase* VxlanTunnelTlvDedupTable::allocateTunEncapTlvContent(
    const TunnelEncapTlvContentBase& content) const {
    return VxlanTunnelTlv::make(static_cast<const VxlanTunnelTlvContent&>(content));
}

VxlanTunnelTlvDedupTable& VxlanTunnelTlvDedupTable::instance() {
    // Never destroyed: objects released during exit still find their table.
    static auto* table = vxlanTunnelTlvDedupTableFactory().release();
    return *table;
}

std::unique_ptr<VxlanTunnelTlvDedupTable> vxlanTunnelTlvDedupTableFactory() {
    return std::make_unique<VxlanTunnelTlvDedupTable>(Keel::multiThreadedOrvbgp());
}

Mel::PtrConst<VxlanTunnelTlv> vxlanTunnelTlvFactory(const VxlanTunnelTlvContent& content) {
    return Mel::PtrConst<VxlanTunnelTlv>(VxlanTunnelTlv::make(content));
}

namespace {
struct VxlanTunnelTlvKestrelRegisterer {
    VxlanTunnelTlvKestrelRegisterer() { registerTunnelEncapTlvStashReader<VxlanTunnelTlv>(); }
} registerer;
} // namespace

} // namespace Routing::Bgp
