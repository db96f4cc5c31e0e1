#include "embedded/iri/IriHost.h"

#include "embedded/iri/IriText.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/text/TextConversion.h"
#include "late/IcuCalls.h"
#include "late/LateLibrary.h"

#include <boost/url/grammar/ci_string.hpp>
#include <boost/url/ipv6_address.hpp>
#include <boost/url/parse.hpp>
#include <unicode/uidna.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace vantik::detail {

namespace {

// A name has at most 253 ASCII characters. This allows for percent-encodings and for characters that the mapping drops,
// and keeps the mapping, which is slow for long labels, from getting more than it can handle in reasonable time.
constexpr std::size_t kLongestHost = 2048;

// Names with hyphens in these places are in use ("r3---sn.example"), so they are no reason to refuse one.
constexpr std::uint32_t kAcceptedErrors =
    UIDNA_ERROR_HYPHEN_3_4 | UIDNA_ERROR_LEADING_HYPHEN | UIDNA_ERROR_TRAILING_HYPHEN;

struct Reason {
    std::uint32_t Error;
    const char* Text;
};

// The first one that applies is named.
constexpr Reason kReasons[] = {
    {UIDNA_ERROR_EMPTY_LABEL, "empty label in the host name"},
    {UIDNA_ERROR_LABEL_TOO_LONG, "label of more than 63 characters in the host name"},
    {UIDNA_ERROR_DOMAIN_NAME_TOO_LONG, "host name of more than 253 characters"},
    {UIDNA_ERROR_LEADING_COMBINING_MARK, "label that starts with a combining mark in the host name"},
    {UIDNA_ERROR_DISALLOWED, "character that host names must not hold"},
    {UIDNA_ERROR_PUNYCODE, "label whose ASCII form cannot be decoded in the host name"},
    {UIDNA_ERROR_LABEL_HAS_DOT, "label with a dot in its ASCII form in the host name"},
    {UIDNA_ERROR_INVALID_ACE_LABEL, "label with an invalid ASCII form in the host name"},
    {UIDNA_ERROR_BIDI, "label that mixes writing directions in the host name"},
    {UIDNA_ERROR_CONTEXTJ, "joiner in a place where the host name must not have one"},
};

const char* reasonFor(std::uint32_t errors) {
    const auto* found = std::find_if(std::begin(kReasons), std::end(kReasons),
                                     [errors](const Reason& row) { return (errors & row.Error) != 0; });
    return found == std::end(kReasons) ? "host name that is not valid" : found->Text;
}

// The ASCII form by UTS 46; what it found wrong is in `errors`.
std::u16string mapName(std::u16string_view name, std::uint32_t& errors) {
    try {
        return netrove::lateCalls<netrove::IcuCalls>().hostName(name, errors);
    } catch (const std::runtime_error& failure) {
        raiseHostFailure("VANTIK:host", "LibraryNotUsable", {std::string("ICU"), std::string(failure.what())});
    }
}

// True for a name that the mapping leaves as it is but for its letter case: labels of letters, digits and hyphens in
// ASCII, none of which says that it stands for other characters. Such a name needs no ICU.
bool isPlainName(std::u16string_view name) {
    constexpr std::size_t longestName = 253;
    constexpr std::size_t longestLabel = 63;
    if (name.size() > longestName) {
        return false;
    }
    for (std::size_t start = 0; start <= name.size();) {
        const std::size_t end = std::min(name.find(u'.', start), name.size());
        const std::u16string_view label = name.substr(start, end - start);
        const bool plain = std::all_of(label.begin(), label.end(), [](char16_t c) {
            return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'-';
        });
        if (!plain || label.empty() || label.size() > longestLabel ||
            (label.size() > 3 && label.substr(2, 2) == u"--")) {
            return false;
        }
        start = end + 1;
    }
    return true;
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), boost::urls::grammar::to_lower);
    return text;
}

// The characters of a checked text that are in ASCII; refuses others.
std::string asciiOnly(std::u16string_view text, std::size_t position) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] > 0x7F) {
            refuseIri("character outside ASCII in an address", position + i);
        }
        result.push_back(static_cast<char>(text[i]));
    }
    return result;
}

// "[" address "]"
std::string addressToAscii(std::u16string_view host, std::size_t position) {
    std::string text = lowered(asciiOnly(host, position));
    const std::string_view address = std::string_view(text).substr(1, text.size() - 2);
    // The form reserved for future addresses is a matter of the grammar alone.
    if (!address.starts_with('v') && !boost::urls::parse_ipv6_address(address)) {
        refuseIri("malformed IPv6 address", position);
    }
    return text;
}

std::string nameToAscii(std::u16string_view host, std::size_t position) {
    // Percent-encodings are bytes of UTF-8.
    std::size_t badByte = 0;
    const auto decoded = decodeUtf8Strictly(percentDecode(encodeUtf8(host)), badByte);
    if (!decoded) {
        refuseIri("percent-encoding that is not UTF-8 in the host name", position);
    }

    std::uint32_t errors = 0;
    const std::u16string mapped = mapName(*decoded, errors);
    if ((errors & ~kAcceptedErrors) != 0) {
        refuseIri(reasonFor(errors & ~kAcceptedErrors), position);
    }

    // The mapping turns look-alikes of delimiters into delimiters (U+FF0F becomes "/"), and leaves blanks.
    std::string result;
    for (const char16_t c : mapped) {
        if (c > 0x7F || !isHostCharacter(static_cast<char>(c))) {
            refuseIri("character that host names must not hold", position);
        }
        result.push_back(static_cast<char>(c));
    }
    if (result.empty()) {
        refuseIri("host name without a character", position);
    }
    return lowered(std::move(result));
}

} // namespace

std::string hostToAscii(std::u16string_view host, std::size_t position) {
    if (host.empty()) {
        return {};
    }
    if (host.size() > kLongestHost) {
        refuseIri("host of " + std::to_string(host.size()) + " characters", position);
    }
    const std::size_t blank = host.find(u' ');
    if (blank != host.npos) {
        refuseIri("blank in the host", position + blank);
    }
    if (host.front() == u'[' && host.back() == u']') {
        return addressToAscii(host, position);
    }
    if (isPlainName(host)) {
        return lowered(std::string(host.begin(), host.end()));
    }
    return nameToAscii(host, position);
}

} // namespace vantik::detail
