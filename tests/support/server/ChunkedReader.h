// Reads a chunked body as it comes in.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace testsupport {

class ChunkedReader {
public:
    // Takes from the front of `pending` what belongs to the body. True once the body has ended. Raises
    // std::runtime_error for anything that is not a chunked body.
    bool take(std::string& pending) {
        for (;;) {
            const std::size_t length = std::min(Remaining, pending.size());
            Content.append(pending, 0, length);
            pending.erase(0, length);
            Remaining -= length;
            const std::size_t end = pending.find("\r\n");
            if (Remaining > 0 || end == std::string::npos) {
                return false;
            }
            const std::string line = pending.substr(0, end);
            pending.erase(0, end + 2);
            if (Next == Line::Size) {
                const char* last = line.data() + line.size();
                const auto [stop, error] = std::from_chars(line.data(), last, Remaining, 16);
                if (error != std::errc() || (stop != last && *stop != ';')) {
                    throw std::runtime_error("not a chunk size: " + line);
                }
                Next = Remaining == 0 ? Line::Trailer : Line::DataEnd;
            } else if (Next == Line::DataEnd) {
                if (!line.empty()) {
                    throw std::runtime_error("a chunk is longer than its size says");
                }
                Next = Line::Size;
            } else if (line.empty()) {
                return true;
            }
        }
    }

    const std::string& content() const { return Content; }

private:
    enum class Line { Size, DataEnd, Trailer };

    Line Next = Line::Size;
    std::size_t Remaining = 0; // of a chunk's data
    std::string Content;
};

} // namespace testsupport
