// Output of the wire trace on standard output, with a flush after every write. A trace level of 0 writes nothing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace netrove {

// Repeated perform lines of a host scope. A run of equal lines is written once; its count closes the line when anything
// else is written.
struct LogPerformData {
    std::string LastText;         // empty: none
    std::int32_t RepeatCount = 0; // 0: nothing is pending
};

// The current scope's record, made on first use.
LogPerformData& getLogPerformData();

void traceLine(std::int32_t debug, std::string_view text);    // text and a newline
void traceText(std::int32_t debug, std::string_view text);    // text alone
void tracePerform(std::int32_t debug, std::string_view text); // one pass of a pump
void flushRepeats(); // closes a pending run with its count; needs no trace level, since only tracing makes one pending

} // namespace netrove
