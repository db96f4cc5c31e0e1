// Failures that the client itself raises: an identifier with arguments and a text.
#pragma once

#include <netrove/error.h>

#include <string>
#include <string_view>
#include <vector>

namespace netrove {

// Keys of the failures raised here; the catalogue is "NETROVE:client". ClientFailure.cpp has the kind of each.
namespace failure {
constexpr std::string_view kUsage = "Usage";
constexpr std::string_view kInUse = "InUse";
constexpr std::string_view kFileNotRead = "FileNotRead";             // file, reason
constexpr std::string_view kFileNotWritten = "FileNotWritten";       // file, reason
constexpr std::string_view kFileExists = "FileExists";               // file
constexpr std::string_view kContentChanged = "ContentChanged";       // file
constexpr std::string_view kContentNotRewound = "ContentNotRewound"; // why it was to be sent again
constexpr std::string_view kContentTooLarge = "ContentTooLarge";     // most bytes
constexpr std::string_view kContentLimit = "ContentLimit";           // most bytes, bytes announced (-1: unknown)
constexpr std::string_view kContentNotText = "ContentNotText";       // offset of the first bad byte, or the charset
constexpr std::string_view kDigestMismatch = "DigestMismatch";       // expected, found
constexpr std::string_view kIncomplete = "Incomplete";               // bytes that came, bytes announced (-1: unknown)
constexpr std::string_view kNotResumed = "NotResumed";               // bytes that came before it broke off
constexpr std::string_view kRangeRefused = "RangeRefused";           // first byte asked for, status
constexpr std::string_view kBadOffset = "BadOffset";                 // first byte asked for, bytes that are there
constexpr std::string_view kStatusError = "StatusError";             // status, reason phrase, URL
constexpr std::string_view kTooManyRedirects = "TooManyRedirects";   // limit, URL
constexpr std::string_view kRedirectRefused = "RedirectRefused";     // URL
constexpr std::string_view kTotalTime = "TotalTime";
constexpr std::string_view kAttemptTime = "AttemptTime";
constexpr std::string_view kInterrupted = "Interrupted";
constexpr std::string_view kRetryTooLate = "RetryTooLate"; // seconds that the server asks for
} // namespace failure

Error clientError(std::string_view key, std::vector<Error::Argument> arguments, const std::string& text);
[[noreturn]] void fail(std::string_view key, std::vector<Error::Argument> arguments, const std::string& text);
[[noreturn]] void failUsage(const std::string& text);
// For a failed system call: `errorNumber` is the reason.
[[noreturn]] void failSystem(std::string_view key, const std::string& file, int errorNumber);
// The system's text for an error number.
std::string systemText(int errorNumber);

} // namespace netrove
