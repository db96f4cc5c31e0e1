// Looking into messages as they stood on the wire, and building them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace testsupport {

using FieldLines = std::vector<std::pair<std::string, std::string>>;

// Whether two names of fields are the same, whatever the case of their letters.
bool sameName(std::string_view one, std::string_view other);

// First line of a head, without its end.
std::string startLine(std::string_view head);

// Field lines of a head in order; names as they stand, values without blanks in front.
FieldLines fieldLines(std::string_view head);

// Value of the first field of a name, whatever the case of its letters.
std::optional<std::string> fieldValue(std::string_view head, std::string_view name);

// "HTTP/1.1 200 OK" with these field lines (each "Name: value"), a Content-Length, and the body.
std::string response(std::string_view body, const std::vector<std::string>& fields = {},
                     std::string_view status = "200 OK");

// The same body in chunks of a size, without the head.
std::string chunked(std::string_view body, std::size_t chunkSize);

// Bytes that differ from place to place, so that lost, doubled and swapped parts show.
std::string patternedBytes(std::size_t length);

// Where two long texts first differ, in words; empty where they are equal. Keeps long bodies out of messages.
std::string difference(std::string_view actual, std::string_view expected);

} // namespace testsupport
