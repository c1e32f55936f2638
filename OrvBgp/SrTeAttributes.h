// The prefix SID attribute (type 40) and its label-index and originator-SRGB TLVs, all interned.
//   auto sid = prefixSidFactory(labelIndexTlvFactory(100), nullptr, nullptr);
//   sid->serialize();   // c0 28 0a 01 00 07 00 00 00 00 00 00 64
//
// Each TLV is interned on its own; PrefixSid holds the three (each possibly absent) by 4-byte
// references and compares them by identity, so its members must be interned before it is.
// destash of a TLV returns the interned equal TLV; destash of a PrefixSid builds a
// PrefixSidDestashed, a plain (not interned) value holding the TLVs read back.
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Mel/Bytes.h"
#include "Mel/Object.h"
#include "Mel/Ptr.h"
#include "Mel/ValueType.h"
#include "MelStash/CompressedStashSmartPtr.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"
#include "OrvBgp/Srv6ServiceTlv.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <vector>

namespace Mel {
class ValueParser;
}

namespace Routing::Bgp {

// ---- Label-Index TLV ---------------------------------------------------------------------------

// Its text form is the number alone.
class LabelIndexTlvContent : public Keel::DedupContentHandle {
public:
    LabelIndexTlvContent() noexcept = default;
    explicit LabelIndexTlvContent(uint32_t labelIndex) noexcept : labelIndex_(labelIndex) {}

    uint32_t labelIndex() const noexcept { return labelIndex_; }
    void labelIndexIs(uint32_t i) noexcept { labelIndex_ = i; }
    uint32_t hash() const noexcept;

    friend bool operator==(const LabelIndexTlvContent&,
                           const LabelIndexTlvContent&) noexcept = default;

private:
    uint32_t labelIndex_ = 0;
};

void melFormat(std::ostream& os, const LabelIndexTlvContent& c);
void melParse(Mel::ValueParser& p, LabelIndexTlvContent& c);

class LabelIndexTlvDedupTable;

class LabelIndexTlv : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(LabelIndexTlv)

public:
    static constexpr uint8_t tlvType = 1;

    // Built, not interned; intern with dedup().
    static Mel::Ptr<LabelIndexTlv> create(const LabelIndexTlvContent& content);

    uint32_t labelIndex() const noexcept { return labelIndex_; }
    LabelIndexTlvContent content() const noexcept { return LabelIndexTlvContent(labelIndex_); }

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

    // The whole TLV, 10 bytes.
    Mel::Bytes serialize() const;
    // The number.
    std::string toStrep() const;

    static Mel::PtrConst<LabelIndexTlv> dedupContent(LabelIndexTlvDedupTable& table,
                                                     const LabelIndexTlvContent& content);
    Mel::PtrConst<LabelIndexTlv> dedup(LabelIndexTlvDedupTable& table) const;
    static Mel::PtrConst<LabelIndexTlv> destash(const void* stored,
                                                MelStash::StoreManager::RawPtr store);

private:
    explicit LabelIndexTlv(const LabelIndexTlvContent& content) noexcept;
    uint32_t labelIndex_;
};

class LabelIndexTlvDedupTable : public Keel::DedupTable<LabelIndexTlv> {
public:
    LabelIndexTlvDedupTable() : DedupTable("LabelIndexTlvDedupTable") {}
    static LabelIndexTlvDedupTable& instance();
};

Mel::PtrConst<LabelIndexTlv> labelIndexTlvFactory(uint32_t labelIndex);

// ---- Originator SRGB TLV -----------------------------------------------------------------------

// One segment-routing global block: the first label and the number of labels. Both go on the wire
// as 3-octet fields, so values of 2^24 and above are a programming error when serializing.
class SrgbRange {
public:
    constexpr SrgbRange() noexcept = default;
    constexpr SrgbRange(uint32_t base, uint32_t range) noexcept : base_(base), range_(range) {}

    uint32_t base() const noexcept { return base_; }
    uint32_t range() const noexcept { return range_; }

