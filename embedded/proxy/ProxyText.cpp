#include "embedded/proxy/ProxyText.h"

#include <boost/url/grammar/ci_string.hpp>
#include <boost/url/grammar/hexdig_chars.hpp>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace vantik::detail {

namespace {

struct SchemeRow {
    std::string_view Name;
    std::uint16_t Port; // where the text names none
};

// What libcurl knows; "socks" is socks4 for it.
constexpr SchemeRow kSchemes[] = {
    {"http", 80},      {"https", 443},   {"socks", 1080},   {"socks4", 1080},
    {"socks4a", 1080}, {"socks5", 1080}, {"socks5h", 1080},
};
constexpr std::string_view kUnmarked = "http"; // "host:port" alone is usual in environments

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

// A "%" that begins no encoding stays, where Boost.URL would refuse the text: people write passwords into settings as
// they are.
std::string percentDecoded(std::string_view text) {
    using boost::urls::grammar::hexdig_value;
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexdig_value(text[i + 1]) >= 0 && hexdig_value(text[i + 2]) >= 0) {
            result += static_cast<char>(hexdig_value(text[i + 1]) * 16 + hexdig_value(text[i + 2]));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

// The end of the authority that starts at `start`.
std::size_t authorityEnd(std::string_view url, std::size_t start) {
    const auto ends = [](char character) { return character == '/' || character == '?' || character == '#'; };
    return static_cast<std::size_t>(std::find_if(url.begin() + static_cast<std::ptrdiff_t>(start), url.end(), ends) -
                                    url.begin());
}

[[noreturn]] void refuse(const char* reason) {
    throw std::invalid_argument(reason);
}

const SchemeRow& findScheme(std::string_view name) {
    const auto* const row = std::ranges::find_if(
        kSchemes, [name](const SchemeRow& scheme) { return boost::urls::grammar::ci_is_equal(scheme.Name, name); });
    if (row == std::end(kSchemes)) {
        refuse("its scheme is not one of http, https, socks4, socks4a, socks5 and socks5h");
    }
    return *row;
}

std::uint16_t parsePort(std::string_view text) {
    unsigned port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port == 0 || port > 65535) {
        refuse("its port is not a number from 1 to 65535");
    }
    return static_cast<std::uint16_t>(port);
}

// Of a setting, not of a URL as Boost.URL reads one: a password may hold "/", "?" and "#" as they are, so the last "@"
// ends it.
std::pair<std::string_view, std::string_view> splitCredentials(std::string_view rest) {
    const std::size_t at = rest.rfind('@');
    if (at == std::string_view::npos) {
        return {{}, rest};
    }
    return {rest.substr(0, at), rest.substr(at + 1)};
}

} // namespace

ProxyText readProxy(std::string_view text) {
    if (std::ranges::any_of(text, isControl)) {
        refuse("it holds a control character");
    }
    std::string_view schemeName = kUnmarked;
    std::string_view rest = text;
    if (const std::size_t mark = rest.find("://"); mark != std::string_view::npos) {
        schemeName = rest.substr(0, mark);
        rest.remove_prefix(mark + 3);
    }
    const SchemeRow& scheme = findScheme(schemeName);

    const auto [credentials, location] = splitCredentials(rest);
    const std::string_view authority = location.substr(0, authorityEnd(location, 0));
    // A bracketed address holds colons of its own.
    const std::size_t hostEnd = authority.starts_with('[') ? authority.find(']') : std::string_view::npos;
    const std::size_t colon = authority.find(':', hostEnd == std::string_view::npos ? 0 : hostEnd);
    const std::string_view host = authority.substr(0, colon);
    if (host.empty() || (host.front() == '[') != (host.back() == ']') || host.find(' ') != std::string_view::npos) {
        refuse("it names no host");
    }

    ProxyText proxy;
    proxy.Host = scheme.Name == kUnmarked ? std::string(host) : std::string(scheme.Name) + "://" + std::string(host);
    proxy.Port = scheme.Port;
    if (colon != std::string_view::npos && colon + 1 < authority.size()) {
        proxy.Port = parsePort(authority.substr(colon + 1));
    }
    if (!credentials.empty()) {
        const std::size_t separator = std::min(credentials.find(':'), credentials.size());
        const std::size_t password = std::min(separator + 1, credentials.size());
        proxy.HasCredentials = true;
        proxy.Username = percentDecoded(credentials.substr(0, separator));
        proxy.Password = percentDecoded(credentials.substr(password));
    }
    proxy.Path = location.substr(authority.size());
    return proxy;
}

// By hand, since the question is put for whatever has a scheme, also for what Boost.URL refuses.
std::string proxyQuestion(const std::string& url) {
    if (std::ranges::any_of(url, isControl)) {
        throw std::invalid_argument("A URL with control characters has no proxy");
    }
    const std::size_t mark = url.find("://");
    if (mark == std::string::npos || mark == 0) {
        throw std::invalid_argument("Text without a scheme has no proxy");
    }
    const std::size_t start = mark + 3;
    const std::size_t end = authorityEnd(url, start);
    if (end == start) {
        return url.substr(0, start);
    }
    const std::size_t at = url.rfind('@', end);
    const bool credentials = at != std::string::npos && at >= start && at < end;
    const std::size_t host = credentials ? at + 1 : start;
    return url.substr(0, start) + url.substr(host, end - host) + "/";
}

} // namespace vantik::detail
