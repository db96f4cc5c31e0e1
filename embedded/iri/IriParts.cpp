#include "embedded/iri/IriParts.h"

#include "embedded/iri/IriHost.h"
#include "embedded/iri/IriText.h"

#include <boost/url/parse.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace vantik::detail {

namespace {

// One component of the text with its place in the whole.
struct Piece {
    std::u16string_view Text;
    std::size_t Position = 0;
};

// The components as their delimiters separate them (RFC 3986 appendix B), nothing checked. Boost.URL reads the ASCII
// form only, and that form differs from component to component.
struct Pieces {
    std::optional<Piece> Scheme;
    std::optional<Piece> Authority;
    Piece Path;
    std::optional<Piece> Query;
    std::optional<Piece> Fragment;
};

Pieces split(std::u16string_view text) {
    Pieces pieces;
    std::size_t position = 0;
    std::size_t end = text.find_first_of(u":/?#");
    if (end != text.npos && text[end] == u':') {
        pieces.Scheme = Piece{text.substr(0, end), 0};
        position = end + 1;
    }
    if (text.substr(position, 2) == u"//") {
        position += 2;
        end = std::min(text.find_first_of(u"/?#", position), text.size());
        pieces.Authority = Piece{text.substr(position, end - position), position};
        position = end;
    }
    end = std::min(text.find_first_of(u"?#", position), text.size());
    pieces.Path = Piece{text.substr(position, end - position), position};
    position = end;
    if (position < text.size() && text[position] == u'?') {
        ++position;
        end = std::min(text.find(u'#', position), text.size());
        pieces.Query = Piece{text.substr(position, end - position), position};
        position = end;
    }
    if (position < text.size()) {
        pieces.Fragment = Piece{text.substr(position + 1), position + 1};
    }
    return pieces;
}

std::string mapScheme(const Piece& scheme) {
    std::string result;
    for (std::size_t i = 0; i < scheme.Text.size(); ++i) {
        const char16_t c = scheme.Text[i];
        const bool upper = c >= u'A' && c <= u'Z';
        const bool letter = upper || (c >= u'a' && c <= u'z');
        const bool other = (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.';
        if (!letter && (i == 0 || !other)) {
            refuseIri("character that a scheme must not hold before the first \":\"", i);
        }
        result.push_back(static_cast<char>(upper ? c + 0x20 : c));
    }
    if (result.empty()) {
        refuseIri("\":\" without a scheme", 0);
    }
    return result;
}

// Digits, or nothing, up to 65535. Leading zeros are allowed.
std::string mapPort(const Piece& port) {
    std::string result;
    unsigned value = 0;
    for (std::size_t i = 0; i < port.Text.size(); ++i) {
        const char16_t c = port.Text[i];
        if (c < u'0' || c > u'9') {
            refuseIri("character that is not a digit in the port", port.Position + i);
        }
        value = value * 10 + static_cast<unsigned>(c - u'0');
        if (value > std::numeric_limits<std::uint16_t>::max()) {
            refuseIri("port above 65535", port.Position);
        }
        result.push_back(static_cast<char>(c));
    }
    return result;
}

// The ASCII form of [ userinfo "@" ] host [ ":" port ].
void mapAuthority(const Piece& authority, IriParts& parts) {
    parts.HasAuthority = true;
    Piece rest = authority;
    if (const std::size_t at = rest.Text.find(u'@'); at != rest.Text.npos) {
        parts.UserInfo = encodeComponent(IriComponent::UserInfo, rest.Text.substr(0, at), rest.Position);
        rest = {rest.Text.substr(at + 1), rest.Position + at + 1};
        // Readers differ in which "@" ends the user information, and so in which host is meant.
        if (const std::size_t second = rest.Text.find(u'@'); second != rest.Text.npos) {
            refuseIri("second \"@\" in the authority", rest.Position + second);
        }
    }
    std::size_t hostEnd = 0;
    if (rest.Text.starts_with(u'[')) {
        hostEnd = rest.Text.find(u']');
        if (hostEnd == rest.Text.npos) {
            refuseIri("\"[\" without \"]\"", rest.Position);
        }
        ++hostEnd;
        if (hostEnd < rest.Text.size() && rest.Text[hostEnd] != u':') {
            refuseIri("text between \"]\" and the port", rest.Position + hostEnd);
        }
    } else {
        hostEnd = std::min(rest.Text.find(u':'), rest.Text.size());
    }
    parts.Host = hostToAscii(rest.Text.substr(0, hostEnd), rest.Position);
    if (hostEnd < rest.Text.size()) {
        parts.Port = mapPort({rest.Text.substr(hostEnd + 1), rest.Position + hostEnd + 1});
    }
}

} // namespace

// RFC 3987 section 3.1: the identifier in ASCII, part by part.
IriParts parseIri(std::u16string_view text) {
    checkIriText(text);
    const Pieces pieces = split(text);
    IriParts parts;
    if (pieces.Scheme) {
        parts.Scheme = mapScheme(*pieces.Scheme);
    }
    if (pieces.Authority) {
        mapAuthority(*pieces.Authority, parts);
    }
    parts.Path = encodeComponent(IriComponent::Path, pieces.Path.Text, pieces.Path.Position);
    if (pieces.Query) {
        parts.Query = encodeComponent(IriComponent::Query, pieces.Query->Text, pieces.Query->Position);
    }
    if (pieces.Fragment) {
        parts.Fragment = encodeComponent(IriComponent::Fragment, pieces.Fragment->Text, pieces.Fragment->Position);
    }
    // With a scheme and a host that is a name, parts that are right make a whole that is. What else may be is up to the
    // grammar.
    if (!parts.Scheme || parts.Host.empty() || parts.Host.starts_with('[')) {
        if (const auto parsed = boost::urls::parse_uri_reference(composeIri(parts, false)); !parsed) {
            refuseIri("text that is not an identifier (" + parsed.error().message() + ")", 0);
        }
    }
    return parts;
}

std::string composeIri(const IriParts& parts, bool decode) {
    const auto form = [decode](const std::string& text) { return decode ? decodeUnreserved(text) : text; };
    std::string result;
    if (parts.Scheme) {
        result += *parts.Scheme + ":";
    }
    if (parts.HasAuthority) {
        result += "//";
        if (parts.UserInfo) {
            result += form(*parts.UserInfo) + "@";
        }
        result += parts.Host;
        if (parts.Port) {
            result += ":" + *parts.Port;
        }
    } else if (parts.Path.starts_with("//")) {
        result += "/."; // else the path would be read as an authority
    }
    result += form(parts.Path);
    if (parts.Query) {
        result += "?" + form(*parts.Query);
    }
    if (parts.Fragment) {
        result += "#" + form(*parts.Fragment);
    }
    return result;
}

} // namespace vantik::detail
