#include "Tracelet/Tracelet.h"

#include "Mel/Exception.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

// Every test starts and ends with all handles off and stderr as the sink, whatever ORV_TRACE
// the test run was started with.
class TraceletHandle : public ::testing::Test {
protected:
    void SetUp() override { Tracelet::configure(""); }
    void TearDown() override { Tracelet::configure(""); }

    std::vector<std::string> lines;
    Tracelet::Sink collect() {
        return [this](std::string_view l) { lines.emplace_back(l); };
    }
};

using TraceletConcurrent = TraceletHandle;
using TraceletDeathTest = TraceletHandle;

int evaluations = 0;
int counted(int v) {
    ++evaluations;
    return v;
}

} // namespace

TEST_F(TraceletHandle, LevelsGateLinesAndEvaluation) {
    Tracelet::ScopedSink sink(collect());
    auto& h = Tracelet::orvBgp();
    evaluations = 0;
    TRACE_AT(h, 0, "off " << counted(0));
    EXPECT_EQ(evaluations, 0); // nothing formatted while off
    h.levelIs(5);
    for (int level = 0; level <= 9; ++level)
        TRACE_AT(h, level, "level " << counted(level));
    EXPECT_EQ(evaluations, 6);
    EXPECT_THAT(lines, ::testing::ElementsAre("level 0", "level 1", "level 2", "level 3", "level 4",
                                              "level 5"));
    h.levelIs(Tracelet::Handle::off);
    TRACE_AT(h, 0, "gone");
    EXPECT_EQ(lines.size(), 6u);
}

TEST_F(TraceletHandle, ConfigureByNameWildcardAndLaterHandles) {
    Tracelet::configure("OrvBgp:8,TraceletTestA:5");
    EXPECT_EQ(Tracelet::orvBgp().level(), 8);
    EXPECT_EQ(Tracelet::handle("TraceletTestA").level(), 5);
    EXPECT_EQ(Tracelet::handle("TraceletTestB").level(), Tracelet::Handle::off);

    // Later entries win; a bare name is level 9; "*" also reaches handles made afterwards.
    Tracelet::configure("*:2,OrvBgp,TraceletTestA:0,,");
    EXPECT_EQ(Tracelet::orvBgp().level(), 9);
    EXPECT_EQ(Tracelet::handle("TraceletTestA").level(), 0);
    EXPECT_EQ(Tracelet::handle("TraceletTestB").level(), 2);
    EXPECT_EQ(Tracelet::handle("TraceletTestNew").level(), 2);

    EXPECT_EQ(&Tracelet::handle("OrvBgp"), &Tracelet::orvBgp());
}

TEST_F(TraceletHandle, BadConfigurationThrowsAndChangesNothing) {
    Tracelet::configure("OrvBgp:3");
    for (const char* settings : {"OrvBgp:10", "OrvBgp:x", ":3", "OrvBgp:", "OrvBgp:-1"}) {
        EXPECT_THAT([&] { Tracelet::configure(std::string("Census:1,") + settings); },
                    ::testing::ThrowsMessage<Mel::ParseException>(
                        ::testing::HasSubstr(std::string("'") + settings + "'")));
        EXPECT_EQ(Tracelet::orvBgp().level(), 3);
    }
}

TEST_F(TraceletHandle, EnvironmentSkipsMalformedEntries) {
    const char* saved = std::getenv("ORV_TRACE");
    std::string savedValue = saved ? saved : "";
    setenv("ORV_TRACE", "OrvBgp:4,TraceletTestA:12,TraceletTestB", 1);
    testing::internal::CaptureStderr();
    Tracelet::configureFromEnvironment();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Tracelet: ignoring ORV_TRACE entry 'TraceletTestA:12': level must be one digit "
              "0-9\n");
    EXPECT_EQ(Tracelet::orvBgp().level(), 4);
    EXPECT_EQ(Tracelet::handle("TraceletTestA").level(), Tracelet::Handle::off);
    EXPECT_EQ(Tracelet::handle("TraceletTestB").level(), 9);
    if (saved)
        setenv("ORV_TRACE", savedValue.c_str(), 1);
    else
        unsetenv("ORV_TRACE");
}

