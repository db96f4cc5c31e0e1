// An input as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}
