// A server whose answers say how much has gone out, for programs that are killed and go on.
#pragma once

#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/ThreadPool.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace clitest {

// What a transfer may have on its way: in the buffers of both ends of its connection.
constexpr std::uint64_t kOnItsWay = std::uint64_t{512} << 10;

// Sends no more than it is allowed to, so that the program is killed when so many bytes have gone out. Requests say the
// number of their run in X-Run.
class CountingServer {
public:
    static constexpr std::size_t kLarge = std::size_t{4} << 20;
    static constexpr std::size_t kSmall = 3000;
    // Of a name: large where it begins with 'l'.
    static std::string contentOf(const std::string& name);

    CountingServer();
    ~CountingServer();
    CountingServer(const CountingServer&) = delete;
    CountingServer& operator=(const CountingServer&) = delete;

    std::string url(const std::string& name) const;

    // Forgets the requests of the run before, and ends what is still sent to it: some of a killed program may still be
    // on their way. Returns the number of the new one.
    int beginRun(std::uint64_t allowed);
    bool sentAll() const;
    std::uint64_t sent() const;
    // By name: where each request of this run began.
    std::map<std::string, std::vector<std::size_t>> begins() const;

private:
    class Handler;
    class Factory;

    void begin(int run, const std::string& name, std::size_t first);
    // Waits until so much may be sent; false once the run is over.
    bool mayGo(int run, std::size_t length);

    mutable std::mutex Guard; // of what follows
    std::condition_variable Changed;
    int Run = 0;
    std::uint64_t Sent = 0;
    std::uint64_t Allowed = 0;
    std::map<std::string, std::vector<std::size_t>> Begins;
    Poco::Net::ServerSocket Socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    Poco::ThreadPool Threads;
    std::optional<Poco::Net::HTTPServer> Server;
};

} // namespace clitest
