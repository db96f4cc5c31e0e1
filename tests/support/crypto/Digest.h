// Content that is compared without being kept, and content to compare.
#pragma once

#include "tests/support/crypto/OpenSslOwner.h"

#include <openssl/evp.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace testsupport {

// SHA-256 of what has been added so far.
class Digest {
public:
    Digest();
    void add(std::string_view bytes);
    std::string hex() const;

private:
    OpenSslOwner<EVP_MD_CTX, EVP_MD_CTX_free> Context{EVP_MD_CTX_new()};
};

std::string digestOf(std::string_view bytes);
std::string digestOfFile(const std::string& path);

// Bytes of every value in no order that a compression or a lost piece would leave unnoticed; the same for the same
// size. `writeGenerated` writes them to a file and returns their digest, without holding them in memory.
std::string generated(std::size_t size);
std::string writeGenerated(const std::string& path, std::uint64_t size);

} // namespace testsupport
