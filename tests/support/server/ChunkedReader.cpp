#include "tests/support/server/ChunkedReader.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace testsupport {

bool ChunkedReader::takeLine(std::string& pending, std::string& line) {
    const std::size_t end = pending.find("\r\n");
    if (end == std::string::npos) {
        return false;
    }
    line = pending.substr(0, end);
    pending.erase(0, end + 2);
    return true;
}

bool ChunkedReader::take(std::string& pending) {
    std::string line;
    while (Now != State::Done) {
        switch (Now) {
        case State::Size: {
            if (!takeLine(pending, line)) {
                return false;
            }
            const char* last = line.data() + line.size();
            const auto [stop, error] = std::from_chars(line.data(), last, Remaining, 16);
            if (error != std::errc() || (stop != last && *stop != ';')) {
                throw std::runtime_error("not a chunk size: " + line);
            }
            if (Remaining == 0) {
                Now = State::Trailer;
            } else {
                Sizes.push_back(Remaining);
                Now = State::Data;
            }
            break;
        }
        case State::Data: {
            const std::size_t length = std::min(Remaining, pending.size());
            Content.append(pending, 0, length);
            pending.erase(0, length);
            Remaining -= length;
            if (Remaining > 0) {
                return false;
            }
            Now = State::DataEnd;
            break;
        }
        case State::DataEnd:
            if (!takeLine(pending, line)) {
                return false;
            }
            if (!line.empty()) {
                throw std::runtime_error("a chunk is longer than its size says");
            }
            Now = State::Size;
            break;
        case State::Trailer:
            if (!takeLine(pending, line)) {
                return false;
            }
            if (line.empty()) {
                Now = State::Done;
            }
            break;
        case State::Done:
            break;
        }
    }
    return true;
}

} // namespace testsupport
