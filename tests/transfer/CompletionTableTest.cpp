// What the end of a transfer means: each number that libcurl may end with, with each kind of status, head and text.
#include "tests/transfer/ConnectionFixture.h"

#include <map>
#include <ostream>

namespace {

constexpr std::int64_t kStart = 1'000'000'000;
constexpr const char* kNoCode = "VANTIK:webservices:InternalError[N:No response code and no error reported for "
                               "completed message]";
constexpr const char* kNoHead = "VANTIK:webservices:InternalError[N:Nonzero response code but no headers received]";
const std::string kUrl = "http://host.example/a";

struct StatusRow {
    const char* Name;
    long Status;
    long ConnectStatus;         // of a proxy's answer to CONNECT
    bool Head;                  // complete
    const char* WhenOk;         // the failure where libcurl reports none
    bool ExcusesResult = false; // libcurl's result does not count
};

void PrintTo(const StatusRow& row, std::ostream* stream) {
    *stream << row.Name;
}

const StatusRow kStatusRows[] = {
    {"NoStatus", 0, 0, false, kNoCode},
    {"NoStatusWithHead", 0, 0, true, kNoCode},
    {"Success", 200, 0, false, "nothing"},
    {"SuccessWithHead", 200, 0, true, "nothing"},
    {"LastSuccessWithHead", 299, 0, true, "nothing"},
    {"BelowSuccess", 199, 0, false, kNoHead},
    {"BelowSuccessWithHead", 199, 0, true, "nothing", true},
    {"AboveSuccessWithHead", 300, 0, true, "nothing", true},
    {"NotFound", 404, 0, false, kNoHead},
    {"NotFoundWithHead", 404, 0, true, "nothing", true},
    {"RefusedByTheProxy", 0, 407, false, kNoHead},
    {"RefusedByTheProxyWithHead", 0, 407, true, "nothing", true},
    {"TunnelOpened", 0, 200, false, "nothing"},
    {"TunnelOpenedWithHead", 0, 200, true, "nothing"},
    {"ServersStatusComesFirst", 200, 407, true, "nothing"},
};

class CompletionTable : public ConnectionFixture, public ::testing::WithParamInterface<StatusRow> {
protected:
    CompletionTable() {
        connection.Settings.URL = u"http://host.example/a";
        connection.Settings.ProxyHost = "proxy.example";
        connection.Settings.CertificateFilename = "/ca.pem";
        connection.Metadata.ResponseBytesReceived = 3;
        connection.Metadata.ResponseContentLength = -1;
        connection.SentHead.RequestHeaderLines = {"Host: h"};
        connection.setTimeouts({1234.5});
        curl.setClock(kStart + 2'000'000'000);
        curl.giveInfo(CURLINFO_RESPONSE_CODE, GetParam().Status);
        curl.giveInfo(CURLINFO_HTTP_CONNECTCODE, GetParam().ConnectStatus);
        if (GetParam().Head) {
            connection.ReceivedHead.ResponseHeaderLines = {"HTTP/1.1 999 Not consulted", "Content-Encoding: gzip"};
            connection.ReceivedHead.HeadersComplete = true;
        }
        curl.giveInfo(CURLINFO_SIZE_DOWNLOAD_T, curl_off_t{3});
        curl.giveInfo(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, curl_off_t{-1});
    }

    void setErrorText(const std::string& text) {
        text.copy(connection.Handles->ErrorBuffer, text.size());
        connection.Handles->ErrorBuffer[text.size()] = '\0';
    }

    // The numbers with a meaning of their own, for a text that libcurl may have left.
    std::map<int, std::string> meanings(const std::string& text) const {
        const std::string option =
            connection.Settings.HTTPOptionsMode ? "HTTPOptions.ConnectTimeout" : "weboptions.Timeout";
        const std::string refused =
            "HTTPConnectionRefusedException[" + (text.empty() ? "Unknown exception" : text) + "]";
        const std::string shown = text.empty() ? "Unknown exception" : text;
        const std::string tls = "SSLException[" + shown + ", " + kUrl + ", /ca.pem]";
        const std::string decoding = "VANTIK:webservices:DecodingError[N:gzip, N:" + text + "]";
        const std::string random = "VANTIK:webservices:RandomError[N:" + kUrl + "]";
        const bool late = text.find("imed out") != std::string::npos;
        return {
            {3, "HTTPURLException[" + kUrl + "]"},
            {5, "HTTPDNSException[proxy.example]"},
            {6, "HTTPDNSException[" + kUrl + "]"},
            {7, late ? "HTTPTimeoutException[" + text + ", 2000, " + option + "]" : refused},
            {18, "nothing"}, // and a warning
            {23, text.empty() ? "nothing"
                 : text.find("encoding") != std::string::npos
                     ? decoding
                     : "VANTIK:webservices:CopyContentToDataStreamError[N:" + text + ", N:" + kUrl + "]"},
            {27, random},
            {28, "HTTPTimeoutException[" + shown + ", 1234.5, " + option + "]"},
            {35, tls},
            {56, refused},
            {60, tls},
            {61, decoding},
            {77, tls},
            {94, random},
        };
    }
    std::string meaning(int result, const std::string& text) const {
        const std::map<int, std::string> known = meanings(text);
        const auto row = known.find(result);
        return row != known.end() ? row->second
                                  : "HTTPCopyStreamException[" + text + " (CURLE code " + std::to_string(result) + ")]";
    }

    void expectCompletion(int result, const std::string& text) {
        const StatusRow& row = GetParam();
        warnings.clear();
        connection.Metadata.ContentEncoding = "gzip";
        setErrorText(text);
        curl.finishWith(static_cast<CURLcode>(result));
        const std::string expected = result == 0 ? row.WhenOk : row.ExcusesResult ? "nothing" : meaning(result, text);
        EXPECT_EQ(failureText([&] { connection.checkCompletion(kStart); }), expected);
        if (result != 0 && expected == "nothing") {
            const std::string ours = result == 23 ? "The content goes on after the end of its compressed data."
                                                  : curl_easy_strerror(static_cast<CURLcode>(result));
            const std::string told = text.empty() && !(result == 18 && !row.ExcusesResult) ? ours : text;
            EXPECT_THAT(warnings, ElementsAre("VANTIK:webservices:PartialFileWarning[N:3, N:-1, N:" + told + "]"));
        } else {
            EXPECT_THAT(warnings, IsEmpty());
        }
        // The message is gone, whatever it meant, and nothing that is known of the exchange has changed.
        EXPECT_EQ(failureText([&] { connection.checkCompletion(kStart); }), "nothing");
        EXPECT_EQ(connection.ReceivedHead.ResponseCode, 0);
        EXPECT_EQ(connection.Metadata.ContentEncoding, row.Head || warnings.empty() || result == 18 ? "gzip" : "");
        EXPECT_EQ(connection.Metadata.ResponseBytesReceived, 3);
        EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("Host: h"));
        EXPECT_EQ(connection.ReceivedHead.ResponseHeaderLines.size(), row.Head ? 2U : 0U);
        EXPECT_FALSE(connection.Transfer.TransferFailed);
    }

    HTTPConnection connection;
};

TEST_P(CompletionTable, EveryResultHasItsMeaning) {
    std::vector<int> results{120, 127}; // as far as the type of the numbers goes
    for (int result = 0; result <= 110; ++result) {
        results.push_back(result);
    }
    for (const bool optionsMode : {true, false}) {
        connection.Settings.HTTPOptionsMode = optionsMode;
        for (const int result : results) {
            for (const char* text :
                 {"", "plain words", "Connection timed out", "Timed out", "bad encoding", "ENCODING"}) {
                SCOPED_TRACE("result " + std::to_string(result) + ", text \"" + text + '"');
                expectCompletion(result, text);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Statuses, CompletionTable, ::testing::ValuesIn(kStatusRows),
                         [](const auto& info) { return info.param.Name; });

} // namespace
