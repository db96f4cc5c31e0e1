// What the end of a transfer means: status and head first, then libcurl's result; and what is read from the response.
#include "tests/transfer/ConnectionFixture.h"

#include <algorithm>

namespace {

constexpr std::int64_t kStart = 1'000 * kMs;
const std::string kNoStatus = internalError("No response code and no error reported for completed message");
const std::string kNoHead = internalError("Nonzero response code but no headers received");
const std::string kCopied = "VANTIK:webservices:CopyContentToDataStreamError";
const std::string kDecoding = "VANTIK:webservices:DecodingError";
const std::string kTls = "SSLException[x, http://127.0.0.1/, /ca.pem]";
const std::string kRandom = "VANTIK:webservices:RandomError[N:http://127.0.0.1/]";

// libcurl's result with its text, and the failure where no status excuses it; "nothing" is a warning.
struct ResultRow {
    int Result;
    std::string Text;
    std::string Failure;
};

// The one table of libcurl's results. Every other one is a failed copy that names its number.
const std::vector<ResultRow>& results() {
    static const std::vector<ResultRow> table = [] {
        std::vector<ResultRow> rows{
            {CURLE_URL_MALFORMAT, "x", "HTTPURLException[http://127.0.0.1/]"},
            {CURLE_COULDNT_RESOLVE_PROXY, "x", "HTTPDNSException[proxy.example]"},
            {CURLE_COULDNT_RESOLVE_HOST, "x", "HTTPDNSException[http://127.0.0.1/]"},
            {CURLE_COULDNT_CONNECT, "", "HTTPConnectionRefusedException[Unknown exception]"},
            {CURLE_COULDNT_CONNECT, "Failed: Connection refused",
             "HTTPConnectionRefusedException[Failed: Connection refused]"},
            {CURLE_COULDNT_CONNECT, "TIMED OUT", "HTTPConnectionRefusedException[TIMED OUT]"},
            {CURLE_COULDNT_CONNECT, "Timed out",
             "HTTPTimeoutException[Timed out, 2000, HTTPOptions.ConnectTimeout]"}, // since the start
            {CURLE_COULDNT_CONNECT, "Connection timed out",
             "HTTPTimeoutException[Connection timed out, 2000, HTTPOptions.ConnectTimeout]"},
            {CURLE_OPERATION_TIMEDOUT, "late",
             "HTTPTimeoutException[late, 1234.5, HTTPOptions.ConnectTimeout]"}, // the limit
            {CURLE_PARTIAL_FILE, "", "nothing"},
            {CURLE_PARTIAL_FILE, "5 bytes remaining to read", "nothing"},
            {CURLE_WRITE_ERROR, "", "nothing"},
            {CURLE_WRITE_ERROR, "Unrecognized content encoding type",
             kDecoding + "[N:gzip, N:Unrecognized content encoding type]"},
            {CURLE_WRITE_ERROR, "Encoding", kCopied + "[N:Encoding, N:http://127.0.0.1/]"}, // exactly in lower case
            {CURLE_OUT_OF_MEMORY, "x", kRandom},
            {CURLE_AUTH_ERROR, "x", kRandom},
            {CURLE_SSL_CONNECT_ERROR, "x", kTls},
            {CURLE_PEER_FAILED_VERIFICATION, "x", kTls},
            {CURLE_SSL_CACERT_BADFILE, "x", kTls},
            {CURLE_RECV_ERROR, "Connection timed out", "HTTPConnectionRefusedException[Connection timed out]"},
            {CURLE_BAD_CONTENT_ENCODING, "", kDecoding + "[N:gzip, N:]"},
            {CURLE_BAD_CONTENT_ENCODING, "x", kDecoding + "[N:gzip, N:x]"},
        };
        const std::vector<ResultRow> named = rows;
        for (int result = 1; result <= 127; ++result) { // as far as the type of the numbers goes
            if (std::none_of(named.begin(), named.end(), [&](const auto& row) { return row.Result == result; })) {
                for (const std::string text : {"", "an encoding timed out"}) {
                    rows.push_back(
                        {result, text,
                         "HTTPCopyStreamException[" + text + " (CURLE code " + std::to_string(result) + ")]"});
                }
            }
        }
        return rows;
    }();
    return table;
}

// The same in the older interface, as far as it differs.
const ResultRow kResultsInTheOlderInterface[] = {
    {CURLE_COULDNT_CONNECT, "timed out", "HTTPTimeoutException[timed out, 2000, weboptions.Timeout]"},
    {CURLE_OPERATION_TIMEDOUT, "late", "HTTPTimeoutException[late, 1234.5, weboptions.Timeout]"},
};

class HTTPConnectionCompletionTest : public OpenConnectionFixture {
protected:
    HTTPConnectionCompletionTest() {
        connection.setTimeouts({1234.5});
        connection.Settings.ProxyHost = "proxy.example";
        connection.Settings.CertificateFilename = "/ca.pem";
        connection.SentHead.RequestHeaderLines = {"Host: h"};
        curl.setClock(kStart + 2'000 * kMs);
        reportStatus(0);
        curl.giveInfo(CURLINFO_SIZE_DOWNLOAD_T, curl_off_t{5});
        curl.giveInfo(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, curl_off_t{10});
    }

    void reportStatus(long code, long connectCode = 0) {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, code);
        curl.giveInfo(CURLINFO_HTTP_CONNECTCODE, connectCode);
    }
    std::string check() {
        return failureText([&] { connection.checkCompletion(kStart); });
    }
    std::string complete(int result, const std::string& text = "") {
        setErrorText(text);
        curl.finishWith(static_cast<CURLcode>(result));
        curl.clear();
        return check();
    }
    // The numbers are those of the end of the send, or where that has not come, those of now.
    static std::string partWarning(const std::string& text, const std::string& numbers = "N:5, N:10") {
        return "VANTIK:webservices:PartialFileWarning[" + numbers + ", N:" + text + "]";
    }
};

struct StatusRow {
    const char* Name;
    long Status;
    long ConnectStatus; // of a proxy's answer to CONNECT
    bool Head;          // complete
    std::string WhenOk; // the failure where libcurl reports none
    bool ExcusesResult = false;
};

const StatusRow kStatuses[] = {
    {"NoStatus", 0, 0, false, kNoStatus},
    {"NoStatusWithHead", 0, 0, true, kNoStatus},
    {"Success", 200, 0, false, "nothing"},
    {"SuccessWithHead", 200, 0, true, "nothing"},
    {"LastSuccessWithHead", 299, 0, true, "nothing"},
    {"BelowSuccess", 199, 0, false, kNoHead},
    {"BelowSuccessWithHead", 199, 0, true, "nothing", true},
    {"AboveSuccess", 300, 0, false, kNoHead},
    {"AboveSuccessWithHead", 300, 0, true, "nothing", true},
    {"NotFound", 404, 0, false, kNoHead},
    {"NotFoundWithHead", 404, 0, true, "nothing", true},
    {"RefusedByTheProxy", 0, 407, false, kNoHead},
    {"RefusedByTheProxyWithHead", 0, 407, true, "nothing", true},
    {"TunnelOpened", 0, 200, false, "nothing"},
    {"TunnelOpenedWithHead", 0, 200, true, "nothing"},
    {"ServersStatusComesFirst", 404, 200, false, kNoHead},
};

class CompletionOfStatus : public HTTPConnectionCompletionTest, public ::testing::WithParamInterface<StatusRow> {};

TEST_P(CompletionOfStatus, IsJudgedByTheStatusAndThenByTheResult) {
    const StatusRow& status = GetParam();
    reportStatus(status.Status, status.ConnectStatus);
    if (status.Head) {
        connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 999 Not consulted", "Content-Encoding: gzip"};
        connection.ReceivedHead.HeadersComplete = true;
    }
    const auto expectFailure = [&](const ResultRow& row) {
        SCOPED_TRACE("result " + std::to_string(row.Result) + ", text \"" + row.Text + '"');
        warnings.clear();
        connection.Metadata.ContentEncoding = "gzip";
        connection.Metadata.ResponseBytesReceived = 1;
        connection.Metadata.ResponseContentLength = 2;
        const std::string failure = row.Result == 0 ? status.WhenOk : status.ExcusesResult ? "nothing" : row.Failure;
        EXPECT_EQ(complete(row.Result, row.Text), failure);
        if (failure != "nothing" || row.Result == 0) {
            EXPECT_THAT(warnings, IsEmpty());
        } else if (row.Result == CURLE_PARTIAL_FILE && !status.ExcusesResult) {
            EXPECT_THAT(warnings, ElementsAre(partWarning(row.Text, "N:1, N:2")));
        } else {
            const std::string ours = row.Result == CURLE_WRITE_ERROR
                                         ? "The content goes on after the end of its compressed data."
                                         : curl_easy_strerror(static_cast<CURLcode>(row.Result));
            EXPECT_THAT(warnings, ElementsAre(partWarning(row.Text.empty() ? ours : row.Text)));
        }
        // The message is gone, whatever it meant, and the heads are as they were.
        EXPECT_EQ(check(), "nothing");
        EXPECT_EQ(connection.ReceivedHead.ResponseCode, 0);
        EXPECT_EQ(connection.ReceivedHead.ResponseHeaderLines.size(), status.Head ? 2U : 0U);
        EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("Host: h"));
        EXPECT_EQ(connection.Transfer.Fault == TransferFault::Failed, failure != "nothing");
        connection.Transfer.Fault = TransferFault::None;
    };
    expectFailure({CURLE_OK, "", ""});
    for (const ResultRow& row : results()) {
        expectFailure(row);
    }
    connection.Settings.HTTPOptionsMode = false;
    for (const ResultRow& row : kResultsInTheOlderInterface) {
        expectFailure(row);
    }
}

