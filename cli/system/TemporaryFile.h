// A file for what does not fit into memory. It has no name and ends with its descriptor.
#pragma once

#include <string>

namespace netrove::cli {

// In a folder that outlives a start of the system, since such folders are those with room.
std::string temporaryFolder();
// Raises FileNotWritten. The caller owns the descriptor.
int openTemporary();

} // namespace netrove::cli
