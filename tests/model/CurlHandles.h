// Counts libcurl's handles: this executable's functions stand in front of libcurl's.
#pragma once

namespace model {

// Easy and multi handles that have been made and not been cleaned up.
long liveCurlHandles();

} // namespace model
