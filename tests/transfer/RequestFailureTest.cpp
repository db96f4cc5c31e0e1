// Requests that fail before anything is sent: what is told, what stays as it was, and that the next request works.
#include "tests/transfer/ConnectionFixture.h"

#include <ostream>

namespace {

using Lines = std::vector<std::string>;

std::string refusal(const std::string& option) {
    return internalError('"' + option + "\" failed with CURLcode " + curl_easy_strerror(CURLE_OUT_OF_MEMORY));
}

class RequestFailure : public OpenConnectionFixture {
protected:
    void expectUnsent() {
        EXPECT_TRUE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.SentHead.Sent);
        EXPECT_FALSE(connection.Transfer.ResponseDone);
        EXPECT_FALSE(connection.Transfer.TransferFailed) << "the send routine was never reached";
        EXPECT_TRUE(connection.Handles->ConnectionOpen);
        EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 0U);
    }
    // On the same open; the answer has no content.
    void expectSentNext(const std::string& headers) {
        EXPECT_EQ(sendWith({}), "nothing");
        EXPECT_EQ(optionText(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER " + headers);
        EXPECT_TRUE(connection.Transfer.ResponseDone);
        EXPECT_EQ(connection.getResponseCode(), 200);
    }
    static Lines linesOf(const CurlSlist& list) {
        Lines lines;
        for (const curl_slist* entry = list.get(); entry != nullptr; entry = entry->next) {
            lines.emplace_back(entry->data);
        }
        return lines;
    }
};

struct OptionRow {
    CURLoption Option;
    const char* Name;
    Lines SetBefore; // what the refused option does not take back
};

void PrintTo(const OptionRow& row, std::ostream* stream) {
    *stream << row.Name;
}

class RefusedOption : public RequestFailure, public ::testing::WithParamInterface<OptionRow> {};

TEST_P(RefusedOption, StopsTheSendAndTheNextOneIsWhole) {
    connection.Settings.Decode = true;
    curl.failOption(GetParam().Option, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(sendWith({{"Cookie", "a=1"}, {"Proxy-Connection", "close"}}), refusal(GetParam().Name));
    Lines options = curl.options();
    ASSERT_FALSE(options.empty());
    options.pop_back(); // the refused one
    EXPECT_EQ(options, GetParam().SetBefore);
    expectUnsent();
    // The fields that the first attempt has added stay, and being empty they are added once more.
    const std::string added =
        GetParam().Option == CURLOPT_ACCEPT_ENCODING ? "Accept-Encoding:|" : "Accept-Encoding:|Accept:|";
    expectSentNext('{' + added + "Accept-Encoding:|Accept:}");
    EXPECT_EQ(optionText(CURLOPT_COOKIE), "CURLOPT_COOKIE a=1; ");
    EXPECT_EQ(optionText(CURLOPT_PROXYHEADER), "CURLOPT_PROXYHEADER {Proxy-Connection: close}");
}

INSTANTIATE_TEST_SUITE_P(Options, RefusedOption,
                         ::testing::Values(OptionRow{CURLOPT_ACCEPT_ENCODING, "CURLOPT_ACCEPT_ENCODING", {}},
                                           OptionRow{CURLOPT_COOKIE, "CURLOPT_COOKIE", {"CURLOPT_ACCEPT_ENCODING "}},
                                           OptionRow{CURLOPT_HTTPHEADER,
                                                     "CURLOPT_HTTPHEADER",
                                                     {"CURLOPT_ACCEPT_ENCODING ", "CURLOPT_COOKIE a=1; "}},
                                           OptionRow{CURLOPT_PROXYHEADER,
                                                     "CURLOPT_PROXYHEADER",
                                                     {"CURLOPT_ACCEPT_ENCODING ", "CURLOPT_COOKIE a=1; ",
                                                      "CURLOPT_HTTPHEADER {Accept-Encoding:|Accept:}"}}),
                         [](const auto& info) { return std::string(info.param.Name).substr(8); });

TEST_F(RequestFailure, RefusedCookieListIsNamed) {
    connection.Settings.CookieList.append("a=1");
    curl.failOption(CURLOPT_COOKIE, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(sendWith({}), refusal("CURLOPT_COOKIE"));
    expectUnsent();
    expectSentNext("{Accept:|Accept:}");
}

struct MethodFailureRow {
    const char* Method;
    CURLoption Option;
    const char* Name;
    Lines SetBefore;
};

void PrintTo(const MethodFailureRow& row, std::ostream* stream) {
    *stream << row.Name;
}

class RefusedMethod : public RequestFailure, public ::testing::WithParamInterface<MethodFailureRow> {};

// The name is stored before libcurl is asked.
TEST_P(RefusedMethod, IsStoredAllTheSameAndCanBeSetAgain) {
    const MethodFailureRow& row = GetParam();
    connection.setRequestMethod("OPTIONS");
    curl.clear();
    curl.failOption(row.Option, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(failureText([&] { connection.setRequestMethod(row.Method); }), refusal(row.Name));
    EXPECT_EQ(connection.Settings.RequestMethod, row.Method);
    EXPECT_EQ(connection.SentHead.EffectiveMethod, row.Method);
    Lines options = curl.options();
    ASSERT_FALSE(options.empty());
    options.pop_back();
    EXPECT_EQ(options, row.SetBefore);
    expectUnsent();
    EXPECT_EQ(failureText([&] { connection.setRequestMethod(row.Method); }), "nothing");
    expectSentNext("{Accept:}");
}

INSTANTIATE_TEST_SUITE_P(
    Methods, RefusedMethod,
    ::testing::Values(MethodFailureRow{"head", CURLOPT_NOBODY, "CURLOPT_NOBODY", {}},
                      MethodFailureRow{"get", CURLOPT_HTTPGET, "CURLOPT_HTTPGET", {}},
                      MethodFailureRow{"PUT", CURLOPT_NOBODY, "CURLOPT_NOBODY", {}},
                      MethodFailureRow{"PUT", CURLOPT_CUSTOMREQUEST, "CURLOPT_CUSTOMREQUEST", {"CURLOPT_NOBODY 0"}}));

TEST_F(RequestFailure, BadLengthLeavesTheListsPartlyBuilt) {
    EXPECT_EQ(sendWith({{"X-A", "1"}, {"Proxy-Connection", "close"}, {"Content-Length", "12abc"}, {"X-B", "2"}}),
              internalError("Bad Content-Length value 12abc"));
    expectUnsent();
    EXPECT_THAT(curl.options(), IsEmpty());
    EXPECT_EQ(linesOf(connection.Transfer.RequestHeaders), (Lines{"X-A: 1", "Content-Length: 12abc"}));
    EXPECT_EQ(linesOf(connection.Transfer.ProxyHeaders), (Lines{"Proxy-Connection: close"}));
    EXPECT_TRUE(connection.Transfer.HasContentLength);
    reopen();
    expectSentNext("{Accept:}");
    EXPECT_FALSE(connection.Transfer.HasContentLength);
    EXPECT_EQ(linesOf(connection.Transfer.ProxyHeaders), Lines{});
}

TEST_F(RequestFailure, RefusedTextLeavesEverythingAsItWas) {
    connection.Settings.HTTPOptionsMode = false;
    connection.setRequestMethod("POST");
    connection.SentHead.EffectiveMethod = "before";
    connection.Settings.setPayload({'o', 'l', 'd'});
    connection.Transfer.ContentLengthToSend = 77;
    connection.Settings.PostData = u"\u20AC";
    EXPECT_THAT(sendWith({{"Content-Type", "text/plain; charset=us-ascii"}}),
                ::testing::StartsWith("VANTIK:webservices:EncodingFailure[U:\u20AC, N:us-ascii, N:"));
    expectUnsent();
    EXPECT_EQ(std::string(connection.Settings.payload().begin(), connection.Settings.payload().end()), "old");
    EXPECT_EQ(connection.Transfer.ContentLengthToSend, 77);
    EXPECT_FALSE(connection.Transfer.BodyFromPostData);
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "before");
    EXPECT_FALSE(connection.Transfer.RequestHeaders);
    EXPECT_THAT(curl.options(), IsEmpty());
    connection.Settings.PostData = u"text";
    expectSentNext("{Content-Type: text/plain; charset=us-ascii|Accept:|Accept:|Content-Length: 4|Transfer-Encoding:}");
}

// The default conversion has no encoding to name, so what it refuses is a failure like any other.
TEST_F(RequestFailure, TextThatTheDefaultConversionRefusesIsAFailedConnection) {
    connection.Settings.HTTPOptionsMode = false;
    connection.setRequestMethod("POST");
    connection.Settings.PostData = std::u16string(1, char16_t{0xD800});
    EXPECT_THAT(sendWith({}), ::testing::StartsWith("HTTPConnectionFailedException["));
    expectUnsent();
    EXPECT_THAT(connection.Settings.payload(), IsEmpty());
    EXPECT_FALSE(connection.Transfer.BodyFromPostData);
    connection.Settings.PostData = u"text";
    expectSentNext("{Accept:|Accept:|Content-Length: 4|Transfer-Encoding:}");
}

// Metadata is read twice in a send; where the second reading fails, what was read before stays.
TEST_F(RequestFailure, RefusedMetadataKeepWhatIsKnown) {
    curl.failInfo(CURLINFO_SIZE_DOWNLOAD_T, CURLE_OUT_OF_MEMORY, 2);
    playExchange("HTTP/1.1 302 Found\r\nContent-Encoding: gzip\r\nLocation: /x\r\n\r\n");
    EXPECT_EQ(send(), refusal("CURLINFO_SIZE_DOWNLOAD_T"));
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_TRUE(connection.SentHead.Sent);
    EXPECT_FALSE(connection.Transfer.TransferFailed);
    EXPECT_EQ(connection.Metadata.ContentEncoding, "gzip");
    EXPECT_EQ(connection.Metadata.RedirectURL, "http://127.0.0.1/x");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 302);
    reopen();
    expectSentNext("{Accept:}");
}

class OpenFailure : public ConnectionFixture {
protected:
    void expectClosedThenGood() {
        EXPECT_FALSE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.Handles->ConnectionOpen);
        connection.setTimeouts({5000.0});
        EXPECT_EQ(failureText([&] { open(connection); }), "nothing");
        EXPECT_TRUE(connection.Transfer.Opened);
        playExchange("HTTP/1.1 200 OK\r\n\r\n");
        EXPECT_EQ(connection.getResponseCode(), 200);
    }

    HTTPConnection connection;
};

TEST_F(OpenFailure, RefusedConnectTimeoutIsNamed) {
    curl.failOption(CURLOPT_CONNECTTIMEOUT_MS, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(failureText([&] { open(connection); }), refusal("CURLOPT_CONNECTTIMEOUT_MS"));
    expectClosedThenGood();
}

TEST_F(OpenFailure, OverflowOfTheResponseLimitKeepsTheOldIntegers) {
    connection.Limits.ResponseTimeoutMs = 11;
    connection.Limits.DataTimeoutMs = 22;
    connection.setTimeouts({5000.0, 1e12, 10.0});
    EXPECT_THAT(failureText([&] { open(connection); }), ::testing::StartsWith("boost::numeric::positive_overflow["));
    EXPECT_EQ(connection.Limits.ResponseTimeoutMs, 11);
    EXPECT_EQ(connection.Limits.DataTimeoutMs, 22);
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(5000.0, 1e12, 10.0, SilenceLimits::kUnlimited));
    expectClosedThenGood();
}

TEST_F(OpenFailure, OverflowOfTheDataLimitComesBehindTheResponseLimit) {
    connection.Limits.DataTimeoutMs = 22;
    connection.setTimeouts({5000.0, 10.0, -1e12});
    EXPECT_THAT(failureText([&] { open(connection); }), ::testing::StartsWith("boost::numeric::negative_overflow["));
    EXPECT_EQ(connection.Limits.ResponseTimeoutMs, 10);
    EXPECT_EQ(connection.Limits.DataTimeoutMs, 22);
    expectClosedThenGood();
}

} // namespace