    friend auto operator<=>(const SrgbRange&, const SrgbRange&) noexcept = default;

private:
    uint32_t base_ = 0;
    uint32_t range_ = 0;
    MEL_VALUE_TYPE(SrgbRange, "Routing::Bgp::SrgbRange", (base_, range_))
};

class OriginatorSrgbTlvContent : public Keel::DedupContentHandle {
public:
    OriginatorSrgbTlvContent() = default;
    explicit OriginatorSrgbTlvContent(std::span<const SrgbRange> ranges)
        : srgb_(ranges.begin(), ranges.end()) {}

    void srgbEnq(const SrgbRange& r) { srgb_.push_back(r); }
    const SrgbRange& srgb(size_t index) const noexcept { return srgb_[index]; }
    size_t srgbs() const noexcept { return srgb_.size(); }
    std::span<const SrgbRange> ranges() const noexcept { return srgb_; }
    uint32_t hash() const noexcept;

    friend bool operator==(const OriginatorSrgbTlvContent&,
                           const OriginatorSrgbTlvContent&) = default;

private:
    std::vector<SrgbRange> srgb_;
    MEL_VALUE_TYPE(OriginatorSrgbTlvContent, "Routing::Bgp::OriginatorSrgbTlvContent", (srgb_))
};

class OriginatorSrgbTlvDedupTable;

// The ranges sit inline after the object, in the order given.
class OriginatorSrgbTlv : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(OriginatorSrgbTlv)

public:
    static constexpr uint8_t tlvType = 3;

    // Built, not interned; intern with dedup().
    static Mel::Ptr<OriginatorSrgbTlv> create(std::span<const SrgbRange> ranges);
    // The same with no reference taken, for an intern table's maker.
    static OriginatorSrgbTlv* make(std::span<const SrgbRange> ranges);

    const SrgbRange& srgb(size_t index) const noexcept { return ranges_[index]; }
    size_t srgbs() const noexcept { return count_; }
    std::span<const SrgbRange> ranges() const noexcept { return {ranges_, count_}; }
    OriginatorSrgbTlvContent content() const { return OriginatorSrgbTlvContent(ranges()); }
    bool equals(std::span<const SrgbRange> ranges) const noexcept;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

    // The whole TLV, 5 + 6 bytes per range.
    Mel::Bytes serialize() const;
    // "[16000:8000][100000:1000]"
    std::string toStrep() const;

    static uint32_t hashOf(std::span<const SrgbRange> ranges) noexcept;
    static Mel::PtrConst<OriginatorSrgbTlv> dedupContent(OriginatorSrgbTlvDedupTable& table,
                                                         const OriginatorSrgbTlvContent& content);
    Mel::PtrConst<OriginatorSrgbTlv> dedup(OriginatorSrgbTlvDedupTable& table) const;
    static Mel::PtrConst<OriginatorSrgbTlv> destash(const void* stored,
                                                    MelStash::StoreManager::RawPtr store);

private:
    explicit OriginatorSrgbTlv(std::span<const SrgbRange> ranges) noexcept;
    uint32_t count_;
    SrgbRange ranges_[0]; // count_ ranges in the same allocation
};

class OriginatorSrgbTlvDedupTable : public Keel::DedupTable<OriginatorSrgbTlv> {
public:
    OriginatorSrgbTlvDedupTable() : DedupTable("OriginatorSrgbTlvDedupTable") {}
    static OriginatorSrgbTlvDedupTable& instance();
};

Mel::PtrConst<OriginatorSrgbTlv> originatorSrgbTlvFactory(std::span<const SrgbRange> ranges);

// ---- Prefix SID --------------------------------------------------------------------------------

class PrefixSid;
class PrefixSidDedupTable;

// Three interned TLVs, each possibly null. Text form:
// "Value('Routing::Bgp::PrefixSidContent', ** {'labelIndex': 100, 'originatorSrgb':
// [Value('Routing::Bgp::SrgbRange', ** {'base': 16000, 'range': 8000})], 'srv6Service': None})";
// parsing it back interns the TLVs it names.
class PrefixSidContent : public Keel::DedupContentHandle {
public:
    PrefixSidContent() noexcept = default;
    PrefixSidContent(Mel::PtrConst<LabelIndexTlv> labelIndex,
                     Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb,
                     Mel::PtrConst<Srv6ServiceTlv> srv6Service) noexcept
        : labelIndex_(std::move(labelIndex)), originatorSrgb_(std::move(originatorSrgb)),
          srv6Service_(std::move(srv6Service)) {}

