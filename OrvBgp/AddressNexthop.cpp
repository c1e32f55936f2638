#include "OrvBgp/AddressNexthop.h"

#define ORV_UNIT "OrvBgp/AddressNexthop"
#include "Keel/Assert.h"
#include "Keel/HashMix.h"

#include <cstring>
#include <ostream>

namespace Routing::Bgp {

namespace {

// Reads a stored address next hop back as a fresh, never interned one.
class AddressNexthopStashReader : public GenNexthopStashReader {
public:
    Mel::Ptr<GenNexthop> destash(const GenNexthop* stashed,
                                 MelStash::StoreManager::RawPtr) const override {
        auto* stored = static_cast<const AddressNexthop*>(stashed);
        Mel::Ptr<AddressNexthop> nh(new AddressNexthop(stored->address()));
        nh->resolutionRibProfileIs(stored->resolutionRibProfile());
        return nh;
    }
};

const bool stashReaderRegistered = [] {
    static const AddressNexthopStashReader reader;
    MelStash::StashReaderRegistry::registerReader(typeid(AddressNexthop), &reader);
    return true;
}();

} // namespace

static_assert(sizeof(AddressNexthop) <= 56, "an address next hop fits a 56-byte block");

AddressNexthop::AddressNexthop(const Orvnet::IpGenAddr& address) noexcept
    : address_(address), hash_(hashOf(address, {})) {}

uint32_t AddressNexthop::hashOf(const Orvnet::IpGenAddr& address,
                                Routing::Rib::ResolutionRibProfile profile) noexcept {
    Keel::HashMix m(uint64_t(address.af()) << 8 | profile.id());
    uint32_t words[4] = {};
    std::memcpy(words, address.data(), address.byteLength());
    for (size_t i = 0; i < address.byteLength() / 4; ++i)
        m.hashMix(words[i]);
    return m.result();
}

bool AddressNexthop::compareDerived(const GenNexthop* other) const {
    auto* o = static_cast<const AddressNexthop*>(other);
    return address_ == o->address_ &&
           userBits(profileBit, profileWidth) == o->userBits(profileBit, profileWidth);
}

bool AddressNexthop::compareByContentDerived(const GenNexthopContent& content) const {
    auto& c = static_cast<const AddressNexthopContent&>(content);
    return address_ == c.address &&
           userBits(profileBit, profileWidth) == c.resolutionRibProfile.id();
}

Mel::Bytes AddressNexthop::serialize() const {
    return Mel::Bytes(address_.data(), address_.byteLength());
}

Orvnet::AfiSafi AddressNexthop::afisafi() const {
    return address_.isV6() ? Orvnet::AfiSafi::ipv6Unicast() : Orvnet::AfiSafi::ipv4Unicast();
}

void AddressNexthop::formatDerivedType(std::ostream& os) const {
    os << address_;
    Routing::Rib::ResolutionRibProfile profile = resolutionRibProfile();
    if (!profile.isDefault()) os << ";ribProfile=" << unsigned(profile.id());
}

PathAfiSafiNexthopType AddressNexthop::pathAfiSafiNexthopType() const {
    return {afisafi(), address_.af()};
}

Mel::Ptr<GenNexthop> AddressNexthop::clone() const {
    Mel::Ptr<AddressNexthop> copy(new AddressNexthop(address_));
    copy->resolutionRibProfileIs(resolutionRibProfile());
    copy->cloneFrom(this);
    return copy;
}

Routing::Rib::ResolutionRibProfile AddressNexthop::resolutionRibProfile() const {
    return Routing::Rib::ResolutionRibProfile(uint8_t(userBits(profileBit, profileWidth)));
}

void AddressNexthop::resolutionRibProfileIs(Routing::Rib::ResolutionRibProfile profile) {
    // The profile is content: changing it on an interned object would strand it in its table.
    ORV_ASSERT(!everDeduped());
    ORV_ASSERT(profile.id() <= Routing::Rib::ResolutionRibProfile::maxId);
    userBitsIs(profileBit, profileWidth, profile.id());
    hash_ = hashOf(address_, profile);
}

void AddressNexthop::cloneAttributes(const GenNexthop& src) {
    cloneAttributesAs<AddressNexthop>(static_cast<const AddressNexthop&>(src), {"address"});
}

// ---- AddressNexthopDedupTable

AddressNexthopDedupTable::AddressNexthopDedupTable(
    BgpVrfIdBase vrfId, Orvnet::AfiSafi afiSafi,
    Mel::Ptr<BgpMetricPrefDedupTable> bgpMetricPrefDedupTable, bool multiThreaded)
    : GenNexthopDedupTableBase("AddressNexthopDedupTable", vrfId, afiSafi,
                               std::move(bgpMetricPrefDedupTable), multiThreaded) {}

Mel::PtrConst<AddressNexthop> AddressNexthopDedupTable::nexthop(const Orvnet::IpGenAddr& address,
                                                                bool allocateUniqueId) {
    AddressNexthopContent content(address);
    Mel::PtrConst<GenNexthop> nh =
        GenNexthop::dedupContent(this, content, content.hash(), allocateUniqueId);
    // Hand the reference over rather than count it up and down again.
    return Mel::PtrConst<AddressNexthop>::adopt(static_cast<const AddressNexthop*>(nh.detach()));
}

void AddressNexthopDedupTable::uniqueNexthopIdsEnabledIs(bool on) {
    if (!on)
        idAllocator_.reset();
    else if (!idAllocator_)
        idAllocator_ = GenNexthopIdAllocatorIs();
}

Mel::Ptr<GenNexthop>
AddressNexthopDedupTable::allocateGenNexthop(const GenNexthopContent& content) {
    ORV_ASSERT(*content.nexthopType == typeid(AddressNexthop));
    auto& c = static_cast<const AddressNexthopContent&>(content);
    Mel::Ptr<AddressNexthop> nh(new AddressNexthop(c.address));
    if (!c.resolutionRibProfile.isDefault()) nh->resolutionRibProfileIs(c.resolutionRibProfile);
    return nh;
}

void AddressNexthopDedupTable::assignIdToNexthop(const GenNexthop* nh, bool allocateUniqueId) {
    // Every step is a compare-and-swap from what was read: other threads may be interning the
    // same next hop right now.
    uint32_t current = nh->id();
    if (!allocateUniqueId || !idAllocator_) {
        if (current == GenNexthopIdAllocator::invalidId())
            nexthopIdIs(nh, current, GenNexthopIdAllocator::noId(), nullptr);
        return;
    }
    while (current <= GenNexthopIdAllocator::noId()) {
        uint32_t id = idAllocator_->allocate();
        if (nexthopIdIs(nh, current, id, idAllocator_)) return;
        idAllocator_->free(id); // another thread numbered it first
        current = nh->id();
    }
}

} // namespace Routing::Bgp
