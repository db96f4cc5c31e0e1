#include "cli/options/FieldText.h"

#include "cli/failures/CliFailure.h"
#include "vantik/Failure.h"

#include <netrove/text.h>

#include <algorithm>

namespace netrove::cli {

namespace {

std::string_view trimBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == text.npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

} // namespace

Field parseField(std::string_view text) {
    const auto colon = text.find(':');
    // What is not a field may still be a credential, so no more of it is shown than one word before a colon.
    if (colon == text.npos) {
        failUsage("a header field is written 'Name: value'; this one has no colon");
    }
    const std::string_view name = text.substr(0, colon);
    if (const auto blank = name.find_first_of(" \t"); blank != name.npos) {
        failUsage("'" + printable(name.substr(0, blank)) + " ...' is not the name of a header field");
    }
    checkFieldName(name);
    const std::string_view value = trimBlanks(text.substr(colon + 1));
    // A tab between words is the only control character that a value may hold.
    const bool bad = std::any_of(value.begin(), value.end(), [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || static_cast<unsigned char>(c) >= 0x7F;
    });
    if (bad) {
        failUsage("the value of the header field '" + std::string(name) + "' is not printable ASCII");
    }
    return {std::string(name), std::string(value)};
}

std::vector<Field> parseFieldLines(std::string_view text, std::string_view file) {
    std::vector<Field> fields;
    for (std::size_t start = 0, number = 1; start < text.size(); ++number) {
        const auto end = std::min(text.find('\n', start), text.size());
        std::string_view line = text.substr(start, end - start);
        start = end + 1;
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (trimBlanks(line).empty()) {
            continue;
        }
        try {
            fields.push_back(parseField(line));
        } catch (const vantik::Failure& failure) {
            failUsage(printable(file) + ":" + std::to_string(number) + ": " + failure.message().Text);
        }
    }
    return fields;
}

void checkFieldName(std::string_view name) {
    if (!isToken(name)) {
        failUsage("'" + printable(name) + "' is not the name of a header field");
    }
}

void checkMethod(std::string_view method) {
    if (!isToken(method)) {
        failUsage("'" + printable(method) + "' is not a request method");
    }
}

void checkUserName(std::string_view name) {
    if (hasControls(name)) {
        failUsage("the user name has control characters");
    }
    if (name.find(':') != name.npos) {
        failUsage("the user name has a colon");
    }
}

void checkPassword(std::string_view password) {
    if (hasControls(password)) {
        failUsage("the password has control characters");
    }
}

} // namespace netrove::cli
