#include "tests/transfer/ConnectionFixture.h"

#include <algorithm>

namespace {

constexpr std::int64_t kStart = 1'000'000'000;

class HTTPConnectionCompletionTest : public ConnectionFixture {
protected:
    HTTPConnectionCompletionTest() {
        connection.Settings.HTTPOptionsMode = true;
        connection.setURL(u"http://host.example/a#part");
        connection.Settings.ProxyHost = "proxy.example";
        connection.Settings.CertificateFilename = "/ca.pem";
        connection.Metadata.ContentEncoding = "gzip";
        connection.SentHead.RequestHeaderLines = {"Host: h"};
        curl.setClock(kStart);
    }

    void reportStatus(long code, long connectCode = 0) {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, code);
        curl.giveInfo(CURLINFO_HTTP_CONNECTCODE, connectCode);
    }
    void setErrorText(const std::string& text) {
        text.copy(connection.Handles->ErrorBuffer, sizeof connection.Handles->ErrorBuffer - 1);
        connection.Handles->ErrorBuffer[text.size()] = '\0';
    }
    std::string complete(CURLcode result) {
        curl.finishWith(result);
        curl.clear();
        return failureText([&] { connection.checkCompletion(kStart); });
    }

    HTTPConnection connection;
};

// Status, whether a head was read, libcurl's result with its text, and what that means.
struct CompletionRow {
    const char* Name;
    long Status;
    bool Head;
    CURLcode Result;
    const char* ErrorText;
    const char* Failure;
};

class CompletionTest : public HTTPConnectionCompletionTest, public ::testing::WithParamInterface<CompletionRow> {};

TEST_P(CompletionTest, IsJudgedByStatusThenResult) {
    const CompletionRow& row = GetParam();
    reportStatus(row.Status);
    if (row.Head) {
        connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 " + std::to_string(row.Status)};
        connection.ReceivedHead.HeadersComplete = true;
    }
    setErrorText(row.ErrorText);
    EXPECT_EQ(complete(row.Result), row.Failure);
    EXPECT_EQ(warnings.size(), row.Result != CURLE_OK && std::string(row.Failure) == "nothing" ? 1U : 0U);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 0); // not changed here
}

constexpr const char* kNoCode = "VANTIK:webservices:InternalError[N:No response code and no error reported for "
                               "completed message]";
