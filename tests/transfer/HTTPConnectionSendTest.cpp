#include "errors/HTTPException.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/transfer/ConnectionFixture.h"

#include <algorithm>
#include <locale>

namespace {

using HTTPConnectionSendTest = OpenConnectionFixture;

TEST_F(HTTPConnectionSendTest, SetsItsOptionsInOrder) {
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    EXPECT_THAT(curl.options(),
                ElementsAre("CURLOPT_HTTPHEADER {Accept:}", "CURLOPT_HEADERDATA", "CURLOPT_HEADERFUNCTION",
                            "CURLOPT_VERBOSE 1", "CURLOPT_DEBUGDATA", "CURLOPT_DEBUGFUNCTION", "CURLOPT_SSL_OPTIONS 8",
                            "CURLOPT_SSLVERSION 65541", "CURLOPT_NOSIGNAL 1", "CURLOPT_HTTPAUTH 0",
                            "CURLOPT_PROXYAUTH 0", "CURLOPT_ERRORBUFFER", "CURLOPT_WRITEFUNCTION", "CURLOPT_WRITEDATA",
                            "CURLOPT_READFUNCTION", "CURLOPT_READDATA", "CURLOPT_SEEKFUNCTION", "CURLOPT_SEEKDATA"));
    EXPECT_EQ(curl.lastOption(CURLOPT_HEADERDATA)->Pointer, &connection);
    EXPECT_EQ(curl.lastOption(CURLOPT_DEBUGDATA)->Pointer, &connection);
    EXPECT_EQ(curl.lastOption(CURLOPT_HEADERFUNCTION)->Pointer, reinterpret_cast<const void*>(&headerCallback));
    EXPECT_EQ(curl.lastOption(CURLOPT_DEBUGFUNCTION)->Pointer, reinterpret_cast<const void*>(&debugCallback));
    EXPECT_EQ(curl.lastOption(CURLOPT_ERRORBUFFER)->Pointer, connection.Handles->ErrorBuffer);
    EXPECT_EQ(curl.lastOption(CURLOPT_WRITEDATA)->Pointer, connection.Transfer.Copier.get());
    EXPECT_EQ(curl.lastOption(CURLOPT_SEEKDATA)->Pointer, connection.Transfer.Copier.get());
}

TEST_F(HTTPConnectionSendTest, OlderInterfaceAllowsEveryScheme) {
    connection.Settings.HTTPOptionsMode = false;
    connection.setAuthenticationSchemes({"basic"}, false);
    connection.Settings.Username = "bob";
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(connection.Settings.HostAuthSchemes, 0xFFFFFFEFu);
    EXPECT_EQ(connection.Settings.ProxyAuthSchemes, 0xFFFFFFEFu);
    const auto options = curl.options();
    const auto first = std::find(options.begin(), options.end(), "CURLOPT_HTTPAUTH 4294967279");
    ASSERT_GE(options.end() - first, 7);
    EXPECT_THAT(std::vector<std::string>(first, first + 7),
                ElementsAre("CURLOPT_HTTPAUTH 4294967279", "CURLOPT_USERNAME bob", "CURLOPT_PASSWORD ",
                            "CURLOPT_PROXYAUTH 4294967279", "CURLOPT_PROXYUSERNAME ", "CURLOPT_PROXYPASSWORD ",
                            "CURLOPT_ERRORBUFFER"));
}

// Groups digits in twos.
struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\2"; }
};

TEST_F(HTTPConnectionSendTest, TracedNumbersFollowNoLocale) {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    connection.Settings.HTTPOptionsMode = false;
    connection.Settings.Debug = 1;
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    const StandardOutputCapture output;
    EXPECT_EQ(send(), "nothing");
    std::locale::global(before);
    EXPECT_THAT(output.text(), ::testing::HasSubstr("Host username = , Schemes = ffffffef\n"));
}

TEST_F(HTTPConnectionSendTest, CredentialsGoWithTheirOwnSchemes) {
    connection.Settings.Username = "bob";
    connection.Settings.Password = "secret";
    connection.Settings.ProxyUsername = "pat";
    connection.Settings.ProxyPassword = "hidden";
    connection.Settings.HostAuthSchemes = CURLAUTH_BASIC;
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(curl.lastOption(CURLOPT_HTTPAUTH)->Number, 1);
    EXPECT_EQ(curl.lastOption(CURLOPT_USERNAME)->Text, "bob");
    EXPECT_EQ(curl.lastOption(CURLOPT_PASSWORD)->Text, "secret");
    EXPECT_EQ(curl.lastOption(CURLOPT_PROXYUSERNAME), nullptr);
    connection.Settings.HostAuthSchemes = 0;
    connection.Settings.ProxyAuthSchemes = CURLAUTH_DIGEST;
    reopen();
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(curl.lastOption(CURLOPT_USERNAME), nullptr);
    EXPECT_EQ(curl.lastOption(CURLOPT_PROXYAUTH)->Number, 2);
    EXPECT_EQ(curl.lastOption(CURLOPT_PROXYUSERNAME)->Text, "pat");
    EXPECT_EQ(curl.lastOption(CURLOPT_PROXYPASSWORD)->Text, "hidden");
}

