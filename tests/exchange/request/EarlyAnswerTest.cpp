// Servers that answer before the request's content is complete.
#include "tests/exchange/ExchangeFixture.h"

#include <algorithm>

namespace {

using namespace testsupport;

constexpr std::size_t kMuch = 30'000'000;
const std::string kHeadOfDone = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n";

class EarlyAnswer : public ExchangeFixture {
protected:
    EarlyAnswer() : Endless(makeScriptedProvider(host())) {
        Endless->OnRead = [](int, std::uint64_t wanted) { return Array::bytes(std::string(wanted, 'x')); };
    }

    ScriptedProvider Endless;
};

TEST_F(EarlyAnswer, RefusalEndsTheUpload) {
    struct Row {
        const char* Where;
        Script Taken; // of the content
        Script End;
        const char* Property;
        Array Content;
    };
    for (const Row& row : {Row{"in place of the interim head", {}, {step::halfClose()}, "Provider", Endless},
                           {"in the content of a provider", {step::expectBody(50000)}, {}, "Provider", Endless},
                           {"in content from memory",
                            {step::expectBody(1000)},
                            {},
                            "Payload",
                            Array::bytes(std::string(kMuch, 'x'))}}) {
        SCOPED_TRACE(row.Where);
        ScriptedServer& server =
            serve(Script{step::expectHead()} + row.Taken +
                  Script{step::send(response("too large", {"Connection: close"}, "413 Too Large"))} + row.End +
                  Script{step::awaitPeerEnd()});
        const Object connection = open(server.url("/"));
        connection.set("RequestMethod", "PUT");
        connection.set(row.Property, row.Content);
        if (!row.Taken.empty()) {
            connection.call("removeField", {"Expect"});
        }
        EXPECT_EQ(receiveBytes(connection), "too large");
        EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), (Texts{"HTTP/1.1", "413", "Too Large"}));
        EXPECT_LT(server.waitUntilDone().Received.size(), kMuch);
    }
}

// A good status does not end the content, and the network connection is good for the next request.
TEST_F(EarlyAnswer, SuccessInTheContentLetsItGoOn) {
    const std::string body = patternedBytes(100000);
    ScriptedServer& server =
        serve(Script{step::expectHead(), step::send(kHeadOfDone), step::expectChunkedBody(), step::send("done")} +
              answers(response("next")));
    const Object connection = openUpload(server.url("/"), makeScriptedProvider(host(), body));
    EXPECT_EQ(receiveBytes(connection), "done");
    EXPECT_EQ(difference(server.record().Bodies.at(0), body), "");
    connection.call("closeConnection");
    connection.set("Provider", Array());
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "next");
    EXPECT_EQ(server.connectionCount(), 1U);
}

// On the same network connection the next request's head would be taken for the content that never went out.
TEST_F(EarlyAnswer, SuccessInPlaceOfTheInterimHeadEndsTheNetworkConnection) {
    ScriptedServer& server =
        serve({answers(response("early")) + Script{step::awaitPeerEnd()}, answers(response("next"))});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes(patternedBytes(200000)));
    EXPECT_EQ(receiveBytes(connection), "early");
    connection.call("closeConnection");
    connection.set("Payload", Array());
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "next");
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST_F(EarlyAnswer, CloseInTheContentIsAFailure) {
    ScriptedServer& server = serve({step::expectHead(), step::expectBody(50000), step::reset()});
    const Object connection = openUpload(server.url("/"), Endless);
    const std::string key = keyOf([&] { receiveBytes(connection); });
    // Whether libcurl notices it on sending or on receiving is a matter of moments.
    EXPECT_TRUE(key == "VANTIK:webservices:ConnectionRefused" ||
                key == "VANTIK:webservices:CopyContentToDataStreamError")
        << key;
}

// The server reads nothing of the upload, which is more than the sockets take, before its response has been taken.
class EarlyContent : public ExchangeFixture {
protected:
    static constexpr std::size_t kMebi = std::size_t{1} << 20;
    static constexpr std::size_t kUploadLength = 16 * kMebi;

    Object openLargeUpload(const ScriptedServer& server) {
        const ScriptedProvider provider = makeScriptedProvider(host());
        provider->OnRead = [given = std::size_t{0}](int, std::uint64_t wanted) mutable {
            const std::size_t length = std::min<std::size_t>(wanted, kUploadLength - given);
            given += length;
            return Array::bytes(std::string(length, 'u'));
        };
        Object connection = openUpload(server.url("/"), provider);
        connection.call("setRequestProperty", {"Content-Length", std::to_string(kUploadLength)});
        return connection;
    }
};

TEST_F(EarlyContent, IsKeptUntilTheUploadIsDone) {
    const std::string content(8 * kMebi, 'r');
    ScriptedServer& server = serve(answers(response(content)) + Script{step::discard(kUploadLength)});
    const Object connection = openLargeUpload(server);
    EXPECT_EQ(difference(receiveBytes(connection), content), "");
    EXPECT_EQ(warnings().size(), 0U);
    server.waitUntilDone();
}

TEST_F(EarlyContent, BeyondItsLimitEndsTheUpload) {
    ScriptedServer& server = serve(answers(response(std::string(64 * kMebi, 'r'))));
    const Object connection = openLargeUpload(server);
    EXPECT_EQ(
        outcomeOf([&] { receiveBytes(connection); }),
        "VANTIK:webservices:CopyContentToDataStreamError(More than 16777216 bytes of the response came before the "
        "request had been sent., " +
            server.url("/") + ")");
}

} // namespace