constexpr const char* kNoHead = "VANTIK:webservices:InternalError[N:Nonzero response code but no headers received]";
INSTANTIATE_TEST_SUITE_P(
    Results, CompletionTest,
    ::testing::Values(
        CompletionRow{"OkWithHead", 200, true, CURLE_OK, "", "nothing"},
        CompletionRow{"OkWithoutHead", 200, false, CURLE_OK, "", "nothing"},
        CompletionRow{"LastSuccessWithoutHead", 299, false, CURLE_OK, "", "nothing"},
        CompletionRow{"NoStatus", 0, false, CURLE_OK, "", kNoCode},
        CompletionRow{"NoStatusWithHead", 0, true, CURLE_OK, "", kNoCode},
        CompletionRow{"StatusWithHead", 404, true, CURLE_OK, "", "nothing"},
        CompletionRow{"StatusWithoutHead", 404, false, CURLE_OK, "", kNoHead},
        CompletionRow{"InterimWithoutHead", 199, false, CURLE_OK, "", kNoHead},
        CompletionRow{"RedirectWithoutHead", 300, false, CURLE_OK, "", kNoHead},
        CompletionRow{"StatusExcusesTheResult", 404, true, CURLE_RECV_ERROR, "broken", "nothing"},
        CompletionRow{"StatusExcusesEveryResult", 502, true, CURLE_OUT_OF_MEMORY, "", "nothing"},
        CompletionRow{"HeadIsNeededForThat", 404, false, CURLE_RECV_ERROR, "broken",
                      "HTTPConnectionRefusedException[broken]"},
        CompletionRow{"SuccessExcusesNothing", 200, true, CURLE_RECV_ERROR, "broken",
                      "HTTPConnectionRefusedException[broken]"},
        CompletionRow{"NoStatusExcusesNothing", 0, true, CURLE_RECV_ERROR, "broken",
                      "HTTPConnectionRefusedException[broken]"},
        CompletionRow{"MalformedUrl", 0, false, CURLE_URL_MALFORMAT, "x",
                      "HTTPURLException[http://host.example/a#part]"},
        CompletionRow{"UnknownProxy", 0, false, CURLE_COULDNT_RESOLVE_PROXY, "x", "HTTPDNSException[proxy.example]"},
        CompletionRow{"UnknownHost", 0, false, CURLE_COULDNT_RESOLVE_HOST, "x",
                      "HTTPDNSException[http://host.example/a#part]"},
        CompletionRow{"Refused", 0, false, CURLE_COULDNT_CONNECT, "Failed to connect: Connection refused",
                      "HTTPConnectionRefusedException[Failed to connect: Connection refused]"},
        CompletionRow{"RefusedInCapitals", 0, false, CURLE_COULDNT_CONNECT, "TIMED OUT",
                      "HTTPConnectionRefusedException[TIMED OUT]"},
        CompletionRow{"ConnectTimedOut", 0, false, CURLE_COULDNT_CONNECT, "Connection timed out",
                      "HTTPTimeoutException[Connection timed out, 0, HTTPOptions.ConnectTimeout]"},
        CompletionRow{"ConnectTimedOutInCapital", 0, false, CURLE_COULDNT_CONNECT, "Timed out",
                      "HTTPTimeoutException[Timed out, 0, HTTPOptions.ConnectTimeout]"},
        CompletionRow{"StoppedByTheWriteCallback", 200, true, CURLE_WRITE_ERROR, "", "nothing"},
        CompletionRow{"WriteErrorInDecoding", 200, true, CURLE_WRITE_ERROR, "Unrecognized content encoding type",
                      "VANTIK:webservices:DecodingError[N:gzip, N:Unrecognized content encoding type]"},
        CompletionRow{"EncodingIsMatchedInLowerCase", 200, true, CURLE_WRITE_ERROR, "Encoding",
                      "VANTIK:webservices:CopyContentToDataStreamError[N:Encoding, N:http://host.example/a#part]"},
        CompletionRow{"WriteError", 200, true, CURLE_WRITE_ERROR, "Failure writing output",
                      "VANTIK:webservices:CopyContentToDataStreamError[N:Failure writing output, "
                      "N:http://host.example/a#part]"},
        CompletionRow{"NoMemory", 0, false, CURLE_OUT_OF_MEMORY, "x",
                      "VANTIK:webservices:RandomError[N:http://host.example/a#part]"},
        CompletionRow{"AuthenticationFailed", 0, false, CURLE_AUTH_ERROR, "x",
                      "VANTIK:webservices:RandomError[N:http://host.example/a#part]"},
        CompletionRow{"TimedOut", 0, false, CURLE_OPERATION_TIMEDOUT, "Connection timed out after 5000 ms",
                      "HTTPTimeoutException[Connection timed out after 5000 ms, 5000, HTTPOptions.ConnectTimeout]"},
        CompletionRow{"TlsConnect", 0, false, CURLE_SSL_CONNECT_ERROR, "x",
                      "SSLException[x, http://host.example/a#part, /ca.pem]"},
        CompletionRow{"PeerNotVerified", 0, false, CURLE_PEER_FAILED_VERIFICATION, "x",
                      "SSLException[x, http://host.example/a#part, /ca.pem]"},
        CompletionRow{"BadCaFile", 0, false, CURLE_SSL_CACERT_BADFILE, "x",
                      "SSLException[x, http://host.example/a#part, /ca.pem]"},
        CompletionRow{"BadEncoding", 200, true, CURLE_BAD_CONTENT_ENCODING, "x",
                      "VANTIK:webservices:DecodingError[N:gzip, N:x]"},
        CompletionRow{"UnsupportedProtocol", 0, false, CURLE_UNSUPPORTED_PROTOCOL, "x",
                      "HTTPCopyStreamException[x (CURLE code 1)]"},
        CompletionRow{"SendError", 200, true, CURLE_SEND_ERROR, "x", "HTTPCopyStreamException[x (CURLE code 55)]"},
        CompletionRow{"GotNothing", 0, false, CURLE_GOT_NOTHING, "Empty reply",
                      "HTTPCopyStreamException[Empty reply (CURLE code 52)]"},
        CompletionRow{"AbortedByCallback", 200, true, CURLE_ABORTED_BY_CALLBACK, "",
                      "HTTPCopyStreamException[ (CURLE code 42)]"},
        CompletionRow{"BeyondTheTable", 0, false, static_cast<CURLcode>(95), "x",
                      "HTTPCopyStreamException[x (CURLE code 95)]"},
        CompletionRow{"FarBeyondTheTable", 0, false, static_cast<CURLcode>(120), "x",
                      "HTTPCopyStreamException[x (CURLE code 120)]"}),
    [](const auto& info) { return info.param.Name; });

