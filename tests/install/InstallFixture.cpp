#include "tests/install/InstallFixture.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace installtest {

namespace fs = std::filesystem;

testsupport::Outcome shell(const std::string& commands, const std::string& folder,
                           std::map<std::string, std::string> environment) {
    environment.insert({{"PATH", "/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}, {"HOME", folder}});
    return testsupport::run(
        {"-euc", "exec 2>&1\n" + commands},
        {.Input = "", .Environment = std::move(environment), .Folder = folder, .Executable = "/bin/bash"});
}

void makeIn(const testsupport::TemporaryFolder& folder, const std::string& commands) {
    const testsupport::Outcome outcome = shell(commands, folder.path());
    if (outcome.Status != 0) {
        throw std::runtime_error(outcome.Out);
    }
}

std::unique_ptr<testsupport::TemporaryFolder> InstalledTree::Folder;

void InstalledTree::SetUpTestSuite() {
    Folder = std::make_unique<testsupport::TemporaryFolder>();
    makeIn(*Folder,
           "cmake --install '" NETROVE_BUILD_FOLDER "' --prefix first/place\nmkdir second\nmv first/place second/");
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

std::vector<std::string> clientHeaders() {
    std::vector<std::string> headers = {"netrove/client.h", "netrove/pool.h", "netrove/testing.h"};
    for (std::size_t index = 0; index < headers.size(); ++index) {
        for (const std::string& included :
             docstest::matches(source("client/include/" + headers[index]), "#include <(netrove/[^>]+)>")) {
            if (std::ranges::find(headers, included) == headers.end()) {
                headers.push_back(included);
            }
        }
    }
    std::ranges::sort(headers);
    return headers;
}

} // namespace installtest
