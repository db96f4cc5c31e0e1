#include "host/Text.h"
#include "hostcalls/TextEncoding.h"
#include "tests/transfer/ConnectionFixture.h"

namespace {

class HTTPConnectionUrlTest : public ConnectionFixture {
protected:
    std::string refusal(const std::u16string& url) {
        return failureText([&] { connection.setURL(url); });
    }
    std::string parsedUrl() const { return toNarrow(connection.Settings.ParsedURL.toAsciiString(false), ""); }
    std::string url() const { return toNarrow(connection.Settings.URL, ""); }

    HTTPConnection connection;
};

TEST_F(HTTPConnectionUrlTest, IsKeptInItsAsciiForm) {
    connection.setURL(u"http://127.0.0.1:8080/a?b=c");
    EXPECT_EQ(url(), "http://127.0.0.1:8080/a?b=c");
    EXPECT_EQ(parsedUrl(), "http://127.0.0.1:8080/a?b=c");
    EXPECT_EQ(connection.Settings.InitialURL, "http://127.0.0.1:8080/a?b=c");
    connection.setURL(u"https://b\u00FCcher.example/\u00E4");
    EXPECT_EQ(url(), "https://xn--bcher-kva.example/%C3%A4");
}

TEST_F(HTTPConnectionUrlTest, FragmentStaysInTheTextAndLeavesTheParsedUrl) {
    connection.setURL(u"http://127.0.0.1/a#part");
    EXPECT_EQ(url(), "http://127.0.0.1/a#part");
    EXPECT_EQ(connection.Settings.InitialURL, "http://127.0.0.1/a#part");
    EXPECT_EQ(parsedUrl(), "http://127.0.0.1/a");
    EXPECT_FALSE(connection.Settings.ParsedURL.hasFragment());
    connection.setURL(u""); // an empty text empties all of them
    EXPECT_TRUE(connection.Settings.ParsedURL.isEmpty());
    EXPECT_EQ(url() + connection.Settings.InitialURL, "");
}

TEST_F(HTTPConnectionUrlTest, MissingAndOtherSchemesAreRefused) {
    const std::string expected = "VANTIK:webservices:ExpectedProtocol[N:";
    const std::pair<std::u16string, std::string> rows[] = {
        {u"www.example.org/a", "HTTPURLException[\"www.example.org/a\" (no protocol)]"},
        {u"//host/a", "HTTPURLException[\"//host/a\" (no protocol)]"},
        {u"ftp://host/a", expected + "ftp, N:ftp://host/a, N:http, N:https]"},
        {u"file:///etc/hosts", expected + "file, N:file:///etc/hosts, N:http, N:https]"},
        {u"httpx://h/", expected + "httpx, N:httpx://h/, N:http, N:https]"},
    };
    connection.setURL(u"http://old.example/");
    for (const auto& [text, failure] : rows) {
        EXPECT_EQ(refusal(text), failure);
        EXPECT_EQ(url(), "http://old.example/");
        EXPECT_EQ(parsedUrl(), fl::i18n::to_string(text)); // already replaced
    }
    EXPECT_EQ(refusal(u"\u00E4"), "HTTPURLException[\"\u00E4\" (no protocol)]");
}

TEST_F(HTTPConnectionUrlTest, UrlThatIsSetAgainCountsWhateverCameBetween) {
    connection.setURL(u"http://old.example/");
    connection.setURL(u"http://old.example/");
    EXPECT_EQ(url() + ' ' + parsedUrl(), "http://old.example/ http://old.example/");
    EXPECT_NE(refusal(u"ftp://host/a"), "nothing");
    connection.setURL(u"http://old.example/");
    EXPECT_EQ(url() + ' ' + parsedUrl(), "http://old.example/ http://old.example/");
    connection.setURL(u"");
    connection.setURL(u"http://old.example/");
    EXPECT_EQ(url() + ' ' + parsedUrl(), "http://old.example/ http://old.example/");
}

TEST_F(HTTPConnectionUrlTest, SchemeInCapitalsIsLoweredByTheParser) {
    ASSERT_EQ(foundation::network::IRI(u"HTTPS://h/").getScheme(), u"https");
    EXPECT_EQ(refusal(u"HTTPS://h/"), "nothing");
    EXPECT_EQ(url(), "https://h/");
}

TEST_F(HTTPConnectionUrlTest, TextThatIsNotAUrlIsRefusedAndChangesNothing) {
    connection.setURL(u"http://old.example/");
    for (const std::u16string text : {u"http://h/\x01", u"http://a b/", u"http://h:99999/", u"http://h\\a"}) {
        EXPECT_EQ(refusal(text), "HTTPURLException[" + fl::i18n::to_string(text) + "]");
        EXPECT_EQ(url(), "http://old.example/");
        EXPECT_EQ(parsedUrl(), "http://old.example/");
    }
}

TEST_F(HTTPConnectionUrlTest, RefusedTextThatIsNotUtf16FailsInItsConversion) {
    const std::u16string half = u"http://h/\xD800";
    ASSERT_THROW(foundation::network::IRI{half}, foundation::core::except::IInternalException);
    try {
        connection.setURL(half);
        FAIL() << "nothing was raised";
    } catch (const foundation::core::except::IUserException& failure) {
        EXPECT_EQ(failure.msg_id().fullName(), "VANTIK:webservices:EncodingFailure");
        ASSERT_EQ(failure.msg_id().arguments().size(), 3u);
        EXPECT_EQ(std::get<std::u16string>(failure.msg_id().arguments()[0]), half);
        EXPECT_EQ(std::get<std::string>(failure.msg_id().arguments()[1]), "UTF-8");
        EXPECT_NE(std::get<std::string>(failure.msg_id().arguments()[2]), "");
    }
}

TEST_F(HTTPConnectionUrlTest, InitialUrlIsLeftAloneAfterARedirect) {
    connection.setURL(u"http://first.example/");
    connection.setRedirectURL("http://second.example/");
    connection.setURL(u"http://second.example/");
    EXPECT_EQ(url(), "http://second.example/");
    EXPECT_EQ(connection.Settings.InitialURL, "http://first.example/");
}

TEST_F(HTTPConnectionUrlTest, TargetIsWhatWasSentOrWouldBe) {
    EXPECT_EQ(connection.requestTarget(), "");
    connection.setURL(u"http://h/a%20b?c=d#part");
    EXPECT_EQ(connection.requestTarget(), "/a%20b?c=d");
    connection.Settings.ProxyHost = "proxy.example"; // a proxy is asked for the whole of it
    EXPECT_EQ(connection.requestTarget(), "http://h/a%20b?c=d#part");
    connection.SentHead.RequestURI = "h:443";
    EXPECT_EQ(connection.requestTarget(), "h:443");
}

TEST_F(HTTPConnectionUrlTest, RedirectIsResolvedAgainstTheUrl) {
    struct Row {
        const char16_t* Base;
        const char* Location;
        const char* Redirect;
    };
    for (const auto& [base, location, redirect] :
         {Row{u"http://h/a/b?q", "http://other/x", "http://other/x"}, Row{u"http://h/a/b?q", "/x", "http://h/x"},
          Row{u"http://h/a/b?q", "x", "http://h/a/x"}, Row{u"http://h/a/b?q", "../x", "http://h/x"},
          Row{u"http://h/a/b?q", "?r", "http://h/a/b?r"}, Row{u"http://h/a/b?q", "//other/x", "http://other/x"},
          Row{u"http://h/a/b?q#f", "#g", "http://h/a/b?q#g"}, Row{u"https://h/", "ftp://h/x", "ftp://h/x"},
          Row{u"http://h/", "/\xC3\xA4", "http://h/%C3%A4"}, Row{u"http://h/", "", ""},
          // A malformed value fails nothing.
          Row{u"http://h/", "http://a b/", ""}, Row{u"http://h/", "http://h:99999/", ""},
          Row{u"http://h/", "/\x01", ""}, Row{u"", "x", ""}}) {
        connection.setURL(base);
        connection.Metadata.RedirectURL = "http://earlier.example/";
        connection.setRedirectURL(location);
        EXPECT_EQ(connection.Metadata.RedirectURL, redirect) << location;
    }
}

} // namespace
