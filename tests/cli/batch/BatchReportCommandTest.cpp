// What a run leaves for those who look later: the list of failures, and reports.
#include "tests/cli/batch/BatchFixture.h"

#include <csignal>

namespace {

using namespace batchtest;

class BatchReports : public BatchFixture {
protected:
    Json report() const { return Json::parse(readFile(file("list.report.json"))); }
};

TEST_F(BatchReports, TheListOfFailuresIsAManifestOfJustThose) {
    Server.answer("/gone", {{.Status = 404}, {.Status = 200, .Content = "back"}});
    Server.answer("/other", {{.Status = 500}, {.Status = 200, .Content = "too"}});
    const std::string other = json("/other", R"("fields":{"X-Mark":"1"},"target":"other")");
    write(Server.url("/n/1") + " 1\n" + Server.url("/gone") + "   gone file\n" + other);
    EXPECT_EQ(batch({"list", "-j", "1", "--failures", "list.failed", "--no-journal"}).Status, 22);
    EXPECT_EQ(readFile(file("list.failed")), "# line 2: the server answered 404 Not Found\n" + Server.url("/gone") +
                                                 "   gone file\n"
                                                 "# line 3: the server answered 500 Internal Server Error\n" +
                                                 other);
    const Outcome again = batch({"list.failed", "--failures", "list.failed2", "--no-journal"});
    EXPECT_EQ(again.Status, 0);
    EXPECT_EQ(results(again).size(), 2U);
    EXPECT_EQ(readFile(file("gone file")), "back");
    EXPECT_EQ(Server.seen("/other").at(1).Fields.at("x-mark"), "1");
    EXPECT_EQ(Server.requests("/n/1"), 1U);
    EXPECT_EQ(readFile(file("list.failed2")), "");
}

TEST_F(BatchReports, AFileThatCannotBeWrittenIsSaidBeforeAnythingRuns) {
    write(Server.url("/n/1") + " 1\n");
    for (const Words& words : {Words{"--failures", "missing/f"}, Words{"--report", "missing/r.html"}}) {
        EXPECT_THAT(batch(Words{"list"} + words), ended(23, "", HasSubstr("NETROVE:cli:FileNotWritten")));
    }
    EXPECT_THAT(batch({"list", "--report", "r.pdf"}), ended(2, "", HasSubstr(".html, .json or .prom")));
    EXPECT_EQ(batch({"list", "--failures", "list"}).Status, 2);
    write(Server.url("/n/1") + " r.html\n");
    EXPECT_THAT(batch({"list", "--report", "r.html"}), ended(2, "", HasSubstr("the report")));
    EXPECT_EQ(Server.allRequests(), 0U);
}

TEST_F(BatchReports, ReportsHaveTheFiguresOfTheRun) {
    Server.answer("/gone", {{.Status = 404}});
    write(Server.url("/n/1") + " 1\n" + Server.url("/n/2") + " 2\n" + Server.url("/gone") + " gone\n");
    const Words words = {"list",     "-u",        "alice:wonderland", "--report", "list.report.json",
                         "--report", "list.html", "--report",         "list.prom"};
    const Outcome outcome = batch(words);
    EXPECT_THAT(outcome, ended(22, _, HasSubstr("1 failed: 1 x the server answered 404 Not Found")));
    const Json figures = report();
    EXPECT_EQ(figures["lines"], Json({{"all", 3}, {"done", 2}, {"failed", 1}, {"skipped", 0}, {"left", 0}}));
    EXPECT_EQ(figures["bytes"], BatchServer::contentOf("/n/1").size() + BatchServer::contentOf("/n/2").size());
    EXPECT_EQ(figures["failures"],
              Json::parse(R"([{"cause":"the server answered 404 Not Found","count":1,"firstLine":3}])"));
    EXPECT_EQ(figures["hosts"].size(), 1U);
    EXPECT_EQ(figures["slowest"].size(), 3U);
    EXPECT_EQ(figures["stopped"], nullptr);
    EXPECT_THAT(readFile(file("list.html")), HasSubstr("1 of 3 transfers failed</h1>"));
    EXPECT_THAT(readFile(file("list.prom")),
                AllOf(HasSubstr("netrove_batch_over{manifest=\"list\"} 1\n"),
                      HasSubstr("netrove_batch_lines_ended_total{manifest=\"list\",result=\"failed\"} 1\n")));
    for (const std::string name : {"list.report.json", "list.html", "list.prom"}) {
        EXPECT_THAT(readFile(file(name)), Not(HasSubstr("wonderland"))) << name;
    }
    EXPECT_THAT(figures["command"].get<std::string>(), StartsWith("netrove batch list -u 'alice:***' --report"));
}

TEST_F(BatchReports, MetricsAreThereWhileARunIsUnderWay) {
    Server.hold("/n/1");
    writeList(1);
    Program program({"batch", "list", "--report", "list.prom"}, here());
    Server.waitForRequest("/n/1");
    EXPECT_THAT(readFile(file("list.prom")), HasSubstr("netrove_batch_over{manifest=\"list\"} 0\n"));
    Server.release("/n/1");
    EXPECT_EQ(program.wait().Status, 0);
    EXPECT_THAT(readFile(file("list.prom")), HasSubstr("netrove_batch_over{manifest=\"list\"} 1\n"));
}

TEST_F(BatchReports, AStoppedRunIsReported) {
    Server.answer("/gone", {{.Status = 404}});
    Server.hold("/n/1");
    write(Server.url("/gone") + " gone\n" + Server.url("/n/1") + " 1\n");
    Program program({"batch", "list", "-j", "1", "--failures", "list.failed", "--report", "list.report.json"}, here());
    Server.waitForRequest("/n/1");
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait().Status, 143);
    EXPECT_EQ(report()["stopped"], "SIGTERM");
    EXPECT_EQ(report()["lines"]["left"], 1);
    EXPECT_THAT(readFile(file("list.failed")), HasSubstr(Server.url("/gone") + " gone\n"));
}

} // namespace
