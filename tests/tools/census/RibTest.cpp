// The census RIB: announcements replace, withdrawals release, routes are keyed by peer, masked
// prefix, path id and SAFI. That a cleared RIB leaves no set behind is InternLeaks' to check.
#include "census/Rib.h"
#include "census/Ingest.h"

#include "AsPath/AspathAttrCanonical.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/RibOutBgpPathAttributes.h"
#include "Routing/CommList.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Census;
using namespace Routing::Bgp;

namespace {

Prefix v4(uint32_t addr, uint8_t len, uint32_t pathId = 0, bool hasPathId = false) {
    Prefix p;
    p.address = IpAddress::v4(addr);
    p.length = len;
    p.pathId = pathId;
    p.hasPathId = hasPathId;
    return p;
}

Prefix v6(uint8_t first, uint8_t last, uint8_t len) {
    uint8_t b[16] = {0x20, 0x01, 0x0d, 0xb8};
    b[4] = first;
    b[15] = last;
    Prefix p;
    p.address = IpAddress::v6(b);
    p.length = len;
    return p;
}

// Contents whose AS path is unique to this test file, so their sets are ones nothing else holds.
PathAttributesContents contents(uint32_t tag, bool withComms = false) {
    PathAttributesContents c;
    AspathAttrCanonicalContent path;
    path.segmentAdd(Routing::Bgp::AsSegmentType::asSequence_,
                    {4200000001u, 4200000002u, 4200000000u + tag});
    c.aspathAttrIs(aspathAttrCanonicalFactory(path));
    c.medIs(Routing::MultiExitDiscriminator(tag));
    if (withComms) c.commListIs(Routing::CommList::intern({0xfde80000u + tag, 0xfde90001u}));
    return c;
}

} // namespace

TEST(CensusRib, AnnouncementsReplaceAndWithdrawalsRelease) {
    Ingest in;
    InternedSets a = in.intern(contents(1));
    InternedSets b = in.intern(contents(2));
    const Prefix p = v4(0x0a000000, 8);

    in.announce(3, p, kSafiUnicast, a);
    in.announce(3, p, kSafiUnicast, a);
    EXPECT_EQ(in.rib().find(3, p, kSafiUnicast).get(), a.in.get());
    in.announce(3, p, kSafiUnicast, b);
    EXPECT_EQ(in.rib().find(3, p, kSafiUnicast).get(), b.in.get());
    EXPECT_EQ(in.rib().size(), 1u);
    // A second look-up of the same contents gives the same sets (the outbound one remembered).
    EXPECT_EQ(in.intern(contents(2)).out.get(), b.out.get());
    in.dropCaches();
    // The replaced set is held by this test only now; the RIB holds b's.
    EXPECT_EQ(a.in->refCount(), 2u); // ours and its table's
    EXPECT_EQ(b.in->refCount(), 3u);

    const RibCounts& c = in.rib().counts();
    EXPECT_EQ(c.added, 1u);
    EXPECT_EQ(c.unchanged, 1u);
    EXPECT_EQ(c.replaced, 1u);

    EXPECT_TRUE(in.rib().withdraw(3, p, kSafiUnicast));
    EXPECT_FALSE(in.rib().withdraw(3, p, kSafiUnicast));
    EXPECT_EQ(in.rib().size(), 0u);
    EXPECT_EQ(b.in->refCount(), 2u);
    EXPECT_EQ(b.out->refCount(), 2u);
    EXPECT_EQ(in.rib().counts().removed, 1u);
}

