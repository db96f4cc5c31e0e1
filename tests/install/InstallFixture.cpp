#include "tests/install/InstallFixture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <sys/wait.h>

namespace installtest {

namespace fs = std::filesystem;

namespace {

// For a shell, as one word.
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return result + "'";
}

} // namespace

ShellOutcome shell(const std::string& commands, const std::string& folder,
                   const std::map<std::string, std::string>& environment) {
    std::map<std::string, std::string> values = {
        {"PATH", "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}, {"HOME", folder}, {"LANG", "C.UTF-8"}};
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TMPDIR"}) {
        if (const char* value = std::getenv(name)) {
            values[name] = value;
        }
    }
    for (const auto& [name, value] : environment) {
        values[name] = value;
    }
    std::string line = "cd " + quoted(folder) + " && exec env -i";
    for (const auto& [name, value] : values) {
        line += " " + quoted(name + "=" + value);
    }
    line += " bash -euc " + quoted(commands) + " 2>&1 </dev/null";

    FILE* stream = popen(line.c_str(), "r");
    if (stream == nullptr) {
        throw std::runtime_error("no shell");
    }
    ShellOutcome outcome;
    char buffer[4096];
    for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, stream)) > 0;) {
        outcome.Out.append(buffer, count);
    }
    const int status = pclose(stream);
    outcome.Status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

std::unique_ptr<testsupport::TemporaryFolder> InstalledTree::Folder;

void InstalledTree::SetUpTestSuite() {
    Folder = std::make_unique<testsupport::TemporaryFolder>();
    const ShellOutcome outcome =
        shell("cmake --install '" NETROVE_BUILD_FOLDER "' --prefix first/place\nmkdir second\nmv first/place second/",
              Folder->path());
    if (outcome.Status != 0) {
        throw std::runtime_error(outcome.Out);
    }
}

void InstalledTree::TearDownTestSuite() {
    Folder.reset();
}

std::string InstalledTree::prefix() {
    return Folder->file("second/place");
}

std::string InstalledTree::library(const std::string& file) {
    return prefix() + "/" NETROVE_LIBRARY_FOLDER "/" + file;
}

std::string InstalledTree::scratch(const std::string& name) {
    const std::string folder = Folder->file(name);
    fs::create_directory(folder);
    return folder;
}

std::vector<std::string> filesBelow(const std::string& folder) {
    std::vector<std::string> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_symlink() || !entry.is_directory()) {
            files.push_back(entry.path().lexically_relative(folder).string());
        }
    }
    std::ranges::sort(files);
    return files;
}

std::string source(const std::string& path) {
    return std::string(NETROVE_SOURCE_FOLDER "/") + path;
}

std::string sanitizerFlags() {
    const std::string kinds = NETROVE_SANITIZERS;
    return kinds.empty() ? "" : "-fsanitize=" + kinds;
}

} // namespace installtest
