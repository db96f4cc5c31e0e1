// Failures of the client as the command line reports them: under its own catalogue, as scripts know them.
#pragma once

#include "vantik/Failure.h"

#include <netrove/error.h>

namespace netrove::cli {

vantik::Message messageOf(const netrove::Error& error);

} // namespace netrove::cli
