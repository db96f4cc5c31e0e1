// bench/run with the server and some of the peers: that they agree on their arguments and figures, and that a peer that
// does not do its job is noticed. Nothing is said about the figures themselves.
#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testsupport::Outcome;

class BenchRun : public testing::Test {
protected:
    BenchRun() {
        for (const char* program : {"netrove", "netrove_bench_server", "peer_command", "peer_multi", "peer_netrove"}) {
            fs::create_symlink(testsupport::builtFile(std::string("bin/") + program), Folder.file(program));
        }
    }

    Outcome play(std::vector<std::string> jobs) const {
        std::vector<std::string> arguments = {"--quick",    "--no-build",  "--rounds", "1",
                                              "--programs", Folder.path(), "--output", Folder.file("results.json")};
        for (std::string& job : jobs) {
            arguments.insert(arguments.end(), {"--only", std::move(job)});
        }
        return testsupport::run(std::move(arguments), {.Executable = NETROVE_SOURCES "/bench/run"});
    }
    // A peer that prints these figures, whatever it is asked for.
    void standIn(const std::string& figures) const {
        fs::remove(Folder.file("peer_multi"));
        testsupport::writeFile(Folder.file("peer_multi"), "#!/bin/sh\necho '" + figures + "'\n");
        fs::permissions(Folder.file("peer_multi"), fs::perms::owner_all);
    }

    const testsupport::TemporaryFolder Folder;
};

TEST_F(BenchRun, PlaysEveryKindOfJob) {
    const Outcome outcome = play({"memory", "file", "upload-1m", "fields-10", "scopes-2", "batch", "get", "dry-100"});
    ASSERT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, HasSubstr("\n| 8 MiB into memory (1 = "));
    const auto results = nlohmann::json::parse(testsupport::readFile(Folder.file("results.json")));
    std::map<std::string, nlohmann::json> jobs;
    for (const nlohmann::json& job : results.at("jobs")) {
        jobs[job.at("key")] = job.at("results");
    }
    for (const char* key : {"memory", "file", "upload-1m", "fields-10", "scopes-2", "batch", "get", "dry-100"}) {
        for (const char* peer : {"netrove", "multi"}) {
            const bool process =
                key == std::string("batch") || key == std::string("get") || key == std::string("dry-100");
            if (process && peer == std::string("multi")) {
                continue;
            }
            for (const char* figure : {"seconds", "cpu", "peak"}) {
                const nlohmann::json& rounds = jobs[key].at(peer).at(figure);
                ASSERT_EQ(rounds.size(), 1U) << key << ' ' << peer << ' ' << figure;
                EXPECT_GT(rounds[0].get<double>(), 0) << key << ' ' << peer << ' ' << figure;
            }
        }
    }
}

TEST_F(BenchRun, PlaysTheJobsOfPython) {
    fs::create_symlink(testsupport::builtFile("bin/peer_netrove_client"), Folder.file("peer_netrove_client"));
    std::vector<std::string> peers = {"netrove_client", "python-requests", "python-httpx"};
    if (!testsupport::isSanitized()) { // an interpreter without sanitizers cannot load an extension with them
        peers.push_back("python-netrove");
    }
    const std::vector<std::string> jobs = {"python-file", "python-buffer", "python-generator", "python-many",
                                           "python-get"};
    const Outcome outcome = play(jobs);
    ASSERT_EQ(outcome.Status, 0) << outcome.Err;
    const auto results = nlohmann::json::parse(testsupport::readFile(Folder.file("results.json")));
    std::vector<std::string> played;
    for (const nlohmann::json& job : results.at("jobs")) {
        played.push_back(job.at("key"));
        for (const std::string& peer : peers) {
            EXPECT_GT(job.at("results").at(peer).at("seconds").at(0).get<double>(), 0) << played.back() << ' ' << peer;
        }
    }
    EXPECT_EQ(played, jobs);
}

TEST_F(BenchRun, OtherContentThanTheServersIsNoticed) {
    standIn(R"({"seconds":1,"cpu":1,"peak":1,"bytes":4194304,"checksum":1,"answer":""})");
    const Outcome outcome = play({"consumer"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("bench/run: multi, consumer: other bytes have come\n"));
}

TEST_F(BenchRun, ContentThatIsMissingIsNoticed) {
    standIn(R"({"seconds":1,"cpu":1,"peak":1,"bytes":4194303,"checksum":1,"answer":""})");
    EXPECT_THAT(play({"consumer"}).Err, HasSubstr("bench/run: multi, consumer: another number of bytes has come\n"));
    EXPECT_THAT(play({"file"}).Err, HasSubstr("bench/run: multi, file: there is no file\n"));
    standIn(R"({"seconds":1,"cpu":1,"peak":1,"bytes":0,"checksum":0,"answer":"4194303 1"})");
    EXPECT_THAT(play({"upload"}).Err, HasSubstr("bench/run: multi, upload: the server got another number of bytes\n"));
}

TEST_F(BenchRun, AJobThatThereIsNotIsRefusedWithThoseThatThereAre) {
    const Outcome outcome = play({"nothing"});
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_THAT(outcome.Err, HasSubstr("no such job; there are consumer, memory, file, "));
}

} // namespace
