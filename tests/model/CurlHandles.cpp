#include "tests/model/CurlHandles.h"

#include <curl/curl.h>

#include <cstdlib>
#include <dlfcn.h>

namespace {

long live = 0; // one thread of a test's process makes handles

// Runs libcurl's own function. What that calls for itself comes through here again, and does not count.
template <class Result, class... Parameters>
Result counted(int change, const char* name, Parameters... parameters) {
    void* const address = ::dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        std::abort(); // not libcurl
    }
    struct Count {
        long After;
        ~Count() { live = After; }
    } const count{live + change};
    return reinterpret_cast<Result (*)(Parameters...)>(address)(parameters...);
}

} // namespace

namespace model {

long liveCurlHandles() {
    return live;
}

} // namespace model

extern "C" {

__attribute__((visibility("default"))) CURL* curl_easy_init() {
    return counted<CURL*>(1, "curl_easy_init");
}

__attribute__((visibility("default"))) CURLM* curl_multi_init() {
    return counted<CURLM*>(1, "curl_multi_init");
}

__attribute__((visibility("default"))) void curl_easy_cleanup(CURL* handle) {
    counted<void>(handle == nullptr ? 0 : -1, "curl_easy_cleanup", handle);
}

__attribute__((visibility("default"))) CURLMcode curl_multi_cleanup(CURLM* handle) {
    return counted<CURLMcode>(-1, "curl_multi_cleanup", handle);
}
}
