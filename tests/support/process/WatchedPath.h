// A file or folder that goes with its owner, and with a test that is killed before it can remove anything.
#pragma once

#include "tests/support/process/Watcher.h"

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace testsupport {

class WatchedPath {
public:
    // It may come to be later, or never.
    explicit WatchedPath(std::string path) : Path(std::move(path)) { watcher::watchPath(Path); }
    ~WatchedPath() {
        std::error_code ignored;
        std::filesystem::remove_all(Path, ignored);
        watcher::forgetPath(Path);
    }
    WatchedPath(const WatchedPath&) = delete;
    WatchedPath& operator=(const WatchedPath&) = delete;

    const std::string& path() const noexcept { return Path; }

private:
    std::string Path;
};

} // namespace testsupport
