#include "tests/integration/support/PeerProcess.h"

#include "tests/support/SocketHandle.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace integrationtest {
namespace {

constexpr const char* ProgramFolders = "/usr/sbin:/usr/bin:/sbin:/bin";
constexpr std::chrono::seconds Unreasonable{60};
constexpr std::chrono::milliseconds BetweenLooks{10};
constexpr std::chrono::seconds Patience{10}; // with a program that is asked to end
constexpr int Attempts = 5;

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
            std::istringstream words(line);
            std::string slot;
            std::string local;
            std::string remote;
            std::string state;
            std::string inode;
            words >> slot >> local >> remote >> state;
            for (int skipped = 0; skipped < 6; ++skipped) {
                words >> inode;
            }
            constexpr const char* listening = "0A";
            if (state == listening && std::stoul(local.substr(local.rfind(':') + 1), nullptr, 16) == port) {
                sockets.insert("socket:[" + inode + "]");
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

std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> result;
    result.reserve(words.size() + 1);
    for (std::string& word : words) {
        result.push_back(word.data());
    }
    result.push_back(nullptr);
    return result;
}

std::vector<std::string> environment(const std::map<std::string, std::string>& more) {
    std::map<std::string, std::string> values = {
        {"PATH", ProgramFolders}, {"HOME", "/nonexistent"}, {"LANG", "C.UTF-8"}};
    for (const auto& [name, value] : more) {
        values[name] = value;
    }
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
    std::istringstream folders(ProgramFolders);
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
    const std::string file = programFile(Name);
    std::vector<std::string> variables = environment(options.Environment);
    const std::vector<char*> arguments = pointers(command);
    const std::vector<char*> environ = pointers(variables);
    const testsupport::SocketHandle output(::open(Log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    const testsupport::SocketHandle input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!output || !input) {
        throw std::system_error(errno, std::generic_category(), Log);
    }
    const pid_t parent = ::getpid();
    Process = ::fork();
    if (Process < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (Process == 0) {
        // A test that crashes must not leave its servers behind.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::setpgid(0, 0);
        // libcurl's connections are not closed by an exec; a server that inherited one would keep it open.
        ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
        ::dup2(input.get(), 0);
        ::dup2(output.get(), 1);
        ::dup2(output.get(), 2);
        if (::getppid() == parent && (options.Folder.empty() || ::chdir(options.Folder.c_str()) == 0)) {
            ::execve(file.c_str(), arguments.data(), environ.data());
        }
        ::_exit(127);
    }
    ::setpgid(Process, Process); // by both, whoever comes first
}

PeerProcess::~PeerProcess() {
    stop();
}

void PeerProcess::awaitListening(std::uint16_t port) {
    awaitCondition([&] { return groupListensOn(port, Process); }, "listening on port " + std::to_string(port));
}

void PeerProcess::awaitCondition(const std::function<bool()>& condition, const std::string& what) {
    const auto limit = std::chrono::steady_clock::now() + Unreasonable;
    while (!condition()) {
        const bool ended = hasEnded();
        if (ended || std::chrono::steady_clock::now() > limit) {
            throw std::runtime_error(Name + (ended ? " has ended before " : " takes too long until ") + what + ":\n" +
                                     endOf(Log));
        }
        std::this_thread::sleep_for(BetweenLooks);
    }
}

bool PeerProcess::hasEnded() noexcept {
    if (Process < 0) {
        return true;
    }
    siginfo_t state{};
    return ::waitid(P_PID, static_cast<id_t>(Process), &state, WEXITED | WNOHANG | WNOWAIT) != 0 || state.si_pid != 0;
}

void PeerProcess::stop() noexcept {
    if (Process < 0) {
        return;
    }
    ::kill(Process, StopSignal);
    const auto limit = std::chrono::steady_clock::now() + Patience;
    while (!hasEnded() && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(BetweenLooks);
    }
    ::kill(-Process, SIGKILL); // whoever is left of its group
    ::waitpid(Process, nullptr, 0);
    Process = -1;
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
            if (attempt == Attempts) {
                throw;
            }
        }
    }
}

} // namespace integrationtest
