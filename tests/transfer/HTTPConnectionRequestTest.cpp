// What goes out with a request, when it is sent, and what is left of one that fails before anything has gone out.
#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "tests/transfer/ConnectionFixture.h"

#include <functional>
#include <limits>
#include <new>
#include <stdexcept>

namespace {

using Lines = std::vector<std::string>;

class HTTPConnectionRequestTest : public OpenConnectionFixture {
protected:
    using Fields = std::vector<Field>;

    // The request's lines as libcurl gets them, "{A: b|C:}", or why there are none.
    std::string linesOf(const Fields& fields) {
        const std::string outcome = sendWith(fields);
        return outcome == "nothing" ? optionText(CURLOPT_HTTPHEADER).substr(std::string("CURLOPT_HTTPHEADER ").size())
                                    : outcome;
    }
    void expectUnsent() {
        EXPECT_TRUE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.SentHead.Sent);
        EXPECT_FALSE(connection.Transfer.ResponseDone);
        EXPECT_FALSE(connection.Transfer.TransferFailed) << "the send routine was never reached";
        EXPECT_TRUE(connection.Handles->ConnectionOpen);
        EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 0U);
    }
    // On the same open.
    void expectSentNext(const std::string& lines) {
        EXPECT_EQ(linesOf({}), lines);
        EXPECT_TRUE(connection.Transfer.ResponseDone);
        EXPECT_EQ(connection.getResponseCode(), 200);
    }
    // The options that were set before one that was refused.
    Lines optionsBeforeTheLast() const {
        Lines options = curl.options();
        EXPECT_FALSE(options.empty());
        options.resize(options.empty() ? 0 : options.size() - 1);
        return options;
    }
    std::string payload() const { return {connection.Settings.payload().begin(), connection.Settings.payload().end()}; }
};

