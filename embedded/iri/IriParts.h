// An identifier taken apart, and the operations of RFC 3986 on its parts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vantik::detail {

// All in ASCII. A part that is there may still be empty: "http://host/?" has an empty query.
struct IriParts {
    std::optional<std::string> Scheme;   // lower case
    bool HasAuthority = false;           // it follows "//"
    std::optional<std::string> UserInfo; // of the authority
    std::string Host;                    // of the authority; lower case, IPv6 in brackets
    std::optional<std::string> Port;     // of the authority, as written
    std::string Path;
    std::optional<std::string> Query;
    std::optional<std::string> Fragment;
};

// Takes a text apart; raises an IInternalException for one that is not an identifier.
IriParts parseIri(std::u16string_view text);

// Puts the parts together. `decode` undoes percent-encodings of unreserved characters.
std::string composeIri(const IriParts& parts, bool decode);

// RFC 3986 section 5.2, strict. `base` has a scheme.
IriParts resolveIri(const IriParts& reference, const IriParts& base);

// RFC 3986 section 5.2.4.
std::string removeDotSegments(std::string_view path);

} // namespace vantik::detail
