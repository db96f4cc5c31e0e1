// Retries as a server sees them. Which failures are worth one, and how long the waits are: RetryPolicyTest.cpp.
#include "tests/cli/batch/BatchFixture.h"
#include "tests/support/process/FailingCalls.h"
#include "tests/support/server/UnreachablePorts.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace batchtest;

class BatchRetryCommand : public BatchFixture {
protected:
    // A run with three retries at most, of which none waits.
    Outcome retried(const std::string& manifest, const Words& more = {}) const {
        write(manifest);
        return batch(Words{"list", "-j", "1", "--retry", "3", "--retry-wait", "0"} + more);
    }
    // Lines that wait for a further attempt are overtaken.
    static Json ofLine(const Outcome& outcome, int number) {
        for (const Json& one : results(outcome)) {
            if (one["line"] == number) {
                return one;
            }
        }
        throw std::runtime_error("no result for line " + std::to_string(number));
    }
    static std::string post(const std::string& url) { return "{\"url\":\"" + url + "\",\"body\":\"x\"}\n"; }
};

TEST_F(BatchRetryCommand, TriesAgainWhatMayPass) {
    Server.answer("/busy", {{503, {{"Retry-After", "1"}}, ""}, {429, {}, ""}, {500, {}, ""}, {200, {}, "good"}});
    Server.answer("/cut", {{200, {}, "the first par", true}, {200, {}, "all"}});
    Server.answer("/gone", {{404, {}, ""}});
    const Outcome outcome =
        retried(Server.url("/busy") + "\n" + Server.url("/cut") + "\n" + Server.url("/gone") + "\n");
    EXPECT_EQ(outcome.Status, 22);
    expectMembers(ofLine(outcome, 1), {{"attempts", 4}, {"status", 200}});
    EXPECT_EQ(readFile(file("busy")), "good");
    EXPECT_EQ(ofLine(outcome, 2)["bytes"], 3) << "fetched again from its start";
    EXPECT_EQ(readFile(file("cut")), "all");
    EXPECT_EQ(ofLine(outcome, 3)["attempts"], 1);
    EXPECT_EQ(files(), (Words{"busy", "cut"}));
}

TEST_F(BatchRetryCommand, TriesOnceWithoutTheOption) {
    Server.answer("/busy", {{503, {}, ""}, {200, {}, "good"}});
    write(Server.url("/busy") + "\n");
    EXPECT_EQ(batch({"list"}).Status, 22);
    EXPECT_EQ(Server.requests("/busy"), 1u);
}

TEST_F(BatchRetryCommand, ReportsTheAnswerToTheLastAttempt) {
    Server.answer("/busy", {{503, {}, "busy"}});
    const Outcome outcome = retried(Server.url("/busy") + "\n");
    EXPECT_EQ(outcome.Status, 22);
    EXPECT_EQ(results(outcome).at(0)["attempts"], 4);
    EXPECT_EQ(Server.requests("/busy"), 4u);
    EXPECT_EQ(files(), Words{});
    // Where such answers are wanted, they are kept once there is no attempt left.
    EXPECT_EQ(retried(Server.url("/busy") + "\n", {"--no-fail"}).Status, 0);
    EXPECT_EQ(Server.requests("/busy"), 8u);
    EXPECT_EQ(readFile(file("busy")), "busy");
}

TEST_F(BatchRetryCommand, SendsTwiceWhatMayNotBeDoneTwiceOnlyWhereAsked) {
    const RefusingPort refusing;
    Server.answer("/order", {{503, {}, ""}, {200, {}, "done"}});
    Server.answer("/elsewhere", {{303, {{"Location", refusing.url("/receipt")}}, ""}});
    const Outcome outcome =
        retried(post(Server.url("/order")) + post(Server.url("/elsewhere")) + post(refusing.url("/x")));
    EXPECT_EQ(results(outcome).at(0)["attempts"], 1);
    // Something was sent before the redirect.
    expectMembers(results(outcome).at(1), {{"attempts", 1}, {"exit", 7}});
    EXPECT_EQ(results(outcome).at(2)["attempts"], 4) << "nothing was sent";
    EXPECT_EQ(Server.allRequests(), 2u);
    EXPECT_EQ(retried(post(Server.url("/order")), {"--retry-unsafe"}).Status, 0);
    EXPECT_EQ(Server.seen("/order").at(1).Body, "x");
}

