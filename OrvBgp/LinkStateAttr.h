// The BGP-LS attribute (type 29): interned, carrying its TLVs exactly as received.
//   Mel::PtrConst<LinkStateAttrBase> ls = LinkStateAttrBase::intern(valueBytes);
//   ls->serialize(s);   // 80 1d <len> <the same TLVs>;  ls->toStrep() == "tlv 1026 len 4, tlv 1028
//   len 4"
#pragma once

#include "Keel/DedupTable.h"
#include "Mel/Bytes.h"
#include "MelStash/StoreManager.h"
#include "Serialize/Serialize.h"

#include <cstdint>
#include <span>
#include <string>

namespace Routing::Bgp {

struct LinkStateAttrContent : Keel::DedupContentHandle {
    std::span<const uint8_t> value; // the attribute value: a sequence of TLVs
    uint32_t hash() const noexcept;
};

// Node, link and prefix attributes are not decoded: the object keeps the value bytes inline and
// writes them back unchanged, which is all an attribute set needs to carry and re-advertise them.
class LinkStateAttrBase : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(LinkStateAttrBase)

public:
    static constexpr uint8_t attrType = 29;
    static constexpr uint8_t attrFlags = pathAttrFlagOptional;

    static Mel::PtrConst<LinkStateAttrBase> intern(std::span<const uint8_t> value);

    std::span<const uint8_t> value() const noexcept { return {bytes_, size_}; }
    // Whole attribute: flags 0x80 (with extended length above 255 bytes), type 29, length, TLVs.
    void serialize(Serialize& s) const;
    Mel::Bytes serialize() const;
    // The TLV types and lengths, "tlv 1026 len 4, tlv 1028 len 4"; a value that does not split into
    // whole TLVs ends with "trailing N bytes".
    std::string toStrep() const;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

private:
    explicit LinkStateAttrBase(const LinkStateAttrContent& c);
    uint32_t size_;
    uint8_t bytes_[];
};

class LinkStateAttrDedupTable : public Keel::DedupTable<LinkStateAttrBase> {
public:
    using DedupTable::DedupTable;
    static LinkStateAttrDedupTable& instance();
};

} // namespace Routing::Bgp
