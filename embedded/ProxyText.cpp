#include "embedded/ProxyText.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace vantik::detail {

using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyCredentials;

namespace {

class StoredCredentials final : public ProxyCredentials {
public:
    StoredCredentials(std::string username, std::string password)
        : Username(std::move(username)), Password(std::move(password)) {}
    std::string getUsername() const override { return Username; }
    std::string getPassword() const override { return Password; }

private:
    std::string Username;
    std::string Password;
};

char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

int hexDigit(char c) {
    const char digit = lowered(c);
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

// A "%" that begins no encoding stays: people write passwords into settings as they are.
std::string percentDecoded(std::string_view text) {
    std::string result;
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

// The end of the authority that starts at `start`.
std::size_t authorityEnd(std::string_view url, std::size_t start) {
    return std::min(url.find_first_of("/?#", start), url.size());
}

[[noreturn]] void refuse(const char* reason) {
    throw std::runtime_error(std::string("A proxy setting of this system cannot be used: ") + reason);
}

std::uint16_t parsePort(std::string_view text) {
    unsigned port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port == 0 || port > 65535) {
        refuse("its port is no number from 1 to 65535");
    }
    return static_cast<std::uint16_t>(port);
}

// Of a setting, not of a URL: a password in it may hold "/", "?" and "#" as they are, so the last "@" ends it.
std::pair<std::string_view, std::string_view> splitCredentials(std::string_view rest) {
    const std::size_t at = rest.rfind('@');
    if (at == std::string_view::npos) {
        return {{}, rest};
    }
    return {rest.substr(0, at), rest.substr(at + 1)};
}

} // namespace

std::optional<Proxy> parseProxy(const std::string& setting) {
    if (std::ranges::any_of(setting, isControl)) {
        refuse("it holds a control character");
    }
    std::string scheme = "http"; // "host:port" alone is usual in environments
    std::string_view rest = setting;
    if (const std::size_t mark = rest.find("://"); mark != std::string_view::npos) {
        scheme = rest.substr(0, mark);
        std::ranges::transform(scheme, scheme.begin(), lowered);
        rest.remove_prefix(mark + 3);
    }
    if (scheme != "http" && scheme != "https") {
        return std::nullopt;
    }

    const auto [credentials, location] = splitCredentials(rest);
    const std::string_view authority = location.substr(0, authorityEnd(location, 0));
    // A bracketed address holds colons of its own.
    const std::size_t hostEnd = authority.starts_with('[') ? authority.find(']') : std::string_view::npos;
    const std::size_t colon = authority.find(':', hostEnd == std::string_view::npos ? 0 : hostEnd);
    const std::string_view host = authority.substr(0, colon);
    if (host.empty() || (host.front() == '[') != (host.back() == ']') || host.find(' ') != std::string_view::npos) {
        refuse("it names no host");
    }
    std::uint16_t port = scheme == "https" ? 443 : 80;
    if (colon != std::string_view::npos && colon + 1 < authority.size()) {
        port = parsePort(authority.substr(colon + 1));
    }

    std::shared_ptr<const ProxyCredentials> stored;
    if (!credentials.empty()) {
        const std::size_t separator = std::min(credentials.find(':'), credentials.size());
        const std::size_t password = std::min(separator + 1, credentials.size());
        stored = std::make_shared<StoredCredentials>(percentDecoded(credentials.substr(0, separator)),
                                                     percentDecoded(credentials.substr(password)));
    }
    return Proxy(std::string(host), port, std::move(stored));
}

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
    std::string question = url.substr(0, url.find('#', end));
    const std::size_t at = url.rfind('@', end);
    if (at != std::string::npos && at >= start && at < end) {
        question.erase(start, at + 1 - start);
    }
    return question;
}

} // namespace vantik::detail
