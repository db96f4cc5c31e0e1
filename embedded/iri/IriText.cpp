#include "embedded/iri/IriText.h"

#include "embedded/text/TextConversion.h"
#include "host/Messages.h"

#include <unicode/utf16.h>

#include <cstdint>
#include <exception>

namespace vantik::detail {

namespace {

using IriException =
    foundation::core::except::Exception<foundation::core::except::IInternalException, std::exception, void>;

constexpr bool isAlphanumeric(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
}

constexpr bool isOneOf(char16_t c, std::u16string_view set) {
    return set.find(c) != set.npos;
}

constexpr std::u16string_view kMarks = u"-._~";
constexpr std::u16string_view kSubDelimiters = u"!$&'()*+,;=";

constexpr bool isUnreserved(char16_t c) {
    return isAlphanumeric(c) || isOneOf(c, kMarks);
}

constexpr bool isPathCharacter(char16_t c) {
    return isUnreserved(c) || isOneOf(c, kSubDelimiters) || isOneOf(c, u":@/");
}

constexpr bool isAllowed(IriComponent component, char16_t c) {
    switch (component) {
    case IriComponent::UserInfo:
        return isUnreserved(c) || isOneOf(c, kSubDelimiters) || c == u':';
    case IriComponent::Path:
        return isPathCharacter(c);
    case IriComponent::Query:
    case IriComponent::Fragment:
        return isPathCharacter(c) || c == u'?';
    }
    return false;
}

// Value of a hexadecimal digit; negative for every other character.
constexpr int hexValue(char16_t c) {
    if (c >= u'0' && c <= u'9') {
        return c - u'0';
    }
    if (c >= u'a' && c <= u'f') {
        return c - u'a' + 10;
    }
    if (c >= u'A' && c <= u'F') {
        return c - u'A' + 10;
    }
    return -1;
}

void appendEncoded(std::string& text, char byte) {
    constexpr char digits[] = "0123456789ABCDEF";
    const auto value = static_cast<std::uint8_t>(byte);
    text.push_back('%');
    text.push_back(digits[value >> 4]);
    text.push_back(digits[value & 0xF]);
}

// The byte of the percent-encoding at `position` of a checked text.
char encodedByte(std::string_view text, std::size_t position) {
    return static_cast<char>(hexValue(static_cast<unsigned char>(text[position + 1])) * 16 +
                             hexValue(static_cast<unsigned char>(text[position + 2])));
}

} // namespace

void refuseIri(const std::string& what, std::size_t position) {
    throw IriException(what + " at position " + std::to_string(position));
}

void checkIriText(std::u16string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) {
            refuseIri("control character", i);
        }
        if (c == u'\\') {
            refuseIri("backslash", i);
        }
        if (c == u'%' && (i + 2 >= text.size() || hexValue(text[i + 1]) < 0 || hexValue(text[i + 2]) < 0)) {
            refuseIri("\"%\" without two hexadecimal digits", i);
        }
        if (!U16_IS_SURROGATE(c)) {
            continue;
        }
        if (!U16_IS_LEAD(c) || i + 1 == text.size() || !U16_IS_TRAIL(text[i + 1])) {
            refuseIri("unpaired surrogate", i);
        }
        ++i;
    }
}

std::string encodeComponent(IriComponent component, std::u16string_view text, std::size_t position) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c == u'%' || isAllowed(component, c)) {
            result.push_back(static_cast<char>(c));
        } else if (c < 0x80 && component == IriComponent::UserInfo) {
            refuseIri(std::string("character \"") + static_cast<char>(c) + "\" in the user information", position + i);
        } else {
            const std::size_t units = U16_IS_LEAD(c) ? 2 : 1;
            for (const char byte : encodeUtf8(text.substr(i, units))) {
                appendEncoded(result, byte);
            }
            i += units - 1;
        }
    }
    return result;
}

std::string percentDecode(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result.push_back(text[i]);
        } else {
            result.push_back(encodedByte(text, i));
            i += 2;
        }
    }
    return result;
}

std::string decodeUnreserved(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && isUnreserved(static_cast<unsigned char>(encodedByte(text, i)))) {
            result.push_back(encodedByte(text, i));
            i += 2;
        } else {
            result.push_back(text[i]);
        }
    }
    return result;
}

bool isHostCharacter(char c) noexcept {
    const auto unit = static_cast<unsigned char>(c);
    return isUnreserved(unit) || isOneOf(unit, kSubDelimiters);
}

} // namespace vantik::detail