INSTANTIATE_TEST_SUITE_P(Statuses, CompletionOfStatus, ::testing::ValuesIn(kStatuses),
                         [](const auto& info) { return info.param.Name; });

// A status that libcurl has read does not make a response of a head that never ended.
TEST_F(HTTPConnectionCompletionTest, HeadWithoutItsEndOrThatOfItsContentIsAWarning) {
    CURL* const easy = connection.Handles->EasyHandle;
    setOption(easy, CURL_NAMED(CURLOPT_HEADERDATA), &connection);
    setOption(easy, CURL_NAMED(CURLOPT_HEADERFUNCTION), &headerCallback);
    const auto warned = [&](const std::string& head, CURLcode result, const std::string& text) {
        connection.ReceivedHead.begin();
        warnings.clear();
        reportStatus(0); // so that status lines are read
        curl.callResponseHead(head);
        reportStatus(connection.ReceivedHead.ResponseCode);
        EXPECT_EQ(complete(result, text), "nothing");
        return warnings;
    };
    EXPECT_THAT(warned("HTTP/1.1 200 OK\r\n", CURLE_OK, ""),
                ElementsAre(partWarning("The head of the response was cut.")));
    EXPECT_THAT(warned("HTTP/1.1 302 Found\r\nLocation: /\r\n", CURLE_RECV_ERROR, "reset"),
                ElementsAre(partWarning("reset")));
    EXPECT_THAT(warned("HTTP/1.1 103 Early Hints\r\n\r\n", CURLE_OK, ""),
                ElementsAre(partWarning("No response came after an interim one.")));
    EXPECT_THAT(warned("HTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 200 OK\r\n\r\n", CURLE_OK, ""), IsEmpty());
    EXPECT_THAT(warned("HTTP/1.1 200 OK\r\nContent-Length: 4\r\nContent-Length: 6\r\n\r\n", CURLE_OK, ""),
                ElementsAre(partWarning("The head of the response does not say for certain where its content ends.")));
}

