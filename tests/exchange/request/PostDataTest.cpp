// Text content of the older interface: encoded on send by the charset of the request's Content-Type.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

using namespace testsupport;
using vantik::Object;

struct Row {
    const char* Name;
    const char* Method;
    const char* ContentType; // null: no such field
    std::string Bytes;       // of the text "naïve €" on the wire
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.Name;
}

const std::u16string kText = u"na\u00efve \u20ac";
const std::string kUtf8 = "na\xc3\xafve \xe2\x82\xac";

class PostData : public HostFixture, public ::testing::WithParamInterface<Row> {};

TEST_P(PostData, IsEncodedAndItsLengthAnnounced) {
    const Row& row = GetParam();
    ScriptedServer& server = serve({step::expectHead(), step::continueIfExpected(), step::expectBody(row.Bytes.size()),
                                    step::send(response("taken"))});
    const Object connection = open(server.url("/"), false);
    connection.set("RequestMethod", row.Method);
    if (row.ContentType != nullptr) {
        connection.call("setRequestProperty", {"Content-Type", row.ContentType});
    }
    connection.set("PostData", std::u16string_view(kText));
    EXPECT_EQ(receiveBytes(connection), "taken");
    const Record record = server.record();
    EXPECT_EQ(record.Bodies.at(0), row.Bytes);
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Content-Length"), std::to_string(row.Bytes.size()));
    EXPECT_EQ(fieldValue(record.Heads.at(0), "Transfer-Encoding"), std::nullopt);
    EXPECT_EQ(startLine(record.Heads.at(0)), std::string(row.Method) + " / HTTP/1.1");
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PostData,
    ::testing::Values(Row{"Utf8", "POST", "text/plain; charset=utf-8", kUtf8},
                      Row{"Windows1252", "PUT", "text/plain; charset=windows-1252", "na\xefve \x80"},
                      Row{"QuotedCharset", "PATCH", "text/plain; charset=\"UTF-8\"; x=y", kUtf8},
                      Row{"NoCharset", "POST", "application/json", kUtf8}, Row{"NoContentType", "POST", nullptr, kUtf8}),
    [](const auto& info) { return std::string(info.param.Name); });

class OlderMode : public HostFixture {};

TEST_F(OlderMode, TextThatTheCharsetLacksIsRefused) {
    ScriptedServer& server = serve({step::expectHead()});
    const Object connection = open(server.url("/"), false);
    connection.set("RequestMethod", "POST");
    connection.call("setRequestProperty", {"Content-Type", "text/plain; charset=ISO-8859-1"});
    connection.set("PostData", std::u16string_view(kText));
    const vantik::Message message = failureOf([&] { receiveBytes(connection); });
    EXPECT_EQ(message.identifier(), "VANTIK:webservices:EncodingFailure");
    ASSERT_EQ(message.Arguments.size(), 3U);
    EXPECT_EQ(std::get<std::string>(message.Arguments[0]), kUtf8);
    EXPECT_EQ(std::get<std::string>(message.Arguments[1]), "ISO-8859-1");
    EXPECT_EQ(server.connectionCount(), 0U);
    expectScopeUsable(connection);
}

TEST_F(OlderMode, GetDoesNotSendTheText) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("got"))});
    const Object connection = open(server.url("/"), false);
    connection.set("RequestMethod", "GET");
    connection.set("PostData", "unused");
    EXPECT_EQ(receiveBytes(connection), "got");
    EXPECT_EQ(server.record().Received, "GET / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
    expectScopeUsable(connection);
}

TEST_F(OlderMode, EmptyTextIsAnnouncedAsNoBytes) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("taken"))});
    const Object connection = open(server.url("/"), false);
    connection.set("RequestMethod", "POST");
    EXPECT_EQ(receiveBytes(connection), "taken");
    EXPECT_EQ(fieldValue(server.record().Heads.at(0), "Content-Length"), "0");
    expectScopeUsable(connection);
}

TEST_F(OlderMode, TheNewerInterfaceDoesNotSendTheText) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("got"))});
    const Object connection = open(server.url("/"), true);
    connection.set("RequestMethod", "PUT");
    connection.set("PostData", "unused");
    EXPECT_EQ(receiveBytes(connection), "got");
    EXPECT_EQ(server.record().Received, "PUT / HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
    expectScopeUsable(connection);
}

TEST_F(OlderMode, StatusOutsideSuccessIsAFailure) {
    ScriptedServer& server = serve({step::expectHead(), step::send(response("gone", {}, "404 Not Found"))});
    const Object connection = open(server.url("/missing"), false);
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:StatusError(404, Not Found, " + server.url("/missing") + ")");
    EXPECT_EQ(connection.get("ResponseCode").number(), 404.0);
    expectScopeUsable(connection);
}

TEST_F(OlderMode, StatusWithoutReasonIsAFailureToo) {
    ScriptedServer& server = serve({step::expectHead(), step::send("HTTP/1.1 500\r\nContent-Length: 0\r\n\r\n")});
    const Object connection = open(server.url("/"), false);
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:StatusError(500, , " + server.url("/") + ")");
    expectScopeUsable(connection);
}

} // namespace
