// The hint in a failure about a name that nobody knows: which known one may have been meant.
#pragma once

#include "host/Messages.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantik::detail {

// The candidate with the fewest edits (a character put in, left out or changed; letter case counts half) from `name`,
// at most a third of the length of its last part. Empty: none is close.
std::string nearestName(std::string_view name, std::span<const std::string> candidates);

// The arguments of a failure, then the hint, or "none". The texts of these failures leave the hint out then.
std::vector<resource_core::MsgArgument> withHint(std::vector<resource_core::MsgArgument> arguments, std::string hint);

} // namespace vantik::detail
