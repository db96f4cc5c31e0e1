#include "cli/report/RunReport.h"

#include "cli/options/ReportName.h"
#include "cli/report/PageText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <vantik/Failure.h>

#include <regex>
#include <sstream>
#include <string>

namespace {

using namespace netrove::cli;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Json = nlohmann::json;

void add(RunFacts& facts, std::size_t number, const std::string& url, double start, double seconds,
         const std::string& failed = "") {
    EndedLine line{.Number = number,
                   .Url = url,
                   .Start = start,
                   .LastStart = start,
                   .End = start + seconds,
                   .Status = 200,
                   .Bytes = 1000,
                   .Attempts = 1};
    ++facts.All;
    if (failed.empty()) {
        ++facts.Done;
        facts.Bytes += line.Bytes;
    } else {
        line.Failed = FailureCause{failed, " by ", hostOf(url)};
        ++facts.Failed;
    }
    facts.Seconds = std::max(facts.Seconds, line.End);
    facts.Figures.add(line);
}

RunFacts smallRun() {
    RunFacts facts;
    facts.Version = "1.2.3";
    facts.Command = "netrove batch 'my list' -u 'alice:***'";
    facts.Manifest = "my \"list\"";
    facts.Start = std::chrono::system_clock::from_time_t(1'800'000'000);
    for (std::size_t i = 0; i < 8; ++i) {
        add(facts, i + 1, "http://a/" + std::to_string(i), static_cast<double>(i), 2);
    }
    add(facts, 9, "http://b/<script>alert(1)</script>", 1, 5, "refused");
    add(facts, 10, "http://b/2", 1, 4, "refused");
    return facts;
}

TEST(RunReport, TheVerdictSaysHowItEnded) {
    RunFacts facts = smallRun();
    EXPECT_EQ(verdictText(facts), "2 of 10 transfers failed");
    facts.All = 14;
    EXPECT_EQ(verdictText(facts), "Ended early with 4 of 14 transfers left, 2 failed");
    facts.Stopped = "SIGINT";
    EXPECT_EQ(verdictText(facts), "Stopped (SIGINT) with 4 of 14 transfers left, 2 failed");
    facts = RunFacts{};
    add(facts, 1, "http://a/", 0, 1);
    EXPECT_EQ(verdictText(facts), "The only transfer is done");
    add(facts, 2, "http://a/", 0, 1);
    EXPECT_EQ(verdictText(facts), "All 2 transfers are done");
}

TEST(RunReport, JsonHasTheFigures) {
    const Json report = Json::parse(reportJson(smallRun()));
    EXPECT_EQ(report["lines"], Json({{"all", 10}, {"done", 8}, {"failed", 2}, {"skipped", 0}, {"left", 0}}));
    EXPECT_EQ(report["bytes"], 8000);
    EXPECT_EQ(report["start"], "2027-01-15T08:00:00Z");
    EXPECT_EQ(report["end"], "2027-01-15T08:00:09Z");
    EXPECT_EQ(report["seconds"], 9.0);
    EXPECT_EQ(report["failures"], Json::parse(R"([{"cause":"refused by b:80","count":2,"firstLine":9}])"));
    EXPECT_EQ(report["hosts"][0]["host"], "a:80");
    EXPECT_EQ(report["hosts"][0]["seconds"]["longest"], 2.0);
    EXPECT_EQ(report["hosts"][1]["failed"], 2);
    EXPECT_EQ(report["slowest"][0]["line"], 9);
    EXPECT_EQ(report["slowest"][0]["failed"], "refused by b:80");
    std::size_t done = 0;
    double busy = 0;
    for (const Json& span : report["times"]["spans"]) {
        done += span["done"].get<std::size_t>();
        busy += span["transferSeconds"].get<double>();
    }
    EXPECT_EQ(done, 8U);
    EXPECT_NEAR(busy, 8 * 2 + 5 + 4, 0.1);
    EXPECT_EQ(report["times"]["failures"][0]["cause"], "refused");
    EXPECT_EQ(report["times"]["hosts"][1]["host"], "b:80");
}

TEST(RunReport, MetricsAreInTheFormatOfPrometheus) {
    RunFacts facts = smallRun();
    facts.Shard = "2/8";
    for (std::size_t i = 0; i < 100; ++i) {
        add(facts, 100 + i, "http://host" + std::to_string(i) + "/", 0, 1);
    }
    const std::string metrics = reportMetrics(facts);
    const std::string labels = R"(manifest="my \"list\"",shard="2/8")";
    EXPECT_THAT(metrics, HasSubstr("netrove_batch_lines_ended_total{" + labels + ",result=\"done\"} 108\n"));
    EXPECT_THAT(metrics, HasSubstr("netrove_batch_spent_seconds_total{" + labels + ",phase=\"head\"} 0\n"));
    EXPECT_THAT(metrics, HasSubstr("netrove_batch_failures_total{" + labels + ",cause=\"refused\"} 2\n"));
    EXPECT_THAT(metrics, HasSubstr("netrove_batch_host_line_seconds_count{" + labels + ",host=\"a:80\"} 8\n"));
    EXPECT_THAT(metrics,
                HasSubstr("netrove_batch_host_lines_ended_total{" + labels + ",host=\"other\",result=\"done\"} 82\n"));
    const std::regex sample(R"re(netrove_batch_[a-z_]+\{([a-z]+="([^"\\]|\\.)*",?)+\} [0-9.e+-]+)re");
    std::istringstream lines(metrics);
    std::string announced; // by the last HELP
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("# HELP ")) {
            announced = line.substr(7, line.find(' ', 7) - 7);
        } else if (line.starts_with("# TYPE ")) {
            EXPECT_THAT(line, StartsWith("# TYPE " + announced + " "));
        } else {
            EXPECT_TRUE(std::regex_match(line, sample)) << line;
            EXPECT_THAT(line, StartsWith(announced));
        }
    }
    EXPECT_THAT(metrics, Not(HasSubstr("http://")));
    facts.Manifest = "m\xFF\n"; // labels are UTF-8
    EXPECT_THAT(reportMetrics(facts), HasSubstr("netrove_batch_lines{manifest=\"m\\\\xFF \","));
}

