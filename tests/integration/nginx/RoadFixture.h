// Fixture for what must come out the same over HTTP/1.1 and over HTTP/2 under TLS.
#pragma once

#include "tests/integration/nginx/Nginx.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <memory>
#include <string>
#include <vector>

namespace integrationtest {

enum class Road { Plain, Http2 };

inline constexpr Road kAllRoads[] = {Road::Plain, Road::Http2};

// For INSTANTIATE_TEST_SUITE_P where a road is the parameter.
inline constexpr auto kRoadName = [](const auto& info) {
    return std::string(info.param == Road::Http2 ? "Http2" : "Plain");
};

// The server is started once for a suite.
class RoadFixture : public IntegrationFixture {
protected:
    static void SetUpTestSuite() { Server = std::make_unique<Nginx>(); }
    static void TearDownTestSuite() { Server.reset(); }

    static const Nginx& nginx() { return *Server; }
    static std::string urlOn(Road road, const std::string& path);

    // A new object, opened, with the server's authority as the only trusted one. `fields`: "Name: value".
    vantik::Object openOn(Road road, const std::string& path, const std::vector<std::string>& fields = {});
    // A further exchange with the same server, on an object of its own, and one with another server.
    void expectRoadUsable(Road road, const vantik::Object& used);

    // What getStatusLine returns.
    static std::vector<std::string> statusLineOn(Road road, const std::string& status, const std::string& reason);
    static std::string fieldOf(const vantik::Object& connection, const std::string& name); // "": there is none

private:
    static inline std::unique_ptr<Nginx> Server;
};

} // namespace integrationtest
