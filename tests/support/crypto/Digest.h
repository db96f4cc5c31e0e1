// Content that is compared without being kept, and content to compare.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace testsupport {

// SHA-256 of what has been added so far.
class Digest {
public:
    Digest();
    ~Digest();
    Digest(Digest&&) noexcept;
    Digest& operator=(Digest&&) noexcept;

    void add(std::string_view bytes);
    std::uint64_t size() const noexcept { return Size; } // bytes added
    std::string hex() const;

private:
    struct FreeContext {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, FreeContext> Context;
    std::uint64_t Size = 0;
};

std::string digestOf(std::string_view bytes);
std::string digestOfFile(const std::string& path);

// Bytes of every value in no order that a compression or a lost piece would leave unnoticed; the same for the same
// size. `writeGenerated` writes them to a file and gives their digest, without holding them in memory.
std::string generated(std::size_t size);
std::string writeGenerated(const std::string& path, std::uint64_t size);

} // namespace testsupport
