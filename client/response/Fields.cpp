#include "client/text/Ascii.h"

#include <netrove/fields.h>

#include <algorithm>
#include <utility>

namespace netrove {

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

} // namespace netrove
