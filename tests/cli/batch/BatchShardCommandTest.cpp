// Runs that share a manifest. What each launcher says of itself: BatchShardTest.cpp. The launchers themselves, as the
// pages show them: tests/docs/ShownCommandsTest.cpp.
#include "tests/cli/batch/BatchFixture.h"

namespace {

using namespace batchtest;

class BatchShardCommand : public BatchFixture {
protected:
    static constexpr std::size_t kLines = 10;

    void SetUp() override { writeList(kLines); }
    void TearDown() override {
        EXPECT_EQ(Server.allRequests(), kLines);
        EXPECT_EQ(Server.paths(), kLines) << "a line was done twice";
        expectFiles(kLines);
    }
};

TEST_F(BatchShardCommand, AllShardsTogetherDoEveryLineOnce) {
    for (const char* shard : {"1/3", "2/3", "3/3"}) {
        const Outcome outcome = batch({"list", "--shard", shard, "-j", shard[0] == '2' ? "1" : "4"});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(count(outcome, "done"), shard[0] == '1' ? 4 : 3);
    }
    EXPECT_TRUE(std::filesystem::exists(file("list.journal.2-of-3")));
}

TEST_F(BatchShardCommand, AnotherNumberOfShardsKnowsWhatIsDone) {
    for (const char* shard : {"1/3", "2/3", "1/2", "1/1"}) {
        ASSERT_EQ(batch({"list", "--shard", shard}).Status, 0);
    }
}

TEST_F(BatchShardCommand, ASlurmArraySaysWhich) {
    for (const char* task : {"5", "6"}) {
        const Outcome outcome = batch({"list"}, {{"SLURM_ARRAY_TASK_ID", task},
                                                 {"SLURM_ARRAY_TASK_COUNT", "2"},
                                                 {"SLURM_ARRAY_TASK_MIN", "5"},
                                                 {"SLURM_ARRAY_TASK_MAX", "6"}});
        EXPECT_THAT(outcome, ended(0, _,
                                   StartsWith("netrove: note: shard " + std::to_string(task[0] - '4') +
                                              " of 2, from SLURM_ARRAY_TASK_ID; 5 of 10 lines\n")));
    }
}

TEST_F(BatchShardCommand, TheOptionCountsForMoreThanTheLauncher) {
    EXPECT_EQ(batch({"list"}, {{"OMPI_COMM_WORLD_RANK", "4"}, {"OMPI_COMM_WORLD_SIZE", "4"}}).Status, 2);
    EXPECT_EQ(batch({"list", "--shard", "1/1"}, {{"OMPI_COMM_WORLD_RANK", "1"}, {"OMPI_COMM_WORLD_SIZE", "4"}}).Status,
              0);
    EXPECT_TRUE(std::filesystem::exists(file("list.journal")));
}

} // namespace
