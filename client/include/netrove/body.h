/// @file
/// Content of requests: from memory, files, generators and streams, as it is or as a form.
#pragma once

#include <netrove/api.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netrove {

/// Reads content from its start to its end. Runs on the thread of the call that sends it. What it throws ends the call
/// and reaches its caller unchanged.
class NETROVE_API BodyReader {
public:
    virtual ~BodyReader() = default;
    /// Fills as much of `room`, which is never empty, as it likes, and returns how many bytes; 0 at the end.
    virtual std::size_t read(std::span<std::byte> room) = 0;
};

/// Content of a request. Copies share it. One Body may be sent any number of times, from one thread at a time.
class NETROVE_API Body {
public:
    /// No content.
    Body() = default;
    /// Content that `open` makes readable from its start.
    /// @param open        called before each sending; what it throws reaches the caller of the request
    /// @param length      in bytes, where it is known; otherwise the content is sent in chunks (RFC 9112, section 7.1)
    /// @param repeatable  false: `open` works once. Such content is not sent again after a redirect, for a login or in
    ///                    a retry.
    /// @param contentType for the field Content-Type; empty for none
    Body(std::function<std::unique_ptr<BodyReader>()> open, std::optional<std::uint64_t> length, bool repeatable,
         std::string contentType);

    /// False: there is no content.
    explicit operator bool() const { return static_cast<bool>(Parts); }
    /// In bytes, where it is known. While a reader is open, what the last one delivers, or fails: ask after `open`.
    std::optional<std::uint64_t> length() const;
    bool repeatable() const;                ///< it may be sent again
    const std::string& contentType() const; ///< for the field Content-Type; empty: none
    /// The same content under another type.
    Body as(std::string contentType) const;

    /// The content from its start; empty content where there is none.
    /// @throws Error of kind Usage if it cannot be repeated and has been read before
    std::unique_ptr<BodyReader> open() const;
    /// The content, if it is in memory.
    std::optional<std::string_view> inMemory() const;

private:
    friend struct BodyAccess;
    struct Shared;
    std::shared_ptr<const Shared> Parts;
};

/// Text in UTF-8, sent as it is.
NETROVE_API Body text(std::string content, std::string contentType = "text/plain;charset=utf-8");
/// Bytes, copied.
NETROVE_API Body bytes(std::span<const std::byte> content, std::string contentType = "application/octet-stream");
/// JSON as text. @throws Error of kind Usage, with the place, for what is not JSON (RFC 8259)
NETROVE_API Body json(std::string_view text);
/// JSON as a value of a library such as nlohmann's: anything with a `dump()` that returns text.
template <class Value>
    requires requires(const Value& value) { std::string(value.dump()); }
Body json(const Value& value) {
    return text(value.dump(), "application/json");
}

/// Names and values, in order; a name may occur again.
using Pairs = std::vector<std::pair<std::string, std::string>>;
/// application/x-www-form-urlencoded: names and values in UTF-8, percent-encoded, blanks as '+'.
NETROVE_API Body form(const Pairs& pairs);

/// A file, opened when the request is sent, and read from its start for each sending.
/// @param path        of the file
/// @param contentType empty: by the end of the file's name
/// @throws Error of kind File, here or when it is sent, naming the file. A file that changes its size while it is sent
/// fails the request.
NETROVE_API Body file(const std::filesystem::path& path, std::string contentType = {});

/// What a generator returns next; an empty piece is the end. The piece stays in place until the next call.
using Generator = std::function<std::span<const std::byte>()>;
/// Content that a callable makes while it is sent, once.
NETROVE_API Body generator(Generator next, std::optional<std::uint64_t> length = {},
                           std::string contentType = "application/octet-stream");
/// The same, but it can be made again: `start` is called for each sending and returns the callable that makes it.
NETROVE_API Body generators(std::function<Generator()> start, std::optional<std::uint64_t> length = {},
                            std::string contentType = "application/octet-stream");
/// What a stream holds from where it stands; borrowed until the request has been sent. It is sent again from there if
/// the stream can be moved back.
NETROVE_API Body stream(std::istream& source, std::string contentType = "application/octet-stream");

/// One part of a multipart form (RFC 7578).
struct Part {
    std::string name;          ///< of the form's field, in UTF-8
    Body content;              ///< text(…), bytes(…), file(…), generator(…)
    std::string filename = {}; ///< in UTF-8; empty: that of a file, none for other content
};
/// multipart/form-data. Its parts are streamed, in order; its length is known where that of each part is. A part has
/// the Content-Type of its content; plain text(…) without a file name goes without one, as browsers send the fields of
/// a form.
/// @throws Error of kind Usage for a part without a name
NETROVE_API Body multipart(std::vector<Part> parts);

} // namespace netrove
