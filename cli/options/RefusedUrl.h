// Failures about a URL that cannot be used. Where nobody can tell the parts of a URL, nobody can tell either where a
// user name and a password in it begin, so everything in front of its last '@' is taken for them.
#pragma once

#include "cli/failures/ExitStatus.h"
#include "vantik/Failure.h"

#include <string>
#include <string_view>

namespace netrove::cli {

// The URL with everything between its scheme and its last '@' replaced by "***".
std::string maskRefusedUrl(std::string_view url);

// The message with that URL masked wherever it stands, and with it the user name where that was taken for a scheme.
vantik::Message withRefusedUrlMasked(vantik::Message message, std::string_view url);

// The result of `operation`, which may change what `url` was taken from; where it fails because that is no usable URL,
// the failure does not show what is secret.
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
