#include "transfer/HTTPConnection.h"

#include "tests/transfer/ConnectionFixture.h"

#include "embedded/Services.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <memory>

namespace {

using HTTPConnectionTest = ConnectionFixture;
using vantik::detail::FrameworkReplacement;

std::string easyText(CURLcode code) {
    return curl_easy_strerror(code);
}

TEST_F(HTTPConnectionTest, StartsWithItsDefaults) {
    const HTTPConnection connection;
    EXPECT_NE(connection.CurlInitializer, nullptr);
    EXPECT_EQ(connection.Handles, &getCurlSingleton());
    EXPECT_TRUE(connection.ParsedURL.isEmpty());
    EXPECT_TRUE(connection.URL.empty());
    EXPECT_EQ(connection.EffectiveMethod, "");
    EXPECT_EQ(connection.RequestMethod, "");
    EXPECT_EQ(connection.ConnectTimeout, 5000.0);
    EXPECT_EQ(connection.ResponseTimeout, HTTPConnection::Unlimited);
    EXPECT_EQ(connection.DataTimeout, HTTPConnection::Unlimited);
    EXPECT_EQ(connection.ExtraTimeout, HTTPConnection::Unlimited);
    EXPECT_EQ(connection.ProxyPort, 80);
    EXPECT_EQ(connection.ProxyHost, "");
    EXPECT_EQ(connection.ResponseCode, 0);
    EXPECT_EQ(connection.HostAuthSchemes, 0u);
    EXPECT_EQ(connection.ProxyAuthSchemes, 0u);
    EXPECT_EQ(connection.Deadline, 0);
    EXPECT_EQ(connection.Debug, 0);
    EXPECT_FALSE(connection.HTTPOptionsMode);
    EXPECT_TRUE(connection.VerifyServerName);
    EXPECT_FALSE(connection.Decode);
    EXPECT_FALSE(connection.Opened);
    EXPECT_FALSE(connection.ResponseDone);
    EXPECT_FALSE(connection.Sent);
    EXPECT_FALSE(connection.BodyFromPostData);
    EXPECT_FALSE(connection.HasContentLength);
    EXPECT_FALSE(connection.TransferFailed);
    EXPECT_FALSE(connection.Chunked);
    EXPECT_FALSE(connection.InRequestHead);
    EXPECT_FALSE(connection.HeadersComplete);
    EXPECT_FALSE(connection.PerformDone);
    EXPECT_EQ(connection.PreviousResponseCode, 0);
    EXPECT_EQ(connection.InitialURL + connection.CertificateFilename + connection.RedirectURL, "");
    EXPECT_EQ(connection.ContentType + connection.ContentEncoding, "");
    EXPECT_EQ(connection.RequestURI + connection.RequestHTTPVersion, "");
    EXPECT_EQ(connection.Username + connection.Password, "");
    EXPECT_EQ(connection.ProxyUsername + connection.ProxyPassword, "");
    EXPECT_EQ(connection.PostData + connection.TimeoutOption, u"");
    EXPECT_THAT(connection.Payload, IsEmpty());
    EXPECT_THAT(connection.RequestFields, IsEmpty());
    EXPECT_THAT(connection.ResponseHeaderLines, IsEmpty());
    EXPECT_THAT(connection.RequestHeaderLines, IsEmpty());
    EXPECT_EQ(connection.RequestHeaders.get(), nullptr);
    EXPECT_EQ(connection.ProxyHeaders.get(), nullptr);
    EXPECT_EQ(connection.CookieList.get(), nullptr);
    EXPECT_EQ(connection.CallbackFailure, nullptr);
    EXPECT_EQ(connection.Provider, nullptr);
    EXPECT_EQ(connection.Consumer, nullptr);
    EXPECT_EQ(connection.ProgressReporter, nullptr);
    EXPECT_EQ(connection.Copier, nullptr);
}

TEST_F(HTTPConnectionTest, ConstructionStartsAndEmptiesTheCookieEngine) {
    const HTTPConnection connection;
    EXPECT_THAT(curl.options(), ElementsAre("CURLOPT_COOKIEFILE ", "CURLOPT_COOKIELIST ALL",
                                            "CURLOPT_COOKIEFILE (null)", "CURLOPT_COOKIELIST #"));
}

TEST_F(HTTPConnectionTest, NewConnectionSeesNoEarlierCookie) {
    CURL* easy = getCurlSingleton().EasyHandle;
    {
        const HTTPConnection first;
        setOption(easy, CURL_NAMED(CURLOPT_COOKIELIST), "Set-Cookie: a=1; domain=127.0.0.1; path=/");
        curl_slist* cookies = nullptr;
        curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &cookies);
        EXPECT_NE(cookies, nullptr);
        curl_slist_free_all(cookies);
    }
    const HTTPConnection second;
    curl_slist* cookies = nullptr;
    curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &cookies);
    EXPECT_EQ(cookies, nullptr);
    curl_slist_free_all(cookies);
}

