#include "cli/batch/results/FailureList.h"

#include <netrove/text.h>

#include <span>

namespace netrove::cli {

namespace {

constexpr std::size_t kMostWaiting = std::size_t{1} << 16;

} // namespace

FailureList::FailureList(const std::string& file) : File(file, true) {}

void FailureList::add(const BatchLine& line, const std::string& cause, bool usable) {
    Waiting += "# line " + std::to_string(line.Number) + ": " + printable(cause) + "\n" + (usable ? "" : "# ") +
               line.Text + "\n";
    if (Waiting.size() >= kMostWaiting) {
        flush();
    }
}

void FailureList::keep() {
    flush();
    File.keep();
}

void FailureList::flush() {
    File.write(std::as_bytes(std::span(Waiting)));
    Waiting.clear();
}

} // namespace netrove::cli
