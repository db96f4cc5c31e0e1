#include "tests/integration/nginx/RoadFixture.h"

namespace integrationtest {

using vantik::Object;

std::unique_ptr<Nginx> RoadFixture::Server;
std::unique_ptr<Nghttpx> RoadFixture::Front;

const char* nameOf(Road road) {
    switch (road) {
    case Road::Plain:
        return "Plain";
    case Road::Tls:
        return "Tls";
    case Road::NginxHttp2:
        return "NginxHttp2";
    case Road::NghttpxHttp2:
        return "NghttpxHttp2";
    }
    return "Unknown";
}

void PrintTo(Road road, std::ostream* stream) {
    *stream << nameOf(road);
}

void RoadFixture::SetUpTestSuite() {
    Server = std::make_unique<Nginx>();
}

void RoadFixture::TearDownTestSuite() {
    Front.reset();
    Server.reset();
}

const Nghttpx& RoadFixture::nghttpx() {
    if (Front == nullptr) {
        Front = std::make_unique<Nghttpx>(nginx().plainPort());
    }
    return *Front;
}

std::string RoadFixture::urlOn(Road road, const std::string& path) {
    switch (road) {
    case Road::Tls:
        return nginx().secureUrl(path);
    case Road::NginxHttp2:
        return nginx().http2Url(path);
    case Road::NghttpxHttp2:
        return nghttpx().url(path);
    default:
        return nginx().url(path);
    }
}

std::string RoadFixture::certificateFileOn(Road road) {
    return road == Road::NghttpxHttp2 ? nghttpx().certificateFile() : nginx().certificateFile();
}

Object RoadFixture::openOn(Road road, const std::string& path, const std::vector<std::string>& fields) {
    Object connection = makeAdapter();
    connection.set("URL", urlOn(road, path));
    connection.set("CertificateFilename", certificateFileOn(road));
    connection.call("openConnection");
    for (const std::string& field : fields) {
        const std::size_t colon = field.find(": ");
        connection.call("setRequestProperty", {field.substr(0, colon), field.substr(colon + 2)});
    }
    return connection;
}

void RoadFixture::expectRoadUsable(Road road, const Object& used) {
    used.call("closeConnection");
    const Object next = openOn(road, "/redirect/chain/");
    EXPECT_EQ(receiveBytes(next), "end of the chain") << "the next request to the same server";
    EXPECT_EQ(next.get("ResponseCode").number(), 200.0);
    expectScopeUsable(next);
}

std::vector<std::string> RoadFixture::statusLineOn(Road road, const std::string& status, const std::string& reason) {
    // HTTP/2 has no reason phrases.
    return speaksHttp2(road) ? std::vector<std::string>{"HTTP/2", status, ""}
                             : std::vector<std::string>{"HTTP/1.1", status, reason};
}

} // namespace integrationtest
