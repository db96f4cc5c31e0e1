// Rules for text that goes into a request head, checked before the library sees it: the library and the HTTP engine
// pass bytes on as they are.
#pragma once

#include <netrove/fields.h>
#include <netrove/text.h>

#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

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
