// The parts of text conversion that need no converter object.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace vantik::detail {

// Almost all text is: its characters are the same in UTF-8 and UTF-16. No early end: like this, the compiler looks at
// many characters at a time.
template <class Character>
bool isAscii(std::basic_string_view<Character> text) {
    std::make_unsigned_t<Character> all = 0;
    for (const Character character : text) {
        all |= character;
    }
    return all <= 0x7F;
}

// UTF-16 from UTF-8. The first form maps each byte that is not valid to U+FFFD; the second returns nothing for text
// that is not valid throughout and stores the offset of the first bad byte.
std::u16string decodeUtf8(std::string_view text);
std::optional<std::u16string> decodeUtf8Strictly(std::string_view text, std::size_t& badByte);

// UTF-8 from UTF-16. Raises CvtExceptionBase for an unpaired surrogate.
std::string encodeUtf8(std::u16string_view text);

// The locale that the environment asks for, from the values of LC_ALL, LC_MESSAGES and LANG (null: not set). The first
// one that is not empty counts, without its encoding and modifier. "C", "POSIX" and whatever is not a locale name
// become "en".
std::string localeName(const char* all, const char* messages, const char* language);

// Expansion of a file name; `home` is empty where no home directory is known.
std::u16string cleanFileName(const std::u16string& name, const std::u16string& home);

} // namespace vantik::detail
