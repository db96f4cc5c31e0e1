// What an operation fails with, as it is reported.
#pragma once

#include "cli/failures/ExitStatus.h"

#include <netrove/response.h>

#include <functional>
#include <optional>

namespace netrove::cli {

// Nothing where `operation` went well. `before`, if it is not null, gets what had come before the failure.
std::optional<Verdict> verdictOf(Circumstances circumstances, const std::function<void()>& operation,
                                 netrove::Response* before = nullptr);

} // namespace netrove::cli
