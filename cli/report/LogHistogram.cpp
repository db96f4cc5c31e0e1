#include "cli/report/LogHistogram.h"

#include <algorithm>
#include <cmath>

namespace netrove::cli {

namespace {

constexpr int kPerDoubling = 8;
// A microsecond or a millionth of a byte; everything below is counted there, everything above the last in the last.
constexpr int kFirstBucket = -20 * kPerDoubling;
constexpr int kLastBucket = 63 * kPerDoubling - 1;

int bucketOf(double value) {
    if (!(value > 0)) {
        return kFirstBucket;
    }
    const double place = std::floor(std::log2(value) * kPerDoubling);
    return static_cast<int>(std::clamp<double>(place, kFirstBucket, kLastBucket));
}

double startOf(int bucket) {
    return std::exp2(static_cast<double>(bucket) / kPerDoubling);
}

int doublingOf(int bucket) {
    return static_cast<int>(std::floor(static_cast<double>(bucket) / kPerDoubling));
}

} // namespace

void LogHistogram::add(double value) {
    value = std::max(value, 0.0);
    const int bucket = bucketOf(value);
    if (Count == 0) {
        First = bucket;
        Least = Most = value;
    }
    if (bucket < First) {
        Buckets.insert(Buckets.begin(), static_cast<std::size_t>(First - bucket), 0);
        First = bucket;
    }
    const auto place = static_cast<std::size_t>(bucket - First);
    if (place >= Buckets.size()) {
        Buckets.resize(place + 1);
    }
    ++Buckets[place];
    ++Count;
    Sum += value;
    Least = std::min(Least, value);
    Most = std::max(Most, value);
}

void LogHistogram::add(const LogHistogram& other) {
    if (other.Count == 0) {
        return;
    }
    if (Count == 0) {
        *this = other;
        return;
    }
    const int first = std::min(First, other.First);
    const int end =
        std::max(First + static_cast<int>(Buckets.size()), other.First + static_cast<int>(other.Buckets.size()));
    std::vector<std::uint32_t> sums(static_cast<std::size_t>(end - first));
    for (const LogHistogram* part : {static_cast<const LogHistogram*>(this), &other}) {
        for (std::size_t i = 0; i < part->Buckets.size(); ++i) {
            sums[i + static_cast<std::size_t>(part->First - first)] += part->Buckets[i];
        }
    }
    Buckets = std::move(sums);
    First = first;
    Count += other.Count;
    Sum += other.Sum;
    Least = std::min(Least, other.Least);
    Most = std::max(Most, other.Most);
}

double LogHistogram::quantile(double share) const {
    if (Count == 0) {
        return 0;
    }
    const auto rank = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(Count)));
    std::uint64_t below = 0;
    for (std::size_t i = 0; i < Buckets.size(); ++i) {
        below += Buckets[i];
        if (below >= rank) {
            const double middle = startOf(First + static_cast<int>(i)) * std::exp2(0.5 / kPerDoubling);
            return std::clamp(middle, Least, Most);
        }
    }
    return Most;
}

std::vector<LogHistogram::Bar> LogHistogram::doublings() const {
    std::vector<Bar> bars;
    if (Count == 0) {
        return bars;
    }
    const int last = First + static_cast<int>(Buckets.size()) - 1;
    for (int doubling = doublingOf(First); doubling <= doublingOf(last); ++doubling) {
        bars.push_back({std::exp2(doubling), std::exp2(doubling + 1), 0});
    }
    for (std::size_t i = 0; i < Buckets.size(); ++i) {
        const int doubling = doublingOf(First + static_cast<int>(i));
        bars[static_cast<std::size_t>(doubling - doublingOf(First))].Count += Buckets[i];
    }
    return bars;
}

} // namespace netrove::cli
