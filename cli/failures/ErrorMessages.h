// Failures of the client as the command line reports them: under its own catalogue, as scripts know them.
#pragma once

#include "vantik/Failure.h"

#include <netrove/error.h>

namespace netrove::cli {

vantik::Message messageOf(const netrove::Error& error);

// Without the catalogue's advice about URLs: the hint says what to write.
vantik::Message withoutAdvice(vantik::Message message);

} // namespace netrove::cli
