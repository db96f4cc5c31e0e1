// What is different under HTTP/2: streams that are reset, answers in the middle of an upload, fields. nghttpx speaks it
// for servers whose every byte a test decides.
#include "tests/integration/nginx/Nghttpx.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace integrationtest;
using testsupport::fieldTexts;
using testsupport::fieldValue;
using testsupport::makeScriptedProvider;
using testsupport::makeScriptedReporter;
using testsupport::readFile;
using testsupport::response;
using testsupport::resultTexts;
using testsupport::Script;
using testsupport::ScriptedServer;
using testsupport::startLine;
using vantik::Array;
using vantik::Object;
namespace step = testsupport::step;

using Texts = std::vector<std::string>;

class Http2 : public IntegrationFixture {
protected:
    // Every script is for one of nghttpx's connections to its backend.
    Object openThrough(std::vector<Script> scripts, const std::string& path = "/") {
        Backend = std::make_unique<ScriptedServer>(std::move(scripts));
        Front = std::make_unique<Nghttpx>(Backend->port());
        return openAgain(path);
    }
    Object openAgain(const std::string& path) {
        Object connection = makeAdapter();
        connection.set("URL", Front->url(path));
        connection.set("CertificateFilename", Front->certificateFile());
        connection.call("openConnection");
        return connection;
    }
    // A further exchange by the same way, for which there has to be a script `nextAnswer`.
    void expectUsable(const Object& used) {
        used.call("closeConnection");
        const Object next = openAgain("/next");
        EXPECT_EQ(receiveBytes(next), "next");
        EXPECT_EQ(resultTexts(next, "getStatusLine", 3), (Texts{"HTTP/2", "200", ""}));
        expectScopeUsable(next);
    }
    static Script nextAnswer() { return {step::expectHead(), step::send(response("next")), step::awaitPeerEnd()}; }

    std::unique_ptr<ScriptedServer> Backend;
    std::unique_ptr<Nghttpx> Front;
};

// How a content is broken off after its first 50000 bytes.
struct BreakRow {
    const char* Name;
    std::string Head;
    testsupport::Step End;
};

const BreakRow kBreakRows[] = {
    {"OfAKnownLengthByClose", "Content-Length: 100000\r\n\r\n", step::close()},
    {"InChunksByReset", "Transfer-Encoding: chunked\r\n\r\n186a0\r\n", step::reset()},
};

