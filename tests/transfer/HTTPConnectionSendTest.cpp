// The options of a send, and its loop around wait and perform.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/support/process/StandardOutputCapture.h"
#include "tests/transfer/ConnectionFixture.h"

#include <boost/numeric/conversion/cast.hpp>

#include <algorithm>
#include <locale>
#include <stdexcept>

namespace {

class HTTPConnectionSendTest : public OpenConnectionFixture {
protected:
    // Sends, and the answer has no content.
    std::string sendAnswered() {
        playExchange(kOk);
        return send();
    }
    // The transfer runs until the given number of performs has been made.
    void runFor(int performs) {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
        curl.OnPerform = [=, this, made = 0](int& running) mutable {
            running = ++made < performs ? 1 : 0;
            if (running == 0) {
                curl.finishWith(CURLE_OK);
            }
            return CURLM_OK;
        };
    }
    // What each wait of the loop finds ready, one entry for each wait.
    void findReady(std::vector<int> counts) {
        runFor(static_cast<int>(counts.size()) + 1);
        curl.OnWait = [counts, next = std::size_t{0}](int, int& ready) mutable {
            ready = counts.at(next++);
            return CURLM_OK;
        };
    }
};

TEST_F(HTTPConnectionSendTest, SetsItsOptionsInOrder) {
    EXPECT_EQ(sendAnswered(), "nothing");
    EXPECT_THAT(curl.options(),
                ElementsAre("CURLOPT_HTTPHEADER {Accept:}", "CURLOPT_HEADERDATA", "CURLOPT_HEADERFUNCTION",
                            "CURLOPT_VERBOSE 1", "CURLOPT_DEBUGDATA", "CURLOPT_DEBUGFUNCTION", "CURLOPT_SSL_OPTIONS 8",
                            "CURLOPT_SSLVERSION 65541", "CURLOPT_NOSIGNAL 1", "CURLOPT_HTTPAUTH 0",
                            "CURLOPT_PROXYAUTH 0", "CURLOPT_ERRORBUFFER", "CURLOPT_BUFFERSIZE 65536",
                            "CURLOPT_WRITEFUNCTION", "CURLOPT_WRITEDATA", "CURLOPT_READFUNCTION", "CURLOPT_READDATA",
                            "CURLOPT_SEEKFUNCTION", "CURLOPT_SEEKDATA"));
    EXPECT_EQ(curl.lastOption(CURLOPT_HEADERDATA)->Pointer, &connection);
    EXPECT_EQ(curl.lastOption(CURLOPT_DEBUGDATA)->Pointer, &connection);
    EXPECT_EQ(curl.lastOption(CURLOPT_HEADERFUNCTION)->Pointer, reinterpret_cast<const void*>(&headerCallback));
    EXPECT_EQ(curl.lastOption(CURLOPT_DEBUGFUNCTION)->Pointer, reinterpret_cast<const void*>(&debugCallback));
    EXPECT_EQ(curl.lastOption(CURLOPT_ERRORBUFFER)->Pointer, connection.Handles->ErrorBuffer);
    EXPECT_EQ(curl.lastOption(CURLOPT_WRITEDATA)->Pointer, connection.Transfer.Copier.get());
    EXPECT_EQ(curl.lastOption(CURLOPT_SEEKDATA)->Pointer, connection.Transfer.Copier.get());
    EXPECT_EQ(curl.count(CurlFunction::VersionInfo), 0u); // only asked for in a trace
}

TEST_F(HTTPConnectionSendTest, CredentialsGoWithTheirOwnSchemes) {
    struct Row {
        bool OptionsMode; // the older interface allows every scheme
        std::uint32_t Host, Proxy;
        std::vector<std::string> Options; // from the schemes on
    };
    connection.Settings.Username = "bob";
    connection.Settings.ProxyUsername = "pat";
    connection.Settings.ProxyPassword = "hidden";
    for (const auto& [optionsMode, host, proxy, expected] :
         {Row{true,
              CURLAUTH_BASIC,
              0,
              {"CURLOPT_HTTPAUTH 1", "CURLOPT_USERNAME bob", "CURLOPT_PASSWORD ", "CURLOPT_PROXYAUTH 0"}},
          Row{true,
              0,
              CURLAUTH_DIGEST,
              {"CURLOPT_HTTPAUTH 0", "CURLOPT_PROXYAUTH 2", "CURLOPT_PROXYUSERNAME pat",
               "CURLOPT_PROXYPASSWORD hidden"}},
          Row{false,
              CURLAUTH_BASIC,
              0,
              {"CURLOPT_HTTPAUTH 4294967279", "CURLOPT_USERNAME bob", "CURLOPT_PASSWORD ",
               "CURLOPT_PROXYAUTH 4294967279", "CURLOPT_PROXYUSERNAME pat", "CURLOPT_PROXYPASSWORD hidden"}}}) {
        connection.Settings.HTTPOptionsMode = optionsMode;
        connection.Settings.HostAuthSchemes = host;
        connection.Settings.ProxyAuthSchemes = proxy;
        reopen();
        EXPECT_EQ(sendAnswered(), "nothing");
        const auto options = curl.options();
        const auto end = std::find(options.begin(), options.end(), "CURLOPT_ERRORBUFFER");
        ASSERT_GE(end - options.begin(), static_cast<std::ptrdiff_t>(expected.size()));
        EXPECT_EQ(std::vector<std::string>(end - static_cast<std::ptrdiff_t>(expected.size()), end), expected);
    }
    EXPECT_EQ(connection.Settings.HostAuthSchemes & connection.Settings.ProxyAuthSchemes, 0xFFFFFFEFu);
}

// A trace shows the size of each read, and what a read is decoded to is held as a whole.
TEST_F(HTTPConnectionSendTest, ReadsAreLargeWhereNothingIsDecodedOrTraced) {
    struct Row {
        bool Decodes;
        std::int32_t Debug;
        std::string Option;
    };
    for (const Row& row : {Row{false, 0, "CURLOPT_BUFFERSIZE 65536"}, Row{false, 1, "CURLOPT_BUFFERSIZE 16384"},
                           Row{true, 0, "CURLOPT_BUFFERSIZE 16384"}, Row{true, 2, "CURLOPT_BUFFERSIZE 16384"}}) {
        reopen();
        connection.Settings.Decode = row.Decodes;
        connection.Settings.Debug = row.Debug;
        const StandardOutputCapture output;
        EXPECT_EQ(sendAnswered(), "nothing");
        connection.Settings.Debug = 0;
        EXPECT_EQ(optionText(CURLOPT_BUFFERSIZE), row.Option) << row.Decodes << row.Debug;
    }
}

// libcurl 7.88 keeps its buffer after a connect that has failed.
TEST_F(HTTPConnectionSendTest, BufferThatIsKeptIsUsed) {
    reopen();
    curl.failOption(CURLOPT_BUFFERSIZE, CURLE_BAD_FUNCTION_ARGUMENT);
    EXPECT_EQ(sendAnswered(), "nothing");
}

TEST_F(HTTPConnectionSendTest, RefusedOptionIsNamedAndFailsTheTransfer) {
    connection.setRequestMethod("PUT");
    connection.Settings.setPayload({1});
    connection.Settings.HostAuthSchemes = connection.Settings.ProxyAuthSchemes = CURLAUTH_BASIC;
    EXPECT_EQ(sendAnswered(), "nothing");
    std::vector<CurlCall> inOrder = curl.calls();
    std::erase_if(inOrder, [](const CurlCall& call) {
        return call.Function != CurlFunction::EasySetopt || call.Id == CURLOPT_HTTPHEADER ||
               call.Id == CURLOPT_FORBID_REUSE; // neither of them is an option of the transfer itself
    });
    ASSERT_EQ(inOrder.size(), 23U);
    EXPECT_EQ(inOrder.back().text(), "CURLOPT_UPLOAD 1");
    EXPECT_EQ(optionText(CURLOPT_FORBID_REUSE), "CURLOPT_FORBID_REUSE 1") << "the answer came before the content";
    for (const CurlCall& call : inOrder) {
        reopen();
        connection.setRequestMethod("PUT");
        connection.Transfer.TransferFailed = false;
        curl.failOption(static_cast<CURLoption>(call.Id), CURLE_UNKNOWN_OPTION);
        const std::string name = call.text().substr(0, call.text().find(' '));
        EXPECT_EQ(sendAnswered(), easyFailure(name, CURLE_UNKNOWN_OPTION));
        EXPECT_TRUE(connection.Transfer.TransferFailed && connection.Transfer.Opened);
        EXPECT_FALSE(connection.Transfer.ResponseDone);
        EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 0u);
        EXPECT_EQ(send(), "nothing"); // the same connection sends afterwards
    }
}

