// The tunnel encapsulation attribute (type 23): an ordered list of interned tunnel TLVs.
//   TunnelEncapContent c;  c.tunnelTlvIs(TunnelEncapTlvUnparsed::intern({2, Mel::Bytes{1, 2}}));
//   auto t = TunnelEncap::intern(c);  t->serialize();  // c0 17 06 00 02 00 02 01 02
//
// Each TLV is an interned object of a class derived from TunnelEncapTlvBase: one class per tunnel
// type the library understands (VxlanTunnelTlv, OrvBgp/VxlanTunnelTlv.h) and TunnelEncapTlvUnparsed
// for any other, which keeps the TLV's value as received. Every TLV class has its own intern table
// derived from TunnelEncapTlvDedupTableBase. Attributes compare their TLVs by identity and in list
// order, so the same TLVs in another order are another attribute.
//
// Factories (tunnelEncapFactory, tunnelEncapTlvUnparsedFactory, the `...Is` statics) build objects
// that are not interned; dedupContent/dedup intern into a table the caller gives, and the `intern`
// statics into the process-wide default table (`X::instance()`). Tables made by the table factories
// are locked when Keel::multiThreadedOrvbgp() is on at the time they are made.
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "Mel/ValueType.h"
#include "MelStash/CompressedStashSmartPtr.h"
#include "MelStash/DedupHandle.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"
#include "OrvBgp/BgpTunnelEncapSubTlv.h"

#include <boost/container/small_vector.hpp>
#include <boost/describe/enum.hpp>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

class Serialize;

namespace Routing::Bgp {

// ---- Tunnel type codes -------------------------------------------------------------------------

// 32 bits wide so that `unknown` lies outside every 16-bit wire value.
enum class TunnelEncapTunnelType : uint32_t {
    ipsec = 4,
    vxlan = 8,
    srTe = 15,
    dps = 22,
    dpsPolicy = 24,
    unknown = 65536,
};
BOOST_DESCRIBE_ENUM(TunnelEncapTunnelType, ipsec, vxlan, srTe, dps, dpsPolicy, unknown)

// The named value with that number; a number without a name is Mel::RangeException.
TunnelEncapTunnelType TunnelEncapTunnelTypeInstance(unsigned value);
// The value of that name ("vxlan"); an unknown name is Mel::ParseException.
TunnelEncapTunnelType TunnelEncapTunnelTypeInstance(std::string_view name);
// The name, or the decimal number for a value without one.
std::string stringValue(TunnelEncapTunnelType t);
// The Value form: the name quoted ('vxlan'), or the number. strepToTunnelEncapTunnelType reads
// either back (Mel::ParseException otherwise).
std::string valueToStrep(TunnelEncapTunnelType t);
TunnelEncapTunnelType strepToTunnelEncapTunnelType(std::string_view text);
std::ostream& operator<<(std::ostream& os, TunnelEncapTunnelType t);

// ---- TLV header writer -------------------------------------------------------------------------

// Tunnel type and value length, two bytes each.
//   SerializedBgpTunnelEncap(8, 22).appendTo(s);   // 00 08 00 16
class SerializedBgpTunnelEncap {
public:
    static constexpr size_t headerSize = 4;

    SerializedBgpTunnelEncap(unsigned short type, unsigned short length) noexcept;
    std::span<const uint8_t> bytes() const noexcept { return {bytes_, headerSize}; }
    void appendTo(Serialize& s) const;

private:
    uint8_t bytes_[headerSize];
};

// ---- TLV contents ------------------------------------------------------------------------------

// What every TLV is built from. Equality and order look at the tunnel type and the endpoint object
// only; the unparsed sub-TLVs take no part in them, nor in the Value form.
class TunnelEncapTlvContentBase : public Keel::DedupContentHandle {
public:
    TunnelEncapTlvContentBase() = default;
    explicit TunnelEncapTlvContentBase(uint16_t tunnelType) noexcept : tunnelType_(tunnelType) {}

