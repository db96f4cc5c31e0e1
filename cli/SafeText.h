// Text that a server or a user made, in a form that a terminal shows and does not obey.
#pragma once

#include <string>
#include <string_view>

namespace netrove::cli {

// Each control character (C0, DEL, C1) and each byte that is not UTF-8 replaced by `replacement`.
std::string replaceControls(std::string_view text, std::string_view replacement);

// The same with "\xNN" for each such byte; line breaks and tabs become blanks, so that the result is one line.
std::string printable(std::string_view text);

// As `printable`, but line breaks and tabs stay.
std::string printableLines(std::string_view text);

// True for bytes that a terminal would obey: anything below 0x20 but tab, line feed and carriage return; DEL; the C1
// controls in UTF-8.
bool hasTerminalControls(std::string_view text);

bool isUtf8(std::string_view text);

} // namespace netrove::cli
