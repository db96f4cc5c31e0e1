// Where a consumer puts response content: standard output or an open file.
#pragma once

#include "cli/system/Signals.h"
#include "cli/text/SafeText.h"
#include "vantik/HostClass.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>

namespace netrove::cli {

class BodySink {
public:
    // `descriptor` is borrowed. With `guardTerminal`, content that a terminal would obey is refused.
    BodySink(int descriptor, std::string name, bool guardTerminal, std::optional<Clock::time_point> deadline);

    // False, and the failure is kept, if not everything could be written.
    bool write(std::string_view bytes);

    // The consumer takes no more than `most` bytes; `excess` is the failure of content that is longer.
    void limit(std::uint64_t most, vantik::Message excess);

    // The callables refer to this object.
    vantik::ContentConsumer consumer();
    void onWrite(std::function<void(std::uint64_t taken)> handler) { WriteHandler = std::move(handler); }

    std::uint64_t taken() const { return Taken; } // by the consumer
    // What went wrong here, whatever the library made of it.
    const std::optional<vantik::Message>& failure() const { return Failed; }

private:
    bool writePiece(std::string_view bytes);

    int Descriptor;
    std::string Name;
    bool GuardTerminal;
    ControlFinder Controls; // of what has been taken so far
    bool Regular;
    std::optional<Clock::time_point> Deadline;
    std::uint64_t Taken = 0;
    std::uint64_t Most = std::numeric_limits<std::uint64_t>::max();
    std::optional<vantik::Message> Excess;
    std::function<void(std::uint64_t)> WriteHandler;
    std::optional<vantik::Message> Failed;
};

} // namespace netrove::cli