TEST(RunReport, ThePageNeedsNothingAndObeysNobody) {
    const std::string page = reportPage(smallRun());
    EXPECT_THAT(page, HasSubstr("<h1 id=\"verdict\" style=\"--verdict: var(--bad)\">2 of 10 transfers failed</h1>"));
    EXPECT_THAT(page, HasSubstr("<dd id=\"done\"><data value=\"8\">8</data></dd>"));
    EXPECT_THAT(page, HasSubstr("alice:***"));
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(page, HasSubstr("http://b/&lt;script&gt;alert(1)&lt;/script&gt;"));
    for (const std::string from : {"src=", "@import", "url(", "<link"}) {
        EXPECT_THAT(page, Not(HasSubstr(from)));
    }
    const std::regex reference("href=\"(?!data:text/csv)");
    EXPECT_FALSE(std::regex_search(page, reference));
}

TEST(RunReport, ThePageOfManyLinesStaysSmall) {
    RunFacts facts;
    for (std::size_t i = 0; i < 20'000; ++i) {
        const std::string url = "http://" + std::string(250, 'h') + std::to_string(i) + "/" + std::string(5000, '"');
        add(facts, i, url, static_cast<double>(i), 10, "cause " + std::to_string(i));
    }
    EXPECT_LT(reportPage(facts).size(), 2'000'000U);
    EXPECT_LT(reportJson(facts).size(), 2'000'000U);
    EXPECT_LT(reportMetrics(facts).size(), 200'000U);
}

TEST(RunReport, ARunWithoutAnyLineHasAReport) {
    EXPECT_THAT(reportPage({}), HasSubstr("</html>"));
    EXPECT_EQ(Json::parse(reportJson({}))["lines"]["all"], 0);
    EXPECT_THAT(reportMetrics({}), HasSubstr("netrove_batch_lines{manifest=\"\"} 0\n"));
}

TEST(RunReport, TheEndingOfAFileIsItsForm) {
    EXPECT_EQ(reportForm("a.html"), ReportForm::Page);
    EXPECT_EQ(reportForm("a.b/c.json"), ReportForm::Json);
    EXPECT_EQ(reportForm("x.prom"), ReportForm::Metrics);
    for (const std::string name : {"", "html", "a.pdf", "a.html.gz"}) {
        EXPECT_THROW(reportForm(name), vantik::Failure) << name;
    }
}

TEST(PageText, IsShort) {
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1'234'567), "1,234,567");
    EXPECT_EQ(secondsText(0.0042), "4.2 ms");
    EXPECT_EQ(secondsText(0.042), "42 ms");
    EXPECT_EQ(secondsText(1.5), "1.50 s");
    EXPECT_EQ(secondsText(125), "2 min 05 s");
    EXPECT_EQ(html("<a href=\"x\">&\x1b"), "&lt;a href=&quot;x&quot;&gt;&amp;\\x1B");
    EXPECT_THAT(csvLink("n", {{"a", "b,\"c\""}}),
                HasSubstr("data:text/csv;charset=utf-8,a,%22b,%22%22c%22%22%22%0D%0A"));
    EXPECT_THAT(csvLink("n", {{"=1+1:80", "2"}}), HasSubstr("data:text/csv;charset=utf-8,%27%3D1%2B1:80,2%0D%0A"));
}

} // namespace
