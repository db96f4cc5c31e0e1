#include "embedded/proxy/EnvironmentProxy.h"

#include <boost/url/grammar/ci_string.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <span>
#include <vector>

namespace vantik::detail {

namespace {

using boost::urls::grammar::ci_is_equal;

// The first that is set decides, an empty one for a direct connection. HTTP_PROXY is not among them: in a CGI program
// it is what the caller has sent as the field Proxy.
constexpr const char* kForHttps[] = {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "http_proxy"};
constexpr const char* kForHttp[] = {"http_proxy", "all_proxy", "ALL_PROXY"};
constexpr const char* kForNone[] = {"no_proxy", "NO_PROXY"};
constexpr const char* kRefused = "HTTP_PROXY";

const char* firstSet(std::span<const char* const> names) {
    const auto found =
        std::find_if(names.begin(), names.end(), [](const char* name) { return std::getenv(name) != nullptr; });
    return found == names.end() ? nullptr : *found;
}

template <class Number>
std::optional<Number> number(std::string_view text) {
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && ci_is_equal(text.substr(text.size() - end.size()), end);
}

struct Place {
    std::string_view Host; // without brackets
    std::optional<std::uint16_t> Port = {};
};

// "host", "host:port", "[address]", "[address]:port" or a bare IPv6 address.
Place placeOf(std::string_view text) {
    const bool bracketed = text.starts_with('[');
    const std::size_t close = bracketed ? text.find(']') : text.npos;
    const std::string_view host = close == text.npos ? text : text.substr(1, close - 1);
    const std::string_view rest = close == text.npos ? text : text.substr(close + 1);
    const std::size_t colon = rest.find(':');
    if (colon == rest.npos || rest.find(':', colon + 1) != rest.npos) {
        return {host};
    }
    return {bracketed ? host : rest.substr(0, colon), number<std::uint16_t>(rest.substr(colon + 1))};
}

std::vector<unsigned char> addressOf(std::string_view text) {
    const std::string copy(text); // for the NUL at its end
    std::vector<unsigned char> bytes(text.find(':') == text.npos ? sizeof(in_addr) : sizeof(in6_addr));
    const int family = bytes.size() == sizeof(in_addr) ? AF_INET : AF_INET6;
    return inet_pton(family, copy.c_str(), bytes.data()) == 1 ? bytes : std::vector<unsigned char>();
}

// "10.0.0.0/8"
bool isInNetwork(std::string_view network, std::string_view host) {
    const std::size_t slash = network.find('/');
    const auto bits = number<unsigned>(network.substr(slash + 1));
    const auto from = addressOf(placeOf(network.substr(0, slash)).Host);
    const auto address = addressOf(host);
    if (!bits || from.empty() || from.size() != address.size() || *bits > 8 * from.size()) {
        return false;
    }
    const unsigned whole = *bits / 8;
    const unsigned mask = 0xFF00U >> (*bits % 8) & 0xFFU; // of the byte where the network's part ends
    return std::equal(from.begin(), from.begin() + whole, address.begin()) &&
           (mask == 0 || (from[whole] & mask) == (address[whole] & mask));
}

bool fits(std::string_view entry, std::string_view host, std::uint16_t port) {
    if (entry == "*") {
        return true;
    }
    if (host.empty()) {
        return false;
    }
    if (entry == "<local>") {
        return host.find_first_of(".:") == host.npos;
    }
    if (entry.find('/') != entry.npos) {
        return isInNetwork(entry, host);
    }
    const Place place = placeOf(entry);
    if (place.Host.empty() || (place.Port && *place.Port != port)) {
        return false;
    }
    if (place.Host.starts_with('*')) {
        return endsWith(host, place.Host.substr(1));
    }
    if (place.Host.starts_with('.')) {
        return endsWith(host, place.Host);
    }
    if (const auto address = addressOf(host); !address.empty()) {
        return address == addressOf(place.Host); // has no names below it
    }
    return ci_is_equal(host, place.Host) || endsWith(host, "." + std::string(place.Host));
}

bool isExcepted(std::string_view question, const char* variable) {
    const bool secure = question.starts_with("https:");
    const std::size_t start = question.find("://") + 3;
    const Place place = placeOf(question.substr(start, question.find('/', start) - start));
    return isException(std::getenv(variable), place.Host, place.Port.value_or(secure ? 443 : 80));
}

bool namesScript(std::string_view setting) {
    return setting.starts_with("pac+") || setting.starts_with("wpad:");
}

} // namespace

bool isException(std::string_view exceptions, std::string_view host, std::uint16_t port) {
    constexpr std::string_view separators = ", \t";
    for (std::size_t start = 0; start < exceptions.size();) {
        const std::size_t end = std::min(exceptions.find_first_of(separators, start), exceptions.size());
        if (end > start && fits(exceptions.substr(start, end - start), host, port)) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

bool environmentHasProxies() {
    return firstSet(kForHttps) != nullptr || firstSet(kForHttp) != nullptr;
}

EnvironmentProxy environmentProxy(std::string_view question) {
    using Kind = EnvironmentProxy::Kind;
    if (const char* none = firstSet(kForNone); none != nullptr && isExcepted(question, none)) {
        return {Kind::Direct, none};
    }
    const bool secure = question.starts_with("https:");
    const char* const name = secure ? firstSet(kForHttps) : firstSet(kForHttp);
    if (name == nullptr) {
        // libproxy would take it, so it cannot be asked for other settings.
        return std::getenv(kRefused) == nullptr ? EnvironmentProxy{} : EnvironmentProxy{Kind::Direct, kRefused};
    }
    const std::string setting = std::getenv(name);
    if (setting.empty() || setting == "direct" || setting.starts_with("direct:")) {
        return {Kind::Direct, name};
    }
    const bool libproxyReads = std::string_view(name) != "all_proxy" && std::string_view(name) != "ALL_PROXY";
    return {libproxyReads && namesScript(setting) ? Kind::Script : Kind::Proxy, name, setting};
}

} // namespace vantik::detail
