// Digests that stand for texts: of lines, names and identifiers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netrove::cli {

// SHA-256 of all parts, each after its length, so that no two lists of parts make the same text.
class ContentDigest {
public:
    void add(std::string_view part);
    // The number at a place from 0 to 3, of the parts so far.
    std::uint64_t value(std::size_t place = 0);

private:
    std::string Parts;
    std::array<unsigned char, 32> Bytes{};
    bool Known = false; // Bytes are those of Parts
};

} // namespace netrove::cli
