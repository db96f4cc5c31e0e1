#include "tests/cli/batch/BatchFixture.h"

#include <string>

namespace {

using namespace batchtest;

class BatchShardCommand : public BatchFixture {
protected:
    static constexpr std::size_t kLines = 10;

    void expectEverythingOnce() {
        EXPECT_EQ(Server.allRequests(), kLines);
        EXPECT_EQ(Server.repeatedRequests(), 0u);
        expectFiles(kLines);
        EXPECT_EQ(files().size(), kLines);
    }
    // Runs a launcher of several copies of the program.
    Outcome launch(const std::string& launcher, std::vector<std::string> arguments,
                   std::map<std::string, std::string> environment, const std::string& input = "") {
        Surroundings surroundings = around();
        surroundings.Executable = launcher;
        environment["HOME"] = Folder.path();
        surroundings.Environment = std::move(environment);
        surroundings.Input = input;
        return testsupport::run(std::move(arguments), surroundings);
    }
    void expectDoneBy(const Outcome& outcome) {
        EXPECT_EQ(outcome.Status, 0) << outcome.Out << outcome.Err;
        EXPECT_EQ(count(outcome, "done"), kLines) << outcome.Out << outcome.Err;
        EXPECT_EQ(Server.allRequests(), kLines);
        EXPECT_EQ(Server.repeatedRequests(), 0u);
        expectFiles(kLines);
    }
};

TEST_F(BatchShardCommand, AllShardsTogetherDoEveryLineOnce) {
    writeList(kLines);
    for (const char* shard : {"1/3", "2/3", "3/3"}) {
        const Outcome outcome = batch({"list", "--shard", shard, "-j", shard[0] == '2' ? "1" : "4"});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(count(outcome, "done"), shard[0] == '1' ? 4u : 3u);
    }
    expectEverythingOnce();
    EXPECT_TRUE(std::filesystem::exists(Folder.file("list.journal.2-of-3")));
}

TEST_F(BatchShardCommand, AnotherNumberOfShardsKnowsWhatIsDone) {
    writeList(kLines);
    ASSERT_EQ(batch({"list", "--shard", "1/3"}).Status, 0);
    ASSERT_EQ(batch({"list", "--shard", "2/3"}).Status, 0);
    ASSERT_EQ(batch({"list", "--shard", "1/2"}).Status, 0);
    ASSERT_EQ(batch({"list"}).Status, 0);
    expectEverythingOnce();
}

TEST_F(BatchShardCommand, SlurmSaysWhich) {
    writeList(kLines);
    for (const char* task : {"0", "1"}) {
        const Outcome outcome = batch({"list"}, {{"SLURM_PROCID", task}, {"SLURM_NTASKS", "2"}});
        EXPECT_EQ(outcome.Status, 0);
        EXPECT_EQ(outcome.Err.find("netrove: note: shard " + std::to_string(task[0] - '0' + 1) +
                                   " of 2, from SLURM_PROCID; 5 of 10 lines\n"),
                  0u)
            << outcome.Err;
    }
    expectEverythingOnce();
}

TEST_F(BatchShardCommand, ASlurmArraySaysWhich) {
    writeList(kLines);
    for (const char* task : {"5", "6", "7"}) {
        EXPECT_EQ(batch({"list"}, {{"SLURM_ARRAY_TASK_ID", task},
                                   {"SLURM_ARRAY_TASK_COUNT", "3"},
                                   {"SLURM_ARRAY_TASK_MIN", "5"},
                                   {"SLURM_ARRAY_TASK_MAX", "7"}})
                      .Status,
                  0);
    }
    expectEverythingOnce();
}

TEST_F(BatchShardCommand, OpenMpiSaysWhich) {
    writeList(kLines);
    for (const char* rank : {"0", "1", "2", "3"}) {
        EXPECT_EQ(batch({"list"}, {{"OMPI_COMM_WORLD_RANK", rank}, {"OMPI_COMM_WORLD_SIZE", "4"}}).Status, 0);
    }
    expectEverythingOnce();
}

TEST_F(BatchShardCommand, TheOptionCountsForMoreThanTheLauncher) {
    writeList(kLines);
    EXPECT_EQ(batch({"list", "--shard", "1/1"}, {{"OMPI_COMM_WORLD_RANK", "1"}, {"OMPI_COMM_WORLD_SIZE", "4"}}).Status,
              0);
    expectEverythingOnce();
    EXPECT_TRUE(std::filesystem::exists(Folder.file("list.journal")));
}

TEST_F(BatchShardCommand, WhatTheEnvironmentSaysIsChecked) {
    writeList(kLines);
    EXPECT_EQ(batch({"list"}, {{"OMPI_COMM_WORLD_RANK", "4"}, {"OMPI_COMM_WORLD_SIZE", "4"}}).Status, 2);
    EXPECT_EQ(batch({"list", "--shard", "0/2"}).Status, 2);
    EXPECT_EQ(Server.allRequests(), 0u);
}

TEST_F(BatchShardCommand, UnderGnuParallelTheJobsShareTheManifest) {
    writeList(kLines);
    expectDoneBy(launch("/usr/bin/parallel", {"--will-cite", "-N0", testsupport::programFile(), "batch", "list"},
                        {{"NETROVE_SHARDS", "3"}}, "1\n2\n3\n"));
}

TEST_F(BatchShardCommand, UnderGnuParallelTheShardMayBeAnArgument) {
    writeList(kLines);
    expectDoneBy(launch(
        "/usr/bin/parallel",
        {"--will-cite", "-j2", testsupport::programFile(), "batch", "list", "--shard", "{}/2", ":::", "1", "2"}, {}));
}

TEST_F(BatchShardCommand, UnderMpirunTheRanksShareTheManifest) {
    writeList(kLines);
    expectDoneBy(
        launch("/usr/bin/mpirun",
               {"--allow-run-as-root", "--oversubscribe", "-np", "3", testsupport::programFile(), "batch", "list"},
               {{"OMPI_MCA_btl", "self"},
                {"OMPI_MCA_oob_tcp_if_include", "lo"},
                {"OMPI_MCA_plm", "isolated"},
                {"OMPI_MCA_ras", "^slurm"},
                {"OMPI_MCA_rmaps_base_oversubscribe", "1"}}));
}

} // namespace