// A trace shows each read.
TEST_F(HTTPConnectionSendTest, LargeContentIsReadInLargeParts) {
    struct Row {
        std::size_t Bytes;
        std::int32_t Debug;
        const char* Announced;
        const char* Option;
    };
    connection.setRequestMethod("PUT");
    for (const Row& row : {Row{65536, 0, "", "unset"},
                           {65537, 0, "", "CURLOPT_UPLOAD_BUFFERSIZE 524288"},
                           {1, 0, "65537", "CURLOPT_UPLOAD_BUFFERSIZE 524288"},
                           {65537, 0, "65536", "unset"},
                           {65537, 1, "", "unset"}}) {
        reopen();
        connection.Settings.setPayload(RequestSettings::Bytes(row.Bytes));
        connection.Settings.Debug = row.Debug;
        if (*row.Announced != '\0') {
            connection.addField("Content-Length", row.Announced);
        }
        {
            const testsupport::StandardOutputCapture trace;
            EXPECT_EQ(sendAnswered(), "nothing");
        }
        EXPECT_EQ(optionText(CURLOPT_UPLOAD_BUFFERSIZE), row.Option);
    }
}

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

TEST_F(HTTPConnectionSendTest, HeadThatAnEarlierTransferHasNotEndedDoesNotGoOn) {
    connection.SentHead.InRequestHead = true;
    EXPECT_EQ(sendAnswered(), "nothing");
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("Host: 127.0.0.1"));
}