TEST_F(HTTPConnectionCompletionTest, NothingIsJudgedWithoutAMessageOfTheEnd) {
    connection.SentHead.RequestHeaderLines.clear();
    connection.Transfer.RequestHeaders.append("X-A: b");
    curl.clear();
    curl.OnInfoRead = [](int&) -> CURLMsg* { return nullptr; };
    EXPECT_EQ(check(), "nothing");
    curl.OnInfoRead = nullptr;
    curl.finishWith(CURLE_RECV_ERROR, CURLMSG_NONE);
    EXPECT_EQ(check(), "nothing");
    EXPECT_EQ(curl.count(CurlFunction::EasyGetinfo), 0u);
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, IsEmpty());
}

TEST_F(HTTPConnectionCompletionTest, RequestLinesFallBackToWhatWasConfigured) {
    reportStatus(200);
    connection.SentHead.RequestHeaderLines.clear();
    connection.Transfer.RequestHeaders.append("Accept:");
    connection.Transfer.RequestHeaders.append("X-A: b");
    connection.Transfer.RequestHeaders.append("X-B: c:");
    connection.Transfer.ProxyHeaders.append("Proxy-Connection: close");
    curl.failInfo(CURLINFO_RESPONSE_CODE, CURLE_UNKNOWN_OPTION); // before any status is read, so even if that fails
    EXPECT_EQ(complete(CURLE_OK), easyFailure("CURLINFO_RESPONSE_CODE", CURLE_UNKNOWN_OPTION));
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("X-A: b", "Proxy-Connection: close"));
    connection.Transfer.RequestHeaders.append("X-C: d");
    EXPECT_EQ(complete(CURLE_OK), "nothing"); // what is known stays
    EXPECT_EQ(connection.SentHead.RequestHeaderLines.size(), 2u);
}

