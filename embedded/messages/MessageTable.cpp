#include "embedded/messages/MessageTable.h"

#include "host/Text.h"
#include "late/IcuCalls.h"
#include "late/LateLibrary.h"

#include <unicode/utf16.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace vantik::detail {

extern const char kEnglishMessages[]; // made from messages/en.txt

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// A catalogue of one or more parts, a colon and a key.
bool isFullName(std::string_view name) {
    const auto isPartCharacter = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    };
    std::size_t parts = 0;
    for (std::size_t start = 0; start <= name.size(); ++parts) {
        const std::size_t end = std::min(name.find(':', start), name.size());
        const std::string_view part = name.substr(start, end - start);
        if (part.empty() || !std::ranges::all_of(part, isPartCharacter)) {
            return false;
        }
        start = end + 1;
    }
    return parts >= 2;
}

// More of one argument than this is of no use, and ICU counts in 32 bits.
constexpr std::size_t kLongestArgument = 1U << 20U;

// Text from outside may hold halves of surrogate pairs; a text that shows a failure must not fail itself.
std::u16string wellFormed(std::u16string text) {
    if (text.size() > kLongestArgument) {
        text.resize(kLongestArgument);
        text += u'\u2026';
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (U16_IS_LEAD(text[i]) && i + 1 < text.size() && U16_IS_TRAIL(text[i + 1])) {
            ++i;
        } else if (U16_IS_SURROGATE(text[i])) {
            text[i] = u'\uFFFD';
        }
    }
    return text;
}

std::u16string argumentText(const resource_core::MsgArgument& argument) {
    if (const auto* number = std::get_if<std::int64_t>(&argument)) {
        return fl::i18n::to_ustring(std::to_string(*number)); // no grouping: 1404, not 1,404
    }
    if (const auto* narrow = std::get_if<std::string>(&argument)) {
        return wellFormed(fl::i18n::to_ustring(*narrow));
    }
    return wellFormed(std::get<std::u16string>(argument));
}

} // namespace

MessageTable MessageTable::parse(std::string_view utf8, const std::string& source) {
    MessageTable table;
    std::size_t lineNumber = 0;
    for (std::size_t start = 0; start < utf8.size();) {
        const std::size_t end = std::min(utf8.find('\n', start), utf8.size());
        const std::string_view line = trimmed(utf8.substr(start, end - start));
        start = end + 1;
        ++lineNumber;
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const auto problem = [&](const std::string& text) {
            table.Problems.push_back(source + ":" + std::to_string(lineNumber) + ": " + text);
        };
        const std::string name(line.substr(0, line.find_first_of(kBlanks)));
        if (!isFullName(name)) {
            problem("\"" + name + "\" is not a message name of the form catalogue:key");
            continue;
        }
        const std::string_view text = trimmed(line.substr(name.size()));
        if (text.empty()) {
            problem(name + " has no text");
            continue;
        }
        std::string reason;
        std::u16string pattern = netrove::lateCalls<netrove::IcuCalls>().pattern(text, reason);
        if (!reason.empty()) {
            problem(name + ": " + reason);
            continue;
        }
        if (!table.Patterns.try_emplace(name, std::move(pattern)).second) {
            problem(name + " appears for the second time; the first one counts");
        }
    }
    return table;
}

const std::u16string* MessageTable::find(std::string_view fullName) const {
    const auto found = Patterns.find(fullName);
    return found == Patterns.end() ? nullptr : &found->second;
}

std::vector<std::string> MessageTable::names() const {
    std::vector<std::string> result;
    for (const auto& entry : Patterns) {
        result.push_back(entry.first);
    }
    return result;
}

const MessageTable& MessageTable::english() {
    // Never destroyed: messages may be wanted while the process ends.
    static const MessageTable& table = *new MessageTable(parse(kEnglishMessages, "en.txt"));
    return table;
}

std::u16string fillPattern(const std::u16string& pattern, const std::vector<resource_core::MsgArgument>& arguments) {
    std::vector<std::u16string> texts(arguments.size());
    std::ranges::transform(arguments, texts.begin(), argumentText);
    return netrove::lateCalls<netrove::IcuCalls>().message(pattern, texts);
}

std::u16string textWithoutPattern(const resource_core::BaseMsgID& id) {
    std::u16string text = fl::i18n::to_ustring(id.fullName());
    const char16_t* separator = u" ";
    for (const resource_core::MsgArgument& argument : id.arguments()) {
        text += separator + argumentText(argument);
        separator = u", ";
    }
    return text;
}

} // namespace vantik::detail