// The loop.

TEST_F(HTTPConnectionSendTest, PassIsWaitPausePerformInterruptTimeout) {
    connection.setTimeouts({5000.0, 1000.0});
    curl.setClock(0);
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.0);
    connection.openConnection();
    findReady({0, 0, 1});
    EXPECT_EQ(send(), "nothing");
    EXPECT_THAT(curl.texts({CurlFunction::MultiWait, CurlFunction::Pause, CurlFunction::MultiPerform,
                            CurlFunction::InterruptPoll, CurlFunction::EasyGetinfo, CurlFunction::MultiInfoRead}),
                ElementsAre("curl_multi_perform",                                           //
                            "curl_multi_wait 500", "curl_multi_perform", "interrupt poll",  //
                            "CURLINFO_CONNECT_TIME",                                        //
                            "curl_multi_wait 500", "pause 100000000", "curl_multi_perform", //
                            "interrupt poll", "CURLINFO_CONNECT_TIME",                      //
                            "curl_multi_wait 500", "curl_multi_perform", "interrupt poll",  //
                            "CURLINFO_CONNECT_TIME",                                        //
                            "CURLINFO_CONTENT_TYPE", "CURLINFO_CONTENT_LENGTH_DOWNLOAD_T",  // metadata
                            "CURLINFO_SIZE_DOWNLOAD_T",                                     //
                            "curl_multi_info_read", "CURLINFO_RESPONSE_CODE",               // completion
                            "CURLINFO_CONTENT_TYPE", "CURLINFO_CONTENT_LENGTH_DOWNLOAD_T",  // metadata
                            "CURLINFO_SIZE_DOWNLOAD_T"));
}

TEST_F(HTTPConnectionSendTest, WaitFollowsTheResponseTimeoutUpToItsCap) {
    const std::vector<std::pair<double, int>> rows{
        {SilenceLimits::kUnlimited, 500}, {0.0, 0}, {100.0, 100}, {499.9, 499}, {500.0, 500}, {30000.0, 500}};
    curl.setClock(0);
    for (const auto& [limit, milliseconds] : rows) {
        reopen();
        connection.setTimeouts({5000.0, limit, 50.0}); // as it is at the send, even if the open has not seen it
        findReady({1, 1});
        EXPECT_EQ(send(), "nothing");
        const std::string wait = "curl_multi_wait " + std::to_string(milliseconds);
        EXPECT_THAT(curl.texts({CurlFunction::MultiWait}), ElementsAre(wait, wait));
    }
}