TEST_F(HTTPConnectionCompletionTest, UnreadableStatusOfAProxyIsNamed) {
    curl.failInfo(CURLINFO_HTTP_CONNECTCODE, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(complete(CURLE_OK), easyFailure("CURLINFO_HTTP_CONNECTCODE", CURLE_UNKNOWN_OPTION));
}

// What is read from a response.

class ResponseMetadataTest : public ConnectionFixture {
protected:
    ResponseMetadataTest() {
        connection.setURL(u"http://host.example/a/b");
        connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 302 Found", "content-encoding: br",
                                                       "Content-Encoding: gzip", "Location: ../x"};
    }

    HTTPConnection connection;
};

TEST_F(ResponseMetadataTest, IsCopiedFromLibcurlAndTheHead) {
    curl.giveInfo(CURLINFO_CONTENT_TYPE, "text/html; charset=utf-8");
    curl.giveInfo(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, -1L);
    curl.giveInfo(CURLINFO_SIZE_DOWNLOAD_T, 1L << 40);
    connection.collectResponseMetadata();
    EXPECT_EQ(connection.Metadata.ContentEncoding, "br"); // the first one counts
    EXPECT_EQ(connection.Metadata.ContentType, "text/html; charset=utf-8");
    EXPECT_EQ(connection.Metadata.ResponseContentLength, -1);
    EXPECT_EQ(connection.Metadata.ResponseBytesReceived, std::int64_t{1} << 40);
    EXPECT_EQ(connection.Metadata.RedirectURL, "http://host.example/x");

    // The next response lacks them all; only a new value replaces the redirect.
    curl.giveInfo(CURLINFO_CONTENT_TYPE, static_cast<const char*>(nullptr));
    for (const std::vector<std::string>& lines :
         {std::vector<std::string>{"HTTP/1.1 302 Found", "Location:  "}, std::vector<std::string>{}}) {
        connection.ReceivedHead.ResponseHeaderLines = lines;
        connection.collectResponseMetadata();
        EXPECT_EQ(connection.Metadata.ContentType, "");
        EXPECT_EQ(connection.Metadata.ContentEncoding, "");
        EXPECT_EQ(connection.Metadata.RedirectURL, "http://host.example/x");
    }
}

TEST_F(ResponseMetadataTest, RefusedInformationIsNamedAndStopsTheRest) {
    for (const CurlNamed<CURLINFO>& info :
         {CURL_NAMED(CURLINFO_CONTENT_TYPE), CURL_NAMED(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T),
          CURL_NAMED(CURLINFO_SIZE_DOWNLOAD_T)}) {
        curl.failInfo(info.Value, CURLE_UNKNOWN_OPTION);
        EXPECT_EQ(failureText([&] { connection.collectResponseMetadata(); }),
                  easyFailure(info.Name, CURLE_UNKNOWN_OPTION));
        EXPECT_EQ(connection.Metadata.RedirectURL, "");
    }
}

TEST_F(ResponseMetadataTest, HttpVersionIsTheRequests) {
    connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.0 200 OK"}; // not consulted
    connection.SentHead.RequestHTTPVersion = "HTTP/9";
    curl.clear();
    EXPECT_EQ(connection.httpVersion(), "HTTP/9");
    EXPECT_EQ(curl.count(CurlFunction::EasyGetinfo), 0u);
    connection.SentHead.RequestHTTPVersion.clear();
    const std::vector<std::pair<long, std::string>> rows{{0, "HTTP/1.1"}, {1, "HTTP/1.0"}, {2, "HTTP/1.1"},
                                                         {3, "HTTP/2.0"}, {4, "HTTP/1.1"}, {30, "HTTP/1.1"}};
    for (const auto& [reported, version] : rows) {
        curl.giveInfo(CURLINFO_HTTP_VERSION, reported);
        EXPECT_EQ(connection.httpVersion(), version) << reported;
    }
    curl.failInfo(CURLINFO_HTTP_VERSION, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(failureText([&] { connection.httpVersion(); }),
              easyFailure("CURLINFO_HTTP_VERSION", CURLE_UNKNOWN_OPTION));
}

} // namespace
