// Every allocation of whole exchanges fails in turn: those of the library and of the host on its behalf, and those of
// libcurl. The caller sees it, or gets what comes without the failure; nothing is left behind, and the scope stays
// usable.
#include "tests/recorded/FaultScenarios.h"
#include "tests/support/host/AllocationFaults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace testsupport {

namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Within the one call that closes the consumer, and the bookkeeping of this test in it.
constexpr std::size_t kMostOfOneClose = 12;

// A target that cannot be made for want of memory counts as none, like one that the server has malformed.
std::string withoutTarget(std::string outcome) {
    const std::size_t at = outcome.find("no redirect");
    return at == std::string::npos ? outcome : outcome.erase(at, 3);
}

// Handles that are gone and could not be made anew stay gone, and every later open says so.
bool handlesAreGone(const Scenario& scenario, const PlayedRun& run) {
    return scenario.Name == std::string("RenewHandles") &&
           (run.Failure.find("\"curl_easy_init\" failed") != std::string::npos ||
            run.Failure.find("\"curl_multi_init\" failed") != std::string::npos);
}

class MemoryFault : public ::testing::TestWithParam<std::tuple<Scenario, Allocator>> {};

TEST_P(MemoryFault, IsReportedAndLeavesTheScopeUsable) {
    const auto& [scenario, allocator] = GetParam();
    const PlayedRun good = scenario.Play({[](CurlInterposer&) {}});
    ASSERT_EQ(good.Failure, "nothing");
    std::size_t unclosed = 0;
    std::size_t reported = 0;
    for (std::size_t nth = 1;; ++nth) {
        bool failed = false;
        const PlayedRun run =
            scenario.Play({[nth, allocator = allocator](CurlInterposer&) { failAllocation(allocator, nth); },
                           [&] { failed = endAllocationFaults(); }});
        if (!failed) {
            EXPECT_EQ(run.Outcome, good.Outcome);
            break; // there is no n-th allocation
        }
        SCOPED_TRACE("allocation " + std::to_string(nth));
        if (run.Failure == "nothing") {
            EXPECT_EQ(withoutTarget(run.Outcome), good.Outcome);
        } else if (++reported; allocator == Allocator::New) {
            EXPECT_THAT(run.Failure, AnyOf("VANTIK:host:OutOfMemory()", HasSubstr("std::bad_alloc")));
        } else {
            // Without memory for its answer to a challenge, libcurl leaves it at that: the refusal, whole.
            EXPECT_THAT(run.Failure, AnyOf(StartsWith("VANTIK:webservices:"), "401 who?"));
        }
        if (handlesAreGone(scenario, run)) {
            EXPECT_THAT(run.ScopeAfterwards, StartsWith("VANTIK:webservices:InternalError("));
        } else {
            EXPECT_EQ(run.ScopeAfterwards, "usable");
        }
        EXPECT_EQ(run.ArraysLeft, 0U);
        unclosed += run.leavesConsumerOpen() ? 1 : 0;
    }
    EXPECT_LE(unclosed, allocator == Allocator::New ? kMostOfOneClose : 0);
    EXPECT_GT(reported, 10U);
}

INSTANTIATE_TEST_SUITE_P(Exchanges, MemoryFault,
                         ::testing::Combine(::testing::ValuesIn(faultScenarios()),
                                            ::testing::Values(Allocator::New, Allocator::Libcurl)),
                         [](const auto& info) {
                             const bool isNew = std::get<Allocator>(info.param) == Allocator::New;
                             return std::string(std::get<Scenario>(info.param).Name) + (isNew ? "_New" : "_Libcurl");
                         });

} // namespace
} // namespace testsupport
