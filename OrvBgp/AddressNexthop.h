// The address next hop and its intern table: how an agent adds a next-hop kind to the library.
//   Routing::Bgp::AddressNexthopDedupTable table(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast());
//   auto nh = table.nexthop(Orvnet::IpGenAddr::fromString("192.0.2.1"));  // nh->serialize():
//   c0000201
//
// A kind brings three things: the object (AddressNexthop: its content, hash and equality, wire
// form and string form), its lookup record (AddressNexthopContent) and a table that builds it
// (AddressNexthopDedupTable). The table can also hand out unique identifiers.
#pragma once

#include "OrvBgp/OrvBgpNexthop.h"

namespace Routing::Bgp {

// An IPv4 or IPv6 address next hop (the empty address is allowed and writes nothing), resolved in
// one RIB profile. The profile is content: the same address in two profiles is two next hops. It
// sits in the derived user-data bits, so that the object stays at 56 bytes.
class AddressNexthop final : public GenNexthop {
    MELSTASH_STORE_ALLOCATED(AddressNexthop)

public:
    explicit AddressNexthop(const Orvnet::IpGenAddr& address) noexcept;

    static uint32_t hashOf(const Orvnet::IpGenAddr& address,
                           Routing::Rib::ResolutionRibProfile profile) noexcept;

    const Orvnet::IpGenAddr& address() const noexcept { return address_; }

    uint32_t hash() const override { return hash_; }
    bool compareDerived(const GenNexthop* other) const override;
    bool compareByContentDerived(const GenNexthopContent& content) const override;
    // The address bytes, 4 or 16, as a NEXT_HOP attribute or an MP_REACH next-hop field holds them.
    Mel::Bytes serialize() const override;
    // IPv4 or IPv6 unicast, by the address.
    Orvnet::AfiSafi afisafi() const override;
    // The address, then ";ribProfile=<n>" when the profile is not the default.
    void formatDerivedType(std::ostream& os) const override;
    Routing::Rib::Transport ribTransport() const override { return Routing::Rib::Transport::ip; }
    Orvnet::IntfId getIntfId() const override { return {}; }
    PathAfiSafiNexthopType pathAfiSafiNexthopType() const override;
    Orvnet::IpGenAddr addrOrNone() const override { return address_; }
    bool addrSupported() const override { return true; }
    Mel::Ptr<GenNexthop> clone() const override;
    Routing::Rib::ResolutionRibProfile resolutionRibProfile() const override;
    // Only before the next hop is interned.
    void resolutionRibProfileIs(Routing::Rib::ResolutionRibProfile profile) override;

    MEL_VALUE_TYPE_DERIVED(AddressNexthop, "Routing::Bgp::AddressNexthop", (GenNexthop),
                           (address_, resolutionRibProfile, resolutionRibProfileIs))

protected:
    void cloneAttributes(const GenNexthop& src) override;

private:
    static constexpr unsigned profileBit = firstDerivedUserBit;
    static constexpr unsigned profileWidth = 7;

    Orvnet::IpGenAddr address_;
    uint32_t hash_;
};

// The lookup record of an address next hop.
struct AddressNexthopContent : GenNexthopContent {
    explicit AddressNexthopContent(const Orvnet::IpGenAddr& a,
                                   Routing::Rib::ResolutionRibProfile p = {}) noexcept
        : GenNexthopContent(typeid(AddressNexthop)), address(a), resolutionRibProfile(p) {}
    uint32_t hash() const noexcept { return AddressNexthop::hashOf(address, resolutionRibProfile); }

    Orvnet::IpGenAddr address;
    Routing::Rib::ResolutionRibProfile resolutionRibProfile;
};

// The intern table of address next hops of one VRF and family. With unique identifiers on, a next
// hop interned with allocateUniqueId gets an identifier (2 or more) from the table's allocator and
// keeps it until it dies; next hops interned without it get noId. Set the allocator up before the
// table is shared between threads.
class AddressNexthopDedupTable : public GenNexthopDedupTableBase {
public:
    AddressNexthopDedupTable(
        BgpVrfIdBase vrfId, Orvnet::AfiSafi afiSafi,
        Mel::Ptr<BgpMetricPrefDedupTable> bgpMetricPrefDedupTable =
            Mel::Ptr<BgpMetricPrefDedupTable>(&BgpMetricPrefDedupTable::instance()),
        bool multiThreaded = Keel::multiThreadedOrvbgp());

    // The interned next hop for address (resolved in the default RIB profile).
    Mel::PtrConst<AddressNexthop> nexthop(const Orvnet::IpGenAddr& address,
                                          bool allocateUniqueId = false);

    // On: identifiers come from the allocator set with idAllocatorIs, or from a new one.
    void uniqueNexthopIdsEnabledIs(bool on);
    bool uniqueNexthopIdsEnabled() const override { return idAllocator_ != nullptr; }
    // Several tables may share one allocator, so that identifiers are unique across them.
    void idAllocatorIs(const Mel::Ptr<GenNexthopIdAllocator>& allocator) {
        idAllocator_ = allocator;
    }
    const Mel::Ptr<GenNexthopIdAllocator>& idAllocator() const noexcept { return idAllocator_; }

    Mel::Ptr<GenNexthop> allocateGenNexthop(const GenNexthopContent& content) override;
    // A next hop that has a unique identifier keeps it; otherwise it gets one when asked for and
    // enabled, else noId.
    void assignIdToNexthop(const GenNexthop* nh, bool allocateUniqueId) override;

private:
    Mel::Ptr<GenNexthopIdAllocator> idAllocator_;
};

} // namespace Routing::Bgp
