// The whole tool through its entry function: options, the report and its JSON/SVG forms, exit
// status on unreadable input or unwritable output, and the same figures from one or two threads.
// Damaged dumps go through the whole census in RobustnessTest.
#include "census/Cli.h"
#include "census/Report.h"
#include "census/Run.h"

#include "CensusTestUtil.h"

#include "reliability/InternSnapshot.h"

#include <boost/json.hpp>
#include <boost/json/src.hpp>
#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

using namespace census_test;
using namespace Census;

namespace {

// The tool's run, without its progress line.
Outcome runTool(std::vector<std::string> args, std::FILE* out = nullptr) {
    args.push_back("--no-progress");
    return runCensus(std::move(args), out);
}

// The report's JSON, parsed strictly; num(j, "/a/b") is the number there (an exception when there
// is none).
boost::json::value readJson(const std::string& path) {
    boost::system::error_code ec;
    boost::json::value v = boost::json::parse(readText(path), ec);
    EXPECT_FALSE(ec) << path << ": " << ec.message();
    return v;
}

double num(const boost::json::value& j, const char* pointer) {
    return j.at_pointer(pointer).to_number<double>();
}

} // namespace

TEST(CensusTool, OptionsAndUsageErrors) {
    EXPECT_EQ(runTool({"--help"}).status, 0);
    for (const char* args : {"--threads 0", "--threads", "--synthetic 10,0", "--synthetic x",
                             "--seed -1", "--bogus", "--dump", "--synthetic 10 file.mrt"}) {
        std::istringstream in(args);
        const std::vector<std::string> bad{std::istream_iterator<std::string>(in), {}};
        Outcome o = runTool(bad);
        EXPECT_EQ(o.status, 2) << bad[0];
        EXPECT_NE(o.err.find("usage: bgp-attr-census"), std::string::npos);
    }
}

TEST(CensusTool, SyntheticReportTextJsonAndSvg) {
    TempDir tmp;
    // A first run makes the process-wide objects that outlive any run (default metric
    // preferences of the next-hop tables); the second must leave nothing behind.
    ASSERT_EQ(runTool({"--synthetic", "100,2"}).status, 0);
    const OrvTest::InternSnapshot before = OrvTest::InternSnapshot::take();
    Outcome o = runTool({"--synthetic", "30000,6", "--seed", "3", "--threads", "2", "--json",
                         tmp.path("r.json"), "--svg", tmp.path("r.svg")});
    ASSERT_EQ(o.status, 0) << o.err;
    // Everything the run interned left with it.
    EXPECT_EQ(OrvTest::InternSnapshot::differences(before, OrvTest::InternSnapshot::take()), "");
    for (const char* section :
         {"Sharing: distinct sets per tier", "Memory by component", "Bytes per type", "Time",
          "PathAttributesStats", "RibOutPathAttributesStats", "LIBRARY (inbound + referenced)",
          "process resident"})
        EXPECT_NE(o.out.find(section), std::string::npos) << section;

    const boost::json::value j = readJson(tmp.path("r.json"));
    EXPECT_EQ(num(j, "/paths/installed"), 30000);
    EXPECT_EQ(num(j, "/paths/routes"), 30000);
    EXPECT_EQ(num(j, "/paths/peers"), 6);
    EXPECT_EQ(num(j, "/synthetic/seed"), 3);
    EXPECT_EQ(num(j, "/threads"), 2);
    // The tiers add up to the routes, and the components to the library figure plus outbound.
    double routes = 0, sets = 0, components = 0;
    for (const boost::json::value& t : j.at_pointer("/inbound/tiers").as_array()) {
        routes += num(t, "/routes");
        sets += num(t, "/sets");
    }
    EXPECT_EQ(routes, 30000);
    EXPECT_EQ(sets, num(j, "/inbound/distinctSets"));
    EXPECT_GT(sets, 1000);
    for (const boost::json::value& c : j.at_pointer("/memory/components").as_array())
        components += num(c, "/bytes");
    EXPECT_EQ(components, num(j, "/memory/libraryBytes") + num(j, "/memory/outboundBytes"));
    EXPECT_GT(num(j, "/memory/libraryBytes"), 0);
    EXPECT_GT(num(j, "/memory/residentBytes"), num(j, "/memory/libraryBytes"));
    for (const char* key : {"/roundTrip/mismatched", "/errors/malformedRecords", "/time/seconds",
                            "/memory/ribBytes", "/outbound/distinctSets"})
        EXPECT_NO_THROW(j.at_pointer(key)) << key;

    const std::string svg = readText(tmp.path("r.svg"));
    EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
    EXPECT_NE(svg.find("Memory by component"), std::string::npos);
    EXPECT_NE(svg.find("Sharing per tier"), std::string::npos);
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
}

