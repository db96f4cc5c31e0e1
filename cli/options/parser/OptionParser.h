// The parser, filled from the option table.
#pragma once

#include "cli/options/Settings.h"
#include "cli/options/table/OptionTable.h"

#include <optional>
#include <string>
#include <vector>

namespace netrove::cli {

// The value of an option that holds a secret, as written.
struct SecretValue {
    std::string Text;
    Secrecy Kind;
};

struct ParseResult {
    cli::Settings Settings;
    std::vector<cli::Settings> Transfers; // get, save, send: one for each URL, the first as in Settings
    std::vector<SecretValue> Secrets;
    std::vector<std::string> Warnings; // of the configuration file
    std::optional<std::string> Help;   // asked for: print this and stop
};

// `usualConfig` is the configuration file that is read, if it is there, unless another one is named or none is wanted.
// Raises a usage failure. The settings are complete except for passwords that must be asked for.
ParseResult parseCommandLine(int argc, const char* const* argv, const std::string& usualConfig = {});

// True if `--json-errors` is among the arguments; for failures of the parse itself.
bool wantsJsonErrors(int argc, const char* const* argv);

// The command line as a shell takes it, without the values of secret options.
std::string shownCommandLine(int argc, const char* const* argv, const std::vector<SecretValue>& secrets);

// Overwrites the values of secret options, and user names and passwords in URLs, so that the list of processes no
// longer shows them. Best effort: they were visible for a moment.
void wipeSecrets(int argc, char** argv, const std::vector<SecretValue>& secrets);

} // namespace netrove::cli
