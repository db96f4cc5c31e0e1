#include "tests/integration/apache/PasswordFiles.h"

#include <crypt.h>
#include <openssl/evp.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace integrationtest {
namespace {

std::string md5Hex(const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned int size = 0;
    if (EVP_Digest(text.data(), text.size(), value.data(), &size, EVP_md5(), nullptr) != 1) {
        throw std::runtime_error("no MD5");
    }
    constexpr const char* digits = "0123456789abcdef";
    std::string hex;
    for (unsigned int index = 0; index < size; ++index) {
        hex += digits[value[index] >> 4];
        hex += digits[value[index] & 15];
    }
    return hex;
}

} // namespace

std::string basicPasswordLine(const std::string& user, const std::string& password) {
    const auto data = std::make_unique<crypt_data>(); // 32 KiB
    const char* hash = ::crypt_r(password.c_str(), "$5$rounds=1000$netrove$", data.get());
    if (hash == nullptr || *hash == '*') {
        throw std::runtime_error("crypt refuses the password");
    }
    return user + ":" + hash + "\n";
}

std::string digestPasswordLine(const std::string& user, const std::string& realm, const std::string& password) {
    return user + ":" + realm + ":" + md5Hex(user + ":" + realm + ":" + password) + "\n";
}

} // namespace integrationtest
