#include "census/RoundTrip.h"
#include "census/ContentsBuilder.h"

#include "CensusTestUtil.h"
#include "ReceivedSection.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using Census::ContentsBuilder;
using Census::PathSource;
using Census::RoundTrip;
using Census::RoundTripCounts;
using Census::RoundTripReason;
using census_test::Received;

uint64_t explained(const RoundTripCounts& c, uint8_t type, RoundTripReason r) {
    return c.byType[type].explained[size_t(r)];
}

// The set built from `built`, checked against what `received` carried.
RoundTripCounts check(const Received& built, const Received& received) {
    ContentsBuilder b;
    Mel::PtrConst<Routing::Bgp::PathAttributes> set = b.intern(built.path());
    EXPECT_TRUE(set);
    RoundTrip rt;
    if (set) rt.check(received.path(), *set);
    return rt.counts();
}
RoundTripCounts check(const Received& r) {
    return check(r, r);
}

// Extended length and Partial on their own: CountsPrintOneLinePerTypeSeen.
TEST(RoundTrip, EachRuleExplainsItsDifferenceAndNothingElse) {
    {
        // The set writes the whole folded path in AS4_PATH and splits AS_PATH where the folding
        // joined two parts; the aggregator pair comes back as it arrived.
        Received r("as4_folding", 2);
        RoundTripCounts c = check(r);
        EXPECT_EQ(explained(c, 2, RoundTripReason::As4Folding), 1u);
        EXPECT_EQ(explained(c, 17, RoundTripReason::As4Folding), 1u);
        EXPECT_EQ(c.byType[7].matched, 1u);
        EXPECT_EQ(c.byType[18].matched, 1u);
        EXPECT_EQ(c.mismatched(), 0u);
    }
    {
        Received r("duplicate_med");
        RoundTripCounts c = check(r);
        EXPECT_EQ(c.byType[4].matched, 1u);
        EXPECT_EQ(explained(c, 4, RoundTripReason::Duplicate), 1u);
        EXPECT_EQ(c.mismatched(), 0u);
    }
    {
        // NEXT_HOP beside MP_REACH_NLRI, for the IPv6 prefix: the set holds the IPv6 next hop.
        Received r("mp_reach_link_local", 4, PathSource::MpReach, Census::kAfiIpv6);
        RoundTripCounts c = check(r);
        EXPECT_EQ(explained(c, 3, RoundTripReason::NextHopOfOtherFamily), 1u);
        EXPECT_EQ(c.byType[14].matched + c.byType[14].mismatched, 0u); // not compared
        EXPECT_EQ(c.mismatched(), 0u);
    }
    {
        // The unknown transitive attribute goes on with Partial set.
        Received r("every_common_type");
        RoundTripCounts c = check(r);
        EXPECT_EQ(explained(c, 99, RoundTripReason::PartialBit), 1u);
        EXPECT_EQ(c.explained(), 1u);
        EXPECT_EQ(c.mismatched(), 0u);
        EXPECT_EQ(c.matched(), 14u);
    }
    {
        // ORIGIN with an unused low flag bit, NEXT_HOP with Partial.
        std::vector<uint8_t> s = census_test::sections().at("duplicate_med");
        s[0] = 0x41;  // ORIGIN
        s[13] = 0x60; // NEXT_HOP
        Received r(s, 4, PathSource::NlriField, Census::kAfiIpv4);
        RoundTripCounts c = check(r);
        EXPECT_EQ(explained(c, 1, RoundTripReason::UnusedFlagBits), 1u);
        EXPECT_EQ(explained(c, 3, RoundTripReason::PartialBit), 1u);
        EXPECT_EQ(c.mismatched(), 0u);
    }
}

TEST(RoundTrip, DifferencesNoRuleExplainsAreMismatchesWithSamples) {
    // A set built from one path checked against another: MED differs, and the second path lacks
    // most of what the set writes.
    Received common("every_common_type");
    Received dup("duplicate_med");
    RoundTripCounts c = check(common, dup);
    EXPECT_EQ(c.byType[4].mismatched, 1u);
    EXPECT_EQ(c.byType[8].mismatched, 1u); // written, never received
    ASSERT_FALSE(c.samples.empty());
    bool medSeen = false, commSeen = false;
    for (const auto& s : c.samples) {
        if (s.type == 4) {
            medSeen = true;
            EXPECT_EQ(s.received, "8004040000000"
                                  "1");
            EXPECT_EQ(s.written, "80040400000064");
        }
        if (s.type == 8) {
            commSeen = true;
            EXPECT_EQ(s.received, "");
            EXPECT_EQ(s.written, "c00808fde80064ffff0006");
        }
    }
    EXPECT_TRUE(medSeen && commSeen);

    // An attribute that arrived well formed but was not written back is a mismatch too.
    RoundTripCounts back = check(dup, common);
    EXPECT_GT(back.byType[8].mismatched, 0u);
}

