// Failures about a URL that cannot be used. If its parts cannot be told apart, nobody knows where a user name and a
// password begin in it, so everything before its last '@' is taken for them.
#pragma once

#include "cli/failures/ExitStatus.h"
#include "vantik/Failure.h"

#include <string>
#include <string_view>

namespace netrove::cli {

// The URL with everything between its scheme and its last '@' replaced by "***".
std::string maskRefusedUrl(std::string_view url);

// The message with that URL masked wherever it occurs, and the user name too if it was taken for a scheme.
vantik::Message withRefusedUrlMasked(vantik::Message message, std::string_view url);

// The result of `operation`, which may change the text that `url` was copied from. If it fails because the URL cannot
// be used, the failure does not show secrets.
template <class Operation>
auto maskingRefused(const std::string url, Operation operation) {
    try {
        return operation();
    } catch (const vantik::Failure& failure) {
        if (exitStatus(failure.message()) != kExitUrl) {
            throw;
        }
        throw vantik::Failure(withRefusedUrlMasked(failure.message(), url));
    }
}

} // namespace netrove::cli
