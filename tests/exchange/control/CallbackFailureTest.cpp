// Failures inside libcurl's callbacks. None of them unwinds through libcurl, which would ruin the handles of the scope
// for good: behind each failure the same object and a new one complete a good request.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/StandardOutputCapture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

class CallbackFailure : public HostFixture {
protected:
    // The object that failed has to be good for another exchange, and so has the scope.
    void expectObjectUsable(const Object& connection) {
        ScriptedServer& server = serve({step::expectHead(), step::send(response("good again"))});
        connection.set("Provider", Array());
        connection.set("URL", server.url("/again"));
        connection.call("openConnection");
        connection.set("RequestMethod", "GET");
        EXPECT_EQ(receiveBytes(connection), "good again");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        expectScopeUsable(connection);
    }
};

TEST_F(CallbackFailure, InTheHeaderCallback) {
    for (const Pace pace : {Pace::Whole, Pace::SingleBytes}) {
        ScriptedServer& server =
            serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nX-Bad: 1\nContent-Length: 4\r\n\r\nbody")}, pace);
        const Object connection = open(server.url("/"));
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  "VANTIK:webservices:InternalError(CRLF not found at the end of the received headers)");
        expectObjectUsable(connection);
    }
}

// The transfer runs on behind the failed line, and that line is not stored.
TEST_F(CallbackFailure, InTheHeaderCallbackLeavesTheOtherLines) {
    ScriptedServer& server =
        serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nX-Bad: 1\nX-Good: 2\r\nContent-Length: 0\r\n\r\n")});
    const Object connection = open(server.url("/"));
    failureOf([&] { receiveBytes(connection); });
    EXPECT_EQ(fieldTexts(connection.call("getResponseFields")), (Texts{"X-Good: 2", "Content-Length: 0"}));
    expectObjectUsable(connection);
}

// A field's value that holds line ends breaks the request's head in two, and what follows is no request line.
TEST_F(CallbackFailure, InTheParserOfTheRequestHead) {
    for (const std::int32_t level : {0, 2}) {
        ScriptedServer& server = serve({step::expectHead(), step::awaitPeerEnd()});
        const StandardOutputCapture output;
        const Object connection = open(server.url("/"));
        connection.set("Debug", level);
        connection.call("setRequestProperty", {"X-Broken", "1\r\n\r\nNoBlanks"});
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  "VANTIK:webservices:InternalError(No space found in request line)");
        connection.set("Debug", std::int32_t{0});
        expectObjectUsable(connection);
    }
}

TEST_F(CallbackFailure, InTheParserOfTheRequestHeadWhileContentIsSent) {
    struct Row {
        const char* Value;
        const char* Text;
    };
    for (const Row& row : {Row{"1\r\n\r\nNoBlanks", "No space found in request line"},
                           Row{"1\r\n\r\nOne blank", "Second space not found in request line"},
                           Row{"1\r\n\r\n\r\n", "Empty CRLF encountered when request line expected"}}) {
        ScriptedServer& server = serve({step::expectHead(), step::awaitPeerEnd()});
        const ScriptedProvider provider = makeScriptedProvider(host(), patternedBytes(100000));
        const Object connection = open(server.url("/"));
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", provider);
        connection.call("setRequestProperty", {"X-Broken", row.Value});
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  std::string("VANTIK:webservices:InternalError(") + row.Text + ")");
        expectObjectUsable(connection);
    }
}

// The server has taken the whole content and asks for credentials, so libcurl rewinds, which starts the provider again.
TEST_F(CallbackFailure, InTheSeekCallback) {
    const std::string challenge =
        response("", {"WWW-Authenticate: Digest realm=\"r\", nonce=\"abc\""}, "401 Unauthorized");
    ScriptedServer& server = serve(std::vector<Script>(
        2, {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(challenge)}));
    const ScriptedProvider provider = makeScriptedProvider(host(), patternedBytes(30000));
    provider->OnStart = [](int call) {
        if (call == 2) {
            throw std::domain_error("cannot start again");
        }
    };
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    connection.set("Username", "someone");
    connection.set("Password", "secret");
    connection.call("setAuthenticationSchemes",
                    {Array::enumeration("vantik.net.http.AuthenticationScheme", Texts{"Basic", "Digest"}), false});
    try {
        receiveBytes(connection);
        ADD_FAILURE() << "the provider's failure was lost";
    } catch (const std::domain_error& failure) {
        EXPECT_STREQ(failure.what(), "cannot start again");
    }
    EXPECT_EQ(provider->Starts, 2);
    expectObjectUsable(connection);
}

TEST_F(CallbackFailure, InTheSeekCallbackByAnInterruptOfTheHost) {
    const std::string challenge =
        response("", {"WWW-Authenticate: Digest realm=\"r\", nonce=\"abc\""}, "401 Unauthorized");
    ScriptedServer& server = serve(std::vector<Script>(
        2, {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(challenge)}));
    const ScriptedProvider provider = makeScriptedProvider(host(), "content");
    provider->OnStart = [this](int call) {
        if (call == 2) {
            host().interrupt();
        }
    };
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    connection.set("Username", "someone");
    connection.set("Password", "secret");
    connection.call("setAuthenticationSchemes",
                    {Array::enumeration("vantik.net.http.AuthenticationScheme", Texts{"Basic", "Digest"}), false});
    EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:ConnectionFailed");
    expectObjectUsable(connection);
}

// Many failures one behind the other leave nothing behind.
TEST_F(CallbackFailure, ManyInARow) {
    for (int round = 0; round < 10; ++round) {
        ScriptedServer& server =
            serve({step::expectHead(), step::send("HTTP/1.1 200 OK\nContent-Length: 4\r\n\r\nbody"), step::close()});
        const Object connection = open(server.url("/"));
        EXPECT_EQ(failureOf([&] { receiveBytes(connection); }).identifier(), "VANTIK:webservices:InternalError");
        connection.call("closeConnection");
    }
    expectScopeUsable();
}

} // namespace
