#include "vantik/Http.h"

#include "embedded/arrays/Array.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/program/Boundary.h"
#include "embedded/program/ProgramValues.h"
#include "embedded/proxy/EnvironmentProxy.h"
#include "embedded/proxy/LibproxyPlugIns.h"
#include "embedded/proxy/ProxyText.h"
#include "vantik/ProxySettings.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

namespace vantik {

namespace {

constexpr double kLongestLimit = 2147483647; // ms; the class stores a limit in 31 bits

[[noreturn]] void fail(const char* key, std::string argument) {
    throw Failure(detail::messageFor(detail::HostMessage({std::move(argument)}, "VANTIK:host", key)));
}

// RFC 9110, section 5.6.2.
bool isTokenCharacter(char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string_view::npos;
}

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

// The failure for a piece of a request head without a line end; the piece follows, to the end of the text.
constexpr std::string_view kCutHead = "CRLF not found in headers:\n";

constexpr std::string_view kNameLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-";

// `name` has nothing but the letters above, whose case is bit 5.
bool isSecretField(std::string_view name) {
    const auto sameLetter = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
    return std::any_of(std::begin(kSecretHttpFields), std::end(kSecretHttpFields), [&](std::string_view secret) {
        return std::equal(name.begin(), name.end(), secret.begin(), secret.end(), sameLetter);
    });
}

// Where the value of a field ends: before the first line end whose next line is not a continuation.
std::size_t valueEnd(std::string_view text) {
    std::size_t end = text.find('\n');
    while (end != std::string_view::npos && end + 1 < text.size() && (text[end + 1] == ' ' || text[end + 1] == '\t')) {
        end = text.find('\n', end + 1);
    }
    if (end == std::string_view::npos) {
        return text.size();
    }
    return end > 0 && text[end - 1] == '\r' ? end - 1 : end;
}

double checkedLimit(Milliseconds limit) {
    if (!(limit.count() > 0)) { // refuses NaN too
        fail("InvalidTimeLimit", std::to_string(limit.count()));
    }
    return limit.count() > kLongestLimit ? kNoLimit.count() : limit.count();
}

} // namespace

Array httpFields(std::span<const HttpField> fields) {
    auto* contents = new detail::StructContents(1, fields.size(), {"Name", "Value"});
    Array result = Array::adopt(detail::makeArray(contents));
    for (std::size_t index = 0; index < fields.size(); ++index) {
        const HttpField& field = fields[index];
        if (!isToken(field.Name)) {
            fail("InvalidFieldName", field.Name);
        }
        if (field.Value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
            fail("InvalidFieldValue", field.Name); // the value may be a secret
        }
        detail::setField(*contents, index, 0, Array(field.Name));
        detail::setField(*contents, index, 1, Array(field.Value));
    }
    return result;
}

Array httpFields(std::initializer_list<HttpField> fields) {
    return httpFields(std::span<const HttpField>(fields.begin(), fields.size()));
}

std::vector<HttpField> readHttpFields(const Array& fields) {
    std::vector<HttpField> result;
    if (fields.size() == 0) {
        fields.fieldNames(); // raises for what is not a struct, even an empty one
    }
    result.reserve(fields.size());
    for (std::size_t index = 0; index < fields.size(); ++index) {
        result.push_back({detail::fieldText(fields, "Name", index), detail::fieldText(fields, "Value", index)});
    }
    return result;
}

std::string withoutSecrets(std::string_view text) {
    const std::size_t cut = text.find(kCutHead);
    std::string_view rest = text.substr(0, cut);
    std::string result;
    while (!rest.empty()) {
        const std::size_t length =
            std::max<std::size_t>(std::min(rest.find_first_not_of(kNameLetters), rest.size()), 1);
        const std::string_view name = rest.substr(0, length);
        result += name;
        rest.remove_prefix(length);
        const std::size_t colon = rest.find_first_not_of(" \t");
        if (isSecretField(name) && colon != std::string_view::npos && rest[colon] == ':') {
            result += ": ***";
            rest.remove_prefix(valueEnd(rest));
        }
    }
    if (cut != std::string_view::npos) {
        const std::size_t quoted = text.size() - cut - kCutHead.size();
        result +=
            std::string(kCutHead.substr(0, kCutHead.find(':'))) + " (" + std::to_string(quoted) + " bytes, not shown)";
    }
    return result;
}

std::string proxyVariable(std::string_view url) {
    try {
        return detail::environmentProxy(detail::proxyQuestion(std::string(url))).Variable;
    } catch (const std::invalid_argument&) {
        return {}; // no URL
    }
}

bool proxySettingsExist() {
    return detail::environmentHasProxies() || detail::libproxyReadsMoreThanEnvironment();
}

HttpProxy readHttpProxy(std::string_view text) {
    try {
        detail::ProxyText proxy = detail::readProxy(text);
        return {std::move(proxy.Host), proxy.Port, std::move(proxy.Username), std::move(proxy.Password),
                std::move(proxy.Path)};
    } catch (const std::invalid_argument& refusal) {
        fail("InvalidProxy", refusal.what());
    }
}

Array httpTimeouts(const HttpTimeouts& limits) {
    return Array::doubles({checkedLimit(limits.Connect), checkedLimit(limits.Response), checkedLimit(limits.Data)});
}

} // namespace vantik
