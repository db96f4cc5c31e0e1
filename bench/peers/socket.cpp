// A blocking socket and the least of HTTP that the server of the measurements needs: what the machine can do.
#include "bench/peers/Peer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace peers {
namespace {

std::size_t check(ssize_t result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return static_cast<std::size_t>(result);
}

class Descriptor {
public:
    explicit Descriptor(int number) : Number(number) { check(number, "no descriptor"); }
    ~Descriptor() { ::close(Number); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return Number; }

private:
    int Number;
};

class SocketPeer : public Peer {
public:
    void consumer(const Request& request, bench::Tally& received) override {
        receive(request, [&](std::string_view piece) { received.take(piece.data(), piece.size()); });
    }
    void memory(const Request& request, bench::Tally& received) override {
        const auto [first, length] = get(request);
        const auto content = std::make_unique_for_overwrite<char[]>(length);
        std::copy(first.begin(), first.end(), content.get());
        for (std::size_t size = first.size(); size < length;) {
            size += readInto(content.get() + size, length - size);
        }
        received.take(content.get(), length);
    }
    void file(const Request& request) override {
        const Descriptor output(::open(request.File.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        receive(request, [&](std::string_view piece) {
            while (!piece.empty()) {
                piece.remove_prefix(check(::write(output.get(), piece.data(), piece.size()), "write"));
            }
        });
    }
    std::string upload(const Request& request, Source& source) override {
        sendHead(request, "PUT", "Content-Length: " + std::to_string(request.Size) + "\r\n");
        for (std::string_view piece = source.next(); !piece.empty(); piece = source.next()) {
            send(piece);
        }
        std::string answer;
        finish(readHead(), [&](std::string_view piece) { answer += piece; });
        return answer;
    }

private:
    struct Begun {
        std::string_view First; // content that came with the head
        std::size_t Length;
    };

    void sendHead(const Request& request, const char* method, const std::string& fields) {
        const UrlParts url = partsOf(request.Url);
        if (!Connection) {
            connect(url);
        }
        send(std::string(method) + " " + url.Target + " HTTP/1.1\r\nHost: " + url.Host + ":" + url.Port + "\r\n" +
             fields + "\r\n");
    }
    Begun get(const Request& request) {
        sendHead(request, "GET", {});
        return readHead();
    }

    Begun readHead() {
        std::size_t size = 0;
        while (true) {
            size += readInto(Buffer.data() + size, Buffer.size() - size);
            const std::string_view text(Buffer.data(), size);
            const std::size_t end = text.find("\r\n\r\n");
            if (end == std::string_view::npos) {
                continue;
            }
            constexpr std::string_view kLength = "Content-Length: ";
            const std::size_t length = text.find(kLength);
            require(text.starts_with("HTTP/1.1 200 ") && length < end, "not the answer of this server");
            return {text.substr(end + 4), std::strtoull(text.data() + length + kLength.size(), nullptr, 10)};
        }
    }

    template <class Sink>
    void finish(const Begun& begun, const Sink& sink) {
        sink(begun.First);
        for (std::size_t left = begun.Length - begun.First.size(); left > 0;) {
            const std::size_t count = readInto(Buffer.data(), std::min(left, Buffer.size()));
            sink(std::string_view(Buffer.data(), count));
            left -= count;
        }
    }
    template <class Sink>
    void receive(const Request& request, const Sink& sink) {
        finish(get(request), sink);
    }

    std::size_t readInto(char* room, std::size_t size) {
        const std::size_t count = check(::recv(Connection->get(), room, size, 0), "recv");
        require(count > 0, "the server has closed the connection");
        return count;
    }
    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            bytes.remove_prefix(check(::send(Connection->get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), "send"));
        }
    }
    void connect(const UrlParts& url) {
        addrinfo hints{};
        hints.ai_flags = AI_NUMERICHOST;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        require(::getaddrinfo(url.Host.c_str(), url.Port.c_str(), &hints, &found) == 0, "no address");
        const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> address(found, &::freeaddrinfo);
        Connection = std::make_unique<Descriptor>(::socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, 0));
        check(::connect(Connection->get(), found->ai_addr, found->ai_addrlen), "connect");
    }

    std::unique_ptr<Descriptor> Connection;
    std::array<char, std::size_t{128} << 10> Buffer{};
};

} // namespace

std::unique_ptr<Peer> makePeer() {
    return std::make_unique<SocketPeer>();
}

} // namespace peers