TEST_F(HTTPConnectionRequestTest, MethodBecomesOptions) {
    struct Row {
        std::string Method;
        std::string Stored;
        Lines Options;
    };
    for (const auto& [method, stored, options] :
         {Row{"", "GET", {"CURLOPT_HTTPGET 1"}}, Row{"GET", "GET", {"CURLOPT_HTTPGET 1"}},
          Row{"get", "get", {"CURLOPT_HTTPGET 1"}}, Row{"HEAD", "HEAD", {"CURLOPT_NOBODY 1"}},
          Row{"head", "head", {"CURLOPT_NOBODY 1"}},
          Row{"POST", "POST", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST POST"}},
          Row{"delete", "delete", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST delete"}},
          Row{"GETX", "GETX", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST GETX"}}}) {
        curl.clear();
        connection.setRequestMethod(method);
        EXPECT_EQ(connection.Settings.RequestMethod, stored);
        EXPECT_EQ(connection.SentHead.EffectiveMethod, stored);
        EXPECT_EQ(curl.options(), options);
    }
}

// The name is stored before libcurl is asked.
TEST_F(HTTPConnectionRequestTest, RefusedMethodIsStoredAllTheSameAndCanBeSetAgain) {
    struct Row {
        std::string Method;
        CurlNamed<CURLoption> Option;
        Lines SetBefore;
    };
    for (const auto& [method, option, setBefore] :
         {Row{"head", CURL_NAMED(CURLOPT_NOBODY), {}}, Row{"get", CURL_NAMED(CURLOPT_HTTPGET), {}},
          Row{"PUT", CURL_NAMED(CURLOPT_NOBODY), {}},
          Row{"PUT", CURL_NAMED(CURLOPT_CUSTOMREQUEST), {"CURLOPT_NOBODY 0"}}}) {
        connection.setRequestMethod("OPTIONS");
        curl.clear();
        curl.failOption(option.Value, CURLE_OUT_OF_MEMORY);
        EXPECT_EQ(failureText([&] { connection.setRequestMethod(method); }),
                  easyFailure(option.Name, CURLE_OUT_OF_MEMORY));
        EXPECT_EQ(connection.Settings.RequestMethod, method);
        EXPECT_EQ(connection.SentHead.EffectiveMethod, method);
        EXPECT_EQ(optionsBeforeTheLast(), setBefore);
        expectUnsent();
        EXPECT_EQ(failureText([&] { connection.setRequestMethod(method); }), "nothing");
    }
    expectSentNext("{Accept:}");
}

TEST_F(HTTPConnectionRequestTest, SchemesBecomeBits) {
    connection.setAuthenticationSchemes({"basic", "digest", "ntlm", "negotiate"}, false);
    EXPECT_EQ(connection.Settings.HostAuthSchemes, 15u);
    EXPECT_EQ(connection.Settings.ProxyAuthSchemes, 0u);
    connection.setAuthenticationSchemes({"BASIC", "unknown", "Basic "}, false);
    EXPECT_EQ(connection.Settings.HostAuthSchemes, 1u);
    const std::vector<std::pair<std::string, std::uint32_t>> rows{{"Digest", 2}, {"Negotiate", 4}, {"NTLM", 8}};
    for (const auto& [name, bit] : rows) {
        connection.setAuthenticationSchemes({name}, true);
        EXPECT_EQ(connection.Settings.ProxyAuthSchemes, bit);
    }
    EXPECT_EQ(connection.Settings.HostAuthSchemes, 1u);
    connection.setAuthenticationSchemes({}, false);
    EXPECT_EQ(connection.Settings.HostAuthSchemes, 0u);
}

TEST_F(HTTPConnectionRequestTest, FieldsAreFoundAndRemovedByNameWhateverItsCase) {
    connection.addField("X-Name", "first");
    connection.addField("X-A", "b");
    connection.addField("x-name", "second");
    EXPECT_EQ(connection.getRequestField("X-NAME"), "first");
    EXPECT_EQ(connection.getRequestField("X-Nam"), "");
    EXPECT_EQ(connection.getRequestField("X-Name "), "");
    connection.removeField("X-NAME"); // an empty value makes libcurl leave out its own
    EXPECT_THAT(connection.Settings.RequestFields, ElementsAre(Field("X-A", "b"), Field("X-NAME", "")));
}

// The lists that libcurl gets.

TEST_F(HTTPConnectionRequestTest, HeaderListsAreBuiltFromTheFields) {
    struct Row {
        Fields Given;
        std::string Lines;
        std::string ProxyHeader = "unset";
        std::string Cookie = "unset";
    };
    const Row rows[] = {
        {{}, "{Accept:}"},
        {{{"accept", "text/html"}}, "{accept: text/html}"},
        {{{"Accept", ""}}, "{Accept:|Accept:}"},
        {{{"X-B", "1"}, {"X-A", "2"}, {"X-B", "3"}}, "{X-B: 1|X-A: 2|X-B: 3|Accept:}"},
        {{{"User-Agent", ""}}, "{User-Agent:|Accept:}"}, // removes libcurl's own
        {{{"X-A", " b : c "}, {"", "d"}}, "{X-A:  b : c |: d|Accept:}"},
        {{{"Cookie", "a=1"}, {"X-A", "b"}, {"COOKIE", "b=2"}, {"Cookies", "c"}},
         "{X-A: b|Cookies: c|Accept:}",
         "unset",
         "CURLOPT_COOKIE a=1; b=2; "},
        {{{"Cookie", ""}}, "{Cookie:|Accept:}"},
        {{{"proxy-connection", "close"}, {"Proxy-Connection", ""}},
         "{Accept:}",
         "CURLOPT_PROXYHEADER {proxy-connection: close|Proxy-Connection:}"},
        // A length removes the transfer encoding unless there is one of the caller's, before or after it.
        {{{"content-length", "12"}}, "{content-length: 12|Accept:|Transfer-Encoding:}"},
        {{{"Content-Length", " +12"}}, "{Content-Length:  +12|Accept:|Transfer-Encoding:}"},
        {{{"Transfer-Encoding", "chunked"}, {"Content-Length", "12"}},
         "{Transfer-Encoding: chunked|Content-Length: 12|Accept:}"},
        {{{"Content-Length", "12"}, {"transfer-encoding", "gzip"}},
         "{Content-Length: 12|transfer-encoding: gzip|Accept:}"},
        {{{"Transfer-Encoding", "chunked"}}, "{Transfer-Encoding: chunked|Accept:}"},
        {{{"Content-Length", "12"}, {"Content-Length", "x"}}, // only the first is looked at
         "{Content-Length: 12|Content-Length: x|Accept:|Transfer-Encoding:}"},
    };
    for (const auto& [given, lines, proxyHeader, cookie] : rows) {
        reopen();
        connection.Transfer.ProxyHeaders.clear(); // the next send has no list to take back
        EXPECT_EQ(linesOf(given), lines);
        EXPECT_EQ(optionText(CURLOPT_PROXYHEADER), proxyHeader);
        EXPECT_EQ(optionText(CURLOPT_COOKIE), cookie);
        EXPECT_EQ(optionText(CURLOPT_ACCEPT_ENCODING), "unset");
    }
}

TEST_F(HTTPConnectionRequestTest, BadLengthIsRefusedWithItsValue) {
    for (const std::string value :
         {"12abc", "abc", "", " ", "12 ", "0x10", "1.5", "9223372036854775808", "-9223372036854775809", "+", "--1"}) {
        connection.Transfer.ProxyHeaders.clear();
        EXPECT_EQ(linesOf({{"Proxy-Connection", "close"}, {"Content-Length", value}, {"X-B", "2"}}),
                  internalError("Bad Content-Length value " + value));
        expectUnsent();
        EXPECT_THAT(curl.options(), IsEmpty());
        EXPECT_TRUE(connection.Transfer.HasContentLength);
        reopen();
    }
    expectSentNext("{Accept:}"); // nothing of the lists that were built in part
    EXPECT_FALSE(connection.Transfer.HasContentLength);
    EXPECT_FALSE(connection.Transfer.ProxyHeaders);
    reopen();
    EXPECT_EQ(linesOf({{"Content-Length", "9223372036854775807"}}),
              "{Content-Length: 9223372036854775807|Accept:|Transfer-Encoding:}");
    EXPECT_EQ(connection.Transfer.ContentLengthToSend, std::numeric_limits<std::int64_t>::max());
}

TEST_F(HTTPConnectionRequestTest, DecodingIsAskedForWithoutAdvertisingIt) {
    connection.Settings.Decode = true;
    EXPECT_EQ(linesOf({}), "{Accept-Encoding:|Accept:}");
    EXPECT_EQ(optionText(CURLOPT_ACCEPT_ENCODING), "CURLOPT_ACCEPT_ENCODING ");
    reopen();
    EXPECT_EQ(linesOf({{"accept-encoding", "br"}}), "{accept-encoding: br|Accept:}");
    EXPECT_EQ(optionText(CURLOPT_ACCEPT_ENCODING), "CURLOPT_ACCEPT_ENCODING ");
}

TEST_F(HTTPConnectionRequestTest, ListsLiveUntilTheNextSend) {
    EXPECT_EQ(linesOf({{"X-A", "b"}, {"Proxy-Connection", "close"}}), "{X-A: b|Accept:}");
    const void* given = curl.lastOption(CURLOPT_HTTPHEADER)->Pointer;
    EXPECT_EQ(connection.Transfer.RequestHeaders.get(), given);
    // After a challenge the handle keeps its options: a list that is freed must not stay among them.
    connection.ReceivedHead.ResponseCode = 401;
    reopen();
    EXPECT_EQ(connection.Transfer.RequestHeaders.get(), given);
    EXPECT_EQ(linesOf({}), "{Accept:}");
    EXPECT_FALSE(connection.Transfer.ProxyHeaders);
    EXPECT_EQ(optionText(CURLOPT_PROXYHEADER), "CURLOPT_PROXYHEADER (null)");
    EXPECT_EQ(curl.texts({CurlFunction::EasySetopt, CurlFunction::SlistFreeAll}).front(), "CURLOPT_PROXYHEADER (null)");
}

TEST_F(HTTPConnectionRequestTest, CookieListWouldBeSentAfterTheLists) {
    connection.Settings.CookieList.append("a=1");
    connection.Settings.CookieList.append("b=2");
    curl.failOption(CURLOPT_COOKIE, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(linesOf({}), easyFailure("CURLOPT_COOKIE", CURLE_OUT_OF_MEMORY));
    EXPECT_EQ(optionsBeforeTheLast(), Lines{"CURLOPT_HTTPHEADER {Accept:}"});
    expectUnsent();
    expectSentNext("{Accept:|Accept:}");
    EXPECT_EQ(optionText(CURLOPT_COOKIE), "CURLOPT_COOKIE a=1; b=2; ");
}

TEST_F(HTTPConnectionRequestTest, RefusedOptionStopsTheSendAndTheNextOneIsWhole) {
    const std::vector<std::pair<CurlNamed<CURLoption>, std::string>> inOrder{
        {CURL_NAMED(CURLOPT_ACCEPT_ENCODING), "CURLOPT_ACCEPT_ENCODING "},
        {CURL_NAMED(CURLOPT_COOKIE), "CURLOPT_COOKIE a=1; "},
        {CURL_NAMED(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER {Accept-Encoding:|Accept:}"},
        {CURL_NAMED(CURLOPT_PROXYHEADER), ""}};
    connection.Settings.Decode = true;
    Lines setBefore;
    for (const auto& [option, text] : inOrder) {
        curl.failOption(option.Value, CURLE_OUT_OF_MEMORY);
        EXPECT_EQ(linesOf({{"Cookie", "a=1"}, {"Proxy-Connection", "close"}}),
                  easyFailure(option.Name, CURLE_OUT_OF_MEMORY));
        EXPECT_EQ(optionsBeforeTheLast(), setBefore);
        setBefore.push_back(text);
        expectUnsent();
        // The fields that the first attempt has added stay, and being empty they are added once more.
        expectSentNext(option.Value == CURLOPT_ACCEPT_ENCODING ? "{Accept-Encoding:|Accept-Encoding:|Accept:}"
                                                               : "{Accept-Encoding:|Accept:|Accept-Encoding:|Accept:}");
        EXPECT_EQ(optionText(CURLOPT_COOKIE), "CURLOPT_COOKIE a=1; ");
        EXPECT_EQ(optionText(CURLOPT_PROXYHEADER), "CURLOPT_PROXYHEADER {Proxy-Connection: close}");
        reopen();
        connection.Transfer.ProxyHeaders.clear(); // the next send has no list to take back
    }
}

// Content from PostData.

struct PostRow {
    const char16_t* Text;
    const char* ContentType;
    std::string Payload;
    std::string Failure = "nothing";
};

TEST_F(HTTPConnectionRequestTest, PostDataIsEncodedAsTheContentTypeSays) {
    connection.Settings.HTTPOptionsMode = false;
    const std::string refused = "VANTIK:webservices:EncodingFailure[U:";
    for (const auto& [text, contentType, bytes, failure] :
         {PostRow{u"\u20AC", "text/plain;CHARSET=\"windows-1252\"", "\x80"},
          PostRow{u"\u20AC", "multipart/form-data; boundary=x", "\xE2\x82\xAC"}, PostRow{u"", "text/plain", ""},
          PostRow{u"b", "text/plain; charset=\"\"", "b"}, // as ASCII
          PostRow{u"\u00E4", "text/plain; charset=\"\"", "old", refused + "\u00E4, N:ascii, N:"},
          PostRow{u"b", "text/plain; charset=no-such-thing", "old", refused + "b, N:no-such-thing, N:"},
          PostRow{u"\u20AC", "text/plain; charset=us-ascii", "old", refused + "\u20AC, N:us-ascii, N:"}}) {
        reopen();
        connection.setRequestMethod("POST");
        connection.Settings.PostData = text;
        connection.Settings.setPayload({'o', 'l', 'd'});
        connection.Transfer.BodyFromPostData = false;
        connection.Transfer.RequestHeaders.clear();
        const std::string outcome = linesOf({{"content-type", contentType}});
        EXPECT_EQ(payload(), bytes);
        EXPECT_EQ(connection.Transfer.BodyFromPostData, failure == "nothing");
        if (failure == "nothing") {
            EXPECT_EQ(outcome, std::string("{content-type: ") + contentType +
                                   "|Accept:|Content-Length: " + std::to_string(bytes.size()) + "|Transfer-Encoding:}");
            EXPECT_EQ(optionText(CURLOPT_UPLOAD), bytes.empty() ? "unset" : "CURLOPT_UPLOAD 1");
        } else {
            EXPECT_THAT(outcome, ::testing::StartsWith(failure));
            expectUnsent();
            EXPECT_FALSE(connection.Transfer.RequestHeaders);
            EXPECT_THAT(curl.options(), IsEmpty());
            connection.Settings.PostData = u"text";
            connection.removeField("content-type");
            expectSentNext("{Accept:|content-type:|Accept:|Content-Length: 4|Transfer-Encoding:}");
        }
    }
}

// The default conversion has no encoding to name, so what it refuses is a failure like any other.
TEST_F(HTTPConnectionRequestTest, TextThatTheDefaultConversionRefusesIsAFailedConnection) {
    connection.Settings.HTTPOptionsMode = false;
    connection.setRequestMethod("POST");
    connection.Settings.PostData = std::u16string(1, char16_t{0xD800});
    EXPECT_THAT(linesOf({}), ::testing::StartsWith("HTTPConnectionFailedException["));
    expectUnsent();
    EXPECT_EQ(payload(), "");
}

TEST_F(HTTPConnectionRequestTest, OnlyTheExactMethodsOfTheOlderInterfaceSendPostData) {
    connection.Settings.PostData = u"text";
    const std::vector<std::pair<std::string, std::string>> rows{{"POST", "text"}, {"PUT", "text"}, {"PATCH", "text"},
                                                                {"post", ""},     {"Put", ""},     {"POST ", ""},
                                                                {"GET", ""},      {"DELETE", ""}};
    for (const auto& [method, sentByTheOlder] : rows) {
        for (const bool older : {true, false}) {
            reopen();
            connection.Settings.HTTPOptionsMode = !older;
            connection.setRequestMethod(method);
            connection.Settings.setPayload({});
            connection.Transfer.BodyFromPostData = false;
            EXPECT_EQ(linesOf({{"Content-Length", "4"}}), "{Content-Length: 4|Accept:|Transfer-Encoding:}");
            EXPECT_EQ(payload(), older ? sentByTheOlder : "") << method;
        }
    }
}

TEST_F(HTTPConnectionRequestTest, OlderInterfaceStartsFromTheMethodThatWasSet) {
    connection.Settings.HTTPOptionsMode = false;
    connection.setRequestMethod("DELETE");
    connection.SentHead.EffectiveMethod = "CONNECT";
    playExchange(kOk, CURLE_OK, "");
    connection.sendRequest();
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "DELETE");
}

// When it is sent, and what becomes of a failure.

struct Operation {
    const char* Name;
    std::function<std::string(HTTPConnection&)> Run;
    std::string Before; // what is known of an earlier exchange
    std::string After;  // what this exchange brings
};

const Operation kOperations[] = {
    {"sendRequest", [](auto& connection) { return connection.sendRequest(), ""; }, "", ""},
    {"getContentEncoding", [](auto& connection) { return connection.getContentEncoding(); }, "old encoding", "br"},
    {"getContentType", [](auto& connection) { return connection.getContentType(); }, "old type", "new type"},
    {"getRedirectURL", [](auto& connection) { return connection.getRedirectURL(); }, "http://old/", "http://new/"},
    {"getResponseCode", [](auto& connection) { return std::to_string(connection.getResponseCode()); }, "299", "302"},
};

TEST_F(HTTPConnectionRequestTest, IsSentOnceByWhateverAsksForTheResponse) {
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.Name);
        reopen();
        connection.Metadata = {"old type", "old encoding", "http://old/"};
        playExchange("HTTP/1.1 302 Found\r\nContent-Encoding: br\r\nLocation: http://new/\r\n\r\n");
        curl.giveInfo(CURLINFO_CONTENT_TYPE, "new type");
        connection.ReceivedHead.ResponseCode = 299;
        connection.Transfer.Opened = false;
        curl.clear();
        EXPECT_EQ(operation.Run(connection), operation.Before);
        EXPECT_TRUE(curl.calls().empty());
        connection.Transfer.Opened = true;
        EXPECT_EQ(operation.Run(connection), operation.After);
        EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 1U);
        EXPECT_TRUE(connection.Transfer.ResponseDone && connection.SentHead.Sent);
        curl.clear();
        EXPECT_EQ(operation.Run(connection), operation.After);
        EXPECT_TRUE(curl.calls().empty());
    }
}

TEST_F(HTTPConnectionRequestTest, UnknownStatusIsAskedOfLibcurl) {
    EXPECT_EQ(sendWith({}), "nothing");
    connection.ReceivedHead.ResponseCode = 0;
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 503L);
    EXPECT_EQ(connection.getResponseCode(), 503);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 0);
    curl.failInfo(CURLINFO_RESPONSE_CODE, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(failureText([&] { connection.getResponseCode(); }),
              easyFailure("CURLINFO_RESPONSE_CODE", CURLE_UNKNOWN_OPTION));
}

TEST_F(HTTPConnectionRequestTest, StoredFailureOfACallbackIsRaisedAfterTheSend) {
    playExchange("HTTP/1.1 200 OK\r\nX-A: b\n\r\n");
    EXPECT_EQ(send(), internalError("CRLF not found at the end of the received headers"));
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_FALSE(connection.Transfer.TransferFailed); // the send routine itself has ended well
}

// Metadata is read twice in a send; where the second reading fails, what was read before stays.
TEST_F(HTTPConnectionRequestTest, RefusedMetadataKeepWhatIsKnown) {
    curl.failInfo(CURLINFO_SIZE_DOWNLOAD_T, CURLE_OUT_OF_MEMORY, 2);
    playExchange("HTTP/1.1 302 Found\r\nContent-Encoding: gzip\r\nLocation: /x\r\n\r\n");
    EXPECT_EQ(send(), easyFailure("CURLINFO_SIZE_DOWNLOAD_T", CURLE_OUT_OF_MEMORY));
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_TRUE(connection.SentHead.Sent);
    EXPECT_FALSE(connection.Transfer.TransferFailed);
    EXPECT_EQ(connection.Metadata.ContentEncoding, "gzip");
    EXPECT_EQ(connection.Metadata.RedirectURL, "http://127.0.0.1/x");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 302);
    reopen();
    expectSentNext("{Accept:}");
}

// What leaves the loop, what the caller then sees, and whether the transfer counts as failed.
TEST_F(HTTPConnectionRequestTest, KnownFailuresPassAndTheOthersAreWrapped) {
    struct Row {
        std::function<void()> Raise;
        std::string Failure;
        bool TransferFailed;
    };
    findReadyAlways();
    curl.OnPerform = [](int& running) {
        running = 1;
        return CURLM_OK;
    };
    for (const auto& [raise, failure, transferFailed] :
         {Row{[] { throw webservices::HTTPDNSException("h"); }, "HTTPDNSException[h]", true},
          Row{[] { throw webservices::HTTPCopyStreamException("h"); }, "HTTPCopyStreamException[h]", false},
          Row{[] { throwInternalError("text"); }, internalError("text"), true},
          Row{[] { throw std::runtime_error("text"); }, "HTTPConnectionFailedException[text]", true},
          Row{[] { throw std::bad_alloc(); }, "HTTPConnectionFailedException[std::bad_alloc]", true},
          Row{[] { throw 7; }, "unknown", false}}) {
        connection.Transfer.TransferFailed = false;
        curl.OnInterruptPoll = raise;
        EXPECT_EQ(send(), failure);
        EXPECT_EQ(connection.Transfer.TransferFailed, transferFailed) << failure;
        EXPECT_TRUE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.Transfer.ResponseDone);
    }
}

} // namespace
