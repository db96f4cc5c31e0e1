// A failure in any of libcurl's callbacks reaches the caller, and the handles of the scope stay good: what unwound
// through libcurl's frames would leave them unusable for good. Real exchanges with a server.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"
#include "tests/transfer/ConnectionFixture.h"

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <streambuf>

namespace {

using testsupport::response;
using testsupport::Script;
using testsupport::ScriptedServer;
namespace step = testsupport::step;

std::u16string wide(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

// A standard output that fails at the first write that begins with a text: so each callback can be made to fail where
// it traces.
class FailingOutput : public std::streambuf {
public:
    explicit FailingOutput(std::string trigger) : Trigger(std::move(trigger)), Previous(std::cout.rdbuf(this)) {
        std::cout.exceptions(std::ios::badbit);
    }
    ~FailingOutput() override {
        std::cout.exceptions(std::ios::goodbit);
        std::cout.clear();
        std::cout.rdbuf(Previous);
    }
    bool failed() const { return Failed; }

private:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        const std::string_view written(text, static_cast<std::size_t>(length));
        if (!Failed && written.substr(0, Trigger.size()) == Trigger) {
            Failed = true;
            throw std::runtime_error("output failed");
        }
        return length;
    }

    std::string Trigger;
    std::streambuf* Previous;
    bool Failed = false;
};

class EscapedFailureTest : public ConnectionFixture {
protected:
    // A GET on a new connection in the same scope.
    void expectScopeUsable() {
        HTTPConnection connection;
        const ScriptedServer server(Script{step::expectHead(), step::send(response("fine"))});
        connection.Settings.HTTPOptionsMode = true;
        open(connection, wide(server.url()));
        connection.setRequestMethod("GET");
        std::ostringstream content;
        connection.copyContentToStream(content, true);
        EXPECT_EQ(connection.ReceivedHead.ResponseCode, 200);
        EXPECT_EQ(content.str(), "fine");
        EXPECT_EQ(connection.SentHead.EffectiveMethod, "GET");
    }
};

TEST_F(EscapedFailureTest, UnreadableStatusEndsTheSend) {
    {
        const ScriptedServer server(Script{step::expectHead(), step::send(response("x")), step::awaitPeerEnd()});
        HTTPConnection connection;
        connection.Settings.HTTPOptionsMode = true;
        open(connection, wide(server.url()));
        connection.setRequestMethod("GET");
        curl.failInfo(CURLINFO_RESPONSE_CODE, CURLE_UNKNOWN_OPTION);
        EXPECT_EQ(failureText([&] { connection.sendRequest(); }),
                  internalError(std::string("\"CURLINFO_RESPONSE_CODE\" failed with CURLcode ") +
                                curl_easy_strerror(CURLE_UNKNOWN_OPTION) + "getting response code after first header"));
        EXPECT_TRUE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.Transfer.ResponseDone);
        EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
        EXPECT_TRUE(connection.Transfer.TransferFailed);
        connection.closeConnection();
    }
    expectScopeUsable();
}

// A field's value that holds line ends: what libcurl sends is then no head that can be parsed.
TEST_F(EscapedFailureTest, HeadThatCannotBeParsedEndsTheSend) {
    {
        const ScriptedServer server(Script{step::expectHead(), step::awaitPeerEnd()});
        HTTPConnection connection;
        connection.Settings.HTTPOptionsMode = true;
        open(connection, wide(server.url()));
        connection.setRequestMethod("GET");
        connection.addField("X-A", "b\r\n\r\nword");
        EXPECT_EQ(failureText([&] { connection.sendRequest(); }), internalError("No space found in request line"));
        EXPECT_FALSE(connection.Transfer.ResponseDone);
        EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    }
    expectScopeUsable();
}

TEST_F(EscapedFailureTest, SameConnectionCanBeReopened) {
    const ScriptedServer server(
        {Script{step::expectHead(), step::awaitPeerEnd()}, Script{step::expectHead(), step::send(response("again"))}});
    HTTPConnection connection;
    connection.Settings.HTTPOptionsMode = true;
    open(connection, wide(server.url()));
    connection.setRequestMethod("GET");
    connection.addField("X-A", "b\r\n\r\nword");
    EXPECT_EQ(failureText([&] { connection.sendRequest(); }), internalError("No space found in request line"));
    connection.closeConnection();
    connection.openConnection();
    connection.setRequestMethod("GET");
    std::ostringstream content;
    connection.copyContentToStream(content, true);
    EXPECT_EQ(content.str(), "again");
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "GET") << "the second head is read from its request line on";
}

