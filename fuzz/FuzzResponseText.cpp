// Content as text, by a Content-Type in the first line: it is UTF-8 in the end, and what was not text is in it.
#include "client/response/Charset.h"
#include "fuzz/FuzzInput.h"

#include <netrove/text.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = textOf(data, size);
    const auto end = std::min(input.find('\n'), input.size());
    const std::string_view content = input.substr(std::min(end + 1, input.size()));
    const netrove::Decoded decoded = netrove::decodeText(content, input.substr(0, end));
    require(netrove::isUtf8(decoded.Text), "text is UTF-8");
    require(!decoded.FirstBad || *decoded.FirstBad < content.size(), "what is not text is within the content");
    require(!decoded.FirstBad || decoded.Text.find("\xEF\xBF\xBD") != decoded.Text.npos,
            "what is not text is replaced");
    return 0;
}
