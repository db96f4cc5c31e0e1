// What is asked of Poco.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace netrove {

struct PocoCalls {
    static constexpr const char* kLibrary = "libnetrove_poco.so";

    // A parameter of a field such as Content-Type.
    std::optional<std::string> (*parameter)(const std::string& field, const std::string& name);
    // A time as in a field of the head (RFC 9110, section 5.6.7).
    std::string (*fieldDate)(std::time_t time);
    // A date in one of the usual forms as in a field of the head; nothing for a text that is not one.
    std::optional<std::string> (*readDate)(const std::string& text);
};

} // namespace netrove
