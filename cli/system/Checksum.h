// A checksum that finds what was cut off or overwritten.
#pragma once

#include <cstdint>
#include <string_view>

namespace netrove::cli {

std::uint32_t checksumOf(std::string_view text); // CRC-32

} // namespace netrove::cli
