#include "OrvBgp/OrvBgpNexthop.h"

#define ORV_UNIT "OrvBgp/OrvBgpNexthop"
#include "Keel/Assert.h"
#include "Keel/HashMix.h"
#include "Mel/Exception.h"

#include <chrono>
#include <cstring>
#include <ios>
#include <ostream>
#include <sstream>
#include <string>

// Operations a next-hop kind must provide before anyone may call them.
#define ORV_NOT_IMPLEMENTED()                                                                      \
    do {                                                                                           \
        ORV_ASSERT(!"Not implemented");                                                            \
        __builtin_unreachable();                                                                   \
    } while (0)

namespace Routing::Rib {

void melFormat(std::ostream& os, const ResolutionRibProfile& p) {
    os << unsigned(p.id());
}

void melParse(Mel::ValueParser& p, ResolutionRibProfile& v) {
    v = ResolutionRibProfile(uint8_t(p.parseUnsigned(ResolutionRibProfile::maxId)));
}

} // namespace Routing::Rib

namespace Routing::Bgp {

void melFormat(std::ostream& os, const BgpVrfIdBase& v) {
    os << v.value();
}

void melParse(Mel::ValueParser& p, BgpVrfIdBase& v) {
    v = BgpVrfIdBase(uint32_t(p.parseUnsigned(0xffffffff)));
}

// ---- GenNexthopIdAllocator

GenNexthopIdAllocator::GenNexthopIdAllocator() : BgpIdAllocator("Nexthop") {
    handleInitialized();
}

void GenNexthopIdAllocator::handleInitialized() {
    uint32_t allocatedNoId = allocate();
    ORV_ASSERT(noId() == allocatedNoId);
}

Mel::Ptr<GenNexthopIdAllocator> GenNexthopIdAllocatorIs() {
    return Mel::Ptr<GenNexthopIdAllocator>(new GenNexthopIdAllocator());
}

// ---- BgpMetricPref

BgpMetricPrefContent BgpMetricPrefContent::invalid() noexcept {
    BgpMetricPrefContent c;
    c.metric = 0xFFFFFFFFFFFFFFFFull;
    c.metricForBrib = 0xFFFFFFFFFFFFFFFFull;
    return c;
}

BgpMetricPrefContent BgpMetricPrefContent::preResolved() noexcept {
    BgpMetricPrefContent c;
    c.metric = 1;
    c.preference = 1;
    c.metricForBrib = 1;
    c.preferenceForBrib = 1;
    c.valid = true;
    return c;
}

uint32_t BgpMetricPrefContent::hash() const noexcept {
    Keel::HashMix m;
    m.hashMix(metric);
    m.hashMix(preference);
    m.hashMix(metricForBrib);
    m.hashMix(preferenceForBrib);
    m.hashMix(uint8_t(uint8_t(valid) | uint8_t(partOfLoop) << 1));
    m.hashMix(static_cast<const void*>(resolution.get()));
    m.hashMix(viaType);
    m.hashMix(metricType);
    return m.result();
}

bool operator==(const BgpMetricPrefContent& a, const BgpMetricPrefContent& b) noexcept {
    return a.metric == b.metric && a.preference == b.preference &&
           a.metricForBrib == b.metricForBrib && a.preferenceForBrib == b.preferenceForBrib &&
           a.valid == b.valid && a.partOfLoop == b.partOfLoop && a.resolution == b.resolution &&
           a.viaType == b.viaType && a.metricType == b.metricType;
}

BgpMetricPref::BgpMetricPref(const BgpMetricPrefContent& c)
    : metric_(c.metric), metricForBrib_(c.metricForBrib), resolution_(c.resolution),
      preference_(c.preference), preferenceForBrib_(c.preferenceForBrib), valid_(c.valid),
      partOfLoop_(c.partOfLoop), viaType_(c.viaType), metricType_(c.metricType) {
    hashIs(c.hash());
}

BgpMetricPrefContent BgpMetricPref::content() const {
    BgpMetricPrefContent c;
    c.metric = metric_;
    c.preference = preference_;
    c.metricForBrib = metricForBrib_;
    c.preferenceForBrib = preferenceForBrib_;
    c.valid = valid_;
    c.partOfLoop = partOfLoop_;
    c.resolution = resolution_;
    c.viaType = viaType_;
    c.metricType = metricType_;
    return c;
}

bool BgpMetricPref::equals(const BgpMetricPrefContent& c) const noexcept {
    return metric_ == c.metric && preference_ == c.preference &&
           metricForBrib_ == c.metricForBrib && preferenceForBrib_ == c.preferenceForBrib &&
           valid_ == c.valid && partOfLoop_ == c.partOfLoop && resolution_ == c.resolution &&
           viaType_ == c.viaType && metricType_ == c.metricType;
}

bool BgpMetricPref::compare(const Keel::DedupHandleBase* other) const {
    return equals(static_cast<const BgpMetricPref*>(other)->content());
}

bool BgpMetricPref::compareByContent(const Keel::DedupContentHandle& content) const {
    return equals(static_cast<const BgpMetricPrefContent&>(content));
}

BgpMetricPrefDedupTable::BgpMetricPrefDedupTable(std::string name)
    : DedupTable(std::move(name), Keel::multiThreadedOrvbgp(), Sharding::oneShard),
      unknown_(metricPref(BgpMetricPrefContent::unknown())),
      invalid_(metricPref(BgpMetricPrefContent::invalid())),
      preResolved_(metricPref(BgpMetricPrefContent::preResolved())) {}

BgpMetricPrefDedupTable::~BgpMetricPrefDedupTable() = default;

BgpMetricPrefDedupTable& BgpMetricPrefDedupTable::instance() {
    static BgpMetricPrefDedupTable* table = [] {
        auto* t = new BgpMetricPrefDedupTable();
        t->refInc(); // the process's own hold: never destroyed
        return t;
    }();
    return *table;
}

Mel::PtrConst<BgpMetricPref> BgpMetricPrefDedupTable::metricPref(const BgpMetricPrefContent& c) {
    return findOrCreate(c.hash(), c, [&] { return new BgpMetricPref(c); });
}

// ---- Binary trace facility

void QtRingBuffer::put(const void* data, size_t len) noexcept {
    auto* p = static_cast<const uint8_t*>(data);
    size_t cap = buf_.size();
    if (!cap) return;
    for (size_t i = 0; i < len; ++i)
        buf_[(written_ + i) % cap] = p[i];
    written_ += len;
}

std::vector<uint8_t> QtRingBuffer::contents() const {
    size_t cap = buf_.size();
    if (written_ <= cap) return {buf_.begin(), buf_.begin() + written_};
    std::vector<uint8_t> out;
    out.reserve(cap);
    size_t start = written_ % cap;
    out.insert(out.end(), buf_.begin() + start, buf_.end());
    out.insert(out.end(), buf_.begin(), buf_.begin() + start);
    return out;
}

namespace {
std::atomic<bool> qtTiming{false};

uint64_t nowNs() noexcept {
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count());
}
} // namespace

