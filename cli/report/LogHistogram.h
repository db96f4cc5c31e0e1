// How values are spread, in a bounded amount of memory: buckets whose width grows with the value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace netrove::cli {

class LogHistogram {
public:
    // Eight buckets for each doubling: what is read from one is at most 4.5 % off. Negative values count as 0.
    void add(double value);
    void add(const LogHistogram& other);

    std::uint64_t count() const { return Count; }
    double sum() const { return Sum; }
    double least() const { return Least; }
    double most() const { return Most; }
    // The value that this share of all does not exceed; 0 without values.
    double quantile(double share) const;

    struct Bar {
        double From;
        double To;
        std::uint64_t Count;
    };
    // From the first bucket with a value to the last, one for each doubling.
    std::vector<Bar> doublings() const;

private:
    std::uint64_t Count = 0;
    double Sum = 0;
    double Least = 0;
    double Most = 0;
    int First = 0; // of Buckets
    std::vector<std::uint32_t> Buckets;
};

} // namespace netrove::cli
