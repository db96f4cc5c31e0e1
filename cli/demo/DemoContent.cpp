#include "cli/demo/DemoContent.h"

#include <openssl/evp.h>

#include <array>
#include <stdexcept>

namespace netrove::cli {

char patternByte(std::size_t position) {
    return static_cast<char>((position * 31 + (position >> 8) * 7 + (position >> 16)) & 0xFF);
}

std::string digestOf(const std::string& bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("OpenSSL has no SHA-256");
    }
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        text += {digits[digest.at(i) >> 4U], digits[digest.at(i) & 0x0FU]};
    }
    return text;
}

} // namespace netrove::cli