bool qtTimingEnabled() noexcept {
    return qtTiming.load(std::memory_order_relaxed);
}

void qtTimingEnabledIs(bool on) noexcept {
    qtTiming.store(on, std::memory_order_relaxed);
}

QtBlockTimer::QtBlockTimer(QtTimerStats& stats) noexcept
    : stats_(qtTimingEnabled() ? &stats : nullptr) {
    if (stats_) startNs_ = nowNs();
}

QtBlockTimer::~QtBlockTimer() {
    if (!stats_) return;
    stats_->totalNs.fetch_add(nowNs() - startNs_, std::memory_order_relaxed);
    stats_->count.fetch_add(1, std::memory_order_relaxed);
}

// ---- GenNexthop

GenNexthop::Flags::Flags(uint8_t value) : value_(value) {
    if (value > 1)
        throw Mel::RangeException("GenNexthop::Flags: value " + std::to_string(value) +
                                  " out of range 0..1");
}

void melFormat(std::ostream& os, const GenNexthop::Flags& f) {
    Mel::valueFormat(os, f.nexthopUnchanged());
}

void melParse(Mel::ValueParser& p, GenNexthop::Flags& f) {
    f.nexthopUnchangedIs(p.parseBool());
}

GenNexthop::GenNexthop() noexcept {
    userBitsIs(2, 8, 255);
}

