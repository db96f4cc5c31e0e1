// Names made into keys: within one scope equal texts share one address, so a class or a method is found by comparing
// pointers.
#pragma once

#include "host/ClassSystem.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace vantik::detail {

// The addresses stay valid as long as the table. It is used on one thread at a time, like its scope.
class InternTable {
public:
    InternTable() = default;
    InternTable(const InternTable&) = delete;
    InternTable& operator=(const InternTable&) = delete;

    // Null for the empty text.
    vcos::InternedName intern(std::string&& text);
    vcos::InternedName intern(std::string_view text);

    std::size_t size() const noexcept { return Texts.size(); }

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
    };

    std::unordered_set<std::string, Hash, std::equal_to<>> Texts; // nodes, so that the addresses never move
};

} // namespace vantik::detail
