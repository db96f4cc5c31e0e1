#include "tests/integration/support/PeerProcess.h"

#include "tests/support/process/Await.h"
#include "tests/support/server/SocketHandle.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace integrationtest {
namespace {

constexpr const char* kProgramFolders = "/usr/sbin:/usr/bin:/sbin:/bin";
constexpr std::chrono::milliseconds kBetweenLooks{10};
constexpr std::chrono::seconds kPatience{10}; // with a program that is asked to end
constexpr int kAttempts = 5;

std::string endOf(const std::string& file) {
    constexpr std::size_t enough = 4000;
    std::ostringstream content;
    content << std::ifstream(file).rdbuf();
    const std::string text = content.str();
    return text.size() <= enough ? text : text.substr(text.size() - enough);
}

// Inodes of the sockets that listen on a port, as "socket:[number]", the form that a process's descriptors link to.
std::set<std::string> listenersOn(std::uint16_t port) {
    std::set<std::string> sockets;
    for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream file(table);
        std::string line;
        std::getline(file, line); // the heading
        while (std::getline(file, line)) {
            // sl, local address, remote address, state, queues, timers, retransmissions, user, timeouts, inode
            std::istringstream fields(line);
            const std::vector<std::string> words{std::istream_iterator<std::string>(fields), {}};
            constexpr const char* listening = "0A";
            const std::string& local = words.at(1);
            if (words.at(3) == listening && std::stoul(local.substr(local.rfind(':') + 1), nullptr, 16) == port) {
                sockets.insert("socket:[" + words.at(9) + "]");
            }
        }
    }
    return sockets;
}

bool holdsOneOf(const std::set<std::string>& sockets, const std::string& process) {
    std::error_code ended; // in the middle of our looking
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + process + "/fd", ended)) {
        if (sockets.contains(std::filesystem::read_symlink(entry.path(), ended).string())) {
            return true;
        }
    }
    return false;
}

// True where one of the group's own processes listens: somebody else may have taken the port before it could.
bool groupListensOn(std::uint16_t port, pid_t group) {
    const std::set<std::string> sockets = listenersOn(port);
    if (sockets.empty()) {
        return false;
    }
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") == std::string::npos && ::getpgid(std::stoi(name)) == group &&
            holdsOneOf(sockets, name)) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> environment(std::map<std::string, std::string> values) {
    values.insert({{"PATH", kProgramFolders}, {"HOME", "/nonexistent"}, {"LANG", "C.UTF-8"}});
    std::vector<std::string> result;
    for (const auto& [name, value] : values) {
        result.push_back(name + "=" + value);
    }
    return result;
}

std::string programFile(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return name;
    }
    std::istringstream folders(kProgramFolders);
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::string file = folder + "/" + name;
        if (::access(file.c_str(), X_OK) == 0) {
            return file;
        }
    }
    throw std::runtime_error(name + " is not installed; scripts/deps test installs what the tests need");
}

} // namespace

PeerProcess::PeerProcess(std::vector<std::string> command, std::string log, const PeerOptions& options)
    : Name(command.at(0)), Log(std::move(log)), StopSignal(options.StopSignal) {
    const testsupport::SocketHandle output(::open(Log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    const testsupport::SocketHandle input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!output || !input) {
        throw std::system_error(errno, std::generic_category(), Log);
    }
    Process.emplace(testsupport::ProcessStart{.File = programFile(Name),
                                              .Arguments = std::move(command),
                                              .Environment = environment(options.Environment),
                                              .Folder = options.Folder,
                                              .Streams = {input.get(), output.get(), output.get()}});
}

PeerProcess::~PeerProcess() {
    stop();
}

void PeerProcess::awaitListening(std::uint16_t port) {
    awaitCondition([&] { return groupListensOn(port, Process->id()); }, "listening on port " + std::to_string(port));
}

void PeerProcess::awaitCondition(const std::function<bool()>& condition, const std::string& what) {
    testsupport::awaitOrRaise(
        Name, condition, what, [this] { return Process->hasEnded(); }, [this] { return endOf(Log); });
}

void PeerProcess::stop() noexcept {
    if (!Process->signal(StopSignal)) {
        return;
    }
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (!Process->hasEnded() && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(kBetweenLooks);
    }
    Process->killGroup();
    Process->collect();
}

std::vector<std::uint16_t> freePorts(std::size_t count) {
    std::vector<testsupport::SocketHandle> held; // until all are picked, so that none comes twice
    std::vector<std::uint16_t> ports;
    for (std::size_t index = 0; index < count; ++index) {
        held.push_back(testsupport::bindLoopback(testsupport::Family::IPv4, true));
        ports.push_back(testsupport::boundPort(held.back()));
    }
    return ports;
}

std::unique_ptr<PeerProcess>
startOnFreePorts(std::size_t count,
                 const std::function<std::unique_ptr<PeerProcess>(const std::vector<std::uint16_t>& ports)>& start) {
    for (int attempt = 1;; ++attempt) {
        try {
            return start(freePorts(count));
        } catch (const std::runtime_error&) {
            if (attempt == kAttempts) {
                throw;
            }
        }
    }
}

} // namespace integrationtest
