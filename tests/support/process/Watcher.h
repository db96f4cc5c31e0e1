// A process that outlives a test which crashes or is killed, and then does what the test's destructors would have done:
// it ends the process groups and removes the files that were registered with it. Each process that registers something
// has a watcher of its own, started by the first registration.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace testsupport::watcher {

// To be called before there is anything to leave behind, where possible. Both raise std::system_error if the watcher
// cannot be started.
void watchGroup(pid_t group);
void watchPath(const std::string& path);

// To be called when the work is done: a group's number is given to others once its leader has been waited for.
void forgetGroup(pid_t group) noexcept;
void forgetPath(const std::string& path) noexcept;

// Starts it, where that has not happened yet; for a process that is about to fork.
void start();

// What is said to it: a verb, a kind, and a number or a path; one word a packet.
constexpr char kWatch = '+';
constexpr char kForget = '-';
constexpr char kGroup = 'g';
constexpr char kPath = 'p';
constexpr std::size_t kMaximumWord = 4200; // a path of the system's limit

} // namespace testsupport::watcher
