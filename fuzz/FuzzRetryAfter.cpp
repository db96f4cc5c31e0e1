// The value of Retry-After: no date that a server makes up yields a time before now, or something that is not a number.
#include "client/text/HttpDate.h"
#include "fuzz/FuzzInput.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto seconds = netrove::parseRetryAfter(textOf(data, size), std::chrono::system_clock::now());
    if (seconds && !(*seconds >= 0 && *seconds <= 1e12)) {
        std::abort();
    }
    return 0;
}
