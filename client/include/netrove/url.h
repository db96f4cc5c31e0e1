// What the command line itself must know about a URL: the origin, the user name in it, and a name for the file.
#pragma once

#include <netrove/api.h>

#include <optional>
#include <string>
#include <string_view>

namespace netrove {

// The parts of "scheme://authority/path?query#fragment". Scheme and host are in lower case.
struct UrlParts {
    std::string Scheme; // empty if there is none
    std::string Host;   // with the brackets of an IPv6 address
    std::string Port;   // as written, or the scheme's default
    std::string Path;
};

// Never fails: missing parts stay empty.
NETROVE_API UrlParts splitUrl(std::string_view url);
NETROVE_API std::string hostAndPort(std::string_view url); // "example.org:443"
NETROVE_API bool sameOrigin(std::string_view left, std::string_view right); // scheme, host and port

// "user:password" in a URL, as written; a view into `url`. Empty if there is none.
NETROVE_API std::string_view userInfoIn(std::string_view url);

struct UserInfo {
    bool Present = false;
    std::string User; // percent-decoded
    std::optional<std::string> Password;
};

// Removes "user:password@" from a URL and returns it.
NETROVE_API UserInfo takeUserInfo(std::string& url);

// The text with the user name and password of every URL in it replaced by "***".
NETROVE_API std::string maskUserInfo(std::string_view text);

// Invalid escapes stay as they are: people write passwords and names of files into URLs as they are. The libraries at
// hand refuse such text as a whole.
NETROVE_API std::string percentDecode(std::string_view text);

// A file name for a URL: the last segment of its path, decoded, without anything that a file name should not hold.
// "download" if nothing is left.
NETROVE_API std::string fileNameFor(std::string_view url);
// True if the path ends with a name.
NETROVE_API bool hasFileName(std::string_view url);

} // namespace netrove
