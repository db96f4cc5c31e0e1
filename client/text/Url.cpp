#include "client/text/Ascii.h"

#include <netrove/url.h>

#include <algorithm>
#include <utility>

namespace netrove {

namespace {

constexpr std::size_t kLongestFileName = 200; // bytes; leaves room for the temporary name within the usual 255

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// These rules are not Boost.URL's, which refuses most of what comes here: URLs as people type them, with characters
// outside ASCII, blanks and an '@' in the password, and text that merely quotes one.
struct Authority {
    std::size_t First;                       // after "//"
    std::size_t Last;                        // one past the end
    std::size_t At = std::string_view::npos; // the last '@'
};

constexpr CharacterSet kAuthorityEnds("/?#");
constexpr CharacterSet kPathEnds("?#");
// Within running text a URL ends at these too.
constexpr CharacterSet kUrlEnds("/?# \t\r\n\"'<>\\");

// The first authority after `start`; nothing where there is no "://".
std::optional<Authority> findAuthority(std::string_view text, const CharacterSet& ends = kAuthorityEnds,
                                       std::size_t start = 0) {
    const auto mark = text.find("://", start);
    if (mark == text.npos) {
        return std::nullopt;
    }
    Authority found{mark + 3, std::min(ends.firstIn(text, mark + 3), text.size())};
    if (const auto at = text.substr(found.First, found.Last - found.First).rfind('@'); at != text.npos) {
        found.At = found.First + at;
    }
    return found;
}

std::string_view defaultPort(std::string_view scheme) {
    if (scheme == "http") {
        return "80";
    }
    return scheme == "https" ? "443" : "";
}

void cutAtCharacter(std::string& text, std::size_t limit) {
    if (text.size() <= limit) {
        return;
    }
    while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) {
        --limit;
    }
    text.resize(limit);
}

} // namespace

UrlParts splitUrl(std::string_view url) {
    UrlParts parts;
    const auto found = findAuthority(url);
    if (!found) {
        return parts;
    }
    parts.Scheme = lowered(url.substr(0, found->First - 3));
    const std::size_t hostFirst = found->At == url.npos ? found->First : found->At + 1;
    const std::string_view authority = url.substr(hostFirst, found->Last - hostFirst);
    const auto bracket = authority.rfind(']');
    const auto colon = authority.rfind(':');
    const bool hasPort = colon != authority.npos && (bracket == authority.npos || colon > bracket);
    parts.Host = lowered(authority.substr(0, hasPort ? colon : authority.size()));
    parts.Port = hasPort ? authority.substr(colon + 1) : std::string_view{};
    if (parts.Port.empty()) {
        parts.Port = defaultPort(parts.Scheme);
    }
    const std::string_view rest = url.substr(found->Last);
    parts.Path = rest.substr(0, kPathEnds.firstIn(rest));
    return parts;
}

std::string hostAndPort(std::string_view url) {
    const UrlParts parts = splitUrl(url);
    return parts.Host + ":" + parts.Port;
}

bool sameOrigin(std::string_view left, std::string_view right) {
    const UrlParts a = splitUrl(left);
    const UrlParts b = splitUrl(right);
    return a.Scheme == b.Scheme && a.Host == b.Host && a.Port == b.Port;
}

std::string_view userInfoIn(std::string_view url) {
    const auto found = findAuthority(url);
    return found && found->At != url.npos ? url.substr(found->First, found->At - found->First) : std::string_view();
}

UserInfo takeUserInfo(std::string& url) {
    UserInfo result;
    if (url.find('@') == url.npos) { // as almost always
        return result;
    }
    const auto found = findAuthority(url);
    if (!found || found->At == url.npos) {
        return result;
    }
    const std::string info(userInfoIn(url));
    url.erase(found->First, found->At + 1 - found->First);
    if (info.empty()) {
        return result;
    }
    result.Present = true;
    const auto colon = info.find(':');
    result.User = percentDecode(info.substr(0, colon));
    if (colon != info.npos) {
        result.Password = percentDecode(info.substr(colon + 1));
    }
    return result;
}

std::string maskUserInfo(std::string_view text) {
    std::string result(text);
    if (text.find('@') == text.npos) {
        return result;
    }
    std::size_t position = 0;
    while (const auto found = findAuthority(result, kUrlEnds, position)) {
        position = found->First;
        if (found->At != result.npos) {
            result.replace(found->First, found->At - found->First, "***");
        }
    }
    return result;
}

std::string percentDecode(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
            result += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

std::string fileNameFor(std::string_view url) {
    const std::string path = splitUrl(url).Path;
    const std::string name = percentDecode(path.substr(path.rfind('/') + 1));
    // An escaped slash must not lead out of the folder, and a line break in a listing would mislead the reader.
    std::string clean;
    for (const char c : replaceControls(name, "_")) {
        clean += c == '/' || c == '\\' ? '_' : c;
    }
    clean.erase(0, clean.find_first_not_of(". "));
    clean.erase(clean.find_last_not_of(' ') + 1);
    cutAtCharacter(clean, kLongestFileName);
    return clean.empty() ? "download" : clean;
}

bool hasFileName(std::string_view url) {
    return !splitUrl(url).Path.ends_with('/') && !splitUrl(url).Path.empty();
}

} // namespace netrove