TEST_F(BatchRetryCommand, EndsWhereTheServerAsksForMoreTimeThanAllowed) {
    Server.answer("/busy", {{503, {{"Retry-After", "8"}}, "busy"}});
    const Words limit = {"--retry-max-wait", "7"};
    const Outcome outcome = retried(Server.url("/busy") + "\n", limit);
    EXPECT_EQ(outcome.Status, 22);
    expectMembers(results(outcome).at(0), {{"identifier", "NETROVE:cli:RetryTooLate"},
                                           {"arguments", {8}},
                                           {"status", 503},
                                           {"attempts", 1},
                                           {"exit", 22}});
    EXPECT_EQ(files(), Words{});
    EXPECT_EQ(retried(Server.url("/busy") + "\n", limit + Words{"--no-fail"}).Status, 0);
    EXPECT_EQ(readFile(file("busy")), "busy");
    EXPECT_EQ(Server.requests("/busy"), 2u);
}

TEST_F(BatchRetryCommand, CountsTheAttemptThatTheDiskEnds) {
    Server.answer("/n/1", {{503, {}, ""}, {200, {}, "content"}});
    write(Server.url("/n/1") + " 1\n");
    Surroundings around = here();
    around.Environment = failingCalls(Folder.path(), {{"fdatasync", 1, ENOSPC}});
    const Outcome outcome = run({"batch", "list", "--retry", "3", "--retry-wait", "0", "--no-journal"}, around);
    EXPECT_EQ(outcome.Status, 23) << outcome.Err;
    expectMembers(results(outcome).at(0),
                  {{"identifier", "NETROVE:cli:FileNotWritten"}, {"attempts", 2}, {"status", 200}});
    EXPECT_EQ(files(), Words{});
}

TEST_F(BatchRetryCommand, DoesNotWaitLongerThanAllowedForContent) {
    ASSERT_EQ(mkfifo(file("list.pipe").c_str(), 0600), 0);
    const int pipe = open(file("list.pipe").c_str(), O_RDWR | O_CLOEXEC); // so it never comes to its end
    ASSERT_GE(pipe, 0);
    const Outcome outcome =
        retried(json("/slow", R"("method":"PUT","body_file":"list.pipe","target":null)"), {"--max-time", "0.3"});
    close(pipe);
    EXPECT_EQ(outcome.Status, 28) << outcome.Err;
    expectMembers(results(outcome).at(0), {{"identifier", "NETROVE:cli:MaxTime"}, {"attempts", 1}});
}

TEST_F(BatchRetryCommand, FollowsNoRedirectThatWantsContentASecondTimeWhichIsGone) {
    ASSERT_EQ(mkfifo(file("list.pipe").c_str(), 0600), 0);
    Server.answer("/moved", {{307, {{"Location", "/n/1"}}, "see there"}});
    write(json("/moved", R"("method":"PUT","body_file":"list.pipe","target":"answer")"));
    Program program({"batch", "list", "--retry", "3"}, here());
    const int pipe = open(file("list.pipe").c_str(), O_WRONLY | O_CLOEXEC); // once the program reads it
    ASSERT_GE(pipe, 0);
    EXPECT_EQ(::write(pipe, "x", 1), 1);
    close(pipe);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 26) << outcome.Err;
    expectMembers(results(outcome).at(0), {{"identifier", "NETROVE:cli:ContentNotRewound"},
                                           {"arguments", {"list.pipe"}},
                                           {"status", 307},
                                           {"attempts", 1}});
    EXPECT_EQ(Server.seen("/moved").at(0).Body, "x");
    EXPECT_EQ(Server.requests("/n/1"), 0u);
    EXPECT_EQ(files(), Words{});
}

TEST_F(BatchRetryCommand, AWaitHoldsNoJobAndCtrlCEndsIt) {
    Server.answer("/busy", {{503, {{"Retry-After", "250"}}, ""}});
    write(Server.url("/busy") + "\n" + Server.url("/n/1") + " 1\n");
    for (const int number : {SIGINT, SIGTERM}) {
        Program program({"batch", "list", "-j", "1", "--retry", "3", "--no-journal", "--force"}, here());
        program.waitForOutput("\"line\":2"); // the only job has done that, so the other line waits
        program.signal(number);
        EXPECT_THAT(program.wait(), ended(128 + number, _, HasSubstr("1 done, 1 left")));
        EXPECT_EQ(files(), Words{"1"});
    }
    EXPECT_EQ(Server.requests("/busy"), 2u);
}

// Each wait by itself is short enough; together they are not.
TEST_F(BatchRetryCommand, AllAttemptsOfALineHaveOneTimeLimit) {
    Server.answer("/busy", {{503, {{"Retry-After", "1"}}, ""}});
    write(Server.url("/busy") + "\n");
    const Outcome outcome = batch({"list", "--retry", "9", "--retry-max-time", "1.5"});
    EXPECT_EQ(outcome.Status, 22);
    EXPECT_THAT(Server.requests("/busy"), testing::AllOf(testing::Ge(1U), testing::Le(2U)));
}

} // namespace
