#include "tests/cli/batch/BatchFixture.h"
#include "tests/support/server/UnreachablePorts.h"

#include <csignal>
#include <string>

namespace {

using namespace batchtest;

class BatchRetryCommand : public BatchFixture {
protected:
    Outcome retried(const std::string& manifest, std::vector<std::string> more = {}) {
        writeFile(Folder.file("list"), manifest);
        std::vector<std::string> arguments = {"list", "--retry", "3", "--retry-wait", "0"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return batch(arguments);
    }
    std::string post(const std::string& url) const { return "{\"url\":\"" + url + "\",\"body\":\"x\"}\n"; }
};

TEST_F(BatchRetryCommand, WithoutTheOptionThereIsOneAttempt) {
    Server.answer("/busy", {{503, {}, ""}, {200, {}, "good"}});
    writeFile(Folder.file("list"), Server.url("/busy") + "\n");
    EXPECT_EQ(batch({"list"}).Status, 22);
    EXPECT_EQ(Server.requests("/busy"), 1u);
}

TEST_F(BatchRetryCommand, ATransientStatusIsTriedAgain) {
    Server.answer("/busy", {{503, {{"Retry-After", "1"}}, ""}, {429, {}, ""}, {200, {}, "good"}});
    const Outcome outcome = retried(Server.url("/busy") + "\n");
    EXPECT_EQ(outcome.Status, 0) << outcome.Out;
    EXPECT_EQ(results(outcome).at(0)["attempts"], 3);
    EXPECT_EQ(results(outcome).at(0)["status"], 200);
    EXPECT_EQ(readFile(Folder.file("busy")), "good");
    EXPECT_EQ(files(), Names{"busy"});
}

TEST_F(BatchRetryCommand, AnotherStatusIsNot) {
    Server.answer("/gone", {{404, {}, ""}});
    EXPECT_EQ(retried(Server.url("/gone") + "\n").Status, 22);
    EXPECT_EQ(Server.requests("/gone"), 1u);
}

TEST_F(BatchRetryCommand, TheLastAttemptsAnswerIsTheResult) {
    Server.answer("/busy", {{503, {}, "busy"}});
    const Outcome outcome = retried(Server.url("/busy") + "\n");
    EXPECT_EQ(outcome.Status, 22);
    EXPECT_EQ(results(outcome).at(0)["attempts"], 4);
    EXPECT_EQ(Server.requests("/busy"), 4u);
    EXPECT_EQ(files(), Names{});
    // Where such answers are wanted, they are kept once there is no attempt left.
    const Outcome kept = retried(Server.url("/busy") + "\n", {"--no-fail"});
    EXPECT_EQ(kept.Status, 0);
    EXPECT_EQ(Server.requests("/busy"), 8u);
    EXPECT_EQ(readFile(Folder.file("busy")), "busy");
}

TEST_F(BatchRetryCommand, ContentCutShortIsFetchedAgainFromItsStart) {
    Server.answer("/cut", {{200, {}, "the first par", true}, {200, {}, "all"}});
    const Outcome outcome = retried(Server.url("/cut") + "\n");
    EXPECT_EQ(outcome.Status, 0) << outcome.Out;
    EXPECT_EQ(readFile(Folder.file("cut")), "all");
    EXPECT_EQ(results(outcome).at(0)["bytes"], 3);
}

TEST_F(BatchRetryCommand, WhatMayBeDoneTwiceIsTriedAgainOnlyWhereAsked) {
    Server.answer("/order", {{503, {}, ""}, {200, {}, "done"}});
    EXPECT_EQ(retried(post(Server.url("/order"))).Status, 22);
    EXPECT_EQ(Server.requests("/order"), 1u);
    Server.answer("/again", {{503, {}, ""}, {200, {}, "done"}});
    EXPECT_EQ(retried(post(Server.url("/again")), {"--retry-unsafe"}).Status, 0);
    EXPECT_EQ(Server.requests("/again"), 2u);
    EXPECT_EQ(Server.seen("/again").at(1).Body, "x");
}

TEST_F(BatchRetryCommand, WhatWasNeverSentIsTriedAgainWhateverTheMethod) {
    const testsupport::RefusingPort refusing;
    const Outcome outcome = retried(post(refusing.url("/x")));
    EXPECT_EQ(outcome.Status, 7);
    EXPECT_EQ(results(outcome).at(0)["attempts"], 4);
}

TEST_F(BatchRetryCommand, AfterARedirectSomethingWasSent) {
    const testsupport::RefusingPort refusing;
    Server.answer("/order", {{303, {{"Location", refusing.url("/receipt")}}, ""}});
    const Outcome outcome = retried(post(Server.url("/order")));
    EXPECT_EQ(outcome.Status, 7) << outcome.Out;
    EXPECT_EQ(Server.requests("/order"), 1u);
}

TEST_F(BatchRetryCommand, CtrlCEndsTheWait) {
    Server.answer("/busy", {{503, {{"Retry-After", "250"}}, ""}});
    writeFile(Folder.file("list"), Server.url("/busy") + "\n" + Server.url("/n/1") + " 1\n");
    Program program({"batch", "list", "-j", "1", "--retry", "3"}, around());
    Server.waitForRequest("/busy");
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130) << outcome.Err;
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(Server.requests("/busy"), 1u);
    EXPECT_EQ(Server.requests("/n/1"), 0u);
}

} // namespace
