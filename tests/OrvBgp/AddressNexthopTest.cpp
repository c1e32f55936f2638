#include "OrvBgp/AddressNexthop.h"

#include "Mel/Reflect.h"
#include "MelStash/StoreManager.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "Serialize/Serialize.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <numeric>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace Routing::Bgp {
namespace {

using Orvnet::AfiSafi;
using Orvnet::IpGenAddr;
using Routing::Rib::ResolutionRibProfile;

IpGenAddr addr(const char* text) {
    return IpGenAddr::fromString(text);
}

AddressNexthopDedupTable v4Table(uint32_t vrf = 0) {
    return AddressNexthopDedupTable(BgpVrfIdBase(vrf), AfiSafi::ipv4Unicast());
}

TEST(AddressNexthop, SerializesToItsAddressBytes) {
    std::ifstream in(ORV_TEST_DATA_DIR "/AddressNexthop/serialize.txt");
    ASSERT_TRUE(in) << "missing tests/data/AddressNexthop/serialize.txt";
    AddressNexthopDedupTable table(BgpVrfIdBase(0), AfiSafi::ipv6Unicast());
    int vectors = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string text, hex;
        fields >> text >> hex;
        auto nh = table.nexthop(text == "-" ? IpGenAddr() : addr(text.c_str()));
        EXPECT_EQ(nh->serialize().toHex(), hex) << line;
        ++vectors;
    }
    EXPECT_EQ(vectors, 8);
}

// Independent decoding: the bytes as the next hop of an IPv6 MP_REACH_NLRI (as NEXT_HOP, in
// TsharkEncoders.WholeSetsForEveryKindOfPeer).
TEST(AddressNexthop, TsharkReadsTheAddressBack) {
    if (!OrvTest::tsharkAvailable()) GTEST_SKIP() << OrvTest::kTsharkMissing;
    AddressNexthopDedupTable v6(BgpVrfIdBase(0), AfiSafi::ipv6Unicast());
    Mel::Bytes nh6 = v6.nexthop(addr("2001:db8:0:1::7"))->serialize();

    Serialize attrs;
    attrs.addData(Mel::Bytes::fromHex("400101 00").span()); // ORIGIN IGP
    attrs.addData(Mel::Bytes::fromHex("400200").span());    // empty AS_PATH
    Serialize mpReach; // AFI 2, SAFI 1, next hop, reserved, 2001:db8::/32
    mpReach.addU16hton(2);
    mpReach.addU8(1);
    mpReach.addU8(uint8_t(nh6.size()));
    mpReach.addBytes(nh6);
    mpReach.addU8(0);
    mpReach.addData(Mel::Bytes::fromHex("20 20010db8").span());
    SerializePathAttribute(attrs, 14, pathAttrFlagOptional, mpReach.size());
    attrs.addData(mpReach.span());

    OrvTest::TsharkDecode d = OrvTest::wrapInUpdate(attrs.span());
    ASSERT_TRUE(d.ran) << d.error;
    EXPECT_EQ(d.warnings, std::vector<std::string>{}) << d.text;
    EXPECT_EQ(d.decodedField("bgp.update.path_attribute.mp_reach_nlri.next_hop.ipv6"),
              "2001:db8:0:1::7")
        << d.text;
}

TEST(AddressNexthop, OneObjectPerAddressProfileAndTable) {
    auto table = v4Table(5);
    auto other = v4Table(6);
    auto a = table.nexthop(addr("10.0.0.1"));
    EXPECT_EQ(table.nexthop(addr("10.0.0.1")), a);
    EXPECT_NE(table.nexthop(addr("::a00:1")), a) << "same bytes, other family";
    EXPECT_NE(table.nexthop(addr("10.0.0.2")), a);
    auto b = other.nexthop(addr("10.0.0.1"));
    EXPECT_NE(a, b);
    EXPECT_EQ(a->toStrep(), "5;10.0.0.1;id=none");
    EXPECT_EQ(b->toStrep(), "6;10.0.0.1;id=none");
    EXPECT_EQ(a->afiSafi(), AfiSafi::ipv4Unicast());
    EXPECT_EQ(table.nexthop(addr("2001:db8::1"))->afiSafi(), AfiSafi::ipv6Unicast());
    EXPECT_EQ(a->pathAfiSafiNexthopType().nexthopAf, Orvnet::AddressFamily::ipv4);
}