void GenNexthop::userBitsIs(unsigned pos, unsigned width, uint32_t value) const noexcept {
    uint32_t mask = ((1u << width) - 1) << pos;
    uint32_t cur = userBits_.load(std::memory_order_relaxed);
    while (!userBits_.compare_exchange_weak(cur, (cur & ~mask) | ((value << pos) & mask),
                                            std::memory_order_relaxed)) {
    }
}

bool GenNexthop::compare(const Keel::DedupHandleBase* other) const {
    auto* o = static_cast<const GenNexthop*>(other);
    return typeid(*this) == typeid(*o) && compareDerived(o) &&
           isNexthopSelf() == o->isNexthopSelf() && isPolicyReject() == o->isPolicyReject();
}

bool GenNexthop::compareByContent(const Keel::DedupContentHandle& content) const {
    auto& c = static_cast<const GenNexthopContent&>(content);
    return *c.nexthopType == typeid(*this) && compareByContentDerived(c);
}

void GenNexthop::assertComparable(const GenNexthop* other) const noexcept {
    ORV_ASSERT(other != nullptr && typeid(*this) == typeid(*other));
}

Mel::RawPtr<const BgpMetricPref> GenNexthop::currentMetric() const {
    ORV_NOT_IMPLEMENTED();
}

void GenNexthop::currentMetricIs(const Mel::PtrConst<BgpMetricPref>&) const {
    ORV_NOT_IMPLEMENTED();
}

void GenNexthop::setVrfId(const GenNexthopDedupTableBase* table) {
    vrfIdIs(table->context().vrfId);
}

Mel::PtrConst<GenNexthop> GenNexthop::dedup(GenNexthopDedupTableBase* table,
                                            bool allocateUniqueId) {
    setVrfId(table);
    Mel::PtrConst<GenNexthop> result = table->internTable().dedup(Mel::PtrConst<GenNexthop>(this));
    table->assignIdToNexthop(result.get(), allocateUniqueId);
    return result;
}

Mel::Ptr<GenNexthop> GenNexthop::clone() const {
    // The no-implementation exception, whose text says the base does not support copying.
    throw Mel::NotImplementedException("Not supported");
}

bool GenNexthop::advertise3rdParty(const BgpPeerStatus&) const {
    ORV_NOT_IMPLEMENTED();
}

Mel::PtrConst<GenNexthop>
GenNexthop::getSkipNexthopResolutionNexthop(const GenNexthopDedupTableBase*) const {
    return Mel::PtrConst<GenNexthop>(this);
}

Mel::RawPtr<const BgpMetricPref> GenNexthop::preResolvedMetric() const {
    ORV_ASSERT(everDeduped());
    return dedupTableContext()->bgpMetricPrefDedupTable->preResolvedMetric();
}

Mel::RawPtr<const BgpMetricPref> GenNexthop::invalidMetric() const {
    ORV_ASSERT(everDeduped());
    return dedupTableContext()->bgpMetricPrefDedupTable->invalidMetric();
}

Mel::RawPtr<const BgpMetricPref> GenNexthop::unknownMetric() const {
    ORV_ASSERT(everDeduped());
    return dedupTableContext()->bgpMetricPrefDedupTable->unknownMetric();
}

Mel::Ptr<ResolvedNexthopInfoSet> GenNexthop::getResolvedNexthopInfoSet() const {
    return Mel::Ptr<ResolvedNexthopInfoSet>(new ResolvedNexthopInfoSet());
}

