// The interned generic next hop, its intern-table interface and its identifier allocator.
//   Mel::PtrConst<GenNexthop> nh = GenNexthop::dedupContent(table, content, hash, false);
//   nh->id();  nh->toStrep();   // "7;10.0.0.1;id=none": VRF, derived part, flags, identifier
//
// Concrete next-hop kinds derive from GenNexthop and come with a table derived from
// GenNexthopDedupTableBase (OrvBgp/AddressNexthop.h is the worked example).
//
// Names chosen here for the queries the design leaves unnamed (all false / this next hop in the
// base): isLabeled (an MPLS label came with the route), isLocalRoute (the next hop of a locally
// originated route), isInterfaceNexthop (an interface, not an address), isResolved (printed
// ";res": the RIB has resolved it), hasRemoteSrv6Sid, hasLinkBw (a link-bandwidth extended
// community came with it), and resolutionNexthop (the next hop whose route the RIB looks up).
#pragma once

#include "Keel/DedupHandleBase.h"
#include "Keel/DedupTable.h"
#include "Keel/DumpContext.h"
#include "Mel/Bytes.h"
#include "Mel/Object.h"
#include "Mel/Ptr.h"
#include "Mel/Reflect.h"
#include "Mel/String.h"
#include "Mel/ValueType.h"
#include "MelStash/DedupHandle.h"
#include "MelStash/StashReader.h"
#include "MelStash/StoreManager.h"
#include "OrvBgp/BgpIdAllocator.h"
#include "Orvnet/AfiSafi.h"
#include "Orvnet/IntfId.h"
#include "Orvnet/IpGenAddr.h"
#include "Tracelet/Tracelet.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace Routing::Rib {

// How traffic to a resolved next hop is carried.
enum class Transport : uint8_t { ip = 0, mpls = 1, srv6 = 2 };
BOOST_DESCRIBE_ENUM(Transport, ip, mpls, srv6)

// Which RIB a next hop is resolved in, by profile number; 0 is the system default. Numbers
// run to maxId so that a next hop can keep its profile in a few spare bits.
class ResolutionRibProfile {
public:
    static constexpr uint8_t maxId = 127;

    constexpr ResolutionRibProfile() noexcept = default;
    constexpr explicit ResolutionRibProfile(uint8_t id) noexcept : id_(id) {}
    static constexpr ResolutionRibProfile defaultProfile() noexcept { return {}; }

    constexpr uint8_t id() const noexcept { return id_; }
    constexpr bool isDefault() const noexcept { return id_ == 0; }
    friend constexpr bool operator==(ResolutionRibProfile, ResolutionRibProfile) = default;

private:
    uint8_t id_ = 0;
};
void melFormat(std::ostream& os, const ResolutionRibProfile& p);
void melParse(Mel::ValueParser& p, ResolutionRibProfile& v);

} // namespace Routing::Rib

namespace Routing::Bgp {

class GenNexthop;
class GenNexthopDedupTableBase;

// A VRF identifier: the low 29 bits are the VRF number. A value with the top bit set, or
// whose low 29 bits are 0xffffff, is invalid.
class BgpVrfIdBase {
public:
    static constexpr uint32_t numberMask = 0x1fffffff;

    constexpr BgpVrfIdBase() noexcept = default;
    constexpr explicit BgpVrfIdBase(uint32_t value) noexcept : value_(value) {}
    static constexpr BgpVrfIdBase invalidVrfId() noexcept { return BgpVrfIdBase(0xffffffff); }
    static constexpr BgpVrfIdBase defaultVrfId() noexcept { return BgpVrfIdBase(0); }

