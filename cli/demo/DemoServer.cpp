#include "cli/demo/DemoServer.h"

#include <Poco/Event.h>
#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/SHA2Engine.h>

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
            return file(response, DemoServer::kFileSize);
        }
        if (path == "/half") {
            return file(response, DemoServer::kFileSize / 2);
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
        response.setContentLength64(static_cast<Poco::Int64>(DemoServer::kFileSize));
        std::ostream& out = response.send();
        writePattern(out, 0, size);
        out.flush();
        if (size < DemoServer::kFileSize) {
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

} // namespace

struct DemoServer::Content {
    Poco::Event Released{Poco::Event::EVENT_MANUALRESET};
    Poco::Net::ServerSocket Socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    Poco::ThreadPool Threads{2, 16};
    Poco::Net::HTTPServer Server{new Factory(Released), Threads, Socket, parameters()};
};

DemoServer::DemoServer() : Inside(std::make_unique<Content>()) {
    Inside->Server.start();
}

DemoServer::~DemoServer() {
    release();
    Inside->Server.stopAll(true);
    Inside->Threads.joinAll();
}

std::string DemoServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(Inside->Socket.address().port()) + path;
}

void DemoServer::release() {
    Inside->Released.set();
}

char patternByte(std::size_t position) {
    return static_cast<char>((position * 31 + (position >> 8) * 7 + (position >> 16)) & 0xFF);
}

std::string digestOf(const std::string& bytes) {
    Poco::SHA2Engine engine(Poco::SHA2Engine::SHA_256);
    engine.update(bytes);
    return Poco::DigestEngine::digestToHex(engine.digest());
}

} // namespace netrove::cli
