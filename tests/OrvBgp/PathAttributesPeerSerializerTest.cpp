#include "OrvBgp/PathAttributesPeerSerializer.h"
#include "Mel/Reflect.h"

#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/AspathTestHelpers.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/ClusterList.h"
#include "OrvBgp/PathAttributesSerializeStore.h"
#include "OrvBgp/RibOutBgpPathAttributes.h"

#include <gtest/gtest.h>

namespace {

using namespace Routing::Bgp;

// We are member AS 65010 (0xfdf2) of confederation 4200000000 (0xfa56ea00). The path came from
// member AS 65020 (0xfdfc); its aggregator is our own member AS.
PathAttributesContents sample() {
    static AddressNexthopDedupTable nh(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast());
    PathAttributesContents c;
    c.aspathAttrIs(OrvTest::aspath("WithConfed: (65020) | 70000 100"));
    c.nextHopIs(nh.nexthop(Orvnet::IpGenAddr::fromString("192.0.2.1")));
    c.medIs(MultiExitDiscriminator(10));
    c.localPrefIs(RoutingLocalPref(200));
    c.commListIs(Routing::CommList::intern({0xfde80064}));
    c.aggregatorIs(aggregatorFactory(65010, Orvnet::IpAddr::fromString("10.0.0.1")));
    c.clusterListIs(ClusterListDedupTable::instance().findOrCreate(ClusterListContent(
        Orvnet::IpAddr::fromString("1.1.1.1"), {Orvnet::IpAddr::fromString("2.2.2.2")})));
    return c;
}

struct Case {
    const char* name;
    PathAttributesPeer peer;
    // Every attribute written, as hex, in order.
    std::vector<std::string> attributes;
};

PathAttributesPeer peer(bool fourByte, bool internal, bool confed) {
    PathAttributesPeer p;
    p.fourByteAsIs(fourByte)
        .internalIs(internal)
        .confedPeerIs(confed)
        .localAsIs(65010)
        .confedIdIs(4200000000u)
        .nextHopIs(Orvnet::IpAddr::fromString("192.0.2.99"));
    return p;
}

const std::string origin = "40010100", nextHop = "400304c0000263", med = "8004040000000a",
                  localPref = "400504000000c8", communities = "c00804fde80064",
                  originatorId = "80090401010101", clusterList = "800a0402020202";

// One attribute as hex: flags and type, the length of the value, the value (blanks allowed).
std::string attr(const char* flagsType, const char* value) {
    const Mel::Bytes v = Mel::Bytes::fromHex(value);
    return flagsType + Mel::Bytes({uint8_t(v.size())}).toHex() + v.toHex();
}

// The local AS each peer type must see, where AS4_PATH and AS4_AGGREGATOR are needed, and which
// attributes stay inside the AS or the confederation.
TEST(PathAttributesPeerSerializer, WritesWhatEachPeerTypeMaySee) {
    const std::vector<Case> cases = {
        {"external, 4-byte: the confederation id prepended, confed segments dropped",
         peer(true, false, false),
         {origin, attr("4002", "0203 fa56ea00 00011170 00000064"), nextHop, med,
          attr("c007", "fa56ea00 0a000001"), communities}},
        {"external, 2-byte: AS_TRANS for both, with AS4_PATH and AS4_AGGREGATOR",
         peer(false, false, false),
         {origin, attr("4002", "0203 5ba0 5ba0 0064"), nextHop, med, attr("c007", "5ba0 0a000001"),
          communities, attr("c011", "0203 fa56ea00 00011170 00000064"),
          attr("c012", "fa56ea00 0a000001")}},
        {"internal: the path as held, LOCAL_PREF and the reflection attributes",
         peer(true, true, false),
         {origin, attr("4002", "0301 0000fdfc 0202 00011170 00000064"), nextHop, med, localPref,
          attr("c007", "0000fdf2 0a000001"), communities, originatorId, clusterList}},
        {"confederation, 2-byte: our member AS in a new confed segment; AS4_PATH without them",
         peer(false, false, true),
         {origin, attr("4002", "0301 fdf2 0301 fdfc 0202 5ba0 0064"), nextHop, med, localPref,
          attr("c007", "fdf2 0a000001"), communities, attr("c011", "0202 00011170 00000064")}},
    };
    const PathAttributesContents c = sample();
    auto in = PathAttributesFactory(c).dedupContent(&PathAttributesDedupTable::instance());
    auto out =
        RibOutPathAttributesFactory(c).dedupContent(&RibOutPathAttributesDedupTable::instance());
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        std::string all;
        for (const std::string& a : k.attributes)
            all += a;
        // Inbound and outbound tiers, through a store and into a byte writer, write the same.
        AttrSetStringStore fromIn, fromOut;
        PathAttributesPeerSerializer::serialize(*in, k.peer, fromIn);
        PathAttributesPeerSerializer::serialize(*out, k.peer, fromOut);
        Serialize bytes;
        bytes.addU8(0xee); // appended after what the writer already holds
        PathAttributesPeerSerializer::serialize(*out, k.peer, bytes);
        EXPECT_EQ(fromIn.bytes().toHex(), all);
        EXPECT_EQ(fromOut.bytes().toHex(), all);
        EXPECT_EQ(bytes.serializedBytes().toHex(), "ee" + all);
        std::vector<uint8_t> types = fromIn.attrTypes();
        EXPECT_TRUE(std::is_sorted(types.begin(), types.end()));
    }
}

