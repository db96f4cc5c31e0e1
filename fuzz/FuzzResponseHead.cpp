// The response head: the input is cut after each LF, as libcurl hands lines over. No stored line may hold its line end.
#include "fuzz/FuzzInput.h"
#include "http/HttpSyntax.h"
#include "http/ResponseHead.h"

#include <cstdlib>
#include <string>

using namespace netrove;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ResponseHead head;
    std::string_view rest = textOf(data, size);
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const std::string line(rest.substr(0, end == std::string_view::npos ? rest.size() : end + 1));
        rest.remove_prefix(line.size());
        try {
            if (line == "\r\n") {
                if (head.end("GET") == ResponseHead::End::Passing) {
                    head.dropPassing();
                }
                continue;
            }
            if (head.isTrailer(line)) {
                continue;
            }
            if (head.beginsWithNext()) {
                head.takeStatus(0, line);
            }
            head.keep(line);
        } catch (const MalformedHead&) { // the only thing that it may raise
        }
    }
    for (const std::string& line : head.ResponseHeaderLines) {
        if (line.ends_with("\r\n")) {
            std::abort();
        }
    }
    static_cast<void>(head.reasonPhrase());
    static_cast<void>(head.getResponseField("Location"));
    return 0;
}
