// Rows of the option table, a file for each group. The order of the rows is that of the help.
#pragma once

#include "cli/options/table/OptionRow.h"

#include <span>

namespace netrove::cli {

std::span<const OptionRow> requestOptions();
std::span<const OptionRow> contentOptions();
std::span<const OptionRow> responseOptions();
std::span<const OptionRow> severalOptions();
std::span<const OptionRow> fileOptions();
std::span<const OptionRow> batchOptions();
std::span<const OptionRow> retryOptions();
std::span<const OptionRow> loginOptions();
std::span<const OptionRow> networkOptions();
std::span<const OptionRow> tlsOptions();
std::span<const OptionRow> shownOptions();

// For the lambdas in the rows.
using S = Settings;
using V = const std::string&;

} // namespace netrove::cli
