#include "tests/cli/batch/BatchServer.h"

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <sstream>
#include <stdexcept>

namespace batchtest {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

namespace {

constexpr std::chrono::minutes kUnreasonable{1};
constexpr int kThreads = 24;

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

} // namespace

struct BatchServer::State {
    mutable std::mutex Guard;
    mutable std::condition_variable Changed;
    std::map<std::string, std::vector<Answer>> Answers;
    std::set<std::string> Held;
    std::map<std::string, std::vector<SeenRequest>> Requests;
    std::set<unsigned> ClientPorts;
    std::size_t Now = 0;
    std::size_t Most = 0;
    std::size_t Meeting = 0; // wanted
    std::size_t Arrived = 0;
    bool Ending = false;

    // The answer, once it may be given.
    Answer take(const std::string& path, SeenRequest request, unsigned port) {
        std::unique_lock lock(Guard);
        ClientPorts.insert(port);
        Requests[path].push_back(std::move(request));
        const std::size_t turn = Requests[path].size() - 1;
        Most = std::max(Most, ++Now);
        const bool meets = path.starts_with("/meet");
        Arrived += meets ? 1 : 0;
        Changed.notify_all();
        const bool free = Changed.wait_for(
            lock, kUnreasonable, [&] { return Ending || (!Held.contains(path) && (!meets || Arrived >= Meeting)); });
        --Now;
        if (!free) {
            return {500, {}, "waited in vain"};
        }
        const auto found = Answers.find(path);
        if (found == Answers.end()) {
            return {200, {}, contentOf(path)};
        }
        return found->second[std::min(turn, found->second.size() - 1)];
    }
};

namespace {

class Handler : public Poco::Net::HTTPRequestHandler {
public:
    explicit Handler(BatchServer::State& state) : Shared(state) {}

    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        SeenRequest seen{request.getMethod(), {}, {}};
        for (const auto& [name, value] : request) {
            seen.Fields[lowered(name)] = value;
        }
        std::ostringstream body;
        if (request.hasContentLength() || request.getChunkedTransferEncoding()) {
            body << request.stream().rdbuf();
        }
        seen.Body = body.str();
        const Answer answer = Shared.take(request.getURI(), std::move(seen), request.clientAddress().port());
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
    BatchServer::State& Shared;
};

class Factory : public Poco::Net::HTTPRequestHandlerFactory {
public:
    explicit Factory(BatchServer::State& state) : Shared(state) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(const HTTPServerRequest&) override {
        return new Handler(Shared); // the server deletes it
    }

private:
    BatchServer::State& Shared;
};

Poco::Net::HTTPServerParams::Ptr parameters() {
    Poco::Net::HTTPServerParams::Ptr result = new Poco::Net::HTTPServerParams;
    result->setMaxThreads(kThreads);
    result->setKeepAlive(true);
    return result;
}

} // namespace

struct BatchServer::Content {
    explicit Content(State& state) : Server(new Factory(state), Threads, Socket, parameters()) {}

    Poco::Net::ServerSocket Socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    Poco::ThreadPool Threads{kThreads, kThreads};
    Poco::Net::HTTPServer Server;
};

BatchServer::BatchServer() : Shared(std::make_unique<State>()), Inside(std::make_unique<Content>(*Shared)) {
    Inside->Server.start();
}

BatchServer::~BatchServer() {
    {
        const std::lock_guard lock(Shared->Guard);
        Shared->Ending = true;
    }
    Shared->Changed.notify_all();
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

void BatchServer::answer(const std::string& path, std::vector<Answer> answers) {
    const std::lock_guard lock(Shared->Guard);
    Shared->Answers[path] = std::move(answers);
}

void BatchServer::hold(const std::string& path) {
    const std::lock_guard lock(Shared->Guard);
    Shared->Held.insert(path);
}

void BatchServer::release(const std::string& path) {
    const std::lock_guard lock(Shared->Guard);
    Shared->Held.erase(path);
    Shared->Changed.notify_all();
}

void BatchServer::meet(std::size_t count) {
    const std::lock_guard lock(Shared->Guard);
    Shared->Meeting = count;
}

void BatchServer::waitForRequest(const std::string& path, std::size_t count) const {
    std::unique_lock lock(Shared->Guard);
    const auto there = [&] {
        const auto found = Shared->Requests.find(path);
        return found != Shared->Requests.end() && found->second.size() >= count;
    };
    if (!Shared->Changed.wait_for(lock, kUnreasonable, there)) {
        throw std::runtime_error("waited in vain for a request for " + path);
    }
}

std::size_t BatchServer::requests(const std::string& path) const {
    return seen(path).size();
}

std::size_t BatchServer::allRequests() const {
    const std::lock_guard lock(Shared->Guard);
    std::size_t count = 0;
    for (const auto& [path, requests] : Shared->Requests) {
        count += requests.size();
    }
    return count;
}

std::vector<SeenRequest> BatchServer::seen(const std::string& path) const {
    const std::lock_guard lock(Shared->Guard);
    const auto found = Shared->Requests.find(path);
    return found == Shared->Requests.end() ? std::vector<SeenRequest>() : found->second;
}

std::size_t BatchServer::connections() const {
    const std::lock_guard lock(Shared->Guard);
    return Shared->ClientPorts.size();
}

std::size_t BatchServer::mostAtOnce() const {
    const std::lock_guard lock(Shared->Guard);
    return Shared->Most;
}

std::size_t BatchServer::repeatedRequests() const {
    const std::lock_guard lock(Shared->Guard);
    std::size_t count = 0;
    for (const auto& [path, requests] : Shared->Requests) {
        count += requests.size() - 1;
    }
    return count;
}

} // namespace batchtest
