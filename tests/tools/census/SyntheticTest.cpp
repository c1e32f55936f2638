// The synthetic table: the same seed gives the same table whichever order (or thread) its peers
// are generated in; another seed gives another table; its shape follows the measured profile.
#include "census/Synthetic.h"

#include "AsPath/AspathAttrCanonical.h"
#include "OrvBgp/BgpPathAttributes.h"
#include "Routing/CommList.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

using namespace Census;
using namespace Routing::Bgp;

namespace {

// A text line per path: peer, prefix and the set's printed contents.
std::vector<std::string> peerLines(const SyntheticTable& t, uint32_t peer) {
    std::vector<std::string> out;
    t.generatePeer(peer, [&](uint16_t p, const Prefix& prefix, const PathAttributesContents& c) {
        out.push_back(std::to_string(p) + " " + prefix.toString() + " " + valueToStrep(c) + " " +
                      (c.aspathAttr() ? Mel::Bytes(c.aspathAttr()->storedBytes()).toHex() : "") +
                      " " + (c.commList() ? c.commList()->toStrep() : ""));
    });
    return out;
}

} // namespace

TEST(CensusSynthetic, SameSeedSameTableInAnyPeerOrder) {
    SyntheticConfig cfg{20000, 4, 7};
    SyntheticTable a(cfg), b(cfg);
    std::vector<std::vector<std::string>> first(4), second(4);
    for (uint32_t p = 0; p < 4; ++p)
        first[p] = peerLines(a, p);
    // The other table generates its peers backwards, two of them on another thread.
    std::thread t([&] {
        second[3] = peerLines(b, 3);
        second[1] = peerLines(b, 1);
    });
    second[2] = peerLines(b, 2);
    second[0] = peerLines(b, 0);
    t.join();
    for (uint32_t p = 0; p < 4; ++p) {
        ASSERT_EQ(first[p].size(), a.pathsOf(p));
        EXPECT_EQ(first[p], second[p]) << "peer " << p;
    }

    SyntheticTable other({20000, 4, 8});
    EXPECT_NE(peerLines(other, 0), first[0]);
}

TEST(CensusSynthetic, PathsSplitOverPeersAndPrefixesAreDistinct) {
    SyntheticTable t({1003, 10, 1});
    uint64_t total = 0;
    for (uint32_t p = 0; p < 10; ++p)
        total += t.pathsOf(p);
    EXPECT_EQ(total, 1003u);
    EXPECT_EQ(t.pathsOf(0), 101u);
    EXPECT_EQ(t.pathsOf(9), 100u);
    EXPECT_EQ(t.pathsOf(10), 0u);

    std::set<std::string> prefixes;
    for (uint64_t i = 0; i < 100000; ++i)
        prefixes.insert(SyntheticTable::prefixAt(i).toString());
    EXPECT_EQ(prefixes.size(), 100000u);
}

// The table reproduces what it was drawn from, within sampling error: paths per set, AS path
// lengths, the share of sets with communities and with a MED.
TEST(CensusSynthetic, ShapeFollowsTheMeasuredProfile) {
    const SyntheticProfile& prof = SyntheticProfile::measured();
    auto mean = [](const Histogram& h) {
        double n = 0, s = 0;
        for (auto [v, w] : h)
            n += double(w), s += double(v) * double(w);
        return s / n;
    };
    SyntheticTable t({60000, 3, 5});
    uint64_t paths = 0, sets = 0, hops = 0, withComms = 0, withMed = 0;
    std::set<Mel::PtrConst<AspathAttrCanonical>> asPaths; // held: no address is reused
    for (uint32_t p = 0; p < 3; ++p) {
        PathAttributesContents last;
        t.generatePeer(p, [&](uint16_t, const Prefix&, const PathAttributesContents& c) {
            ++paths;
            if (sets && c == last) return;
            last = c;
            ++sets;
            withComms += bool(c.commList());
            withMed += c.medSpecified();
            asPaths.insert(c.aspathAttr());
            uint32_t n = 0;
            for (AsSegmentRef seg : c.aspathAttr()->path())
                n += seg.asCount();
            hops += n;
        });
    }
    EXPECT_EQ(paths, 60000u);
    EXPECT_NEAR(double(paths) / double(sets), mean(prof.pathsPerSet), 0.6);
    EXPECT_NEAR(double(hops) / double(sets), mean(prof.asPathLength), 0.4);
    EXPECT_NEAR(double(asPaths.size()) / double(sets), prof.newAsPathPerSet, 0.05);
    double noComms = 0, all = 0;
    for (auto [v, w] : prof.commListSize)
        all += double(w), noComms += v == 0 ? double(w) : 0;
    EXPECT_NEAR(double(withComms) / double(sets), 1 - noComms / all, 0.03);
    EXPECT_GT(double(withMed) / double(sets), prof.medShare - 0.03);
}
