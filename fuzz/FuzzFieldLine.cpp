// Field lines and status lines: splitting one never reads beyond it and never makes up text.
#include "fuzz/FuzzInput.h"
#include "http/HttpSyntax.h"

#include <cstdlib>

using namespace netrove;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view line = textOf(data, size);
    const auto [name, value] = viewFieldLine(line);
    if (name.size() + value.size() > line.size() || !line.starts_with(name) || !line.ends_with(value)) {
        std::abort();
    }
    if (!line.ends_with(reasonPhraseOf(line))) {
        std::abort();
    }
    return 0;
}