    uint16_t tunnelType() const noexcept { return tunnelType_; }
    void tunnelTypeIs(uint16_t t) noexcept { tunnelType_ = t; }
    // Null, or an interned endpoint.
    const Mel::PtrConst<EndpointSubTlv>& endpoint() const noexcept { return endpoint_; }
    void endpointIs(const Mel::PtrConst<EndpointSubTlv>& e);
    // Sub-TLVs no class understands, in the order they were added; each interned.
    size_t unparsedSubTlvs() const noexcept { return unparsedSubTlv_.size(); }
    const Mel::PtrConst<UnparsedSubTlv>& unparsedSubTlv(size_t i) const;
    void unparsedSubTlvIs(const Mel::PtrConst<UnparsedSubTlv>& s);
    const std::vector<Mel::PtrConst<UnparsedSubTlv>>& unparsedSubTlvList() const noexcept {
        return unparsedSubTlv_;
    }

    friend bool operator==(const TunnelEncapTlvContentBase& a,
                           const TunnelEncapTlvContentBase& b) noexcept;
    friend bool operator<(const TunnelEncapTlvContentBase& a,
                          const TunnelEncapTlvContentBase& b) noexcept;

protected:
    uint16_t tunnelType_ = 0;
    Mel::PtrConst<EndpointSubTlv> endpoint_;
    std::vector<Mel::PtrConst<UnparsedSubTlv>> unparsedSubTlv_;
    MEL_VALUE_TYPE(TunnelEncapTlvContentBase, "Routing::Bgp::TunnelEncapTlvContentBase",
                   (tunnelType_, endpoint_))
};

// A TLV carried as received: the length to write (kept as given, even where it differs from the
// data's size) and the value bytes.
class TunnelEncapTlvUnparsedContent : public TunnelEncapTlvContentBase {
public:
    TunnelEncapTlvUnparsedContent() = default;
    // tlvLen is the data's size.
    TunnelEncapTlvUnparsedContent(uint16_t tunnelType, const Mel::Bytes& data)
        : TunnelEncapTlvContentBase(tunnelType), tlvLen_(uint16_t(data.size())),
          tunnelTlvData_(data) {}
    TunnelEncapTlvUnparsedContent(uint16_t tunnelType, uint16_t tlvLen, const Mel::Bytes& data)
        : TunnelEncapTlvContentBase(tunnelType), tlvLen_(tlvLen), tunnelTlvData_(data) {}

    uint16_t tlvLen() const noexcept { return tlvLen_; }
    void tlvLenIs(uint16_t l) noexcept { tlvLen_ = l; }
    const Mel::Bytes& tunnelTlvData() const noexcept { return tunnelTlvData_; }
    void tunnelTlvDataIs(const Mel::Bytes& d) { tunnelTlvData_ = d; }
    // Type, length and the data's hash; the endpoint is not hashed.
    uint32_t hash() const noexcept;

    friend bool operator==(const TunnelEncapTlvUnparsedContent& a,
                           const TunnelEncapTlvUnparsedContent& b) noexcept;
    friend bool operator<(const TunnelEncapTlvUnparsedContent& a,
                          const TunnelEncapTlvUnparsedContent& b) noexcept;

private:
    uint16_t tlvLen_ = 0;
    Mel::Bytes tunnelTlvData_;
    MEL_VALUE_TYPE_DERIVED(TunnelEncapTlvUnparsedContent,
                           "Routing::Bgp::TunnelEncapTlvUnparsedContent",
                           (TunnelEncapTlvContentBase), (tlvLen_, tunnelTlvData_))
};

// The Value forms.
std::ostream& operator<<(std::ostream& os, const TunnelEncapTlvContentBase& c);
std::ostream& operator<<(std::ostream& os, const TunnelEncapTlvUnparsedContent& c);

// Writes " #UnparsedSubTlvs=<n>" and " SubTlv#:<i>" with each sub-TLV's stream form; nothing when
// there are none. TLV classes call it at the end of formatDerivedType.
void unparsedSubTlvFormatDerivedType(std::ostream& os, const TunnelEncapTlvContentBase& content);

// ---- TLV objects -------------------------------------------------------------------------------

class TunnelEncapTlvDedupTableBase;

class TunnelEncapTlvBase : public MelStash::DedupHandle {
    MELSTASH_STORE_ALLOCATED(TunnelEncapTlvBase)

public:
    // Every class overrides these five and hash(). The base tunnelType() is a programming error.
    virtual uint16_t tunnelType() const;
    // Equality with another object of the same class.
    virtual bool compareDerived(const TunnelEncapTlvBase* other) const = 0;
    // Equality with a content value of the class's own content type.
    virtual bool compareByContentDerived(const TunnelEncapTlvContentBase& content) const = 0;
    virtual void formatDerivedType(std::ostream& os) const = 0;
    // The whole TLV: header and value.
    virtual Mel::Bytes serialize() const = 0;
    // Appends what serialize() returns; classes override it to write in place, which is how the
    // attribute writes its TLVs.
    virtual void serializeInto(Serialize& s) const;

