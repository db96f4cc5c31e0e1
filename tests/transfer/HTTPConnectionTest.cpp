#include "transfer/HTTPConnection.h"

#include "embedded/services/Services.h"
#include "tests/transfer/ConnectionFixture.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkEvent.h>
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
    EXPECT_TRUE(connection.Settings.ParsedURL.isEmpty());
    EXPECT_TRUE(connection.Settings.URL.empty());
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "");
    EXPECT_EQ(connection.Settings.RequestMethod, "");
    EXPECT_EQ(connection.Limits.ConnectTimeout, 5000.0);
    EXPECT_EQ(connection.Limits.ResponseTimeout, SilenceLimits::kUnlimited);
    EXPECT_EQ(connection.Limits.DataTimeout, SilenceLimits::kUnlimited);
    EXPECT_EQ(connection.Limits.ExtraTimeout, SilenceLimits::kUnlimited);
    EXPECT_EQ(connection.Settings.ProxyPort, 80);
    EXPECT_EQ(connection.Settings.ProxyHost, "");
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 0);
    EXPECT_EQ(connection.Settings.HostAuthSchemes, 0u);
    EXPECT_EQ(connection.Settings.ProxyAuthSchemes, 0u);
    EXPECT_EQ(connection.Limits.Deadline, 0);
    EXPECT_EQ(connection.Settings.Debug, 0);
    EXPECT_FALSE(connection.Settings.HTTPOptionsMode);
    EXPECT_TRUE(connection.Settings.VerifyServerName);
    EXPECT_FALSE(connection.Settings.Decode);
    EXPECT_FALSE(connection.Transfer.Opened);
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_FALSE(connection.SentHead.Sent);
    EXPECT_FALSE(connection.Transfer.BodyFromPostData);
    EXPECT_FALSE(connection.Transfer.HasContentLength);
    EXPECT_FALSE(connection.Transfer.TransferFailed);
    EXPECT_FALSE(connection.Settings.Chunked);
    EXPECT_FALSE(connection.SentHead.InRequestHead);
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    EXPECT_FALSE(connection.Transfer.PerformDone);
    EXPECT_EQ(connection.Metadata.PreviousResponseCode, 0);
    EXPECT_EQ(
        connection.Settings.InitialURL + connection.Settings.CertificateFilename + connection.Metadata.RedirectURL, "");
    EXPECT_EQ(connection.Metadata.ContentType + connection.Metadata.ContentEncoding, "");
    EXPECT_EQ(connection.SentHead.RequestURI + connection.SentHead.RequestHTTPVersion, "");
    EXPECT_EQ(connection.Settings.Username + connection.Settings.Password, "");
    EXPECT_EQ(connection.Settings.ProxyUsername + connection.Settings.ProxyPassword, "");
    EXPECT_EQ(connection.Settings.PostData + connection.Limits.TimeoutOption, u"");
    EXPECT_THAT(connection.Settings.payload(), IsEmpty());
    EXPECT_THAT(connection.Settings.RequestFields, IsEmpty());
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, IsEmpty());
    EXPECT_EQ(connection.Transfer.RequestHeaders.get(), nullptr);
    EXPECT_EQ(connection.Transfer.ProxyHeaders.get(), nullptr);
    EXPECT_EQ(connection.Settings.CookieList.get(), nullptr);
    EXPECT_EQ(connection.Transfer.CallbackFailure, nullptr);
    EXPECT_EQ(connection.Settings.Provider, nullptr);
    EXPECT_EQ(connection.Settings.Consumer, nullptr);
    EXPECT_EQ(connection.Settings.ProgressReporter, nullptr);
    EXPECT_EQ(connection.Transfer.Copier, nullptr);
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
    EXPECT_TRUE(first.Transfer.Opened);
    EXPECT_EQ(failureText([] { HTTPConnection(); }), "VANTIK:http:OnlyOneTransferAtATime[]");
    playExchange("HTTP/1.1 204 No Content\r\n\r\n");
    first.sendRequest();
    EXPECT_EQ(first.ReceivedHead.ResponseCode, 204);
}

TEST_F(HTTPConnectionTest, SecondConnectionIsBuiltOnceTheFirstIsClosed) {
    HTTPConnection first;
    open(first);
    first.closeConnection();
    HTTPConnection second;
    EXPECT_EQ(second.Handles, first.Handles);
    open(second);
    EXPECT_TRUE(second.Transfer.Opened);
}

TEST_F(HTTPConnectionTest, CloseOnlyClearsFlags) {
    HTTPConnection connection;
    open(connection);
    connection.Transfer.ResponseDone = connection.SentHead.Sent = connection.ReceivedHead.HeadersComplete = true;
    connection.addField("X-A", "b");
    curl.clear();
    for (int i = 0; i < 2; ++i) { // closing twice is harmless
        connection.closeConnection();
        EXPECT_FALSE(connection.Transfer.Opened);
        EXPECT_FALSE(connection.Transfer.ResponseDone);
        EXPECT_FALSE(connection.SentHead.Sent);
        EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
        EXPECT_FALSE(connection.Handles->ConnectionOpen);
    }
    EXPECT_THAT(curl.calls(), IsEmpty());
    EXPECT_EQ(connection.Settings.RequestFields.size(), 1u);
}

TEST_F(HTTPConnectionTest, DestructionDetachesBeforeItResets) {
    {
        HTTPConnection connection;
        open(connection);
        connection.Transfer.RequestHeaders.append("X-A: b");
        connection.Transfer.ProxyHeaders.append("Proxy-Connection: close");
        connection.Settings.CookieList.append("a=1");
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

// On the handles may be another connection's transfer.
TEST_F(HTTPConnectionTest, DestructionTouchesNothingThatIsNotItsOwn) {
    HTTPConnection owner;
    {
        const HTTPConnection other;
        open(owner);
        curl.clear();
    }
    EXPECT_THAT(handleCalls(), IsEmpty());
    EXPECT_TRUE(getCurlSingleton().ConnectionOpen);
    EXPECT_EQ(getCurlSingleton().Owner, &owner);
    playExchange("HTTP/1.1 204 No Content\r\n\r\n");
    owner.sendRequest();
    EXPECT_EQ(owner.ReceivedHead.ResponseCode, 204);
}

TEST_F(HTTPConnectionTest, DestructionIsTracedAtItsEnd) {
    const StandardOutputCapture output;
    { const HTTPConnection quiet; }
    EXPECT_EQ(output.text(), "");
    {
        HTTPConnection connection;
        connection.Settings.Debug = 1;
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
                connection.Transfer.ResponseDone = done;
                connection.SentHead.Sent = sent;
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
        connection.setRequestMethod("GET"); // the handle is its own from here on
        connection.Settings.Debug = 1;
        registration.Unregister();
        registration = nullptr;
        EXPECT_FALSE(released);
    }
    EXPECT_TRUE(released);
}

} // namespace
