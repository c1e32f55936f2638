#include "AsPath/AspathAttrCanonical.h"

#include "Mel/Exception.h"
#include "MelStash/StoreManager.h"
#include "OrvBgp/AspathTestHelpers.h"
#include "support/InternContract.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace Routing::Bgp;
using OrvTest::aspath;
using OrvTest::aspathContent;

namespace {

std::vector<std::string> segmentsOf(AsSegmentRun run) {
    std::vector<std::string> out;
    for (AsSegmentRef s : run) {
        std::string t = std::to_string(s.segmentType().value()) + ":";
        for (Orvnet::AutonomousSystem a : s.as)
            t += " " + std::to_string(a.value());
        out.push_back(t);
    }
    return out;
}

using Segs = std::vector<std::string>;

} // namespace

// The content picks the form from the segments as a decoder hands them over, and keeps their
// order: leading confederation segments are the confederation path, everything after is ordinary.
TEST(AspathAttrCanonical, BuilderPicksFormAndKeepsReceivedOrder) {
    struct Case {
        const char* text;
        AspathForm form;
        Segs confed;
        Segs path;
    } cases[] = {
        {"-", AspathForm::singleSeg, {}, {}},
        {"100 200", AspathForm::singleSeg, {}, {"2: 100 200"}},
        {"{300 400}", AspathForm::singleSeg, {}, {"1: 300 400"}},
        {"100 {300 400}", AspathForm::withPathVector, {}, {"2: 100", "1: 300 400"}},
        {"100 / 200", AspathForm::withPathVector, {}, {"2: 100", "2: 200"}},
        {"(65010)", AspathForm::withConfed, {"3: 65010"}, {}},
        {"(65010 65011) [65012] 100",
         AspathForm::withConfed,
         {"3: 65010 65011", "4: 65012"},
         {"2: 100"}},
        // A confederation segment after an ordinary one stays where it arrived.
        {"100 (65010)", AspathForm::withPathVector, {}, {"2: 100", "3: 65010"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        auto p = aspath(c.text);
        EXPECT_EQ(p->form(), c.form);
        EXPECT_EQ(segmentsOf(p->confedPath()), c.confed);
        EXPECT_EQ(segmentsOf(p->path()), c.path);
        EXPECT_EQ(p->hash(), aspathContent(c.text).hash());
        EXPECT_EQ(p->empty(), c.confed.empty() && c.path.empty());
    }
}

// The same segments in another form, or one AS number apart, are other paths.
TEST(AspathAttrCanonical, FormAndEveryAsNumberTakePartInEquality) {
    auto auto1 = aspath("100 200");
    auto forced = aspath("WithPathVector: 100 200");
    auto emptyConfed = aspath("WithConfed: 100 200");
    EXPECT_NE(auto1.get(), forced.get());
    EXPECT_NE(forced.get(), emptyConfed.get());
    EXPECT_EQ(forced->form(), AspathForm::withPathVector);
    EXPECT_EQ(emptyConfed->form(), AspathForm::withConfed);
    EXPECT_TRUE(emptyConfed->confedPath().empty());

    auto p = aspath("(65010) 100 {300 400}");
    EXPECT_TRUE(p->compareByContent(aspathContent("(65010) 100 {300 400}")));
    // One number or one segment type apart; the same numbers split differently between the lists.
    for (const char* other : {"(65010) 100 {300 401}", "(65010) 100 {300}", "[65010] 100 {300 400}",
                              "WithConfed: | (65010) 100 {300 400}"})
        EXPECT_FALSE(p->compareByContent(aspathContent(other))) << other;
    EXPECT_EQ(p.get(), aspath("WithConfed: (65010) | 100 {300 400}").get());
}

// Numbers below 65520 take one 16-bit unit, those below 983040 two and the rest three, in one
// allocation with the path: every number reads back, at each escape boundary and past the 13-bit
// count of a segment header. A lone AS_SEQUENCE of one-unit numbers (up to 500) goes without its
// segment header, its count read back from the block; anything else keeps the header.
TEST(AspathAttrCanonical, PackedNumbersReadBackAndCostWhatTheyNeed) {
    auto& stats = AspathAttrCanonical::melStashTypeStats();
    struct Case {
        AsSegmentType type;
        std::vector<uint32_t> as;
        size_t units; // after the 12-byte header: the segment header if any, then the numbers
        bool bare;
    };
    auto upTo = [](uint32_t n, uint32_t first = 1) {
        std::vector<uint32_t> v(n);
        std::iota(v.begin(), v.end(), first);
        return v;
    };
    std::vector<uint32_t> longest(8191 + 3);
    for (size_t k = 0; k < longest.size(); ++k)
        longest[k] = k % 3 ? uint32_t(k) : 4200000000u + uint32_t(k); // 2732 numbers of 3 units
    const AsSegmentType seq = AsSegmentType::asSequence_, set = AsSegmentType::asSet_;
    const std::vector<Case> cases = {
        {seq, {}, 1, false},
        {seq, {7}, 1, true},
        {seq, {1, 2}, 2, true}, // 16 bytes: the header would take it to 24
        {seq, upTo(3, 65517), 3, true},
        {seq, upTo(5), 5, true},
        {seq, upTo(6), 6, true}, // 24 bytes, not 32
        {seq, upTo(500), 500, true},
        {seq, upTo(501), 502, false},
        {seq, {1, 65520}, 1 + 1 + 2, false},
        {set, {1, 2}, 3, false},
        {AsSegmentType::asConfedSequence_, {1, 2}, 2 + 3, false}, // WithConfed: two counts first
        {seq,
         {0, 65519, 65520, 65535, 65536, 983039, 983040, 4294967295u},
         1 + 2 + 2 * 4 + 3 * 2,
         false},
        {seq, longest, 3 + 8194 - 2732 + 2732 * 3, false},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(std::to_string(k.type.value()) + ": " + std::to_string(k.as.size()));
        AspathAttrCanonicalContent c;
        c.segmentAdd(k.type, std::span<const uint32_t>(k.as));
        int64_t objects = stats.objects.load(), bytes = stats.bytes.load();
        auto p = aspathAttrCanonicalFactory(c);
        ASSERT_EQ(stats.objects.load(), objects + 1);
        size_t block = MelStash::StoreManager::instance().blockSize(p.get());
        EXPECT_EQ(stats.bytes.load() - bytes, int64_t(block));
        EXPECT_GE(block, 12 + 2 * k.units);
        if (block <= 1024) {
            EXPECT_LT(block, 12 + 2 * k.units + 8);
        }
        EXPECT_EQ(p->layout() == AspathLayout::bareSequence, k.bare);
        EXPECT_EQ(p->storedBytes().size(), 2 * k.units);
        EXPECT_EQ(p->hash(), c.hash());
        EXPECT_TRUE(p->compareByContent(c));
        AsSegmentRun run = k.type.isConfed() ? p->confedPath() : p->path();
        ASSERT_EQ(run.size(), 1u);
        AsSegmentRef seg = *run.begin();
        EXPECT_EQ(seg.segmentType(), k.type);
        EXPECT_EQ(seg.asCount(), k.as.size());
        std::vector<uint32_t> back;
        for (Orvnet::AutonomousSystem a : seg.as)
            back.push_back(a.value());
        EXPECT_EQ(back, k.as);
        if (k.type.isConfed()) continue;
        // The same numbers in another form (with its headers) are another object.
        AspathAttrCanonicalContent headed = c;
        headed.formIs(AspathForm::withConfed);
        auto other = aspathAttrCanonicalFactory(headed);
        EXPECT_NE(other.get(), p.get());
        EXPECT_FALSE(other->compare(p.get()));
    }
}

TEST(AspathAttrCanonical, DecodedInputOutsideTheModelIsAnError) {
    AspathAttrCanonicalContent c;
    EXPECT_THROW(c.segmentAdd(AsSegmentType(0), {1}), Mel::RangeException);
    EXPECT_THROW(c.segmentAdd(AsSegmentType(5), {1}), Mel::RangeException);
    for (uint32_t i = 0; i < AspathAttrCanonicalContent::maxSegments; ++i)
        c.segmentAdd(AsSegmentType::asSequence_, {i});
    EXPECT_THROW(c.segmentAdd(AsSegmentType::asSequence_, {1}), Mel::RangeException);
    EXPECT_EQ(c.segmentCount(), AspathAttrCanonicalContent::maxSegments);
    c.clear();
    EXPECT_EQ(c.form(), AspathForm::singleSeg);
    EXPECT_EQ(aspathAttrCanonicalFactory(c).get(), aspath("-").get());
}

TEST(AspathAttrCanonical, FreshFormsInternToTheSameObject) {
    AsSegmentVector path{asSegmentFactory(AsSegmentType::asSequence_, {100, 200}),
                         asSegmentFactory(AsSegmentType::asSet_, {300})};
    AsSegmentVector confed{asSegmentFactory(AsSegmentType::asConfedSequence_, {65010})};
    auto fresh = AspathAttrCanonicalWithConfed::create(confed, path);
    EXPECT_EQ(AspathAttrCanonicalDedupTable::instance().dedup(fresh).get(),
              aspath("(65010) 100 200 {300}").get());
    EXPECT_EQ(AspathAttrCanonicalSingleSeg::create(nullptr)->form(), AspathForm::singleSeg);
    EXPECT_TRUE(AspathAttrCanonicalWithPathVector::create(path)->compare(
        aspath("WithPathVector: 100 200 {300}").get()));
}

TEST(AspathAttrCanonicalDeathTest, ClassesCheckTheirSegmentTypeAndForm) {
    EXPECT_DEATH(AsSet(AsSegmentType::asSequence_), "type\\.isSet\\(\\)");
    EXPECT_DEATH(AsSequence(AsSegmentType::asConfedSet_), "type\\.isSequence\\(\\)");
    EXPECT_DEATH(aspath("SingleSeg: 100 / 200"), "confedCount_ == 0 && pathCount_ <= 1");
    EXPECT_DEATH(aspath("WithPathVector: (65010) | 100"), "confedCount_ == 0");
}

namespace {
struct AspathTraits : InternTableDedupOf<AspathAttrCanonicalDedupTable> {
    using Object = AspathAttrCanonical;
    static AspathAttrCanonicalContent content(int i) {
        const std::string v = std::to_string(i + 1);
        const std::string texts[] = {v + " 7", v + " {7 8}", "(" + v + ") 7"};
        return aspathContent(texts[i % 3]);
    }
    static Mel::PtrConst<AspathAttrCanonical> intern(const AspathAttrCanonicalContent& c) {
        return aspathAttrCanonicalFactory(c);
    }
};
} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(AspathAttrCanonical, InternContract, ::testing::Types<AspathTraits>);

// Two threads intern and release paths from one pool at random (fixed seeds), each checking
// against its own model of what it holds: an equal path is always the object the thread already
// holds, and once everything is released the table and the store are back where they started.
TEST(AspathAttrCanonicalConcurrent, RandomPathsAgainstAModel) {
    std::mt19937 gen(4);
    std::vector<std::string> pool;
    const char* open[] = {"", "{", "(", "["};
    const char* close[] = {"", "}", ")", "]"};
    for (int i = 0; i < 300; ++i) {
        std::string text;
        for (int s = int(gen() % 4); s > 0; --s) {
            int kind = int(gen() % 4);
            size_t n = gen() % 8 == 0 ? 300 : gen() % 6;
            if (kind == 1 && n > 255) n = 255;
            std::string as;
            for (size_t k = 0; k < n; ++k)
                as += (k ? " " : "") + std::to_string(gen() % 8 ? gen() % 70000 : gen());
            if (kind == 0 && as.empty()) continue; // an empty sequence has no text
            text += std::string(text.empty() ? "" : " / ") + open[kind] + as + close[kind];
        }
        pool.push_back(text.empty() ? "-" : text);
    }
    auto& stats = AspathAttrCanonical::melStashTypeStats();
    int64_t objectsBefore = stats.objects.load();
    size_t tableBefore = AspathAttrCanonicalDedupTable::instance().size();
    std::vector<std::map<std::string, Mel::PtrConst<AspathAttrCanonical>>> models(2);
    std::atomic<int> wrong{0};
    auto work = [&](int t) {
        std::mt19937 rng(100 + t);
        auto& model = models[size_t(t)];
        for (int op = 0; op < 15000; ++op) {
            const std::string& text = pool[rng() % pool.size()];
            if (rng() % 3 == 0) {
                model.erase(text);
                continue;
            }
            AspathAttrCanonicalContent c = aspathContent(text);
            auto p = aspathAttrCanonicalFactory(c);
            if (!p->compareByContent(c) || !p->isDeduped()) wrong.fetch_add(1);
            auto [it, inserted] = model.emplace(text, p);
            if (!inserted && it->second.get() != p.get()) wrong.fetch_add(1);
        }
    };
    std::thread other(work, 1);
    work(0);
    other.join();
    EXPECT_EQ(wrong.load(), 0);
    for (auto& [text, p] : models[0]) {
        auto it = models[1].find(text);
        if (it != models[1].end()) {
            EXPECT_EQ(it->second.get(), p.get()) << text;
        }
    }
    models.clear();
    EXPECT_EQ(AspathAttrCanonicalDedupTable::instance().size(), tableBefore);
    EXPECT_EQ(stats.objects.load(), objectsBefore);
}