TEST_F(HTTPConnectionTest, ReopenKeepsTheCookies) {
    HTTPConnection connection;
    open(connection);
    setOption(connection.Handles->EasyHandle, CURL_NAMED(CURLOPT_COOKIELIST),
              "Set-Cookie: a=1; domain=127.0.0.1; path=/");
    connection.openConnection();
    curl_slist* cookies = nullptr;
    curl_easy_getinfo(connection.Handles->EasyHandle, CURLINFO_COOKIELIST, &cookies);
    EXPECT_NE(cookies, nullptr);
    curl_slist_free_all(cookies);
}

TEST_F(HTTPConnectionTest, RefusedCookieOptionsFailTheConstruction) {
    curl.failOption(CURLOPT_COOKIEFILE, CURLE_UNKNOWN_OPTION);
    EXPECT_EQ(failureText([] { HTTPConnection(); }),
              internalError("\"CURLOPT_COOKIEFILE\" failed with CURLcode " + easyText(CURLE_UNKNOWN_OPTION)));
    curl.failOption(CURLOPT_COOKIELIST, CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(failureText([] { HTTPConnection(); }),
              internalError("\"CURLOPT_COOKIELIST\" failed with CURLcode " + easyText(CURLE_OUT_OF_MEMORY)));
    EXPECT_EQ(failureText([] { HTTPConnection(); }), "nothing");
}

TEST_F(HTTPConnectionTest, SecondConnectionIsRefusedWhileOneIsOpen) {
    HTTPConnection first;
    open(first);
    curl.clear();
    EXPECT_EQ(failureText([] { HTTPConnection(); }), "VANTIK:http:OnlyOneTransferAtATime[]");
    // The refused one has touched neither the handle nor the flag.
    EXPECT_THAT(handleCalls(), IsEmpty());
    EXPECT_TRUE(first.Handles->ConnectionOpen);
    EXPECT_TRUE(first.Opened);
    EXPECT_EQ(failureText([] { HTTPConnection(); }), "VANTIK:http:OnlyOneTransferAtATime[]");
    playExchange("HTTP/1.1 204 No Content\r\n\r\n");
    first.sendRequest();
    EXPECT_EQ(first.ResponseCode, 204);
}

TEST_F(HTTPConnectionTest, SecondConnectionIsBuiltOnceTheFirstIsClosed) {
    HTTPConnection first;
    open(first);
    first.closeConnection();
    HTTPConnection second;
    EXPECT_EQ(second.Handles, first.Handles);
    open(second);
    EXPECT_TRUE(second.Opened);
}

TEST_F(HTTPConnectionTest, CloseOnlyClearsFlags) {
    HTTPConnection connection;
    open(connection);
    connection.ResponseDone = connection.Sent = connection.HeadersComplete = true;
    connection.addField("X-A", "b");
    curl.clear();
    for (int i = 0; i < 2; ++i) { // closing twice is harmless
        connection.closeConnection();
        EXPECT_FALSE(connection.Opened);
        EXPECT_FALSE(connection.ResponseDone);
        EXPECT_FALSE(connection.Sent);
        EXPECT_FALSE(connection.HeadersComplete);
        EXPECT_FALSE(connection.Handles->ConnectionOpen);
    }
    EXPECT_THAT(curl.calls(), IsEmpty());
    EXPECT_EQ(connection.RequestFields.size(), 1u);
}

TEST_F(HTTPConnectionTest, DestructionDetachesBeforeItResets) {
    {
        HTTPConnection connection;
        open(connection);
        connection.RequestHeaders.append("X-A: b");
        connection.ProxyHeaders.append("Proxy-Connection: close");
        connection.CookieList.append("a=1");
        curl.clear();
    }
    EXPECT_THAT(curl.texts({CurlFunction::SlistFreeAll, CurlFunction::MultiRemoveHandle, CurlFunction::EasyReset}),
                ElementsAre("curl_slist_free_all", "curl_slist_free_all", "curl_slist_free_all",
                            "curl_multi_remove_handle", "curl_easy_reset"));
    EXPECT_FALSE(getCurlSingleton().ConnectionOpen);
}

TEST_F(HTTPConnectionTest, DestructionIgnoresAFailedRemoval) {
    {
        HTTPConnection connection;
        open(connection);
        curl.failCall(CurlFunction::MultiRemoveHandle, CURLM_BAD_EASY_HANDLE);
        curl.clear();
    }
    EXPECT_THAT(handleCalls(), ElementsAre("curl_multi_remove_handle", "curl_easy_reset"));
    EXPECT_FALSE(getCurlSingleton().ConnectionOpen);
    curl_multi_remove_handle(getCurlSingleton().MultiHandle, getCurlSingleton().EasyHandle);
}

// Kept on purpose: nothing remembers which connection set the flag.
TEST_F(HTTPConnectionTest, DestructionClearsTheFlagEvenIfItNeverOpened) {
    {
        const HTTPConnection connection;
        getCurlSingleton().ConnectionOpen = true;
    }
    EXPECT_FALSE(getCurlSingleton().ConnectionOpen);
}

TEST_F(HTTPConnectionTest, DestructionIsTracedAtItsEnd) {
    const StandardOutputCapture output;
    { const HTTPConnection quiet; }
    EXPECT_EQ(output.text(), "");
    {
        HTTPConnection connection;
        connection.Debug = 1;
        curl.OnReset = [&] { EXPECT_EQ(output.text(), ""); };
    }
    EXPECT_EQ(output.text(), "DESTROYING HTTPCONNECTION\n");
}

TEST_F(HTTPConnectionTest, DestructionIsAllowedInEveryState) {
    for (const bool done : {false, true}) {
        for (const bool sent : {false, true}) {
            {
                HTTPConnection connection;
                open(connection);
                connection.ResponseDone = done;
                connection.Sent = sent;
            }
            EXPECT_FALSE(getCurlSingleton().ConnectionOpen);
        }
    }
}

TEST_F(HTTPConnectionTest, NeedsAHostWithAFramework) {
    const FrameworkReplacement none(nullptr);
    EXPECT_EQ(failureText([] { HTTPConnection(); }), internalError("libcurl initialization failed."));
    EXPECT_EQ(curl.count(CurlFunction::EasyInit), 0u); // nothing of libcurl was touched
}

TEST_F(HTTPConnectionTest, NeedsTheInitializerService) {
    const FrameworkReplacement empty(vantik::detail::makeEmptyFramework());
    EXPECT_EQ(failureText([] { HTTPConnection(); }), internalError("libcurl initialization failed."));
    EXPECT_EQ(curl.count(CurlFunction::EasyInit), 0u);
}

TEST_F(HTTPConnectionTest, StoppedFrameworkIsReportedInItsOwnWords) {
    const auto framework = vantik::detail::makeEmptyFramework();
    framework->Stop();
    framework->WaitForStop(std::chrono::milliseconds::zero());
    const FrameworkReplacement stopped(framework);
    EXPECT_EQ(failureText([] { HTTPConnection(); }), "std::runtime_error[The bundle context is no longer valid]");
}

// Tells how far the destruction of a connection had come when libcurl's start-up was let go.
class ObservedInitializer : public HTTPConnection::LibCurlInitializer {
public:
    explicit ObservedInitializer(std::function<void()> gone) : Gone(std::move(gone)) {}
    ~ObservedInitializer() override { Gone(); }

private:
    std::function<void()> Gone;
};

TEST_F(HTTPConnectionTest, LibcurlIsLetGoLast) {
    const StandardOutputCapture output;
    const auto framework = vantik::detail::makeEmptyFramework();
    const FrameworkReplacement replaced(framework);
    bool released = false;
    auto registration = framework->GetBundleContext().RegisterService<HTTPConnection::LibCurlInitializer>(
        std::make_shared<ObservedInitializer>([&] {
            released = true;
            EXPECT_EQ(curl.count(CurlFunction::EasyReset), 1u);
            EXPECT_EQ(output.text(), "DESTROYING HTTPCONNECTION\n");
        }));
    {
        HTTPConnection connection;
        connection.Debug = 1;
        registration.Unregister();
        registration = nullptr;
        EXPECT_FALSE(released);
    }
    EXPECT_TRUE(released);
}

} // namespace
