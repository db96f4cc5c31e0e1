// The name that a server proposes for a file (RFC 6266).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace netrove {

// A plain name of a file in UTF-8, of at most 200 bytes, that leads to no other folder and to no device. Nothing where
// the field is not valid, has no name, or has one that is refused; the URL names the file then.
std::optional<std::string> fileNameOf(std::string_view contentDisposition);

} // namespace netrove