    const Mel::PtrConst<LabelIndexTlv>& labelIndex() const noexcept { return labelIndex_; }
    void labelIndexIs(Mel::PtrConst<LabelIndexTlv> p) noexcept { labelIndex_ = std::move(p); }
    const Mel::PtrConst<OriginatorSrgbTlv>& originatorSrgb() const noexcept {
        return originatorSrgb_;
    }
    void originatorSrgbIs(Mel::PtrConst<OriginatorSrgbTlv> p) noexcept {
        originatorSrgb_ = std::move(p);
    }
    const Mel::PtrConst<Srv6ServiceTlv>& srv6Service() const noexcept { return srv6Service_; }
    void srv6ServiceIs(Mel::PtrConst<Srv6ServiceTlv> p) noexcept { srv6Service_ = std::move(p); }
    void valueSet(Mel::PtrConst<LabelIndexTlv> labelIndex,
                  Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb,
                  Mel::PtrConst<Srv6ServiceTlv> srv6Service) noexcept;

    // True unless all three are null.
    explicit operator bool() const noexcept {
        return labelIndex_ || originatorSrgb_ || srv6Service_;
    }
    // Drops the three references.
    void prepareForRecycle() noexcept;

    // Mixes the three addresses; each non-null member must be interned.
    uint32_t hash() const;
    // The interned attribute with these members.
    Mel::PtrConst<PrefixSid> dedup(PrefixSidDedupTable& table) const;

    std::string toStrep() const;
    static PrefixSidContent fromStrep(std::string_view text);

    friend bool operator==(const PrefixSidContent&, const PrefixSidContent&) noexcept = default;

private:
    Mel::PtrConst<LabelIndexTlv> labelIndex_;
    Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb_;
    Mel::PtrConst<Srv6ServiceTlv> srv6Service_;
    MEL_VALUE_TYPE(PrefixSidContent, "Routing::Bgp::PrefixSidContent",
                   (labelIndex_, originatorSrgb_, srv6Service_))
};

// Text hooks of the members of PrefixSidContent: None, or the label index as a number, the SRGB
// ranges as a list of SrgbRange values, the SRv6 service as its Srv6ServiceTlvContent value.
void melFormat(std::ostream& os, const Mel::PtrConst<LabelIndexTlv>& p);
void melParse(Mel::ValueParser& p, Mel::PtrConst<LabelIndexTlv>& v);
void melFormat(std::ostream& os, const Mel::PtrConst<OriginatorSrgbTlv>& p);
void melParse(Mel::ValueParser& p, Mel::PtrConst<OriginatorSrgbTlv>& v);
void melFormat(std::ostream& os, const Mel::PtrConst<Srv6ServiceTlv>& p);
void melParse(Mel::ValueParser& p, Mel::PtrConst<Srv6ServiceTlv>& v);

class PrefixSidDestashed;

class PrefixSid : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(PrefixSid)

public:
    // Built, not interned; intern with dedup(). The members must be interned.
    static Mel::Ptr<PrefixSid> create(const PrefixSidContent& content);

    const LabelIndexTlv* labelIndexGet() const noexcept { return labelIndex_.get(); }
    const OriginatorSrgbTlv* originatorSrgbGet() const noexcept { return originatorSrgb_.get(); }
    const Srv6ServiceTlv* srv6ServiceGet() const noexcept { return srv6Service_.get(); }
    PrefixSidContent content() const;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

    // The whole attribute: flags 0xC0, type 40, then the present TLVs in the order label index,
    // originator SRGB, SRv6 service.
    Mel::Bytes serialize() const;
    // "prefixSID=< labelIndex=100 SRGB=< [16000:8000] > srv6Service=L3 2001:db8::1, End.DT4 >"
    void formatForTraceDisplay(std::ostream& os) const;
    std::string toStrep() const;

    static Mel::PtrConst<PrefixSid> dedupContent(PrefixSidDedupTable& table,
                                                 const PrefixSidContent& content);
    Mel::PtrConst<PrefixSid> dedup(PrefixSidDedupTable& table) const;
    // Reads the attribute and, through their own readers, its members back from the store.
    static Mel::Ptr<PrefixSidDestashed> destash(const void* stored,
                                                MelStash::StoreManager::RawPtr store);

