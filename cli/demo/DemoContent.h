// What the server of the tour sends, and how either side checks it.
#pragma once

#include <cstddef>
#include <string>

namespace netrove::cli {

constexpr std::size_t kDemoFileSize = std::size_t{1} << 20;

// Bytes that are easy to make and hard to get right by chance.
char patternByte(std::size_t position);
// SHA-256 in hexadecimal.
std::string digestOf(const std::string& bytes);

} // namespace netrove::cli
