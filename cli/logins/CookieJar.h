// Cookies from a file in the format of Netscape's browser, which curl and wget write too, and which of them a request
// gets (RFC 6265, section 5.4).
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

struct Cookie {
    std::string Name;
    std::string Value;
    std::string Domain;    // without a dot before it, in lower case
    bool HostOnly = false; // not for hosts below the domain
    std::string Path;
    bool Secure = false; // for https only
    bool HttpOnly = false;
    std::int64_t Expires = 0; // seconds since 1970; 0: at the end of the session
};

class CookieJar {
public:
    using Time = std::chrono::sys_seconds;

    // Adds those of a file's text: seven columns between tabs, which are domain, TRUE for hosts below it too, path,
    // TRUE for https only, time of expiry, name and value. Comments and lines that are no cookie are skipped; a usage
    // failure where there is nothing else.
    void load(std::string_view text, const std::string& file);

    // The value of Cookie for a request, "a=1; b=2", those with longer paths first; empty for none.
    std::string headerFor(std::string_view url, Time now) const;

    // Forgets the one that a server replaces by a field Set-Cookie of its response to the request for `url`.
    void forgetReplaced(std::string_view setCookie, std::string_view url);

    const std::vector<Cookie>& cookies() const { return Cookies; }

private:
    std::vector<Cookie> Cookies;
};

} // namespace netrove::cli
