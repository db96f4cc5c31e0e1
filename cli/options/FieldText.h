// Rules for text that goes into a request head, checked before the library sees it: the library and the HTTP engine
// pass bytes on as they are.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

struct Field {
    std::string Name;
    std::string Value; // empty: the library does not add its own field with that name

    bool operator==(const Field&) const = default;
};

bool equalsIgnoringCase(std::string_view left, std::string_view right); // ASCII
bool hasControlBytes(std::string_view text);                            // below 0x20, and 0x7F
// A token of RFC 9110: field names, methods, scheme names.
bool isToken(std::string_view text);

// True for fields whose values are credentials.
bool isSecretField(std::string_view name);

// "Name: value"; blanks around the value are dropped. "Name:" leaves the library's own field out. Raises a usage
// failure for anything that is not a field line of printable ASCII.
Field parseField(std::string_view text);
// A field a line, as parseField takes it; empty lines are skipped. `file` is named where a line is refused.
std::vector<Field> parseFieldLines(std::string_view text, std::string_view file);

// Each raises a usage failure naming what was wrong. A password is never repeated in the text.
void checkFieldName(std::string_view name);
void checkMethod(std::string_view method);
void checkUserName(std::string_view name);
void checkPassword(std::string_view password);

} // namespace netrove::cli
