/// @file
/// Failures and warnings of the host, as a C++ program sees them. All of it may be used on any thread.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace vantik {

/// One argument of a message: a signed integer, or text in UTF-8.
using MessageArgument = std::variant<std::int64_t, std::string>;

/// A message with its identifier. `Text` is in UTF-8 and, in a message that comes from the host, never empty. It may
/// quote what a server sent, control characters included.
struct Message {
    std::string Catalogue;                  ///< for example "VANTIK:webservices"
    std::string Key;                        ///< for example "Timeout"
    std::vector<MessageArgument> Arguments; ///< in the order of the identifier
    std::string Text;                       ///< in UTF-8

    /// "VANTIK:webservices:Timeout": what a program compares; it does not change from version to version, the text may.
    std::string identifier() const { return Key.empty() ? Catalogue : Catalogue + ":" + Key; }
};

/// A failed operation. `what()` is the message's text in UTF-8. Failures that carry no identifier of their own (an
/// arithmetic overflow, memory) have the catalogue "VANTIK:host" and the key "Failure" or "OutOfMemory".
class __attribute__((visibility("default"))) Failure : public std::runtime_error {
public:
    /// A program may raise its own, also from a callable. An empty text becomes the identifier.
    explicit Failure(Message message);
    ~Failure() override;
    const Message& message() const noexcept { return Content; }     ///< lives as long as the exception
    std::string identifier() const { return Content.identifier(); } ///< that of the message

private:
    Failure(Message message, int);

    Message Content;
};

/// The operation was stopped: by `Host::interrupt`, by the limit of its total time, or by a progress reporter that said
/// stop. Its identifier is VANTIK:host:Interrupted. A request that is stopped before its response has begun fails with
/// VANTIK:webservices:ConnectionFailed instead; `Host::wasInterrupted` distinguishes it from a network failure.
class __attribute__((visibility("default"))) Interrupted : public Failure {
public:
    /// For a program that raises its own.
    Interrupted(Message message, bool byProgram);
    ~Interrupted() override;
    bool byProgram() const noexcept { return ByProgram; } ///< a progress reporter said stop

private:
    bool ByProgram;
};

} // namespace vantik
