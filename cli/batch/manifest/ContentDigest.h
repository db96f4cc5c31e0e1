// Digests that stand for texts: of lines, names and identifiers.
#pragma once

#include <Poco/SHA2Engine.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netrove::cli {

// Each part after its length, so that no two lists of parts make the same text.
class ContentDigest {
public:
    void add(std::string_view part) {
        Engine.update(std::to_string(part.size()) + ":");
        Engine.update(part.data(), part.size());
    }
    // The number at a place from 0 to 3. Adding ends with the first call.
    std::uint64_t value(std::size_t place = 0) {
        if (Bytes.empty()) {
            Bytes = Engine.digest();
        }
        std::uint64_t result = 0;
        for (std::size_t i = 0; i < sizeof result; ++i) {
            result = result << 8 | Bytes[place * sizeof result + i];
        }
        return result;
    }

private:
    Poco::SHA2Engine Engine{Poco::SHA2Engine::SHA_256};
    Poco::DigestEngine::Digest Bytes;
};

} // namespace netrove::cli
