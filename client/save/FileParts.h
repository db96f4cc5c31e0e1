// What all ways to save share: writing, the digest, the file's time.
#pragma once

#include <netrove/request.h>
#include <netrove/response.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <sys/stat.h>

namespace netrove {

inline bool sameFile(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// Raises FileNotWritten, naming the file.
void writeAll(int descriptor, std::span<const std::byte> bytes, const std::string& name);
// Drops what has been written. Raises FileNotWritten, naming the file.
void restart(int descriptor, const std::string& name);
// True if these bytes are in the file from `at` on. Raises FileNotRead, naming the file.
bool holdsBytes(int descriptor, std::uint64_t at, std::span<const std::byte> bytes, const std::string& name);
// The content before it gets its name: digest and time, as the request wants them. Raises DigestMismatch.
void finishContent(int descriptor, const Request& request, const Response& response, const std::string& name);
// In lower case hexadecimal digits, of the file from its start.
std::string sha256Of(int descriptor, const std::string& name);

} // namespace netrove
