// Content-Range: what is read is a range, and written again it is read as the same.
#include "client/save/ContentRange.h"
#include "fuzz/FuzzInput.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto range = netrove::parseContentRange(textOf(data, size));
    if (!range) {
        return 0;
    }
    std::string text = "bytes *";
    if (range->First) {
        require(*range->First <= range->Last, "a range ends after its start");
        require(!range->Total || range->Last < *range->Total, "a range lies within the content");
        text = "bytes " + std::to_string(*range->First) + "-" + std::to_string(range->Last);
    }
    text += "/" + (range->Total ? std::to_string(*range->Total) : "*");
    const auto again = netrove::parseContentRange(text);
    require(again && again->First == range->First && again->Last == range->Last && again->Total == range->Total,
            "a range can be written and read again");
    return 0;
}
