#include "vantik/Http.h"

#include <algorithm>
#include <string>
#include <utility>

#include "embedded/Boundary.h"
#include "embedded/HostFailure.h"

namespace vantik {

namespace {

constexpr double kLongestLimit = 2147483647; // ms; the class stores a limit in 31 bits

[[noreturn]] void fail(const char* key, std::string argument) {
    throw Failure(detail::messageFor(detail::HostMessage({std::move(argument)}, "VANTIK:host", key)));
}

// RFC 9110, section 5.6.2.
bool isTokenCharacter(char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string_view::npos;
}

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

double checkedLimit(Milliseconds limit) {
    if (!(limit.count() > 0)) { // not a number is none either
        fail("InvalidTimeLimit", std::to_string(limit.count()));
    }
    return limit.count() > kLongestLimit ? kNoLimit.count() : limit.count();
}

} // namespace

Array httpFields(std::span<const HttpField> fields) {
    std::vector<std::vector<Array>> rows;
    rows.reserve(fields.size());
    for (const HttpField& field : fields) {
        if (!isToken(field.Name)) {
            fail("InvalidFieldName", field.Name);
        }
        if (field.Value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
            fail("InvalidFieldValue", field.Name); // the value may be a secret
        }
        rows.push_back({Array(field.Name), Array(field.Value)});
    }
    return Array::structures({"Name", "Value"}, rows);
}

Array httpFields(std::initializer_list<HttpField> fields) {
    return httpFields(std::span<const HttpField>(fields.begin(), fields.size()));
}

std::vector<HttpField> readHttpFields(const Array& fields) {
    std::vector<HttpField> result;
    fields.fieldNames(); // raises for what is no struct, an empty one too
    result.reserve(fields.size());
    for (std::size_t index = 0; index < fields.size(); ++index) {
        result.push_back({fields.field("Name", index).textOr(""), fields.field("Value", index).textOr("")});
    }
    return result;
}

Array httpTimeouts(const HttpTimeouts& limits) {
    return Array::doubles({checkedLimit(limits.Connect), checkedLimit(limits.Response), checkedLimit(limits.Data)});
}

} // namespace vantik
