#include "client/save/FileParts.h"

#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"
#include "client/text/Ascii.h"
#include "client/text/HttpDate.h"

#include <netrove/descriptor.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace netrove {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

void setTime(int descriptor, const Response& response, const std::string& name) {
    const auto time = parseHttpDate(response.fields["Last-Modified"], WallClock::now());
    if (!time) {
        return;
    }
    const timespec modified = {.tv_sec = static_cast<time_t>(time->time_since_epoch().count()), .tv_nsec = 0};
    const timespec times[2] = {modified, modified};
    if (futimens(descriptor, times) != 0) {
        failSystem(failure::kFileNotWritten, name, errno);
    }
}

} // namespace

void writeAll(int descriptor, std::span<const std::byte> bytes, const std::string& name) {
    while (!bytes.empty()) {
        const ssize_t count = retried([&] { return write(descriptor, bytes.data(), bytes.size()); });
        if (count <= 0) {
            failSystem(failure::kFileNotWritten, name, count == 0 ? ENOSPC : errno);
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

void restart(int descriptor, const std::string& name) {
    if (retried([&] { return ftruncate(descriptor, 0); }) != 0 || lseek(descriptor, 0, SEEK_SET) != 0) {
        failSystem(failure::kFileNotWritten, name, errno);
    }
}

bool holdsBytes(int descriptor, std::uint64_t at, std::span<const std::byte> bytes, const std::string& name) {
    std::vector<std::byte> there(std::min(bytes.size(), kPiece));
    while (!bytes.empty()) {
        const std::size_t most = std::min(bytes.size(), there.size());
        const ssize_t count = retried([&] { return pread(descriptor, there.data(), most, static_cast<off_t>(at)); });
        if (count < 0) {
            failSystem(failure::kFileNotRead, name, errno);
        }
        const auto length = static_cast<std::size_t>(count);
        if (length == 0 || !std::equal(there.begin(), there.begin() + count, bytes.begin())) {
            return false;
        }
        bytes = bytes.subspan(length);
        at += length;
    }
    return true;
}

void finishContent(int descriptor, const Request& request, const Response& response, const std::string& name) {
    if (!request.sha256.empty()) {
        const std::string found = sha256Of(descriptor, name);
        if (!equalsIgnoringCase(found, request.sha256)) {
            fail(failure::kDigestMismatch, {request.sha256, found},
                 "the content for " + name + " is not the one expected: its SHA-256 is " + found);
        }
    }
    if (request.keepTime) {
        setTime(descriptor, response, name);
    }
}

std::string sha256Of(int descriptor, const std::string& name) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    std::vector<unsigned char> piece(kPiece);
    bool good = digest && EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) == 1;
    for (off_t at = 0; good;) {
        const ssize_t count = retried([&] { return pread(descriptor, piece.data(), piece.size(), at); });
        if (count < 0) {
            failSystem(failure::kFileNotRead, name, errno);
        }
        if (count == 0) {
            break;
        }
        good = EVP_DigestUpdate(digest.get(), piece.data(), static_cast<std::size_t>(count)) == 1;
        at += count;
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned length = 0;
    if (!good || EVP_DigestFinal_ex(digest.get(), bytes.data(), &length) != 1) {
        fail("Failure", {"SHA-256"}, "the SHA-256 of " + name + " cannot be computed");
    }
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : std::span(bytes).first(length)) {
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

} // namespace netrove