// The next hop as the peer description asks, and the set's own only when it is IPv4.
TEST(PathAttributesPeerSerializer, NextHopAsAsked) {
    static AddressNexthopDedupTable nh6(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv6Unicast());
    PathAttributesContents c = sample();
    auto v4 = PathAttributesFactory(c).dedupContent(&PathAttributesDedupTable::instance());
    c.nextHopIs(nh6.nexthop(Orvnet::IpGenAddr::fromString("2001:db8::1")));
    auto v6 = PathAttributesFactory(c).dedupContent(&PathAttributesDedupTable::instance());
    auto nextHopOf = [](const PathAttributes& set, const PathAttributesPeer& p) {
        AttrSetStringStore s;
        PathAttributesPeerSerializer::serialize(set, p, s);
        std::string hex = s.bytes().toHex();
        size_t at = hex.find("400304");
        return at == std::string::npos ? std::string("none") : hex.substr(at + 6, 8);
    };
    PathAttributesPeer p = peer(true, false, false); // the peer's own address: in the test above
    p.nextHopModeIs(PathAttributesPeer::NextHop::fromSet);
    EXPECT_EQ(nextHopOf(*v4, p), "c0000201");
    EXPECT_EQ(nextHopOf(*v6, p), "none");
    p.nextHopModeIs(PathAttributesPeer::NextHop::none);
    EXPECT_EQ(nextHopOf(*v4, p), "none");
}

// The peer description prints every field by name and reads back from its text, as the other
// value types do.
TEST(PathAttributesPeer, TextFormReadsBack) {
    PathAttributesPeer p = peer(false, false, true);
    p.confedIdIs(Orvnet::AutonomousSystem(64512)).prependOwnDisabledIs(true);
    p.nextHopIs(Orvnet::IpAddr::fromString("192.0.2.7"));
    const std::string text = p.toStrep();
    EXPECT_NE(text.find("'Routing::Bgp::PathAttributesPeer'"), std::string::npos) << text;
    EXPECT_NE(text.find("'nextHopMode': 'address'"), std::string::npos) << text;
    EXPECT_EQ(Mel::valueFromStrep<PathAttributesPeer>(text), p);
    EXPECT_NE(Mel::valueFromStrep<PathAttributesPeer>(PathAttributesPeer().toStrep()), p);
}

} // namespace