TEST(CensusTool, UnreadableInputEndsNonZeroKeepingWhatCameBefore) {
    TempDir tmp;
    Outcome missing = runTool({tmp.path("nope.mrt")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find(tmp.path("nope.mrt")), std::string::npos) << missing.err;

    // A copy cut inside its last record: the records before it are all in the report.
    std::vector<size_t> ends;
    const Bytes whole = firstRecords(testData("edge_cases.mrt"), SIZE_MAX, &ends);
    ASSERT_GE(ends.size(), 3u);
    const std::string cut = tmp.path("cut.mrt");
    writeFile(cut, Bytes(whole.begin(), whole.begin() + long(ends[ends.size() - 2] + 5)));
    Outcome o = runTool({cut, "--json", tmp.path("cut.json")});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find(cut + ": byte " + std::to_string(ends[ends.size() - 2])),
              std::string::npos)
        << o.err;
    const boost::json::value j = readJson(tmp.path("cut.json"));
    EXPECT_EQ(num(j, "/paths/records"), double(ends.size() - 1));
    EXPECT_EQ(num(j, "/errors/unreadableFiles"), 1);
    EXPECT_NE(o.out.find("READ ERROR"), std::string::npos);
}

// Standard output or a named output on a full device: status 1 and a line saying what was lost.
TEST(CensusTool, UnwritableOutputEndsNonZeroSayingWhatFailed) {
    const std::string edge = testData("edge_cases.mrt");
    struct Case {
        std::vector<std::string> args;
        bool stdoutFull;
        std::string message;
    } cases[] = {
        {{"--dump", edge}, true, "writing the dump to standard output: No space left on device"},
        {{edge}, true, "writing the report to standard output: No space left on device"},
        {{"--measure-distributions", edge}, true, "writing the distributions to standard output"},
        {{edge, "--json", "/dev/full"}, false, "writing /dev/full: No space left on device"},
    };
    for (const Case& c : cases) {
        std::FILE* full = c.stdoutFull ? std::fopen("/dev/full", "w") : nullptr;
        if (c.stdoutFull && !full) GTEST_SKIP() << "no /dev/full";
        Outcome o = runTool(c.args, full);
        if (full) std::fclose(full);
        EXPECT_EQ(o.status, 1) << c.args[0];
        EXPECT_NE(o.err.find("bgp-attr-census: " + c.message), std::string::npos) << o.err;
    }
}

// Several files in one run (one pipeline, caches kept from file to file) against the same files
// read one call each, on one thread and on two: per file the same counts, outcome and bytes, and
// the same RIB at the end. The split falls after the PEER_INDEX_TABLE, so the second part's RIB
// entries must not see it; a cut file in the middle fails alone. The first records of a real
// update dump, when there, give the threads enough to disagree on.
TEST(CensusToolConcurrent, FilesInOneRunAreTheFilesReadOneByOne) {
    TempDir tmp;
    const std::string edge = testData("edge_cases.mrt");
    std::vector<size_t> ends;
    const Bytes all = firstRecords(edge, 1 << 20, &ends);
    const size_t half = ends[ends.size() / 2 + 4];
    std::vector<std::string> files = {tmp.path("a.mrt"), tmp.path("cut.mrt"), tmp.path("b.mrt"),
                                      tmp.path("a-again.mrt")};
    writeFile(files[0], Bytes(all.begin(), all.begin() + long(half)));
    writeFile(files[1], Bytes(all.begin(), all.begin() + long(ends[2] + 7)));
    writeFile(files[2], Bytes(all.begin() + long(half), all.end()));
    writeFile(files[3], Bytes(all.begin(), all.begin() + long(half)));
    if (std::string p = sharedMrt("updates.20160811.1600.gz"); !p.empty()) {
        files.push_back(tmp.path("part.mrt"));
        writeFile(files.back(), firstRecords(p, 600 * 1024));
    }
    auto figures = [&](unsigned threads, bool oneCall) {
        CensusRun run(RunOptions{threads, true, nullptr});
        if (oneCall)
            run.readFiles(files);
        else
            for (const std::string& f : files)
                run.readFile(f);
        Report r = Report::gather(run);
        std::vector<uint64_t> out{
            r.routes,           r.inSets,      r.outSets,         r.ingest.announced,
            r.ingest.withdrawn, r.rib.removed, r.roundTrip.paths, r.roundTrip.mismatched()};
        for (const FileOutcome& f : run.files()) {
            const DecodeCounts& c = f.counts;
            out.insert(out.end(),
                       {f.ok, f.bytes, c.records, c.ribEntries, c.announcements, c.withdrawals,
                        c.stateChanges, c.malformedRecords, c.unusablePaths});
        }
        return out;
    };
    const std::vector<uint64_t> byOne = figures(1, false);
    EXPECT_EQ(figures(1, true), byOne);
    EXPECT_EQ(figures(2, true), byOne);
    EXPECT_GT(byOne[0], 0u);
    EXPECT_EQ(byOne[8 + 9], 0u) << "the cut file reads as failed";
}

TEST(CensusToolConcurrent, SyntheticTableOnTwoThreadsIsTheOneOfOneThread) {
    auto figures = [](unsigned threads) {
        CensusRun run(RunOptions{threads, false, nullptr});
        run.generate({20000, 5, 11});
        Report r = Report::gather(run);
        std::vector<uint64_t> out{r.routes, r.inSets, r.outSets, r.ingest.setsInterned};
        for (const Report::TierRow& t : r.inTiers)
            out.push_back(t.sets);
        return out;
    };
    EXPECT_EQ(figures(1), figures(2));
}
