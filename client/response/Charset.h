// Content as text.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace netrove {

struct Decoded {
    std::string Text;                    // UTF-8; U+FFFD stands for each sequence of bytes that is not text
    std::optional<std::size_t> FirstBad; // where the first of them is
    std::string Charset;                 // what it was read as
    std::string Unknown;                 // the charset that Content-Type names, if there is none of that name
};

// By its byte order mark, else as UTF-8 if it is JSON, else by the charset of Content-Type, else as UTF-8.
Decoded decodeText(std::string_view content, std::string_view contentType);

} // namespace netrove