// The life cycle: identifiers are handed out once per interned object, come back when the
// last holder lets go, and are handed out again.
TEST(AddressNexthop, UniqueIdentifiersFollowTheObjectsLife) {
    auto table = v4Table();
    table.uniqueNexthopIdsEnabledIs(true);
    auto ids = table.idAllocator();
    auto a = table.nexthop(addr("10.0.0.1"), true);
    auto a2 = table.nexthop(addr("10.0.0.1"), true);
    auto b = table.nexthop(addr("10.0.0.2"), true);
    EXPECT_EQ(a, a2);
    EXPECT_EQ(a->id(), 2u);
    EXPECT_EQ(b->id(), 3u);
    EXPECT_EQ(a->toStrep(), "0;10.0.0.1;id=0x2");
    // Looked up without asking for one, it keeps the one it has.
    EXPECT_EQ(table.nexthop(addr("10.0.0.1"))->id(), 2u);
    a.reset();
    EXPECT_EQ(ids->freeIdCount(), 0u) << "a2 still holds it";
    a2.reset();
    EXPECT_EQ(ids->freeIdCount(), 1u);
    EXPECT_EQ(ids->freeIdFront()->value(), 2u);
    auto c = table.nexthop(addr("10.0.0.3"), true);
    EXPECT_EQ(c->id(), 2u) << "reused";
    // Not asked for: noId, and a later request numbers the same object.
    auto d = table.nexthop(addr("10.0.0.4"));
    EXPECT_EQ(d->id(), GenNexthopIdAllocator::noId());
    EXPECT_EQ(table.nexthop(addr("10.0.0.4"), true).get(), d.get());
    EXPECT_EQ(d->id(), 4u);
    // Switched off: new next hops get noId; numbered ones keep theirs and still return them.
    table.uniqueNexthopIdsEnabledIs(false);
    EXPECT_EQ(table.nexthop(addr("10.0.0.5"), true)->id(), GenNexthopIdAllocator::noId());
    c.reset();
    EXPECT_EQ(ids->freeIdBack()->value(), 2u);
    // Another VRF's table given the same allocator numbers from the same pool.
    auto blue = v4Table(2);
    blue.idAllocatorIs(ids);
    auto e = blue.nexthop(addr("10.0.0.4"), true);
    EXPECT_EQ(e->id(), 2u);
    EXPECT_EQ(blue.nexthop(addr("10.0.0.6"), true)->id(), 5u);
}

// A clone in another profile is another interned object, found by its content; read back from the
// store it is equal to the stored one.
TEST(AddressNexthop, CloneIntoAnotherResolutionProfile) {
    auto table = v4Table(3);
    table.uniqueNexthopIdsEnabledIs(true);
    auto plain = table.nexthop(addr("10.0.0.1"));
    EXPECT_EQ(plain->cloneAndSetResolutionRibProfile(ResolutionRibProfile()), plain)
        << "same profile: the object itself";

    OrvTest::TraceCapture trace(8);
    auto tunnel = plain->cloneAndSetResolutionRibProfile(ResolutionRibProfile(3));
    const std::vector<std::string> lines = std::move(trace.lines);
    for (const char* line : {"Skipping: address (constructor argument)",
                             "Skipping: resolutionRibProfile (no data member)"})
        EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
    ASSERT_NE(tunnel, plain);
    EXPECT_EQ(tunnel->dedupTable(), plain->dedupTable());
    EXPECT_EQ(tunnel->toStrep(), "3;10.0.0.1;ribProfile=3;id=none");
    AddressNexthopContent key(addr("10.0.0.1"), ResolutionRibProfile(3));
    EXPECT_EQ(GenNexthop::dedupContent(&table, key, key.hash(), false), tunnel);
    EXPECT_EQ(plain->cloneAndSetResolutionRibProfile(ResolutionRibProfile(3)), tunnel);
    auto back = GenNexthop::destash(tunnel.get(), &MelStash::StoreManager::instance());
    EXPECT_TRUE(back->compare(tunnel.get()));
    EXPECT_EQ(back->hash(), tunnel->hash());
    EXPECT_EQ(Mel::valueToStrep(static_cast<const AddressNexthop&>(*tunnel)),
              "Value('Routing::Bgp::AddressNexthop', ** {'vrfId': 3, 'id': 1, "
              "'resolutionRibProfileValid': False, 'nhMetricIsknown': False, 'nhPreference': 255, "
              "'address': '10.0.0.1', 'resolutionRibProfile': 3})");

    // A numbered next hop's clone is numbered too, with an identifier of its own.
    auto numbered = table.nexthop(addr("10.0.0.9"), true);
    auto copy = numbered->cloneAndSetResolutionRibProfile(ResolutionRibProfile(5));
    EXPECT_GT(copy->id(), 1u);
    EXPECT_NE(copy->id(), numbered->id());
}

