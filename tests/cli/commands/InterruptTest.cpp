#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

using namespace testsupport;

constexpr const char* kInterrupted = "netrove: NETROVE:cli:Interrupted: interrupted\n";

TEST(Interrupt, WhileTheServerIsSilentIsOneHundredAndTwentyEightAndTheSignal) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ScriptedServer server({step::expectHead(), step::signal("asked"), step::awaitPeerEnd()});
        Program program({"get", server.url()});
        server.waitFor("asked");
        program.signal(number);
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.Status, 128 + number);
        EXPECT_EQ(outcome.Err, kInterrupted);
        EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    }
}

TEST(Interrupt, WhileContentArrivesIsOneHundredAndThirty) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf"),
                           step::signal("half"), step::awaitPeerEnd()});
    Program program({"get", server.url()});
    server.waitFor("half");
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130);
    EXPECT_EQ(outcome.Err, kInterrupted);
}

TEST(Interrupt, WhileABodyGoesOutIsOneHundredAndThirty) {
    const TemporaryFolder folder;
    writeFile(folder.file("body"), patternedBytes(20'000'000));
    ScriptedServer server({step::expectHead(), step::signal("sending"), step::await("end"), step::awaitPeerEnd()});
    Program program({"send", server.url(), "-T", folder.file("body")});
    server.waitFor("sending");
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130);
    EXPECT_EQ(outcome.Err, kInterrupted);
    server.raise("end");
}

TEST(Interrupt, WhileStandardInputIsSilentIsOneHundredAndThirty) {
    ScriptedServer server({step::expectHead(), step::expectBody(10), step::signal("sending"), step::awaitPeerEnd()});
    Program program({"send", server.url(), "-T", "-"});
    program.type("first");
    server.waitFor("sending");
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130);
    EXPECT_EQ(outcome.Err, kInterrupted);
}

TEST(Interrupt, WhileNobodyReadsTheOutputIsOneHundredAndThirty) {
    ScriptedServer server({step::expectHead(), step::send(response(patternedBytes(5'000'000))), step::awaitPeerEnd()});
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Surroundings around;
    around.OutDescriptor = ends[1];
    Program program({"get", server.url()}, around);
    program.awaitCondition([&] { return isFull(ends[1]); }, "its output is full"); // then it can only wait
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130);
    EXPECT_EQ(outcome.Err, kInterrupted);
    close(ends[0]);
    close(ends[1]);
}

TEST(Interrupt, JsonSaysSo) {
    for (const auto& [number, name] : {std::pair(SIGINT, "SIGINT"), {SIGTERM, "SIGTERM"}, {SIGHUP, "SIGHUP"}}) {
        ScriptedServer server({step::expectHead(), step::signal("asked"), step::awaitPeerEnd()});
        Program program({"get", "--json-errors", server.url()});
        server.waitFor("asked");
        program.signal(number);
        EXPECT_EQ(program.wait().Err, "{\"identifier\":\"NETROVE:cli:Interrupted\",\"message\":\"interrupted\","
                                      "\"arguments\":[\"" +
                                          std::string(name) + "\"],\"exit\":" + std::to_string(128 + number) + "}\n");
    }
}

} // namespace
