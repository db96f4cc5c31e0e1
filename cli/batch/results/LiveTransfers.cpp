#include "cli/batch/results/LiveTransfers.h"

#include <iterator>

namespace netrove::cli {

LiveTransfers::Entry::Entry(LiveTransfers& all, const std::string& url) : All(all) {
    const std::lock_guard lock(All.Guard);
    All.Slots.push_back({&url, std::chrono::steady_clock::now(), 0, std::nullopt});
    Own = std::prev(All.Slots.end());
}

LiveTransfers::Entry::~Entry() {
    const std::lock_guard lock(All.Guard);
    All.Bytes -= Own->Received;
    All.Slots.erase(Own);
}

void LiveTransfers::Entry::count(std::uint64_t received, std::optional<std::uint64_t> total) {
    const std::lock_guard lock(All.Guard);
    All.Bytes += received - Own->Received; // modulo 2^64, so less is right too
    Own->Received = received;
    Own->Total = total;
}

std::size_t LiveTransfers::running() const {
    const std::lock_guard lock(Guard);
    return Slots.size();
}

std::uint64_t LiveTransfers::bytes() const {
    const std::lock_guard lock(Guard);
    return Bytes;
}

std::vector<LiveTransfer> LiveTransfers::longest(std::size_t most) const {
    const auto now = std::chrono::steady_clock::now();
    std::vector<LiveTransfer> result;
    const std::lock_guard lock(Guard);
    for (const Slot& slot : Slots) {
        if (result.size() == most) {
            break;
        }
        result.push_back({*slot.Url, slot.Received, slot.Total, now - slot.Start});
    }
    return result;
}

} // namespace netrove::cli
