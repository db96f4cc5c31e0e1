#include "tests/integration/support/PeerProcess.h"

#include "tests/support/process/Await.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace {

using namespace integrationtest;
using testing::HasSubstr;
using testsupport::Awaited;
using testsupport::awaitOrEnd;
using testsupport::processHasEnded;
using testsupport::readFile;
using testsupport::TemporaryFolder;

std::string whatFails(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "nothing failed";
}

TEST(PeerProcess, EarlyEndIsReportedWithWhatWasPrinted) {
    const TemporaryFolder folder;
    PeerProcess process({"sh", "-c", "echo bad configuration >&2; exit 1"}, folder.file("log"));
    EXPECT_THAT(whatFails([&] { process.awaitListening(freePorts(1)[0]); }),
                testing::AllOf(HasSubstr("sh has ended before listening on port"), HasSubstr("bad configuration")));
}

TEST(PeerProcess, PortThatSomebodyElseHasDoesNotCount) {
    const TemporaryFolder folder;
    const testsupport::ScriptedServer stranger{testsupport::Script{}};
    PeerProcess process({"sh", "-c", "exit 0"}, folder.file("log"));
    EXPECT_THAT(whatFails([&] { process.awaitListening(stranger.port()); }),
                HasSubstr("sh has ended before listening"));
}

TEST(PeerProcess, UnknownProgramIsNamed) {
    const TemporaryFolder folder;
    EXPECT_THAT(whatFails([&] { const PeerProcess process({"no-such-server"}, folder.file("log")); }),
                HasSubstr("no-such-server is not installed"));
}

TEST(PeerProcess, StopEndsWhateverItHasStarted) {
    const TemporaryFolder folder;
    PeerProcess process({"sh", "-c", "sleep 600 & echo $! > child; trap '' TERM; echo > ready; wait; wait"},
                        folder.file("log"), {.Folder = folder.path(), .StopSignal = SIGKILL});
    process.awaitCondition([&] { return std::filesystem::exists(folder.file("ready")); }, "ready");
    const pid_t child = std::stoi(readFile(folder.file("child")));
    EXPECT_EQ(::kill(child, 0), 0);
    process.stop();
    // Without a parent it is somebody else's to collect.
    EXPECT_EQ(awaitOrEnd([child] { return processHasEnded(child); }, [] { return false; }), Awaited::Held);
    process.stop();
}

TEST(Await, WhatWasDoneBeforeTheEndCounts) {
    bool done = false;
    EXPECT_EQ(awaitOrEnd([&] { return done; }, [&] { return done = true; }), Awaited::Held);
}

TEST(FreePorts, AreDifferent) {
    std::vector<std::uint16_t> ports = freePorts(20);
    std::sort(ports.begin(), ports.end());
    EXPECT_EQ(std::adjacent_find(ports.begin(), ports.end()), ports.end());
}

TEST(FreePorts, StartIsTriedAgainOnOthers) {
    const TemporaryFolder folder;
    std::vector<std::vector<std::uint16_t>> tried;
    const auto process = startOnFreePorts(2, [&](const std::vector<std::uint16_t>& ports) {
        tried.push_back(ports);
        if (tried.size() < 3) {
            throw std::runtime_error("taken");
        }
        return std::make_unique<PeerProcess>(std::vector<std::string>{"sleep", "600"}, folder.file("log"));
    });
    EXPECT_NE(process, nullptr);
    EXPECT_EQ(tried.size(), 3U);
    EXPECT_NE(tried[0], tried[2]);
    EXPECT_EQ(whatFails([] {
                  startOnFreePorts(
                      1, [](const auto&) -> std::unique_ptr<PeerProcess> { throw std::runtime_error("always taken"); });
              }),
              "always taken");
}

} // namespace