    bool compare(const Keel::DedupHandleBase* other) const final;
    bool compareByContent(const Keel::DedupContentHandle& content) const final;

    // The interned TLV with that content, made by the table's allocateTunEncapTlvContent when
    // there is none; `hash` is the content's hash, the one the made object reports.
    static Mel::PtrConst<TunnelEncapTlvBase> dedupContent(TunnelEncapTlvDedupTableBase* table,
                                                          const TunnelEncapTlvContentBase& content,
                                                          uint32_t hash);
    // This object interned in table: itself, or the equal object already there. An object
    // interned in another table cannot join this one.
    Mel::PtrConst<TunnelEncapTlvBase> dedup(TunnelEncapTlvDedupTableBase* table) const;
    // Reads a stored TLV of any registered class back, interned in its class's default table.
    static Mel::PtrConst<TunnelEncapTlvBase> destash(const void* stored,
                                                     MelStash::StoreManager::RawPtr store);

    // formatDerivedType's text.
    std::string toStrep() const;
};

// The per-class TLV tables.
class TunnelEncapTlvDedupTableBase : public Keel::DedupTable<TunnelEncapTlvBase> {
public:
    explicit TunnelEncapTlvDedupTableBase(std::string name,
                                          bool multiThreaded = Keel::multiThreadedOrvbgp())
        : DedupTable(std::move(name), multiThreaded) {}
    // A new, not yet interned TLV of the table's class; `content` is of that class's content type.
    virtual TunnelEncapTlvBase*
    allocateTunEncapTlvContent(const TunnelEncapTlvContentBase& content) const = 0;
};

// A TLV of a tunnel type no class understands. Interning looks at type, length and data only:
// TLVs that differ only in their endpoint or unparsed sub-TLVs are one object (the raw bytes
// already hold those), which keeps the first one's. Layout: fields, then the sub-TLV references
// and the data bytes inline.
class TunnelEncapTlvUnparsed : public TunnelEncapTlvBase {
    MELSTASH_STORE_ALLOCATED(TunnelEncapTlvUnparsed)

public:
    ~TunnelEncapTlvUnparsed() override;

    // A new, not yet interned object. At most 65535 data bytes and sub-TLVs. make takes no
    // reference (for tables' allocate functions).
    static TunnelEncapTlvUnparsed* make(const TunnelEncapTlvUnparsedContent& content);
    static Mel::PtrConst<TunnelEncapTlvUnparsed>
    TunnelEncapTlvUnparsedIs(const TunnelEncapTlvUnparsedContent& content);
    // Interned in TunnelEncapTlvUnparsedDedupTable::instance().
    static Mel::PtrConst<TunnelEncapTlvUnparsed>
    intern(const TunnelEncapTlvUnparsedContent& content);

    uint16_t tlvLen() const noexcept { return tlvLen_; }
    std::span<const uint8_t> tunnelTlvData() const noexcept;
    const EndpointSubTlv* endpoint() const noexcept { return endpoint_.get(); }
    size_t unparsedSubTlvs() const noexcept { return subTlvCount_; }
    const UnparsedSubTlv* unparsedSubTlv(size_t i) const;
    TunnelEncapTlvUnparsedContent content() const;

