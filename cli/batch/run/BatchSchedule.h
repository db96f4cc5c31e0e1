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
    int Attempts = 0;
    std::chrono::steady_clock::time_point Begun{}; // the first of them
};

class BatchSchedule {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = Time::duration;

    // At most `window` lines are in memory, of one origin a tenth; those that an origin has beyond are on the disk.
    BatchSchedule(int mostOfOrigin, std::size_t window);

    // False: there is enough to do for every origin that could be next.
    bool wantsMore() const { return InMemory < Window || (Ready.empty() && !DiskFull); }
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

private:
    struct Origin {
        std::deque<BatchJob> Held;
        LineSpill::Queue OnDisk;
        int Busy = 0;
        std::size_t Delayed = 0;
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

    // Around each change of an origin.
    void leave(Named::iterator origin) { Ready.erase(origin); }
    void settle(Named::iterator origin);
    bool fails(const Origin& origin) const;
    void refill(Origin& origin);
    void takeDue(Time now);
    void finish(Named::iterator origin, Duration taken);

    int MostOfOrigin;
    std::size_t Window;
    std::size_t MostHeld; // of an origin
    Named Origins;
    std::set<Named::iterator, Order> Ready; // those with a line and room for it
    std::multimap<Time, BatchJob> Delayed;
    LineSpill Spill;
    bool DiskFull = false;
    std::size_t InMemory = 0;
    std::size_t Running = 0;
    std::uint64_t Turns = 0;
    Duration Pace{}; // time taken by the origin that was chosen last: newcomers begin there
};

// "https://host:port".
std::string originOf(const std::string& url);

} // namespace netrove::cli
