// What the module is compared with: a bare libcurl multi loop that does the same work with nothing around it.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace bench {

// One easy handle on one multi handle, so that connections are kept from one request to the next.
class PlainCurl {
public:
    using Sink = std::function<void(std::span<const char>)>;
    using Source = std::function<std::size_t(std::span<char>)>; // 0: the end

    PlainCurl();

    // Each raises std::runtime_error if the exchange does not end with status 200.
    void download(const std::string& url, const Sink& sink);
    // An empty list of fields makes libcurl upload in chunks.
    void upload(const std::string& url, const std::vector<std::string>& fields, const Source& source, const Sink& sink);

private:
    void prepare(const std::string& url, const Sink& sink);
    void run();

    struct GlobalState {
        GlobalState() { curl_global_init(CURL_GLOBAL_DEFAULT); }
        ~GlobalState() { curl_global_cleanup(); }
    };
    struct EasyCleanup {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };
    struct MultiCleanup {
        void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
    };
    GlobalState Library;
    std::unique_ptr<CURLM, MultiCleanup> Multi;
    std::unique_ptr<CURL, EasyCleanup> Easy;
};

} // namespace bench
