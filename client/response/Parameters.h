// Fields of the form "value; name=value; …", such as Content-Type and Content-Disposition.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace netrove {

struct Parameter {
    std::string Name; // in small letters
    std::string Value;
};

struct Parameters {
    std::string Main; // before the first semicolon
    std::vector<Parameter> List;
    bool Valid = true; // false: some of it is not as the grammar wants it; List has the rest
};

// Quoted pairs are undone (RFC 9110, section 5.6.4). An unquoted value may have blanks and bytes above 0x7F, as servers
// send them: it ends at the next semicolon.
Parameters parseParameters(std::string_view field);

} // namespace netrove
