// netrove::Client, the typed interface above the class, with its defaults: it looks for a proxy, keeps an eye on the
// size of what comes into memory, and gives a file its name when it is whole and on the disk.
#include "bench/peers/Peer.h"

#include <netrove/client.h>
#include <netrove/pool.h>

#include <limits>
#include <optional>
#include <vector>

namespace peers {
namespace {

class ClientPeer : public Peer {
public:
    void consumer(const Request& request, bench::Tally& received) override {
        const auto take = [&](std::span<const std::byte> piece) { received.take(piece.data(), piece.size()); };
        check(Client.stream(request.Url, take, more(request)));
    }
    void memory(const Request& request, bench::Tally& received) override {
        const netrove::Response response = Client.get(request.Url, more(request));
        check(response);
        received.take(response.content.data(), response.content.size());
    }
    void file(const Request& request) override { check(Client.save(request.Url, request.File, more(request))); }
    std::string upload(const Request& request, Source& source) override {
        const auto next = [&] { return std::as_bytes(std::span(source.next())); };
        const auto length = request.Sized ? std::optional(request.Size) : std::nullopt;
        const netrove::Response response = Client.put(request.Url, netrove::generator(next, length));
        check(response);
        return response.text();
    }
    void many(const Request& request, std::uint64_t count, unsigned jobs, bench::Tally& received) override {
        netrove::Pool pool({.jobs = static_cast<int>(jobs), .perHost = static_cast<int>(jobs)});
        for (const netrove::Result& result : pool.getAll(std::vector(count, request.Url), more(request))) {
            check(result.value());
            received.take(result.value().content.data(), result.value().content.size());
        }
    }

private:
    static netrove::Request more(const Request& request) {
        netrove::Request more;
        more.limits.memory = std::numeric_limits<std::int64_t>::max();
        for (unsigned index = 0; index < request.Fields; ++index) {
            more.fields.add(fieldName(index), std::string(kFieldValue));
        }
        return more;
    }
    static void check(const netrove::Response& response) {
        require(response.status == 200, "status " + std::to_string(response.status));
    }

    netrove::Client Client{netrove::Request{.tls = {.verify = false}}}; // as the other peers
};

} // namespace

std::unique_ptr<Peer> makePeer() {
    return std::make_unique<ClientPeer>();
}

} // namespace peers