    constexpr uint32_t value() const noexcept { return value_; }
    constexpr uint32_t vrfNumber() const noexcept { return value_ & numberMask; }
    constexpr bool isInvalid() const noexcept {
        return (value_ & 0x80000000u) != 0 || (value_ & numberMask) == 0xffffff;
    }
    friend constexpr bool operator==(BgpVrfIdBase, BgpVrfIdBase) = default;

private:
    uint32_t value_ = 0xffffffff;
};
void melFormat(std::ostream& os, const BgpVrfIdBase& v);
void melParse(Mel::ValueParser& p, BgpVrfIdBase& v);

// The next hops' identifier allocator. Identifier 1 (noId) is taken when the allocator is
// built and never handed out, so every identifier a next hop gets from it is 2 or more.
class GenNexthopIdAllocator : public BgpIdAllocator {
public:
    static constexpr uint32_t noId() noexcept { return 1; }

    GenNexthopIdAllocator();
    // The construction step shared with the reflective path: takes noId, which must be the
    // first identifier this allocator mints.
    void handleInitialized();

    MEL_VALUE_TYPE_DERIVED(GenNexthopIdAllocator, "Routing::Bgp::GenNexthopIdAllocator",
                           (BgpIdAllocator), ())
};

Mel::Ptr<GenNexthopIdAllocator> GenNexthopIdAllocatorIs();

// ---------------------------------------------------------------------------------------------
// Next-hop metrics.

// The resolution record a RIB attaches to a next-hop metric; opaque to this library.
class NexthopResolution : public Mel::Object {};

// The lookup record of a BgpMetricPref; defaults are the unknown metric.
struct BgpMetricPrefContent : Keel::DedupContentHandle {
    uint64_t metric = 0;
    uint8_t preference = 255;
    uint64_t metricForBrib = 0;
    uint8_t preferenceForBrib = 255;
    bool valid = false;
    bool partOfLoop = false;
    Mel::PtrConst<NexthopResolution> resolution;
    uint8_t viaType = 255;
    uint8_t metricType = 0;

    static BgpMetricPrefContent unknown() noexcept { return {}; }
    static BgpMetricPrefContent invalid() noexcept;
    // Pre-resolved next hops: metric and preference 1, valid; the rest as unknown.
    static BgpMetricPrefContent preResolved() noexcept;

    uint32_t hash() const noexcept;
    friend bool operator==(const BgpMetricPrefContent& a, const BgpMetricPrefContent& b) noexcept;
};

// The interned metric-and-preference record of a resolved next hop.
class BgpMetricPref : public MelStash::DedupHandleWithHash {
    MELSTASH_STORE_ALLOCATED(BgpMetricPref)

public:
    explicit BgpMetricPref(const BgpMetricPrefContent& c);

    uint64_t metric() const noexcept { return metric_; }
    uint8_t preference() const noexcept { return preference_; }
    uint64_t metricForBrib() const noexcept { return metricForBrib_; }
    uint8_t preferenceForBrib() const noexcept { return preferenceForBrib_; }
    bool valid() const noexcept { return valid_; }
    bool partOfLoop() const noexcept { return partOfLoop_; }
    Mel::RawPtr<const NexthopResolution> resolution() const noexcept { return resolution_.get(); }
    uint8_t viaType() const noexcept { return viaType_; }
    uint8_t metricType() const noexcept { return metricType_; }
    BgpMetricPrefContent content() const;

    bool compare(const Keel::DedupHandleBase* other) const override;
    bool compareByContent(const Keel::DedupContentHandle& content) const override;

private:
    bool equals(const BgpMetricPrefContent& c) const noexcept;

    uint64_t metric_;
    uint64_t metricForBrib_;
    Mel::PtrConst<NexthopResolution> resolution_;
    uint8_t preference_;
    uint8_t preferenceForBrib_;
    bool valid_;
    bool partOfLoop_;
    uint8_t viaType_;
    uint8_t metricType_;
};

// The intern table of next-hop metrics. It builds the unknown, invalid and pre-resolved records
// when it is made and holds them for its whole life.
class BgpMetricPrefDedupTable : public Mel::Object, public Keel::DedupTable<BgpMetricPref> {
public:
    explicit BgpMetricPrefDedupTable(std::string name = "BgpMetricPrefDedupTable");
    ~BgpMetricPrefDedupTable() override;
    // The process-wide table, made on first use and never destroyed.
    static BgpMetricPrefDedupTable& instance();

