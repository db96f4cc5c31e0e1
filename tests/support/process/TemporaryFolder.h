// A folder of its own for a test; removed with everything in it at the end, also where the test is killed.
#pragma once

#include "tests/support/process/WatchedPath.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace testsupport {

class TemporaryFolder {
public:
    std::string path() const { return Path.path(); }
    std::string file(const std::string& name) const { return (std::filesystem::path(path()) / name).string(); }

private:
    WatchedPath Path{create()};

    static std::string create() {
        std::string pattern = (std::filesystem::temp_directory_path() / "netrove-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        return pattern;
    }
};

inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// Raises where the file cannot be read.
inline std::string readFile(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

} // namespace testsupport
