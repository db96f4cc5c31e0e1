/// @file
/// What this host can decode.
#pragma once

#include <string>

namespace vantik {

/// The content codings that this host's libcurl decodes, as a value of Accept-Encoding: "deflate, gzip, br, zstd".
__attribute__((visibility("default"))) std::string contentCodings();

} // namespace vantik
