#include "cli/batch/journal/JournalRecord.h"

#include "cli/batch/manifest/ContentDigest.h"
#include "cli/failures/CliFailure.h"
#include "cli/system/Checksum.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <concepts>
#include <initializer_list>
#include <limits>

namespace netrove::cli {

namespace {

using OldJson = nlohmann::json;

constexpr int kHexadecimal = 16;
constexpr std::size_t kSumLength = 8;     // digits
constexpr std::size_t kUsualRecord = 100; // bytes
constexpr std::size_t kDigestLength = 16; // as results show it

// At least so many digits.
void addHex(std::string& text, std::uint64_t number, std::size_t least = 1) {
    std::array<char, 16> digits{};
    const auto [end, error] = std::to_chars(digits.begin(), digits.end(), number, kHexadecimal);
    const auto count = static_cast<std::size_t>(end - digits.begin());
    text.append(least - std::min(least, count), '0').append(digits.data(), count);
}

std::string checksum(std::string_view text) {
    std::string digits;
    addHex(digits, checksumOf(text), kSumLength);
    return digits;
}

template <std::unsigned_integral Number>
bool take(std::string_view text, Number& number, int base = kHexadecimal) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

bool takeStatus(std::string_view text, int& status) {
    unsigned number = 0;
    if (!take(text, number, 10) || number > static_cast<unsigned>(std::numeric_limits<int>::max())) {
        return false;
    }
    status = static_cast<int>(number);
    return true;
}

std::optional<std::string> fromHex(std::string_view digits) {
    std::string name;
    for (; digits.size() >= 2; digits.remove_prefix(2)) {
        unsigned byte = 0;
        if (!take(digits.substr(0, 2), byte)) {
            return std::nullopt;
        }
        name += static_cast<char>(byte);
    }
    return digits.empty() && !name.empty() ? std::optional(name) : std::nullopt;
}

constexpr std::size_t kMostWords = 6;
using Words = std::array<std::string_view, kMostWords>;

// Returns how many there are; more than fit are left in the last one.
std::size_t split(std::string_view text, Words& words) {
    std::size_t count = 0;
    for (; count + 1 < kMostWords; ++count) {
        const auto end = text.find(' ');
        words[count] = text.substr(0, end);
        if (end == text.npos) {
            return count + 1;
        }
        text.remove_prefix(end + 1);
    }
    words[count] = text;
    return count + 1;
}

struct StateRow {
    JournalState State;
    std::string_view Word;
    std::size_t Words; // with that one
};
constexpr StateRow kStates[] = {
    {JournalState::Begun, "begun", 6}, {JournalState::Written, "written", 6}, {JournalState::Kept, "kept", 1},
    {JournalState::Done, "done", 5},   {JournalState::Failed, "failed", 4},
};

bool takeWords(const Words& words, JournalRecord& record) {
    if (record.State == JournalState::Kept) {
        return true;
    }
    if (!take(words[1], record.Line) || !take(words[2], record.Key)) {
        return false;
    }
    switch (record.State) {
    case JournalState::Begun: {
        const auto name = fromHex(words[5]);
        record.Name = name.value_or("");
        return name && take(words[3], record.Device) && take(words[4], record.Inode);
    }
    case JournalState::Written:
        return takeStatus(words[3], record.Status) && take(words[4], record.Bytes, 10) && take(words[5], record.Inode);
    case JournalState::Done:
        return takeStatus(words[3], record.Status) && take(words[4], record.Bytes, 10);
    default:
        record.Name = words[3];
        return true;
    }
}

// Names in JSON: "=" and the text, or "#" and digits if it is not text.
std::optional<std::string> restored(const std::string& stored) {
    return stored.starts_with('=')   ? std::optional(stored.substr(1))
           : stored.starts_with('#') ? fromHex(std::string_view(stored).substr(1))
                                     : std::nullopt;
}

std::uint64_t numberOf(const OldJson& value) {
    return value.get_ref<const OldJson::number_unsigned_t&>(); // raises for a fraction or a negative one
}

bool begins(std::string_view text, std::string_view header) {
    return text.starts_with(header) ? text.size() == header.size() || text[header.size()] == '\n'
                                    : header.starts_with(text);
}

} // namespace

bool isJournalHeader(std::string_view line) {
    return line == kJournalHeader || line == kJsonJournalHeader;
}

bool beginsJournal(std::string_view text) {
    return begins(text, kJournalHeader) || begins(text, kJsonJournalHeader);
}

void failNoJournal(const std::string& file) {
    fail(failure::kNoJournal, {file}, file + " exists and is not a journal; name another file with --journal");
}

std::uint64_t journalKey(const BatchLine& line) {
    return line.Target ? journalKey(*line.Target, true) : journalKey(line.id(), false);
}

std::uint64_t journalKey(std::string_view text, bool isTarget) {
    ContentDigest digest;
    digest.add(isTarget ? "target" : "id");
    digest.add(text);
    return digest.value();
}

std::string recordText(const JournalRecord& record) {
    std::string text;
    text.reserve(kUsualRecord);
    for (const StateRow& row : kStates) {
        if (row.State == record.State) {
            text = row.Word;
        }
    }
    const auto addNumbers = [&](std::initializer_list<std::uint64_t> numbers, std::size_t digits) {
        for (const std::uint64_t number : numbers) {
            text += ' ';
            addHex(text, number, digits);
        }
    };
    const auto addStatus = [&] {
        text.append(1, ' ').append(std::to_string(record.Status));
        text.append(1, ' ').append(std::to_string(record.Bytes));
    };
    if (record.State != JournalState::Kept) {
        addNumbers({record.Line, record.Key}, kDigestLength);
    }
    switch (record.State) {
    case JournalState::Begun:
        addNumbers({record.Device, record.Inode}, 1);
        text += ' ';
        for (const char c : record.Name) {
            addHex(text, static_cast<unsigned char>(c), 2);
        }
        break;
    case JournalState::Written:
        addStatus();
        addNumbers({record.Inode}, 1);
        break;
    case JournalState::Done:
        addStatus();
        break;
    case JournalState::Failed:
        text += ' ' + record.Name;
        break;
    case JournalState::Kept:
        break;
    }
    const std::string sum = checksum(text);
    text.append(1, ' ').append(sum).append(1, '\n');
    return text;
}

std::optional<JournalRecord> parseRecord(std::string_view line) {
    const auto blank = line.rfind(' ');
    if (blank == line.npos || line.substr(blank + 1) != checksum(line.substr(0, blank))) {
        return std::nullopt;
    }
    Words words;
    const std::size_t count = split(line.substr(0, blank), words);
    for (const StateRow& row : kStates) {
        JournalRecord record{.State = row.State};
        if (words[0] == row.Word && count == row.Words && takeWords(words, record)) {
            return record;
        }
    }
    return std::nullopt;
}

std::optional<JournalRecord> parseJsonRecord(std::string_view line) {
    const OldJson object = OldJson::parse(line, nullptr, false);
    try {
        JournalRecord record;
        const std::string key = object.at("key");
        const auto target = restored(key);
        if (!target && !key.starts_with('@')) {
            return std::nullopt;
        }
        record.Key = journalKey(target ? *target : std::string_view(key).substr(1), target.has_value());
        const std::string& state = object.at("state").get_ref<const std::string&>();
        if (state == "failed") {
            record.State = JournalState::Failed;
            return record;
        }
        if (!take(object.at("line").get_ref<const std::string&>(), record.Line)) {
            return std::nullopt;
        }
        if (state == "started") {
            const auto name = restored(object.at("temporary"));
            record.State = JournalState::Begun;
            record.Name = name.value_or("");
            record.Device = numberOf(object.at("device"));
            record.Inode = numberOf(object.at("inode"));
            return name ? std::optional(record) : std::nullopt;
        }
        record.Bytes = numberOf(object.at("bytes"));
        if (state == "written") {
            record.State = JournalState::Written;
            return record;
        }
        record.State = JournalState::Done;
        record.Status = static_cast<int>(numberOf(object.at("status")));
        return state == "done" ? std::optional(record) : std::nullopt;
    } catch (const OldJson::exception&) {
        return std::nullopt;
    }
}

} // namespace netrove::cli
