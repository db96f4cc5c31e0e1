#include "tests/support/crypto/Digest.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>

namespace testsupport {
namespace {

constexpr std::size_t kBlockSize = std::size_t{1} << 20;

std::string randomBlock() {
    std::mt19937_64 random(20261121); // any number, but the same in every run
    std::string block(kBlockSize, '\0');
    for (std::size_t position = 0; position < kBlockSize; position += sizeof(std::uint64_t)) {
        const std::uint64_t value = random();
        std::memcpy(&block[position], &value, sizeof value);
    }
    return block;
}

// One block again and again, each numbered, so that no two are alike.
void generate(std::uint64_t size, const std::function<void(std::string_view)>& take) {
    std::string block = randomBlock();
    for (std::uint64_t number = 0; size > 0; ++number) {
        std::memcpy(block.data(), &number, sizeof number);
        const std::uint64_t length = std::min<std::uint64_t>(size, kBlockSize);
        take(std::string_view(block).substr(0, static_cast<std::size_t>(length)));
        size -= length;
    }
}

} // namespace

Digest::Digest() {
    requireOpenSsl(Context != nullptr && EVP_DigestInit_ex(Context.get(), EVP_sha256(), nullptr) == 1, "digest");
}

void Digest::add(std::string_view bytes) {
    requireOpenSsl(EVP_DigestUpdate(Context.get(), bytes.data(), bytes.size()) == 1, "digest");
}

std::string Digest::hex() const {
    const OpenSslOwner<EVP_MD_CTX, EVP_MD_CTX_free> copy(EVP_MD_CTX_new()); // so that more can be added
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned length = 0;
    requireOpenSsl(copy != nullptr && EVP_MD_CTX_copy_ex(copy.get(), Context.get()) == 1 &&
                       EVP_DigestFinal_ex(copy.get(), bytes.data(), &length) == 1,
                   "digest");
    std::string text(2 * length + 1, '\0');
    requireOpenSsl(OPENSSL_buf2hexstr_ex(text.data(), text.size(), nullptr, bytes.data(), length, '\0') == 1, "digest");
    return text.substr(0, 2 * length);
}

std::string digestOf(std::string_view bytes) {
    Digest digest;
    digest.add(bytes);
    return digest.hex();
}

std::string digestOfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    Digest digest;
    std::string block(kBlockSize, '\0');
    while (file.read(block.data(), static_cast<std::streamsize>(block.size())) || file.gcount() > 0) {
        digest.add(std::string_view(block).substr(0, static_cast<std::size_t>(file.gcount())));
    }
    return digest.hex();
}

std::string generated(std::size_t size) {
    std::string content;
    content.reserve(size);
    generate(size, [&](std::string_view block) { content += block; });
    return content;
}

std::string writeGenerated(const std::string& path, std::uint64_t size) {
    std::ofstream file(path, std::ios::binary);
    Digest digest;
    generate(size, [&](std::string_view block) {
        file.write(block.data(), static_cast<std::streamsize>(block.size()));
        digest.add(block);
    });
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
    return digest.hex();
}

} // namespace testsupport
