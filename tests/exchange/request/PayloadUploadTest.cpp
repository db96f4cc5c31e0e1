// Request content from memory.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

class PayloadUpload : public HostFixture,
                      public ::testing::WithParamInterface<std::tuple<const char*, std::size_t, bool>> {};

// Framing comes from the fields alone: with a Content-Length the body follows as it is, without one it goes in chunks.
TEST_P(PayloadUpload, ArrivesWhole) {
    const auto [method, size, withLength] = GetParam();
    const std::string body = patternedBytes(size);
    ScriptedServer& server = serve({step::expectHead(), step::continueIfExpected(),
                                    withLength ? step::expectBody(size) : step::expectChunkedBody(),
                                    step::send(response("taken", {}, "201 Created"))});
    const Object connection = open(server.url("/up"));
    connection.set("RequestMethod", method);
    connection.set("Payload", Array::bytes(std::string_view(body)));
    if (withLength) {
        connection.call("setRequestProperty", {"Content-Length", std::to_string(size)});
    }
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(connection.get("ResponseCode").number(), 201.0);
    const Record record = server.record();
    EXPECT_EQ(startLine(record.Heads.at(0)), std::string(method) + " /up HTTP/1.1");
    EXPECT_EQ(difference(record.Bodies.at(0), body), "");
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Content-Length"),
              withLength ? std::optional(std::to_string(size)) : std::nullopt);
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Transfer-Encoding"),
              withLength ? std::nullopt : std::optional<std::string>("chunked"));
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Expect"), "100-continue");
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, PayloadUpload,
                         ::testing::Combine(::testing::Values("POST", "PUT", "PATCH", "PURGE"),
                                            ::testing::Values(1U, 16384U, 100000U, 1000000U), ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param)) + std::to_string(std::get<1>(info.param)) +
                                    (std::get<2>(info.param) ? "WithLength" : "InChunks");
                         });

class MemoryUpload : public HostFixture {};

TEST_F(MemoryUpload, EmptyPayloadIsNoContent) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("none"))});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "POST");
    EXPECT_EQ(receiveBytes(connection), "none");
    EXPECT_EQ(server.record().Received, "POST / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
    expectScopeUsable(connection);
}

// libcurl asks for an interim head where it does not know the length; a caller's empty field switches that off.
TEST_F(MemoryUpload, EmptyExpectFieldSendsTheContentAtOnce) {
    ScriptedServer& server = serve({step::expectHead(), step::expectChunkedBody(), step::send(response("taken"))});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes(std::string_view("content")));
    connection.call("removeField", {"Expect"});
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Expect"), std::nullopt);
    EXPECT_EQ(server.record().Bodies.at(0), "content");
    expectScopeUsable(connection);
}

TEST_F(MemoryUpload, ExpectIsSentAndTheInterimHeadIsDropped) {
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 100 Continue\r\nX-Interim: 1\r\n\r\n"),
                                    step::expectChunkedBody(), step::send(response("taken", {"X-Final: 1"}))});
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes(std::string_view("content")));
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Expect"), "100-continue");
    EXPECT_EQ(fieldTexts(connection.call("getResponseFields")),
              (std::vector<std::string>{"X-Final: 1", "Content-Length: 5"}));
    expectScopeUsable(connection);
}

TEST_F(MemoryUpload, PayloadSurvivesAReopen) {
    const Script exchange{step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(),
                          step::send(response("taken"))};
    Script twice = exchange;
    twice.insert(twice.end(), exchange.begin(), exchange.end());
    ScriptedServer& server = serve(twice);
    const Object connection = makeAdapter();
    connection.set("URL", server.url("/"));
    connection.set("Payload", Array::bytes(std::string_view("again")));
    for (int round = 0; round < 2; ++round) {
        connection.call("openConnection");
        connection.set("RequestMethod", "PUT");
        EXPECT_EQ(receiveBytes(connection), "taken");
    }
    EXPECT_EQ(server.record().Bodies, (std::vector<std::string>{"again", "again"}));
    expectScopeUsable(connection);
}

TEST_F(MemoryUpload, BadContentLengthIsRefusedBeforeAnythingIsSent) {
    ScriptedServer& server = serve({step::expectHead()});
    for (const std::string bad : {"12abc", "many", "99999999999999999999", "1 "}) {
        const Object connection = open(server.url("/"));
        connection.set("RequestMethod", "PUT");
        connection.set("Payload", Array::bytes(std::string_view("content")));
        connection.call("setRequestProperty", {"Content-Length", bad});
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  "VANTIK:webservices:InternalError(Bad Content-Length value " + bad + ")");
        EXPECT_EQ(server.connectionCount(), 0U);
        expectScopeUsable(connection);
    }
}

TEST_F(MemoryUpload, PayloadReadsBackAsAColumn) {
    const Object connection = makeAdapter();
    connection.set("Payload", Array::bytes(std::string_view("abc")));
    EXPECT_EQ(connection.get("Payload").dimensions(), (std::vector<std::size_t>{3, 1}));
    connection.set("Payload", Array());
    EXPECT_EQ(connection.get("Payload").size(), 0U);
}

} // namespace
