// The VXLAN tunnel TLV (tunnel type 8): endpoint and color sub-TLVs, and any others as received.
//   VxlanTunnelTlvContent c;  c.endpointIs(EndpointSubTlv::intern(addr));  c.colorIs(color);
//   auto tlv = VxlanTunnelTlv::intern(c);  tlv->serialize();  // 00 08 00 16 06 0a ... 04 08 ...
//
// Sub-TLVs are written endpoint first, then color, then the unparsed ones in the order they were
// added. Unlike the unparsed TLV, every sub-TLV is part of the TLV's identity here: all of them go
// on the wire.
#pragma once

#include "OrvBgp/BgpTunnelEncap.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>

namespace Routing::Bgp {

class VxlanTunnelTlvContent : public TunnelEncapTlvContentBase {
public:
    VxlanTunnelTlvContent() noexcept
        : TunnelEncapTlvContentBase(uint16_t(TunnelEncapTunnelType::vxlan)) {}

    // Null, or an interned color.
    const Mel::PtrConst<ColorSubTlv>& color() const noexcept { return color_; }
    void colorIs(const Mel::PtrConst<ColorSubTlv>& c);
    // Tunnel type, then the hashes of endpoint, color and each unparsed sub-TLV (0 for none).
    uint32_t hash() const noexcept;

    // Base equality, the same color object, and the same unparsed sub-TLVs in the same order.
    friend bool operator==(const VxlanTunnelTlvContent& a, const VxlanTunnelTlvContent& b) noexcept;

private:
    Mel::PtrConst<ColorSubTlv> color_;
    MEL_VALUE_TYPE_DERIVED(VxlanTunnelTlvContent, "Routing::Bgp::VxlanTunnelTlvContent",
                           (TunnelEncapTlvContentBase), (color_))
};

// The Value form (the unparsed sub-TLVs are not in it).
std::ostream& operator<<(std::ostream& os, const VxlanTunnelTlvContent& c);

class VxlanTunnelTlv : public TunnelEncapTlvBase {
    MELSTASH_STORE_ALLOCATED(VxlanTunnelTlv)

public:
    ~VxlanTunnelTlv() override;

    // A new, not yet interned object (make takes no reference). The content's tunnel type must be
    // 8; intern sets it.
    static VxlanTunnelTlv* make(const VxlanTunnelTlvContent& content);
    // Interned in VxlanTunnelTlvDedupTable::instance().
    static Mel::PtrConst<VxlanTunnelTlv> intern(const VxlanTunnelTlvContent& content);

    const EndpointSubTlv* endpoint() const noexcept { return endpoint_.get(); }
    const ColorSubTlv* color() const noexcept { return color_.get(); }
    size_t unparsedSubTlvs() const noexcept { return subTlvCount_; }
    const UnparsedSubTlv* unparsedSubTlv(size_t i) const;
    VxlanTunnelTlvContent content() const;
    // Bytes after the TLV header.
    size_t valueLength() const noexcept;

    uint16_t tunnelType() const override { return uint16_t(TunnelEncapTunnelType::vxlan); }
    bool compareDerived(const TunnelEncapTlvBase* other) const override;
    bool compareByContentDerived(const TunnelEncapTlvContentBase& content) const override;
    // "T=8 L=<len>", then " Endpoint=..." and " Color=..." when present, then the unparsed
    // sub-TLVs.
    void formatDerivedType(std::ostream& os) const override;
    Mel::Bytes serialize() const override;
    void serializeInto(Serialize& s) const override;
    uint32_t hash() const override { return hash_; }

    static Mel::PtrConst<VxlanTunnelTlv> destash(const void* stored,
                                                 MelStash::StoreManager::RawPtr store);

private:
    explicit VxlanTunnelTlv(const VxlanTunnelTlvContent& c) noexcept;
    bool sameSubTlvs(const VxlanTunnelTlvContent& c) const noexcept;

    uint32_t hash_;
    MelStash::CompressedStashSmartPtr<EndpointSubTlv const, 4> endpoint_;
    MelStash::CompressedStashSmartPtr<ColorSubTlv const, 4> color_;
    uint32_t subTlvCount_;
    uint32_t subTlvRefs_[0]; // subTlvCount_ counted references
};

class VxlanTunnelTlvDedupTable : public TunnelEncapTlvDedupTableBase {
public:
    explicit VxlanTunnelTlvDedupTable(bool multiThreaded = Keel::multiThreadedOrvbgp())
        : TunnelEncapTlvDedupTableBase("VxlanTunnelTlvDedupTable", multiThreaded) {}
    TunnelEncapTlvBase*
    allocateTunEncapTlvContent(const TunnelEncapTlvContentBase& content) const override;
    static VxlanTunnelTlvDedupTable& instance();
};

std::unique_ptr<VxlanTunnelTlvDedupTable> vxlanTunnelTlvDedupTableFactory();
Mel::PtrConst<VxlanTunnelTlv> vxlanTunnelTlvFactory(const VxlanTunnelTlvContent& content);

} // namespace Routing::Bgp
