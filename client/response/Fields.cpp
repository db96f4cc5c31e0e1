#include "client/text/Ascii.h"
#include "vantik/Http.h"

#include <netrove/fields.h>
#include <netrove/text.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace netrove {

namespace {

constexpr std::string_view kTokenMarks = "!#$%&'*+-.^_`|~";

bool isLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (lowered(c) >= 'a' && lowered(c) <= 'z');
}

} // namespace

std::optional<std::string> Fields::find(std::string_view name) const {
    const auto found = std::find_if(List.begin(), List.end(),
                                    [&](const Field& field) { return equalsIgnoringCase(field.name, name); });
    return found == List.end() ? std::nullopt : std::optional(found->value);
}

std::vector<std::string> Fields::all(std::string_view name) const {
    std::vector<std::string> values;
    for (const Field& field : List) {
        if (equalsIgnoringCase(field.name, name)) {
            values.push_back(field.value);
        }
    }
    return values;
}

void Fields::set(std::string name, std::string value) {
    erase(name);
    add(std::move(name), std::move(value));
}

void Fields::erase(std::string_view name) {
    // The name may be that of a field of this list.
    const std::string erased(name);
    std::erase_if(List, [&](const Field& field) { return equalsIgnoringCase(field.name, erased); });
}

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return isLetterOrDigit(c) || kTokenMarks.find(c) != kTokenMarks.npos;
    });
}

bool isSecretField(std::string_view name) {
    return std::any_of(std::begin(vantik::kSecretHttpFields), std::end(vantik::kSecretHttpFields),
                       [&](std::string_view secret) { return equalsIgnoringCase(name, secret); });
}

} // namespace netrove