    uint16_t tunnelType() const override { return tunnelType_; }
    bool compareDerived(const TunnelEncapTlvBase* other) const override;
    bool compareByContentDerived(const TunnelEncapTlvContentBase& content) const override;
    // "T=<type> L=<tlvLen>".
    void formatDerivedType(std::ostream& os) const override;
    // Header with the stored type and tlvLen, then the data unchanged.
    Mel::Bytes serialize() const override;
    void serializeInto(Serialize& s) const override;
    uint32_t hash() const override { return hash_; }

    static Mel::PtrConst<TunnelEncapTlvUnparsed> destash(const void* stored,
                                                         MelStash::StoreManager::RawPtr store);

private:
    explicit TunnelEncapTlvUnparsed(const TunnelEncapTlvUnparsedContent& c) noexcept;
    bool equals(uint16_t type, uint16_t len, std::span<const uint8_t> data) const noexcept;

    uint32_t hash_;
    uint16_t tunnelType_;
    uint16_t tlvLen_;
    MelStash::CompressedStashSmartPtr<EndpointSubTlv const, 4> endpoint_;
    uint16_t subTlvCount_;
    uint16_t dataSize_;
    uint32_t subTlvRefs_[0]; // subTlvCount_ counted references, then dataSize_ bytes
};

class TunnelEncapTlvUnparsedDedupTable : public TunnelEncapTlvDedupTableBase {
public:
    explicit TunnelEncapTlvUnparsedDedupTable(bool multiThreaded = Keel::multiThreadedOrvbgp())
        : TunnelEncapTlvDedupTableBase("TunnelEncapTlvUnparsedDedupTable", multiThreaded) {}
    TunnelEncapTlvBase*
    allocateTunEncapTlvContent(const TunnelEncapTlvContentBase& content) const override;
    static TunnelEncapTlvUnparsedDedupTable& instance();
};

std::unique_ptr<TunnelEncapTlvUnparsedDedupTable> tunnelEncapTlvUnparsedDedupTableFactory();
Mel::PtrConst<TunnelEncapTlvUnparsed>
tunnelEncapTlvUnparsedFactory(const TunnelEncapTlvUnparsedContent& content);

// ---- The attribute -----------------------------------------------------------------------------

// The TLVs in the order they were added (the received order); never sorted.
class TunnelEncapContent : public Keel::DedupContentHandle {
public:
    // Appends; the TLV must be interned.
    void tunnelTlvIs(const Mel::PtrConst<TunnelEncapTlvBase>& tlv);
    const Mel::PtrConst<TunnelEncapTlvBase>& tunnelTlv(size_t i) const;
    size_t tunnelTlvs() const noexcept { return tunnelTlv_.size(); }
    // Most attributes hold one or two TLVs: those stay inside the content, off the heap.
    using TlvList = boost::container::small_vector<Mel::PtrConst<TunnelEncapTlvBase>, 2>;
    const TlvList& tunnelTlvList() const noexcept { return tunnelTlv_; }
    // Mixes each TLV's hash in list order.
    uint32_t hash() const noexcept;

    friend bool operator==(const TunnelEncapContent& a, const TunnelEncapContent& b) noexcept;
    // The content-handle order alone: no content orders before another.
    friend bool operator<(const TunnelEncapContent& a, const TunnelEncapContent& b) noexcept;

private:
    TlvList tunnelTlv_;
    MEL_VALUE_TYPE(TunnelEncapContent, "Routing::Bgp::TunnelEncapContent", (tunnelTlv_))
};

// In the Value form a TLV prints as its formatDerivedType text, quoted; that form does not read
// back, since the text does not say which class to build: reading it throws
// Mel::NotSupportedException, "Not supported: ...".
void melFormat(std::ostream& os, const Mel::PtrConst<TunnelEncapTlvBase>& tlv);
void melParse(Mel::ValueParser& p, Mel::PtrConst<TunnelEncapTlvBase>& tlv);

// Same length and, index by index, the same TLV objects.
bool tunnelEncapCompareImpl(const TunnelEncapContent& a, const TunnelEncapContent& b) noexcept;

// "<#Tlvs=1 Tlv#0 {T=8 L=12} >", as for the attribute.
std::ostream& operator<<(std::ostream& os, const TunnelEncapContent& c);

class TunnelEncapDedupTable;

class TunnelEncap : public MelStash::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(TunnelEncap)

public:
    ~TunnelEncap() override;

