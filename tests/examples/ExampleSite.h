// A server with all that the pages on the client ask example.org for.
#pragma once

#include <Poco/Event.h>
#include <Poco/Net/HTTPServer.h>

#include <string>

namespace testsupport {

class ExampleSite {
public:
    ExampleSite();
    ~ExampleSite();
    ExampleSite(const ExampleSite&) = delete;
    ExampleSite& operator=(const ExampleSite&) = delete;

    std::string url() const { return "http://" + authority(); }
    std::string authority() const { return "127.0.0.1:" + std::to_string(Socket.address().port()); }

private:
    Poco::Event Ended{Poco::Event::EVENT_MANUALRESET}; // endless content ends
    Poco::Net::ServerSocket Socket{Poco::Net::SocketAddress("127.0.0.1", 0)};
    Poco::ThreadPool Threads{2, 16};
    Poco::Net::HTTPServer Server;
};

} // namespace testsupport
