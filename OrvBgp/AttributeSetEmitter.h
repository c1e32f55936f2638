// Writes an attribute set's attributes to a sink in ascending type code: the one writer behind
// the set as held (serializeAttributeSet) and the set written for one peer
// (PathAttributesPeerSerializer). Internal to the library.
//   AttributeSetEmitter out(store, view.gunkPathAttrList);
//   out.begin(type, flags, len).addU8(...); out.emitBuffer(type); ... emitTrailingAttributes(view,
//   out);
#pragma once

#include "OrvBgp/AspathAttrCanonicalSerializer.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/DomainPath.h"
#include "OrvBgp/GunkAttributes.h"
#include "OrvBgp/LinkStateAttr.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "OrvBgp/PmsiTunnel.h"
#include "OrvBgp/SrTeAttributes.h"
#include "Serialize/Serialize.h"

#include <span>

namespace Routing::Bgp::detail {

// Hands attributes to the caller's sink in ascending type code, interleaving the unknown
// attributes (which may carry any type) with the known ones. Attributes are built in one reused
// buffer, so an ordinary set is written without a heap allocation.
class AttributeSetEmitter {
public:
    AttributeSetEmitter(PathAttributesSerializeStoreMethodBase& store, const GunkPathAttrList* gunk)
        : store_(store), gunk_(gunk) {
        if (gunk_) next_ = gunk_->begin();
    }
    // Flushes the unknown attributes whose type is below `type`.
    void upTo(unsigned type) {
        while (gunk_ && next_ != gunk_->end() && (*next_)->attrType() < type) {
            (*next_)->serialize(store_);
            ++next_;
        }
    }
    void emit(uint8_t type, std::span<const uint8_t> bytes) {
        upTo(type);
        store_.store(type, bytes);
    }
    void emit(uint8_t type, const Mel::Bytes& bytes) { emit(type, bytes.span()); }
    // The shared buffer, emptied; emitBuffer() hands what was written to it over.
    Serialize& fresh() {
        buf_.clear();
        return buf_;
    }
    // Starts an attribute in the shared buffer.
    Serialize& begin(uint8_t type, uint8_t flags, size_t valueLen) {
        SerializePathAttribute(fresh(), type, flags, valueLen);
        return buf_;
    }
    void emitBuffer(uint8_t type) { emit(type, buf_.span()); }
    template <class List>
    void list(const List* l) {
        if (!l) return;
        l->serialize(fresh());
        emitBuffer(List::attrType);
    }
    // A second reused buffer, for values built before their header.
    Serialize& scratch() {
        scratch_.clear();
        return scratch_;
    }
    void finish() { upTo(256); }
    PathAttributesSerializeStoreMethodBase& store() noexcept { return store_; }

private:
    PathAttributesSerializeStoreMethodBase& store_;
    const GunkPathAttrList* gunk_;
    GunkPathAttrList::const_iterator next_{};
    Serialize buf_;
    Serialize scratch_;
};

// The attributes after AS4_AGGREGATOR, which every peer receives as held, then the unknown
// attributes left.
inline void emitTrailingAttributes(const PathAttributesView& a, AttributeSetEmitter& out) {
    using T = BgpPathAttrType;
    if (a.pmsiTunnel) out.emit(T::pmsiTunnel_, a.pmsiTunnel->serialize());
    if (a.tunnelEncap) out.emit(T::tunnelEncap_, a.tunnelEncap->serialize());
    out.list(a.extCommIp6List);
    if (a.aigpMetric) out.emit(T::aigp_, a.aigpMetric->serialize());
    if (a.linkState) {
        out.begin(T::linkState_, LinkStateAttrBase::attrFlags, a.linkState->value().size())
            .addData(a.linkState->value());
        out.emitBuffer(T::linkState_);
    }
    out.list(a.largeCommList);
    if (a.domainPath) out.emit(T::dPath_, a.domainPath->serialize());
    if (a.prefixSid) out.emit(T::prefixSid_, a.prefixSid->serialize());
    if (a.customerAttributeSet) out.emit(T::attrSet_, a.customerAttributeSet->serialize());
    out.finish();
}

} // namespace Routing::Bgp::detail
