#include "host/Text.h"

#include "embedded/text/TextConversion.h"
#include "late/IcuCalls.h"
#include "late/LateLibrary.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace fl::i18n {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

// A character that the target encoding lacks, or half a character.
class UnmappableCharacter : public CvtExceptionBase {
public:
    UnmappableCharacter(std::uint32_t character, std::size_t position, const std::string& encoding)
        : CvtExceptionBase(describe(character, position, encoding)) {}

private:
    static std::string describe(std::uint32_t character, std::size_t position, const std::string& encoding) {
        char name[16];
        std::snprintf(name, sizeof name, "U+%04X", static_cast<unsigned>(character));
        const std::string where = std::string(name) + " at position " + std::to_string(position);
        if (U_IS_SURROGATE(character)) {
            return "the unpaired surrogate " + where + " has no form in the encoding " + encoding;
        }
        return "the character " + where + " does not exist in the encoding " + encoding;
    }
};

class UnknownEncoding : public CvtExceptionBase {
public:
    explicit UnknownEncoding(const std::string& encoding)
        : CvtExceptionBase("there is no encoding named \"" + printable(encoding) + "\"") {}

private:
    // Text that is not a name may be anything, of any length.
    static std::string printable(const std::string& name) {
        constexpr std::size_t enough = 60;
        std::string text = name.substr(0, enough);
        std::replace_if(
            text.begin(), text.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
        return name.size() > enough ? text + "..." : text;
    }
};

// ICU reads the empty name as its default converter and what follows a comma as options; neither names an encoding.
bool isEncodingName(const std::string& name) {
    constexpr std::size_t longest = 59; // ICU's own limit
    return !name.empty() && name.size() <= longest && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
               c == '.' || c == ':' || c == '+' || c == '(' || c == ')';
    });
}

// Encodings that write ASCII as it is.
constexpr std::string_view kPlainEncodings[] = {"UTF-8", "utf-8", "windows-1252", "ISO-8859-1", "US-ASCII"};

bool isPlainEncoding(std::string_view encoding) {
    return std::find(std::begin(kPlainEncodings), std::end(kPlainEncodings), encoding) != std::end(kPlainEncodings);
}

// True where encodeUtf8 writes the same as the encoding, so that ICU need not be loaded.
bool isUtf8In(const std::string& encoding, const std::u16string& text) {
    if (!isPlainEncoding(encoding)) {
        return false;
    }
    if (vantik::detail::isAscii(std::u16string_view(text))) {
        return true;
    }
    const bool all = encoding == "UTF-8" || encoding == "utf-8";
    for (std::size_t i = 0; i < text.size();) {
        UChar32 character = 0;
        U16_NEXT(text, i, text.size(), character);
        if (character > 0x7F && (!all || U_IS_SURROGATE(character))) {
            return false;
        }
    }
    return true;
}

std::string encoded(const std::u16string& text, const std::string& encoding) {
    if (!isEncodingName(encoding)) {
        throw UnknownEncoding(encoding);
    }
    netrove::NarrowText result = netrove::lateCalls<netrove::IcuCalls>().encode(text, encoding);
    using End = netrove::NarrowText::End;
    switch (result.How) {
    case End::Whole:
        return std::move(result.Text);
    case End::NoSuchEncoding:
        throw UnknownEncoding(encoding);
    case End::EncodingNotUsable:
        throw CvtExceptionBase("the encoding " + encoding + " cannot be used: " + result.Reason);
    case End::NotConverted:
        break;
    case End::CharacterLacking:
        throw UnmappableCharacter(result.Character, result.Position, encoding);
    }
    throw CvtExceptionBase("the text cannot be converted to the encoding " + encoding + ": " + result.Reason);
}

} // namespace

CvtExceptionBase::~CvtExceptionBase() = default;

ustring_converter::~ustring_converter() = default;

codecvt_ustring_to_ascii::codecvt_ustring_to_ascii(bool) {}

codecvt_ustring_to_ascii::~codecvt_ustring_to_ascii() = default;

