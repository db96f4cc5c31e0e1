// The lines that a run is to do, one at a time: a list may be longer than memory.
#pragma once

#include "cli/batch/manifest/BatchManifest.h"

#include <optional>

namespace netrove::cli {

class LineSource {
public:
    LineSource() = default;
    virtual ~LineSource() = default;
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;

    // The next one that has to be done; nothing at the end. Not for several threads at a time. Where lines come from a
    // pipe it waits for one, and raises Interrupted after a signal. Raises FileNotRead, BadManifest.
    virtual std::optional<BatchLine> next() = 0;
    // Ends a wait of `next` on another thread: from now on there are no more.
    virtual void stop() noexcept = 0;
};

} // namespace netrove::cli
