// What a server has said about content of which only a part has come: enough to tell whether another part is of the
// same.
#pragma once

#include <netrove/response.h>

#include <cstdint>
#include <optional>
#include <string>

namespace netrove {

struct ContentState {
    std::string Validator;               // strong tag or date, fit for If-Range; empty: there is none
    std::string Modified;                // Last-Modified as it came
    std::string Coding;                  // Content-Encoding
    std::optional<std::uint64_t> Length; // of the whole
};

// How many bytes the whole has, if the head of a response with the whole (200) or a part (206) says it.
std::optional<std::uint64_t> wholeLength(const Response& head);

// According to the head of a response with the whole (200) or a part (206).
ContentState stateOf(const Response& head);

// False if `seen`, of a part, is certainly of other content. What it leaves out speaks for nothing: a response to
// If-Range may leave out most (RFC 9110, section 15.3.7).
bool sameContent(const ContentState& known, const ContentState& seen);

} // namespace netrove
