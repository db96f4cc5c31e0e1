#include "tests/integration/nginx/RoadFixture.h"

namespace integrationtest {

using vantik::Object;

std::string RoadFixture::urlOn(Road road, const std::string& path) {
    return road == Road::Http2 ? nginx().http2Url(path) : nginx().url(path);
}

Object RoadFixture::openOn(Road road, const std::string& path, const std::vector<std::string>& fields) {
    Object connection = makeAdapter();
    connection.set("URL", urlOn(road, path));
    connection.set("CertificateFilename", nginx().certificateFile());
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
    return road == Road::Http2 ? std::vector<std::string>{"HTTP/2", status, ""}
                               : std::vector<std::string>{"HTTP/1.1", status, reason};
}

std::string RoadFixture::fieldOf(const Object& connection, const std::string& name) {
    const vantik::Array value = connection.call("getResponseField", {name});
    return value.empty() ? "" : value.text();
}

} // namespace integrationtest