TEST(AddressNexthopDeathTest, ProfileIsContentAndFixedOnceInterned) {
    auto table = v4Table();
    auto nh = table.nexthop(addr("10.0.0.1"));
    auto* mutableNh = const_cast<AddressNexthop*>(nh.get());
    auto dies = [](const char* text) {
        return OrvTest::assertionPattern("OrvBgp/AddressNexthop", text);
    };
    EXPECT_DEATH(mutableNh->resolutionRibProfileIs(ResolutionRibProfile(1)),
                 dies("!everDeduped()"));
    Mel::Ptr<AddressNexthop> fresh(new AddressNexthop(addr("10.0.0.1")));
    EXPECT_DEATH(fresh->resolutionRibProfileIs(ResolutionRibProfile(200)),
                 dies("profile.id() <= Routing::Rib::ResolutionRibProfile::maxId"));
}

// Two threads intern and release the same addresses with unique identifiers. While both hold every
// address, one address has one identifier and no two addresses share one; once all is released,
// every identifier minted is back in the free list exactly once.
TEST(AddressNexthopConcurrent, UniqueIdentifiersUnderContention) {
    auto table = v4Table();
    table.uniqueNexthopIdsEnabledIs(true);
    auto ids = table.idAllocator();
    constexpr uint32_t count = 500;
    std::vector<IpGenAddr> addrs;
    for (uint32_t i = 0; i < count; ++i)
        addrs.push_back(Orvnet::IpAddr::fromHostOrder(0x0a000000 + i));
    for (int round = 0; round < 50; ++round) {
        std::vector<Mel::PtrConst<AddressNexthop>> held[2];
        auto intern = [&](int t) {
            std::mt19937 rng(round * 2 + t);
            std::vector<uint32_t> order(count);
            std::iota(order.begin(), order.end(), 0u);
            std::shuffle(order.begin(), order.end(), rng);
            held[t].resize(count);
            for (uint32_t i : order)
                held[t][i] = table.nexthop(addrs[i], rng() % 4 != 0);
            for (uint32_t i : order) // whoever asked last, everyone numbered by now
                held[t][i] = table.nexthop(addrs[i], true);
        };
        std::thread t0(intern, 0), t1(intern, 1);
        t0.join();
        t1.join();
        std::set<uint32_t> seen;
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_EQ(held[0][i], held[1][i]);
            ASSERT_GT(held[0][i]->id(), 1u);
            ASSERT_TRUE(seen.insert(held[0][i]->id()).second) << "shared id " << held[0][i]->id();
        }
        auto release = [&](int t) {
            std::mt19937 rng(round * 2 + t + 100);
            std::shuffle(held[t].begin(), held[t].end(), rng);
            held[t].clear();
        };
        std::thread r0(release, 0), r1(release, 1);
        r0.join();
        r1.join();
        ASSERT_EQ(table.internTable().size(), 0u);
    }
    std::vector<uint32_t> freed;
    for (auto e = ids->freeIdFront(); e; e = e->next())
        freed.push_back(e->value());
    std::sort(freed.begin(), freed.end());
    std::vector<uint32_t> minted(ids->largestAllocatedId() - 1);
    std::iota(minted.begin(), minted.end(), 2u);
    EXPECT_EQ(freed, minted);
}

} // namespace
} // namespace Routing::Bgp
