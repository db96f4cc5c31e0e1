#include "tests/transfer/ConnectionFixture.h"

#include <limits>

namespace {

using HTTPConnectionRequestTest = OpenConnectionFixture;

std::string easyText(CURLcode code) {
    return curl_easy_strerror(code);
}

struct MethodRow {
    const char* Method;
    const char* Stored;
    std::vector<std::string> Options;
};

class MethodTest : public HTTPConnectionRequestTest, public ::testing::WithParamInterface<MethodRow> {};

TEST_P(MethodTest, BecomesOptions) {
    curl.clear();
    connection.setRequestMethod(GetParam().Method);
    EXPECT_EQ(connection.Settings.RequestMethod, GetParam().Stored);
    EXPECT_EQ(connection.SentHead.EffectiveMethod, GetParam().Stored);
    EXPECT_EQ(curl.options(), GetParam().Options);
}

INSTANTIATE_TEST_SUITE_P(
    Methods, MethodTest,
    ::testing::Values(MethodRow{"", "GET", {"CURLOPT_HTTPGET 1"}}, MethodRow{"GET", "GET", {"CURLOPT_HTTPGET 1"}},
                      MethodRow{"get", "get", {"CURLOPT_HTTPGET 1"}}, MethodRow{"HEAD", "HEAD", {"CURLOPT_NOBODY 1"}},
                      MethodRow{"head", "head", {"CURLOPT_NOBODY 1"}},
                      MethodRow{"POST", "POST", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST POST"}},
                      MethodRow{"delete", "delete", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST delete"}},
                      MethodRow{"GETX", "GETX", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST GETX"}}));

TEST_F(HTTPConnectionRequestTest, RefusedMethodOptionsAreNamed) {
    const std::string text = easyText(CURLE_OUT_OF_MEMORY);
    curl.failOption(CURLOPT_NOBODY, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(failureText([&] { connection.setRequestMethod("HEAD"); }),
              internalError("\"CURLOPT_NOBODY\" failed with CURLcode " + text));
    curl.failOption(CURLOPT_HTTPGET, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(failureText([&] { connection.setRequestMethod("GET"); }),
              internalError("\"CURLOPT_HTTPGET\" failed with CURLcode " + text));
    curl.failOption(CURLOPT_CUSTOMREQUEST, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(failureText([&] { connection.setRequestMethod("PUT"); }),
              internalError("\"CURLOPT_CUSTOMREQUEST\" failed with CURLcode " + text));
}

TEST_F(HTTPConnectionRequestTest, SchemesBecomeBits) {
    connection.setAuthenticationSchemes({"basic", "digest", "ntlm", "negotiate"}, false);
    EXPECT_EQ(connection.Settings.HostAuthSchemes, 15u);
    EXPECT_EQ(connection.Settings.ProxyAuthSchemes, 0u);
    connection.setAuthenticationSchemes({"BASIC", "unknown", "Basic "}, false);
    EXPECT_EQ(connection.Settings.HostAuthSchemes, static_cast<std::uint32_t>(CURLAUTH_BASIC));
    connection.setAuthenticationSchemes({"Digest"}, true);
    EXPECT_EQ(connection.Settings.ProxyAuthSchemes, 2u);
    connection.setAuthenticationSchemes({"Negotiate"}, true);
    EXPECT_EQ(connection.Settings.ProxyAuthSchemes, 4u);
    connection.setAuthenticationSchemes({"NTLM"}, true);
    EXPECT_EQ(connection.Settings.ProxyAuthSchemes, 8u);
    EXPECT_EQ(connection.Settings.HostAuthSchemes, static_cast<std::uint32_t>(CURLAUTH_BASIC));
    connection.setAuthenticationSchemes({}, false);
    EXPECT_EQ(connection.Settings.HostAuthSchemes, 0u);
}

TEST_F(HTTPConnectionRequestTest, FieldsAreFoundByNameWhateverItsCase) {
    connection.addField("X-Name", "first");
    connection.addField("x-name", "second");
    EXPECT_EQ(connection.getRequestField("X-NAME"), "first");
    EXPECT_EQ(connection.getRequestField("X-Nam"), "");
    EXPECT_EQ(connection.getRequestField("X-Name "), "");
}

TEST_F(HTTPConnectionRequestTest, RemovalErasesAllOfThatNameAndSuppressesLibcurls) {
    connection.Settings.RequestFields = {{"user-agent", "a"}, {"X-A", "b"}, {"User-Agent", "c"}};
    connection.removeField("USER-AGENT");
    EXPECT_THAT(connection.Settings.RequestFields, ElementsAre(Field("X-A", "b"), Field("USER-AGENT", "")));
}

struct FieldsRow {
    const char* Name;
    std::vector<std::pair<std::string, std::string>> Fields;
    const char* Headers;
    const char* ProxyHeaders = "unset";
    const char* Cookie = "unset";
};

class HeaderListTest : public HTTPConnectionRequestTest, public ::testing::WithParamInterface<FieldsRow> {};

TEST_P(HeaderListTest, IsBuiltFromTheFields) {
    EXPECT_EQ(sendWith(GetParam().Fields), "nothing");
    EXPECT_EQ(optionText(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER " + std::string(GetParam().Headers));
    EXPECT_EQ(optionText(CURLOPT_PROXYHEADER), GetParam().ProxyHeaders);
    EXPECT_EQ(optionText(CURLOPT_COOKIE), GetParam().Cookie);
    EXPECT_EQ(optionText(CURLOPT_ACCEPT_ENCODING), "unset");
}

INSTANTIATE_TEST_SUITE_P(
    Rules, HeaderListTest,
    ::testing::Values(
        FieldsRow{"None", {}, "{Accept:}"}, FieldsRow{"OwnAccept", {{"accept", "text/html"}}, "{accept: text/html}"},
        FieldsRow{"EmptyAccept", {{"Accept", ""}}, "{Accept:|Accept:}"},
        FieldsRow{
            "InOrderWithDuplicates", {{"X-B", "1"}, {"X-A", "2"}, {"X-B", "3"}}, "{X-B: 1|X-A: 2|X-B: 3|Accept:}"},
        FieldsRow{"EmptyValueRemoves", {{"User-Agent", ""}}, "{User-Agent:|Accept:}"},
        FieldsRow{"ValueIsOpaque", {{"X-A", " b : c "}}, "{X-A:  b : c |Accept:}"},
        FieldsRow{"CookiesAreJoined",
                  {{"Cookie", "a=1"}, {"X-A", "b"}, {"COOKIE", "b=2"}},
                  "{X-A: b|Accept:}",
                  "unset",
                  "CURLOPT_COOKIE a=1; b=2; "},
        FieldsRow{"EmptyCookieIsALine", {{"Cookie", ""}}, "{Cookie:|Accept:}"},
        FieldsRow{"ProxyConnectionIsForTheProxy",
                  {{"proxy-connection", "close"}},
                  "{Accept:}",
                  "CURLOPT_PROXYHEADER {proxy-connection: close}"},
        FieldsRow{
            "EmptyProxyConnection", {{"Proxy-Connection", ""}}, "{Accept:}", "CURLOPT_PROXYHEADER {Proxy-Connection:}"},
        FieldsRow{"LengthRemovesTransferEncoding",
                  {{"content-length", "12"}},
                  "{content-length: 12|Accept:|Transfer-Encoding:}"},
        FieldsRow{"LengthMayHaveBlanksAndASign",
                  {{"Content-Length", " +12"}},
                  "{Content-Length:  +12|Accept:|Transfer-Encoding:}"},
        FieldsRow{"OwnTransferEncodingWins",
                  {{"Transfer-Encoding", "chunked"}, {"Content-Length", "12"}},
                  "{Transfer-Encoding: chunked|Content-Length: 12|Accept:}"},
        FieldsRow{"TransferEncodingBehindTheLengthWins",
                  {{"Content-Length", "12"}, {"transfer-encoding", "gzip"}},
                  "{Content-Length: 12|transfer-encoding: gzip|Accept:}"},
        FieldsRow{"TransferEncodingAlone", {{"Transfer-Encoding", "chunked"}}, "{Transfer-Encoding: chunked|Accept:}"},
        FieldsRow{"SecondLengthIsUnchecked",
                  {{"Content-Length", "12"}, {"Content-Length", "x"}},
                  "{Content-Length: 12|Content-Length: x|Accept:|Transfer-Encoding:}"}),
    [](const auto& info) { return info.param.Name; });

class BadLengthTest : public HTTPConnectionRequestTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(BadLengthTest, IsRefusedWithItsValue) {
    const std::string value = GetParam();
    EXPECT_EQ(sendWith({{"Content-Length", value}}), internalError("Bad Content-Length value " + value));
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_EQ(curl.count(CurlFunction::MultiPerform), 0u);
    connection.removeField("content-length");
    connection.Settings.RequestFields.pop_back();
    EXPECT_EQ(sendWith({}), "nothing"); // a later send rebuilds the lists, from fields that the first one has added to
    EXPECT_EQ(optionText(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER {Accept:|Accept:}");
}

INSTANTIATE_TEST_SUITE_P(Values, BadLengthTest,
                         ::testing::Values("12abc", "abc", "", " ", "12 ", "0x10", "1.5", "9223372036854775808",
                                           "-9223372036854775809", "+", "--1"));

TEST_F(HTTPConnectionRequestTest, LengthAtTheEdgesIsTaken) {
    EXPECT_EQ(sendWith({{"Content-Length", "9223372036854775807"}}), "nothing");
    EXPECT_EQ(connection.Transfer.ContentLengthToSend, std::numeric_limits<std::int64_t>::max());
    EXPECT_TRUE(connection.Transfer.HasContentLength);
}

TEST_F(HTTPConnectionRequestTest, DecodingIsAskedForWithoutAdvertisingIt) {
    connection.Settings.Decode = true;
    EXPECT_EQ(sendWith({}), "nothing");
    EXPECT_EQ(optionText(CURLOPT_ACCEPT_ENCODING), "CURLOPT_ACCEPT_ENCODING ");
    EXPECT_EQ(optionText(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER {Accept-Encoding:|Accept:}");
}

TEST_F(HTTPConnectionRequestTest, OwnAcceptEncodingIsSentAndDecodedAllTheSame) {
    connection.Settings.Decode = true;
    EXPECT_EQ(sendWith({{"accept-encoding", "br"}}), "nothing");
    EXPECT_EQ(optionText(CURLOPT_ACCEPT_ENCODING), "CURLOPT_ACCEPT_ENCODING ");
    EXPECT_EQ(optionText(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER {accept-encoding: br|Accept:}");
}

TEST_F(HTTPConnectionRequestTest, ListsLiveUntilTheNextSend) {
    EXPECT_EQ(sendWith({{"X-A", "b"}, {"Proxy-Connection", "close"}}), "nothing");
    const void* given = curl.lastOption(CURLOPT_HTTPHEADER)->Pointer;
    EXPECT_EQ(connection.Transfer.RequestHeaders.get(), given);
    reopen();
    EXPECT_EQ(connection.Transfer.RequestHeaders.get(), given);
    EXPECT_EQ(sendWith({}), "nothing");
    EXPECT_FALSE(connection.Transfer.ProxyHeaders);
    EXPECT_EQ(optionText(CURLOPT_HTTPHEADER), "CURLOPT_HTTPHEADER {Accept:}");
}

// Behind a challenge the handle keeps its options: a list that is freed must not stay among them.
TEST_F(HTTPConnectionRequestTest, FreedProxyListIsTakenBackFirst) {
    EXPECT_EQ(sendWith({{"Proxy-Connection", "close"}}), "nothing");
    connection.ReceivedHead.ResponseCode = 401;
    reopen();
    EXPECT_EQ(sendWith({}), "nothing");
    EXPECT_EQ(optionText(CURLOPT_PROXYHEADER), "CURLOPT_PROXYHEADER (null)");
    EXPECT_EQ(curl.texts({CurlFunction::EasySetopt, CurlFunction::SlistFreeAll}).front(), "CURLOPT_PROXYHEADER (null)");
}

TEST_F(HTTPConnectionRequestTest, CookieListWouldBeSentBehindTheLists) {
    connection.Settings.CookieList.append("a=1");
    connection.Settings.CookieList.append("b=2");
    EXPECT_EQ(sendWith({}), "nothing");
    EXPECT_EQ(optionText(CURLOPT_COOKIE), "CURLOPT_COOKIE a=1; b=2; ");
    const auto options = curl.options();
    ASSERT_GE(options.size(), 3u);
    EXPECT_EQ(options[0], "CURLOPT_HTTPHEADER {Accept:}");
    EXPECT_EQ(options[1], "CURLOPT_COOKIE a=1; b=2; ");
}

struct RefusedRow {
    CURLoption Option;
    const char* Name;
};

class RefusedListTest : public HTTPConnectionRequestTest, public ::testing::WithParamInterface<RefusedRow> {};

TEST_P(RefusedListTest, OptionIsNamed) {
    connection.Settings.Decode = true;
    curl.failOption(GetParam().Option, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(
        sendWith({{"Cookie", "a=1"}, {"Proxy-Connection", "close"}}),
        internalError('"' + std::string(GetParam().Name) + "\" failed with CURLcode " + easyText(CURLE_OUT_OF_MEMORY)));
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_TRUE(connection.Transfer.Opened);
}

INSTANTIATE_TEST_SUITE_P(Options, RefusedListTest,
                         ::testing::Values(RefusedRow{CURLOPT_ACCEPT_ENCODING, "CURLOPT_ACCEPT_ENCODING"},
                                           RefusedRow{CURLOPT_COOKIE, "CURLOPT_COOKIE"},
                                           RefusedRow{CURLOPT_HTTPHEADER, "CURLOPT_HTTPHEADER"},
                                           RefusedRow{CURLOPT_PROXYHEADER, "CURLOPT_PROXYHEADER"}));

} // namespace
