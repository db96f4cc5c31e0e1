// Transfers that fail, and URLs that are refused: what the caller is told.
#include "tests/support/host/HostFixture.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <ostream>
#include <tuple>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

struct Row {
    const char* Name;
    std::string Sent;     // after the request's head
    bool Resets = false;  // then the connection is reset; otherwise closed
    std::string Key;      // of the failure
    std::string Argument; // contained in its first argument
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.Name;
}

std::vector<Row> rows() {
    const std::string unended = "CRLF not found at the end of the received headers";
    return {
        {"NoAnswer", "", false, "CopyContentToDataStreamError", "(CURLE code 52)"},
        {"ResetInPlaceOfAnAnswer", "", true, "ConnectionRefused", "http://127.0.0.1:"},
        {"ResetBehindAPartOfTheContent", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart", true, "ConnectionRefused",
         "http://127.0.0.1:"},
        {"NoHttp", "220 mail.example ESMTP\r\n\r\n", false, "CopyContentToDataStreamError", "(CURLE code 1)"},
        {"LineFeedAlone", "HTTP/1.1 200 OK\r\nX-A: 1\nContent-Length: 4\r\n\r\nbody", false, "InternalError", unended},
        {"LineFeedAloneInTheStatusLine", "HTTP/1.1 200 OK\nContent-Length: 4\r\n\r\nbody", false, "InternalError",
         unended},
        {"LineFeedsOnly", "HTTP/1.1 200 OK\nContent-Length: 4\n\nbody", false, "InternalError", unended},
        {"LineFeedAloneOfAFailedStatus", "HTTP/1.1 500 Bad\r\nX-A: 1\nContent-Length: 0\r\n\r\n", false,
         "InternalError", unended},
        {"BrokenCompression", response("this is not gzip", {"Content-Encoding: gzip"}), false, "DecodingError", "gzip"},
        {"UnknownCompression", response("body", {"Content-Encoding: fancy"}), false, "DecodingError", "fancy"},
    };
}

class FailedTransfer : public HostFixture, public ::testing::WithParamInterface<std::tuple<Row, Pace>> {};

TEST_P(FailedTransfer, TellsWhatWentWrong) {
    const auto& [row, pace] = GetParam();
    ScriptedServer& server =
        serve({step::expectHead(), step::send(row.Sent), row.Resets ? step::reset() : step::close()}, pace);
    const Object connection = open(server.url("/"));
    const vantik::Message message = failureOf([&] { receiveBytes(connection); });
    EXPECT_EQ(message.identifier(), "VANTIK:webservices:" + row.Key) << message.Text;
    ASSERT_FALSE(message.Arguments.empty());
    EXPECT_NE(std::get<std::string>(message.Arguments[0]).find(row.Argument), std::string::npos) << describe(message);
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, FailedTransfer,
                         ::testing::Combine(::testing::ValuesIn(rows()),
                                            ::testing::Values(Pace::Whole, Pace::SingleBytes)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) +
                                    (std::get<1>(info.param) == Pace::Whole ? "Whole" : "InSingleBytes");
                         });

class Unreachable : public HostFixture {};

TEST_F(Unreachable, RefusedConnection) {
    const RefusingPort refusing;
    for (const bool optionsMode : {true, false}) {
        const Object connection = open(refusing.url("/"), optionsMode);
        const vantik::Message message = failureOf([&] { receiveBytes(connection); });
        EXPECT_EQ(message.identifier(), "VANTIK:webservices:ConnectionRefused");
        ASSERT_EQ(message.Arguments.size(), 2U);
        EXPECT_EQ(std::get<std::string>(message.Arguments[0]), refusing.url("/"));
        EXPECT_NE(std::get<std::string>(message.Arguments[1]), "");
        expectScopeUsable(connection);
    }
}

TEST_F(Unreachable, FieldsOfARequestThatNeverLeftAreThoseThatWereSet) {
    const RefusingPort refusing;
    const Object connection = open(refusing.url("/"));
    connection.call("setRequestProperty", {"X-Set", "1"});
    connection.call("setRequestProperty", {"X-Removed", ""});
    failureOf([&] { receiveBytes(connection); });
    EXPECT_EQ(fieldTexts(connection.call("getRequestFields")), (std::vector<std::string>{"X-Set: 1"}));
    expectScopeUsable(connection);
}

TEST_F(Unreachable, UnknownHost) {
    const std::string url = "http://no-such-host.invalid/"; // reserved: never in use anywhere
    const Object connection = makeAdapter();
    connection.set("URL", url);
    connection.set("TimeoutInMilliseconds", Array::doubles({60000}));
    connection.call("openConnection");
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })), "VANTIK:webservices:UnknownHost(" + url + ")");
    expectScopeUsable(connection);
}

struct UrlRow {
    const char* Url;
    const char* Failure;
};

TEST_F(Unreachable, UrlsThatAreRefused) {
    for (const UrlRow& row : {
             UrlRow{"www.example.test/p", "VANTIK:webservices:MalformedURL(\"www.example.test/p\" (no protocol))"},
             UrlRow{"ftp://example.test/p",
                    "VANTIK:webservices:ExpectedProtocol(ftp, ftp://example.test/p, http, https)"},
             UrlRow{"file:///etc/hostname",
                    "VANTIK:webservices:ExpectedProtocol(file, file:///etc/hostname, http, https)"},
             UrlRow{"http://exa mple.test/", "VANTIK:webservices:MalformedURL(http://exa mple.test/)"},
             UrlRow{"http://example.test:99999/", "VANTIK:webservices:MalformedURL(http://example.test:99999/)"},
             UrlRow{"http://[::1/", "VANTIK:webservices:MalformedURL(http://[::1/)"},
         }) {
        const Object connection = makeAdapter();
        EXPECT_EQ(describe(failureOf([&] { connection.set("URL", row.Url); })), row.Failure);
        EXPECT_EQ(connection.get("URL").text(), "") << "the old one stays";
        expectScopeUsable(connection);
    }
}

TEST_F(Unreachable, UrlWithoutAHostFailsAtTheOpen) {
    const Object connection = makeAdapter();
    connection.set("URL", "http:///path");
    const std::string url = connection.get("URL").text();
    EXPECT_EQ(describe(failureOf([&] { connection.call("openConnection"); })),
              "VANTIK:webservices:FileNotFound(" + url + ")");
    makeAdapter();
    expectScopeUsable(connection);
}

struct TlsRow {
    const char* CertificateFile;
    const char* Key;
};

// The server speaks no TLS, or the named file of certificates does not exist.
TEST_F(Unreachable, FailedTlsHandshake) {
    for (const TlsRow& row : {TlsRow{"", "SSLConnectionNoFile"}, TlsRow{"default", "SSLConnectionSystemFailure"},
                              TlsRow{"/nonexistent/ca.pem", "SSLConnectionFailure"}}) {
        ScriptedServer& server = serve({step::send("this is no TLS\r\n"), step::awaitPeerEnd()});
        const Object connection = makeAdapter();
        const std::string url = "https://" + server.authority() + "/";
        connection.set("URL", url);
        connection.set("CertificateFilename", row.CertificateFile);
        connection.call("openConnection");
        const vantik::Message message = failureOf([&] { receiveBytes(connection); });
        EXPECT_EQ(message.identifier(), std::string("VANTIK:webservices:") + row.Key) << message.Text;
        ASSERT_GE(message.Arguments.size(), 2U);
        EXPECT_EQ(std::get<std::string>(message.Arguments[0]), url);
        EXPECT_NE(std::get<std::string>(message.Arguments[1]), "");
        expectScopeUsable(connection);
    }
}

} // namespace