    Mel::PtrConst<BgpMetricPref> metricPref(const BgpMetricPrefContent& c);
    Mel::RawPtr<const BgpMetricPref> unknownMetric() const noexcept { return unknown_.get(); }
    Mel::RawPtr<const BgpMetricPref> invalidMetric() const noexcept { return invalid_.get(); }
    Mel::RawPtr<const BgpMetricPref> preResolvedMetric() const noexcept {
        return preResolved_.get();
    }

private:
    Mel::PtrConst<BgpMetricPref> unknown_;
    Mel::PtrConst<BgpMetricPref> invalid_;
    Mel::PtrConst<BgpMetricPref> preResolved_;
};

// ---------------------------------------------------------------------------------------------
// Small types the next-hop interface hands around. Each is as much as the interface needs.

// The peer a path is about to be advertised to, as next-hop decisions see it.
struct BgpPeerStatus {
    Orvnet::IpGenAddr peerAddr;
    Orvnet::IpGenAddr localAddr;
};

// The set of via addresses a next hop resolves over, as a lookup key; empty when unresolved.
struct ViaSetKey {
    std::vector<Orvnet::IpGenAddr> vias;
    bool isEmpty() const noexcept { return vias.empty(); }
    friend bool operator==(const ViaSetKey&, const ViaSetKey&) = default;
};

// One resolved forwarding entry of a next hop, and the set of them.
struct ResolvedNexthopInfo {
    Orvnet::IpGenAddr via;
    Orvnet::IntfId intf;
};
class ResolvedNexthopInfoSet : public Mel::Object {
public:
    std::vector<ResolvedNexthopInfo> infos;
};

// The encapsulation type and label a route was received with (encapType 0: none).
struct RemoteLabelAndEncapType {
    uint8_t encapType = 0;
    uint32_t label = 0;
    friend bool operator==(const RemoteLabelAndEncapType&,
                           const RemoteLabelAndEncapType&) = default;
};

// An SRv6 service SID as received.
struct Srv6LabelValue {
    std::array<uint8_t, 16> sid{};
    friend bool operator==(const Srv6LabelValue&, const Srv6LabelValue&) = default;
};

// The colours (extended community values) a next hop is steered by.
class ColorCol : public Mel::Object {
public:
    std::vector<uint32_t> colors;
};

// Told when a next hop that someone watches goes away.
class GenNexthopLifeTimeNotifier : public Mel::Object {
public:
    virtual void handleNexthopDestroyed(uint32_t id) noexcept = 0;
};

// The address family of a path and the kind of its next hop, for encoders that must pick a
// next-hop encoding per family.
struct PathAfiSafiNexthopType {
    Orvnet::AfiSafi afiSafi;
    Orvnet::AddressFamily nexthopAf = Orvnet::AddressFamily::none;
    friend bool operator==(const PathAfiSafiNexthopType&, const PathAfiSafiNexthopType&) = default;
};

// The binary trace facility as far as next hops use it: a ring of bytes that keeps the newest
// records, and block timers that add up the time spent in a block while binary tracing is on
// (one relaxed load when it is off).
class QtRingBuffer {
public:
    explicit QtRingBuffer(size_t capacity = 4096) : buf_(capacity) {}
    void put(const void* data, size_t len) noexcept;
    // The bytes written, oldest first (at most the capacity).
    std::vector<uint8_t> contents() const;

private:
    std::vector<uint8_t> buf_;
    size_t written_ = 0;
};

struct QtTimerStats {
    explicit QtTimerStats(const char* n) noexcept : name(n) {}
    const char* name;
    std::atomic<uint64_t> count{0};
    std::atomic<uint64_t> totalNs{0};
};
bool qtTimingEnabled() noexcept;
void qtTimingEnabledIs(bool on) noexcept;

class QtBlockTimer {
public:
    explicit QtBlockTimer(QtTimerStats& stats) noexcept;
    ~QtBlockTimer();
    QtBlockTimer(const QtBlockTimer&) = delete;
    QtBlockTimer& operator=(const QtBlockTimer&) = delete;

private:
    QtTimerStats* stats_; // null when timing was off at the start
    uint64_t startNs_ = 0;
};

// ---------------------------------------------------------------------------------------------
// The generic next hop.

// The lookup record of a next hop. Each concrete kind derives its own and names its class in
// nexthopType, so that a table holding several kinds never compares a record with an object of
// another kind. The string form is empty.
struct GenNexthopContent : Keel::DedupContentHandle {
    explicit GenNexthopContent(const std::type_info& type) noexcept : nexthopType(&type) {}
    const std::type_info* nexthopType;
    std::string toStrep() const { return {}; }
};

// What every next hop interned in one table shares: its VRF and family, its metric table and
// the table itself. Owned by the table.
struct GenNexthopDedupTableContext {
    BgpVrfIdBase vrfId;
    Orvnet::AfiSafi afiSafi;
    Mel::Ptr<BgpMetricPrefDedupTable> bgpMetricPrefDedupTable;
    Mel::RawPtr<GenNexthopDedupTableBase> table = nullptr;
};

// Interned, shared and immutable apart from its flags and its identifier. Flags sit in one atomic
// word of user bits: bit 0 resolutionRibProfileValid, bit 1 nhMetricIsknown, bits 2-9
// nhPreference; bits 10-31 are left to derived classes (firstDerivedUserBit).
class GenNexthop : public MelStash::DedupHandle {
public:
    static constexpr unsigned firstDerivedUserBit = 10;

