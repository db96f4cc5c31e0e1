// The transfers under way, for those who look on.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace netrove::cli {

struct LiveTransfer {
    std::string Url;
    std::uint64_t Received = 0;
    std::optional<std::uint64_t> Total;
    std::chrono::duration<double> Time{}; // since it began
};

// Callable from any thread.
class LiveTransfers {
    struct Slot {
        const std::string* Url; // of the line, which outlives the entry
        std::chrono::steady_clock::time_point Start;
        std::uint64_t Received = 0;
        std::optional<std::uint64_t> Total;
    };

public:
    // One of them, for as long as it lives.
    class Entry {
    public:
        Entry(LiveTransfers& all, const std::string& url); // both are borrowed
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        // Content so far; less than before where another attempt begins.
        void count(std::uint64_t received, std::optional<std::uint64_t> total);

    private:
        LiveTransfers& All;
        std::list<Slot>::iterator Own;
    };

    std::size_t running() const;
    std::uint64_t bytes() const; // of those that run
    // Those that have run longest, longest first.
    std::vector<LiveTransfer> longest(std::size_t most) const;

private:
    mutable std::mutex Guard;
    std::list<Slot> Slots; // in the order in which they began
    std::uint64_t Bytes = 0;
};

} // namespace netrove::cli
