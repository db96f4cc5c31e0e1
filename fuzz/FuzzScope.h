// One host scope for a whole fuzz run: making one for each input would measure the host and not the parser.
#pragma once

#include "embedded/Scope.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

inline void enterFuzzScope() {
    static const vantik::detail::ScopeEntry entry(std::make_shared<vantik::detail::Scope>());
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}
