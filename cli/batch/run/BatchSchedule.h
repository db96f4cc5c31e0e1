// Which line is done next. Each origin (scheme, host and port) has a queue, and no more than so many transfers at a
// time; a line that failed and may be tried again waits for its time. Not for several threads at a time.
#pragma once

#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/run/LineSpill.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>

namespace netrove::cli {

// A line, and what has become of its attempts so far.
struct BatchJob {
    BatchLine Line{};
    std::string Origin{};
    std::size_t Bytes = 0; // of memory
    int Attempts = 0;
    std::chrono::steady_clock::time_point Begun{}; // the first of them
};

// What may be in memory before it is done.
struct BatchWindow {
    std::size_t Lines = 10'000;
    std::size_t Bytes = std::size_t{32} << 20;
};

class BatchSchedule {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = Time::duration;

    // Lines beyond the window are on the disk, but for one of each origin.
    BatchSchedule(int mostOfOrigin, BatchWindow window);

    // False: there is enough to do for every origin that could be next. What one origin has beyond a tenth of the
    // window counts for nothing: the next line may be that of another one.
    bool wantsMore() const { return InMemory - Excess < Window.Lines || looksForOthers(); }
    // The same with so much room that it is worth waking who reads.
    bool wantsMany() const { return InMemory - Excess < Window.Lines - MostHeld || looksForOthers(); }
    void add(BatchLine line);

    // Of the origins with room, the next line of the one with the fewest running transfers; among those, of the one
    // that has taken the least time so far. Nothing: none has any.
    std::optional<BatchJob> take(Time now);
    // What was taken has ended: after this time, and for good, or to be done again then.
    void ended(const std::string& origin, Duration taken);
    void again(BatchJob job, Duration taken, Time due);

    std::optional<Time> nextDue() const;
    bool empty() const { return Origins.empty(); } // nothing waits and nothing runs
    std::size_t running() const { return Running; }
    std::size_t onDisk() const { return Spill.size(); } // lines

private:
    struct Origin {
        std::deque<BatchJob> Held;
        LineSpill::Queue OnDisk;
        int Busy = 0;
        std::size_t Delayed = 0;
        std::size_t Excess = 0; // lines in memory beyond MostHeld
        Duration Taken{};
        std::uint64_t Turn = 0;
    };
    using Named = std::map<std::string, Origin>;
    struct Order {
        bool operator()(Named::iterator left, Named::iterator right) const {
            const Origin& a = left->second;
            const Origin& b = right->second;
            return std::tie(a.Busy, a.Taken, a.Turn) < std::tie(b.Busy, b.Taken, b.Turn);
        }
    };

    bool looksForOthers() const { return Ready.empty() && !DiskFull; }
    bool full() const { return InMemory >= Window.Lines || Bytes >= Window.Bytes; }

    // Around each change of an origin.
    const std::string& nameOfOrigin(const std::string& url);
    void leave(Named::iterator origin) { Ready.erase(origin); }
    void settle(Named::iterator origin);
    void hold(Origin& origin, BatchLine line, std::string name);
    bool fails(const Origin& origin) const;
    void refill(Origin& origin);
    void takeDue(Time now);
    void finish(Named::iterator origin, Duration taken);

    int MostOfOrigin;
    BatchWindow Window;
    std::size_t MostHeld;  // of an origin, before it counts as having much
    std::string LastGiven; // of a URL, up to its path
    std::string LastName;  // of that origin
    Named Origins;
    std::set<Named::iterator, Order> Ready; // those with a line and room for it
    std::multimap<Time, BatchJob> Delayed;
    LineSpill Spill;
    bool DiskFull = false;
    std::size_t InMemory = 0;
    std::size_t Bytes = 0; // of those
    std::size_t DelayedBytes = 0;
    std::size_t Excess = 0; // of all origins
    std::size_t Running = 0;
    std::uint64_t Turns = 0;
    Duration Pace{}; // time taken by the origin that was chosen last: newcomers begin there
};

// "https://host:port".
std::string originOf(const std::string& url);

} // namespace netrove::cli
