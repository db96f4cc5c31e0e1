/// @file
/// What a call raises when it fails.
#pragma once

#include <netrove/api.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace netrove {

struct Response;

/// What failed.
enum class ErrorKind {
    Url,         ///< the URL cannot be used, or a redirect leads where it must not
    Name,        ///< no such host
    Connect,     ///< no connection to the server, or it broke off
    Proxy,       ///< the same of the proxy, or it refused to pass the request on
    Tls,         ///< certificate or handshake of the server
    Timeout,     ///< a limit was reached; the text names it
    Interrupted, ///< stopped by the program
    Status,      ///< the server answered 400 or above
    Content,     ///< what came is incomplete, cannot be decoded, or is not what was asked for
    File,        ///< a file of this machine cannot be read or written
    Usage,       ///< the call makes no sense as it is; nothing was sent
    Other,       ///< anything else: memory, a state that should not occur
};

/// "url", "name", "connect", …
NETROVE_API std::string_view nameOf(ErrorKind kind);

/// A failed call. `what()` is one line in UTF-8, never empty, without passwords.
class NETROVE_API Error : public std::runtime_error {
public:
    /// One argument of a failure: a signed integer, or text in UTF-8.
    using Argument = std::variant<std::int64_t, std::string>;

    /// For transports and programs that raise failures of their own. An empty text becomes the identifier.
    Error(ErrorKind kind, std::string identifier, std::vector<Argument> arguments, const std::string& text);
    ~Error() override;
    Error(const Error&); ///< shares its content
    Error& operator=(const Error&) = delete;

    ErrorKind kind() const noexcept; ///< what failed
    /// "NETROVE:client:StatusError", "VANTIK:webservices:Timeout": what a program compares.
    const std::string& identifier() const noexcept;
    const std::vector<Argument>& arguments() const noexcept; ///< in the order of the identifier
    /// What had come before: head, redirects, attempts and, where it was collected in memory, content. Its status is 0
    /// where no head came.
    const Response& response() const noexcept;
    /// False: no byte of the last request has left this machine.
    bool sent() const noexcept;
    /// For a failure of the class below: its message from the host's catalogue, in the language of that. Empty for the
    /// others.
    const std::string& hostText() const noexcept;

    /// The same failure with what the caller of a transport knows in addition.
    Error with(Response response, bool sent) const;
    Error withHostText(std::string text) const;                ///< with what `hostText` returns
    Error with(ErrorKind kind, const std::string& text) const; ///< under another kind and text

private:
    struct Content;
    explicit Error(std::shared_ptr<const Content> content);
    std::shared_ptr<const Content> Shared;
};

} // namespace netrove