Mel::Bytes GenNexthop::serialize() const {
    ORV_NOT_IMPLEMENTED();
}

bool GenNexthop::compareDerived(const GenNexthop*) const {
    ORV_NOT_IMPLEMENTED();
}

bool GenNexthop::compareByContentDerived(const GenNexthopContent&) const {
    ORV_NOT_IMPLEMENTED();
}

Orvnet::AfiSafi GenNexthop::afisafi() const {
    ORV_NOT_IMPLEMENTED();
}

void GenNexthop::formatDerivedType(std::ostream&) const {
    ORV_NOT_IMPLEMENTED();
}

Mel::Ptr<GenNexthopLifeTimeNotifier> GenNexthop::getLifeTimeNotifier() const {
    ORV_NOT_IMPLEMENTED();
}

Routing::Rib::Transport GenNexthop::ribTransport() const {
    ORV_NOT_IMPLEMENTED();
}

Orvnet::IntfId GenNexthop::getIntfId() const {
    ORV_NOT_IMPLEMENTED();
}

void GenNexthop::resolutionRibProfileIs(Routing::Rib::ResolutionRibProfile) {
    throw Mel::NotImplementedException();
}

void GenNexthop::qtPut(QtRingBuffer& ringBuffer) const {
    uint8_t rec[13 + 16];
    auto put32 = [&rec](size_t at, uint32_t v) {
        rec[at] = uint8_t(v >> 24);
        rec[at + 1] = uint8_t(v >> 16);
        rec[at + 2] = uint8_t(v >> 8);
        rec[at + 3] = uint8_t(v);
    };
    put32(0, vrfId_.value());
    put32(4, id());
    put32(8, userData());
    Orvnet::IpGenAddr addr = addrOrNone();
    rec[12] = uint8_t(addr.byteLength());
    std::memcpy(rec + 13, addr.data(), addr.byteLength());
    ringBuffer.put(rec, 13 + addr.byteLength());
}

BgpVrfIdBase GenNexthop::vrfId() const noexcept {
    ORV_ASSERT(!vrfId_.isInvalid());
    return vrfId_;
}

void GenNexthop::vrfIdIs(BgpVrfIdBase vrfId) noexcept {
    ORV_ASSERT(vrfId_ == BgpVrfIdBase::invalidVrfId() || vrfId_ == vrfId);
    if (vrfId_ != vrfId) vrfId_ = vrfId; // never rewritten once set: interned objects are read
}

bool GenNexthop::isSixPe() const {
    return afisafi().value() == Orvnet::AfiSafi::ipv6Unicast().value() && remoteLabelType() == 2;
}

bool GenNexthop::isNexthopSelfForPeer(const BgpPeerStatus& peerStatus) const {
    return isNexthopSelf() || (is3rdParty() && !advertise3rdParty(peerStatus));
}

bool GenNexthop::reachabilityNexthopMetricUnknown() const {
    Mel::RawPtr<const GenNexthop> reach = reachabilityNexthopGet();
    if (!reach) return false;
    Mel::RawPtr<const BgpMetricPref> m = reach->currentMetric();
    // No metric record at all is as unknown as the unknown record.
    return !m || (!m->valid() && m->metric() == 0 && m->preference() == 255);
}

const GenNexthopDedupTableContext* GenNexthop::dedupTableContext() const {
    ORV_ASSERT(everDeduped());
    // Reachable while interned; a next hop that left its table has no context any more.
    const GenNexthopDedupTableContext* context = nullptr;
    if (auto* t = dynamic_cast<const GenNexthopInternTable*>(dedupTable()))
        context = &t->owner()->context();
    ORV_ASSERT(context != nullptr);
    return context;
}

bool GenNexthop::mustNotClone(std::string_view name) noexcept {
    static constexpr std::string_view never[] = {"resolutionRibProfileValue",
                                                 "dedupTable",
                                                 "lifeTimeNotifier",
                                                 "idAllocator",
                                                 "vrfId",
                                                 "rrNhCurrentMetricNotifier",
                                                 "reachabilityNexthop"};
    for (std::string_view n : never)
        if (n == name) return true;
    return false;
}

