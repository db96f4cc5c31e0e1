#include "tests/model/CurlHandles.h"

#include <curl/curl.h>

#include <cstdlib>
#include <dlfcn.h>

namespace {

long live = 0; // one thread of a test's process makes handles

// Runs libcurl's own function. What that calls for itself comes through here again, and does not count.
template <class Function, class... Parameters>
auto counted(Function*, const char* name, int change, Parameters... parameters) {
    void* const address = ::dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        std::abort(); // not libcurl
    }
    struct Count {
        long After;
        ~Count() { live = After; }
    } const count{live + change};
    return reinterpret_cast<Function*>(address)(parameters...);
}

} // namespace

long model::liveCurlHandles() {
    return live;
}

// In front of libcurl's own, so visible.
#pragma GCC visibility push(default)
extern "C" {

CURL* curl_easy_init() {
    return counted(curl_easy_init, __func__, 1);
}

CURLM* curl_multi_init() {
    return counted(curl_multi_init, __func__, 1);
}

void curl_easy_cleanup(CURL* handle) {
    counted(curl_easy_cleanup, __func__, handle == nullptr ? 0 : -1, handle);
}

CURLMcode curl_multi_cleanup(CURLM* handle) {
    return counted(curl_multi_cleanup, __func__, -1, handle);
}
}
#pragma GCC visibility pop
