// The content that the server sends and the peers upload: bytes with a period that is not a power of two, so that a piece
// that is lost, doubled or out of place changes the checksum. bench/run makes the same bytes.
#pragma once

#include <boost/crc.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

inline constexpr std::size_t kContentPeriod = std::size_t{251} << 10;

// The beginning of the content.
inline std::string contentOf(std::size_t size) {
    std::string content(size, '\0');
    for (std::size_t at = 0; at < size; ++at) {
        const std::size_t place = at % kContentPeriod;
        content[at] = static_cast<char>(place * 7 + (place >> 8) * 13);
    }
    return content;
}

// Counts bytes; where `check` is set also their CRC-32, which costs more than a transfer.
class Tally {
public:
    explicit Tally(bool check) : Check(check) {}
    void take(const void* data, std::size_t size) {
        Count += size;
        if (Check) {
            Crc.process_bytes(data, size);
        }
    }
    std::uint64_t count() const { return Count; }
    std::uint32_t checksum() const { return Check ? Crc.checksum() : 0; }

private:
    bool Check;
    std::uint64_t Count = 0;
    boost::crc_32_type Crc;
};

} // namespace bench
