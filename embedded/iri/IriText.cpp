#include "embedded/iri/IriText.h"

#include "embedded/text/TextConversion.h"
#include "host/Messages.h"

#include <boost/url/grammar/hexdig_chars.hpp>
#include <boost/url/grammar/lut_chars.hpp>
#include <boost/url/pct_string_view.hpp>
#include <boost/url/rfc/pchars.hpp>
#include <boost/url/rfc/sub_delim_chars.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>
#include <unicode/utf16.h>

#include <cstdint>
#include <exception>

namespace vantik::detail {

namespace {

using IriException =
    foundation::core::except::Exception<foundation::core::except::IInternalException, std::exception, void>;

// In the order of IriComponent.
constexpr boost::urls::grammar::lut_chars kAllowed[] = {
    boost::urls::unreserved_chars + boost::urls::sub_delim_chars + ':',
    boost::urls::pchars + '/',
    boost::urls::pchars + '/' + '?',
    boost::urls::pchars + '/' + '?',
};

constexpr bool isAllowed(IriComponent component, char16_t c) {
    return c < 0x80 && kAllowed[static_cast<std::size_t>(component)](static_cast<unsigned char>(c));
}

bool isHexDigit(char16_t c) {
    return c < 0x80 && boost::urls::grammar::hexdig_chars(static_cast<char>(c));
}

void appendEncoded(std::string& text, char byte) {
    constexpr char digits[] = "0123456789ABCDEF";
    const auto value = static_cast<std::uint8_t>(byte);
    text.push_back('%');
    text.push_back(digits[value >> 4]);
    text.push_back(digits[value & 0xF]);
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
        if (c == u'%' && (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2]))) {
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
    return boost::urls::pct_string_view(text).decode();
}

std::string decodeUnreserved(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result.push_back(text[i]);
            continue;
        }
        const std::string_view encoded = text.substr(i, 3);
        const std::string byte = percentDecode(encoded);
        result += boost::urls::unreserved_chars(byte.front()) ? std::string_view(byte) : encoded;
        i += 2;
    }
    return result;
}

bool isHostCharacter(char c) noexcept {
    return boost::urls::unreserved_chars(c) || boost::urls::sub_delim_chars(c);
}

} // namespace vantik::detail
