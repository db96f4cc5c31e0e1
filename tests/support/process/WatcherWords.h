// What is said to the watcher of a test: a verb, a kind, and a number or a path; one word a packet.
#pragma once

#include <cstddef>

namespace testsupport::watcher {

constexpr char Watch = '+';
constexpr char Forget = '-';
constexpr char Group = 'g';
constexpr char Path = 'p';
constexpr std::size_t MaximumWord = 4200; // a path of the system's limit

} // namespace testsupport::watcher
