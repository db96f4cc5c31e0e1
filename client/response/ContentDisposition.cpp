#include "client/response/ContentDisposition.h"

#include "client/response/Parameters.h"
#include "client/text/Ascii.h"

#include <netrove/text.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <set>

namespace netrove {

namespace {

constexpr std::size_t kLongest = 200; // bytes; leaves room for the name of a temporary file within the usual 255

// Whatever folder they are in and whatever ending they have, Windows and its shares take these for devices.
constexpr std::array<std::string_view, 6> kDevices = {"con", "prn", "aux", "nul", "conin$", "conout$"};
constexpr std::array<std::string_view, 2> kNumberedDevices = {"com", "lpt"};
constexpr std::array<std::string_view, 13> kDeviceNumbers = {
    "0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "\xC2\xB9", "\xC2\xB2", "\xC2\xB3"}; // superscripts too

bool isDevice(std::string_view name) {
    std::string base = lowered(name.substr(0, name.find_first_of(".:")));
    base.erase(base.find_last_not_of(' ') + 1);
    const auto among = [](const auto& list, std::string_view text) {
        return std::find(list.begin(), list.end(), text) != list.end();
    };
    if (among(kDevices, base)) {
        return true;
    }
    const std::string_view number = std::string_view(base).substr(std::min<std::size_t>(3, base.size()));
    return among(kNumberedDevices, base.substr(0, 3)) && among(kDeviceNumbers, number);
}

std::string fromLatin1(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        std::array<char, U8_MAX_LENGTH> character;
        std::size_t length = 0;
        U8_APPEND_UNSAFE(character, length, byte);
        result.append(character.data(), length);
    }
    return result;
}

// Nothing for a '%' without two hexadecimal digits.
std::optional<std::string> percentDecoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        const std::string_view digits = text.substr(i + 1, 2);
        unsigned char byte = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (digits.size() < 2 || error != std::errc() || end != digits.data() + digits.size()) {
            return std::nullopt;
        }
        result += static_cast<char>(byte);
        i += 2;
    }
    return result;
}

// charset'language'text, percent-encoded (RFC 8187, section 3.2). Nothing for what cannot be read.
std::optional<std::string> extendedValue(std::string_view value) {
    const auto first = value.find('\'');
    const auto second = value.find('\'', first + 1);
    if (first == value.npos || second == value.npos) {
        return std::nullopt;
    }
    const std::string_view charset = value.substr(0, first);
    std::optional<std::string> text = percentDecoded(value.substr(second + 1));
    if (text && equalsIgnoringCase(charset, "utf-8") && isUtf8(*text)) {
        return text;
    }
    // RFC 5987, the predecessor, has this one too.
    if (text && equalsIgnoringCase(charset, "iso-8859-1")) {
        return fromLatin1(*text);
    }
    return std::nullopt;
}

std::optional<std::string> vetted(std::string_view name) {
    std::string result(name.substr(name.find_last_of("/\\") + 1));
    // Nobody asks for a hidden file, such as one that a shell reads at its start.
    result.erase(0, std::min(result.find_first_not_of(". "), result.size()));
    if (result.size() > kLongest) {
        std::size_t end = kLongest;
        while (end > 0 && U8_IS_TRAIL(static_cast<std::uint8_t>(result[end]))) {
            --end;
        }
        result.resize(end);
    }
    result.erase(result.find_last_not_of(' ') + 1);
    // A control character moves a cursor; one that turns the direction of writing makes "exe.txt" of "txt.exe".
    if (result.empty() || isDevice(result) || replaceControls(result, "?") != result) {
        return std::nullopt;
    }
    return result;
}

} // namespace

std::optional<std::string> fileNameOf(std::string_view contentDisposition) {
    const Parameters parameters = parseParameters(contentDisposition);
    if (!parameters.Valid || parameters.Main.empty() || parameters.Main.find_first_of("=\" ") != std::string::npos) {
        return std::nullopt;
    }
    std::set<std::string_view> seen;
    std::optional<std::string> plain;
    std::optional<std::string> extended;
    for (const Parameter& parameter : parameters.List) {
        if (!seen.insert(parameter.Name).second) {
            return std::nullopt;
        }
        if (parameter.Name == "filename") {
            // ISO-8859-1 by the RFC, UTF-8 as most servers send it.
            plain = isUtf8(parameter.Value) ? parameter.Value : fromLatin1(parameter.Value);
        } else if (parameter.Name == "filename*") {
            extended = extendedValue(parameter.Value);
        }
    }
    const std::optional<std::string>& name = extended ? extended : plain;
    return name ? vetted(*name) : std::nullopt;
}

} // namespace netrove
