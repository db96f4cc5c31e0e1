// Reads a chunked body as it comes in.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace testsupport {

class ChunkedReader {
public:
    // Takes from the front of `pending` what belongs to the body. True once the body has ended. Raises
    // std::runtime_error for anything that is not a chunked body.
    bool take(std::string& pending);

    const std::string& content() const { return Content; }
    const std::vector<std::size_t>& chunkSizes() const { return Sizes; } // without the last one of 0

private:
    enum class State { Size, Data, DataEnd, Trailer, Done };
    bool takeLine(std::string& pending, std::string& line);

    State Now = State::Size;
    std::size_t Remaining = 0;
    std::string Content;
    std::vector<std::size_t> Sizes;
};

} // namespace testsupport
