// The library writes its trace to std::cout, where the content goes too. While a TraceOutput lives, the trace goes to
// standard error, and if that is a terminal, control characters are shown as escapes.
#pragma once

#include <memory>
#include <streambuf>

namespace netrove::cli {

class TraceOutput {
public:
    explicit TraceOutput(bool terminal);
    ~TraceOutput();
    TraceOutput(const TraceOutput&) = delete;
    TraceOutput& operator=(const TraceOutput&) = delete;

private:
    std::unique_ptr<std::streambuf> Buffer;
    std::streambuf* Previous;
};

} // namespace netrove::cli
