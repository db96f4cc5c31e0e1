// Which part of a manifest a run does when several machines share it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace netrove::cli {

// Shard `Index` of `Count`, counted from 1. It does every transfer whose place in the manifest, counted from 0, leaves
// `Index - 1` when divided by `Count`: whatever the number of jobs, and whatever the others do.
struct BatchShard {
    std::size_t Index = 1;
    std::size_t Count = 1;
    std::string Source{}; // where it comes from, for people; empty for a run of everything

    bool whole() const { return Count == 1; }
    bool has(std::size_t place) const { return place % Count == Index - 1; }
    std::string fileSuffix() const; // ".2-of-8"; empty for a whole manifest
};

// The value of a variable; null for none.
using Environment = std::function<const char*(const char* name)>;

// From --shard ("I/N"), else from what a launcher has put into the environment, else everything. Raises a usage
// failure.
BatchShard chooseShard(const std::string& option, const Environment& environment);

} // namespace netrove::cli