void GenNexthop::traceClone(const char* what, std::string_view name, const char* reason) {
    TRACE_AT(Tracelet::orvBgp(), 8, what << name << (reason ? " " : "") << (reason ? reason : ""));
}

void GenNexthop::cloneAttributes(const GenNexthop& src) {
    cloneAttributesAs<GenNexthop>(src);
}

void GenNexthop::cloneFrom(const GenNexthop* src) {
    ORV_ASSERT(src != nullptr);
    ORV_ASSERT(src->isDeduped());
    const std::type_info* srcT = &typeid(*src);
    const std::type_info* dstT = &typeid(*this);
    // type_info objects of one type may differ across shared objects; compare them by value.
    ORV_ASSERT_TEXT(srcT && dstT && *srcT == *dstT, "srcT && dstT && srcT == dstT");
    cloneAttributes(*src);
}

Mel::PtrConst<GenNexthop>
GenNexthop::cloneAndSetResolutionRibProfile(Routing::Rib::ResolutionRibProfile profile) const {
    if (profile == resolutionRibProfile()) return Mel::PtrConst<GenNexthop>(this);
    GenNexthopDedupTableBase* table = dedupTableContext()->table;
    Mel::Ptr<GenNexthop> copy = clone();
    copy->resolutionRibProfileIs(profile);
    return copy->dedup(table, id() > GenNexthopIdAllocator::noId());
}

void GenNexthop::resolutionRibProfileValidIs(bool isValid) const noexcept {
    ORV_ASSERT(isDeduped() || !isValid);
    userBitsIs(0, 1, isValid ? 1 : 0);
}

void GenNexthop::nhMetricIsknownIs(bool known) const noexcept {
    ORV_ASSERT(everDeduped());
    userBitsIs(1, 1, known ? 1 : 0);
}

void GenNexthop::nhPreferenceIs(uint8_t preference) const noexcept {
    ORV_ASSERT(everDeduped() || !nhMetricIsknown());
    userBitsIs(2, 8, preference);
}

QtTimerStats& GenNexthop::dedupContentTimer() noexcept {
    static QtTimerStats stats("GenNexthop::dedupContent");
    return stats;
}

Mel::PtrConst<GenNexthop> GenNexthop::dedupContent(GenNexthopDedupTableBase* table,
                                                   const GenNexthopContent& content, uint32_t hash,
                                                   bool allocateUniqueId) {
    QtBlockTimer timer(dedupContentTimer());
    Mel::PtrConst<GenNexthop> dedupHandle = table->internTable().find(hash, content);
    if (!dedupHandle) {
        Mel::Ptr<GenNexthop> nh = table->allocateGenNexthop(content);
        dedupHandle = nh->dedup(table, allocateUniqueId);
        ORV_ASSERT(dedupHandle);
    }
    table->assignIdToNexthop(dedupHandle.get(), allocateUniqueId);
    return dedupHandle;
}

Mel::Ptr<GenNexthop> GenNexthop::destash(const void* stashed,
                                         MelStash::StoreManager::RawPtr store) {
    auto* stored = static_cast<const GenNexthop*>(stashed);
    auto* reader = MelStash::StashReaderRegistry::readerFor<GenNexthopStashReader>(typeid(*stored));
    ORV_ASSERT(nullptr != reader);
    Mel::Ptr<GenNexthop> nh = reader->destash(stored, store);
    if (!stored->vrfId_.isInvalid()) nh->vrfIdIs(stored->vrfId_);
    return nh;
}

void GenNexthop::handleDestroy() noexcept {
    if (idAllocator_) {
        idAllocator_->free(id());
        idAllocator_.reset();
        return;
    }
    ORV_ASSERT(id() == GenNexthopIdAllocator::noId() || id() == BgpIdAllocator::invalidId());
}

