// A manifest as the lines of one shard. A file is read twice: it is checked as a whole, and then its lines are taken.
// What can be read only once, such as standard input, is taken as it comes.
#pragma once

#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/manifest/BatchShard.h"
#include "cli/batch/manifest/LineReader.h"
#include "cli/batch/manifest/LineSource.h"
#include "vantik/Failure.h"

#include <netrove/descriptor.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace netrove::cli {

class ManifestSource final : public LineSource {
public:
    // Of a list that is read once: a line that is bad, and why.
    using BadLine = std::function<void(const BatchLine& line, const vantik::Message& problem)>;

    // "-" is standard input. `lines` outlives this object. Raises FileNotRead.
    ManifestSource(const std::string& file, const BatchShard& shard, ManifestLines& lines, BadLine onBad);

    // For a file, before its lines are taken. Raises FileNotRead, Interrupted.
    bool isReadTwice() const { return Twice; }
    BadLines check();
    std::size_t all() const { return All; } // lines that were checked or passed
    std::size_t own() const { return Own; } // of this shard

    // Raises FileNotRead also for a file in which lines have changed since they were checked. Lines that were added to
    // its end are not taken.
    std::optional<BatchLine> next() override;
    void stop() noexcept override;

private:
    std::size_t readOnce(std::span<char> room);
    std::size_t readFirst(std::span<char> room);
    std::size_t readAgain(std::span<char> room);
    std::size_t takeBlock(std::span<char> room);
    std::size_t readBlock(std::span<char> room, std::uint64_t place) const;
    std::optional<BatchLine> take(const LineReader::Line& line);

    std::string Name;
    BatchShard Shard;
    ManifestLines& Lines;
    BadLine OnBad;
    Descriptor File;
    Descriptor Changes{-1}; // of a list that is read once: readable if there is more, or if it is to stop
    WakeEvent Stopped;
    std::atomic<bool> Stopping = false;
    bool Twice = false;
    LineReader Reader;
    std::size_t Place = 0; // of the line that is next, in the whole list
    std::size_t All = 0;
    std::size_t Own = 0;
    // Of a file. A short one is held, so that it may change.
    std::string Held;
    std::vector<std::uint32_t> Sums; // of its blocks
    std::uint64_t Length = 0;        // of what was checked
    std::uint64_t Read = 0;
    std::string Block; // the one that is next, as it was checked
    std::size_t BlockTaken = 0;
};

} // namespace netrove::cli
