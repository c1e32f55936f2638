// Small interned attribute values: the accumulated IGP metric (AIGP), the aggregator and the
// attribute set (ATTR_SET).
//   Mel::PtrConst<AccumulatedIgpMetric> m = accumulatedIgpMetricFactory(5);   // m->serialize()
//   aggregatorFactory(65001, Orvnet::IpAddr::fromString("10.0.0.1"))->serialize(7, true, 0, 0);
//
// Both live in the store, are interned in their own tables and never change once built. destash
// reads an object back from its stored form and returns the interned object equal to it.
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Mel/Bytes.h"
#include "Mel/Ptr.h"
#include "Mel/ValueType.h"
#include "MelStash/CompressedStashSmartPtr.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"
#include "Orvnet/AutonomousSystem.h"
#include "Orvnet/IpAddr.h"

#include <cstdint>
#include <iosfwd>
#include <string>

class Serialize;

namespace Routing::Bgp {

// ---- AIGP --------------------------------------------------------------------------------------

class AccumulatedIgpMetricContent : public Keel::DedupContentHandle {
public:
    // All ones: the routing table had no usable accumulated metric.
    static constexpr uint64_t invalidMetric = ~uint64_t(0);

    AccumulatedIgpMetricContent() noexcept = default;
    explicit AccumulatedIgpMetricContent(uint64_t metric) noexcept : metric_(metric) {}

    uint64_t metric() const noexcept { return metric_; }
    void metricIs(uint64_t metric) noexcept { metric_ = metric; }
    bool isInvalid() const noexcept { return metric_ == invalidMetric; }
    uint32_t hash() const noexcept;

    friend bool operator==(const AccumulatedIgpMetricContent&,
                           const AccumulatedIgpMetricContent&) noexcept = default;

private:
    uint64_t metric_ = 0;
    MEL_VALUE_TYPE(AccumulatedIgpMetricContent, "Routing::Bgp::AccumulatedIgpMetricContent",
                   (metric_))
};

class AccumulatedIgpMetric : public Keel::DedupHandleBase {
    MELSTASH_STORE_ALLOCATED(AccumulatedIgpMetric)

public:
    static constexpr uint64_t invalidMetric = AccumulatedIgpMetricContent::invalidMetric;

    explicit AccumulatedIgpMetric(const AccumulatedIgpMetricContent& c) noexcept
        : metric_(c.metric()) {}

    uint64_t metric() const noexcept { return metric_; }
    bool isInvalid() const noexcept { return metric_ == invalidMetric; }
    AccumulatedIgpMetricContent content() const noexcept {
        return AccumulatedIgpMetricContent(metric_);
    }

    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

    // The whole attribute: type 26, flags 0x80, one AIGP TLV (type 1, length 11, metric).
    Mel::Bytes serialize() const;
    // "Value('Routing::Bgp::AccumulatedIgpMetricContent', ** {'metric': 5})"
    std::string toStrep() const;

    static Mel::PtrConst<AccumulatedIgpMetric> destash(const void* stored,
                                                       MelStash::StoreManager::RawPtr store);

private:
    uint64_t metric_;
};

class AccumulatedIgpMetricDedupTable : public Keel::DedupTable<AccumulatedIgpMetric> {
public:
    AccumulatedIgpMetricDedupTable() : DedupTable("AccumulatedIgpMetricDedupTable") {}
    static AccumulatedIgpMetricDedupTable& instance();
};

Mel::PtrConst<AccumulatedIgpMetric> accumulatedIgpMetricFactory(uint64_t metric);

std::ostream& operator<<(std::ostream& os, const AccumulatedIgpMetric& m);

// ---- Aggregator --------------------------------------------------------------------------------

class AggregatorContent : public Keel::DedupContentHandle {
public:
    AggregatorContent() noexcept = default;
    AggregatorContent(Orvnet::AutonomousSystem as, Orvnet::IpAddr id) noexcept
        : autonomousSystem_(as), aggregatorId_(id) {}

    Orvnet::AutonomousSystem autonomousSystem() const noexcept { return autonomousSystem_; }
    void autonomousSystemIs(Orvnet::AutonomousSystem as) noexcept { autonomousSystem_ = as; }
    Orvnet::IpAddr aggregatorId() const noexcept { return aggregatorId_; }
    void aggregatorIdIs(Orvnet::IpAddr id) noexcept { aggregatorId_ = id; }
    uint32_t hash() const noexcept;

    friend bool operator==(const AggregatorContent&, const AggregatorContent&) noexcept = default;

private:
    Orvnet::AutonomousSystem autonomousSystem_;
    Orvnet::IpAddr aggregatorId_;
    MEL_VALUE_TYPE(AggregatorContent, "Routing::Bgp::AggregatorContent",
                   (autonomousSystem_, aggregatorId_))
};

class Aggregator : public Keel::DedupHandleBase {
    MELSTASH_STORE_ALLOCATED(Aggregator)

public:
    explicit Aggregator(const AggregatorContent& c) noexcept
        : autonomousSystem_(c.autonomousSystem()), aggregatorId_(c.aggregatorId()) {}