    // A one-byte set of one flag, bit 0: the next hop is to be advertised unchanged.
    class Flags {
    public:
        constexpr Flags() noexcept = default;
        // Throws Mel::RangeException for a byte above 1.
        explicit Flags(uint8_t value);
        constexpr uint8_t value() const noexcept { return value_; }
        constexpr bool nexthopUnchanged() const noexcept { return value_ & 1; }
        void nexthopUnchangedIs(bool v) noexcept { value_ = v ? 1 : 0; }
        friend constexpr bool operator==(Flags, Flags) = default;
        // The string form is that of the one boolean: True or False.
        friend void melFormat(std::ostream& os, const Flags& f);
        friend void melParse(Mel::ValueParser& p, Flags& f);

    private:
        uint8_t value_ = 0;
    };

    // ---- Intern handle.
    bool compare(const Keel::DedupHandleBase* other) const final;
    bool compareByContent(const Keel::DedupContentHandle& content) const final;
    // Ends the process unless other is a next hop of the same kind.
    void assertComparable(const GenNexthop* other) const noexcept;

    // ---- Metrics.
    virtual Mel::RawPtr<const BgpMetricPref> currentMetric() const;
    virtual void currentMetricIs(const Mel::PtrConst<BgpMetricPref>& metric) const;

    // ---- Interning.
    virtual void setVrfId(const GenNexthopDedupTableBase* table);
    // Interns this next hop in table (or returns the equal one there) and gives it its identifier.
    virtual Mel::PtrConst<GenNexthop> dedup(GenNexthopDedupTableBase* table, bool allocateUniqueId);
    // A fresh, never interned copy; throws Mel::NotSupportedException unless the kind offers it.
    virtual Mel::Ptr<GenNexthop> clone() const;

