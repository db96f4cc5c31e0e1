// The hint in a failure about an unknown name: which known name may have been meant.
#pragma once

#include "host/Messages.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantik::detail {

// The candidate with the fewest edits from `name`: a character inserted, deleted or replaced is one, another case of a
// letter half, a word of a name such as "copyContentToFile" too many or too few two. At most a third of the length of
// the last part of `name`, and at most three; words that the candidate has in addition do not count for that. Empty
// where none is close.
std::string nearestName(std::string_view name, std::span<const std::string> candidates);

// The arguments of a failure, then the hint, or "none". The texts of these failures show no hint for "none".
std::vector<resource_core::MsgArgument> withHint(std::vector<resource_core::MsgArgument> arguments, std::string hint);

} // namespace vantik::detail
