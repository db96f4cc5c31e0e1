// Every host operation of whole exchanges fails in turn, in three ways. The caller sees it, but for the few places
// where a failure changes nothing; nothing leaks, and the scope stays usable.
#include "tests/recorded/FaultScenarios.h"
#include "tests/recorded/HostOperations.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <vector>

namespace testsupport {

namespace {

using Names = std::vector<std::string>;

struct Fault {
    const char* Name;
    HostFault How;
    Names Reports; // one of these
};

const Fault kFaults[] = {
    {"UserException", HostFault::UserException, {std::string(kInjectedIdentifier) + "()"}},
    {"OutOfMemory", // as it is, or from the send and the copy as a failed connection
     HostFault::OutOfMemory,
     {"VANTIK:host:OutOfMemory()", "VANTIK:webservices:ConnectionFailed(std::bad_alloc)"}},
    {"UnknownException",
     HostFault::UnknownException,
     {"VANTIK:host:Failure(an exception that is not a std::exception)"}},
};

// The operations whose failure nobody sees, in order: a "Location" that cannot be resolved, for each of the two
// exchanges that have one, and the count that closes a line of the trace.
Names quietOperations(const std::string& scenario) {
    const Names target = {"to_ustring", "IRI", "resolveAgainst", "toAsciiString", "to_string by a converter"};
    Names names;
    if (scenario == "GetTwice") {
        names = target;
        names.insert(names.end(), target.begin(), target.end());
    }
    names.emplace_back("find");
    if (scenario != "RenewHandles") {
        names.emplace_back("findOrInsert");
    }
    if (scenario == "GetTwice" || scenario == "PutFromMemory" || scenario == "StreamBothWays") {
        names.emplace_back("find");
    }
    return names;
}

class HostFaultTest : public ::testing::TestWithParam<std::tuple<Scenario, Fault>> {};

TEST_P(HostFaultTest, IsReportedAndLeavesTheScopeUsable) {
    const auto& [scenario, fault] = GetParam();
    HostOperations host;
    Names quiet;
    Names unclosed;
    std::size_t nth = 1;
    for (;; ++nth) {
        const PlayedRun run = scenario.Play(
            {[&host, nth, &fault = fault](CurlInterposer&) { host.start(nth, fault.How); }, [&] { host.stop(); }});
        if (!host.hasFailed()) {
            break; // there is no n-th call
        }
        const std::string& operation = host.calls()[nth - 1];
        SCOPED_TRACE(operation + ", call " + std::to_string(nth));
        if (run.Failure == "nothing") {
            quiet.push_back(operation);
        } else {
            EXPECT_THAT(fault.Reports, ::testing::Contains(run.Failure));
        }
        EXPECT_EQ(run.ScopeAfterwards, "usable");
        EXPECT_EQ(run.ArraysLeft, 0U);
        if (run.leavesConsumerOpen()) {
            unclosed.push_back(operation);
        }
    }
    EXPECT_EQ(quiet, quietOperations(scenario.Name));
    // A consumer that was started is closed, unless it is the close itself that fails, or what failed is not a
    // standard exception.
    if (fault.How != HostFault::UnknownException) {
        const bool hasConsumer = scenario.Name == std::string("StreamBothWays");
        EXPECT_EQ(unclosed, hasConsumer ? (Names{"makeInterned", "omCallMethod"}) : Names{});
    }
    EXPECT_GT(nth, 15U);
}

INSTANTIATE_TEST_SUITE_P(Exchanges, HostFaultTest,
                         ::testing::Combine(::testing::ValuesIn(faultScenarios()), ::testing::ValuesIn(kFaults)),
                         [](const auto& info) {
                             return std::string(std::get<Scenario>(info.param).Name) + '_' +
                                    std::get<Fault>(info.param).Name;
                         });

} // namespace
} // namespace testsupport
