// Values of options as they are typed: numbers, sizes, times, schemes. Each raises a usage failure that names the
// option.
#pragma once

#include "cli/options/Settings.h"

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr double kLongestSeconds = 1e8; // fits a count of nanoseconds

// "'x' is not a valid value for --NAME; it takes WANTED".
[[noreturn]] void failValue(const char* option, const std::string& text, const std::string& wanted);

template <class Number> // int, std::uint64_t or double
Number number(const char* option, const std::string& text, Number least, Number most);

// Lengths of time: a plain number counts in the unit that the function is named for; ms, s, m or h may follow.
double milliseconds(const char* option, const std::string& text, double least, double most);
double seconds(const char* option, const std::string& text, double least, double most);
// Milliseconds for the class; 0 lifts the limit.
double limitMs(const char* option, const std::string& text);

constexpr std::uint64_t kLargestSize = std::uint64_t{1} << 50;

// Bytes from 1; k, M or G may follow, for powers of 1024.
std::uint64_t byteSize(const char* option, const std::string& text, std::uint64_t most);

// Names of authentication schemes, separated by commas.
std::vector<std::string> schemes(const char* option, const std::string& text);
std::span<const std::string_view> knownSchemes();

// What "@FILE" names; "@-" is standard input.
std::string fileText(Settings& settings, const std::string& text);

// One of a few words.
template <class Value>
struct Choice {
    std::string_view Word;
    Value Meaning;
};
[[noreturn]] void failChoice(const char* option, const std::string& text, const std::vector<std::string_view>& words);

template <class Value, std::size_t count>
Value chosen(const char* option, const std::string& text, const Choice<Value> (&choices)[count]) {
    std::vector<std::string_view> words;
    for (const Choice<Value>& choice : choices) {
        if (choice.Word == text) {
            return choice.Meaning;
        }
        words.push_back(choice.Word);
    }
    failChoice(option, text, words);
}

std::string nonEmpty(const char* option, const std::string& text);

} // namespace netrove::cli
