// Failures that the command line itself raises, in the form of those of the module: an identifier with arguments and a
// text, so that both are reported in the same way.
#pragma once

#include "vantik/Failure.h"

#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

constexpr std::string_view kCatalogue = "NETROVE:cli";

// Keys of the failures raised here; ExitStatus.cpp has the exit status of each.
namespace failure {
constexpr std::string_view kUsage = "Usage";
constexpr std::string_view kReadableSecret = "ReadableSecret";       // a warning
constexpr std::string_view kFileNotWritten = "FileNotWritten";       // file, reason
constexpr std::string_view kFileExists = "FileExists";               // file
constexpr std::string_view kFileNotRead = "FileNotRead";             // file, reason
constexpr std::string_view kContentChanged = "ContentChanged";       // file
constexpr std::string_view kContentNotRewound = "ContentNotRewound"; // file
constexpr std::string_view kBinaryToTerminal = "BinaryToTerminal";
constexpr std::string_view kContentTooLarge = "ContentTooLarge";   // most bytes
constexpr std::string_view kContentLimit = "ContentLimit";         // most bytes, bytes announced (-1: unknown)
constexpr std::string_view kStatusError = "StatusError";           // status, reason phrase, URL
constexpr std::string_view kRangeRefused = "RangeRefused";         // range, status
constexpr std::string_view kTooManyRedirects = "TooManyRedirects"; // limit, URL
constexpr std::string_view kRedirectRefused = "RedirectRefused";   // URL
constexpr std::string_view kMaxTime = "MaxTime";                   // seconds
constexpr std::string_view kInterrupted = "Interrupted";           // name of the signal
constexpr std::string_view kDemoFailed = "DemoFailed";             // number of steps
constexpr std::string_view kBadManifest = "BadManifest";           // file, then one text for each bad line
constexpr std::string_view kNoJournal = "NoJournal";               // file
constexpr std::string_view kJournalInUse = "JournalInUse";         // file
constexpr std::string_view kBatchFailed = "BatchFailed";           // number of failed transfers, of all
constexpr std::string_view kFailure = "Failure";                   // what() of an unforeseen exception
} // namespace failure

// A message of the command line's own catalogue.
vantik::Message cliMessage(std::string_view key, std::vector<vantik::MessageArgument> arguments, std::string text);

[[noreturn]] void fail(std::string_view key, std::vector<vantik::MessageArgument> arguments, std::string text);
[[noreturn]] void failUsage(std::string text);
// For a failed system call: `errorNumber` is the reason.
[[noreturn]] void failSystem(std::string_view key, const std::string& file, int errorNumber);

// The system's text for an error number.
std::string systemText(int errorNumber);

} // namespace netrove::cli
