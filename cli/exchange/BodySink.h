// Where response content goes: standard output or an open file.
#pragma once

#include "cli/system/Signals.h"
#include "cli/terminal/JsonIndenter.h"

#include <netrove/text.h>
#include <vantik/Failure.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace netrove::cli {

// What is done for people who look at it.
struct Looks {
    bool Colored = false;
    bool IndentsJson = false;
    bool IndentsAnyType = false; // whatever the server calls it, as long as it is JSON
};

class BodySink {
public:
    // `descriptor` is borrowed. With `guardTerminal`, content that a terminal would obey is refused.
    BodySink(int descriptor, std::string name, bool guardTerminal, std::optional<Clock::time_point> deadline);

    // Writes all of it. Raises FileNotWritten; Interrupted where a signal came or the time allowed is over.
    void write(std::string_view bytes);
    // The same for content: raises BinaryToTerminal, and `excess` beyond the limit.
    void take(std::span<const std::byte> piece);

    void look(Looks looks) { TheLooks = looks; }
    const Looks& looks() const { return TheLooks; }
    // Content of this type comes next.
    void begin(std::string_view contentType);
    // No more content comes: writes what JSON that has not ended holds back.
    void finish();
    // On the thread that has written: lets others write to standard output, until this one writes again.
    void endTurn();

    // Content may have no more than `most` bytes; `excess` is the failure of more.
    void limit(std::uint64_t most, vantik::Message excess);

    std::uint64_t taken() const { return Taken; } // of content

private:
    void writePiece(std::string_view bytes);

    std::unique_lock<std::mutex> Turn; // at standard output, from the first byte on
    int Descriptor;
    std::string Name;
    bool GuardTerminal;
    ControlFinder Controls; // of what has been taken so far
    Looks TheLooks;
    std::optional<JsonIndenter> Indenter;
    bool Regular;
    std::optional<Clock::time_point> Deadline;
    std::uint64_t Taken = 0;
    std::optional<std::uint64_t> Most;
    vantik::Message Excess;
};

} // namespace netrove::cli
