// Boost.Beast on a blocking stream.
#include "bench/peers/Peer.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <array>
#include <optional>

namespace peers {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

class BeastPeer : public Peer {
public:
    BeastPeer() { Buffer.reserve(Piece.size()); } // as much as one read brings; it begins with 512 bytes otherwise

    void consumer(const Request& request, bench::Tally& received) override {
        http::response_parser<http::buffer_body> parser;
        begin(request, parser);
        while (!parser.is_done()) {
            parser.get().body() = {Piece.data(), Piece.size(), true};
            beast::error_code error;
            http::read(*Stream, Buffer, parser, error);
            require(!error || error == http::error::need_buffer, error.message());
            received.take(Piece.data(), Piece.size() - parser.get().body().size);
        }
    }
    void memory(const Request& request, bench::Tally& received) override {
        http::response_parser<http::string_body> parser;
        begin(request, parser);
        http::read(*Stream, Buffer, parser);
        received.take(parser.get().body().data(), parser.get().body().size());
    }
    void file(const Request& request) override {
        http::response_parser<http::file_body> parser;
        beast::error_code error;
        parser.get().body().open(request.File.c_str(), beast::file_mode::write, error);
        require(!error, error.message());
        begin(request, parser);
        http::read(*Stream, Buffer, parser);
    }
    std::string upload(const Request& request, Source& source) override {
        http::request<http::buffer_body> head{http::verb::put, connect(request).Target, 11};
        head.set(http::field::host, partsOf(request.Url).Host);
        head.content_length(request.Size);
        head.body().more = true;
        head.body().data = nullptr;
        http::request_serializer<http::buffer_body> serializer(head);
        http::write_header(*Stream, serializer);
        do {
            const std::string_view piece = source.next();
            head.body() = {const_cast<char*>(piece.data()), piece.size(), !piece.empty()};
            beast::error_code error;
            http::write(*Stream, serializer, error);
            require(!error || error == http::error::need_buffer, error.message());
        } while (!serializer.is_done());
        http::response<http::string_body> response;
        http::read(*Stream, Buffer, response);
        require(response.result() == http::status::ok, "status " + std::to_string(response.result_int()));
        return response.body();
    }

private:
    UrlParts connect(const Request& request) {
        UrlParts url = partsOf(request.Url);
        if (!Stream) {
            asio::ip::tcp::resolver resolver(Context);
            Stream.emplace(Context);
            asio::connect(*Stream, resolver.resolve(url.Host, url.Port));
        }
        return url;
    }
    // Sends a GET and reads the head of its answer.
    template <class Parser>
    void begin(const Request& request, Parser& parser) {
        http::request<http::empty_body> head{http::verb::get, connect(request).Target, 11};
        head.set(http::field::host, partsOf(request.Url).Host);
        http::write(*Stream, head);
        parser.body_limit(boost::none);
        http::read_header(*Stream, Buffer, parser);
        require(parser.get().result() == http::status::ok, "status " + std::to_string(parser.get().result_int()));
    }

    asio::io_context Context;
    std::optional<asio::ip::tcp::socket> Stream;
    beast::flat_buffer Buffer;
    std::array<char, std::size_t{64} << 10> Piece{};
};

} // namespace

std::unique_ptr<Peer> makePeer() {
    return std::make_unique<BeastPeer>();
}

} // namespace peers
