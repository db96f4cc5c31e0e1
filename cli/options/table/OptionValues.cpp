#include "cli/options/table/OptionValues.h"

#include "cli/failures/CliFailure.h"
#include "cli/system/BodySource.h"

#include <netrove/text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <optional>
#include <type_traits>

namespace netrove::cli {

namespace {

constexpr double kLongestMs = 2147483647.0; // what the class can hold

// Numbers are read and shown in the same way in every locale.
template <class Number>
std::optional<Number> parsed(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

template <class Number>
std::string shown(Number value) {
    if constexpr (std::is_integral_v<Number>) {
        return std::to_string(value);
    } else {
        std::array<char, 64> buffer{};
        const auto written =
            std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
        return {buffer.data(), written.ptr};
    }
}

template <class Number>
std::string rangeText(Number least, Number most) {
    return std::string(std::is_integral_v<Number> ? "a whole number" : "a number") + " from " + shown(least) + " to " +
           shown(most);
}

// The members of the enumeration; users type them in lower case.
constexpr std::string_view kSchemes[] = {"Basic", "Digest", "NTLM", "Negotiate"};
constexpr std::string_view kTypedSchemes[] = {"basic", "digest", "ntlm", "negotiate"};
static_assert(std::size(kSchemes) == std::size(kTypedSchemes));

struct TimeUnit {
    std::string_view Suffix;
    double Milliseconds;
};
// The longer suffix first where one ends with the other.
constexpr TimeUnit kTimeUnits[] = {{"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}};

struct SizeUnit {
    char Letter;
    char Other;
    std::uint64_t Bytes;
};
constexpr SizeUnit kSizeUnits[] = {
    {'G', 'g', std::uint64_t{1} << 30}, {'M', 'm', std::uint64_t{1} << 20}, {'k', 'K', std::uint64_t{1} << 10}};

// In the largest unit that leaves no rest.
std::string shownSize(std::uint64_t bytes) {
    for (const SizeUnit& unit : kSizeUnits) {
        if (bytes % unit.Bytes == 0) {
            return std::to_string(bytes / unit.Bytes) + unit.Letter;
        }
    }
    return std::to_string(bytes);
}

// In units of `unitMs`.
double lengthOfTime(const char* option, const std::string& text, const std::string& unit, double unitMs, double least,
                    double most) {
    std::string_view digits = text;
    double factor = 1;
    for (const TimeUnit& known : kTimeUnits) {
        if (digits.ends_with(known.Suffix)) {
            digits.remove_suffix(known.Suffix.size());
            factor = known.Milliseconds / unitMs;
            break;
        }
    }
    const double value = parsed<double>(digits).value_or(-1) * factor;
    if (!(value >= least && value <= most)) {
        failValue(option, text,
                  unit + " from " + shown(least) + " to " + shown(most) + ", or a time such as 500ms, 10s, 2m or 1h");
    }
    return value;
}

} // namespace

void failValue(const char* option, const std::string& text, const std::string& wanted) {
    failUsage("'" + printable(text) + "' is not a valid value for --" + option + "; it takes " + wanted);
}

template <class Number>
Number number(const char* option, const std::string& text, Number least, Number most) {
    const auto value = parsed<Number>(text);
    if (!value || !(*value >= least && *value <= most)) {
        failValue(option, text, rangeText(least, most));
    }
    return *value;
}

template int number(const char*, const std::string&, int, int);
template std::uint64_t number(const char*, const std::string&, std::uint64_t, std::uint64_t);
template double number(const char*, const std::string&, double, double);

double milliseconds(const char* option, const std::string& text, double least, double most) {
    return lengthOfTime(option, text, "milliseconds", 1, least, most);
}

double seconds(const char* option, const std::string& text, double least, double most) {
    return lengthOfTime(option, text, "seconds", 1000, least, most);
}

double limitMs(const char* option, const std::string& text) {
    const double value = milliseconds(option, text, 0.0, kLongestMs);
    return value == 0 ? kInfinite : value;
}

std::uint64_t byteSize(const char* option, const std::string& text, std::uint64_t most) {
    std::string_view digits = text;
    std::uint64_t factor = 1;
    for (const SizeUnit& unit : kSizeUnits) {
        if (!digits.empty() && (digits.back() == unit.Letter || digits.back() == unit.Other)) {
            factor = unit.Bytes;
            digits.remove_suffix(1);
            break;
        }
    }
    const auto value = parsed<std::uint64_t>(digits);
    if (!value || *value == 0 || *value > most / factor) {
        failValue(option, text, "a whole number from 1 to " + shownSize(most) + ", which k, M or G may follow");
    }
    return *value * factor;
}

void failChoice(const char* option, const std::string& text, const std::vector<std::string_view>& words) {
    std::string known;
    for (std::size_t i = 0; i < words.size(); ++i) {
        known += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + std::string(words[i]);
    }
    failUsage("'" + printable(text) + "' is not a valid value for --" + option + "; use " + known);
}

std::vector<std::string> schemes(const char* option, const std::string& text) {
    std::vector<std::string> result;
    for (std::size_t start = 0; start <= text.size();) {
        const auto comma = std::min(text.find(',', start), text.size());
        const std::string_view word = std::string_view(text).substr(start, comma - start);
        const auto* known = std::find_if(std::begin(kSchemes), std::end(kSchemes),
                                         [&](std::string_view name) { return equalsIgnoringCase(name, word); });
        if (known == std::end(kSchemes)) {
            failUsage("'" + printable(word) + "' is not a valid scheme for --" + option +
                      "; use basic, digest, ntlm or negotiate");
        }
        result.emplace_back(*known);
        start = comma + 1;
    }
    return result;
}

std::span<const std::string_view> knownSchemes() {
    return kTypedSchemes;
}

std::string nonEmpty(const char* option, const std::string& text) {
    if (text.empty()) {
        failUsage(std::string("--") + option + " needs a non-empty value");
    }
    return text;
}

std::string fileText(Settings& settings, const std::string& text) {
    settings.InputReaders += text == "@-" ? 1 : 0;
    return readWhole(text.substr(1));
}

} // namespace netrove::cli
