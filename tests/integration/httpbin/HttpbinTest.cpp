// Answers that no other server here has: Brotli and zlib by their Python libraries, Digest with each algorithm and with
// nonces that expire, every status.
#include "tests/integration/httpbin/Httpbin.h"

#include "tests/integration/support/IntegrationFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <memory>

namespace {

using namespace integrationtest;
using nlohmann::json;

class HttpbinTest : public IntegrationFixture {
protected:
    static void SetUpTestSuite() { Server = std::make_unique<Httpbin>(); }
    static void TearDownTestSuite() { Server.reset(); }

    Object openPath(const std::string& path) { return open(Server->url(path)); }

    static void openNext(const Object& connection, const std::string& path) {
        connection.call("closeConnection");
        connection.set("URL", Server->url(path));
        connection.call("openConnection");
    }

    // An answer that is not JSON is an exception, and so a failed test.
    json receiveJson(const Object& connection) { return json::parse(receiveBytes(connection)); }

    // A plain exchange of the same object with the same server, whatever has happened before, and one of the scope.
    void expectServerUsable(const Object& connection) {
        openNext(connection, "/anything/again");
        connection.set("RequestMethod", "GET");
        EXPECT_EQ(receiveJson(connection).at("url"), Server->url("/anything/again"));
        EXPECT_EQ(status(connection), 200);
        expectScopeUsable(connection);
    }

private:
    static inline std::unique_ptr<Httpbin> Server;
};

TEST_F(HttpbinTest, CompressedContentIsDecodedUnlessToldNotTo) {
    struct Row {
        const char* Path;
        const char* Encoding;
        const char* Mark; // what the server puts into its answer
    };
    for (const Row& row :
         {Row{"/gzip", "gzip", "gzipped"}, Row{"/deflate", "deflate", "deflated"}, Row{"/brotli", "br", "brotli"}}) {
        SCOPED_TRACE(row.Path);
        const Object connection = openPath(row.Path);
        const json seen = receiveJson(connection);
        EXPECT_EQ(seen.at(row.Mark), true);
        EXPECT_EQ(connection.get("ContentEncoding").text(), row.Encoding);
        EXPECT_EQ(seen.at("headers").value("Accept-Encoding", "none"), "none") << "asked for by no field";

        openNext(connection, row.Path);
        connection.set("Decode", false);
        const std::string raw = receiveBytes(connection);
        EXPECT_EQ(raw.size(), std::stoul(field(connection, "Content-Length")));
        EXPECT_THAT(raw, testing::Not(testing::HasSubstr("headers")));
        EXPECT_EQ(connection.get("ContentEncoding").text(), row.Encoding);
        connection.set("Decode", true);
        expectServerUsable(connection);
    }
}

// The property is libcurl's, which takes the last one.
TEST_F(HttpbinTest, FieldThatComesTwiceIsListedTwice) {
    const Object connection = openPath("/response-headers?Content-Type=text/plain%3B%20charset%3Diso-8859-2");
    receiveBytes(connection);
    EXPECT_EQ(field(connection, "Content-Type"), "application/json");
    EXPECT_EQ(connection.get("ContentType").text(), "text/plain; charset=iso-8859-2");
    EXPECT_THAT(
        fieldTexts(connection.call("getResponseFields")),
        testing::IsSupersetOf({"Content-Type: application/json", "Content-Type: text/plain; charset=iso-8859-2"}));
    expectServerUsable(connection);
}

TEST_F(HttpbinTest, EveryFinalStatusReachesTheCaller) {
    const Object connection = makeAdapter();
    for (int code = 200; code <= 600; ++code) {
        SCOPED_TRACE(code);
        openNext(connection, "/status/" + std::to_string(code));
        const std::string content = receiveBytes(connection);
        const Texts line = resultTexts(connection, "getStatusLine", 3);
        EXPECT_EQ(line.at(0), "HTTP/1.1");
        EXPECT_EQ(line.at(1), std::to_string(code));
        EXPECT_NE(line.at(2), "");
        EXPECT_EQ(status(connection), code);
        const std::string length = field(connection, "Content-Length");
        EXPECT_EQ(content.size(), length.empty() || code == 304 ? 0U : std::stoul(length));
    }
    EXPECT_TRUE(warnings().empty());
    expectServerUsable(connection);
}

class HttpbinDigest : public HttpbinTest {
protected:
    static void logIn(const Object& connection) {
        connection.set("Username", "Aladdin");
        connection.set("Password", "sesame");
        allow(connection, {"Digest"});
    }
};

TEST_F(HttpbinDigest, WorksWithEachAlgorithmThatLibcurlKnows) {
    for (const auto& [row, code] : {std::pair{"auth/Aladdin/sesame/MD5", 200},
                                    {"auth-int/Aladdin/sesame/MD5", 200},
                                    {"none/Aladdin/sesame/MD5", 200},
                                    {"auth/Aladdin/sesame/SHA-256", 200},
                                    {"auth-int/Aladdin/sesame/SHA-256", 200},
                                    {"auth/Aladdin/sesame/SHA-512", 401}}) { // the challenge is left unanswered
        SCOPED_TRACE(row);
        const Object connection = openPath(std::string("/digest-auth/") + row);
        logIn(connection);
        EXPECT_EQ(receiveBytes(connection).empty(), code != 200);
        EXPECT_EQ(status(connection), code);
        expectServerUsable(connection);
    }
}

// The server counts in a cookie how often a nonce may be used, and says that it is stale afterwards.
TEST_F(HttpbinDigest, GoesOnWithANewNonceWhereTheOldOneIsStale) {
    const Object connection = openPath("/digest-auth/auth/Aladdin/sesame/MD5/1");
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        logIn(connection);
        EXPECT_EQ(receiveJson(connection).at("authenticated"), true);
        EXPECT_EQ(status(connection), 200);
        connection.call("closeConnection");
        connection.call("openConnection");
    }
    expectServerUsable(connection);
}

TEST_F(HttpbinTest, CookiesComeBackUntilTheServerDeletesThem) {
    const Object connection = openPath("/cookies/set?first=1&second=b");
    EXPECT_EQ(status(connection), 302);
    openNext(connection, "/cookies");
    EXPECT_EQ(receiveJson(connection).at("cookies"), (json{{"first", "1"}, {"second", "b"}}));
    openNext(connection, "/cookies/delete?second");
    receiveBytes(connection);
    openNext(connection, "/cookies");
    EXPECT_EQ(receiveJson(connection).at("cookies"), (json{{"first", "1"}}));
    expectServerUsable(connection);
}

} // namespace
