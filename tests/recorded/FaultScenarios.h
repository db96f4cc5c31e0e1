// Whole exchanges that are run again and again while one call after the other is made to fail.
#pragma once

#include "tests/support/curl/CurlInterposer.h"

#include <functional>
#include <string>
#include <vector>

namespace testsupport {

// One run of a scenario, in a scope of its own.
struct PlayedRun {
    std::string Failure = "nothing"; // "VANTIK:webservices:InternalError(text)", "nothing"
    std::string Outcome;             // content and the like
    std::vector<CurlCall> Calls;     // libcurl calls of the exchange, up to its failure or its end
    std::string ConsumerCalls;       // what the consumer saw, if the scenario has one: "start put close"
    std::string ScopeAfterwards;     // "usable", or what a plain GET of the same scope then failed with
    std::size_t ArraysLeft = 0;      // host arrays that outlive the scope

    bool leavesConsumerOpen() const {
        return ConsumerCalls.starts_with("start") && ConsumerCalls.find(" close") == std::string::npos;
    }
};

// Called around an exchange: what prepares it and what looks at the scope afterwards lies outside.
struct FaultInjection {
    std::function<void(CurlInterposer&)> Arm;
    std::function<void()> Disarm = [] {};
};

struct Scenario {
    const char* Name;
    PlayedRun (*Play)(const FaultInjection& faults);
};

// A GET and a reopened GET of one object; an upload from memory; an upload from a provider into a consumer with a
// reporter; content saved to a file; a login by Digest; content in gzip; new handles for the scope.
const std::vector<Scenario>& faultScenarios();

} // namespace testsupport
