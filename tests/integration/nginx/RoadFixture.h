// Fixture for what must come out the same on every road to one nginx: HTTP/1.1, HTTP/1.1 under TLS, HTTP/2.
#pragma once

#include "tests/integration/nginx/Nghttpx.h"
#include "tests/integration/nginx/Nginx.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace integrationtest {

enum class Road { Plain, Tls, NginxHttp2, NghttpxHttp2 };

inline constexpr Road kAllRoads[] = {Road::Plain, Road::Tls, Road::NginxHttp2, Road::NghttpxHttp2};

const char* nameOf(Road road);
void PrintTo(Road road, std::ostream* stream); // for GoogleTest
inline bool speaksHttp2(Road road) {
    return road == Road::NginxHttp2 || road == Road::NghttpxHttp2;
}

// Both servers are started once for a suite, nghttpx when it is first asked for. Its backend is the nginx.
class RoadFixture : public IntegrationFixture {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    static const Nginx& nginx() { return *Server; }
    static const Nghttpx& nghttpx();
    static std::string urlOn(Road road, const std::string& path);
    static std::string certificateFileOn(Road road);

    // A new object, opened, with the server's authority as the only trusted one. `fields`: "Name: value".
    vantik::Object openOn(Road road, const std::string& path, const std::vector<std::string>& fields = {});
    // A further exchange with the same server, on an object of its own, and one with another server.
    void expectRoadUsable(Road road, const vantik::Object& used);

    // What getStatusLine gives.
    static std::vector<std::string> statusLineOn(Road road, const std::string& status, const std::string& reason);

private:
    static std::unique_ptr<Nginx> Server;
    static std::unique_ptr<Nghttpx> Front;
};

} // namespace integrationtest
