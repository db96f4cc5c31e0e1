// One name for each file, however it is written: absolute, without dots, and without links to folders.
#pragma once

#include <string>
#include <unordered_map>

namespace netrove::cli {

// Asks the file system once for each folder, so it is right only as long as nobody moves folders. Files need not exist;
// what does not exist, or cannot be looked up, is taken as written.
class RealNames {
public:
    // A link at the end means the file that it leads to; a dangling link is a file of its own.
    std::string of(const std::string& path);
    // A link at the end means the link itself.
    std::string ofEntry(const std::string& path);

private:
    const std::string& folder(const std::string& path);

    std::unordered_map<std::string, std::string> Folders; // some: as they are written, and their names with a slash
};

} // namespace netrove::cli
