// A manifest: every line is taken, reported or skipped, and the result is the same if it is read in pieces, and if it
// is read again.
#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/manifest/LineReader.h"
#include "fuzz/FuzzInput.h"
#include "vantik/Failure.h"

#include <algorithm>
#include <span>
#include <string>

namespace {

using namespace netrove::cli;

// Line by line: its number, and what it is or that it is bad.
std::string readOnce(std::string_view text, std::size_t piece) {
    LineReader reader([&](std::span<char> room) {
        const std::size_t count = text.copy(room.data(), std::min(piece, room.size()));
        text.remove_prefix(count);
        return count;
    });
    ManifestLines lines([](const std::string&) {});
    std::string all;
    while (const auto line = reader.next()) {
        all += std::to_string(line->Number);
        try {
            const BatchLine taken = lines.once(line->Number, line->Text);
            require(!taken.Url.empty(), "a line has a URL");
            all += " " + taken.id() + "\n";
        } catch (const vantik::Failure&) {
            all += " bad\n";
        }
    }
    return all;
}

std::string readTwice(std::string_view text) {
    std::string all;
    ManifestLines lines([](const std::string&) {});
    for (const bool again : {false, true}) {
        LineReader reader([rest = text](std::span<char> room) mutable {
            const std::size_t count = rest.copy(room.data(), room.size());
            rest.remove_prefix(count);
            return count;
        });
        all.clear();
        while (const auto line = reader.next()) {
            all += std::to_string(line->Number);
            try {
                again ? void(all += " " + lines.again(line->Number, line->Text).id() + "\n")
                      : lines.check(line->Number, line->Text);
            } catch (const vantik::Failure&) {
                return ""; // a list with a bad line is not read again
            }
        }
    }
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = textOf(data, size);
    const std::string whole = readOnce(text, text.size() + 1);
    require(whole == readOnce(text, 3), "pieces make no difference");
    if (whole.find(" bad\n") == whole.npos) {
        require(whole == readTwice(text), "a line is the same when it is read again");
    }
    return 0;
}