TEST(RoundTrip, PathsWithoutAttributesAreNotCompared) {
    ContentsBuilder b;
    Census::DecodedPath own;
    own.source = PathSource::RibEntry;
    Mel::PtrConst<Routing::Bgp::PathAttributes> set = b.intern(own);
    ASSERT_TRUE(set);
    RoundTrip rt;
    rt.check(own, *set);
    EXPECT_EQ(rt.counts().paths, 1u);
    EXPECT_EQ(rt.counts().emptySections, 1u);
    EXPECT_EQ(rt.counts().matched() + rt.counts().mismatched() + rt.counts().explained(), 0u);
}

// A long path received with 2-byte AS numbers (over extended messages) fits its attribute as it
// came; written with 4-byte numbers it does not. The set is counted as not writable, nothing else.
TEST(RoundTrip, SetTooLongToWriteIsCountedNotWritable) {
    using namespace census_test;
    Bytes path; // AS 1 to 32000 in sequences of 255
    for (uint32_t as = 1; as <= 32000; ++as) {
        if (as % 255 == 1) path.insert(path.end(), {2, uint8_t(std::min(255u, 32001 - as))});
        const Bytes b = u16(uint16_t(as));
        path.insert(path.end(), b.begin(), b.end());
    }
    Received r(cat({attr(0x40, 1, {0}), attr(0x40, 2, path), attr(0x40, 3, ip4(10, 0, 0, 1))}), 2,
               PathSource::NlriField, Census::kAfiIpv4);
    ContentsBuilder b;
    Mel::PtrConst<Routing::Bgp::PathAttributes> set = b.intern(r.path());
    ASSERT_TRUE(set);
    RoundTrip rt;
    rt.check(r.path(), *set); // as it came: written back with 2-byte numbers
    Census::DecodedPath four = r.path();
    four.asnSize = 4;
    rt.check(four, *set);
    EXPECT_EQ(rt.counts().paths, 2u);
    EXPECT_EQ(rt.counts().notWritable, 1u);
    EXPECT_EQ(rt.counts().byType[2].matched, 1u);
    EXPECT_EQ(rt.counts().mismatched(), 0u);
    EXPECT_EQ(
        rt.counts().toString().rfind("not writable (an attribute past 65535 bytes): 1 sets\n", 0),
        0u);
    RoundTrip total;
    total.merge(rt);
    EXPECT_EQ(total.counts().notWritable, 1u);
}

// The same set met again keeps its wire form; that must not carry one path's verdict to another
// path received differently, nor outlive the set once the forms are dropped. Per-thread counts
// then merge, the samples capped.
TEST(RoundTrip, ASetCheckedAgainstDifferentPathsIsJudgedOnEach) {
    Received common("every_common_type");
    Received dup("duplicate_med");
    RoundTrip total;
    for (int i = 0; i < 10; ++i) {
        ContentsBuilder b;
        Mel::PtrConst<Routing::Bgp::PathAttributes> set = b.intern(common.path());
        ASSERT_TRUE(set);
        const uint32_t refs = set->refCount();
        RoundTrip rt;
        rt.check(common.path(), *set);
        EXPECT_EQ(rt.counts().mismatched(), 0u);
        const uint64_t matched = rt.counts().matched();
        rt.check(dup.path(), *set);
        EXPECT_EQ(rt.counts().byType[4].mismatched, 1u);
        rt.check(common.path(), *set);
        EXPECT_EQ(rt.counts().byType[4].mismatched, 1u);
        EXPECT_GE(rt.counts().matched(), 2 * matched);
        total.merge(rt);
        rt.formsClear();
        EXPECT_EQ(set->refCount(), refs);
    }
    EXPECT_EQ(total.counts().paths, 30u);
    EXPECT_EQ(total.counts().byType[4].mismatched, 10u);
    EXPECT_EQ(total.counts().byType[4].matched, 20u);
    EXPECT_EQ(total.counts().samples.size(), RoundTripCounts::kMaxSamples);
}

TEST(RoundTrip, CountsPrintOneLinePerTypeSeen) {
    Received r("partial_and_extended_length");
    EXPECT_EQ(check(r).toString(),
              "type 1 ORIGIN: matched 1, mismatched 0, explained 0\n"
              "type 2 AS_PATH: matched 0, mismatched 0, explained 1 (extended-length 1)\n"
              "type 3 NEXT_HOP: matched 1, mismatched 0, explained 0\n"
              "type 8 COMMUNITIES: matched 0, mismatched 0, explained 1 (partial-bit 1)\n");
    EXPECT_EQ(Census::attributeTypeName(200), "type 200");
    EXPECT_EQ(Census::attributeTypeName(32), "LARGE_COMMUNITY");
}

} // namespace
