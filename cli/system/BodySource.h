// Request content from a file or from standard input.
#pragma once

#include "cli/system/Signals.h"

#include <netrove/body.h>

#include <optional>
#include <string>

namespace netrove::cli {

// Content that is read while it is sent, from where the file stands; "-" is standard input. A wait for it ends with a
// signal, or at the deadline. Raises FileNotRead. It is sent again from there where it can be read again.
netrove::Body streamedContent(const std::string& file, bool lengthIsKnown, std::optional<Clock::time_point> deadline);

// The whole of a file, or of standard input for "-", in memory. Raises FileNotRead, also for more than
// `kLargestInMemory`.
constexpr std::size_t kLargestInMemory = std::size_t{1} << 30;
std::string readWhole(const std::string& file, std::optional<Clock::time_point> deadline = std::nullopt);

// Reads a file piece by piece.
class FileReader {
public:
    explicit FileReader(const std::string& file, std::optional<Clock::time_point> deadline = std::nullopt);
    ~FileReader();
    std::size_t read(std::span<std::byte> room); // 0 at the end; raises FileNotRead

private:
    struct State;
    std::shared_ptr<State> Own;
    friend netrove::Body streamedContent(const std::string&, bool, std::optional<Clock::time_point>);
};

} // namespace netrove::cli
