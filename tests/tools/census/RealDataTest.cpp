// The real MRT dumps in ../shared/data/mrt through the ContentsBuilder and back to the wire.
#include "census/ContentsBuilder.h"
#include "census/RoundTrip.h"

#include "CensusTestUtil.h"

#include "OrvBgp/RibOutBgpPathAttributes.h"

#include <gtest/gtest.h>

#include <array>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using namespace Routing::Bgp;
using Census::DecodedAttributes;
using Census::DecodedPath;

struct RoundTripRun : Census::MrtHandler {
    Census::ContentsBuilder builder;
    Census::RoundTrip roundTrip;
    void onPath(const DecodedPath& p) override {
        Mel::PtrConst<PathAttributes> set = builder.intern(p);
        if (set) roundTrip.check(p, *set);
    }
};

TEST(CensusRealData, EveryDumpRoundTripsWithEveryDifferenceExplained) {
    const std::vector<std::string> files = census_test::sharedMrtFiles();
    if (files.empty()) GTEST_SKIP() << "no MRT dumps under " ORV_SHARED_DIR "/data/mrt";
    Census::RoundTripCounts total;
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        RoundTripRun run;
        Census::FileResult r = Census::readMrtFile(file, run);
        EXPECT_TRUE(r.ok) << r.error;
        const Census::RoundTripCounts& c = run.roundTrip.counts();
        EXPECT_EQ(c.mismatched(), 0u) << c.toString();
        for (const auto& sample : c.samples)
            ADD_FAILURE() << "type " << int(sample.type) << " at record offset "
                          << sample.recordOffset << ": received " << sample.received << ", written "
                          << sample.written;
        total.merge(c);
    }
    EXPECT_GT(total.matched(), 500000u);
}

// ---- distinct sets, against a count made here from the decoded values ----

void putU32(std::string& k, uint32_t v) {
    k.append(reinterpret_cast<const char*>(&v), 4);
}
void putBytes(std::string& k, std::span<const uint8_t> b) {
    putU32(k, uint32_t(b.size()));
    k.append(reinterpret_cast<const char*>(b.data()), b.size());
}

// Everything the decoded path says that an attribute set keeps, as one string: two paths with the
// same key must share one set. Outbound keys leave out the next hops, which outbound sets do not
// keep.
std::string independentKey(const DecodedPath& p, bool outbound) {
    const DecodedAttributes& a = *p.attributes;
    std::string k;
    std::array<uint64_t, 4> seen{};
    for (const Census::PathAttribute& attr : a.list) {
        const uint8_t t = attr.type;
        if ((seen[t >> 6] >> (t & 63)) & 1) continue;
        seen[t >> 6] |= uint64_t(1) << (t & 63);
        // Next hops are added below; MP_UNREACH_NLRI is no attribute of a set; the AS4
        // attributes are in the folded path and aggregator.
        if (!a.has(t) || t == 3 || t == 14 || t == 15 || t == 17 || t == 18) continue;
        k.push_back(char(t));
        if (t == 2) {
            for (const auto& seg : a.effectiveAsPath().segments) {
                k.push_back(char(seg.type));
                for (uint32_t as : a.effectiveAsPath().asnsOf(seg))
                    putU32(k, as);
                k.push_back(';');
            }
        } else if (t == 7) {
            putU32(k, a.effectiveAggregator().as);
            putU32(k, a.effectiveAggregator().address);
        } else {
            // A well-formed value's bytes say what its decoded value says; the unknown and the
            // rarer attributes are kept with their flags.
            static const std::set<uint8_t> valueOnly = {1, 4, 5, 8, 9, 10, 16, 25, 26, 32};
            if (!valueOnly.count(t)) k.push_back(char(attr.flags));
            putBytes(k, attr.value);
        }
    }
    if (outbound) return k;
    const bool viaMp = p.source == Census::PathSource::MpReach ||
                       (p.source == Census::PathSource::RibEntry &&
                        (p.afi != Census::kAfiIpv4 || !a.has(Census::AttrType::kNextHop)));
    k += p.afi == Census::kAfiIpv4 ? "|4" : "|6";
    if (viaMp && a.has(Census::AttrType::kMpReach)) {
        k.append(reinterpret_cast<const char*>(a.mpReach.nextHop.bytes.data()), 16);
        k.push_back(char(a.mpReach.nextHop.family));
        k.append(reinterpret_cast<const char*>(a.mpReach.linkLocalNextHop.bytes.data()), 16);
        k.push_back(char(a.mpReach.linkLocalNextHop.family));
    } else if (!viaMp && a.has(Census::AttrType::kNextHop)) {
        putU32(k, a.nextHop);
    }
    return k;
}

struct DistinctRun : Census::MrtHandler {
    Census::ContentsBuilder builder;
    PathAttributesContents contents;
    std::unordered_map<const void*, Mel::PtrConst<PathAttributes>> in;
    std::unordered_map<const void*, Mel::PtrConst<RibOutPathAttributes>> out;
    std::set<std::string> inKeys, outKeys;

    void onPath(const DecodedPath& p) override {
        if (!builder.build(p, contents)) return;
        Mel::PtrConst<PathAttributes> i =
            PathAttributes::dedupContent(&PathAttributesDedupTable::instance(), contents);
        Mel::PtrConst<RibOutPathAttributes> o = RibOutPathAttributes::dedupContent(
            &RibOutPathAttributesDedupTable::instance(), contents);
        in.emplace(i.get(), i);
        out.emplace(o.get(), o);
        if (!p.attributes) {
            inKeys.insert("");
            outKeys.insert("");
            return;
        }
        inKeys.insert(independentKey(p, false));
        outKeys.insert(independentKey(p, true));
    }
};

TEST(CensusRealData, DistinctSetsMatchACountFromTheDecodedValues) {
    const char* files[] = {"bview.20020722.2337.gz", "updates.20160811.1600.gz"};
    for (const char* name : files) {
        CENSUS_NEED_SHARED(file, name);
        SCOPED_TRACE(name);
        DistinctRun run;
        Census::FileResult r = Census::readMrtFile(file, run);
        ASSERT_TRUE(r.ok) << r.error;
        EXPECT_EQ(run.in.size(), run.inKeys.size());
        EXPECT_EQ(run.out.size(), run.outKeys.size());
        EXPECT_LT(run.out.size(), run.in.size()); // next hops alone split inbound sets
    }
}

} // namespace