std::string GenNexthop::toStrep() const {
    std::ostringstream os;
    os << this;
    return std::move(os).str();
}

std::ostream& operator<<(std::ostream& os, const GenNexthop* nh) {
    if (!nh) return os << "NULL";
    if (nh->isDeduped())
        os << (nh->vrfId_.value() & BgpVrfIdBase::numberMask) << ';';
    else
        os << "vrfNotAccessible;";
    nh->formatDerivedType(os);
    if (nh->isResolved()) os << ";res";
    if (nh->isPreResolved()) os << ";preRes";
    if (nh->isNexthopSelf()) os << ";nexthopSelf";
    if (nh->is3rdParty()) os << ";3rdParty";
    if (nh->isRibOutExplicitAfiSafi()) os << ";ribOutExplicitAfiSafi";
    if (nh->isPolicyReject()) os << ";policyReject";
    os << ";id=";
    uint32_t id = nh->id();
    if (id == GenNexthopIdAllocator::noId())
        os << "none";
    else if (id == BgpIdAllocator::invalidId())
        os << "invalid";
    else
        os << "0x" << std::hex << id << std::dec;
    return os;
}

// ---- GenNexthopDedupTableBase

GenNexthopDedupTableBase::GenNexthopDedupTableBase(
    std::string name, BgpVrfIdBase vrfId, Orvnet::AfiSafi afiSafi,
    Mel::Ptr<BgpMetricPrefDedupTable> bgpMetricPrefDedupTable, bool multiThreaded)
    : context_{vrfId, afiSafi, std::move(bgpMetricPrefDedupTable), this},
      internTable_(std::move(name), this, multiThreaded) {}

GenNexthopDedupTableBase::~GenNexthopDedupTableBase() = default;

Mel::Ptr<GenNexthop> GenNexthopDedupTableBase::allocateGenNexthop(const GenNexthopContent&) {
    ORV_NOT_IMPLEMENTED();
}

Mel::PtrConst<GenNexthop>
GenNexthopDedupTableBase::getLocalRouteNexthop(const ViaSetKey&, const Orvnet::IpGenAddr&,
                                               const Mel::Ptr<ResolvedNexthopInfoSet>&) const {
    return nullptr;
}

void GenNexthopDedupTableBase::assignIdToNexthop(const GenNexthop* nh, bool allocateUniqueId) {
    ORV_ASSERT(!allocateUniqueId || !uniqueNexthopIdsEnabled());
    ORV_ASSERT(nh->id() == GenNexthopIdAllocator::invalidId() ||
               nh->id() == GenNexthopIdAllocator::noId());
    // Written only when it changes: other threads may be reading an interned next hop's id.
    if (nh->id() != GenNexthopIdAllocator::noId())
        nh->id_.store(GenNexthopIdAllocator::noId(), std::memory_order_relaxed);
}

bool GenNexthopDedupTableBase::nexthopIdIs(
    const GenNexthop* nh, uint32_t expected, uint32_t id,
    const Mel::Ptr<GenNexthopIdAllocator>& allocator) noexcept {
    if (!nh->id_.compare_exchange_strong(expected, id, std::memory_order_acq_rel)) return false;
    // Only the one winner of the move from 0 or 1 to a unique identifier writes the allocator.
    if (allocator) nh->idAllocator_ = allocator;
    return true;
}

void GenNexthopDedupTableBase::dumpState(const Keel::DumpContext& ctx, int indent) const {
    std::string pad(size_t(indent), ' ');
    std::ostream& os = ctx.stream();
    os << pad << internTable_.name() << '\n';
    os << pad << "  vrfId " << context_.vrfId.value() << '\n';
    os << pad << "  afiSafi " << context_.afiSafi << '\n';
    os << pad << "  entries " << internTable_.size() << '\n';
    os << pad << "  tableBytes " << internTable_.memoryBytes() << '\n';
    os << pad << "  nexthopSelf " << nexthopSelf_.get() << '\n';
}

} // namespace Routing::Bgp
