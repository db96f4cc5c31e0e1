// What a report says of a run, gathered line by line in memory that does not grow with their number.
#pragma once

#include "cli/report/FailureCause.h"
#include "cli/report/LogHistogram.h"
#include "cli/report/SpanSeries.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace netrove::cli {

// What the time of a line goes to, in this order.
enum class Phase : std::size_t {
    Before, // attempts and redirects that came before the last request, and the waits between them
    Head,   // of the last request, until the head of its response is there
    Content
};
struct PhaseRow {
    const char* Key;
    const char* Name;
};
inline constexpr PhaseRow kPhases[] = {
    {"before", "earlier attempts, redirects and waits"},
    {"head", "until the response began"},
    {"content", "content"},
};
using Phases = std::array<double, std::size(kPhases)>; // seconds

// One line that has ended. Times are seconds since the run began.
struct EndedLine {
    std::size_t Number = 0;
    std::string Url; // as it may be shown
    double Start = 0;
    double LastStart = 0; // of its last attempt
    double End = 0;
    Phases Spent{};
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
        double Busy = 0;  // seconds, of all transfers together

        Span& operator+=(const Span& other);
    };
    static constexpr std::size_t kMostSpans = 240;

    void add(const EndedLine& line);
    // A transfer was under way; `series` gets the same seconds as the spans do.
    void addBusy(double start, double end, SpanSeries<float>& series);
    double spanSeconds() const { return Width; }
    std::vector<Span> spans() const { return Spans.values(Count, Joins); }
    std::size_t count() const { return Count; }
    std::size_t reach(double seconds); // the span of that moment
    unsigned joins() const { return Joins; }

private:
    // Calls `visit` with each span in which something went on, and for how long.
    template <class Visit>
    void overlaps(double start, double end, Visit visit);

    double Width = 0.05;
    unsigned Joins = 0;
    std::size_t Count = 0;
    SpanSeries<Span> Spans;
};

struct HostFigures {
    std::string Name;
    std::size_t Done = 0;
    std::size_t Failed = 0;
    std::uint64_t Bytes = 0;
    LogHistogram Seconds;
    SpanSeries<float> Busy; // seconds of its transfers by span

    std::size_t lines() const { return Done + Failed; }
    void add(const HostFigures& other);
};

// What a chart over time stacks: a value for each span.
struct NamedSeries {
    std::string Name;
    std::vector<double> Values;
};

class RunFigures {
public:
    static constexpr std::size_t kSlowest = 100;

    // Returns how many lines have failed for the same cause, this one included; 0 for one that is done.
    std::size_t add(const EndedLine& line);
    // An attempt after which the line is to be tried again.
    void addAttempt(const std::string& url, double start, double end);

    const TimeLine& times() const { return Times; }
    const CauseCounts& causes() const { return Causes; }
    const LogHistogram& seconds() const { return Seconds; }
    const LogHistogram& sizes() const { return Sizes; } // of what is done
    const Phases& spent() const { return Spent; }       // of all lines
    // How many lines took one attempt, two, and so on; the last is for all beyond.
    const std::array<std::size_t, 8>& attempts() const { return Attempts; }
    std::vector<EndedLine> slowest() const; // slowest first
    // Those with most lines, and "other" for the rest if there is one.
    std::vector<HostFigures> topHosts(std::size_t most) const;
    // Those with most failures.
    std::vector<HostFigures> failingHosts(std::size_t most) const;
    // How many lines failed, by kind of cause: the commonest, and "other" for the rest if there is one.
    std::vector<NamedSeries> failuresInTime(std::size_t most) const;
    // The seconds that transfers took, by host: those with most lines, and "other" likewise.
    std::vector<NamedSeries> hostsInTime(std::size_t most) const;
    // How many there are, up to a limit.
    std::size_t hosts() const { return Hosts.size(); }
    bool moreHosts() const { return FurtherHosts.lines() != 0; }

private:
    HostFigures& hostFor(const std::string& name);
    void addFailure(const FailureCause& cause, double end);

    TimeLine Times;
    CauseCounts Causes;
    std::map<std::string, SpanSeries<std::uint32_t>> Kinds; // of causes
    Phases Spent{};
    LogHistogram Seconds;
    LogHistogram Sizes;
    std::array<std::size_t, 8> Attempts{};
    std::vector<EndedLine> Slowest; // a heap with the fastest of them on top
    std::unordered_map<std::string, HostFigures> Hosts;
    HostFigures FurtherHosts; // of which no name is kept
};

} // namespace netrove::cli
