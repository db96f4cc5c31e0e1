#include "errors/InternalError.h"

// sendRequest of a connection: content from PostData, when it sends at all, and what it makes of a failure.
#include "errors/HTTPException.h"
#include "host/Interrupt.h"
#include "tests/transfer/ConnectionFixture.h"

#include <new>
#include <stdexcept>

namespace {

using SendRequestTest = OpenConnectionFixture;

// Content from PostData: text, fields, what the payload is or the failure.
struct PostRow {
    const char* Name;
    const char* Method;
    const char16_t* Text;
    const char* ContentType; // null: no such field
    const char* Payload;
    const char* Failure = "nothing";
};

class PostDataTest : public SendRequestTest, public ::testing::WithParamInterface<PostRow> {};

TEST_P(PostDataTest, IsEncodedAsTheContentTypeSays) {
    const PostRow& row = GetParam();
    connection.Settings.HTTPOptionsMode = false;
    connection.setRequestMethod(row.Method);
    connection.Settings.PostData = row.Text;
    std::vector<Field> fields;
    if (row.ContentType != nullptr) {
        fields.emplace_back("content-type", row.ContentType);
    }
    EXPECT_EQ(sendWith(fields).substr(0, std::string(row.Failure).size()), row.Failure);
    const std::string expected = row.Payload;
    EXPECT_EQ(std::string(connection.Settings.payload().begin(), connection.Settings.payload().end()), expected);
    if (std::string(row.Failure) == "nothing") {
        EXPECT_TRUE(connection.Transfer.BodyFromPostData);
        std::string lines = fields.empty() ? "{" : "{content-type: " + fields[0].second + '|';
        lines += "Accept:|Content-Length: " + std::to_string(expected.size()) + "|Transfer-Encoding:}";
        EXPECT_EQ(optionText(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER " + lines);
        EXPECT_EQ(optionText(CURLOPT_UPLOAD), expected.empty() ? "unset" : "CURLOPT_UPLOAD 1");
    } else {
        EXPECT_FALSE(connection.Transfer.BodyFromPostData);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Encodings, PostDataTest,
    ::testing::Values(PostRow{"Utf8", "POST", u"\u00E4b", "text/plain; charset=utf-8",
                              "\xC3\xA4"
                              "b"},
                      PostRow{"Windows1252", "PUT", u"\u20AC", "text/plain;charset=windows-1252", "\x80"},
                      PostRow{"Quoted", "PATCH", u"\u00E4", "text/plain; CHARSET=\"UTF-8\"", "\xC3\xA4"},
                      PostRow{"NoCharset", "POST", u"\u00E4b", "text/plain",
                              "\xC3\xA4"
                              "b"},
                      PostRow{"OtherParameter", "POST", u"b", "multipart/form-data; boundary=x", "b"},
                      PostRow{"NoContentType", "POST", u"\u00E4b", nullptr,
                              "\xC3\xA4"
                              "b"},
                      PostRow{"NoText", "POST", u"", nullptr, ""},
                      PostRow{"EmptyCharsetIsAscii", "POST", u"b", "text/plain; charset=\"\"", "b"},
                      PostRow{"EmptyCharsetRefuses", "POST", u"\u00E4", "text/plain; charset=\"\"", "",
                              "VANTIK:webservices:EncodingFailure[U:\u00E4, N:ascii, N:"},
                      PostRow{"UnknownCharset", "POST", u"b", "text/plain; charset=no-such-thing", "",
                              "VANTIK:webservices:EncodingFailure[U:b, N:no-such-thing, N:"},
                      PostRow{"NotInThatCharset", "POST", u"\u20AC", "text/plain; charset=us-ascii", "",
                              "VANTIK:webservices:EncodingFailure[U:\u20AC, N:us-ascii, N:"}),
    [](const auto& info) { return info.param.Name; });

TEST_F(SendRequestTest, PostDataIsNotReadByTheHttpInterface) {
    connection.setRequestMethod("PUT");
    connection.Settings.PostData = u"text";
    EXPECT_EQ(sendWith({}), "nothing");
    EXPECT_THAT(connection.Settings.payload(), IsEmpty());
    EXPECT_FALSE(connection.Transfer.BodyFromPostData);
}

TEST_F(SendRequestTest, OnlyTheExactMethodsSendPostData) {
    connection.Settings.HTTPOptionsMode = false;
    for (const char* method : {"post", "Put", "GET", "DELETE", "POST "}) {
        connection.setRequestMethod(method);
        connection.Settings.PostData = u"text";
        EXPECT_EQ(sendWith({}), "nothing");
        EXPECT_THAT(connection.Settings.payload(), IsEmpty()) << method;
        connection.openConnection();
        connection.Transfer.ResponseDone = false;
    }
}

TEST_F(SendRequestTest, OwnLengthReplacesTheComputedOne) {
    connection.Settings.HTTPOptionsMode = false;
    connection.setRequestMethod("POST");
    connection.Settings.PostData = u"text";
    EXPECT_EQ(sendWith({{"Content-Length", "4"}}), "nothing");
    EXPECT_EQ(optionText(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER {Content-Length: 4|Accept:|Transfer-Encoding:}");
}

TEST_F(SendRequestTest, OlderInterfaceStartsFromTheMethodThatWasSet) {
    connection.Settings.HTTPOptionsMode = false;
    connection.setRequestMethod("DELETE");
    connection.SentHead.EffectiveMethod = "CONNECT";
    playExchange("HTTP/1.1 200 OK\r\n\r\n", CURLE_OK, "");
    connection.sendRequest();
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "DELETE");
}

TEST_F(SendRequestTest, IsSentOncePerExchange) {
    EXPECT_EQ(sendWith({}), "nothing");
    EXPECT_TRUE(connection.Transfer.ResponseDone);
    EXPECT_TRUE(connection.SentHead.Sent);
    curl.clear();
    connection.sendRequest();
    EXPECT_EQ(connection.getContentEncoding(), "");
    EXPECT_EQ(connection.getContentType(), "");
    EXPECT_EQ(connection.getRedirectURL(), "");
    EXPECT_EQ(connection.getResponseCode(), 200);
    EXPECT_THAT(curl.calls(), IsEmpty());
}

TEST_F(SendRequestTest, NothingIsSentInAnyOtherState) {
    curl.clear();
    connection.Transfer.ResponseDone = true;
    connection.sendRequest();
    connection.Transfer.ResponseDone = false;
    connection.SentHead.Sent = true;
    connection.sendRequest();
    connection.SentHead.Sent = false;
    connection.Transfer.Opened = false;
    connection.sendRequest();
    EXPECT_THAT(curl.calls(), IsEmpty());
}

TEST_F(SendRequestTest, EachGetterSendsFirst) {
    const std::vector<std::function<void()>> getters{
        [&] { connection.getContentEncoding(); }, [&] { connection.getContentType(); },
        [&] { connection.getRedirectURL(); }, [&] { connection.getResponseCode(); }};
    for (const auto& getter : getters) {
        playExchange("HTTP/1.1 200 OK\r\n\r\n");
        connection.closeConnection();
        connection.openConnection();
        getter();
        EXPECT_TRUE(connection.Transfer.ResponseDone);
    }
}

TEST_F(SendRequestTest, UnknownStatusIsAskedOfLibcurl) {
    EXPECT_EQ(sendWith({}), "nothing");
    connection.ReceivedHead.ResponseCode = 0;
    curl.giveInfo(CURLINFO_RESPONSE_CODE, 503L);
    EXPECT_EQ(connection.getResponseCode(), 503);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 0);
    curl.failInfo(CURLINFO_RESPONSE_CODE, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(failureText([&] { connection.getResponseCode(); }),
              internalError(std::string("\"CURLINFO_RESPONSE_CODE\" failed with CURLcode ") +
                            curl_easy_strerror(CURLE_UNKNOWN_OPTION)));
}

TEST_F(SendRequestTest, StoredFailureOfACallbackIsRaisedBehindTheSend) {
    playExchange("HTTP/1.1 200 OK\r\nX-A: b\n\r\n");
    EXPECT_EQ(failureText([&] { connection.sendRequest(); }),
              internalError("CRLF not found at the end of the received headers"));
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_FALSE(connection.Transfer.TransferFailed); // the send routine itself has ended well
}

// What leaves the loop, what the caller then sees, and whether the transfer counts as failed.
struct GuardRow {
    const char* Name;
    std::function<void()> Raise;
    const char* Failure;
    bool TransferFailed;
};

class SendGuardTest : public SendRequestTest, public ::testing::WithParamInterface<GuardRow> {};

TEST_P(SendGuardTest, PassesWhatItKnowsAndWrapsTheRest) {
    curl.OnWait = [](int, int& ready) {
        ready = 1;
        return CURLM_OK;
    };
    curl.OnPerform = [](int& running) {
        running = 1;
        return CURLM_OK;
    };
    curl.OnInterruptPoll = GetParam().Raise;
    EXPECT_EQ(failureText([&] { connection.sendRequest(); }), GetParam().Failure);
    EXPECT_EQ(connection.Transfer.TransferFailed, GetParam().TransferFailed);
    EXPECT_TRUE(connection.Transfer.Opened);
    EXPECT_FALSE(connection.Transfer.ResponseDone);
}

INSTANTIATE_TEST_SUITE_P(
    Failures, SendGuardTest,
    ::testing::Values(
        GuardRow{"Transfer", [] { throw webservices::HTTPDNSException("h"); }, "HTTPDNSException[h]", true},
        GuardRow{"CopyStream", [] { throw webservices::HTTPCopyStreamException("h"); }, "HTTPCopyStreamException[h]",
                 false},
        GuardRow{"User", [] { throwInternalError("text"); }, "VANTIK:webservices:InternalError[N:text]", true},
        GuardRow{"Standard", [] { throw std::runtime_error("text"); }, "HTTPConnectionFailedException[text]", true},
        GuardRow{"Memory", [] { throw std::bad_alloc(); }, "HTTPConnectionFailedException[std::bad_alloc]", true},
        GuardRow{"NoStandardException", [] { throw 7; }, "unknown", false}),
    [](const auto& info) { return info.param.Name; });

TEST_F(SendRequestTest, InterruptBecomesAFailedConnection) {
    const std::string text = Zentorak::System::InterruptException(false).what();
    curl.OnPerform = [](int& running) {
        running = 1;
        return CURLM_OK;
    };
    host().interrupt();
    EXPECT_EQ(failureText([&] { connection.sendRequest(); }), "HTTPConnectionFailedException[" + text + "]");
    EXPECT_TRUE(connection.Transfer.TransferFailed);
    EXPECT_FALSE(host().interruptPending());
}

TEST_F(SendRequestTest, EndOfTheExchangeIsTracedBehindAnEmptyLine) {
    const StandardOutputCapture output;
    connection.Settings.Debug = 1;
    EXPECT_EQ(sendWith({}), "nothing");
    EXPECT_THAT(output.text(), ::testing::EndsWith("DONE WITH SEND_REQUEST(). RETURNING BACK TO VANTIK\n\n"
                                                   "********************END OF RECEIVE_RESPONSE******************\n"));
    connection.Settings.Debug = 0;
}

} // namespace
