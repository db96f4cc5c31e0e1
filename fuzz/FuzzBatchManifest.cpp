// A manifest: every line is taken, reported or skipped, and the result is the same if it is read in pieces.
#include "cli/batch/BatchManifest.h"
#include "fuzz/FuzzInput.h"

#include <cstdlib>

namespace {

netrove::cli::BatchManifest parsed(std::string_view text, std::size_t piece) {
    netrove::cli::BatchManifestParser parser([](const std::string&) {});
    for (std::size_t i = 0; i < text.size(); i += piece) {
        parser.feed(text.substr(i, piece));
    }
    return parser.finish();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = textOf(data, size);
    const auto whole = parsed(text, text.size() + 1);
    const auto pieces = parsed(text, 3);
    if (whole.Lines.size() != pieces.Lines.size() || whole.Bad.size() != pieces.Bad.size() ||
        whole.MoreBad != pieces.MoreBad) {
        std::abort();
    }
    for (std::size_t i = 0; i < whole.Lines.size(); ++i) {
        if (whole.Lines[i].id() != pieces.Lines[i].id() || whole.Lines[i].Url.empty()) {
            std::abort();
        }
    }
    return 0;
}
