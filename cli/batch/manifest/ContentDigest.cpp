#include "cli/batch/manifest/ContentDigest.h"

#include "cli/failures/CliFailure.h"

#include <openssl/evp.h>

#include <memory>

namespace netrove::cli {

namespace {

// Looked up once: that takes longer than the digest of a short text.
const EVP_MD* algorithm() {
    static const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> found(EVP_MD_fetch(nullptr, "SHA256", nullptr),
                                                                       &EVP_MD_free);
    return found.get();
}

} // namespace

void ContentDigest::add(std::string_view part) {
    Parts += std::to_string(part.size());
    Parts += ':';
    Parts += part;
    Known = false;
}

std::uint64_t ContentDigest::value(std::size_t place) {
    if (!Known) {
        if (algorithm() == nullptr ||
            EVP_Digest(Parts.data(), Parts.size(), Bytes.data(), nullptr, algorithm(), nullptr) != 1) {
            fail(failure::kFailure, {"SHA-256"}, "the SHA-256 of a line cannot be computed");
        }
        Known = true;
    }
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < sizeof result; ++i) {
        result = result << 8 | Bytes.at(place * sizeof result + i);
    }
    return result;
}

} // namespace netrove::cli
