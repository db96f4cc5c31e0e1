// The response head: the input is cut behind each LF, as libcurl hands lines over, and played into the header callback.
// Nothing may be raised through it, and no stored line may hold its line end.
#include "fuzz/FuzzScope.h"
#include "transfer/CurlCallbacks.h"
#include "transfer/HTTPConnection.h"

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    enterFuzzScope();
    HTTPConnection connection;
    std::string_view rest = textOf(data, size);
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        std::string line(rest.substr(0, end == std::string_view::npos ? rest.size() : end + 1));
        rest.remove_prefix(line.size());
        if (headerCallback(line.data(), 1, line.size(), &connection) != line.size()) {
            std::abort();
        }
    }
    for (const std::string& line : connection.ReceivedHead.ResponseHeaderLines) {
        if (line.ends_with("\r\n")) {
            std::abort();
        }
    }
    static_cast<void>(connection.ReceivedHead.reasonPhrase());
    static_cast<void>(connection.ReceivedHead.getResponseField("Location"));
    return 0;
}