TEST_F(HTTPConnectionCompletionTest, EveryResultOutsideTheTableTellsItsNumber) {
    const std::vector<int> listed{0, 3, 5, 6, 7, 18, 23, 27, 28, 35, 56, 60, 61, 77, 94};
    reportStatus(0);
    for (int result = 1; result <= 110; ++result) {
        if (std::find(listed.begin(), listed.end(), result) == listed.end()) {
            setErrorText("text");
            EXPECT_EQ(complete(static_cast<CURLcode>(result)),
                      "HTTPCopyStreamException[text (CURLE code " + std::to_string(result) + ")]");
        }
    }
}

TEST_F(HTTPConnectionCompletionTest, PartialContentIsAWarning) {
    reportStatus(200);
    connection.Metadata.ResponseBytesReceived = 5;
    connection.Metadata.ResponseContentLength = 10;
    setErrorText("transfer closed with 5 bytes remaining to read");
    EXPECT_EQ(complete(CURLE_PARTIAL_FILE), "nothing");
    EXPECT_THAT(warnings, ElementsAre("VANTIK:webservices:PartialFileWarning[N:5, N:10, N:transfer closed with 5 bytes "
                                      "remaining to read]"));
}

// A status that libcurl has read makes no response of a head that never ended.
TEST_F(HTTPConnectionCompletionTest, HeadWithoutItsEndIsAWarning) {
    const auto warned = [&](std::initializer_list<const char*> lines, CURLcode result, const std::string& text) {
        connection.ReceivedHead.begin();
        warnings.clear();
        for (std::string line : lines) {
            headerCallback(line.data(), 1, line.size(), &connection);
        }
        reportStatus(connection.ReceivedHead.ResponseCode);
        setErrorText(text);
        EXPECT_EQ(complete(result), "nothing");
        return warnings;
    };
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
    curl.giveInfo(CURLINFO_SIZE_DOWNLOAD_T, curl_off_t{0});
    curl.giveInfo(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, curl_off_t{-1});
    const std::string begin = "VANTIK:webservices:PartialFileWarning[N:0, N:-1, N:";
    EXPECT_THAT(warned({"HTTP/1.1 200 OK\r\n"}, CURLE_OK, ""),
                ElementsAre(begin + "The head of the response was cut.]"));
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
    EXPECT_THAT(warned({"HTTP/1.1 302 Found\r\n", "Location: /\r\n"}, CURLE_RECV_ERROR, "reset"),
                ElementsAre(begin + "reset]"));
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
    EXPECT_THAT(warned({"HTTP/1.1 103 Early Hints\r\n", "\r\n"}, CURLE_OK, ""),
                ElementsAre(begin + "No response came after an interim one.]"));
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
    EXPECT_THAT(warned({"HTTP/1.1 103 Early Hints\r\n", "\r\n", "HTTP/1.1 200 OK\r\n", "\r\n"}, CURLE_OK, ""),
                IsEmpty());
}

TEST_F(HTTPConnectionCompletionTest, TimeoutNamesTheOlderOption) {
    connection.Settings.HTTPOptionsMode = false;
    connection.setTimeouts({1234.5});
    reportStatus(0);
    setErrorText("late");
    EXPECT_EQ(complete(CURLE_OPERATION_TIMEDOUT), "HTTPTimeoutException[late, 1234.5, weboptions.Timeout]");
    setErrorText("timed out");
    EXPECT_EQ(complete(CURLE_COULDNT_CONNECT), "HTTPTimeoutException[timed out, 0, weboptions.Timeout]");
}