    // A new, not yet interned object holding the content's TLVs; make takes no reference.
    static TunnelEncap* make(const TunnelEncapContent& content);
    static Mel::PtrConst<TunnelEncap> TunnelEncapIs(const TunnelEncapContent& content);
    // Interned in TunnelEncapDedupTable::instance().
    static Mel::PtrConst<TunnelEncap> intern(const TunnelEncapContent& content);
    static Mel::PtrConst<TunnelEncap> dedupContent(TunnelEncapDedupTable* table,
                                                   const TunnelEncapContent& content);
    Mel::PtrConst<TunnelEncap> dedup(TunnelEncapDedupTable* table) const;
    // Reads a stored attribute back, interned in the default table.
    static Mel::PtrConst<TunnelEncap> destash(const void* stored,
                                              MelStash::StoreManager::RawPtr store);

    size_t tunnelTlvs() const noexcept { return count_; }
    const TunnelEncapTlvBase* tunnelTlv(size_t i) const;
    TunnelEncapContent content() const;

    // The whole attribute: header (type 23, flags 0xC0, extended length above 255 bytes), then
    // the TLVs in list order.
    Mel::Bytes serialize() const;
    std::string toStrep() const;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

private:
    explicit TunnelEncap(const TunnelEncapContent& c) noexcept;
    bool sameTlvs(std::span<const Mel::PtrConst<TunnelEncapTlvBase>> tlvs) const noexcept;

    uint32_t count_;
    uint32_t tlvRefs_[0]; // count_ counted references
};

// "NULL" for null; otherwise "<#Tlvs=<n> " then "Tlv#<i> {<formatDerivedType>}" per TLV, then " >".
std::ostream& operator<<(std::ostream& os, const TunnelEncap* t);

class TunnelEncapDedupTable : public Keel::DedupTable<TunnelEncap> {
public:
    explicit TunnelEncapDedupTable(bool multiThreaded = Keel::multiThreadedOrvbgp())
        : DedupTable("TunnelEncapDedupTable", multiThreaded) {}
    // A new, not yet interned attribute.
    virtual TunnelEncap* allocateTunnelEncapContent(const TunnelEncapContent& content) const;
    static TunnelEncapDedupTable& instance();
};

std::unique_ptr<TunnelEncapDedupTable> tunnelEncapDedupTableFactory();
Mel::PtrConst<TunnelEncap> tunnelEncapFactory(const TunnelEncapContent& content);

// ---- Reading TLVs back from the store ----------------------------------------------------------
// A stored pointer is the address of the TLV object in the store. Each TLV class registers one
// reader (registerTunnelEncapTlvStashReader<X>()) when the library loads.

class TunnelEncapTlvStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<TunnelEncapTlvBase>
    destash(const void* stored, MelStash::StoreManager::RawPtr store) const = 0;
    virtual std::string stashStrep(const void* stored) const = 0;
    virtual Mel::Bytes stashSerialize(const void* stored) const = 0;
};

// The reader for class T, which has a static T::destash(stored, store).
template <class T>
class TunnelEncapTlvStashReaderFor final : public TunnelEncapTlvStashReader {
public:
    Mel::PtrConst<TunnelEncapTlvBase> destash(const void* stored,
                                              MelStash::StoreManager::RawPtr store) const override {
        return T::destash(stored, store);
    }
    std::string stashStrep(const void* stored) const override { return of(stored).toStrep(); }
    Mel::Bytes stashSerialize(const void* stored) const override { return of(stored).serialize(); }

private:
    static const T& of(const void* stored) {
        return static_cast<const T&>(*static_cast<const TunnelEncapTlvBase*>(
            static_cast<const Keel::DedupHandleBase*>(stored)));
    }
};

template <class T>
void registerTunnelEncapTlvStashReader() {
    static const TunnelEncapTlvStashReaderFor<T> reader;
    MelStash::StashReaderRegistry::registerReader(typeid(T), &reader);
}

} // namespace Routing::Bgp