    // ---- Queries.
    virtual bool isNexthopSelf() const { return false; }
    virtual bool is3rdParty() const { return false; }
    virtual bool isRibOutExplicitAfiSafi() const { return false; }
    virtual bool advertise3rdParty(const BgpPeerStatus& peerStatus) const;
    virtual Mel::PtrConst<GenNexthop>
    getSkipNexthopResolutionNexthop(const GenNexthopDedupTableBase* nexthopTable) const;
    virtual bool isPolicyReject() const { return false; }
    virtual bool isPreResolved() const { return false; }
    virtual bool requiresViaConfig() const { return isPreResolved() ? false : !isPolicyReject(); }
    virtual bool requiresViaMetricStatus() const { return requiresViaConfig(); }
    virtual Mel::RawPtr<const GenNexthop> reachabilityNexthopGet() const { return nullptr; }
    virtual bool isLabeled() const { return false; }
    virtual Mel::RawPtr<const BgpMetricPref> preResolvedMetric() const;
    virtual Mel::RawPtr<const BgpMetricPref> invalidMetric() const;
    virtual bool allowRibOutPolicyToModify() const { return true; }
    virtual bool isLocalRoute() const { return false; }
    virtual ViaSetKey getViaSetKey() const { return {}; }
    virtual Mel::Ptr<ResolvedNexthopInfoSet> getResolvedNexthopInfoSet() const;
    virtual bool isInterfaceNexthop() const { return false; }
    virtual Mel::RawPtr<const GenNexthop> viaSetConfigNexthop() const { return this; }
    // The next hop as it goes on the wire.
    virtual Mel::Bytes serialize() const;
    // Content equality with a next hop of the same kind.
    virtual bool compareDerived(const GenNexthop* other) const;
    // Content equality with a lookup record of this kind.
    virtual bool compareByContentDerived(const GenNexthopContent& content) const;
    virtual Orvnet::AfiSafi afisafi() const;
    virtual Flags flags() const { return {}; }
    // Writes the kind-specific part of the string form.
    virtual void formatDerivedType(std::ostream& os) const;
    virtual Mel::Ptr<GenNexthopLifeTimeNotifier> getLifeTimeNotifier() const;
    virtual bool isResolved() const { return false; }
    virtual RemoteLabelAndEncapType remoteLabelAndEncapType() const { return {}; }
    virtual uint8_t remoteLabelType() const { return 0; }
    virtual uint32_t remoteLabelValue() const { return 0; }
    virtual Srv6LabelValue remoteSrv6LabelValue() const { return {}; }
    virtual bool hasRemoteSrv6Sid() const { return false; }
    virtual bool hasLinkBw() const { return false; }
    virtual double linkBw() const { return 0.0; }
    virtual Mel::PtrConst<ColorCol> colorCol() const { return nullptr; }
    virtual Routing::Rib::Transport ribTransport() const;
    virtual Mel::RawPtr<const GenNexthop> resolutionNexthop() const { return this; }
    virtual Orvnet::IpGenAddr addrOrNone() const { return {}; }
    virtual bool addrSupported() const { return false; }
    virtual Orvnet::IpGenAddr secondaryAddrOrNone() const { return {}; }
    virtual bool secondaryAddrSupported() const { return false; }
    virtual Orvnet::IntfId getIntfId() const;
    virtual PathAfiSafiNexthopType pathAfiSafiNexthopType() const = 0;
    virtual Routing::Rib::ResolutionRibProfile resolutionRibProfile() const {
        return Routing::Rib::ResolutionRibProfile::defaultProfile();
    }
    // Throws Mel::NotImplementedException unless the kind keeps a profile.
    virtual void resolutionRibProfileIs(Routing::Rib::ResolutionRibProfile profile);
    // Appends one binary record: VRF id, identifier and flag bits (3 x 32 bits, network order),
    // then the address length (8 bits) and the address bytes of addrOrNone().
    virtual void qtPut(QtRingBuffer& ringBuffer) const;

