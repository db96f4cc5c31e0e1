#include "cli/batch/BatchShard.h"

#include "vantik/Failure.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using netrove::cli::BatchShard;
using netrove::cli::chooseShard;
using Variables = std::map<std::string, std::string>;

BatchShard chosen(const std::string& option, const Variables& variables = {}) {
    return chooseShard(option, [&](const char* name) {
        const auto found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    });
}

std::string shownAs(const Variables& variables) {
    const BatchShard shard = chosen("", variables);
    return std::to_string(shard.Index) + "/" + std::to_string(shard.Count);
}

bool refused(const std::string& option, const Variables& variables = {}) {
    try {
        chosen(option, variables);
        return false;
    } catch (const vantik::Failure& failure) {
        return failure.identifier() == "NETROVE:cli:Usage";
    }
}

TEST(BatchShard, EveryPlaceBelongsToExactlyOne) {
    for (const std::size_t count : {1u, 2u, 3u, 7u}) {
        for (std::size_t place = 0; place < 50; ++place) {
            std::size_t owners = 0;
            for (std::size_t index = 1; index <= count; ++index) {
                owners += BatchShard{index, count}.has(place) ? 1 : 0;
            }
            EXPECT_EQ(owners, 1u) << place << " of " << count;
        }
    }
}

TEST(BatchShard, WithoutAWordItIsEverything) {
    const BatchShard shard = chosen("");
    EXPECT_TRUE(shard.whole());
    EXPECT_EQ(shard.Source, "");
    EXPECT_EQ(shard.fileSuffix(), "");
}

TEST(BatchShard, TheOptionIsIOfN) {
    const BatchShard shard = chosen("2/8");
    EXPECT_EQ(shard.Index, 2u);
    EXPECT_EQ(shard.Count, 8u);
    EXPECT_EQ(shard.fileSuffix(), ".2-of-8");
    for (const char* bad :
         {"0/2", "3/2", "1/0", "1", "/2", "1/", "-1/2", "1/2x", "a/b", "1/2/3", "1/99999999999999999999"}) {
        EXPECT_TRUE(refused(bad)) << bad;
    }
}

TEST(BatchShard, TheEnvironmentSaysWhereALauncherRuns) {
    struct Row {
        Variables Given;
        const char* Expected;
    };
    const Row rows[] = {
        {{{"SLURM_PROCID", "0"}, {"SLURM_NTASKS", "4"}}, "1/4"},
        // of a step with fewer tasks than the job
        {{{"SLURM_PROCID", "1"},
          {"SLURM_NTASKS", "8"},
          {"SLURM_STEP_NUM_TASKS", "2"},
          {"SLURM_JOB_ID", "5"},
          {"SLURM_STEP_ID", "0"}},
         "2/2"},
        // a batch script, which runs once whatever the number of tasks
        {{{"SLURM_PROCID", "0"}, {"SLURM_NTASKS", "8"}, {"SLURM_JOB_ID", "5"}}, "1/1"},
        {{{"SLURM_PROCID", "0"}, {"SLURM_NTASKS", "8"}, {"SLURM_JOB_ID", "5"}, {"SLURM_STEPID", "4294967291"}}, "1/1"},
        {{{"SLURM_PROCID", "0"}}, "1/1"},
        {{{"SLURM_ARRAY_TASK_ID", "0"},
          {"SLURM_ARRAY_TASK_COUNT", "4"},
          {"SLURM_ARRAY_TASK_MIN", "0"},
          {"SLURM_ARRAY_TASK_MAX", "3"}},
         "1/4"},
        {{{"SLURM_ARRAY_TASK_ID", "30"},
          {"SLURM_ARRAY_TASK_COUNT", "3"},
          {"SLURM_ARRAY_TASK_MIN", "10"},
          {"SLURM_ARRAY_TASK_MAX", "30"}},
         "3/3"},
        {{{"SLURM_ARRAY_TASK_ID", "7"},
          {"SLURM_ARRAY_TASK_COUNT", "1"},
          {"SLURM_ARRAY_TASK_MIN", "7"},
          {"SLURM_ARRAY_TASK_MAX", "7"}},
         "1/1"},
        // tasks of a step within an array
        {{{"SLURM_ARRAY_TASK_ID", "2"},
          {"SLURM_ARRAY_TASK_COUNT", "2"},
          {"SLURM_ARRAY_TASK_MIN", "1"},
          {"SLURM_ARRAY_TASK_MAX", "2"},
          {"SLURM_PROCID", "0"},
          {"SLURM_NTASKS", "3"},
          {"SLURM_JOB_ID", "5"},
          {"SLURM_STEP_ID", "0"}},
         "4/6"},
        {{{"OMPI_COMM_WORLD_RANK", "2"}, {"OMPI_COMM_WORLD_SIZE", "3"}}, "3/3"},
        // mpirun inside a Slurm job: Slurm's variables are those of its own helpers
        {{{"OMPI_COMM_WORLD_RANK", "2"}, {"OMPI_COMM_WORLD_SIZE", "16"}, {"SLURM_PROCID", "0"}, {"SLURM_NTASKS", "2"}},
         "3/16"},
        {{{"PARALLEL_SEQ", "2"}, {"PARALLEL_JOBSLOT", "1"}, {"NETROVE_SHARDS", "5"}}, "2/5"},
        {{{"PARALLEL_SEQ", "2"}, {"PARALLEL_JOBSLOT", "1"}}, "1/1"},
        {{{"NETROVE_SHARDS", "5"}}, "1/1"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(shownAs(row.Given), row.Expected) << row.Given.begin()->first;
    }
}

TEST(BatchShard, NonsenseInTheEnvironmentIsRefusedAndTheOptionHelps) {
    const Variables nonsense[] = {
        {{"OMPI_COMM_WORLD_RANK", "3"}, {"OMPI_COMM_WORLD_SIZE", "3"}},
        {{"OMPI_COMM_WORLD_RANK", "x"}, {"OMPI_COMM_WORLD_SIZE", "3"}},
        {{"PARALLEL_SEQ", "6"}, {"NETROVE_SHARDS", "5"}},
        {{"SLURM_ARRAY_TASK_ID", "3"},
         {"SLURM_ARRAY_TASK_COUNT", "3"},
         {"SLURM_ARRAY_TASK_MIN", "1"},
         {"SLURM_ARRAY_TASK_MAX", "8"}},
        {{"SLURM_ARRAY_TASK_ID", "4"},
         {"SLURM_ARRAY_TASK_COUNT", "3"},
         {"SLURM_ARRAY_TASK_MIN", "1"},
         {"SLURM_ARRAY_TASK_MAX", "5"}},
        {{"SLURM_ARRAY_TASK_ID", "1"}, {"SLURM_ARRAY_TASK_COUNT", "0"}},
    };
    for (const Variables& variables : nonsense) {
        EXPECT_TRUE(refused("", variables)) << variables.begin()->first;
        EXPECT_EQ(chosen("1/1", variables).Count, 1u);
    }
}

} // namespace
