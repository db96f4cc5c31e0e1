// Every host operation of whole exchanges fails in turn, in three ways. The caller is told, but for the few places
// where a failure changes nothing, nothing leaks, and the scope stays usable.
#include "tests/recorded/FaultScenarios.h"
#include "tests/recorded/HostOperations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace testsupport {

namespace {

using Names = std::vector<std::string>;

// What a program is told, one of these.
Names expectedReports(HostFault fault) {
    switch (fault) {
    case HostFault::UserException:
        return {std::string(kInjectedIdentifier) + "()"};
    case HostFault::OutOfMemory: // as it is, or from the send and the copy as a failed connection
        return {"VANTIK:host:OutOfMemory()", "VANTIK:webservices:ConnectionFailed(std::bad_alloc)"};
    default:
        return {"VANTIK:host:Failure(an exception that is not a std::exception)"};
    }
}

// The operations whose failure nobody is told of, in order: a "Location" that cannot be resolved, twice for each
// exchange that has one, and the count that closes a line of the trace.
const std::map<std::string, Names> kQuiet = {
    {"GetTwice",
     {"to_ustring", "IRI", "resolveAgainst", "toAsciiString", "to_string by a converter", "to_ustring", "IRI",
      "resolveAgainst", "toAsciiString", "to_string by a converter", "find", "findOrInsert", "find"}},
    {"PutFromMemory", {"find", "findOrInsert", "find"}},
    {"StreamBothWays", {"find", "findOrInsert", "find"}},
    {"SaveToFile", {"find", "findOrInsert"}},
    {"LogIn", {"find", "findOrInsert"}},
    {"Decode", {"find", "findOrInsert"}},
    {"RenewHandles", {"find"}},
};

using Parameters = std::tuple<Scenario, HostFault>;

class HostFaultTest : public ::testing::TestWithParam<Parameters> {};

TEST_P(HostFaultTest, IsReportedAndLeavesTheScopeUsable) {
    const auto& [scenario, fault] = GetParam();
    HostOperations host;
    Names quiet;
    Names unclosed;
    std::size_t nth = 1;
    for (;; ++nth) {
        const PlayedRun run = scenario.Play(
            {[&host, nth, fault = fault](CurlInterposer&) { host.start(nth, fault); }, [&] { host.stop(); }});
        if (!host.hasFailed()) {
            break; // there is no n-th call
        }
        const std::string& operation = host.calls()[nth - 1];
        SCOPED_TRACE(operation + ", call " + std::to_string(nth));
        if (run.Failure == "nothing") {
            quiet.push_back(operation);
        } else {
            EXPECT_THAT(expectedReports(fault), ::testing::Contains(run.Failure));
        }
        EXPECT_EQ(run.ScopeAfterwards, "usable");
        EXPECT_EQ(run.ArraysLeft, 0U);
        if (run.ConsumerCalls.starts_with("start") && run.ConsumerCalls.find(" close") == std::string::npos) {
            unclosed.push_back(operation);
        }
    }
    EXPECT_EQ(quiet, kQuiet.at(scenario.Name));
    // A consumer that was started is closed, unless it is the close itself that fails, or what failed is no standard
    // exception.
    if (fault != HostFault::UnknownException) {
        const bool hasConsumer = scenario.Name == std::string("StreamBothWays");
        EXPECT_EQ(unclosed, hasConsumer ? (Names{"makeInterned", "omCallMethod"}) : Names{});
    }
    EXPECT_GT(nth, 15U);
}

std::string nameOf(const ::testing::TestParamInfo<Parameters>& info) {
    static const char* const faults[] = {"UserException", "OutOfMemory", "UnknownException"};
    return std::string(std::get<Scenario>(info.param).Name) + '_' +
           faults[static_cast<int>(std::get<HostFault>(info.param))];
}

INSTANTIATE_TEST_SUITE_P(Exchanges, HostFaultTest,
                         ::testing::Combine(::testing::ValuesIn(faultScenarios()),
                                            ::testing::Values(HostFault::UserException, HostFault::OutOfMemory,
                                                              HostFault::UnknownException)),
                         nameOf);

} // namespace
} // namespace testsupport
