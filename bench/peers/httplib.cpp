// cpp-httplib.
#include "bench/peers/Peer.h"

#include <httplib.h>

#include <fstream>
#include <optional>

namespace peers {
namespace {

class HttplibPeer : public Peer {
public:
    void consumer(const Request& request, bench::Tally& received) override {
        get(request, [&](const char* data, std::size_t size) {
            received.take(data, size);
            return true;
        });
    }
    void memory(const Request& request, bench::Tally& received) override {
        const httplib::Result result = connected(request).Get(partsOf(request.Url).Target);
        check(result);
        received.take(result->body.data(), result->body.size());
    }
    void file(const Request& request) override {
        std::ofstream output(request.File, std::ios::binary | std::ios::trunc);
        get(request, [&](const char* data, std::size_t size) {
            output.write(data, static_cast<std::streamsize>(size));
            return true;
        });
        output.close();
        require(output.good(), "writing has failed");
    }
    std::string upload(const Request& request, Source& source) override {
        const auto provide = [&](std::size_t, std::size_t room, httplib::DataSink& sink) {
            const std::string_view piece = source.next(room);
            return sink.write(piece.data(), piece.size());
        };
        const httplib::Result result =
            connected(request).Put(partsOf(request.Url).Target, request.Size, provide, "application/octet-stream");
        check(result);
        return result->body;
    }

private:
    httplib::Client& connected(const Request& request) {
        if (!Client) {
            const UrlParts url = partsOf(request.Url);
            Client.emplace(url.Host, std::stoi(url.Port));
            Client->set_keep_alive(true);
        }
        return *Client;
    }
    static void check(const httplib::Result& result) {
        require(static_cast<bool>(result), httplib::to_string(result.error()));
        require(result->status == 200, "status " + std::to_string(result->status));
    }
    void get(const Request& request, const httplib::ContentReceiver& receiver) {
        check(connected(request).Get(partsOf(request.Url).Target, receiver));
    }

    std::optional<httplib::Client> Client;
};

} // namespace

std::unique_ptr<Peer> makePeer() {
    return std::make_unique<HttplibPeer>();
}

} // namespace peers
