// What is different under HTTP/2: answers in the middle of an upload, silence, fields. nghttpx speaks it for servers
// whose every byte a test decides. Answers that go wrong: FaultTest.cpp.
#include "tests/integration/nginx/Nghttpx.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

namespace {

using namespace integrationtest;

class Http2 : public IntegrationFixture {
protected:
    // Every script is for one of nghttpx's connections to its backend. The last one is for expectUsable.
    Object openThrough(Script script, const std::string& path = "/", const std::vector<double>& limits = {}) {
        Backend = std::make_unique<ScriptedServer>(std::vector<Script>{
            std::move(script), {step::expectHead(), step::send(response("next")), step::awaitPeerEnd()}});
        Front = std::make_unique<Nghttpx>(Backend->port());
        return openAgain(path, limits);
    }
    Object openAgain(const std::string& path, const std::vector<double>& limits = {}) {
        return open(Front->url(path), {.CertificateFile = Front->certificateFile(), .Limits = limits});
    }
    // A further exchange through the same front.
    void expectUsable(const Object& used) {
        used.call("closeConnection");
        const Object next = openAgain("/next");
        EXPECT_EQ(receiveBytes(next), "next");
        EXPECT_EQ(resultTexts(next, "getStatusLine", 3), (Texts{"HTTP/2", "200", ""}));
        expectScopeUsable(next);
    }

