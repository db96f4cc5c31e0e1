#include "client/text/HttpDate.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <vector>

namespace netrove {

namespace {

std::optional<int> smallNumber(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool number =
        !text.empty() && text.front() != '-' && error == std::errc() && end == text.data() + text.size();
    return number ? std::optional(value) : std::nullopt;
}

std::vector<std::string_view> split(std::string_view text, std::string_view separators) {
    std::vector<std::string_view> words;
    while (!text.empty()) {
        const auto end = std::min(text.find_first_of(separators), text.size());
        if (end != 0) {
            words.push_back(text.substr(0, end));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

std::optional<unsigned> monthNumber(std::string_view name) {
    constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const auto* found = std::find(kMonths.begin(), kMonths.end(), name);
    if (found == kMonths.end()) {
        return std::nullopt;
    }
    return static_cast<unsigned>(found - kMonths.begin()) + 1;
}

// A two-digit year that would be more than fifty years ahead is the most recent one with those digits.
int fullYear(int year, WallClock::time_point now) {
    const int current =
        static_cast<int>(std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(now)).year());
    const int guess = current - current % 100 + year;
    return guess > current + 50 ? guess - 100 : guess;
}

// In seconds: the clock's own unit is too fine for all the dates that a server may name.
std::optional<std::chrono::sys_seconds> moment(std::optional<int> year, std::optional<unsigned> month,
                                               std::optional<int> day, std::string_view time) {
    const auto parts = split(time, ":");
    if (!year || *year > 9999 || !month || !day || *day > 31 || parts.size() != 3) {
        return std::nullopt;
    }
    const auto hour = smallNumber(parts[0]);
    const auto minute = smallNumber(parts[1]);
    const auto second = smallNumber(parts[2]);
    const std::chrono::year_month_day date(std::chrono::year(*year), std::chrono::month(*month),
                                           std::chrono::day(static_cast<unsigned>(*day)));
    if (!date.ok() || !hour || *hour > 23 || !minute || *minute > 59 || !second || *second > 60) {
        return std::nullopt;
    }
    return std::chrono::sys_days(date) + std::chrono::hours(*hour) + std::chrono::minutes(*minute) +
           std::chrono::seconds(*second);
}

} // namespace

// The three forms of RFC 9110, section 5.6.7. Poco::DateTimeParser reads them too, but takes "soon" for the year 0 and
// "-6" for 6, because it skips what it does not expect; and a wrong moment is worse than none.
// "Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994".
std::optional<std::chrono::sys_seconds> parseHttpDate(std::string_view text, WallClock::time_point now) {
    const auto words = split(text, " ");
    if (words.size() == 6 && words[0].ends_with(',') && words[5] == "GMT") {
        return moment(smallNumber(words[3]), monthNumber(words[2]), smallNumber(words[1]), words[4]);
    }
    if (words.size() == 5 && !words[0].ends_with(',')) {
        return moment(smallNumber(words[4]), monthNumber(words[1]), smallNumber(words[2]), words[3]);
    }
    if (words.size() != 4 || !words[0].ends_with(',') || words[3] != "GMT") {
        return std::nullopt;
    }
    const auto date = split(words[1], "-");
    const auto year = date.size() == 3 ? smallNumber(date[2]) : std::nullopt;
    if (!year || *year > 99) {
        return std::nullopt;
    }
    return moment(fullYear(*year, now), monthNumber(date[1]), smallNumber(date[0]), words[2]);
}

std::optional<double> parseRetryAfter(std::string_view value, WallClock::time_point now) {
    const bool digits =
        !value.empty() && std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (digits) {
        // Any number of digits: what does not fit is longer than anybody waits.
        double seconds = 0;
        for (const char c : value) {
            seconds = std::min(seconds * 10 + (c - '0'), 1e12);
        }
        return seconds;
    }
    const auto when = parseHttpDate(value, now);
    if (!when) {
        return std::nullopt;
    }
    const auto second = std::chrono::floor<std::chrono::seconds>(now);
    const std::chrono::duration<double> rest = now - second;
    return std::max(0.0, static_cast<double>((*when - second).count()) - rest.count());
}

} // namespace netrove
