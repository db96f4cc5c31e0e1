// libcurl with nothing around it, in three programs: a multi loop as the bare minimum of what the library does (with a
// trace callback and libcurl's own buffer sizes), the easy interface, and the latter with large buffers.
#include "bench/peers/Peer.h"

#include <curl/curl.h>

#include <cstring>
#include <fstream>
#include <functional>

namespace peers {
namespace {

// Set by the build for each of the programs.
constexpr bool kMulti = PEER_CURL_MULTI;
constexpr long kBuffer = PEER_CURL_BUFFER; // 0: libcurl's own

using Sink = std::function<void(const char*, std::size_t)>;

std::size_t toSink(char* data, std::size_t size, std::size_t count, void* sink) {
    (*static_cast<const Sink*>(sink))(data, size* count);
    return size * count;
}

std::size_t fromSource(char* room, std::size_t size, std::size_t count, void* source) {
    const std::string_view piece = static_cast<Source*>(source)->next(size * count);
    std::memcpy(room, piece.data(), piece.size());
    return piece.size();
}

int trace(CURL*, curl_infotype, char*, std::size_t, void*) {
    return 0;
}

class CurlPeer : public Peer {
public:
    CurlPeer() : Multi(curl_multi_init()), Easy(curl_easy_init()) {
        require(Multi != nullptr && Easy != nullptr, "no handles");
    }

    void consumer(const Request& request, bench::Tally& received) override {
        get(request, [&](const char* data, std::size_t size) { received.take(data, size); });
    }
    // As a program does that does not ask for the length beforehand.
    void memory(const Request& request, bench::Tally& received) override {
        std::string content;
        get(request, [&](const char* data, std::size_t size) { content.append(data, size); });
        received.take(content.data(), content.size());
    }
    void file(const Request& request) override {
        std::ofstream output(request.File, std::ios::binary | std::ios::trunc);
        get(request,
            [&](const char* data, std::size_t size) { output.write(data, static_cast<std::streamsize>(size)); });
        output.close();
        require(output.good(), "writing has failed");
    }
    std::string upload(const Request& request, Source& source) override {
        std::string answer;
        prepare(request);
        curl_easy_setopt(Easy.get(), CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(Easy.get(), CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request.Size));
        curl_easy_setopt(Easy.get(), CURLOPT_READFUNCTION, &fromSource);
        curl_easy_setopt(Easy.get(), CURLOPT_READDATA, &source);
        run([&](const char* data, std::size_t size) { answer.append(data, size); });
        return answer;
    }

private:
    void prepare(const Request& request) {
        curl_easy_reset(Easy.get());
        curl_easy_setopt(Easy.get(), CURLOPT_URL, request.Url.c_str());
        curl_easy_setopt(Easy.get(), CURLOPT_PROXY, "");
        curl_easy_setopt(Easy.get(), CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(Easy.get(), CURLOPT_SSL_VERIFYPEER, 0L);
        if (kMulti) {
            curl_easy_setopt(Easy.get(), CURLOPT_VERBOSE, 1L);
            curl_easy_setopt(Easy.get(), CURLOPT_DEBUGFUNCTION, &trace);
        }
        if (kBuffer != 0) {
            curl_easy_setopt(Easy.get(), CURLOPT_BUFFERSIZE, kBuffer);
            curl_easy_setopt(Easy.get(), CURLOPT_UPLOAD_BUFFERSIZE, kBuffer);
        }
        Fields.reset();
        for (unsigned index = 0; index < request.Fields; ++index) {
            curl_slist* grown =
                curl_slist_append(Fields.get(), (fieldName(index) + ": " + std::string(kFieldValue)).c_str());
            require(grown != nullptr, "no memory");
            static_cast<void>(Fields.release());
            Fields.reset(grown);
        }
        curl_easy_setopt(Easy.get(), CURLOPT_HTTPHEADER, Fields.get());
    }

    void get(const Request& request, const Sink& sink) {
        prepare(request);
        run(sink);
    }

    void run(const Sink& sink) {
        curl_easy_setopt(Easy.get(), CURLOPT_WRITEFUNCTION, &toSink);
        curl_easy_setopt(Easy.get(), CURLOPT_WRITEDATA, const_cast<void*>(static_cast<const void*>(&sink)));
        const CURLcode result = kMulti ? performMulti() : curl_easy_perform(Easy.get());
        require(result == CURLE_OK, curl_easy_strerror(result));
        long status = 0;
        curl_easy_getinfo(Easy.get(), CURLINFO_RESPONSE_CODE, &status);
        require(status == 200, "status " + std::to_string(status));
    }

    CURLcode performMulti() {
        const auto check = [](CURLMcode code) { require(code == CURLM_OK, curl_multi_strerror(code)); };
        check(curl_multi_add_handle(Multi.get(), Easy.get()));
        int running = 1;
        check(curl_multi_perform(Multi.get(), &running));
        while (running != 0) {
            check(curl_multi_wait(Multi.get(), nullptr, 0, 1000, nullptr));
            check(curl_multi_perform(Multi.get(), &running));
        }
        int remaining = 0;
        const CURLMsg* message = curl_multi_info_read(Multi.get(), &remaining);
        require(message != nullptr && message->msg == CURLMSG_DONE, "no result");
        const CURLcode result = message->data.result;
        check(curl_multi_remove_handle(Multi.get(), Easy.get()));
        return result;
    }

    struct Free {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };
    struct FreeMulti {
        void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
    };
    std::unique_ptr<CURLM, FreeMulti> Multi;
    std::unique_ptr<curl_slist, Free> Fields;
    std::unique_ptr<CURL, Free> Easy;
};

} // namespace

std::unique_ptr<Peer> makePeer() {
    static const CURLcode started = curl_global_init(CURL_GLOBAL_DEFAULT);
    require(started == CURLE_OK, curl_easy_strerror(started));
    return std::make_unique<CurlPeer>();
}

} // namespace peers
