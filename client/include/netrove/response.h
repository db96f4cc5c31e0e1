/// @file
/// What comes back.
#pragma once

#include <netrove/fields.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace netrove {

/// One request on the way to a response: every hop of every attempt.
struct Hop {
    std::string url = {};                      ///< without user name and password
    std::string method = {};                   ///< as it was sent
    int status = 0;                            ///< 0: no head came
    std::string failure = {};                  ///< text of the failure; empty for none
    std::chrono::duration<double> untilHead{}; ///< from the beginning of this request to the end of the response's head
    std::chrono::duration<double> time{};      ///< to its end
};

/// A response.
struct NETROVE_API Response {
    int status = 0;           ///< of the last response
    std::string reason = {};  ///< reason phrase; empty with HTTP/2
    std::string version = {}; ///< "HTTP/1.1"
    Fields fields = {};       ///< header fields
    std::string url = {};     ///< after redirects, in ASCII, without user name and password
    std::string method = {};  ///< of the last request, after redirects

    std::vector<Hop> hops = {};         ///< all requests made for this response, in order, the last one included
    std::vector<Hop> redirects() const; ///< those of the last attempt that were answered by a redirect
    int attempts = 0;                   ///< how often the call was tried

    std::uint64_t received = 0;      ///< bytes of content as delivered, whether it was kept, saved or passed on
    bool whole = true;               ///< false: a consumer ended the transfer before the content's end
    std::filesystem::path file = {}; ///< of `save`: where the content is; empty after a 304, which leaves files alone
    std::uint64_t resumedAt = 0;     ///< of `save`: bytes that were there before
    bool unproven = false; ///< of `save`: neither a validator nor a digest says that those are of the same content

    /// True for 200 to 299.
    bool ok() const { return status >= 200 && status < 300; }
    /// True from 400 on: the client or the server is at fault (RFC 9110, section 15).
    bool failed() const { return status >= 400; }
    /// The content as it came, decoded by Content-Encoding; empty where it was saved or passed on.
    std::span<const std::byte> bytes() const { return std::as_bytes(std::span(content)); }
    /// The content as text in UTF-8: by its byte order mark, else by the charset of Content-Type, else as UTF-8. Bytes
    /// that are not text become U+FFFD.
    std::string text() const;
    /// The same, but bytes that are not text and an unknown charset are refused.
    /// @throws Error of kind Content, with the place of the first bad byte
    std::string exactText() const;
    /// The content as JSON, by a library such as nlohmann's: `response.json<nlohmann::json>()`. JSON is UTF-8 whatever
    /// Content-Type says (RFC 8259, section 8.1). @throws what the library throws
    template <class Value>
    Value json() const {
        return Value::parse(content.starts_with("\xEF\xBB\xBF") ? content.substr(3) : content);
    }

    std::string content = {}; ///< what `bytes` shows
};

} // namespace netrove
