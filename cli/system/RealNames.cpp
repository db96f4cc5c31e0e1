#include "cli/system/RealNames.h"

#include <filesystem>
#include <system_error>

namespace netrove::cli {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostFolders = 10'000; // that are remembered

std::string resolved(const fs::path& path) {
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error);
    if (error) {
        return path.lexically_normal().string();
    }
    const fs::path real = fs::weakly_canonical(absolute, error);
    return error ? absolute.lexically_normal().string() : real.string();
}

} // namespace

std::string RealNames::of(const std::string& path) {
    std::string entry = ofEntry(path);
    std::error_code ignored;
    return fs::is_symlink(fs::symlink_status(entry, ignored)) ? resolved(entry) : entry;
}

std::string RealNames::ofEntry(const std::string& path) {
    const auto slash = path.rfind('/');
    const std::string name = path.substr(slash == path.npos ? 0 : slash + 1);
    if (name.empty() || name == "." || name == "..") {
        return resolved(path.empty() ? "." : path);
    }
    return folder(slash == path.npos ? "." : path.substr(0, slash + 1)) + name;
}

const std::string& RealNames::folder(const std::string& path) {
    if (Folders.size() >= kMostFolders) {
        Folders.clear();
    }
    std::string& known = Folders[path];
    if (known.empty()) {
        known = resolved(path);
        if (!known.ends_with('/')) {
            known += '/';
        }
    }
    return known;
}

} // namespace netrove::cli
