// Runs as they could have been: the same figures each time.
#pragma once

#include "cli/report/RunReport.h"

#include <map>
#include <string>

namespace clitest {

using namespace netrove::cli;

// A line that began at that second and took so long; `failed`: the kind of its cause, empty for none.
void addLine(RunFacts& facts, std::size_t number, const std::string& url, double start, double seconds,
             const std::string& failed = "");

// By name, each a case that looks different.
std::map<std::string, RunFacts> simulatedRuns();

} // namespace clitest
