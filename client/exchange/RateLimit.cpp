// A speed as the time at which the next byte may move: every byte puts it off by its share of a second.
#include <netrove/ratelimit.h>

#include <algorithm>
#include <mutex>
#include <unordered_map>

namespace netrove {

namespace {

using Clock = RateLimit::Clock;

// What was not used in so short a time may be made up for: sleeps end late, and networks stutter.
constexpr std::chrono::milliseconds kMakesUpFor(100);
constexpr std::uint64_t kStepsPerSecond = 20;
constexpr std::uint64_t kLargestStep = 16384;
constexpr std::size_t kUsualHosts = 1024;

class Account {
public:
    // Until when `bytes` at this rate keep the line busy.
    Clock::time_point enter(std::uint64_t bytes, std::uint64_t rate, Clock::time_point now) {
        const std::chrono::duration<double> time(static_cast<double>(bytes) / static_cast<double>(rate));
        Next = std::max(Next, now - kMakesUpFor) + std::chrono::duration_cast<Clock::duration>(time);
        return Next;
    }
    bool isIdle(Clock::time_point now) const { return Next < now - kMakesUpFor; }

private:
    Clock::time_point Next{};
};

} // namespace

struct RateLimit::State {
    // Hosts of which nothing is remembered that matters are dropped when there have come to be twice as many.
    void dropIdleHosts(Clock::time_point now) {
        if (Hosts.size() >= MostHosts) {
            std::erase_if(Hosts, [&](const auto& entry) { return entry.second.isIdle(now); });
            MostHosts = std::max(kUsualHosts, 2 * Hosts.size());
        }
    }

    Rates Limits;
    std::mutex Guard;
    Account Total;
    std::unordered_map<std::string, Account> Hosts;
    std::size_t MostHosts = kUsualHosts;
};

RateLimit::RateLimit(Rates rates) : Own(std::make_unique<State>()) {
    Own->Limits = rates;
}

RateLimit::~RateLimit() = default;

Clock::time_point RateLimit::take(const std::string& host, std::uint64_t bytes, Clock::time_point now) {
    const std::lock_guard lock(Own->Guard);
    Clock::time_point next = now;
    if (Own->Limits.total != 0) {
        next = std::max(next, Own->Total.enter(bytes, Own->Limits.total, now));
    }
    if (Own->Limits.host != 0) {
        Own->dropIdleHosts(now);
        next = std::max(next, Own->Hosts[host].enter(bytes, Own->Limits.host, now));
    }
    return next;
}

std::uint64_t RateLimit::step() const {
    std::uint64_t slowest = kLargestStep * kStepsPerSecond;
    for (const std::uint64_t rate : {Own->Limits.total, Own->Limits.host}) {
        slowest = rate == 0 ? slowest : std::min(slowest, rate);
    }
    return std::max<std::uint64_t>(1, slowest / kStepsPerSecond);
}

} // namespace netrove
