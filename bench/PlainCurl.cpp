#include "bench/PlainCurl.h"

#include <stdexcept>

namespace bench {
namespace {

// As in the module's pumps.
constexpr int kWaitMs = 1000;

void require(bool condition, const std::string& what) {
    if (!condition) {
        throw std::runtime_error("plain libcurl: " + what);
    }
}

void require(CURLMcode code) {
    require(code == CURLM_OK, curl_multi_strerror(code));
}

std::size_t toSink(char* data, std::size_t size, std::size_t count, void* sink) {
    (*static_cast<const PlainCurl::Sink*>(sink))({data, size * count});
    return size * count;
}

std::size_t fromSource(char* data, std::size_t size, std::size_t count, void* source) {
    return (*static_cast<const PlainCurl::Source*>(source))({data, size * count});
}

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

} // namespace

PlainCurl::PlainCurl() : Multi(curl_multi_init()), Easy(curl_easy_init()) {
    require(Multi != nullptr && Easy != nullptr, "no handles");
}

void PlainCurl::prepare(const std::string& url, const Sink& sink) {
    curl_easy_reset(Easy.get());
    curl_easy_setopt(Easy.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(Easy.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(Easy.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(Easy.get(), CURLOPT_WRITEFUNCTION, &toSink);
    curl_easy_setopt(Easy.get(), CURLOPT_WRITEDATA, const_cast<void*>(static_cast<const void*>(&sink)));
}

void PlainCurl::download(const std::string& url, const Sink& sink) {
    prepare(url, sink);
    run();
}

void PlainCurl::upload(const std::string& url, const std::vector<std::string>& fields, const Source& source,
                       const Sink& sink) {
    prepare(url, sink);
    std::unique_ptr<curl_slist, FreeList> list;
    for (const std::string& field : fields) {
        curl_slist* grown = curl_slist_append(list.get(), field.c_str());
        require(grown != nullptr, "no memory");
        static_cast<void>(list.release());
        list.reset(grown);
    }
    curl_easy_setopt(Easy.get(), CURLOPT_HTTPHEADER, list.get());
    curl_easy_setopt(Easy.get(), CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(Easy.get(), CURLOPT_READFUNCTION, &fromSource);
    curl_easy_setopt(Easy.get(), CURLOPT_READDATA, const_cast<void*>(static_cast<const void*>(&source)));
    run();
}

void PlainCurl::run() {
    require(curl_multi_add_handle(Multi.get(), Easy.get()));
    int running = 1;
    require(curl_multi_perform(Multi.get(), &running));
    while (running != 0) {
        require(curl_multi_wait(Multi.get(), nullptr, 0, kWaitMs, nullptr));
        require(curl_multi_perform(Multi.get(), &running));
    }
    int remaining = 0;
    const CURLMsg* message = curl_multi_info_read(Multi.get(), &remaining);
    require(message != nullptr && message->msg == CURLMSG_DONE, "no result");
    const CURLcode result = message->data.result;
    long status = 0;
    curl_easy_getinfo(Easy.get(), CURLINFO_RESPONSE_CODE, &status);
    require(curl_multi_remove_handle(Multi.get(), Easy.get()));
    require(result == CURLE_OK, curl_easy_strerror(result));
    require(status == 200, "status " + std::to_string(status));
}

} // namespace bench
