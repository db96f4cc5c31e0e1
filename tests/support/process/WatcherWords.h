// What is said to the watcher of a test: a verb, a kind, and a number or a path; one word a packet.
#pragma once

#include <cstddef>

namespace testsupport::watcher {

constexpr char kWatch = '+';
constexpr char kForget = '-';
constexpr char kGroup = 'g';
constexpr char kPath = 'p';
constexpr std::size_t kMaximumWord = 4200; // a path of the system's limit

} // namespace testsupport::watcher
