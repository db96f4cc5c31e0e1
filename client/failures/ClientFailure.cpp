#include "client/failures/ClientFailure.h"

#include <netrove/text.h>

#include <system_error>
#include <utility>

namespace netrove {

namespace {

struct KindRow {
    std::string_view Key;
    ErrorKind Kind;
};

constexpr KindRow kKinds[] = {
    {failure::kUsage, ErrorKind::Usage},
    {failure::kInUse, ErrorKind::Usage},
    {failure::kFileNotRead, ErrorKind::File},
    {failure::kFileNotWritten, ErrorKind::File},
    {failure::kFileExists, ErrorKind::File},
    {failure::kContentChanged, ErrorKind::File},
    {failure::kContentNotRewound, ErrorKind::Usage},
    {failure::kContentTooLarge, ErrorKind::Content},
    {failure::kContentLimit, ErrorKind::Content},
    {failure::kContentNotText, ErrorKind::Content},
    {failure::kDigestMismatch, ErrorKind::Content},
    {failure::kIncomplete, ErrorKind::Content},
    {failure::kNotResumed, ErrorKind::Content},
    {failure::kRangeRefused, ErrorKind::Content},
    {failure::kBadOffset, ErrorKind::File},
    {failure::kStatusError, ErrorKind::Status},
    {failure::kTooManyRedirects, ErrorKind::Url},
    {failure::kRedirectRefused, ErrorKind::Url},
    {failure::kTotalTime, ErrorKind::Timeout},
    {failure::kAttemptTime, ErrorKind::Timeout},
    {failure::kInterrupted, ErrorKind::Interrupted},
    {failure::kRetryTooLate, ErrorKind::Status},
};

ErrorKind kindOf(std::string_view key) {
    for (const KindRow& row : kKinds) {
        if (row.Key == key) {
            return row.Kind;
        }
    }
    return ErrorKind::Other;
}

} // namespace

Error clientError(std::string_view key, std::vector<Error::Argument> arguments, const std::string& text) {
    // Names of files and words of a server are in it.
    return {kindOf(key), "NETROVE:client:" + std::string(key), std::move(arguments), printable(text)};
}

void fail(std::string_view key, std::vector<Error::Argument> arguments, const std::string& text) {
    throw clientError(key, std::move(arguments), text);
}

void failUsage(const std::string& text) {
    fail(failure::kUsage, {}, text);
}

void failSystem(std::string_view key, const std::string& file, int errorNumber) {
    const std::string reason = systemText(errorNumber);
    const char* const attempt = key == failure::kFileNotRead ? "cannot read " : "cannot write ";
    fail(key, {file, reason}, attempt + file + ": " + reason);
}

std::string systemText(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

} // namespace netrove
