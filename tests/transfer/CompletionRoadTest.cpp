// A result of libcurl on its whole road: through the send, to what the host is told, and to the next request.
#include "errors/TranslateTransferException.h"
#include "tests/transfer/ConnectionFixture.h"

#include <ostream>

namespace {

struct RoadRow {
    const char* Name;
    CURLcode Result;
    const char* Text;
    const char* Told; // the host; "nothing": the request completed
    bool TransferFailed = true;
};

void PrintTo(const RoadRow& row, std::ostream* stream) {
    *stream << row.Name;
}

const RoadRow kRoadRows[] = {
    {"NoStatus", CURLE_OK, "",
     "VANTIK:webservices:InternalError[N:No response code and no error reported for completed message]"},
    {"MalformedUrl", CURLE_URL_MALFORMAT, "x", "VANTIK:webservices:MalformedURL[U:http://127.0.0.1/]"},
    {"UnknownProxy", CURLE_COULDNT_RESOLVE_PROXY, "x", "VANTIK:webservices:UnknownHost[U:proxy.example]"},
    {"UnknownHost", CURLE_COULDNT_RESOLVE_HOST, "x", "VANTIK:webservices:UnknownHost[U:http://127.0.0.1/]"},
    {"Refused", CURLE_COULDNT_CONNECT, "Connection refused",
     "VANTIK:webservices:ConnectionRefused[U:http://127.0.0.1/, U:Connection refused]"},
    {"ConnectTimedOut", CURLE_COULDNT_CONNECT, "Connection timed out",
     "VANTIK:webservices:Timeout[U:http://127.0.0.1/, N:0.000, U:Connection timed out, U:HTTPOptions.ConnectTimeout]"},
    {"Received", CURLE_RECV_ERROR, "reset", "VANTIK:webservices:ConnectionRefused[U:http://127.0.0.1/, U:reset]"},
    {"StoppedByDesign", CURLE_WRITE_ERROR, "", "nothing", false},
    {"NotWritten", CURLE_WRITE_ERROR, "x", "VANTIK:webservices:CopyContentToDataStreamError[N:x, N:http://127.0.0.1/]"},
    {"NotDecoded", CURLE_WRITE_ERROR, "an encoding", "VANTIK:webservices:DecodingError[N:, N:an encoding]"},
    {"BadEncoding", CURLE_BAD_CONTENT_ENCODING, "x", "VANTIK:webservices:DecodingError[N:, N:x]"},
    {"NoMemory", CURLE_OUT_OF_MEMORY, "x", "VANTIK:webservices:RandomError[N:http://127.0.0.1/]"},
    {"NotAuthenticated", CURLE_AUTH_ERROR, "x", "VANTIK:webservices:RandomError[N:http://127.0.0.1/]"},
    {"TimedOut", CURLE_OPERATION_TIMEDOUT, "late",
     "VANTIK:webservices:Timeout[U:http://127.0.0.1/, N:1.234, U:late, U:HTTPOptions.ConnectTimeout]"},
    {"TlsConnect", CURLE_SSL_CONNECT_ERROR, "x", "VANTIK:webservices:SSLConnectionNoFile[N:http://127.0.0.1/, U:x]"},
    {"PeerNotVerified", CURLE_PEER_FAILED_VERIFICATION, "x",
     "VANTIK:webservices:SSLConnectionNoFile[N:http://127.0.0.1/, U:x]"},
    {"BadCaFile", CURLE_SSL_CACERT_BADFILE, "x", "VANTIK:webservices:SSLConnectionNoFile[N:http://127.0.0.1/, U:x]"},
    {"Partial", CURLE_PARTIAL_FILE, "x", "nothing", false},
    {"Unlisted", CURLE_GOT_NOTHING, "Empty reply",
     "VANTIK:webservices:CopyContentToDataStreamError[U:Empty reply (CURLE code 52), U:http://127.0.0.1/]", false},
};

class CompletionRoad : public OpenConnectionFixture, public ::testing::WithParamInterface<RoadRow> {
protected:
    CompletionRoad() {
        connection.setTimeouts({1234.0});
        reopen();
        connection.Settings.ProxyHost = "proxy.example";
        curl.setClock(0);
    }

    // The transfer ends at once, without a byte on the wire.
    void endWith(CURLcode result, const std::string& text) {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
        curl.giveInfo(CURLINFO_HTTP_CONNECTCODE, 0L);
        curl.OnPerform = [=, this](int& running) {
            running = 0;
            text.copy(connection.Handles->ErrorBuffer, text.size());
            connection.Handles->ErrorBuffer[text.size()] = '\0';
            curl.finishWith(result);
            return CURLM_OK;
        };
    }
    std::string told() {
        return failureText([&] {
            try {
                connection.sendRequest();
            } catch (...) {
                webservices::translateTransferException(connection.Settings.URL);
            }
        });
    }
};

TEST_P(CompletionRoad, TellsTheHostAndLeavesTheConnectionGood) {
    const RoadRow& row = GetParam();
    connection.addField("X-A", "b");
    connection.addField("X-Removed", "");
    endWith(row.Result, row.Text);
    EXPECT_EQ(told(), row.Told);
    const bool completed = std::string(row.Told) == "nothing";
    EXPECT_EQ(connection.Transfer.ResponseDone, completed);
    EXPECT_EQ(connection.Transfer.TransferFailed, row.TransferFailed);
    EXPECT_TRUE(connection.Transfer.Opened);
    EXPECT_FALSE(connection.SentHead.Sent);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 0);
    // The head never left, so the fields are those that were to be sent.
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("X-A: b"));
    EXPECT_EQ(warnings.size(), completed ? 1U : 0U);

    reopen();
    playExchange("HTTP/1.1 201 Created\r\nX-B: c\r\n\r\n");
    EXPECT_EQ(told(), "nothing");
    EXPECT_EQ(connection.getResponseCode(), 201);
    EXPECT_EQ(connection.ReceivedHead.getResponseField("X-B"), "c");
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("Host: 127.0.0.1"));
}

INSTANTIATE_TEST_SUITE_P(Results, CompletionRoad, ::testing::ValuesIn(kRoadRows),
                         [](const auto& info) { return info.param.Name; });

} // namespace
