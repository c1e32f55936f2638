#define ORV_UNIT "OrvBgp/BgpPathAttributesMisc"

#include "OrvBgp/BgpPathAttributesMisc.h"

#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Reflect.h"
#include "OrvBgp/BgpPathAttrType.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "Serialize/Serialize.h"
#include "Tracelet/Tracelet.h"

#include <ostream>
#include <sstream>
#include <typeinfo>

namespace Routing::Bgp {

namespace {

// The stored object behind a stored pointer, after checking it is one of ours.
const Keel::DedupHandleBase* storedObject(const void* stored) {
    ORV_ASSERT(MelStash::StoreManager::contains(stored));
    return static_cast<const Keel::DedupHandleBase*>(stored);
}

template <class Reader>
const Reader& readerFor(const void* stored) {
    const Keel::DedupHandleBase* obj = storedObject(stored);
    const Reader* reader = MelStash::StashReaderRegistry::readerFor<Reader>(typeid(*obj));
    ORV_ASSERT(nullptr != reader);
    return *reader;
}

} // namespace

// ---- AIGP --------------------------------------------------------------------------------------

uint32_t AccumulatedIgpMetricContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(metric_);
    return m.result();
}

uint32_t AccumulatedIgpMetric::hash() const {
    return content().hash();
}

bool AccumulatedIgpMetric::compare(const Keel::DedupHandleBase* other) const {
    return metric_ == static_cast<const AccumulatedIgpMetric*>(other)->metric_;
}

bool AccumulatedIgpMetric::compareByContent(const Keel::DedupContentHandle& content) const {
    return metric_ == static_cast<const AccumulatedIgpMetricContent&>(content).metric();
}

Mel::Bytes AccumulatedIgpMetric::serialize() const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: AccumulatedIgpMetric::serialize()");
    constexpr uint8_t aigpTlvType = 1;
    constexpr uint16_t aigpTlvLength = 11; // the TLV's own 3-byte header included
    Serialize s;
    SerializePathAttribute(s, BgpPathAttrType::aigp_, pathAttrFlagOptional, aigpTlvLength);
    s.addU8(aigpTlvType);
    s.addU16hton(aigpTlvLength);
    s.addU64hton(metric_);
    return s.serializedBytes();
}

std::string AccumulatedIgpMetric::toStrep() const {
    return Mel::valueToStrep(content());
}

Mel::PtrConst<AccumulatedIgpMetric>
AccumulatedIgpMetric::destash(const void* stored, MelStash::StoreManager::RawPtr store) {
    return readerFor<AccumulatedIgpMetricStashReader>(stored).destash(stored, store);
}

AccumulatedIgpMetricDedupTable& AccumulatedIgpMetricDedupTable::instance() {
    // Never destroyed: objects released during exit still find their table.
    static auto* table = new AccumulatedIgpMetricDedupTable;
    return *table;
}

Mel::PtrConst<AccumulatedIgpMetric> accumulatedIgpMetricFactory(uint64_t metric) {
    AccumulatedIgpMetricContent c(metric);
    return AccumulatedIgpMetricDedupTable::instance().findOrCreate(
        c.hash(), c, [&] { return new AccumulatedIgpMetric(c); });
}

std::ostream& operator<<(std::ostream& os, const AccumulatedIgpMetric& m) {
    return os << "aigp=" << m.metric() << (m.isInvalid() ? "(invalid)" : "");
}

// ---- Aggregator --------------------------------------------------------------------------------

uint32_t AggregatorContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(autonomousSystem_.value());
    m.hashMix(aggregatorId_.networkOrder());
    return m.result();
}

uint32_t Aggregator::hash() const {
    return content().hash();
}

bool Aggregator::compare(const Keel::DedupHandleBase* other) const {
    auto* o = static_cast<const Aggregator*>(other);
    return autonomousSystem_ == o->autonomousSystem_ && aggregatorId_ == o->aggregatorId_;
}

bool Aggregator::compareByContent(const Keel::DedupContentHandle& content) const {
    return this->content() == static_cast<const AggregatorContent&>(content);
}

Mel::Bytes Aggregator::serialize(uint8_t type, bool fourByteAs,
                                 Orvnet::AutonomousSystem replacementAs,
                                 Orvnet::AutonomousSystem matchedAs) const {
    Serialize s;
    serialize(type, fourByteAs, replacementAs, matchedAs, s);
    return s.serializedBytes();
}

void Aggregator::serialize(uint8_t type, bool fourByteAs, Orvnet::AutonomousSystem replacementAs,
                           Orvnet::AutonomousSystem matchedAs, Serialize& s) const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: Aggregator::serialize()");
    ORV_ASSERT(BgpPathAttrType::aggregator_ == type || BgpPathAttrType::as4Aggregator_ == type);
    ORV_ASSERT(BgpPathAttrType::as4Aggregator_ != type || fourByteAs);
    const Orvnet::AutonomousSystem as =
        autonomousSystem_ == matchedAs ? replacementAs : autonomousSystem_;
    SerializePathAttribute(s, type, pathAttrFlagOptional | pathAttrFlagTransitive,
                           fourByteAs ? 8 : 6);
    if (fourByteAs)
        s.addAs4(as);
    else
        s.addAs2(as);
    s.addIpv4Addr(aggregatorId_);
}

std::string Aggregator::toStrep() const {
    return "(aggregated by " + autonomousSystem_.toString() + " " + aggregatorId_.toString() + ")";
}

