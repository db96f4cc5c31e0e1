#include "cli/batch/manifest/BatchShard.h"

#include "cli/failures/CliFailure.h"
#include "cli/options/NumberText.h"

#include <netrove/text.h>

#include <optional>
#include <string_view>

namespace netrove::cli {

namespace {

constexpr std::size_t kMostShards = 1'000'000;
// From here on Slurm numbers what is not really a step, such as the batch script itself.
constexpr std::size_t kFirstReservedStep = 0xFFFFFF00;

class Variables {
public:
    explicit Variables(const Environment& environment) : Get(environment) {}

    bool has(const char* name) const {
        const char* value = Get(name);
        return value != nullptr && *value != '\0';
    }
    std::size_t number(const char* name) const {
        const char* value = Get(name);
        const auto result = wholeNumber(value == nullptr ? "" : value);
        if (!result) {
            failUsage(std::string("the variable ") + name +
                      " does not hold a number; choose the part with --shard I/N");
        }
        return *result;
    }

private:
    const Environment& Get;
};

BatchShard checked(BatchShard shard) {
    const std::string from = shard.Source.empty() ? "" : ", from " + shard.Source;
    if (shard.Count == 0 || shard.Count > kMostShards || shard.Index == 0 || shard.Index > shard.Count) {
        failUsage("there is no shard " + std::to_string(shard.Index) + " of " + std::to_string(shard.Count) + from +
                  "; shards are counted from 1");
    }
    return shard;
}

BatchShard parseOption(const std::string& text) {
    const auto slash = text.find('/');
    const auto index = wholeNumber(std::string_view(text).substr(0, slash));
    const auto count = slash == text.npos ? std::nullopt : wholeNumber(std::string_view(text).substr(slash + 1));
    if (!index || !count) {
        failUsage("'" + printable(text) + "' is not a valid value for --shard; write I/N, as in 2/8");
    }
    return {*index, *count, "--shard"};
}

// GNU parallel numbers its jobs but does not say how many there are.
std::optional<BatchShard> byParallel(const Variables& variables) {
    if (!variables.has("PARALLEL_SEQ") || !variables.has("NETROVE_SHARDS")) {
        return std::nullopt;
    }
    return BatchShard{variables.number("PARALLEL_SEQ"), variables.number("NETROVE_SHARDS"),
                      "PARALLEL_SEQ and NETROVE_SHARDS"};
}

std::optional<BatchShard> byOpenMpi(const Variables& variables) {
    if (!variables.has("OMPI_COMM_WORLD_RANK") || !variables.has("OMPI_COMM_WORLD_SIZE")) {
        return std::nullopt;
    }
    return BatchShard{variables.number("OMPI_COMM_WORLD_RANK") + 1, variables.number("OMPI_COMM_WORLD_SIZE"),
                      "OMPI_COMM_WORLD_RANK"};
}

// The tasks of a job step. A batch script has the variables of the job's tasks too, but it runs once: without a step
// nobody does the other parts.
std::optional<BatchShard> bySlurmStep(const Variables& variables) {
    if (!variables.has("SLURM_PROCID")) {
        return std::nullopt;
    }
    const char* count = variables.has("SLURM_STEP_NUM_TASKS") ? "SLURM_STEP_NUM_TASKS" : "SLURM_NTASKS";
    if (!variables.has(count)) {
        return std::nullopt;
    }
    if (variables.has("SLURM_JOB_ID")) {
        const char* step = variables.has("SLURM_STEP_ID") ? "SLURM_STEP_ID" : "SLURM_STEPID";
        if (!variables.has(step) || variables.number(step) >= kFirstReservedStep) {
            return std::nullopt;
        }
    }
    return BatchShard{variables.number("SLURM_PROCID") + 1, variables.number(count), "SLURM_PROCID"};
}

// An array may begin anywhere, and its numbers may be evenly spaced with gaps.
std::optional<BatchShard> bySlurmArray(const Variables& variables) {
    if (!variables.has("SLURM_ARRAY_TASK_ID") || !variables.has("SLURM_ARRAY_TASK_COUNT")) {
        return std::nullopt;
    }
    const std::size_t id = variables.number("SLURM_ARRAY_TASK_ID");
    const std::size_t count = variables.number("SLURM_ARRAY_TASK_COUNT");
    const std::size_t first = variables.has("SLURM_ARRAY_TASK_MIN") ? variables.number("SLURM_ARRAY_TASK_MIN") : 0;
    const std::size_t last =
        variables.has("SLURM_ARRAY_TASK_MAX") ? variables.number("SLURM_ARRAY_TASK_MAX") : first + count - 1;
    const std::size_t steps = count > 1 ? count - 1 : 1;
    const bool even = count != 0 && id >= first && last >= first && (last - first) % steps == 0 &&
                      (count > 1 ? last > first : last == first);
    const std::size_t step = even && count > 1 ? (last - first) / steps : 1;
    if (!even || (id - first) % step != 0) {
        failUsage("the numbers of this Slurm array are not evenly spaced; choose the part with --shard I/N");
    }
    return BatchShard{(id - first) / step + 1, count, "SLURM_ARRAY_TASK_ID"};
}

// Each element of an array may start several tasks.
BatchShard within(const BatchShard& outer, const BatchShard& inner) {
    return {(outer.Index - 1) * inner.Count + inner.Index, outer.Count * inner.Count,
            outer.Source + " and " + inner.Source};
}

} // namespace

std::string BatchShard::fileSuffix() const {
    return whole() ? "" : "." + std::to_string(Index) + "-of-" + std::to_string(Count);
}

// The innermost launcher decides: mpirun inside a Slurm job leaves Slurm's variables as set for its own helpers.
BatchShard chooseShard(const std::string& option, const Environment& environment) {
    if (!option.empty()) {
        return checked(parseOption(option));
    }
    const Variables variables(environment);
    if (const auto shard = byParallel(variables)) {
        return checked(*shard);
    }
    auto tasks = byOpenMpi(variables);
    if (!tasks) {
        tasks = bySlurmStep(variables);
    }
    const auto array = bySlurmArray(variables);
    if (tasks && array) {
        return checked(within(checked(*array), checked(*tasks)));
    }
    if (tasks || array) {
        return checked(tasks ? *tasks : *array);
    }
    return {};
}

} // namespace netrove::cli