    std::unique_ptr<ScriptedServer> Backend;
    std::unique_ptr<Nghttpx> Front;
};

// nghttpx resets the stream then. libcurl 7.88 loses what came just before that, so the backend waits for the client.
TEST_F(Http2, ContentThatBreaksOffIsAFailureUnlessTheStatusIsOne) {
    const std::string part = generated(50'000);
    for (const auto& [framing, end] : {std::pair{"Content-Length: 100000\r\n\r\n", step::close()},
                                       {"Transfer-Encoding: chunked\r\n\r\n186a0\r\n", step::reset()}}) {
        for (const int code : {200, 500}) {
            SCOPED_TRACE(framing + std::to_string(code));
            const Object connection = openThrough(
                {step::expectHead(), step::send("HTTP/1.1 " + std::to_string(code) + " Oh\r\n" + framing + part),
                 step::await("received"), end});
            const ScriptedConsumer consumer = makeScriptedConsumer(host());
            consumer->OnPut = [this](int, const std::string& piece) {
                Backend->raise("received");
                return Array(static_cast<double>(piece.size()));
            };
            connection.set("Consumer", consumer);
            const auto copy = [&] { connection.call("copyContentToByteArray", {false}); };
            if (code == 200) {
                EXPECT_EQ(describe(failureOf(copy)),
                          "VANTIK:webservices:CopyContentToDataStreamError(HTTP/2 stream 1 "
                          "was not closed cleanly: INTERNAL_ERROR (err 2) (CURLE code 92), " +
                              Front->url("/") + ")");
            } else {
                copy();
            }
            EXPECT_EQ(status(connection), code);
            EXPECT_EQ(digestOf(consumer->content()), digestOf(part.substr(0, consumer->content().size())));
            expectUsable(connection);
        }
    }
}

TEST_F(Http2, SilenceInTheMiddleOfTheContentIsATimeout) {
    const Object connection = openThrough(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + generated(50'000)),
         step::awaitPeerEnd()},
        "/", {30000, 30000, 3000});
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:Timeout(" + Front->url("/") +
                  ", 3.000, the server stopped sending, HTTPOptions.DataTimeout)");
    expectUsable(connection);
    EXPECT_TRUE(Backend->waitUntilDone(0).PeerEnded) << "nghttpx did not hear of it";
}

TEST_F(Http2, FieldsOfTheAnswerComeInOrderAndInLowerCase) {
    const Object connection = openThrough(
        {step::expectHead(),
         step::send(response("x", {"X-Twice: 1", "Set-Cookie: a=1", "X-Twice: 2, 3", "X-Empty:", "Set-Cookie: b=2"})),
         step::awaitPeerEnd()});
    EXPECT_EQ(receiveBytes(connection), "x");
    Texts fields = fieldTexts(connection.call("getResponseFields"));
    std::erase_if(fields, [](const std::string& field) {
        return field.starts_with("via: ") || field.starts_with("server: ") || field.starts_with("date: ");
    });
    EXPECT_EQ(fields, (Texts{"x-twice: 1", "set-cookie: a=1", "x-twice: 2, 3", "x-empty: ", "set-cookie: b=2",
                             "content-length: 1"}));
    EXPECT_EQ(field(connection, "X-Twice"), "1");
    EXPECT_EQ(connection.get("ResponsePayload").size(), 0U);
    expectScopeUsable(connection);
}

TEST_F(Http2, FieldsOfTheRequestArrive) {
    const std::string large(8000, 'v');
    const Object connection = openThrough({step::expectHead(), step::send(response("one")), step::expectHead(),
                                           step::send(response("two")), step::awaitPeerEnd()},
                                          "/a%20b?c=d");
    connection.call("setFields", {Array::structures({"Name", "Value"}, {{"X-First", "1"}, {"X-Large", large}})});
    EXPECT_EQ(receiveBytes(connection), "one");
    EXPECT_EQ(resultTexts(connection, "getRequestLine", 3)[2], "HTTP/2");
    connection.call("closeConnection");
    const Object second = openAgain("/second");
    EXPECT_EQ(receiveBytes(second), "two");
    const std::string head = Backend->record().Heads.at(0);
    EXPECT_EQ(startLine(head), "GET /a%20b?c=d HTTP/1.1");
    EXPECT_EQ(fieldValue(head, "X-First"), "1");
    EXPECT_EQ(fieldValue(head, "X-Large"), large);
    EXPECT_EQ(fieldValue(head, "Accept"), std::nullopt);
    EXPECT_EQ(fieldValue(Backend->record().Heads.at(1), "X-First"), std::nullopt);
    expectScopeUsable(second);
}

// Answers before the content is complete, and content that comes in pieces of a size.
class Http2EarlyAnswer : public Http2, public testing::WithParamInterface<std::uint64_t> {
protected:
    // Without `content` the upload has no end.
    Object openUpload(Script script, const std::string& content = {}) {
        const ScriptedProvider provider = makeScriptedProvider(host(), content);
        if (content.empty()) {
            provider->OnRead = [](int, std::uint64_t wanted) {
                return Array::bytes(std::string_view(std::string(wanted, 'x')));
            };
        }
        Object connection = openThrough(std::move(script));
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", provider);
        connection.set("ProviderBufferSize", GetParam());
        return connection;
    }
};

TEST_P(Http2EarlyAnswer, OfSuccessDoesNotStopTheContent) {
    const std::string content = generated(GetParam() == 1 ? 2'000 : 300'000);
    const Object connection =
        openUpload({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n"),
                    step::expectChunkedBody(), step::send("done"), step::awaitPeerEnd()},
                   content);
    EXPECT_EQ(receiveBytes(connection), "done");
    EXPECT_EQ(status(connection), 200);
    EXPECT_EQ(digestOf(Backend->record().Bodies.at(0)), digestOf(content));
    expectScopeUsable(connection);
}

// The page is complete only after its head has been seen: libcurl 7.88 would lose it otherwise. Progress is reported
// from the head on. The reset that follows the page may still cost its end there, which is reported.
TEST_P(Http2EarlyAnswer, OfRefusalEndsTheUpload) {
    const Object connection =
        openUpload({step::expectHead(), step::expectBody(1),
                    step::send("HTTP/1.1 413 Too Large\r\nConnection: close\r\nContent-Length: 8\r\n\r\ntoo "),
                    step::await("seen"), step::send("much"), step::awaitPeerEnd()});
    const auto reporter = makeScriptedReporter(host());
    reporter->OnUpdate = [this](int, std::uint64_t) {
        Backend->raise("seen");
        return Array(true);
    };
    connection.set("ProgressReporter", reporter);
    if (const std::string page = receiveBytes(connection); page != "too much") {
        EXPECT_THAT(std::string("too much"), testing::StartsWith(page));
        ASSERT_EQ(warnings().size(), 1U);
        EXPECT_EQ(warnings().front().identifier(), "VANTIK:webservices:PartialFileWarning");
    }
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), (Texts{"HTTP/2", "413", ""}));
    expectUsable(connection);
}

// The front answers with an error page and resets the stream, all in one. libcurl 7.88 reports the reset and loses
// the page, newer ones pass it on; neither is a success.
TEST_P(Http2EarlyAnswer, ResetInTheMiddleOfTheUploadIsAFailure) {
    const Object connection = openUpload({step::expectHead(), step::expectBody(1000), step::reset()});
    try {
        EXPECT_THAT(receiveBytes(connection), testing::HasSubstr("502 Bad Gateway"));
        EXPECT_EQ(status(connection), 502);
    } catch (const vantik::Failure& failure) {
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:CopyContentToDataStreamError");
        EXPECT_THAT(describe(failure.message()), testing::EndsWith("(CURLE code 92), " + Front->url("/") + ")"));
    }
    expectUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Pieces, Http2EarlyAnswer, testing::Values(1U, 16384U),
                         [](const auto& info) { return "By" + std::to_string(info.param); });

} // namespace
