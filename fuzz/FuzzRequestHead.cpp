// The request head as libcurl traces it. The first byte says where the rest is cut in two, since a head may come in
// parts. The buffer has no byte behind its end that could be read unnoticed.
#include "fuzz/FuzzScope.h"
#include "transfer/CurlCallbacks.h"
#include "transfer/HTTPConnection.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    enterFuzzScope();
    HTTPConnection connection;
    const std::string_view head = textOf(data + 1, size - 1);
    const std::size_t cut = std::min<std::size_t>(data[0], head.size());
    for (const std::string_view part : {head.substr(0, cut), head.substr(cut)}) {
        std::vector<char> bytes(part.begin(), part.end());
        bytes.shrink_to_fit();
        if (debugCallback(nullptr, CURLINFO_HEADER_OUT, bytes.data(), bytes.size(), &connection) != 0) {
            std::abort();
        }
    }
    return 0;
}