std::string codecvt_ustring_to_ascii::convert(const std::u16string& text) const {
    for (std::size_t i = vantik::detail::isAscii(std::u16string_view(text)) ? text.size() : 0; i < text.size(); ++i) {
        if (text[i] > 0x7F) {
            const bool pair = U16_IS_LEAD(text[i]) && i + 1 < text.size() && U16_IS_TRAIL(text[i + 1]);
            throw UnmappableCharacter(
                pair ? static_cast<std::uint32_t>(U16_GET_SUPPLEMENTARY(text[i], text[i + 1])) : text[i], i, "ascii");
        }
    }
    return {text.begin(), text.end()};
}

codecvt_ustring_to_string::codecvt_ustring_to_string(const std::string& encoding, bool) : Encoding(encoding) {
    if (!isPlainEncoding(Encoding)) {
        encoded({}, Encoding); // fails here, not at the first text
    }
}

codecvt_ustring_to_string::~codecvt_ustring_to_string() = default;

std::string codecvt_ustring_to_string::convert(const std::u16string& text) const {
    return isUtf8In(Encoding, text) ? vantik::detail::encodeUtf8(text) : encoded(text, Encoding);
}

std::string to_string(const std::u16string& text) {
    return vantik::detail::encodeUtf8(text);
}

std::string to_string(const std::u16string& text, const ustring_converter& converter) {
    return converter.convert(text);
}

std::u16string to_ustring(const std::string& text) {
    return vantik::detail::decodeUtf8(text);
}

VkLocale::VkLocale(std::string name) : Name(std::move(name)) {}

VkLocale VkLocale::global() {
    // Read once: the environment may be changed by another thread while it is read.
    static const std::string name =
        vantik::detail::localeName(std::getenv("LC_ALL"), std::getenv("LC_MESSAGES"), std::getenv("LANG"));
    return VkLocale(name);
}

const std::string& VkLocale::name() const {
    return Name;
}

} // namespace fl::i18n

namespace vantik::detail {

namespace {

void append(std::u16string& text, UChar32 character) {
    if (U_IS_BMP(character)) {
        text.push_back(static_cast<char16_t>(character));
    } else {
        text.push_back(U16_LEAD(character));
        text.push_back(U16_TRAIL(character));
    }
}

// The character that starts at `position`, which is moved past it; negative, and not moved, where there is none.
UChar32 nextCharacter(std::string_view text, std::size_t& position) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t next = position;
    UChar32 character = 0;
    U8_NEXT(bytes, next, text.size(), character);
    if (character >= 0) {
        position = next;
    }
    return character;
}

} // namespace

std::u16string decodeUtf8(std::string_view text) {
    if (isAscii(text)) {
        return {text.begin(), text.end()};
    }
    std::u16string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const UChar32 character = nextCharacter(text, i);
        if (character >= 0) {
            append(result, character);
        } else {
            result.push_back(fl::i18n::kReplacement);
            ++i;
        }
    }
    return result;
}

std::optional<std::u16string> decodeUtf8Strictly(std::string_view text, std::size_t& badByte) {
    if (isAscii(text)) {
        return std::u16string(text.begin(), text.end());
    }
    std::u16string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const UChar32 character = nextCharacter(text, i);
        if (character < 0) {
            badByte = i;
            return std::nullopt;
        }
        append(result, character);
    }
    return result;
}

std::string encodeUtf8(std::u16string_view text) {
    if (isAscii(text)) {
        return {text.begin(), text.end()};
    }
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t start = i;
        UChar32 character = 0;
        U16_NEXT(text, i, text.size(), character);
        if (U_IS_SURROGATE(character)) {
            throw fl::i18n::UnmappableCharacter(static_cast<std::uint32_t>(character), start, "utf-8");
        }
        std::array<char, U8_MAX_LENGTH> bytes;
        std::size_t length = 0;
        U8_APPEND_UNSAFE(bytes, length, character);
        result.append(bytes.data(), length);
    }
    return result;
}

std::string localeName(const char* all, const char* messages, const char* language) {
    const std::string fallback = "en";
    std::string name;
    for (const char* value : {all, messages, language}) {
        if (value && *value) {
            name = value;
            break;
        }
    }
    name.erase(std::min(name.find_first_of(".@"), name.size()));
    // It also becomes part of a file name, so nothing but a name of a locale passes.
    const bool isName = !name.empty() && name.size() <= 35 && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    });
    return isName && name != "C" && name != "POSIX" ? name : fallback;
}

} // namespace vantik::detail
