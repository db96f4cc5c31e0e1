#include "tests/cli/batch/BatchServer.h"

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/String.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <sstream>
#include <stdexcept>

namespace batchtest {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

namespace {

constexpr std::chrono::minutes kUnreasonable{1};
constexpr int kThreads = 24;

struct Factory : Poco::Net::HTTPRequestHandlerFactory {
    explicit Factory(std::function<Poco::Net::HTTPRequestHandler*()> make) : Make(std::move(make)) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(const HTTPServerRequest&) override { return Make(); }
    std::function<Poco::Net::HTTPRequestHandler*()> Make; // the server deletes what it returns
};

Poco::Net::HTTPServerParams::Ptr parameters() {
    Poco::Net::HTTPServerParams::Ptr result = new Poco::Net::HTTPServerParams;
    result->setMaxThreads(kThreads);
    result->setKeepAlive(true);
    return result;
}

} // namespace

class BatchServer::Handler : public Poco::Net::HTTPRequestHandler {
public:
    explicit Handler(BatchServer& server) : Server(server) {}

    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        SeenRequest seen{request.getMethod(), {}, {}};
        for (const auto& [name, value] : request) {
            seen.Fields[Poco::toLower(name)] = value;
        }
        if (request.hasContentLength() || request.getChunkedTransferEncoding()) {
            std::ostringstream body;
            body << request.stream().rdbuf();
            seen.Body = body.str();
        }
        const Answer answer = Server.take(request.getURI(), std::move(seen), request.clientAddress().port());
        response.setStatusAndReason(static_cast<HTTPServerResponse::HTTPStatus>(answer.Status));
        for (const auto& [name, value] : answer.Fields) {
            response.set(name, value);
        }
        const std::string content = request.getMethod() == "HEAD" ? "" : answer.Content;
        response.setContentLength64(static_cast<Poco::Int64>(content.size()) + (answer.CutShort ? 1 : 0));
        if (answer.CutShort) {
            response.setKeepAlive(false);
            response.send() << content << std::flush;
            return;
        }
        // In one piece: a head that goes out alone would wait for the acknowledgement of the one before.
        response.sendBuffer(content.data(), content.size());
    }

private:
    BatchServer& Server;
};

struct BatchServer::Content {
    explicit Content(BatchServer& server)
        : Server(new Factory([&server] { return new Handler(server); }), Threads, Socket, parameters()) {}

    Poco::Net::ServerSocket Socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    Poco::ThreadPool Threads{kThreads, kThreads};
    Poco::Net::HTTPServer Server;
};

BatchServer::BatchServer() : Inside(std::make_unique<Content>(*this)) {
    Inside->Server.start();
}

BatchServer::~BatchServer() {
    {
        const std::lock_guard lock(Guard);
        Ending = true;
    }
    Changed.notify_all();
    Inside->Server.stopAll(true);
    Inside->Threads.joinAll();
}

std::string BatchServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(Inside->Socket.address().port()) + path;
}

std::string BatchServer::contentOf(const std::string& path) {
    std::string content;
    while (content.size() < 5000) {
        content += path + "\n";
    }
    return content;
}

bool BatchServer::mayAnswer(const std::string& path) const {
    return Ending || (!Held.contains(path) && (!path.starts_with("/meet") || Arrived >= Meeting));
}

Answer BatchServer::take(const std::string& path, SeenRequest request, unsigned port) {
    std::unique_lock lock(Guard);
    ClientPorts.insert(port);
    Requests[path].push_back(std::move(request));
    const std::size_t turn = Requests[path].size() - 1;
    Most = std::max(Most, ++Now);
    Arrived += path.starts_with("/meet") ? 1 : 0;
    Changed.notify_all();
    const bool free = Changed.wait_for(lock, kUnreasonable, [&] { return mayAnswer(path); });
    --Now;
    if (!free) {
        return {500, {}, "waited too long"};
    }
    const auto found = Answers.find(path);
    return found == Answers.end() ? Answer{200, {}, contentOf(path)}
                                  : found->second[std::min(turn, found->second.size() - 1)];
}

void BatchServer::answer(const std::string& path, std::vector<Answer> answers) {
    const std::lock_guard lock(Guard);
    Answers[path] = std::move(answers);
}

void BatchServer::hold(const std::string& path) {
    const std::lock_guard lock(Guard);
    Held.insert(path);
}

void BatchServer::release(const std::string& path) {
    const std::lock_guard lock(Guard);
    Held.erase(path);
    Changed.notify_all();
}

void BatchServer::meet(std::size_t count) {
    const std::lock_guard lock(Guard);
    Meeting = count;
}

void BatchServer::waitForRequest(const std::string& path, std::size_t count) const {
    std::unique_lock lock(Guard);
    if (!Changed.wait_for(lock, kUnreasonable,
                          [&] { return Requests.contains(path) && Requests.at(path).size() >= count; })) {
        throw std::runtime_error("waited too long for a request for " + path);
    }
}

std::vector<SeenRequest> BatchServer::seen(const std::string& path) const {
    const std::lock_guard lock(Guard);
    return Requests.contains(path) ? Requests.at(path) : std::vector<SeenRequest>();
}

std::size_t BatchServer::allRequests() const {
    const std::lock_guard lock(Guard);
    std::size_t count = 0;
    for (const auto& [path, requests] : Requests) {
        count += requests.size();
    }
    return count;
}

std::size_t BatchServer::paths() const {
    const std::lock_guard lock(Guard);
    return Requests.size();
}

std::size_t BatchServer::connections() const {
    const std::lock_guard lock(Guard);
    return ClientPorts.size();
}

std::size_t BatchServer::mostAtOnce() const {
    const std::lock_guard lock(Guard);
    return Most;
}

} // namespace batchtest
