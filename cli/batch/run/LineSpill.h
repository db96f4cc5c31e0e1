// Lines that wait on the disk, because memory is for those that are done next.
#pragma once

#include "cli/batch/manifest/BatchManifest.h"

#include <netrove/descriptor.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace netrove::cli {

// Many queues in one file without a name. All raise FileNotWritten.
class LineSpill {
public:
    // One queue; as empty as the first time once all its lines are taken.
    struct Queue {
        std::uint64_t First = 0; // where its record is
        std::uint64_t Last = 0;
        std::size_t Count = 0;
    };

    void add(Queue& queue, const BatchLine& line);
    BatchLine take(Queue& queue); // not of an empty one
    std::size_t size() const { return All; }

private:
    void write(std::string_view bytes, std::uint64_t at) const;
    void read(char* to, std::size_t length, std::uint64_t at) const;

    Descriptor File{-1}; // from the first line on
    std::uint64_t End = 0;
    std::size_t All = 0; // lines of all queues
};

} // namespace netrove::cli
