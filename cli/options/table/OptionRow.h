// A row of the table of options.
#pragma once

#include "cli/options/Settings.h"

#include <string>
#include <string_view>

namespace netrove::cli {

// The commands that an option belongs to, as a set.
enum CommandSet : unsigned {
    kGet = 1u << 0,
    kSave = 1u << 1,
    kSend = 1u << 2,
    kProxy = 1u << 3,
    kDescribe = 1u << 4,
    kDemo = 1u << 5,
    kHelp = 1u << 6,
    kProgram = 1u << 7, // before any command
    kBatch = 1u << 8,
    kSingle = kGet | kSave | kSend,
    kTransfers = kSingle | kBatch,
    kAll = kTransfers | kProxy | kDescribe | kDemo | kHelp | kProgram,
};

// Which part of a value is hidden from the list of processes.
enum class Secrecy { None, Whole, AfterColon, BeforeAt, FieldValue };

// What only some rows say.
struct OptionTraits {
    Secrecy Secret = Secrecy::None;
    std::string_view OtherNames = {}; // further long names, separated by blanks: what users of other programs type
    unsigned Common = 0;              // the commands whose short help shows it
};

struct OptionRow {
    std::string_view LongName;
    char ShortName;             // 0 for none
    std::string_view ValueName; // empty for a flag
    unsigned Commands;
    std::string_view Help;
    // Applies one occurrence, in the order given; a flag's value is empty. Raises a usage failure.
    void (*Apply)(Settings& settings, const std::string& value);
    OptionTraits Traits = {};
    std::string_view Group = {}; // the heading in the help, set by optionTable()
};

} // namespace netrove::cli
