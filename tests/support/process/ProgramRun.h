// Runs the built program, or another one, as a person or a script does, and says what came of it.
#pragma once

#include "tests/support/process/WatchedProcess.h"
#include "tests/support/server/SocketHandle.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace testsupport {

struct Outcome {
    int Status = -1; // exit status; -1 where a signal ended the program
    std::string Out; // with a terminal: both streams
    std::string Err;
};

struct Surroundings {
    std::optional<std::string> Input{};               // on standard input; without one it stays open and silent
    std::map<std::string, std::string> Environment{}; // besides a plain one without any proxy
    std::string Folder{};                             // to run in
    std::string Executable{};                         // to run instead of netrove
    bool Terminal = false;                            // standard output and standard error are a terminal
    bool TerminalInput = false;                       // …and standard input too, of a login of its own
    int Columns = 100;                                // of the terminal
    int OutDescriptor = -1;                           // standard output goes here and is not collected
};

// A program that runs in a session and a process group of its own. The destructor ends it and whoever it has started.
class Program {
public:
    explicit Program(std::vector<std::string> arguments, const Surroundings& around = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void signal(int number) const;
    void freeze() const;                      // until it gets SIGCONT; what is sent meanwhile comes to it at once then
    void type(const std::string& text) const; // on its standard input
    void closeInput();
    void resize(int columns) const;              // the terminal
    void waitForOutput(const std::string& text); // on standard output; raises where the program ends without
    // Until `condition` holds. Raises std::runtime_error where the program ends before, or where that takes
    // unreasonably long.
    void awaitCondition(const std::function<bool()>& condition, const std::string& what);
    Outcome wait(); // until it has ended
    // The same, but a program that goes on for longer is killed, so that its status is -1.
    Outcome waitAtMost(std::chrono::milliseconds limit);
    std::string commandLine() const; // as the list of processes shows it, with a NUL after each word

private:
    std::optional<WatchedProcess> Process;
    SocketHandle Input;
    SocketHandle Screen; // of the terminal
    std::thread OutReader;
    std::thread ErrReader;
    std::mutex Guard; // of what follows
    std::condition_variable Changed;
    bool OutEnded = false;
    std::string Out;
    std::string Err;

    void readToEnd(const SocketHandle& from, std::string& text);
};

Outcome run(std::vector<std::string> arguments, const Surroundings& around = {});

// The path of the built program, for launchers.
std::string programFile();

// Whether a write to the pipe would have to wait. Its bytes do not say: a piece that fills no page takes a whole one.
bool isFull(int writeEnd);

// The last line of a text, without its end.
std::string lastLine(const std::string& text);

} // namespace testsupport
