#include "cli/demo/DemoCalls.h"

#include "cli/demo/DemoContent.h"
#include "late/LateLibrary.h"

#include <Poco/Event.h>
#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/StreamSocket.h>

#include <algorithm>
#include <iostream>
#include <sstream>

namespace netrove::cli {

namespace {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

constexpr long kLongestWaitMs = 30'000; // of a handler, so that nothing can make the tour hang forever
constexpr std::size_t kBlock = 16384;

void writePattern(std::ostream& out, std::size_t from, std::size_t to) {
    std::string block;
    while (from < to && out) {
        const std::size_t end = std::min(to, from + kBlock);
        block.clear();
        for (std::size_t i = from; i < end; ++i) {
            block += patternByte(i);
        }
        out.write(block.data(), static_cast<std::streamsize>(block.size()));
        from = end;
    }
}

class Handler : public Poco::Net::HTTPRequestHandler {
public:
    explicit Handler(Poco::Event& released) : Released(released) {}

    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        const std::string& path = request.getURI();
        response.setContentType("text/plain");
        if (path == "/hello") {
            return answer(response, "Hello from the loopback interface.\n");
        }
        if (path == "/upload") {
            return upload(request, response);
        }
        if (path == "/file") {
            return file(response, kDemoFileSize);
        }
        if (path == "/half") {
            return file(response, kDemoFileSize / 2);
        }
        if (path == "/silent") {
            Released.tryWait(kLongestWaitMs);
            return answer(response, "at last\n");
        }
        response.setStatusAndReason(HTTPServerResponse::HTTP_NOT_FOUND);
        answer(response, "There is nothing here.\n");
    }

private:
    static void answer(HTTPServerResponse& response, const std::string& text) {
        response.setContentLength64(static_cast<Poco::Int64>(text.size()));
        response.send() << text;
    }

    static void upload(HTTPServerRequest& request, HTTPServerResponse& response) {
        std::ostringstream received;
        received << request.stream().rdbuf();
        const std::string bytes = received.str();
        answer(response, std::to_string(bytes.size()) + " " + digestOf(bytes));
    }

    void file(HTTPServerResponse& response, std::size_t size) {
        response.setContentType("application/octet-stream");
        response.setContentLength64(static_cast<Poco::Int64>(kDemoFileSize));
        std::ostream& out = response.send();
        writePattern(out, 0, size);
        out.flush();
        if (size < kDemoFileSize) {
            Released.tryWait(kLongestWaitMs);
        }
    }

    Poco::Event& Released;
};

class Factory : public Poco::Net::HTTPRequestHandlerFactory {
public:
    explicit Factory(Poco::Event& released) : Released(released) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(const HTTPServerRequest&) override {
        return new Handler(Released); // the server deletes it
    }

private:
    Poco::Event& Released;
};

Poco::Net::HTTPServerParams::Ptr parameters() {
    Poco::Net::HTTPServerParams::Ptr result = new Poco::Net::HTTPServerParams;
    result->setMaxThreads(8);
    result->setKeepAlive(true);
    return result;
}

class Server : public DemoPeer {
public:
    Server() { Listener.start(); }
    ~Server() override {
        release();
        Listener.stopAll(true);
        Threads.joinAll();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    std::uint16_t port() const override { return Socket.address().port(); }
    void release() override { Released.set(); }

private:
    Poco::Event Released{Poco::Event::EVENT_MANUALRESET};
    Poco::Net::ServerSocket Socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    Poco::ThreadPool Threads{2, 16};
    Poco::Net::HTTPServer Listener{new Factory(Released), Threads, Socket, parameters()};
};

class ClosedPort : public DemoPeer {
public:
    ClosedPort() { Socket.bind(Poco::Net::SocketAddress("127.0.0.1", 0)); }
    std::uint16_t port() const override { return Socket.address().port(); }

private:
    struct BoundSocket : Poco::Net::StreamSocket {
        void bind(const Poco::Net::SocketAddress& address) { impl()->bind(address); }
    };
    BoundSocket Socket;
};

std::unique_ptr<DemoPeer> server() {
    return std::make_unique<Server>();
}

std::unique_ptr<DemoPeer> closedPort() {
    return std::make_unique<ClosedPort>();
}

} // namespace

NETROVE_LATE_CALLS(DemoCalls, server, closedPort)

} // namespace netrove::cli