// The time that a limit reports counts from the end of the pump, however long that took.
TEST_F(HTTPConnectionSendTest, TimeCountsFromTheEndOfTheUpload) {
    constexpr std::int64_t second = 1'000'000'000;
    curl.setClock(5 * second);
    curl.OnWait = [](int, int& ready) {
        ready = 1;
        return CURLM_OK;
    };
    curl.OnPerform = [&, performs = 0](int& running) mutable {
        running = ++performs == 1 ? 1 : 0;
        if (performs == 1) {
            std::string given;
            curl.callRead(given, 100);
            curl.advanceClock(7 * second);
        } else {
            curl.advanceClock(2 * second);
            std::string("Connection timed out").copy(connection.Handles->ErrorBuffer, 20);
            connection.Handles->ErrorBuffer[20] = '\0';
            curl.finishWith(CURLE_COULDNT_CONNECT);
        }
        return CURLM_OK;
    };
    connection.Settings.setPayload({1, 2, 3});
    try {
        connection.sendRequest();
        FAIL() << "nothing was raised";
    } catch (const webservices::HTTPTimeoutException& failure) {
        EXPECT_EQ(failure.TimeoutMilliseconds, 2000.0);
    }
}

TEST_F(HTTPConnectionSendTest, ContentIsAnnouncedBehindTheCopier) {
    connection.setRequestMethod("PUT");
    connection.Settings.setPayload({1, 2, 3});
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    const auto options = curl.options();
    ASSERT_GE(options.size(), 2u);
    EXPECT_EQ(options[options.size() - 3], "CURLOPT_SEEKDATA");
    EXPECT_EQ(options[options.size() - 2], "CURLOPT_UPLOAD 1");
    EXPECT_EQ(options.back(), "CURLOPT_FORBID_REUSE 1") << "the answer came before the content";
}

TEST_F(HTTPConnectionSendTest, EachRequestHasACopierOfItsOwn) {
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    const std::shared_ptr<InterruptibleStreamCopier> first = connection.Transfer.Copier;
    reopen();
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    EXPECT_NE(connection.Transfer.Copier, first);
    EXPECT_EQ(first.use_count(), 1);
}

struct SendOptionRow {
    CURLoption Option;
    const char* Name;
};

class RefusedSendOptionTest : public HTTPConnectionSendTest, public ::testing::WithParamInterface<SendOptionRow> {};

TEST_P(RefusedSendOptionTest, IsNamedAndFailsTheTransfer) {
    connection.setRequestMethod("PUT");
    connection.Settings.setPayload({1});
    connection.Settings.HostAuthSchemes = connection.Settings.ProxyAuthSchemes = CURLAUTH_BASIC;
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    curl.failOption(GetParam().Option, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(send(), internalError('"' + std::string(GetParam().Name) + "\" failed with CURLcode " +
                                    curl_easy_strerror(CURLE_UNKNOWN_OPTION)));
    EXPECT_TRUE(connection.Transfer.TransferFailed);
    EXPECT_TRUE(connection.Transfer.Opened);
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 0u);
    EXPECT_EQ(send(), "nothing"); // the same connection sends afterwards
}

#define SEND_OPTION(option)                                                                                            \
    SendOptionRow {                                                                                                    \
        option, #option                                                                                                \
    }
