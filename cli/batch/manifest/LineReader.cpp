#include "cli/batch/manifest/LineReader.h"

#include <algorithm>
#include <cstring>

namespace netrove::cli {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 16; // at least so much can be read at a time
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

} // namespace

std::optional<LineReader::Line> LineReader::next() {
    while (auto text = whole()) {
        if (++Number == 1 && text->starts_with(kByteOrderMark)) {
            text->remove_prefix(kByteOrderMark.size());
        }
        if (text->ends_with('\r')) {
            text->remove_suffix(1);
        }
        text->remove_prefix(std::min(text->find_first_not_of(kBlanks), text->size()));
        if (!text->empty() && text->front() != '#') {
            text->remove_suffix(text->size() - 1 - text->find_last_not_of(kBlanks));
            return Line{Number, *text};
        }
    }
    return std::nullopt;
}

std::optional<std::string_view> LineReader::whole() {
    for (;;) {
        const auto* const found =
            Checked == End ? nullptr
                           : static_cast<const char*>(std::memchr(Buffer.data() + Checked, '\n', End - Checked));
        if (found != nullptr || (Finished && Begin != End)) {
            const std::size_t end = found == nullptr ? End : static_cast<std::size_t>(found - Buffer.data());
            const std::string_view text(Buffer.data() + Begin, end - Begin);
            Begin = Checked = found == nullptr ? End : end + 1;
            return text;
        }
        if (Finished) {
            return std::nullopt;
        }
        std::copy(Buffer.data() + Begin, Buffer.data() + End, Buffer.data());
        End -= Begin;
        Begin = 0;
        Checked = End;
        if (Buffer.size() - End < kPiece) {
            Buffer.resize(std::max(Buffer.size() * 2, End + kPiece));
        }
        const std::size_t count = ReadMore(std::span(Buffer).subspan(End));
        End += count;
        Finished = count == 0;
    }
}

} // namespace netrove::cli