Mel::PtrConst<Aggregator> Aggregator::destash(const void* stored,
                                              MelStash::StoreManager::RawPtr store) {
    return readerFor<AggregatorStashReader>(stored).destash(stored, store);
}

AggregatorDedupTable& AggregatorDedupTable::instance() {
    static auto* table = new AggregatorDedupTable;
    return *table;
}

Mel::PtrConst<Aggregator> aggregatorFactory(Orvnet::AutonomousSystem as, Orvnet::IpAddr id) {
    AggregatorContent c(as, id);
    return AggregatorDedupTable::instance().findOrCreate(c.hash(), c,
                                                         [&] { return new Aggregator(c); });
}

std::ostream& operator<<(std::ostream& os, const Aggregator& a) {
    return os << "AS=" << a.autonomousSystem() << " Id=" << a.aggregatorId();
}

// ---- Stash readers -----------------------------------------------------------------------------

Mel::PtrConst<AccumulatedIgpMetric>
AccumulatedIgpMetricStashReader::destash(const void* stored, MelStash::StoreManager::RawPtr) const {
    auto* obj = static_cast<const AccumulatedIgpMetric*>(storedObject(stored));
    return accumulatedIgpMetricFactory(obj->metric());
}

std::string AccumulatedIgpMetricStashReader::stashStrep(const void* stored) const {
    return static_cast<const AccumulatedIgpMetric*>(storedObject(stored))->toStrep();
}

Mel::Bytes AccumulatedIgpMetricStashReader::stashSerialize(const void* stored) const {
    return static_cast<const AccumulatedIgpMetric*>(storedObject(stored))->serialize();
}

Mel::PtrConst<Aggregator> AggregatorStashReader::destash(const void* stored,
                                                         MelStash::StoreManager::RawPtr) const {
    auto* obj = static_cast<const Aggregator*>(storedObject(stored));
    return aggregatorFactory(obj->autonomousSystem(), obj->aggregatorId());
}

std::string AggregatorStashReader::stashStrep(const void* stored) const {
    return static_cast<const Aggregator*>(storedObject(stored))->toStrep();
}

namespace {

// Registers this family's readers with the store when the library loads.
struct BgpPathAttributesMiscStashRegisterer {
    BgpPathAttributesMiscStashRegisterer() {
        static const AccumulatedIgpMetricStashReader aigpReader;
        static const AggregatorStashReader aggregatorReader;
        MelStash::StashReaderRegistry::registerReader(typeid(AccumulatedIgpMetric), &aigpReader);
        MelStash::StashReaderRegistry::registerReader(typeid(Aggregator), &aggregatorReader);
    }
} registerer;

} // namespace

// ---- ATTR_SET ----

AttributeSet::AttributeSet(Orvnet::AutonomousSystem originAs,
                           const Mel::PtrConst<PathAttributes>& attrs)
    : originAs_(originAs), originAttributes_(attrs) {
    hashIs(hashOf(originAs, attrs.get()));
}

Mel::PtrConst<PathAttributes> AttributeSet::originAttributes() const noexcept {
    return originAttributes_.ptr();
}

uint32_t AttributeSet::hashOf(Orvnet::AutonomousSystem originAs,
                              const PathAttributes* attrs) noexcept {
    Keel::HashMix m;
    m.hashMix(originAs.value());
    m.hashMix(static_cast<const void*>(attrs));
    return m.result();
}

bool AttributeSet::compare(const Keel::DedupHandleBase* other) const {
    auto* o = static_cast<const AttributeSet*>(other);
    return o->originAs_ == originAs_ && o->originAttributes_ == originAttributes_;
}

bool AttributeSet::compareByContent(const Keel::DedupContentHandle& content) const {
    auto& c = static_cast<const AttributeSetContent&>(content);
    return c.originAs == originAs_ && c.originAttributes == originAttributes_.get();
}

Mel::Bytes AttributeSet::serialize() const {
    TRACE_AT(Tracelet::orvBgp(), 5, "Serializing: AttributeSet::serialize()");
    ORV_ASSERT_TEXT(originAttributes_, "originAttributes_");
    AttrSetStringStore inner;
    originAttributes_->serializeInternal(&inner, true, true, false);
    SerializePathAttributeAutoExtLen s;
    s.addU32hton(originAs_.value());
    s.addData(inner.str());
    return s.patchHdrAndStringify(BgpPathAttrType::attrSet_,
                                  pathAttrFlagOptional | pathAttrFlagTransitive);
}

std::string AttributeSet::toStrep() const {
    PathAttributesContents c;
    if (originAttributes_) originAttributes_->getFullContent(c);
    return "AS " + originAs_.toString() + ": " + valueToStrep(c);
}

AttributeSetDedupTable& AttributeSetDedupTable::instance() {
    static auto* t = new AttributeSetDedupTable("AttributeSetDedupTable");
    return *t;
}

Mel::PtrConst<AttributeSet> attributeSetFactory(Orvnet::AutonomousSystem originAs,
                                                const Mel::PtrConst<PathAttributes>& attrs) {
    ORV_ASSERT_TEXT(!attrs || attrs->isDeduped(), "originAttributes_->isDeduped()");
    AttributeSetContent c;
    c.originAs = originAs;
    c.originAttributes = attrs.get();
    return AttributeSetDedupTable::instance().findOrCreate(
        AttributeSet::hashOf(originAs, attrs.get()), c,
        [&] { return new AttributeSet(originAs, attrs); });
}

} // namespace Routing::Bgp
