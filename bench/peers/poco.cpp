// Poco's HTTPClientSession.
#include "bench/peers/Peer.h"

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>

#include <array>
#include <fstream>

namespace peers {
namespace {

using Poco::Net::HTTPRequest;
using Poco::Net::HTTPResponse;

class PocoPeer : public Peer {
public:
    void consumer(const Request& request, bench::Tally& received) override {
        std::istream& content = get(request);
        while (content) {
            content.read(Piece.data(), Piece.size());
            received.take(Piece.data(), static_cast<std::size_t>(content.gcount()));
        }
    }
    void memory(const Request& request, bench::Tally& received) override {
        std::string content;
        Poco::StreamCopier::copyToString64(get(request), content, Piece.size());
        received.take(content.data(), content.size());
    }
    void file(const Request& request) override {
        std::ofstream output(request.File, std::ios::binary | std::ios::trunc);
        Poco::StreamCopier::copyStream64(get(request), output, Piece.size());
        output.close();
        require(output.good(), "writing has failed");
    }
    std::string upload(const Request& request, Source& source) override {
        HTTPRequest head = begin(request, HTTPRequest::HTTP_PUT);
        head.setContentLength64(static_cast<Poco::Int64>(request.Size));
        std::ostream& content = Session.sendRequest(head);
        for (std::string_view piece = source.next(); !piece.empty(); piece = source.next()) {
            content.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        }
        std::string answer;
        Poco::StreamCopier::copyToString(receive(), answer);
        return answer;
    }

private:
    HTTPRequest begin(const Request& request, const std::string& method) {
        const UrlParts url = partsOf(request.Url);
        if (!Session.connected()) {
            Session.setHost(url.Host);
            Session.setPort(static_cast<Poco::UInt16>(std::stoi(url.Port)));
            Session.setKeepAlive(true);
        }
        return {method, url.Target, HTTPRequest::HTTP_1_1};
    }
    std::istream& get(const Request& request) {
        HTTPRequest head = begin(request, HTTPRequest::HTTP_GET);
        Session.sendRequest(head);
        return receive();
    }
    std::istream& receive() {
        HTTPResponse response;
        std::istream& content = Session.receiveResponse(response);
        require(response.getStatus() == HTTPResponse::HTTP_OK, "status " + std::to_string(response.getStatus()));
        return content;
    }

    Poco::Net::HTTPClientSession Session;
    std::array<char, std::size_t{64} << 10> Piece{};
};

} // namespace

std::unique_ptr<Peer> makePeer() {
    return std::make_unique<PocoPeer>();
}

} // namespace peers
