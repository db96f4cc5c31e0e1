#include "tests/docs/PageServer.h"

#include <Poco/Net/HTTPBasicCredentials.h>
#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/NullStream.h>
#include <Poco/StreamCopier.h>

namespace docstest {
namespace {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

bool loggedIn(const HTTPServerRequest& request) {
    if (!request.hasCredentials()) {
        return false;
    }
    const Poco::Net::HTTPBasicCredentials credentials(request);
    return credentials.getUsername() == "alice" && credentials.getPassword() == "wonderland";
}

class Handler : public Poco::Net::HTTPRequestHandler {
    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        Poco::NullOutputStream nowhere;
        const std::streamsize received = Poco::StreamCopier::copyStream(request.stream(), nowhere);
        const std::string& path = request.getURI();
        if (path.ends_with("/missing")) {
            response.setStatusAndReason(HTTPServerResponse::HTTP_NOT_FOUND);
        } else if (path.ends_with("/private") && !loggedIn(request)) {
            response.requireAuthentication("pages");
        }
        const std::string text = request.getMethod() + " with " + std::to_string(received) + " bytes\n";
        response.setContentType("text/plain");
        response.setContentLength64(static_cast<Poco::Int64>(text.size()));
        response.send() << text;
    }
};

struct Factory : Poco::Net::HTTPRequestHandlerFactory {
    Poco::Net::HTTPRequestHandler* createRequestHandler(const HTTPServerRequest&) override {
        return new Handler; // the server deletes it
    }
};

} // namespace

struct PageServer::Content {
    Poco::Net::ServerSocket Socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    Poco::ThreadPool Threads{2, 16};
    Poco::Net::HTTPServer Server{new Factory, Threads, Socket, new Poco::Net::HTTPServerParams};
};

PageServer::PageServer() : Inside(std::make_unique<Content>()) {
    Inside->Server.start();
}

PageServer::~PageServer() {
    Inside->Server.stopAll(true);
    Inside->Threads.joinAll();
}

std::string PageServer::authority() const {
    return "127.0.0.1:" + std::to_string(Inside->Socket.address().port());
}

} // namespace docstest