    // ---- VRF and identifier.
    // The VRF is set once; reading it before it is set ends the process.
    BgpVrfIdBase vrfId() const noexcept;
    void vrfIdIs(BgpVrfIdBase vrfId) noexcept;
    uint32_t id() const noexcept { return id_.load(std::memory_order_relaxed); }
    Mel::RawPtr<GenNexthopIdAllocator> idAllocator() const noexcept { return idAllocator_.get(); }

    Orvnet::AfiSafi afiSafi() const { return afisafi(); }
    // IPv6 unicast carrying an IPv4-mapped label (6PE).
    bool isSixPe() const;
    bool isNexthopSelfForPeer(const BgpPeerStatus& peerStatus) const;
    bool hasReachabilityNexthop() const { return reachabilityNexthopGet() != nullptr; }
    // A reachability next hop whose metric is the unknown one (or that has no metric record).
    bool reachabilityNexthopMetricUnknown() const;

    // These require a next hop that is or was interned; the context also needs its table alive.
    Mel::RawPtr<const BgpMetricPref> unknownMetric() const;
    const GenNexthopDedupTableContext* dedupTableContext() const;

    // Copies src's writable attributes into this next hop (same kind; src interned).
    void cloneFrom(const GenNexthop* src);
    // This next hop, or an interned copy resolved in another RIB profile.
    Mel::PtrConst<GenNexthop>
    cloneAndSetResolutionRibProfile(Routing::Rib::ResolutionRibProfile profile) const;

    // ---- Flags (const: they may change on an interned object; callers serialise writers).
    bool resolutionRibProfileValid() const noexcept { return userBits(0, 1) != 0; }
    void resolutionRibProfileValidIs(bool isValid) const noexcept;
    bool nhMetricIsknown() const noexcept { return userBits(1, 1) != 0; }
    void nhMetricIsknownIs(bool known) const noexcept;
    uint8_t nhPreference() const noexcept { return uint8_t(userBits(2, 8)); }
    void nhPreferenceIs(uint8_t preference) const noexcept;

    // Looks content up in table's intern table (hash is the caller's) and, on a miss, builds the
    // next hop with table->allocateGenNexthop and interns it. Either way the result gets its
    // identifier from table->assignIdToNexthop.
    static Mel::PtrConst<GenNexthop> dedupContent(GenNexthopDedupTableBase* table,
                                                  const GenNexthopContent& content, uint32_t hash,
                                                  bool allocateUniqueId);
    // Builds a fresh (not interned) next hop from one held in the store, through the stash reader
    // registered for its class; stashed points at a GenNexthop.
    static Mel::Ptr<GenNexthop> destash(const void* stashed, MelStash::StoreManager::RawPtr store);
    // Total time spent in dedupContent while binary tracing is on.
    static QtTimerStats& dedupContentTimer() noexcept;

    // "NULL", or VRF;derived part;flags;id=...
    std::string toStrep() const;

    MEL_VALUE_TYPE(GenNexthop, "Routing::Bgp::GenNexthop",
                   (vrfId_, id, resolutionRibProfileValid, resolutionRibProfileValidIs,
                    nhMetricIsknown, nhMetricIsknownIs, nhPreference, nhPreferenceIs))

    // The flag word as a whole, and one field of it.
    uint32_t userData() const noexcept { return userBits_.load(std::memory_order_relaxed); }
    uint32_t userBits(unsigned pos, unsigned width) const noexcept {
        return (userData() >> pos) & ((1u << width) - 1);
    }
    void userBitsIs(unsigned pos, unsigned width, uint32_t value) const noexcept;

protected:
    GenNexthop() noexcept;
    GenNexthop(const GenNexthop&) = delete;
    GenNexthop& operator=(const GenNexthop&) = delete;

    // Returns the identifier to its allocator.
    void handleDestroy() noexcept override;

    // Copies the writable attributes of src, which has this object's kind. Each concrete kind
    // overrides it with cloneAttributesAs<Kind>; the base copies GenNexthop's own attributes.
    virtual void cloneAttributes(const GenNexthop& src);

