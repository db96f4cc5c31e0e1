// What a person at a terminal sees while a batch runs: a few lines, drawn again in place.
#pragma once

#include "cli/batch/results/BatchReport.h"
#include "cli/batch/results/LiveTransfers.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace netrove::cli {

// One moment of a run.
struct BatchMoment {
    BatchTotals Totals; // bytes of running transfers included
    std::size_t Running = 0;
    double BytesPerSecond = 0; // lately
    double LinesPerSecond = 0; // lately, failed ones included
    std::vector<LiveTransfer> Longest{};
};

// At most `height` lines of at most `width` columns each, whatever a URL holds.
std::vector<std::string> displayLines(const BatchMoment& moment, std::size_t width, std::size_t height);

// The text cut to so many columns, with "..." in its middle. Characters beyond ASCII count as two columns each, which
// is as wide as they can be.
std::string cutToColumns(const std::string& text, std::size_t columns);

// "12 s", "3 min 20 s"; "more than a day" beyond that.
std::string timeLeftText(double seconds);

// Speeds over the last ten seconds.
class RecentSpeed {
public:
    void add(double seconds, std::uint64_t bytes, std::size_t lines);
    double bytesPerSecond() const;
    double linesPerSecond() const;

private:
    struct Sample {
        double Seconds;
        std::uint64_t Bytes;
        std::size_t Lines;
    };
    std::deque<Sample> Samples; // never empty once one was added
};

class BatchDisplay {
public:
    // Draws in place on a terminal, a line a second elsewhere. What is given outlives this object.
    BatchDisplay(const Settings& settings, const Console& console, BatchReport& report, const LiveTransfers& transfers);
    ~BatchDisplay(); // removes what is drawn in place
    BatchDisplay(const BatchDisplay&) = delete;
    BatchDisplay& operator=(const BatchDisplay&) = delete;

    // When to draw next; nothing: never.
    std::optional<std::chrono::steady_clock::time_point> next() const;
    // Draws, and writes reports for those who look on from elsewhere, if it is time.
    void draw();
    // What is left to say at the end; removes what is drawn in place.
    void finish();

private:
    void drawNow();
    BatchMoment moment();

    const Console& TheConsole;
    BatchReport& Report;
    const LiveTransfers& Transfers;
    int Descriptor; // of the terminal, or standard error
    bool InPlace;
    bool Shown;
    RecentSpeed Speed;
    std::chrono::steady_clock::time_point Next;
};

} // namespace netrove::cli