TEST_F(HTTPConnectionCompletionTest, ConnectTimeoutTellsTheTimeSinceTheStart) {
    reportStatus(0);
    setErrorText("timed out");
    curl.setClock(kStart + 3'000'000'000);
    EXPECT_EQ(complete(CURLE_COULDNT_CONNECT), "HTTPTimeoutException[timed out, 3000, HTTPOptions.ConnectTimeout]");
}

TEST_F(HTTPConnectionCompletionTest, AnswerToConnectCountsWhereTheServerNeverAnswered) {
    connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 407 Proxy Authentication Required"};
    reportStatus(0, 407);
    EXPECT_EQ(complete(CURLE_RECV_ERROR), "nothing");
    connection.ReceivedHead.ResponseHeaderLines.clear();
    EXPECT_EQ(complete(CURLE_OK), kNoHead);
    reportStatus(0, 200);
    EXPECT_EQ(complete(CURLE_OK), "nothing");
    reportStatus(404, 200); // the server's own answer comes first
    EXPECT_EQ(complete(CURLE_OK), kNoHead);
    EXPECT_EQ(curl.texts({CurlFunction::EasyGetinfo}), std::vector<std::string>{"CURLINFO_RESPONSE_CODE"});
}

TEST_F(HTTPConnectionCompletionTest, NothingIsJudgedWithoutAMessage) {
    curl.OnInfoRead = [](int&) -> CURLMsg* { return nullptr; };
    curl.clear();
    connection.SentHead.RequestHeaderLines.clear();
    connection.Transfer.RequestHeaders.append("X-A: b");
    EXPECT_EQ(failureText([&] { connection.checkCompletion(kStart); }), "nothing");
    EXPECT_EQ(curl.count(CurlFunction::EasyGetinfo), 0u);
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, IsEmpty());
}

TEST_F(HTTPConnectionCompletionTest, OtherMessagesAreIgnored) {
    curl.finishWith(CURLE_RECV_ERROR, CURLMSG_NONE);
    EXPECT_EQ(failureText([&] { connection.checkCompletion(kStart); }), "nothing");
    EXPECT_EQ(curl.count(CurlFunction::EasyGetinfo), 0u);
}

TEST_F(HTTPConnectionCompletionTest, OneMessageIsReadAndThenGone) {
    reportStatus(0);
    setErrorText("broken");
    EXPECT_EQ(complete(CURLE_RECV_ERROR), "HTTPConnectionRefusedException[broken]");
    EXPECT_EQ(curl.count(CurlFunction::MultiInfoRead), 1u);
    EXPECT_EQ(failureText([&] { connection.checkCompletion(kStart); }), "nothing");
}

TEST_F(HTTPConnectionCompletionTest, FailingInformationIsNamed) {
    const std::string text = curl_easy_strerror(CURLE_UNKNOWN_OPTION);
    reportStatus(0);
    curl.failInfo(CURLINFO_RESPONSE_CODE, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(complete(CURLE_OK), internalError("\"CURLINFO_RESPONSE_CODE\" failed with CURLcode " + text));
    curl.failInfo(CURLINFO_HTTP_CONNECTCODE, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(complete(CURLE_OK), internalError("\"CURLINFO_HTTP_CONNECTCODE\" failed with CURLcode " + text));
}

TEST_F(HTTPConnectionCompletionTest, RequestLinesFallBackToWhatWasConfigured) {
    reportStatus(200);
    connection.SentHead.RequestHeaderLines.clear();
    connection.Transfer.RequestHeaders.append("Accept:");
    connection.Transfer.RequestHeaders.append("X-A: b");
    connection.Transfer.RequestHeaders.append("X-B: c:");
    connection.Transfer.ProxyHeaders.append("Proxy-Connection: close");
    EXPECT_EQ(complete(CURLE_OK), "nothing");
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("X-A: b", "Proxy-Connection: close"));
    connection.Transfer.RequestHeaders.append("X-C: d");
    EXPECT_EQ(complete(CURLE_OK), "nothing"); // what is known stays
    EXPECT_EQ(connection.SentHead.RequestHeaderLines.size(), 2u);
}

// Before any status is read, so that it holds even if that fails.
TEST_F(HTTPConnectionCompletionTest, FallbackComesBeforeTheStatus) {
    connection.SentHead.RequestHeaderLines.clear();
    connection.Transfer.RequestHeaders.append("X-A: b");
    curl.failInfo(CURLINFO_RESPONSE_CODE, CURLE_UNKNOWN_OPTION);
    EXPECT_NE(complete(CURLE_OK), "nothing");
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("X-A: b"));
}

} // namespace
