// What to try after a status that asks for a login.
#pragma once

#include "cli/failures/Circumstances.h"

#include <netrove/error.h>

#include <string>

namespace netrove::cli {

// Empty for any other failure, and where no login has been tried.
std::string loginHint(const netrove::Error& error, const Circumstances& circumstances);

} // namespace netrove::cli
