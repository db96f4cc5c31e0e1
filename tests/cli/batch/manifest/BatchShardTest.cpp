#include "cli/batch/manifest/BatchShard.h"

#include "vantik/Failure.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>

namespace {

using netrove::cli::BatchShard;

// With an environment of "NAME=value", parted by blanks.
BatchShard chosen(const std::string& option, const std::string& environment = "") {
    std::map<std::string, std::string> variables;
    std::istringstream parts(environment);
    for (std::string name, value; std::getline(parts >> std::ws, name, '=') && parts >> value;) {
        variables[name] = value;
    }
    return netrove::cli::chooseShard(option, [&](const char* name) {
        const auto found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    });
}

bool refused(const std::string& option, const std::string& environment = "") {
    try {
        chosen(option, environment);
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

TEST(BatchShard, IsEverythingOrAsTheOptionSays) {
    EXPECT_TRUE(chosen("").whole());
    EXPECT_EQ(chosen("").Source, "");
    EXPECT_EQ(chosen("").fileSuffix(), "");
    const BatchShard shard = chosen("2/8");
    EXPECT_EQ(shard.Index, 2u);
    EXPECT_EQ(shard.Count, 8u);
    EXPECT_EQ(shard.fileSuffix(), ".2-of-8");
    for (const char* bad :
         {"0/2", "3/2", "1/0", "1", "/2", "1/", "-1/2", "1/2x", "a/b", "1/2/3", "1/99999999999999999999"}) {
        EXPECT_TRUE(refused(bad)) << bad;
    }
}

std::string array(const char* id, const char* count, const char* min, const char* max) {
    return std::string("SLURM_ARRAY_TASK_ID=") + id + " SLURM_ARRAY_TASK_COUNT=" + count +
           " SLURM_ARRAY_TASK_MIN=" + min + " SLURM_ARRAY_TASK_MAX=" + max;
}

TEST(BatchShard, IsAsTheLauncherSays) {
    const std::pair<std::string, const char*> rows[] = {
        {"SLURM_PROCID=0 SLURM_NTASKS=4", "1/4"},
        // of a step with fewer tasks than the job
        {"SLURM_PROCID=1 SLURM_NTASKS=8 SLURM_STEP_NUM_TASKS=2 SLURM_JOB_ID=5 SLURM_STEP_ID=0", "2/2"},
        // a batch script, which runs once whatever the number of tasks
        {"SLURM_PROCID=0 SLURM_NTASKS=8 SLURM_JOB_ID=5", "1/1"},
        {"SLURM_PROCID=0 SLURM_NTASKS=8 SLURM_JOB_ID=5 SLURM_STEPID=4294967291", "1/1"},
        {"SLURM_PROCID=0", "1/1"},
        {array("0", "4", "0", "3"), "1/4"},
        {array("30", "3", "10", "30"), "3/3"},
        {array("7", "1", "7", "7"), "1/1"},
        // tasks of a step within an array
        {array("2", "2", "1", "2") + " SLURM_PROCID=0 SLURM_NTASKS=3 SLURM_JOB_ID=5 SLURM_STEP_ID=0", "4/6"},
        {"OMPI_COMM_WORLD_RANK=2 OMPI_COMM_WORLD_SIZE=3", "3/3"},
        // mpirun inside a Slurm job: Slurm's variables are those of its own helpers
        {"OMPI_COMM_WORLD_RANK=2 OMPI_COMM_WORLD_SIZE=16 SLURM_PROCID=0 SLURM_NTASKS=2", "3/16"},
        {"PARALLEL_SEQ=2 PARALLEL_JOBSLOT=1 NETROVE_SHARDS=5", "2/5"},
        {"PARALLEL_SEQ=2 PARALLEL_JOBSLOT=1", "1/1"},
        {"NETROVE_SHARDS=5", "1/1"},
    };
    for (const auto& [environment, expected] : rows) {
        const BatchShard shard = chosen("", environment);
        EXPECT_EQ(std::to_string(shard.Index) + "/" + std::to_string(shard.Count), expected) << environment;
    }
}

TEST(BatchShard, NonsenseInTheEnvironmentIsRefusedAndTheOptionHelps) {
    for (const std::string& nonsense :
         {std::string("OMPI_COMM_WORLD_RANK=3 OMPI_COMM_WORLD_SIZE=3"),
          std::string("OMPI_COMM_WORLD_RANK=x OMPI_COMM_WORLD_SIZE=3"), std::string("PARALLEL_SEQ=6 NETROVE_SHARDS=5"),
          array("3", "3", "1", "8"), array("4", "3", "1", "5"),
          std::string("SLURM_ARRAY_TASK_ID=1 SLURM_ARRAY_TASK_COUNT=0")}) {
        EXPECT_TRUE(refused("", nonsense)) << nonsense;
        EXPECT_EQ(chosen("1/1", nonsense).Count, 1u);
    }
}

} // namespace
