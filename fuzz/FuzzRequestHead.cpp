// The request head as libcurl traces it. The first byte says where the rest is cut in two, since a head may come in
// parts. The buffer has no byte after its end that could be read unnoticed.
#include "fuzz/FuzzInput.h"
#include "http/HttpSyntax.h"
#include "http/RequestHead.h"

#include <algorithm>
#include <vector>

using namespace netrove;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    RequestHead head;
    const std::string_view text = textOf(data + 1, size - 1);
    const std::size_t cut = std::min<std::size_t>(data[0], text.size());
    for (const std::string_view part : {text.substr(0, cut), text.substr(cut)}) {
        std::vector<char> bytes(part.begin(), part.end());
        bytes.shrink_to_fit();
        try {
            head.take(bytes.data(), bytes.size());
        } catch (const MalformedHead&) { // the only thing that it may raise
        }
    }
    return 0;
}
