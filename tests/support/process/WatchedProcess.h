// A program that a test starts. It leads a process group of its own, and the group does not outlive the test.
#pragma once

#include <array>
#include <string>
#include <sys/types.h>
#include <vector>

namespace testsupport {

struct ProcessStart {
    std::string File;
    std::vector<std::string> Arguments;   // the program's name first
    std::vector<std::string> Environment; // "NAME=value"
    std::string Folder{};                 // to run in
    std::array<int, 3> Streams;           // become its standard input, output and errors; they stay the caller's
    std::string Terminal{};               // in place of the first one: becomes the terminal of its login
};

class WatchedProcess {
public:
    explicit WatchedProcess(const ProcessStart& start); // raises std::system_error
    ~WatchedProcess();                                  // ends it and whoever it has started
    WatchedProcess(const WatchedProcess&) = delete;
    WatchedProcess& operator=(const WatchedProcess&) = delete;

    pid_t id() const noexcept { return Process; } // of the group too; -1 when it has been collected
    bool hasEnded() const noexcept;
    void awaitEnd() const noexcept;
    bool signal(int number) const noexcept; // to the program alone
    void killGroup() const noexcept;
    // Waits for its end and ends whoever is left of its group. The status is that of waitpid; 0 the second time.
    int collect() noexcept;

private:
    pid_t Process = -1;
};

// True where nothing of the process is left but its status, or not even that.
bool processHasEnded(pid_t process);

// With the null pointer at the end that execve wants.
std::vector<char*> pointers(std::vector<std::string>& words);

} // namespace testsupport
