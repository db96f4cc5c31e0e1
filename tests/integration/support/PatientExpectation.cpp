// libcurl waits one second for a server's word before it sends content, and no option of the library changes that: on a
// machine that stops for a second content would go out twice. Stands in front of libcurl in the tests that contain it.
#include <curl/curl.h>

#include <dlfcn.h>

extern "C" __attribute__((visibility("default"))) CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy) {
    constexpr long patience = 60'000; // ms
    curl_easy_setopt(easy, CURLOPT_EXPECT_100_TIMEOUT_MS, patience);
    using Add = CURLMcode (*)(CURLM*, CURL*);
    static const auto original = reinterpret_cast<Add>(::dlsym(RTLD_NEXT, "curl_multi_add_handle"));
    return original(multi, easy);
}
