#include "client/text/Ascii.h"
#include "late/IcuCalls.h"
#include "late/LateLibrary.h"

#include <netrove/text.h>

#include <algorithm>
#include <cstddef>

namespace netrove {

namespace {

unsigned byteAt(std::string_view text, std::size_t position) {
    return static_cast<unsigned char>(text[position]);
}

// Length of the well-formed UTF-8 sequence at `position`; 0 if there is none.
std::size_t sequenceLength(std::string_view text, std::size_t position) {
    const unsigned first = byteAt(text, position);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xC2 && first <= 0xDF   ? 2
                               : first >= 0xE0 && first <= 0xEF ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    if (length == 0 || position + length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(text, position + i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const unsigned second = byteAt(text, position + 1);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool outside = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
    return overlong || outside ? 0 : length;
}

// The character of a well-formed sequence.
char32_t characterOf(std::string_view sequence) {
    const unsigned first = byteAt(sequence, 0);
    unsigned value = sequence.size() == 1 ? first : first & (0xFFu >> (sequence.size() + 1));
    for (std::size_t i = 1; i < sequence.size(); ++i) {
        value = value << 6 | (byteAt(sequence, i) & 0x3F);
    }
    return value;
}

// True for what a terminal obeys, and for invisible characters that reverse or hide the text around them: directions of
// writing, characters without width, separators of lines and paragraphs.
bool isDeceptive(char32_t character) {
    if (character < 0x80) {
        return character < 0x20 || character == 0x7F;
    }
    return lateCalls<IcuCalls>().isDeceptive(character);
}

// Calls `keep` with each harmless piece and `mend` with each byte that is not.
template <class Keep, class Mend>
void eachPiece(std::string_view text, Keep keep, Mend mend) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = sequenceLength(text, i);
        if (length == 0 || isDeceptive(characterOf(text.substr(i, length)))) {
            const std::size_t bad = length == 0 ? 1 : length;
            for (std::size_t k = 0; k < bad; ++k) {
                mend(static_cast<char>(text[i + k]));
            }
            i += bad;
        } else {
            keep(text.substr(i, length));
            i += length;
        }
    }
}

std::string escaped(char c) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(c);
    return {'\\', 'x', kDigits[value >> 4], kDigits[value & 0x0F]};
}

} // namespace

std::string replaceControls(std::string_view text, std::string_view replacement) {
    std::string result;
    result.reserve(text.size());
    eachPiece(
        text, [&](std::string_view piece) { result += piece; }, [&](char) { result += replacement; });
    return result;
}

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    eachPiece(
        text, [&](std::string_view piece) { result += piece; },
        [&](char c) { result += c == '\n' || c == '\r' || c == '\t' ? " " : escaped(c); });
    return result;
}

std::string printableLines(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    eachPiece(
        text, [&](std::string_view piece) { result += piece; },
        [&](char c) { result += c == '\n' || c == '\t' ? std::string(1, c)
                                : c == '\r'            ? ""
                                                       : escaped(c); });
    return result;
}

bool ControlFinder::findsIn(std::string_view piece) {
    for (const char c : piece) {
        const unsigned value = static_cast<unsigned char>(c);
        const bool continues = Missing > 0 && value >= Least && value < 0xC0;
        if (continues) {
            --Missing;
            Least = 0x80;
            continue;
        }
        const bool plain = c == '\t' || c == '\n' || c == '\r';
        if ((value < 0x20 && !plain) || (value >= 0x7F && value < 0xA0)) {
            return true;
        }
        Missing = value < 0xC2 ? 0 : value < 0xE0 ? 1 : value < 0xF0 ? 2 : value < 0xF5 ? 3 : 0;
        Least = value == 0xC2 || value == 0xE0 ? 0xA0 : value == 0xF0 ? 0x90 : 0x80;
    }
    return false;
}

bool hasControls(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lowered(a) == lowered(b); });
}

bool isUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = sequenceLength(text, i);
        if (length == 0) {
            return false;
        }
        i += length;
    }
    return true;
}

} // namespace netrove
