// The one name that a file has, however it is written: absolute, without dots, and without links to folders.
#pragma once

#include <string>
#include <unordered_map>

namespace netrove::cli {

// Asks the file system once for each folder, so it serves for as long as nobody moves folders. Nothing needs to be
// there; what is not there, or cannot be asked for, is taken as it is written.
class RealNames {
public:
    // A link at the end counts as the file behind it; one that leads nowhere is a file by itself.
    std::string of(const std::string& path);
    // A link at the end counts by itself.
    std::string ofEntry(const std::string& path);

private:
    const std::string& folder(const std::string& path);

    std::unordered_map<std::string, std::string> Folders; // as they are written, and their names with a slash
};

} // namespace netrove::cli