    Orvnet::AutonomousSystem autonomousSystem() const noexcept { return autonomousSystem_; }
    Orvnet::IpAddr aggregatorId() const noexcept { return aggregatorId_; }
    AggregatorContent content() const noexcept {
        return AggregatorContent(autonomousSystem_, aggregatorId_);
    }

    uint32_t hash() const override;
    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

    // The whole AGGREGATOR (type 7) or AS4_AGGREGATOR (type 18) attribute, flags 0xC0. The AS
    // written is the stored one, or replacementAs when the stored one equals matchedAs (a
    // confederation or local-AS rewrite); 4 bytes with fourByteAs, else 2 bytes with AS_TRANS
    // standing in for numbers above 65535. Type 18 needs fourByteAs.
    Mel::Bytes serialize(uint8_t type, bool fourByteAs, Orvnet::AutonomousSystem replacementAs,
                         Orvnet::AutonomousSystem matchedAs) const;
    // The same attribute appended to out.
    void serialize(uint8_t type, bool fourByteAs, Orvnet::AutonomousSystem replacementAs,
                   Orvnet::AutonomousSystem matchedAs, Serialize& out) const;
    // Display form: "(aggregated by 65001 10.0.0.1)".
    std::string toStrep() const;

    static Mel::PtrConst<Aggregator> destash(const void* stored,
                                             MelStash::StoreManager::RawPtr store);

private:
    Orvnet::AutonomousSystem autonomousSystem_;
    Orvnet::IpAddr aggregatorId_;
};

class AggregatorDedupTable : public Keel::DedupTable<Aggregator> {
public:
    AggregatorDedupTable() : DedupTable("AggregatorDedupTable") {}
    static AggregatorDedupTable& instance();
};

Mel::PtrConst<Aggregator> aggregatorFactory(Orvnet::AutonomousSystem as, Orvnet::IpAddr id);

// Debug form: "AS=65001 Id=10.0.0.1".
std::ostream& operator<<(std::ostream& os, const Aggregator& a);

// ---- Reading back from the store ---------------------------------------------------------------
// A stored pointer is the address of the object in the store (it is its own stored record).

class AccumulatedIgpMetricStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<AccumulatedIgpMetric> destash(const void* stored,
                                                        MelStash::StoreManager::RawPtr store) const;
    virtual std::string stashStrep(const void* stored) const;
    virtual Mel::Bytes stashSerialize(const void* stored) const;
};

class AggregatorStashReader : public MelStash::StashReaderBase {
public:
    virtual Mel::PtrConst<Aggregator> destash(const void* stored,
                                              MelStash::StoreManager::RawPtr store) const;
    virtual std::string stashStrep(const void* stored) const;
};

class PathAttributes;

// ATTR_SET (type 128): an originating AS and the whole attribute set it sent, carried across a
// provider network.
//   auto s = attributeSetFactory(65001, innerSet);   // innerSet interned
//   s->serialize();   // c0 80 <len> 00 00 fd e9 <the inner attributes, 4-byte AS form>
class AttributeSet : public Keel::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(AttributeSet)

public:
    AttributeSet(Orvnet::AutonomousSystem originAs, const Mel::PtrConst<PathAttributes>& attrs);

    Orvnet::AutonomousSystem originAs() const noexcept { return originAs_; }
    Mel::PtrConst<PathAttributes> originAttributes() const noexcept;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;
    static uint32_t hashOf(Orvnet::AutonomousSystem originAs, const PathAttributes* attrs) noexcept;

    // Type 128, flags 0xC0: the origin AS (4 bytes), then the inner set's attributes as written to
    // a 4-byte-AS internal peer without NEXT_HOP (the next hop travels outside the set).
    Mel::Bytes serialize() const;
    // "AS 65001: <the inner set's contents>".
    std::string toStrep() const;

private:
    Orvnet::AutonomousSystem originAs_;
    MelStash::CompressedStashSmartPtr<PathAttributes const, 4> originAttributes_;
};

struct AttributeSetContent : Keel::DedupContentHandle {
    Orvnet::AutonomousSystem originAs;
    const PathAttributes* originAttributes = nullptr;
};

class AttributeSetDedupTable : public Keel::DedupTable<AttributeSet> {
public:
    using DedupTable::DedupTable;
    static AttributeSetDedupTable& instance();
};

// The interned ATTR_SET; attrs must be interned.
Mel::PtrConst<AttributeSet> attributeSetFactory(Orvnet::AutonomousSystem originAs,
                                                const Mel::PtrConst<PathAttributes>& attrs);

} // namespace Routing::Bgp
