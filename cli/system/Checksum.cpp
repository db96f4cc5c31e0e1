#include "cli/system/Checksum.h"

#include <zlib.h>

namespace netrove::cli {

std::uint32_t checksumOf(std::string_view text) {
    return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(text.data()), text.size()));
}

} // namespace netrove::cli
