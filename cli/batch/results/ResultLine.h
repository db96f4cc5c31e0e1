// What programs are told of a transfer: one line of JSON.
#pragma once

#include "cli/batch/journal/BatchHistory.h"
#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/results/BatchOutcome.h"
#include "cli/terminal/Output.h"

#include <string>

namespace netrove::cli {

// Without its end. Credentials are masked, and the text is ASCII.
std::string resultLine(const BatchLine& line, const BatchOutcome& outcome, const Console& console);
// Of a line that this run does not do.
std::string plainLine(const BatchLine& line, const std::string& result, const BatchHistory::Ended* ended);

// A console that also hides the secrets of this line.
Console consoleFor(const BatchLine& line, const Console& console);

} // namespace netrove::cli
