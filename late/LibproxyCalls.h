// What is asked of libproxy.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace netrove {

struct LibproxyCalls {
    static constexpr const char* kLibrary = "libnetrove_libproxy.so";

    // A reader of the settings; null if they cannot be read. It cannot be freed: see who asks for it.
    void* (*newReader)();
    // The proxies for a URL, as libproxy writes them; nothing if it has no answer.
    std::optional<std::vector<std::string>> (*proxies)(void* reader, const std::string& url);
};

} // namespace netrove