// The limit is cut to an integer before it is capped, as the open would cut it.
TEST_F(HTTPConnectionSendTest, LimitThatIsNotAnIntegerEndsTheSendBeforeItBegins) {
    for (const double limit : {1e12, -1e12}) {
        connection.Transfer.TransferFailed = false;
        connection.setTimeouts({5000.0, limit});
        const std::string overflow =
            limit > 0 ? boost::numeric::positive_overflow().what() : boost::numeric::negative_overflow().what();
        EXPECT_EQ(send(), "HTTPConnectionFailedException[" + overflow + "]");
        EXPECT_TRUE(connection.Transfer.TransferFailed);
        EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 0u);
        EXPECT_TRUE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.Transfer.ResponseDone);
    }
}

TEST_F(HTTPConnectionSendTest, DeadlineStartsWithTheSend) {
    curl.setClock(7000 * kMs);
    const auto deadlineInTheFirstPerform = [&] {
        std::int64_t deadline = 0;
        reopen();
        curl.OnPerform = [&](int& running) {
            deadline = connection.Limits.Deadline;
            running = 0;
            return CURLM_OK;
        };
        EXPECT_EQ(send(), "nothing");
        return deadline;
    };
    EXPECT_EQ(deadlineInTheFirstPerform(), SilenceLimits::kNoDeadline);
    connection.setTimeouts({5000.0, 3000.0, 9000.0});
    EXPECT_EQ(deadlineInTheFirstPerform(), 10000 * kMs);
    EXPECT_EQ(connection.Limits.TimeoutReason, 0);
}

TEST_F(HTTPConnectionSendTest, PausesFromTheSecondEmptyWaitInARow) {
    const std::vector<std::pair<std::vector<int>, std::size_t>> rows{
        {{}, 0},        {{0}, 0},          {{0, 0}, 1},          {{0, 1, 0}, 0},
        {{0, 0, 0}, 2}, {{0, 0, 1, 0}, 1}, {{0, 0, 2, 0, 0}, 2}, {{1, 1, 1}, 0}};
    for (const auto& [ready, pauses] : rows) {
        reopen();
        findReady(ready);
        EXPECT_EQ(send(), "nothing");
        EXPECT_EQ(curl.pauses(), pauses) << ::testing::PrintToString(ready);
    }
}

// Before the first perform libcurl has no descriptor and no timer to wait for.
TEST_F(HTTPConnectionSendTest, LibcurlsWaitBeforeTheFirstPerformIsEmpty) {
    EXPECT_EQ(connection.wait(1000), 0);
}

TEST_F(HTTPConnectionSendTest, FirstByteOfContentEndsTheLoop) {
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
    findReadyAlways();
    curl.OnPerform = [this, made = 0](int& running) mutable {
        running = 1;
        if (++made == 2) {
            curl.callResponseHead(kOk);
            curl.callWrite("x");
        }
        return CURLM_OK;
    };
    EXPECT_EQ(send(), "nothing");
    EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 2u);
    EXPECT_EQ(curl.count(CurlFunction::MultiWait), 1u);
    EXPECT_TRUE(connection.Transfer.ResponseDone);
    EXPECT_EQ(connection.Transfer.Copier->ReceiveBuffer, "x");
}

TEST_F(HTTPConnectionSendTest, LateResponseEndsTheLoop) {
    connection.setTimeouts({5000.0, 1000.0});
    curl.setClock(0);
    curl.giveInfo(CURLINFO_CONNECT_TIME, 0.25);
    connection.openConnection();
    runFor(9);
    curl.OnWait = [&](int milliseconds, int& ready) {
        curl.advanceClock(milliseconds * kMs);
        ready = 0;
        return CURLM_OK;
    };
    EXPECT_THAT(send(), ::testing::MatchesRegex("HTTPTimeoutException\\[.*, 1000, HTTPOptions.ResponseTimeout\\]"));
    EXPECT_TRUE(connection.Transfer.TransferFailed);
    EXPECT_EQ(curl.count(CurlFunction::MultiWait), 2u); // 500 ms, then 500 ms and a pause
}

