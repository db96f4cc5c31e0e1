// Method and fields as they go out, as they read back, and fields that are refused before anything goes out.
#include "tests/exchange/ExchangeFixture.h"

#include <gmock/gmock.h>

namespace {

using namespace testsupport;

class RequestFields : public ExchangeFixture {
protected:
    ScriptedServer& serveOk() { return serve(answers(response("ok"))); }
};

TEST_F(RequestFields, OfOneNameKeepTheirOrder) {
    ScriptedServer& server = serveOk();
    const Object connection = open(server.url("/p/q?r=s#t"));
    connection.set("RequestMethod", "OPTIONS");
    connection.call("setRequestProperty", {"X-One", "1"});
    connection.call("setFields", {Array::structures({"Name", "Value"}, {{"x-one", "2"}, {"X-Two", "a, b"}})});
    connection.call("setRequestProperty", {"X-ONE", "3"});
    EXPECT_EQ(fieldTexts(connection.call("getRequestFields")), Texts{}) << "nothing has been sent yet";
    receiveBytes(connection);
    EXPECT_EQ(server.record().Received, "OPTIONS /p/q?r=s HTTP/1.1\r\nHost: " + server.authority() +
                                            "\r\nX-One: 1\r\nx-one: 2\r\nX-Two: a, b\r\nX-ONE: 3\r\n\r\n");
    EXPECT_EQ(fieldTexts(connection.call("getRequestFields")),
              (Texts{"Host: " + server.authority(), "X-One: 1", "x-one: 2", "X-Two: a, b", "X-ONE: 3"}));
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 3), (Texts{"OPTIONS", "/p/q?r=s", "HTTP/1.1"}));
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 1), (Texts{"OPTIONS"}));
    EXPECT_EQ(connection.call("getRequestURI").text(), server.url("/p/q?r=s#t"));
}

TEST_F(RequestFields, MethodGoesOutAsLibcurlMakesIt) {
    struct Row {
        const char* Set;
        const char* Line; // of the request
        const char* Read; // from the object, before and after the send
    };
    for (const Row& row : {Row{"", "GET / HTTP/1.1", "GET"},
                           {"get", "GET / HTTP/1.1", "get"},
                           {"head", "HEAD / HTTP/1.1", "head"},
                           {"put", "put / HTTP/1.1", "put"},
                           {"PURGE", "PURGE / HTTP/1.1", "PURGE"}}) {
        ScriptedServer& server = serve(answers(response("")));
        const Object connection = open(server.url("/"));
        connection.set("RequestMethod", row.Set);
        EXPECT_EQ(resultTexts(connection, "getRequestLine", 1), Texts{row.Read});
        EXPECT_EQ(receiveBytes(connection), "");
        EXPECT_EQ(startLine(server.record().Heads.at(0)), row.Line);
        EXPECT_EQ(connection.get("RequestMethod").text(), row.Set);
        EXPECT_EQ(resultTexts(connection, "getRequestLine", 1), Texts{row.Read});
        EXPECT_EQ(connection.call("getRequestMethod").text(), row.Read);
    }
}

TEST_F(RequestFields, HeadRequestHasNoContentAndAReopenGetsAgain) {
    ScriptedServer& server =
        serve(answers("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n") + answers(response("next")));
    const Object connection = open(server.url("/h"));
    connection.set("RequestMethod", "HEAD");
    EXPECT_EQ(receiveBytes(connection), "");
    EXPECT_EQ(connection.call("getResponseField", {"content-length"}).text(), "1000");
    EXPECT_EQ(startLine(server.record().Heads.at(0)), "HEAD /h HTTP/1.1");
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "next");
    EXPECT_EQ(startLine(server.record().Heads.at(1)), "GET /h HTTP/1.1");
}

// libcurl traces a head once it has written it, so the bytes on the wire are still those of the caller.
TEST_F(RequestFields, AreStoredWithoutTheQuotesOfMd5) {
    ScriptedServer& server = serveOk();
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"AUTHORIZATION", "Digest algorithm=\"MD5\", x=\"MD5\""});
    connection.call("setRequestProperty", {"Cookie", "algorithm=\"MD5\""}); // keeps them, and loses its last blank
    receiveBytes(connection);
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "AUTHORIZATION"), "Digest algorithm=\"MD5\", x=\"MD5\"");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Cookie"), "algorithm=\"MD5\"; ");
    EXPECT_THAT(
        fieldTexts(connection.call("getRequestFields")),
        testing::IsSupersetOf({"AUTHORIZATION: Digest algorithm=MD5  , x=\"MD5\"", "Cookie: algorithm=\"MD5\";"}));
}

TEST_F(RequestFields, RemovedOnesStayAtHome) {
    ScriptedServer& server = serveOk();
    const Object connection = open(server.url("/"));
    connection.call("setRequestProperty", {"X-Gone", "1"});
    connection.call("setRequestProperty", {"X-GONE", "2"});
    connection.call("setRequestProperty", {"X-Kept", "3"});
    connection.call("removeField", {"x-gone"});
    connection.call("removeField", {"Host"});
    receiveBytes(connection);
    EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nX-Kept: 3\r\n\r\n");
}

TEST_F(RequestFields, BadLengthSendsNothingAndIsForgottenByAReopen) {
    ScriptedServer& server = serveOk();
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes("content"));
    connection.call("setRequestProperty", {"X-A", "1"});
    connection.call("setRequestProperty", {"Content-Length", "12abc"});
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(outcomeOf([&] { receiveBytes(connection); }),
                  "VANTIK:webservices:InternalError(Bad Content-Length value 12abc)");
        EXPECT_FALSE(connection.get("Sent").truth());
    }
    EXPECT_EQ(server.connectionCount(), 0U);
    connection.set("Payload", Array());
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "ok");
    EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
}

} // namespace
