// Text from a server or a user, in a form that a terminal shows but does not obey.
#pragma once

#include <netrove/api.h>

#include <string>
#include <string_view>

namespace netrove {

// Each byte of a control character (C0, DEL, C1), of a format character (directions of writing, characters without
// width) or of a separator of lines or paragraphs, and each byte that is not UTF-8, replaced by `replacement`.
NETROVE_API std::string replaceControls(std::string_view text, std::string_view replacement);

// The same with "\xNN" for each such byte; line breaks and tabs become blanks, so that the result is one line.
NETROVE_API std::string printable(std::string_view text);

// As `printable`, but line breaks and tabs stay.
NETROVE_API std::string printableLines(std::string_view text);

// Looks for bytes that a terminal would obey, in text that comes in pieces cut anywhere: anything below 0x20 but tab,
// line feed and carriage return; DEL; the C1 controls (0x80 to 0x9F) in UTF-8, overlong or as bytes of their own.
class NETROVE_API ControlFinder {
public:
    // True if `piece`, read after those before it, has one.
    bool findsIn(std::string_view piece);

private:
    unsigned Missing = 0;  // continuation bytes of the sequence that has begun
    unsigned Least = 0x80; // of the next of them, so that it makes neither a C1 control nor an overlong sequence
};

NETROVE_API bool isUtf8(std::string_view text);

NETROVE_API bool hasControls(std::string_view text);                                // below 0x20, and 0x7F
NETROVE_API bool equalsIgnoringCase(std::string_view left, std::string_view right); // ASCII

} // namespace netrove