INSTANTIATE_TEST_SUITE_P(Options, RefusedSendOptionTest,
                         ::testing::Values(SEND_OPTION(CURLOPT_HEADERDATA), SEND_OPTION(CURLOPT_HEADERFUNCTION),
                                           SEND_OPTION(CURLOPT_VERBOSE), SEND_OPTION(CURLOPT_DEBUGDATA),
                                           SEND_OPTION(CURLOPT_DEBUGFUNCTION), SEND_OPTION(CURLOPT_SSL_OPTIONS),
                                           SEND_OPTION(CURLOPT_SSLVERSION), SEND_OPTION(CURLOPT_NOSIGNAL),
                                           SEND_OPTION(CURLOPT_HTTPAUTH), SEND_OPTION(CURLOPT_USERNAME),
                                           SEND_OPTION(CURLOPT_PASSWORD), SEND_OPTION(CURLOPT_PROXYAUTH),
                                           SEND_OPTION(CURLOPT_PROXYUSERNAME), SEND_OPTION(CURLOPT_PROXYPASSWORD),
                                           SEND_OPTION(CURLOPT_ERRORBUFFER), SEND_OPTION(CURLOPT_WRITEFUNCTION),
                                           SEND_OPTION(CURLOPT_WRITEDATA), SEND_OPTION(CURLOPT_READFUNCTION),
                                           SEND_OPTION(CURLOPT_READDATA), SEND_OPTION(CURLOPT_SEEKFUNCTION),
                                           SEND_OPTION(CURLOPT_SEEKDATA), SEND_OPTION(CURLOPT_UPLOAD)),
                         [](const auto& info) { return std::string(info.param.Name); });

TEST_F(HTTPConnectionSendTest, FlagsAreClearedBetweenTheHeadAndTheTraceOptions) {
    connection.ReceivedHead.HeadersComplete = connection.Transfer.PerformDone = true;
    curl.failOption(CURLOPT_HEADERFUNCTION, CURLE_UNKNOWN_OPTION);
    EXPECT_NE(send(), "nothing");
    EXPECT_TRUE(connection.ReceivedHead.HeadersComplete);
    EXPECT_TRUE(connection.Transfer.PerformDone);
    curl.failOption(CURLOPT_VERBOSE, CURLE_UNKNOWN_OPTION);
    EXPECT_NE(send(), "nothing");
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    EXPECT_FALSE(connection.Transfer.PerformDone);
}

TEST_F(HTTPConnectionSendTest, TextOfAnEarlierFailureIsGone) {
    std::string("timed out").copy(connection.Handles->ErrorBuffer, 9);
    playExchange("", CURLE_COULDNT_CONNECT, "");
    EXPECT_EQ(send(), "HTTPConnectionRefusedException[Unknown exception]");
}

TEST_F(HTTPConnectionSendTest, TraceTellsEachStage) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    connection.Settings.Username = "bob";
    connection.Settings.Password = "secret";
    connection.Settings.ProxyPassword = "hidden";
    connection.Settings.HostAuthSchemes = 10;
    playExchange("", CURLE_OK, "");
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(output.text(),
              "Host username = bob, Schemes = a\n"
              "Proxy username = , Schemes = 0\n"
              "*****************SENDING REQUEST HEADERS AND RECEIVING RESPONSE HEADERS *****************\n"
              "Starting perform loop\n"
              "ALL HEADERS RECEIVED\n"
              "DONE WITH SEND_REQUEST(). RETURNING BACK TO VANTIK\n"
              "\n"
              "********************END OF RECEIVE_RESPONSE******************\n");
    EXPECT_THAT(curl.texts({CurlFunction::VersionInfo}), ElementsAre("curl_version_info 10"));
}

TEST_F(HTTPConnectionSendTest, FailedTransferIsNotTracedAsDone) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    playExchange("", CURLE_GOT_NOTHING, "");
    EXPECT_NE(send(), "nothing");
    EXPECT_THAT(output.text(), ::testing::EndsWith("Starting perform loop\nALL HEADERS RECEIVED\n"));
    connection.Settings.Debug = 0;
}

TEST_F(HTTPConnectionSendTest, TraceTellsOfContent) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    connection.Settings.HTTPOptionsMode = false;
    connection.setRequestMethod("PUT");
    connection.Settings.PostData = u"x";
    playExchange("", CURLE_OK, "");
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(output.text(),
              "Host username = , Schemes = ffffffef\n"
              "Proxy username = , Schemes = ffffffef\n"
              "*****************SENDING REQUEST HEADERS+DATA AND RECEIVING RESPONSE HEADERS *****************\n"
              "PERFORM IN WRITER 1 times\n"
              "Starting perform loop\n"
              "ALL HEADERS RECEIVED\n"
              "DONE WITH SEND_REQUEST(). RETURNING BACK TO VANTIK\n"
              "\n"
              "********************END OF RECEIVE_RESPONSE******************\n");
}

TEST_F(HTTPConnectionSendTest, VersionIsOnlyAskedForInATrace) {
    playExchange("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(curl.count(CurlFunction::VersionInfo), 0u);
}

} // namespace
