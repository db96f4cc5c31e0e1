// The class of this project as a program uses it: loaded into an embedded host, with the proxies of the surroundings.
#include "bench/peers/Peer.h"

#include <vantik/Host.h>
#include <vantik/HostClass.h>
#include <vantik/Http.h>

#include <vector>

namespace peers {
namespace {

class NetrovePeer : public Peer {
public:
    NetrovePeer() {
        Program.load("netrove");
        Connection = Program.create(vantik::kHttpConnectionClass, {true});
    }

    void consumer(const Request& request, bench::Tally& received) override {
        if (!Consumer) {
            vantik::ContentConsumer taker;
            taker.write = [this](std::span<const std::byte> piece) {
                Received->take(piece.data(), piece.size());
                return piece.size();
            };
            Consumer = vantik::makeConsumer(Program, std::move(taker));
            Connection.set("Consumer", *Consumer);
        }
        Received = &received;
        open(request);
        Connection.call("copyContentToByteArray", {false});
        close();
    }
    void memory(const Request& request, bench::Tally& received) override {
        open(request);
        const vantik::Array content = Connection.call("copyContentToByteArray", {true});
        close();
        received.take(content.bytes().data(), content.bytes().size());
    }
    void file(const Request& request) override {
        open(request);
        Connection.call("copyContentToFile", {request.File});
        close();
    }
    std::string upload(const Request& request, Source& source) override {
        // Whole pieces are one array, whose copies share it: the provider itself costs next to nothing.
        const vantik::Array whole = vantik::Array::bytes(source.next());
        vantik::ContentProvider provider;
        provider.rewind = [&] { source.rewind(); };
        provider.read = [&](std::uint64_t) {
            const std::string_view piece = source.next();
            return piece.size() == whole.size() ? whole : vantik::Array::bytes(piece);
        };
        Connection.set("Provider", vantik::makeProvider(Program, std::move(provider)));
        Connection.set("ProviderBufferSize", static_cast<std::uint64_t>(request.Piece));
        open(request);
        Connection.set("RequestMethod", "PUT");
        Connection.call("setRequestProperty", {"Content-Length", std::to_string(request.Size)});
        const vantik::Array answer = Connection.call("copyContentToByteArray", {true});
        close();
        return std::string(answer.byteText());
    }

private:
    void open(const Request& request) {
        Connection.set("URL", request.Url);
        Connection.call("openConnection");
        if (request.Fields != 0) {
            std::vector<vantik::HttpField> fields;
            for (unsigned index = 0; index < request.Fields; ++index) {
                fields.push_back({fieldName(index), std::string(kFieldValue)});
            }
            Connection.call("setFields", {vantik::httpFields(fields)});
        }
    }
    void close() {
        const double status = Connection.get("ResponseCode").number();
        Connection.call("closeConnection");
        require(status == 200, "status " + std::to_string(static_cast<int>(status)));
    }

    vantik::Host Program;
    vantik::Object Connection;
    std::optional<vantik::Object> Consumer;
    bench::Tally* Received = nullptr;
};

} // namespace

std::unique_ptr<Peer> makePeer() {
    return std::make_unique<NetrovePeer>();
}

} // namespace peers