// nghttpx then resets the stream. libcurl 7.88 loses what came just before that, so it is told to wait.
class Http2Break : public Http2, public ::testing::WithParamInterface<BreakRow> {
protected:
    void SetUp() override {
        Consumer->OnPut = [this](int, const std::string& piece) {
            Backend->raise("received");
            return Array(static_cast<double>(piece.size()));
        };
    }
    Object openBroken(const std::string& statusLine) {
        Object connection =
            openThrough({{step::expectHead(), step::send(statusLine + "\r\n" + GetParam().Head + generated(50'000)),
                          step::await("received"), GetParam().End},
                         nextAnswer()});
        connection.set("Consumer", Consumer);
        return connection;
    }

    const testsupport::ScriptedConsumer Consumer = testsupport::makeScriptedConsumer(host());
};

TEST_P(Http2Break, IsAFailure) {
    const Object connection = openBroken("HTTP/1.1 200 OK");
    EXPECT_EQ(describe(failureOf([&] { connection.call("copyContentToByteArray", {false}); })),
              "VANTIK:webservices:CopyContentToDataStreamError(HTTP/2 stream 1 was not closed cleanly: INTERNAL_ERROR "
              "(err 2) (CURLE code 92), " +
                  Front->url("/") + ")");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(digestOf(generated(50'000).substr(0, Consumer->content().size())), digestOf(Consumer->content()));
    expectUsable(connection);
}

// A status outside 200 to 299 is an answer, whatever becomes of its content.
TEST_P(Http2Break, OfAnErrorPageIsAnAnswer) {
    const Object connection = openBroken("HTTP/1.1 500 Oh");
    connection.call("copyContentToByteArray", {false});
    EXPECT_EQ(connection.get("ResponseCode").number(), 500.0);
    EXPECT_EQ(digestOf(generated(50'000).substr(0, Consumer->content().size())), digestOf(Consumer->content()));
    expectUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(OfContent, Http2Break, ::testing::ValuesIn(kBreakRows),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST_F(Http2, ServerThatClosesWithoutAnAnswerIsABadGateway) {
    const Object connection = openThrough({{step::expectHead(), step::close()}, nextAnswer()});
    EXPECT_NE(receiveBytes(connection).find("502 Bad Gateway"), std::string::npos);
    EXPECT_EQ(resultTexts(connection, "getStatusLine", 3), (Texts{"HTTP/2", "502", ""}));
    expectUsable(connection);
}

TEST_F(Http2, SilenceInTheMiddleOfTheContentIsATimeout) {
    const Object connection = openThrough(
        {{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + generated(50'000)),
          step::awaitPeerEnd()},
         nextAnswer()});
    connection.set("TimeoutInMilliseconds", Array::doubles({30000, 30000, 3000}));
    connection.call("openConnection"); // which takes the limits
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:Timeout(" + Front->url("/") +
                  ", 3.000, the server stopped sending, HTTPOptions.DataTimeout)");
    expectUsable(connection);
    EXPECT_TRUE(Backend->waitUntilDone(0).PeerEnded) << "nghttpx was not told";
}

TEST_F(Http2, FieldsOfTheAnswerComeInOrderAndInLowerCase) {
    const Object connection = openThrough(
        {{step::expectHead(),
          step::send(response("x", {"X-Twice: 1", "Set-Cookie: a=1", "X-Twice: 2, 3", "X-Empty:", "Set-Cookie: b=2"})),
          step::awaitPeerEnd()}});
    EXPECT_EQ(receiveBytes(connection), "x");
    Texts fields = fieldTexts(connection.call("getResponseFields"));
    std::erase_if(fields, [](const std::string& field) {
        return field.starts_with("via: ") || field.starts_with("server: ") || field.starts_with("date: ");
    });
    EXPECT_EQ(fields, (Texts{"x-twice: 1", "set-cookie: a=1", "x-twice: 2, 3", "x-empty: ", "set-cookie: b=2",
                             "content-length: 1"}));
    EXPECT_EQ(connection.call("getResponseField", {"X-Twice"}).text(), "1");
    EXPECT_EQ(connection.get("ResponsePayload").size(), 0U);
    expectScopeUsable(connection);
}

TEST_F(Http2, FieldsOfTheRequestArrive) {
    const std::string large(8000, 'v');
    const Object connection = openThrough({{step::expectHead(), step::send(response("one")), step::expectHead(),
                                            step::send(response("two")), step::awaitPeerEnd()}},
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
class Http2EarlyAnswer : public Http2, public ::testing::WithParamInterface<std::uint64_t> {
protected:
    Object openUpload(Script script, const testsupport::ScriptedProvider& provider) {
        Object connection = openThrough({std::move(script), nextAnswer()});
        connection.set("RequestMethod", "PUT");
        connection.set("Provider", provider);
        connection.set("ProviderBufferSize", GetParam());
        return connection;
    }
    testsupport::ScriptedProvider makeEndlessProvider() {
        auto provider = makeScriptedProvider(host());
        provider->OnRead = [](int, std::uint64_t wanted) {
            return Array::bytes(std::string_view(std::string(wanted, 'x')));
        };
        return provider;
    }
};

TEST_P(Http2EarlyAnswer, OfSuccessDoesNotStopTheContent) {
    const std::string content = generated(GetParam() == 1 ? 2'000 : 300'000);
    const Object connection =
        openUpload({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n"),
                    step::expectChunkedBody(), step::send("done"), step::awaitPeerEnd()},
                   makeScriptedProvider(host(), content));
    EXPECT_EQ(receiveBytes(connection), "done");
    EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    EXPECT_EQ(digestOf(Backend->record().Bodies.at(0)), digestOf(content));
    expectScopeUsable(connection);
}

// The page is complete only after its head has been seen: libcurl 7.88 would lose it otherwise. Progress is reported
// from the head on. The reset that follows the page may still cost its end there, which is reported.
TEST_P(Http2EarlyAnswer, OfRefusalEndsTheUpload) {
    const Object connection =
        openUpload({step::expectHead(), step::expectBody(1),
                    step::send("HTTP/1.1 413 Too Large\r\nConnection: close\r\nContent-Length: 8\r\n\r\ntoo "),
                    step::await("seen"), step::send("much"), step::awaitPeerEnd()},
                   makeEndlessProvider());
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
    const Object connection =
        openUpload({step::expectHead(), step::expectBody(1000), step::reset()}, makeEndlessProvider());
    try {
        EXPECT_THAT(receiveBytes(connection), testing::HasSubstr("502 Bad Gateway"));
        EXPECT_EQ(connection.get("ResponseCode").number(), 502.0);
    } catch (const vantik::Failure& failure) {
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:CopyContentToDataStreamError");
        EXPECT_THAT(describe(failure.message()), testing::EndsWith("(CURLE code 92), " + Front->url("/") + ")"));
    }
    expectUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Pieces, Http2EarlyAnswer, ::testing::Values(1U, 16384U),
                         [](const auto& info) { return "By" + std::to_string(info.param); });

} // namespace