// Which write fails, and in which callback that is.
struct OutputRow {
    const char* Name;
    const char* Trigger;
    bool Upload;
};

class FailingTraceTest : public EscapedFailureTest, public ::testing::WithParamInterface<OutputRow> {};

TEST_P(FailingTraceTest, ReachesTheCallerFromEachCallback) {
    {
        const ScriptedServer server(Script{step::expectHead(), step::continueIfExpected(),
                                           step::send(response("content")), step::awaitPeerEnd()});
        HTTPConnection connection;
        connection.Settings.HTTPOptionsMode = true;
        open(connection, wide(server.url()));
        connection.setRequestMethod(GetParam().Upload ? "PUT" : "GET");
        if (GetParam().Upload) {
            connection.Settings.setPayload(RequestSettings::Bytes(100, 'x'));
        }
        connection.Settings.Debug = 1;
        const FailingOutput output(GetParam().Trigger);
        std::ostringstream content;
        const std::string failure = failureText([&] { connection.copyContentToStream(content, true); });
        EXPECT_TRUE(output.failed());
        EXPECT_EQ(failure, "HTTPConnectionFailedException[output failed]");
        EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
        connection.Settings.Debug = 0;
    }
    expectScopeUsable();
}

INSTANTIATE_TEST_SUITE_P(
    Callbacks, FailingTraceTest,
    ::testing::Values(OutputRow{"TraceOfText", "IN INFO", false}, OutputRow{"TraceOfHead", "OUT HDR", false},
                      OutputRow{"TraceOfContent", "IN DATA", false}, OutputRow{"EndOfHead", "...DONE", false},
                      OutputRow{"WriteCallback", "RECEIVING", false}, OutputRow{"ReadCallback", "SENDING 100", true}),
    [](const auto& info) { return info.param.Name; });

// The copier's callbacks keep what fails in them as the others do.
class EscapedSeekTest : public ConnectionFixture {};

TEST_F(EscapedSeekTest, FailingSeekIsKeptAndRefused) {
    HTTPConnection connection;
    InterruptibleStreamCopier copier(connection);
    connection.Settings.Debug = 1;
    {
        const FailingOutput output("RESETTING");
        EXPECT_EQ(curl.callSeek(0), CURL_SEEKFUNC_FAIL);
    }
    connection.Settings.Debug = 0;
    EXPECT_EQ(failureText(connection.Transfer.EscapedFailure), "std::runtime_error[output failed]");
}

TEST_F(EscapedSeekTest, NothingRunsBehindAKeptFailure) {
    HTTPConnection connection;
    connection.Settings.setPayload({1, 2, 3});
    InterruptibleStreamCopier copier(connection);
    connection.Transfer.EscapedFailure = std::make_exception_ptr(std::runtime_error("kept"));
    std::string buffer;
    EXPECT_EQ(curl.callRead(buffer, 3), std::size_t{CURL_READFUNC_ABORT}); // 0 would mean that the content is complete
    EXPECT_EQ(copier.SendPosition, 0u);
    EXPECT_EQ(curl.callWrite("abc"), 0u); // libcurl ends the transfer, which is lost anyway
    EXPECT_EQ(copier.ReceiveBuffer, "");
    EXPECT_FALSE(connection.Transfer.PerformDone);
    copier.SendPosition = 2;
    EXPECT_EQ(curl.callSeek(0), CURL_SEEKFUNC_FAIL);
    EXPECT_EQ(copier.SendPosition, 2u);
    EXPECT_EQ(failureText([&] { connection.rethrowEscapedFailure(); }), "std::runtime_error[kept]");
    EXPECT_EQ(failureText([&] { connection.rethrowEscapedFailure(); }), "nothing");
    EXPECT_EQ(curl.callRead(buffer, 2), 1u);
}