    // Copies X's described data members from src, skipping (with a level-8 trace line each)
    // those that must not be cloned, are not writable, are not data members, are collections,
    // or are named in constructorArguments or domainDependent.
    template <class X>
    void cloneAttributesAs(const X& src,
                           std::initializer_list<std::string_view> constructorArguments = {},
                           std::initializer_list<std::string_view> domainDependent = {});

private:
    friend class GenNexthopDedupTableBase;
    friend std::ostream& operator<<(std::ostream& os, const GenNexthop* nh);

    // Attributes that belong to one object and are never copied to a clone.
    static bool mustNotClone(std::string_view name) noexcept;
    static void traceClone(const char* what, std::string_view name, const char* reason = nullptr);
    template <class M>
    static constexpr bool isCollection = std::is_array_v<M> ||
                                         (!std::is_same_v<M, std::string> &&
                                          requires(M & m) { m.push_back(*m.begin()); });

    BgpVrfIdBase vrfId_;
    // The flags; they may change on an interned object, hence mutable and atomic.
    mutable std::atomic<uint32_t> userBits_{0};
    // Written under the intern protocol by the table's assignIdToNexthop, read anywhere.
    mutable std::atomic<uint32_t> id_{0};
    // Set once, by whoever gives this next hop its unique identifier.
    mutable Mel::Ptr<GenNexthopIdAllocator> idAllocator_;
};

std::ostream& operator<<(std::ostream& os, const GenNexthop* nh);
inline std::ostream& operator<<(std::ostream& os, const Mel::PtrConst<GenNexthop>& nh) {
    return os << nh.get();
}

template <class X>
void GenNexthop::cloneAttributesAs(const X& src,
                                   std::initializer_list<std::string_view> constructorArguments,
                                   std::initializer_list<std::string_view> domainDependent) {
    static_assert(std::is_base_of_v<GenNexthop, X>);
    X& dst = static_cast<X&>(*this);
    auto listed = [](std::initializer_list<std::string_view> names, std::string_view name) {
        for (std::string_view n : names)
            if (n == name) return true;
        return false;
    };
    // Which fields are data members (the others are getter-based and have nothing to copy).
    std::vector<std::string_view> dataMembers;
    Mel::forEachField(src,
                      [&](std::string_view name, const auto&) { dataMembers.push_back(name); });
    std::vector<std::string_view> toCopy;
    for (std::string_view name : Mel::fieldNames<X>()) {
        if (mustNotClone(name)) {
            traceClone("Skipping: ", name, "(attribute shouldn't be cloned)");
        } else if (!Mel::fieldWritable<X>(name)) {
            traceClone("Skipping: ", name, "(not writable)");
        } else if (std::find(dataMembers.begin(), dataMembers.end(), name) == dataMembers.end()) {
            traceClone("Skipping: ", name, "(no data member)");
        } else if (listed(constructorArguments, name)) {
            traceClone("Skipping: ", name, "(constructor argument)");
        } else if (listed(domainDependent, name)) {
            traceClone("Skipping: ", name, "(domain dependent attr)");
        } else {
            toCopy.push_back(name);
        }
    }
    Mel::forEachFieldPair(dst, src, [&](std::string_view name, auto& to, const auto& from) {
        using M = std::remove_cvref_t<decltype(to)>;
        if (std::find(toCopy.begin(), toCopy.end(), name) == toCopy.end()) return;
        if constexpr (isCollection<M> || !std::is_copy_assignable_v<M>) {
            traceClone("Skipping: ", name, "(collection)");
        } else {
            traceClone("Processing: ", name);
            to = from;
            traceClone("Copied: ", name);
        }
    });
}

// Reads one stored next-hop class back; registered per class with MelStash::StashReaderRegistry.
class GenNexthopStashReader : public MelStash::StashReaderBase {
public:
    // A fresh next hop equal to the stored one (its VRF is set by the caller, GenNexthop::destash).
    virtual Mel::Ptr<GenNexthop> destash(const GenNexthop* stashed,
                                         MelStash::StoreManager::RawPtr store) const = 0;
};

// ---------------------------------------------------------------------------------------------
// Intern tables.

// The hash table under a GenNexthopDedupTableBase; it knows its owner, so that a next hop can
// reach its table's context through the intern handle.
class GenNexthopInternTable : public Keel::DedupTable<GenNexthop> {
public:
    GenNexthopInternTable(std::string name, GenNexthopDedupTableBase* owner, bool multiThreaded)
        : DedupTable(std::move(name), multiThreaded), owner_(owner) {}
    Mel::RawPtr<GenNexthopDedupTableBase> owner() const noexcept { return owner_; }

private:
    GenNexthopDedupTableBase* owner_;
};

// The intern table of one VRF and address family. Derived tables build their kind of next hop
// (allocateGenNexthop) and may hand out unique identifiers (assignIdToNexthop).
class GenNexthopDedupTableBase : public Mel::Object {
public:
    GenNexthopDedupTableBase(
        std::string name, BgpVrfIdBase vrfId, Orvnet::AfiSafi afiSafi,
        Mel::Ptr<BgpMetricPrefDedupTable> bgpMetricPrefDedupTable =
            Mel::Ptr<BgpMetricPrefDedupTable>(&BgpMetricPrefDedupTable::instance()),
        bool multiThreaded = Keel::multiThreadedOrvbgp());
    ~GenNexthopDedupTableBase() override;
    GenNexthopDedupTableBase(const GenNexthopDedupTableBase&) = delete;
    GenNexthopDedupTableBase& operator=(const GenNexthopDedupTableBase&) = delete;

