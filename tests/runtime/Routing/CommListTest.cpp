#include "Routing/CommList.h"
#include "OrvBgp/AttrWireTestHelpers.h"
#include "OrvBgp/LinkStateAttr.h"
#include "Routing/RouteScalars.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace Routing;

ExtCommIp6 ip6RouteTarget() {
    ExtCommIp6 v{};
    v[1] = 0x02;
    auto a = Orvnet::Ip6Addr::fromString("2001:db8::1");
    std::memcpy(v.data() + 2, a.data(), 16);
    v[19] = 100;
    return v;
}

TEST(CommunityLists, WireFormsByteForByte) {
    auto v = OrvTest::attrWireVectors("Communities");
    ASSERT_EQ(v.size(), 6u);
    EXPECT_EQ(CommList::intern({0xfde80064, 0xffff0006})->serialize(), v["comm_two"]);
    EXPECT_EQ(CommList::intern(std::span<const uint32_t>())->serialize(), v["comm_empty"]);
    EXPECT_EQ(ExtCommList::intern({0x0002fde800000064ULL})->serialize(), v["extcomm_rt"]);
    EXPECT_EQ(LargeCommList::intern({LargeComm{65000, 1, 2}})->serialize(), v["large_one"]);
    EXPECT_EQ(ExtCommIp6List::intern({ip6RouteTarget()})->serialize(), v["ip6ext_rt"]);
    const uint8_t ls[] = {0x04, 0x02, 0x00, 0x04, 0x0a, 0x00, 0x00, 0x01};
    EXPECT_EQ(Bgp::LinkStateAttrBase::intern(ls)->serialize(), v["linkstate"]);
}

TEST(CommunityLists, ExtendedLengthFrom256BytesOfValue) {
    for (auto [n, header] : {std::pair{63, "c008fc"}, {64, "d0080100"}}) {
        auto b = CommList::intern(std::vector<uint32_t>(size_t(n), 1))->serialize();
        EXPECT_EQ(b.size(), 4 * size_t(n) + strlen(header) / 2);
        EXPECT_EQ(Mel::Bytes(b.span().first(strlen(header) / 2)).toHex(), header);
    }
}

TEST(CommunityLists, OrderIsPartOfTheValueAndMembershipIsExact) {
    auto ab = CommList::intern({1, 2});
    auto ba = CommList::intern({2, 1});
    EXPECT_NE(ab, ba);
    EXPECT_TRUE(ab->comm(2));
    EXPECT_FALSE(ab->comm(3));
    auto llgr = CommList::intern({CommList::llgrStale});
    EXPECT_TRUE(llgr->comm(CommList::llgrStale));
    EXPECT_FALSE(llgr->comm(CommList::noLlgr));
}

TEST(CommunityLists, TextInTheUsualNotation) {
    EXPECT_EQ(CommList::intern({0xfde80064, 0xffff0006})->toStrep(), "65000:100 65535:6");
    EXPECT_EQ(CommList::intern(std::span<const uint32_t>())->toStrep(), "");
    EXPECT_EQ(ExtCommList::intern({0x0002fde800000064ULL, 0x01030a0000010007ULL,
                                   0x0202fa56ea000005ULL, 0x0300000000000064ULL})
                  ->toStrep(),
              "rt 65000:100 soo 10.0.0.1:7 rt 4200000000:5 0x0300000000000064");
    EXPECT_EQ(
        LargeCommList::intern({LargeComm{65000, 1, 2}, LargeComm{4294967295u, 0, 7}})->toStrep(),
        "65000:1:2 4294967295:0:7");
    EXPECT_EQ(ExtCommIp6List::intern({ip6RouteTarget()})->toStrep(), "rt [2001:db8::1]:100");
    const uint8_t ls[] = {0x04, 0x02, 0x00, 0x04, 0x0a, 0x00, 0x00, 0x01, 0x04};
    EXPECT_EQ(Bgp::LinkStateAttrBase::intern(ls)->toStrep(), "tlv 1026 len 4, trailing 1 bytes");
}

TEST(RouteScalars, UnspecifiedIsTheTopBitPattern) {
    MultiExitDiscriminator none;
    EXPECT_FALSE(none.isSpecified());
    EXPECT_EQ(none.raw(), 0x8000000000000000ULL);
    EXPECT_EQ(none.low32(), 0u);
    EXPECT_TRUE(MultiExitDiscriminator(0).isSpecified());
    EXPECT_NE(MultiExitDiscriminator(0), none);
    EXPECT_EQ(RoutingLocalPref(100).toString(), "100");
    EXPECT_EQ(RedistMetric::unspecified().toString(), "unspecified");
}

// The shared interning contract, for each list.
struct CommListTraits : InternTableDedupOf<CommListDedupTable> {
    using Object = CommList;
    static std::vector<uint32_t> content(int i) {
        return std::vector<uint32_t>(size_t(i % 5) + 1, uint32_t(i));
    }
    static auto intern(const std::vector<uint32_t>& c) { return CommList::intern(c); }
};
struct LargeCommListTraits : InternTableDedupOf<LargeCommListDedupTable> {
    using Object = LargeCommList;
    static std::vector<LargeComm> content(int i) { return {LargeComm{uint32_t(i), 1, 2}}; }
    static auto intern(const std::vector<LargeComm>& c) { return LargeCommList::intern(c); }
};
struct LinkStateTraits : InternTableDedupOf<Bgp::LinkStateAttrDedupTable> {
    using Object = Bgp::LinkStateAttrBase;
    static std::vector<uint8_t> content(int i) {
        return std::vector<uint8_t>(size_t(i), uint8_t(i));
    }
    static auto intern(const std::vector<uint8_t>& c) { return Bgp::LinkStateAttrBase::intern(c); }
};
using CommunityListTypes = ::testing::Types<CommListTraits, LargeCommListTraits, LinkStateTraits>;
INSTANTIATE_TYPED_TEST_SUITE_P(CommunityLists, InternContract, CommunityListTypes);

} // namespace
