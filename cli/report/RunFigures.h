// What a report says of a run, gathered line by line in memory that does not grow with their number.
#pragma once

#include "cli/report/FailureCause.h"
#include "cli/report/LogHistogram.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace netrove::cli {

// One line that has ended. Times are seconds since the run began.
struct EndedLine {
    std::size_t Number = 0;
    std::string Url; // as it may be shown
    double Start = 0;
    double End = 0;
    int Status = 0; // 0: none
    std::uint64_t Bytes = 0;
    int Attempts = 0;
    std::optional<FailureCause> Failed{};
};

// Equal spans of time from the start of the run. A moment beyond the last span joins all spans in pairs.
class TimeLine {
public:
    struct Span {
        std::size_t Done = 0;
        std::size_t Failed = 0;
        double Bytes = 0; // those of a line are spread evenly over its time
    };
    static constexpr std::size_t kMostSpans = 240;

    void add(const EndedLine& line);
    double spanSeconds() const { return Width; }
    const std::vector<Span>& spans() const { return Spans; }

private:
    std::size_t reach(double seconds); // the place of that moment

    double Width = 0.05;
    std::vector<Span> Spans;
};

struct HostFigures {
    std::string Name;
    std::size_t Done = 0;
    std::size_t Failed = 0;
    std::uint64_t Bytes = 0;
    LogHistogram Seconds;

    std::size_t lines() const { return Done + Failed; }
    void add(const HostFigures& other);
};

class RunFigures {
public:
    static constexpr std::size_t kSlowest = 100;

    // Returns how many lines have failed for the same cause, this one included; 0 for one that is done.
    std::size_t add(const EndedLine& line);

    const TimeLine& times() const { return Times; }
    const CauseCounts& causes() const { return Causes; }
    const LogHistogram& seconds() const { return Seconds; }
    const LogHistogram& sizes() const { return Sizes; } // of what is done
    // How many lines took one attempt, two, and so on; the last is for all beyond.
    const std::array<std::size_t, 8>& attempts() const { return Attempts; }
    std::vector<EndedLine> slowest() const; // slowest first
    // Those with most lines, and "other" for the rest if there is one.
    std::vector<HostFigures> topHosts(std::size_t most) const;
    // Those with most failures.
    std::vector<HostFigures> failingHosts(std::size_t most) const;
    // How many there are, up to a limit.
    std::size_t hosts() const { return Hosts.size(); }
    bool moreHosts() const { return FurtherHosts.lines() != 0; }

private:
    HostFigures& hostFor(const std::string& name);

    TimeLine Times;
    CauseCounts Causes;
    LogHistogram Seconds;
    LogHistogram Sizes;
    std::array<std::size_t, 8> Attempts{};
    std::vector<EndedLine> Slowest; // a heap with the fastest of them on top
    std::unordered_map<std::string, HostFigures> Hosts;
    HostFigures FurtherHosts; // of which no name is kept
};

} // namespace netrove::cli
