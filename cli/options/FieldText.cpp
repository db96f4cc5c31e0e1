#include "cli/options/FieldText.h"

#include "cli/failures/CliFailure.h"
#include "cli/text/SafeText.h"
#include "vantik/Http.h"

#include <algorithm>

namespace netrove::cli {

namespace {

constexpr std::string_view kTokenMarks = "!#$%&'*+-.^_`|~";

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isTokenByte(char c) {
    return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z') || kTokenMarks.find(c) != kTokenMarks.npos;
}

std::string_view trimBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == text.npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

} // namespace

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

bool hasControlBytes(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenByte);
}

bool isSecretField(std::string_view name) {
    return std::any_of(std::begin(vantik::kSecretHttpFields), std::end(vantik::kSecretHttpFields),
                       [&](std::string_view secret) { return equalsIgnoringCase(name, secret); });
}

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
    if (hasControlBytes(name)) {
        failUsage("the user name has control characters");
    }
    if (name.find(':') != name.npos) {
        failUsage("the user name has a colon");
    }
}

void checkPassword(std::string_view password) {
    if (hasControlBytes(password)) {
        failUsage("the password has control characters");
    }
}

} // namespace netrove::cli
