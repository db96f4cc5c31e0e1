// The program that Watcher.h starts. Its standard input is a socket whose other end goes with the test.
#include "tests/support/process/ProcessState.h"
#include "tests/support/process/Watcher.h"

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

using namespace testsupport::watcher;

bool anybodyRuns(const std::set<pid_t>& groups) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") == std::string::npos) {
            const testsupport::ProcessState state = testsupport::stateOf(name);
            if (!state.hasEnded() && groups.contains(state.Group)) {
                return true;
            }
        }
    }
    return false;
}

void endGroups(const std::set<pid_t>& groups) {
    constexpr std::chrono::seconds patience{60}; // with one that hangs in the system
    constexpr std::chrono::milliseconds betweenLooks{10};
    const auto limit = std::chrono::steady_clock::now() + patience;
    while (anybodyRuns(groups) && std::chrono::steady_clock::now() < limit) {
        for (const pid_t group : groups) {
            ::kill(-group, SIGKILL);
        }
        std::this_thread::sleep_for(betweenLooks);
    }
}

} // namespace

int main() {
    // The test may have connections that are not closed by an exec, and would wait in vain for their end.
    ::close_range(3, ~0U, 0);
    // Nobody's child: whoever stops a test together with all of its children does not stop this one.
    const pid_t watcher = ::fork();
    if (watcher != 0) {
        ::_exit(watcher < 0 ? 1 : 0);
    }
    if (::chdir("/") != 0) {
        return 1;
    }
    std::set<pid_t> groups;
    std::set<std::string> paths;
    std::array<char, kMaximumWord> word;
    for (ssize_t length = 0; (length = ::recv(STDIN_FILENO, word.data(), word.size(), 0)) > 2;) {
        const std::string value(word.data() + 2, static_cast<std::size_t>(length) - 2);
        const bool watch = word[0] == kWatch;
        if (word[1] == kGroup) {
            const pid_t group = std::stoi(value);
            watch ? static_cast<void>(groups.insert(group)) : static_cast<void>(groups.erase(group));
        } else {
            watch ? static_cast<void>(paths.insert(value)) : static_cast<void>(paths.erase(value));
        }
    }
    endGroups(groups); // first, so that nobody writes after the removal
    for (const std::string& path : paths) {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    return 0;
}
