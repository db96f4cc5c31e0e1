// Random sequences of calls through the class, over one to three objects that share a scope, with host objects that
// fail, stop and call back. Whatever the order: nothing cut passes for whole, nothing of one object reaches the server
// of another, nothing is read that has been freed, and each object can be closed, opened and used.
//
// A few hundred sequences by default, always the same. More, and others:
//   NETROVE_MODEL_SEQUENCES=20000 NETROVE_MODEL_SEED=7 netrove_model_tests
#include "tests/model/Commands.h"
#include "tests/model/Worker.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

std::uint64_t setting(const char* variable, std::uint64_t otherwise) {
    const char* text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

class Sequences : public ::testing::TestWithParam<int> {};

TEST_P(Sequences, HoldTheirPromises) {
    model::Worker worker;
    rc::detail::TestParams params;
    params.seed = setting("NETROVE_MODEL_SEED", 1) * 1000 + static_cast<std::uint64_t>(GetParam());
    params.maxSuccess = static_cast<int>(setting("NETROVE_MODEL_SEQUENCES", 300) / 4);
    std::string smallest; // what failed last while it was made smaller
    const auto result = rc::detail::checkTestable(
        [&] {
            const model::Sequence sequence = *model::sequences();
            const std::string problem = worker.play(sequence);
            if (!problem.empty()) {
                smallest = problem + model::describe(sequence);
                worker.losePatience();
                RC_FAIL("a sequence");
            }
        },
        rc::detail::TestMetadata{}, params);
    EXPECT_TRUE(result.is<rc::detail::SuccessResult>()) << smallest;
    EXPECT_EQ(worker.end(), "") << "after the last sequence";
}

INSTANTIATE_TEST_SUITE_P(Part, Sequences, ::testing::Range(1, 5));

} // namespace
