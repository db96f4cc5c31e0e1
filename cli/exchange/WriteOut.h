// --write-out: what is said of a transfer after its end, in the words of curl's users.
#pragma once

#include "cli/options/Settings.h"
#include "cli/terminal/Output.h"

#include <netrove/response.h>

#include <chrono>
#include <string>

namespace netrove::cli {

struct TransferFacts {
    const Settings& Asked;
    std::string File;                  // that it makes; empty for none
    const netrove::Response& Response; // as far as it came
    int ExitStatus;
    std::string Failure; // its text; empty for none
    std::chrono::duration<double> Time;
};

// Raises a usage failure for a name that nobody knows.
void checkWriteOut(const std::string& format);

// Writes it to standard output, what follows %{stderr} to standard error.
void writeOut(const std::string& format, const TransferFacts& facts, const Console& console);

// The same as text; what is for standard error is left out.
std::string writeOutText(const std::string& format, const TransferFacts& facts);

} // namespace netrove::cli