    // A new, never interned next hop for content; the base has none to build.
    virtual Mel::Ptr<GenNexthop> allocateGenNexthop(const GenNexthopContent& content);
    virtual Mel::PtrConst<GenNexthop> getRibOutExplicitAfiSafiNexthopSelf() const {
        return nullptr;
    }
    virtual Mel::PtrConst<GenNexthop>
    getLocalRouteNexthop(const ViaSetKey& viaSetKey, const Orvnet::IpGenAddr& address,
                         const Mel::Ptr<ResolvedNexthopInfoSet>& resolvedNexthopInfoSet) const;
    virtual bool uniqueNexthopIdsEnabled() const { return false; }
    // The base never hands out unique identifiers: it gives every next hop noId.
    virtual void assignIdToNexthop(const GenNexthop* nh, bool allocateUniqueId);

    Mel::PtrConst<GenNexthop> nexthopSelf() const { return nexthopSelf_; }
    void nexthopSelfIs(const Mel::PtrConst<GenNexthop>& nh) { nexthopSelf_ = nh; }

    const GenNexthopDedupTableContext& context() const noexcept { return context_; }
    GenNexthopInternTable& internTable() noexcept { return internTable_; }
    const GenNexthopInternTable& internTable() const noexcept { return internTable_; }

    // One line per fact: name, VRF, family, entries, table bytes, next-hop-self.
    void dumpState(const Keel::DumpContext& ctx, int indent = 0) const;

protected:
    // For derived tables' assignIdToNexthop: gives nh the identifier id if nh still holds
    // `expected`, and, when allocator is set, the allocator to return it to (only ever once, for
    // the move to a unique identifier); false (nothing changed) if another thread got there first.
    static bool nexthopIdIs(const GenNexthop* nh, uint32_t expected, uint32_t id,
                            const Mel::Ptr<GenNexthopIdAllocator>& allocator) noexcept;

private:
    GenNexthopDedupTableContext context_;
    GenNexthopInternTable internTable_;
    Mel::PtrConst<GenNexthop> nexthopSelf_; // after internTable_: released first
};

} // namespace Routing::Bgp
