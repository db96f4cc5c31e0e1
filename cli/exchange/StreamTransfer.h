// Content that is passed on as it comes: to standard output, into a device or a pipe, into the object of --format json.
#pragma once

#include "cli/exchange/Exchange.h"

#include <string>

namespace netrove::cli {

void toStandardOutput(Exchange& exchange, bool guardTerminal);
void toSpecialFile(Exchange& exchange, const std::string& name);
void toJson(Exchange& exchange);

} // namespace netrove::cli
