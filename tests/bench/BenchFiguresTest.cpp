// bench/figures.py on results that are made up.
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testsupport::Outcome;
using testsupport::readFile;

constexpr const char* kResults = R"({
  "machine": "a machine", "date": "2026-01-02", "network": "private", "rounds": 3,
  "versions": {"netrove": "abc", "libcurl4": "7.88.1"},
  "peers": {"multi": "bare loop", "poco": "Poco", "netrove": "netrove"}, "processes": {"netrove": "netrove"},
  "jobs": [
    {"key": "file", "title": "1 GB into a file", "group": "transfers", "job": "file", "size": 1000000000, "count": 1,
     "x": null, "baseline": "multi", "results": {
      "multi": {"seconds": [0.5, 0.4, 9], "cpu": [0.2, 0.2, 0.2], "server": [0.1, 0.1, 0.1], "peak": [10240, 1, 99999]},
      "netrove": {"seconds": [0.4, 0.4, 0.35], "cpu": [0.1, 0.1, 0.1], "server": [0.2, 0.2, 0.1],
                  "peak": [5120, 5120, 5120]}}},
    {"key": "size-1024", "title": "1 KiB", "group": "size", "job": "memory", "size": 1024, "count": 10, "x": 1024,
     "baseline": "multi", "results": {"netrove": {"seconds": [0.002], "cpu": [0.1], "server": [0.2], "peak": [2048]}}},
    {"key": "size-2048", "title": "2 KiB", "group": "size", "job": "memory", "size": 2048, "count": 10, "x": 2048,
     "baseline": "multi", "results": {"netrove": {"seconds": [0.3], "cpu": [0.1], "server": [0.2], "peak": [2048]}}}
  ]
})";
constexpr const char* kOfPython = R"({
  "machine": "a machine", "date": "2026-01-03", "network": "private", "rounds": 1, "versions": {"python3": "3.11.2"},
  "peers": {}, "processes": {}, "python": {"netrove_client": "C++", "python-netrove": "Python"},
  "jobs": [
    {"key": "python-file", "title": "1 GB into a file", "group": "python", "job": "file", "size": 1000000000, "count": 1,
     "x": null, "baseline": "netrove_client", "results": {
      "netrove_client": {"seconds": [0.5], "cpu": [0.2], "server": [0.1], "peak": [10240]},
      "python-netrove": {"seconds": [0.6], "cpu": [0.3], "server": [0.1], "peak": [20480]}}}
  ]
})";
constexpr const char* kPage = "# Performance\n\nBefore.\n\n<!-- figures: bench/figures.py writes what follows -->\n\n"
                              "old\n\n<!-- end of figures -->\n\nAfter.\n";
constexpr const char* kTimes = "| Job | bare loop | netrove |\n|---|---|---|\n"
                               "| 1 GB into a file (1 = 2.00 GB/s) | 1.00 ±8.60 | 0.80 ±0.05 |\n";

class BenchFigures : public testing::Test {
protected:
    BenchFigures() {
        for (const char* folder : {"bench", "docs"}) {
            fs::create_directory(Folder.file(folder));
        }
        for (const char* script : {"bench/figures.py", "bench/jobs.py", "bench/plots.py"}) {
            fs::copy_file(std::string(NETROVE_SOURCES "/") + script, Folder.file(script));
        }
        testsupport::writeFile(Folder.file("results.json"), kResults);
        testsupport::writeFile(Folder.file("docs/performance.md"), kPage);
    }

    Outcome figures(std::vector<std::string> arguments) const {
        arguments.push_back(Folder.file("results.json"));
        return testsupport::run(std::move(arguments), {.Executable = Folder.file("bench/figures.py")});
    }
    std::string page() const { return readFile(Folder.file("docs/performance.md")); }

    const testsupport::TemporaryFolder Folder;
};

TEST_F(BenchFigures, AreRatiosOfMedians) {
    const Outcome outcome = figures({});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, HasSubstr(kTimes));
    EXPECT_THAT(outcome.Out, HasSubstr("| 1 GB into a file (1 = 0.200 s) | 1.00 | 0.50 |\n")); // CPU
    EXPECT_THAT(outcome.Out, HasSubstr("| 1 GB into a file (1 = 0.100 s) | 1.00 | 2.00 |\n")); // of the server
    EXPECT_THAT(outcome.Out, HasSubstr("| 1 GB into a file | 10.0 | 5.00 |\n"));               // MiB
    EXPECT_THAT(outcome.Out, HasSubstr("| Content | netrove |\n|---|---|\n| 1 KiB | 200 µs, 2.00 MiB |\n"
                                       "| 2 KiB | 30.0 ms, 2.00 MiB |\n"));
    EXPECT_EQ(page(), kPage);
}

TEST_F(BenchFigures, FillThePage) {
    for (int time = 0; time < 2; ++time) { // what was there goes
        const Outcome outcome = figures({"--page"});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(outcome.Out, "");
        EXPECT_THAT(
            page(),
            AllOf(testing::StartsWith("# Performance\n\nBefore.\n\n<!-- figures: "),
                  testing::EndsWith("\n\n<!-- end of figures -->\n\nAfter.\n"),
                  HasSubstr("\n\nMeasured on 2026-01-02 in 3 rounds: a machine. netrove abc, libcurl4 7.88.1.\n\n"),
                  HasSubstr(kTimes), HasSubstr("](pictures/transfers.svg)\n"), Not(HasSubstr("old\n"))));
    }
    EXPECT_THAT(readFile(Folder.file("docs/pictures/transfers.svg")), HasSubstr(">0.80</text>"));
    EXPECT_THAT(readFile(Folder.file("docs/pictures/growth.svg")), HasSubstr(">2 KiB</text>"));
    EXPECT_FALSE(fs::exists(Folder.file("docs/pictures/processes.svg"))); // nothing of it was measured
}

TEST_F(BenchFigures, OfTwoRunsStandOneAfterTheOther) {
    testsupport::writeFile(Folder.file("python.json"), kOfPython);
    const Outcome outcome = figures({"--page", Folder.file("python.json")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(page(), testing::ContainsRegex("Measured on 2026-01-03 in 1 rounds: a machine. python3 3.11.2.\n\n"
                                               "## In Python\n\n!\\[[^]]*\\]\\(pictures/python.svg\\)\n"));
    EXPECT_THAT(page(), AllOf(HasSubstr("| 1 GB into a file (1 = 2.00 GB/s) | 1.00 ±0.00 | 1.20 ±0.00 |\n"),
                              HasSubstr("\n\nMeasured on 2026-01-02 in 3 rounds: "), HasSubstr(kTimes)));
    EXPECT_TRUE(fs::exists(Folder.file("docs/pictures/python.svg")));
}

TEST_F(BenchFigures, APageWithoutTheirPlaceStaysAsItIs) {
    testsupport::writeFile(Folder.file("docs/performance.md"), "# Performance\n");
    const Outcome outcome = figures({"--page"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("has no place for the figures"));
    EXPECT_EQ(page(), "# Performance\n");
    EXPECT_FALSE(fs::exists(Folder.file("docs/pictures")));
}

} // namespace
