// Content in memory that ends as a host array. To a transfer it is a stream like that of a file; but content whose
// length is announced is received right in the elements of the array that is handed over, so it is in memory once.
#pragma once

#include "hostcalls/HostArray.h"
#include "http/MappedAhead.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <span>
#include <streambuf>
#include <vector>

namespace netrove {

class ContentBuffer final : public std::ostream {
public:
    ContentBuffer() : std::ostream(nullptr) { rdbuf(&Content); }

    std::size_t size() const noexcept { return Content.Size; }

    // So many bytes are to follow; 0: an unknown number. Only a hint: a false length or a lack of memory changes
    // nothing.
    void expect(std::uint64_t length);
    // Memory for bytes to come, right after the content; they belong to it once `addLanded` counts them. Valid until
    // the next call of anything else; may be empty.
    std::span<char> room();
    void addLanded(std::size_t length) noexcept;

    // Writes, but raises std::bad_alloc where that would make a stream bad; nothing is written then.
    void append(std::span<const char> bytes);

    // All of it as a column of bytes: as a copy, or given away, after which nothing is left and the stream is good. No
    // byte is lost if there is no memory for the column.
    HostArray copy() const;
    HostArray release();

    void erase(std::size_t offset, std::size_t length);
    void clear(); // frees the memory, and clears the stream's error state

private:
    // Either the elements of an array that has yet to be filled, or memory of our own.
    struct Block {
        HostArray Array;
        std::unique_ptr<char[]> Memory;
        char* Begin;
        std::size_t Room;
        std::size_t Used = 0;
        MappedAhead Ahead = {};

        std::size_t left() const noexcept { return Room - Used; }
    };

    // Content that grows is in several blocks, so none of it is moved before it is whole.
    struct Device final : std::streambuf {
        std::streamsize xsputn(const char* bytes, std::streamsize count) override;
        int_type overflow(int_type byte) override;
        pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
        std::size_t left() const noexcept { return Blocks.empty() ? 0 : Blocks.back().left(); }
        static Block makeBlock(std::size_t room);
        std::size_t roomFor(std::size_t length) const noexcept; // of a block for so much and for more to come
        void copyTo(char* target) const;

        std::vector<Block> Blocks;
        std::size_t Size = 0;
        bool IsExpected = false; // there is a block for all that was announced
    };

    Device Content;
};

} // namespace netrove
