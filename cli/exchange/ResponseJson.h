// The result of a request as one JSON object, for programs.
#pragma once

#include <netrove/response.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace netrove::cli {

struct ResponseFacts {
    std::uint64_t Bytes = 0; // of content, as delivered
    std::chrono::duration<double> UntilHead{};
    std::chrono::duration<double> UntilEnd{};
    std::string File;                   // that holds the content; empty: it is in Content
    std::optional<std::string> Content; // UTF-8 goes in as text, anything else in base64
};

// One line without its end: url, method, redirects, httpVersion, status, reason, fields (in order, as name and value,
// that of a secret field masked), bytes, seconds, secondsToHead, and file, content or contentBase64.
std::string responseJson(const netrove::Response& response, const ResponseFacts& facts);

} // namespace netrove::cli
