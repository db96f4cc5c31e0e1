// A process that outlives a test which crashes or is killed, and does then what the test's destructors would have done:
// it ends the process groups and removes the files that it has been told of. There is one for each process that tells
// it something, started by the first word.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace testsupport::watcher {

// Said before there is anything to leave behind, where that can be. Both raise std::system_error where there is no
// watcher.
void watchGroup(pid_t group);
void watchPath(const std::string& path);

// Said when the work is done: a group's number is given to others once its leader has been waited for.
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