TEST(CensusRib, RoutesAreKeyedByPeerMaskedPrefixPathIdAndSafi) {
    Ingest in;
    InternedSets a = in.intern(contents(11));
    in.announce(1, v4(0x0a000000, 8), kSafiUnicast, a);
    in.announce(2, v4(0x0a000000, 8), kSafiUnicast, a);          // other peer
    in.announce(1, v4(0x0a000000, 16), kSafiUnicast, a);         // other length
    in.announce(1, v4(0x0a000000, 8), kSafiMulticast, a);        // other SAFI
    in.announce(1, v4(0x0a000000, 8, 7, true), kSafiUnicast, a); // a path id
    in.announce(1, v6(0, 0, 32), kSafiUnicast, a);               // IPv6
    in.announce(1, v6(0, 0, 48), kSafiUnicast, a);
    EXPECT_EQ(in.rib().size(), 7u);
    // Host bits past the length are not part of the route: these replace, not add.
    in.announce(1, v4(0x0a0000ff, 8), kSafiUnicast, a);
    in.announce(1, v4(0x0a00ffff, 16), kSafiUnicast, a);
    in.announce(1, v6(0x77, 0x55, 32), kSafiUnicast, a);
    // Path id 0 is the route without one.
    in.announce(1, v4(0x0a000000, 8, 0, true), kSafiUnicast, a);
    EXPECT_EQ(in.rib().size(), 7u);
    EXPECT_NE(in.rib().find(1, v4(0x0a000000, 8, 7, true), kSafiUnicast).get(), nullptr);
    EXPECT_EQ(in.rib().find(1, v4(0x0a000000, 8, 8, true), kSafiUnicast).get(), nullptr);
    // A /0 and a /32 at the edges of the mask.
    in.announce(1, v4(0xffffffff, 0), kSafiUnicast, a);
    EXPECT_NE(in.rib().find(1, v4(0, 0), kSafiUnicast).get(), nullptr);
    in.announce(1, v4(0x0a000001, 32), kSafiUnicast, a);
    EXPECT_EQ(in.rib().find(1, v4(0x0a000000, 32), kSafiUnicast).get(), nullptr);
    EXPECT_EQ(in.rib().size(), 9u);
    EXPECT_TRUE(in.rib().withdraw(1, v6(0x12, 0x34, 32), kSafiUnicast));
    EXPECT_EQ(in.rib().size(), 8u);
    EXPECT_GE(in.rib().memoryBytes(), 8u * 20u);
}

// Slot arrays come from the heap, from a populated mapping (64 KiB on) or from huge pages (a
// megabyte on): a RIB grown, reserved ahead, thinned and cleared through all three keeps exactly
// the routes it was given, and is as good as new after clear().
TEST(CensusRib, RoutesSurviveGrowthThroughEveryKindOfSlotArray) {
    Ingest in;
    InternedSets a = in.intern(contents(21)), b = in.intern(contents(22, true));
    auto prefix = [](uint32_t i) { return v4(0x20000000u + (i << 8), 24); };
    constexpr uint32_t kRoutes = 100000;
    for (int round = 0; round < 2; ++round) {
        std::vector<size_t> capacities;
        for (uint32_t i = 0; i < kRoutes; ++i) {
            if (i == kRoutes / 2) in.rib().reserve(kRoutes * 2);
            in.announce(uint16_t(i % 3), prefix(i), kSafiUnicast, i % 2 ? a : b);
            if (i % 3 == 1) in.withdraw(uint16_t(i % 3), prefix(i), kSafiUnicast);
            if (capacities.empty() || in.rib().memoryBytes() != capacities.back())
                capacities.push_back(in.rib().memoryBytes());
        }
        EXPECT_GE(capacities.size(), 10u); // a dozen doublings from 64 slots, one reservation
        EXPECT_GT(capacities.back(), size_t(4) << 20);
        EXPECT_EQ(in.rib().size(), kRoutes - kRoutes / 3);
        uint32_t wrong = 0;
        for (uint32_t i = 0; i < kRoutes; ++i) {
            const Rib::InSet held = in.rib().find(uint16_t(i % 3), prefix(i), kSafiUnicast);
            const void* want = i % 3 == 1 ? nullptr : (i % 2 ? a : b).in.get();
            wrong += held.get() != want;
            // Another peer's route to the same prefix was never there.
            wrong += in.rib().find(uint16_t(i % 3 + 1), prefix(i), kSafiUnicast).get() != nullptr;
        }
        EXPECT_EQ(wrong, 0u);
        in.clear();
        EXPECT_EQ(in.rib().size(), 0u);
        EXPECT_EQ(in.rib().find(0, prefix(0), kSafiUnicast).get(), nullptr);
    }
}

TEST(CensusRib, PeersAreNumberedInOrderOfFirstAppearance) {
    PeerTable peers;
    Peer a{IpAddress::v4(0x0a000001), 65001, 0};
    Peer b{IpAddress::v4(0x0a000001), 65002, 0}; // same address, other AS: another session
    Peer c{IpAddress::v4(0x0a000002), 65001, 0};
    EXPECT_EQ(peers.index(a), 0);
    EXPECT_EQ(peers.index(b), 1);
    EXPECT_EQ(peers.index(a), 0);
    EXPECT_EQ(peers.index(c), 2);
    EXPECT_EQ(peers.size(), 3u);
    EXPECT_EQ(peers.at(1).as, 65002u);
}
