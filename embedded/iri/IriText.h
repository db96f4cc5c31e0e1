// Characters of identifiers: which of them a component may hold, percent-encoding and its checks.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantik::detail {

// Components that differ in the characters they hold as they are.
enum class IriComponent { UserInfo, Path, Query, Fragment };

// Raises the IInternalException of a text that is not an identifier: what is wrong, and at which UTF-16 unit.
[[noreturn]] void refuseIri(const std::string& what, std::size_t position);

// Refuses what no component may hold: control characters, backslashes, unpaired surrogates, and a "%" without two
// hexadecimal digits.
void checkIriText(std::u16string_view text);

// The ASCII form of one component of a checked text that starts at `position` of the whole. Spaces, characters outside
// ASCII and ASCII characters that the component must not hold are percent-encoded; percent-encodings stay. In the user
// information only characters outside ASCII are encoded, and the others refused: that part must not be ambiguous.
std::string encodeComponent(IriComponent component, std::u16string_view text, std::size_t position);

// A checked text with its percent-encodings decoded to bytes.
std::string percentDecode(std::string_view text);
// Undoes percent-encodings of letters, digits, "-", ".", "_" and "~".
std::string decodeUnreserved(std::string_view text);

bool isHostCharacter(char c) noexcept; // what a registered name may hold without percent-encoding

} // namespace vantik::detail
