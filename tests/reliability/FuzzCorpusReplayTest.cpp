// Every fuzz seed and every crasher found so far (fuzz/corpus/<target>, fuzz/regressions/<target>)
// run through its target as an ordinary test, so the sanitizer builds replay them on each run.
#include "fuzz/AttributeRoundTrip.h"
#include "fuzz/MrtRecords.h"
#include "fuzz/StringForms.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

fs::path fuzzDir() {
    return fs::path(ORV_TEST_DATA_DIR).parent_path().parent_path() / "fuzz";
}

std::vector<fs::path> inputsOf(const std::string& target, const char* kind) {
    std::vector<fs::path> out;
    const fs::path dir = fuzzDir() / kind / target;
    if (!fs::is_directory(dir)) return out;
    for (const auto& e : fs::directory_iterator(dir))
        if (e.is_regular_file()) out.push_back(e.path());
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<uint8_t> readAll(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

// Runs every input of both kinds; returns how many seeds there were.
size_t replay(const std::string& target, OrvFuzz::Target run) {
    size_t seeds = 0;
    for (const char* kind : {"corpus", "regressions"}) {
        for (const fs::path& p : inputsOf(target, kind)) {
            seeds += std::string(kind) == "corpus";
            const std::vector<uint8_t> bytes = readAll(p);
            try {
                OrvFuzz::runChecked(run, bytes);
            } catch (const OrvFuzz::CheckFailure& e) {
                ADD_FAILURE() << p << ": " << e.what();
            } catch (const std::exception& e) {
                ADD_FAILURE() << p << ": unexpected exception: " << e.what();
            }
        }
    }
    return seeds;
}

} // namespace

TEST(FuzzCorpusReplay, EveryTarget) {
    for (auto [target, run] :
         {std::pair<const char*, OrvFuzz::Target>{"MrtRecords", OrvFuzz::mrtRecords},
          {"AttributeRoundTrip", OrvFuzz::attributeRoundTrip},
          {"StringForms", OrvFuzz::stringForms}})
        EXPECT_GT(replay(target, run), 0u) << "no seeds under " << fuzzDir() << " for " << target;
}

// The checks themselves must bite: a failed property and an object left behind are reported.
TEST(FuzzCorpusReplay, FailedChecksAndLeftObjectsAreReported) {
    using ::testing::HasSubstr;
    using ::testing::ThrowsMessage;
    const std::vector<uint8_t> two{1, 2};
    auto failing = [](std::span<const uint8_t> in) {
        ORV_FUZZ_CHECK(in.size() == 1, "size " + std::to_string(in.size()));
    };
    EXPECT_THAT(
        [&] { OrvFuzz::runChecked(failing, two); },
        ThrowsMessage<OrvFuzz::CheckFailure>(HasSubstr("check failed: in.size() == 1: size 2")));
    static Mel::PtrConst<Routing::Bgp::AccumulatedIgpMetric> kept;
    auto leaking = [](std::span<const uint8_t>) {
        kept = Routing::Bgp::accumulatedIgpMetricFactory(0x1eaced);
    };
    EXPECT_THAT([&] { OrvFuzz::runChecked(leaking, two); },
                ThrowsMessage<OrvFuzz::CheckFailure>(HasSubstr("store objects before ")));
    kept = nullptr;
}
