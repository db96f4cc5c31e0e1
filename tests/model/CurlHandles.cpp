#include "tests/model/CurlHandles.h"

#include <curl/curl.h>

#include <cstdlib>
#include <dlfcn.h>

namespace {

long live = 0; // one thread of a test's process makes handles

template <class Function>
Function* original(const char* name) {
    void* address = ::dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        std::abort(); // not libcurl
    }
    return reinterpret_cast<Function*>(address);
}

// Runs libcurl's own function. What that calls for itself comes through here again, and does not count.
template <class Action>
auto counted(int change, Action&& action) {
    const long before = live;
    const auto result = action();
    live = before + change;
    return result;
}

} // namespace

namespace model {

long liveCurlHandles() {
    return live;
}

} // namespace model

extern "C" {

__attribute__((visibility("default"))) CURL* curl_easy_init() {
    static auto* const init = original<CURL*()>("curl_easy_init");
    return counted(1, init);
}

__attribute__((visibility("default"))) CURLM* curl_multi_init() {
    static auto* const init = original<CURLM*()>("curl_multi_init");
    return counted(1, init);
}

__attribute__((visibility("default"))) void curl_easy_cleanup(CURL* handle) {
    static auto* const cleanup = original<void(CURL*)>("curl_easy_cleanup");
    counted(handle == nullptr ? 0 : -1, [&] {
        cleanup(handle);
        return true;
    });
}

__attribute__((visibility("default"))) CURLMcode curl_multi_cleanup(CURLM* handle) {
    static auto* const cleanup = original<CURLMcode(CURLM*)>("curl_multi_cleanup");
    return counted(-1, [&] { return cleanup(handle); });
}
}
