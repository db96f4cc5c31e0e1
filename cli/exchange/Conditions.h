// Which content is wanted at all: a range of it, or only what is new.
#pragma once

#include "cli/options/Settings.h"

#include <netrove/request.h>
#include <netrove/response.h>

namespace netrove::cli {

// Adds Range, If-None-Match, If-Modified-Since, If-Unmodified-Since. Raises FileNotRead; a usage failure for what is
// neither a date nor a file.
void addConditions(netrove::Request& request, const Settings& settings);

// Raises RangeRefused where a range was asked for and other content comes.
void checkRange(const Settings& settings, const netrove::Response& head);

// Writes the ETag of a response that was asked for its ETag. Raises FileNotWritten.
void saveTag(const Settings& settings, const netrove::Response& response);

} // namespace netrove::cli
