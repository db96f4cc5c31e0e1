#include "cli/batch/manifest/ContentDigest.h"

#include "cli/failures/CliFailure.h"

#include <openssl/evp.h>

#include <memory>

namespace netrove::cli {

namespace {

constexpr std::size_t kUsualLength = 200; // bytes

// Looked up once, and made once for each thread: either takes longer than the digest of a short text.
EVP_MD_CTX* context() {
    static const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> algorithm(EVP_MD_fetch(nullptr, "SHA256", nullptr),
                                                                           &EVP_MD_free);
    thread_local const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> own(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    return algorithm && own && EVP_DigestInit_ex(own.get(), algorithm.get(), nullptr) == 1 ? own.get() : nullptr;
}

} // namespace

void ContentDigest::add(std::string_view part) {
    if (Parts.empty()) {
        Parts.reserve(kUsualLength);
    }
    Parts += std::to_string(part.size());
    Parts += ':';
    Parts += part;
    Known = false;
}

std::uint64_t ContentDigest::value(std::size_t place) {
    if (!Known) {
        EVP_MD_CTX* const digest = context();
        if (digest == nullptr || EVP_DigestUpdate(digest, Parts.data(), Parts.size()) != 1 ||
            EVP_DigestFinal_ex(digest, Bytes.data(), nullptr) != 1) {
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