// The time that a limit reports counts from the end of the upload, however long that took.
TEST_F(HTTPConnectionSendTest, TimeCountsFromTheEndOfTheUpload) {
    curl.setClock(5000 * kMs);
    findReadyAlways();
    curl.OnPerform = [&, performs = 0](int& running) mutable {
        running = ++performs == 1 ? 1 : 0;
        if (performs == 1) {
            std::string given;
            curl.callRead(given, 100);
            curl.advanceClock(7000 * kMs);
        } else {
            curl.advanceClock(2000 * kMs);
            setErrorText("Connection timed out");
            curl.finishWith(CURLE_COULDNT_CONNECT);
        }
        return CURLM_OK;
    };
    connection.Settings.setPayload({1, 2, 3});
    EXPECT_EQ(send(), "HTTPTimeoutException[Connection timed out, 2000, HTTPOptions.ConnectTimeout]");
}

TEST_F(HTTPConnectionSendTest, RunsOnTheUsersBehalfThroughout) {
    std::vector<std::string> events;
    host().onImpersonation([&] { events.push_back("in " + std::to_string(curl.options().size())); },
                           [&] { events.push_back("out"); });
    EXPECT_EQ(sendAnswered(), "nothing");
    EXPECT_THAT(events, ElementsAre("in 1", "out")); // after the header list, before all other options
    reopen();
    runFor(9);
    curl.failCall(CurlFunction::MultiPerform, CURLM_INTERNAL_ERROR);
    EXPECT_NE(send(), "nothing");
    EXPECT_THAT(events, ElementsAre("in 1", "out", "in 1", "out"));
    EXPECT_EQ(host().impersonationDepth(), 0u);
}

// A failure that the completion reports comes before one that a callback has stored, and neither its text nor the
// stored one stays for the next send.
TEST_F(HTTPConnectionSendTest, CompletionComesBeforeAStoredFailure) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    setErrorText("old");
    playExchange("HTTP/1.1 200 OK\r\nbad\n", CURLE_RECV_ERROR);
    EXPECT_EQ(send(), "HTTPConnectionRefusedException[Unknown exception]");
    EXPECT_EQ(failureText(connection.Transfer.CallbackFailure),
              internalError("CRLF not found at the end of the received headers"));
    EXPECT_THAT(output.text(), ::testing::HasSubstr("**SENDING REQUEST HEADERS AND RECEIVING RESPONSE HEADERS **"));
    EXPECT_THAT(output.text(), ::testing::EndsWith("ALL HEADERS RECEIVED\n"));
    reopen();
    EXPECT_EQ(sendAnswered(), "nothing");
}

// The trace.

// Groups digits in twos.
struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\2"; }
};

TEST_F(HTTPConnectionSendTest, TraceShowsEachStageAndIsTheSameInEveryLocale) {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    connection.setRequestMethod("PUT");
    connection.Settings.setPayload({'x'});
    connection.Settings.Username = "bob";
    connection.Settings.Password = "secret";
    connection.Settings.ProxyPassword = "hidden";
    connection.Settings.HostAuthSchemes = 0xFFFFFFEF;
    runFor(1);
    EXPECT_EQ(send(), "nothing");
    std::locale::global(before);
    EXPECT_EQ(output.text(),
              "Host username = bob, Schemes = ffffffef\n"
              "Proxy username = , Schemes = 0\n"
              "*****************SENDING REQUEST HEADERS+DATA AND RECEIVING RESPONSE HEADERS *****************\n"
              "PERFORM IN WRITER 1 times\n"
              "Starting perform loop\n"
              "ALL HEADERS RECEIVED\n"
              "DONE WITH SEND_REQUEST(). RETURNING BACK TO VANTIK\n"
              "\n"
              "********************END OF RECEIVE_RESPONSE******************\n");
    EXPECT_THAT(curl.texts({CurlFunction::VersionInfo}), ElementsAre("curl_version_info 10"));
    EXPECT_TRUE(connection.Transfer.PerformDone);
}

} // namespace
