#include "cli/logins/CookieJar.h"

#include "cli/failures/CliFailure.h"
#include "client/text/Ascii.h"

#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::string_view kHttpOnly = "#HttpOnly_";
constexpr std::size_t kColumns = 7;

// What may stand in the field Cookie.
bool isSendable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F && c != ';'; });
}

std::optional<Cookie> cookieOf(std::string_view line) {
    Cookie cookie;
    cookie.HttpOnly = line.starts_with(kHttpOnly);
    line.remove_prefix(cookie.HttpOnly ? kHttpOnly.size() : 0);
    std::vector<std::string_view> columns;
    for (std::size_t start = 0; !line.starts_with('#') && start <= line.size();) {
        const auto end = std::min(line.find('\t', start), line.size());
        columns.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    // Without a value there may be no tab for it either.
    if (columns.size() == kColumns - 1) {
        columns.emplace_back();
    }
    if (columns.size() != kColumns || columns[5].empty() || !isSendable(columns[5]) || !isSendable(columns[6])) {
        return std::nullopt;
    }
    cookie.Domain = lowered(columns[0].substr(columns[0].starts_with('.') ? 1 : 0));
    cookie.HostOnly = !equalsIgnoringCase(columns[1], "TRUE");
    cookie.Path = columns[2];
    cookie.Secure = equalsIgnoringCase(columns[3], "TRUE");
    const std::string_view expires = columns[4];
    if (std::from_chars(expires.data(), expires.data() + expires.size(), cookie.Expires).ec != std::errc() ||
        cookie.Domain.empty()) {
        return std::nullopt;
    }
    cookie.Name = columns[5];
    cookie.Value = columns[6];
    return cookie;
}

bool isAddress(std::string_view host) {
    return host.starts_with('[') || host.find_first_not_of("0123456789.") == host.npos;
}

// Where what is secure may go without TLS, as in curl and browsers: it does not leave the machine.
bool isLoopback(std::string_view host) {
    return host == "localhost" || host == "127.0.0.1" || host == "[::1]";
}

std::string_view withoutBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// "/a/b" of "/a/b/" and "/a/b".
std::string_view withoutEnd(std::string_view path) {
    return path.size() > 1 && path.ends_with('/') ? path.substr(0, path.size() - 1) : path;
}

bool matchesHost(const Cookie& cookie, std::string_view host) {
    if (host == cookie.Domain) {
        return true;
    }
    return !cookie.HostOnly && !isAddress(host) && host.ends_with("." + cookie.Domain);
}

// RFC 6265, section 5.1.4.
bool matchesPath(std::string_view cookiePath, std::string_view path) {
    return path.starts_with(cookiePath) &&
           (path.size() == cookiePath.size() || cookiePath.ends_with('/') || path[cookiePath.size()] == '/');
}

} // namespace

void CookieJar::load(std::string_view text, const std::string& file) {
    bool other = false;
    const std::size_t before = Cookies.size();
    for (std::size_t start = 0; start < text.size();) {
        const auto end = std::min(text.find('\n', start), text.size());
        std::string_view line = text.substr(start, end - start);
        start = end + 1;
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        if (auto cookie = cookieOf(line)) {
            Cookies.push_back(std::move(*cookie));
        } else {
            other = other || (!line.empty() && !line.starts_with('#'));
        }
    }
    if (other && Cookies.size() == before) {
        failUsage(printable(file) + " has no cookies in Netscape's format");
    }
}

std::string CookieJar::headerFor(std::string_view url, Time now) const {
    const UrlParts parts = splitUrl(url);
    const std::string path = parts.Path.empty() ? "/" : parts.Path;
    std::vector<const Cookie*> chosen;
    for (const Cookie& cookie : Cookies) {
        const bool alive = cookie.Expires == 0 || cookie.Expires > now.time_since_epoch().count();
        if (alive && matchesHost(cookie, parts.Host) && matchesPath(cookie.Path, path) &&
            (!cookie.Secure || parts.Scheme == "https" || isLoopback(parts.Host))) {
            chosen.push_back(&cookie);
        }
    }
    std::stable_sort(chosen.begin(), chosen.end(),
                     [](const Cookie* a, const Cookie* b) { return a->Path.size() > b->Path.size(); });
    std::string value;
    for (const Cookie* cookie : chosen) {
        value += (value.empty() ? "" : "; ") + cookie->Name + "=" + cookie->Value;
    }
    return value;
}

// One cookie replaces another of the same name, domain and path (RFC 6265, section 5.3).
void CookieJar::forgetReplaced(std::string_view setCookie, std::string_view url) {
    const UrlParts parts = splitUrl(url);
    const std::size_t end = std::min(setCookie.find(';'), setCookie.size());
    const std::string_view name = withoutBlanks(setCookie.substr(0, std::min(setCookie.find('='), end)));
    std::string domain = parts.Host;
    const std::size_t slash = parts.Path.rfind('/');
    std::string path = slash == parts.Path.npos || slash == 0 ? "/" : parts.Path.substr(0, slash);
    for (std::size_t start = end + 1; start < setCookie.size();) {
        const std::size_t next = std::min(setCookie.find(';', start), setCookie.size());
        const std::string_view attribute = setCookie.substr(start, next - start);
        const std::size_t sign = attribute.find('=');
        start = next + 1;
        if (sign == attribute.npos) {
            continue;
        }
        const std::string_view word = withoutBlanks(attribute.substr(0, sign));
        const std::string_view value = withoutBlanks(attribute.substr(sign + 1));
        if (equalsIgnoringCase(word, "Domain") && !value.empty()) {
            domain = lowered(value.substr(value.starts_with('.') ? 1 : 0));
        } else if (equalsIgnoringCase(word, "Path") && value.starts_with('/')) {
            path = value;
        }
    }
    std::erase_if(Cookies, [&](const Cookie& cookie) {
        return cookie.Name == name && cookie.Domain == domain && withoutEnd(cookie.Path) == withoutEnd(path) &&
               matchesHost(cookie, parts.Host);
    });
}

} // namespace netrove::cli
