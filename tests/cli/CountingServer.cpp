#include "tests/cli/CountingServer.h"

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace clitest {

namespace {

constexpr int kThreads = 64;
constexpr std::size_t kPiece = std::size_t{32} << 10;

} // namespace

std::string CountingServer::contentOf(const std::string& name) {
    std::string content(name.starts_with('l') ? kLarge : kSmall, '\0');
    const auto start = std::hash<std::string>()(name);
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>(start + i * 131 + (i >> 8));
    }
    return content;
}

class CountingServer::Handler : public Poco::Net::HTTPRequestHandler {
public:
    explicit Handler(CountingServer& server) : Own(server) {}
    void handleRequest(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) override {
        static_cast<Poco::Net::HTTPServerRequestImpl&>(request).socket().setSendBufferSize(kPiece);
        const std::string name = request.getURI().substr(1);
        const std::string content = contentOf(name);
        const std::string range = request.get("Range", "");
        const int run = std::stoi(request.get("X-Run"));
        const std::size_t first = range.empty() ? 0 : std::stoul(range.substr(sizeof "bytes=" - 1));
        if (!range.empty()) {
            EXPECT_EQ(request.get("If-Range", ""), "\"" + name + "\"");
            if (first == content.size()) { // only its name is missing
                Own.begin(run, name, first);
                response.setStatusAndReason(Poco::Net::HTTPResponse::HTTP_REQUESTED_RANGE_NOT_SATISFIABLE);
                response.set("Content-Range", "bytes */" + std::to_string(content.size()));
                response.setContentLength(0);
                response.send();
                return;
            }
            response.setStatusAndReason(Poco::Net::HTTPResponse::HTTP_PARTIAL_CONTENT);
            response.set("Content-Range", "bytes " + std::to_string(first) + "-" + std::to_string(content.size() - 1) +
                                              "/" + std::to_string(content.size()));
        }
        response.set("ETag", "\"" + name + "\"");
        response.setContentLength64(static_cast<Poco::Int64>(content.size() - first));
        Own.begin(run, name, first);
        std::ostream& out = response.send();
        for (std::size_t at = first; at < content.size() && out.good(); at += kPiece) {
            const std::size_t length = std::min(kPiece, content.size() - at);
            if (!Own.mayGo(run, length)) {
                response.setKeepAlive(false);
                return;
            }
            out.write(content.data() + at, static_cast<std::streamsize>(length)) << std::flush;
        }
    }

private:
    CountingServer& Own;
};

class CountingServer::Factory : public Poco::Net::HTTPRequestHandlerFactory {
public:
    explicit Factory(CountingServer& server) : Own(server) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(const Poco::Net::HTTPServerRequest&) override {
        return new Handler(Own);
    }

private:
    CountingServer& Own;
};

CountingServer::CountingServer() : Threads(kThreads, kThreads) {
    Poco::Net::HTTPServerParams::Ptr parameters = new Poco::Net::HTTPServerParams;
    parameters->setMaxThreads(kThreads);
    Server.emplace(new Factory(*this), Threads, Socket, parameters);
    Server->start();
}

CountingServer::~CountingServer() {
    beginRun(0);
    Server->stopAll(true);
    Threads.joinAll();
}

std::string CountingServer::url(const std::string& name) const {
    return "http://127.0.0.1:" + std::to_string(Socket.address().port()) + "/" + name;
}

int CountingServer::beginRun(std::uint64_t allowed) {
    const std::lock_guard lock(Guard);
    ++Run;
    Sent = 0;
    Allowed = allowed;
    Begins.clear();
    Changed.notify_all();
    return Run;
}

bool CountingServer::sentAll() const {
    const std::lock_guard lock(Guard);
    return Sent >= Allowed;
}

std::uint64_t CountingServer::sent() const {
    const std::lock_guard lock(Guard);
    return Sent;
}

std::map<std::string, std::vector<std::size_t>> CountingServer::begins() const {
    const std::lock_guard lock(Guard);
    return Begins;
}

void CountingServer::begin(int run, const std::string& name, std::size_t first) {
    const std::lock_guard lock(Guard);
    if (run == Run) {
        Begins[name].push_back(first);
    }
}

bool CountingServer::mayGo(int run, std::size_t length) {
    std::unique_lock lock(Guard);
    Changed.wait(lock, [&] { return run != Run || Sent < Allowed; });
    Sent += run == Run ? length : 0;
    return run == Run;
}

} // namespace clitest
