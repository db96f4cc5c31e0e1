#include "streaming/ContentBuffer.h"

#include "hostcalls/HostObjectCall.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

namespace netrove {

using namespace matrix::detail::noninlined::vx_array_api;

namespace {

// No announced length makes us reserve more than this. Reserved memory is not touched until bytes arrive.
constexpr std::uint64_t kLargestReservation = std::uint64_t{1} << 30;
// From here on a copy costs more than the array that saves it.
constexpr std::uint64_t kSmallestArray = std::uint64_t{256} << 10;
// Of memory of our own: all that there is once more, within these limits.
constexpr std::size_t kSmallestBlock = std::size_t{16} << 10;
constexpr std::size_t kLargestBlock = std::size_t{4} << 20;

HostArray makeColumn(std::size_t length) {
    return HostArray(vxCreateNumericMatrix(length, 1, vxUINT8_CLASS, vxREAL));
}

char* elementsOf(const HostArray& array) {
    return static_cast<char*>(vxGetData(array.get()));
}

} // namespace

void ContentBuffer::expect(std::uint64_t length) {
    Content.IsExpected = length != 0 && Content.left() >= length;
    if (Content.IsExpected || length == 0 || length > kLargestReservation) {
        return;
    }
    try {
        if (length < kSmallestArray) {
            Content.Blocks.push_back(Device::makeBlock(length));
        } else {
            HostArray array = makeColumn(Content.Size + length);
            vxSetArrayScope(array.get(), vxPERSISTENT_SCOPE); // a copy that is interrupted goes on in a later host call
            char* const begin = elementsOf(array);
            std::vector<Block> blocks;
            blocks.push_back({.Array = std::move(array),
                              .Memory = nullptr,
                              .Begin = begin,
                              .Room = Content.Size + length,
                              .Used = Content.Size});
            Content.copyTo(begin);
            Content.Blocks = std::move(blocks);
        }
        Content.IsExpected = true;
    } catch (const std::bad_alloc&) { // see the declaration
    }
}

std::span<char> ContentBuffer::room() {
    if (!good()) {
        return {}; // what is written now is lost
    }
    if (Content.left() == 0 && !Content.IsExpected) {
        try {
            Content.Blocks.push_back(Device::makeBlock(Content.roomFor(1)));
        } catch (const std::bad_alloc&) { // the write of what then comes is what fails
            return {};
        }
    }
    if (Content.Blocks.empty()) {
        return {};
    }
    Block& block = Content.Blocks.back();
    block.Ahead.advance(block.Begin, block.Used, block.Room);
    return {block.Begin + block.Used, block.left()};
}

void ContentBuffer::append(std::span<const char> bytes) {
    if (good()) {
        Content.xsputn(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
}

void ContentBuffer::addLanded(std::size_t length) noexcept {
    if (length != 0) {
        Content.Blocks.back().Used += length;
        Content.Size += length;
    }
}

HostArray ContentBuffer::copy() const {
    HostArray array = makeColumn(Content.Size);
    Content.copyTo(elementsOf(array));
    return array;
}

HostArray ContentBuffer::release() {
    HostArray array;
    if (Content.Blocks.size() == 1 && Content.Blocks[0].Array && Content.left() == 0) {
        array = std::move(Content.Blocks[0].Array);
        vxSetArrayScope(array.get(), vxTEMPORARY_SCOPE); // like every other result
    } else {
        array = makeColumn(Content.Size);
        char* target = elementsOf(array);
        for (Block& block : Content.Blocks) {
            const Block taken = std::move(block); // frees it as soon as it is copied
            target = std::copy_n(taken.Begin, taken.Used, target);
        }
    }
    clear();
    return array;
}

void ContentBuffer::erase(std::size_t offset, std::size_t length) {
    std::string content(Content.Size, '\0');
    Content.copyTo(content.data());
    content.erase(offset, length);
    clear();
    write(content.data(), static_cast<std::streamsize>(content.size()));
}

void ContentBuffer::clear() {
    Content.Blocks.clear();
    Content.Size = 0;
    Content.IsExpected = false;
    std::ostream::clear();
}

// All of it or, without memory, nothing.
std::streamsize ContentBuffer::Device::xsputn(const char* bytes, std::streamsize count) {
    const auto length = static_cast<std::size_t>(count);
    const std::size_t first = std::min(length, left());
    Block next = {};
    if (first != length) {
        next = makeBlock(roomFor(length - first));
        next.Used = length - first;
        std::copy_n(bytes + first, next.Used, next.Begin);
        Blocks.reserve(Blocks.size() + 1);
    }
    if (first != 0) {
        std::copy_n(bytes, first, Blocks.back().Begin + Blocks.back().Used);
        Blocks.back().Used += first;
    }
    if (first != length) {
        Blocks.push_back(std::move(next));
    }
    Size += length;
    return count;
}

ContentBuffer::Device::int_type ContentBuffer::Device::overflow(int_type byte) {
    const char character = traits_type::to_char_type(byte);
    if (!traits_type::eq_int_type(byte, traits_type::eof())) {
        xsputn(&character, 1);
    }
    return traits_type::not_eof(byte);
}

// Only for the question where the stream is.
ContentBuffer::Device::pos_type ContentBuffer::Device::seekoff(off_type offset, std::ios_base::seekdir from,
                                                               std::ios_base::openmode /*which*/) {
    return offset == 0 && from == std::ios_base::cur ? pos_type(static_cast<off_type>(Size)) : pos_type(off_type(-1));
}

ContentBuffer::Block ContentBuffer::Device::makeBlock(std::size_t room) {
    auto memory = std::make_unique_for_overwrite<char[]>(room);
    char* const begin = memory.get();
    return {.Array = nullptr, .Memory = std::move(memory), .Begin = begin, .Room = room};
}

std::size_t ContentBuffer::Device::roomFor(std::size_t length) const noexcept {
    return std::max(length, std::clamp(Size, kSmallestBlock, kLargestBlock));
}

void ContentBuffer::Device::copyTo(char* target) const {
    for (const Block& block : Blocks) {
        target = std::copy_n(block.Begin, block.Used, target);
    }
}

} // namespace netrove
