#include "tests/examples/ExampleSite.h"

#include <Poco/Net/HTTPBasicCredentials.h>
#include <Poco/Net/HTTPDigestCredentials.h>
#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/StreamCopier.h>

#include <algorithm>
#include <atomic>
#include <memory>

namespace testsupport {
namespace {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

// What there is to fetch, whatever the number of requests before.
struct Page {
    const char* Path;
    const char* Type;
    const char* Content;
};
constexpr Page kPages[] = {
    {"/", "text/plain", "Hello from example.org\n"},
    {"/hello", "text/plain", "Hello from example.org\n"},
    {"/items/1", "application/json", R"({"name":"lamp","price":12})"},
    {"/latin1", "text/plain;charset=iso-8859-1", "Gr\xFC\xDF Gott"},
    {"/bad-utf8", "text/plain", "Gr\xFC\xDF Gott"},
};

std::string logLines() {
    std::string lines;
    for (int line = 1; line <= 40; ++line) {
        lines += "line " + std::to_string(line) + "\n";
    }
    return lines;
}

std::string data() {
    std::string content(100'000, '\0');
    std::generate(content.begin(), content.end(), [at = 0]() mutable { return static_cast<char>('a' + at++ % 26); });
    return content;
}

bool basicLogin(const HTTPServerRequest& request) {
    if (!request.hasCredentials()) {
        return false;
    }
    const Poco::Net::HTTPBasicCredentials credentials(request);
    return credentials.getUsername() == "alice" && credentials.getPassword() == "wonderland";
}

class Handler : public Poco::Net::HTTPRequestHandler {
public:
    Handler(std::atomic<int>& asked, Poco::Event& ended) : Asked(asked), Ended(ended) {}

    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        std::string content;
        Poco::StreamCopier::copyToString(request.stream(), content);
        const std::string& path = request.getURI();
        response.set("ETag", "\"1\"");
        response.setContentType("text/plain");
        if (path.starts_with("http://")) {
            byProxy(request, response);
        } else if (const auto* page = std::ranges::find(kPages, path, &Page::Path); page != std::end(kPages)) {
            response.setContentType(page->Type);
            answer(response, request.getMethod() == "GET" ? page->Content : "");
        } else if (path == "/old") {
            response.redirect("/hello");
        } else if (path == "/data.bin") {
            answer(response, data());
        } else if (path == "/log") {
            response.setChunkedTransferEncoding(true);
            response.send() << logLines();
        } else if (path.starts_with("/pages/")) {
            answer(response, "page " + path.substr(7) + "\n");
        } else if (path == "/items") {
            response.set("Location", "/items/2");
            answer(response, content, HTTPServerResponse::HTTP_CREATED);
        } else if (path == "/api/private") {
            guarded(response, basicLogin(request), "Basic realm=\"pages\"");
        } else if (path == "/api/token") {
            guarded(response, request.get("Authorization", "") == "Bearer t0ken", "Bearer");
        } else if (path == "/digest") {
            const bool in = request.has("Authorization") &&
                            Poco::Net::HTTPDigestCredentials("alice", "wonderland").verifyAuthInfo(request);
            guarded(response, in, "Digest realm=\"pages\", nonce=\"4711\", qop=\"auth\"");
        } else if (path == "/form") {
            answer(response, request.getContentType() + ": " + content);
        } else if (path == "/photos") {
            answer(response, multipartHeads(content));
        } else if (path == "/broken-off.bin") {
            brokenOff(request, response);
        } else if (path == "/busy" && ++Asked < 3) {
            answer(response, "busy\n", HTTPServerResponse::HTTP_SERVICE_UNAVAILABLE);
        } else if (path == "/busy") {
            answer(response, "Here is the report.\n");
        } else if (path == "/endless") {
            response.setChunkedTransferEncoding(true);
            std::ostream& stream = response.send();
            while (!Ended.tryWait(50) && stream << "more\n" << std::flush) {
            }
        } else if (path == "/missing") {
            answer(response, "There is no such page.\n", HTTPServerResponse::HTTP_NOT_FOUND);
        } else {
            answer(response, request.getMethod() + " with " + std::to_string(content.size()) + " bytes\n");
        }
    }

private:
    std::atomic<int>& Asked; // for what changes from request to request
    Poco::Event& Ended;

    static void answer(HTTPServerResponse& response, const std::string& content,
                       HTTPServerResponse::HTTPStatus status = HTTPServerResponse::HTTP_OK) {
        response.setStatusAndReason(status);
        response.setContentLength64(static_cast<Poco::Int64>(content.size()));
        response.send() << content;
    }

    static void guarded(HTTPServerResponse& response, bool in, const std::string& challenge) {
        if (in) {
            return answer(response, "Hello, alice\n");
        }
        response.set("WWW-Authenticate", challenge);
        answer(response, "Who are you?\n", HTTPServerResponse::HTTP_UNAUTHORIZED);
    }

    static void byProxy(const HTTPServerRequest& request, HTTPServerResponse& response) {
        if (request.get("Proxy-Authorization", "") == "Basic YWxpY2U6d29uZGVybGFuZA==") { // alice:wonderland
            return answer(response, "by the proxy\n");
        }
        response.set("Proxy-Authenticate", "Basic realm=\"proxy\"");
        answer(response, "", HTTPServerResponse::HTTP_PROXY_AUTHENTICATION_REQUIRED);
    }

    // The lines that say what the parts are.
    static std::string multipartHeads(const std::string& content) {
        std::string heads;
        for (std::size_t at = 0; (at = content.find("Content-Disposition", at)) != content.npos; ++at) {
            heads += content.substr(at, content.find("\r\n", at) - at) + "\n";
        }
        return heads;
    }

    // Of a thousand bytes, a piece of 200 arrives each time; from the fourth request on, all that is missing.
    void brokenOff(const HTTPServerRequest& request, HTTPServerResponse& response) {
        constexpr int total = 1000;
        int begin = 0;
        if (const std::string range = request.get("Range", ""); range.starts_with("bytes=")) {
            begin = std::stoi(range.substr(6));
            response.setStatusAndReason(HTTPServerResponse::HTTP_PARTIAL_CONTENT);
            response.set("Content-Range", "bytes " + std::to_string(begin) + "-999/1000");
        }
        response.setContentLength64(total - begin);
        response.setKeepAlive(false);
        const int length = ++Asked > 3 ? total - begin : 200;
        response.send() << data().substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(length));
    }
};

struct Factory : Poco::Net::HTTPRequestHandlerFactory {
    std::atomic<int> Asked = 0;
    Poco::Event& Ended;

    explicit Factory(Poco::Event& ended) : Ended(ended) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(const HTTPServerRequest&) override {
        return std::make_unique<Handler>(Asked, Ended).release(); // the server deletes it
    }
};

} // namespace

ExampleSite::ExampleSite() : Server(new Factory(Ended), Threads, Socket, new Poco::Net::HTTPServerParams) {
    Server.start();
}

ExampleSite::~ExampleSite() {
    Ended.set();
    Server.stopAll(true);
    Threads.joinAll();
}

} // namespace testsupport