private:
    explicit PrefixSid(const PrefixSidContent& content) noexcept;
    MelStash::CompressedStashSmartPtr<LabelIndexTlv const, 4> labelIndex_;
    MelStash::CompressedStashSmartPtr<OriginatorSrgbTlv const, 4> originatorSrgb_;
    MelStash::CompressedStashSmartPtr<Srv6ServiceTlv const, 4> srv6Service_;
};

// A prefix SID read back from the store: a plain shared value (not interned) holding its members by
// ordinary pointers. It answers what PrefixSid answers, and valueSet replaces its members.
class PrefixSidDestashed : public Mel::Object {
public:
    PrefixSidDestashed() noexcept = default;
    explicit PrefixSidDestashed(const PrefixSidContent& content) noexcept
        : labelIndex_(content.labelIndex()), originatorSrgb_(content.originatorSrgb()),
          srv6Service_(content.srv6Service()) {}

    const LabelIndexTlv* labelIndexGet() const noexcept { return labelIndex_.get(); }
    const OriginatorSrgbTlv* originatorSrgbGet() const noexcept { return originatorSrgb_.get(); }
    const Srv6ServiceTlv* srv6ServiceGet() const noexcept { return srv6Service_.get(); }
    void valueSet(Mel::PtrConst<LabelIndexTlv> labelIndex,
                  Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb,
                  Mel::PtrConst<Srv6ServiceTlv> srv6Service) noexcept;
    PrefixSidContent content() const;

    Mel::Bytes serialize() const;
    void formatForTraceDisplay(std::ostream& os) const;
    std::string toStrep() const;

private:
    Mel::PtrConst<LabelIndexTlv> labelIndex_;
    Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb_;
    Mel::PtrConst<Srv6ServiceTlv> srv6Service_;
};

class PrefixSidDedupTable : public Keel::DedupTable<PrefixSid> {
public:
    PrefixSidDedupTable() : DedupTable("PrefixSidDedupTable") {}
    static PrefixSidDedupTable& instance();
};

// The interned attribute with these members (each null or interned).
Mel::PtrConst<PrefixSid> prefixSidFactory(Mel::PtrConst<LabelIndexTlv> labelIndex,
                                          Mel::PtrConst<OriginatorSrgbTlv> originatorSrgb,
                                          Mel::PtrConst<Srv6ServiceTlv> srv6Service);
Mel::PtrConst<PrefixSid> prefixSidFactory(const PrefixSidContent& content);

std::ostream& operator<<(std::ostream& os, const PrefixSid& sid);
std::ostream& operator<<(std::ostream& os, const PrefixSidDestashed& sid);

// ---- Reading back from the store ---------------------------------------------------------------
// A stored pointer is the address of the object in the store (it is its own stored record).

class LabelIndexTlvStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<LabelIndexTlv> destash(const void* stored,
                                                 MelStash::StoreManager::RawPtr store) const;
    virtual std::string stashStrep(const void* stored) const;
    virtual Mel::Bytes stashSerialize(const void* stored) const;
};

class OriginatorSrgbTlvStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<OriginatorSrgbTlv> destash(const void* stored,
                                                     MelStash::StoreManager::RawPtr store) const;
    virtual std::string stashStrep(const void* stored) const;
    virtual Mel::Bytes stashSerialize(const void* stored) const;
};

class PrefixSidStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::Ptr<PrefixSidDestashed> destash(const void* stored,
                                                 MelStash::StoreManager::RawPtr store) const;
    virtual std::string stashStrep(const void* stored) const;
    virtual Mel::Bytes stashSerialize(const void* stored) const;
};

} // namespace Routing::Bgp
