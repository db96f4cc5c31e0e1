// What became of one line of a manifest.
#pragma once

#include "cli/failures/ExitStatus.h"
#include "cli/system/Signals.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace netrove::cli {

// How a transfer ended.
struct BatchOutcome {
    bool Abandoned = false; // the run was stopped before the transfer ended; the other members mean nothing then
    std::optional<Verdict> Failed;
    int Status = 0; // of the last response; 0 for none
    std::uint64_t Bytes = 0;
    int Attempts = 0;
    std::chrono::duration<double> Time{};     // waits included
    std::optional<Clock::time_point> Ended{}; // before its file got its name, together with others
    Clock::time_point Began{};                // the last attempt
    ///@{ Of its last request.
    std::chrono::duration<double> UntilHead{}; // zero: no head came
    std::chrono::duration<double> Request{};   // to its end
    ///@}
};

} // namespace netrove::cli