// libcurl may run the trace callback while a handle is removed or reset.
TEST_F(EscapedFailureTest, FailureDuringTheRemovalFailsTheOpen) {
    HTTPConnection connection;
    open(connection);
    playExchange("HTTP/1.1 204 No Content\r\n\r\n");
    connection.sendRequest();
    connection.closeConnection();
    curl.OnRemoveHandle = [&] {
        curl.callRequestHead("word\r\n");
        return CURLM_OK;
    };
    curl.clear();
    EXPECT_EQ(failureText([&] { connection.openConnection(); }), internalError("No space found in request line"));
    EXPECT_FALSE(connection.Transfer.Opened);
    EXPECT_THAT(handleCalls(), ElementsAre("curl_multi_remove_handle")); // at once, before anything else is done
    curl.OnRemoveHandle = nullptr;
    connection.openConnection();
    EXPECT_TRUE(connection.Transfer.Opened);
}

TEST_F(EscapedFailureTest, FailureDuringTheResetFailsTheOpen) {
    HTTPConnection connection;
    open(connection);
    playExchange("HTTP/1.1 204 No Content\r\n\r\n");
    connection.sendRequest();
    connection.closeConnection();
    curl.OnReset = [&] { curl.callRequestHead("word\r\n"); };
    curl.clear();
    EXPECT_EQ(failureText([&] { connection.openConnection(); }), internalError("No space found in request line"));
    EXPECT_FALSE(connection.Transfer.Opened);
    EXPECT_THAT(handleCalls(), ElementsAre("curl_multi_remove_handle", "curl_easy_reset"));
    curl.OnReset = nullptr;
    connection.openConnection();
    EXPECT_TRUE(connection.Transfer.Opened);
}

TEST_F(EscapedFailureTest, FailureDuringTheAttachmentFailsTheOpen) {
    HTTPConnection connection;
    open(connection);
    playExchange("HTTP/1.1 401 Unauthorized\r\n\r\n"); // behind it the callbacks stay
    connection.sendRequest();
    connection.closeConnection();
    curl.OnAddHandle = [&] {
        curl.callRequestHead("word\r\n");
        return CURLM_OK;
    };
    curl.clear();
    EXPECT_EQ(failureText([&] { connection.openConnection(); }), internalError("No space found in request line"));
    EXPECT_FALSE(connection.Transfer.Opened);
    EXPECT_THAT(handleCalls(), ElementsAre("curl_multi_remove_handle", "curl_multi_add_handle"));
    curl.OnAddHandle = nullptr;
    connection.openConnection();
    EXPECT_TRUE(connection.Transfer.Opened);
}

// A callback that ran in a libcurl call of somebody else, such as the destruction of another object.
TEST_F(EscapedFailureTest, FailureThatNobodyWaitedForIsForgottenByTheOpen) {
    HTTPConnection connection;
    open(connection);
    playExchange("HTTP/1.1 204 No Content\r\n\r\n");
    connection.sendRequest();
    curl.callRequestHead("word\r\n");
    connection.closeConnection();
    connection.openConnection();
    EXPECT_TRUE(connection.Transfer.Opened);
}

TEST_F(EscapedFailureTest, FailureThatNobodyWaitedForIsForgottenByTheSend) {
    HTTPConnection connection;
    open(connection);
    playExchange("HTTP/1.1 401 Unauthorized\r\n\r\n"); // behind it the callbacks stay
    connection.sendRequest();
    connection.closeConnection();
    connection.openConnection();
    curl.callRequestHead("word\r\n");
    playExchange("HTTP/1.1 204 No Content\r\n\r\n");
    EXPECT_EQ(failureText([&] { connection.sendRequest(); }), "nothing");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 204);
}

TEST_F(EscapedFailureTest, FailureDuringTheDestructionIsDropped) {
    {
        HTTPConnection connection;
        open(connection);
        playExchange("HTTP/1.1 204 No Content\r\n\r\n");
        connection.sendRequest();
        curl.OnRemoveHandle = [&] {
            curl.callRequestHead("word\r\n");
            return CURLM_OK;
        };
    }
    curl.OnRemoveHandle = nullptr;
    curl.OnPerform = nullptr;
    curl.OnWait = nullptr;
    curl.keepInfo(CURLINFO_RESPONSE_CODE);
    curl_multi_remove_handle(getCurlSingleton().MultiHandle, getCurlSingleton().EasyHandle);
    expectScopeUsable();
}

} // namespace