TEST_F(TraceletHandle, ScopedSinksNest) {
    Tracelet::orvBgp().levelIs(1);
    std::vector<std::string> inner;
    {
        Tracelet::ScopedSink outer(collect());
        TRACE_AT(Tracelet::orvBgp(), 1, "a");
        {
            Tracelet::ScopedSink in([&](std::string_view l) { inner.emplace_back(l); });
            TRACE_AT(Tracelet::orvBgp(), 1, "b");
        }
        TRACE_AT(Tracelet::orvBgp(), 1, "c");
    }
    EXPECT_THAT(lines, ::testing::ElementsAre("a", "c"));
    EXPECT_THAT(inner, ::testing::ElementsAre("b"));
}

TEST_F(TraceletHandle, SourcePosNamesFileLineAndSignature) {
    Tracelet::ScopedSink sink(collect());
    Tracelet::orvBgp().levelIs(8);
    int line = __LINE__ + 1;
    TRACE_AT(Tracelet::orvBgp(), 8, TRACE_SOURCE_POS << " new Nexthop id 0x" << std::hex << 42);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "TraceletTest.cpp:" + std::to_string(line) +
                            " virtual void TraceletHandle_SourcePosNamesFileLineAndSignature_Test::"
                            "TestBody() new Nexthop id 0x2a");
}

TEST_F(TraceletDeathTest, LevelOutOfRange) {
    EXPECT_DEATH(Tracelet::orvBgp().levelIs(10),
                 "Tracelet/Tracelet: .*Assertion `level >= off && level <= maxLevel' failed\\.");
}

// Lines from many threads arrive whole, on stderr (the default sink: "name:level message") and
// through a sink, while another thread switches the handle on and off.
TEST_F(TraceletConcurrent, LinesStayWhole) {
    constexpr int threads = 4, perThread = 2000;
    const std::string payload(100, 'x');
    auto run = [&](bool toggle) {
        std::vector<std::thread> ts;
        std::atomic<bool> done{false};
        std::thread toggler([&] {
            while (toggle && !done.load())
                Tracelet::orvBgp().levelIs(Tracelet::orvBgp().level() == 3 ? 7 : 3);
        });
        for (int t = 0; t < threads; ++t)
            ts.emplace_back([&, t] {
                for (int i = 0; i < perThread; ++i)
                    TRACE_AT(Tracelet::orvBgp(), 5, "t" << t << ' ' << payload << ' ' << i);
            });
        for (auto& th : ts)
            th.join();
        done = true;
        toggler.join();
    };

    std::mutex m; // the sink is called serially; the lock is a check-free safety net for tsan
    size_t count = 0, bad = 0;
    {
        Tracelet::ScopedSink sink([&](std::string_view l) {
            std::lock_guard lock(m);
            ++count;
            if (l.size() < 105 || l.substr(3, 100) != payload) ++bad;
        });
        Tracelet::orvBgp().levelIs(7);
        run(false);
        EXPECT_EQ(count, size_t(threads * perThread));
        run(true); // some lines are dropped while off, none are torn
        EXPECT_EQ(bad, 0u);
    }

    Tracelet::orvBgp().levelIs(7);
    ::testing::internal::CaptureStderr();
    run(false);
    std::string out = ::testing::internal::GetCapturedStderr();
    size_t lines = 0, pos = 0;
    for (size_t nl; (nl = out.find('\n', pos)) != std::string::npos; pos = nl + 1, ++lines) {
        std::string_view l(out.data() + pos, nl - pos);
        ASSERT_TRUE(l.starts_with("OrvBgp:5 t") && l.substr(12, 100) == payload) << l;
    }
    EXPECT_EQ(lines, size_t(threads * perThread));
}
