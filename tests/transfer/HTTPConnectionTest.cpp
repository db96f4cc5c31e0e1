// Construction, destruction, and failures of libcurl's callbacks, none of which may unwind through libcurl.
#include "transfer/HTTPConnection.h"

#include "embedded/services/Services.h"
#include "host/Interrupt.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/transfer/ConnectionFixture.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <thread>

namespace {

using vantik::detail::FrameworkReplacement;
using vantik::detail::makeEmptyFramework;
using LibCurlInitializer = HTTPConnection::LibCurlInitializer;

class HTTPConnectionTest : public ConnectionFixture {
protected:
    static std::string construction() {
        return failureText([] { HTTPConnection(); });
    }
    // Opens, where it is not open, and sends.
    void expectUsable(HTTPConnection& connection) {
        if (!connection.Transfer.Opened) {
            open(connection);
        }
        playExchange("HTTP/1.1 204 No Content\r\n\r\n");
        EXPECT_EQ(failureText([&] { connection.sendRequest(); }), "nothing");
        EXPECT_EQ(connection.ReceivedHead.ResponseCode, 204);
    }
};

TEST_F(HTTPConnectionTest, StartsWithItsDefaults) {
    const HTTPConnection connection;
    EXPECT_NE(connection.CurlInitializer, nullptr);
    EXPECT_EQ(connection.Handles, &getCurlSingleton());
    const RequestSettings& settings = connection.Settings;
    EXPECT_TRUE(settings.ParsedURL.isEmpty());
    EXPECT_EQ(settings.URL + settings.PostData, u"");
    EXPECT_EQ(settings.InitialURL + settings.CertificateFilename + settings.RequestMethod + settings.ProxyHost, "");
    EXPECT_EQ(settings.Username + settings.Password + settings.ProxyUsername + settings.ProxyPassword, "");
    EXPECT_EQ(settings.ProxyPort, 80);
    EXPECT_EQ(settings.HostAuthSchemes + settings.ProxyAuthSchemes, 0u);
    EXPECT_EQ(settings.Debug, 0);
    EXPECT_TRUE(settings.VerifyServerName);
    EXPECT_FALSE(settings.HTTPOptionsMode || settings.Decode || settings.Chunked);
    EXPECT_FALSE(settings.Provider || settings.Consumer || settings.ProgressReporter || settings.CookieList);
    EXPECT_TRUE(settings.payload().empty() && settings.RequestFields.empty());
    const RunningTransfer& transfer = connection.Transfer;
    EXPECT_FALSE(transfer.Opened || transfer.ResponseDone || transfer.PerformDone || transfer.TransferFailed);
    EXPECT_FALSE(transfer.BodyFromPostData || transfer.HasContentLength || transfer.RequestHeaders);
    EXPECT_FALSE(transfer.ProxyHeaders || transfer.CallbackFailure || transfer.Copier);
    EXPECT_FALSE(connection.SentHead.Sent || connection.SentHead.InRequestHead);
    EXPECT_EQ(connection.SentHead.EffectiveMethod + connection.SentHead.RequestURI, "");
    EXPECT_EQ(connection.SentHead.RequestHTTPVersion, "");
    EXPECT_THAT(connection.SentHead.RequestHeaderLines, IsEmpty());
    EXPECT_FALSE(connection.ReceivedHead.HeadersComplete);
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 0);
    EXPECT_THAT(connection.ReceivedHead.ResponseHeaderLines, IsEmpty());
    const ResponseMetadata& metadata = connection.Metadata;
    EXPECT_EQ(metadata.ContentType + metadata.ContentEncoding + metadata.RedirectURL, "");
    EXPECT_EQ(metadata.PreviousResponseCode, 0);
    constexpr double unlimited = SilenceLimits::kUnlimited;
    EXPECT_THAT(connection.getTimeouts(), ElementsAre(5000.0, unlimited, unlimited, unlimited));
    EXPECT_EQ(connection.Limits.Deadline, 0);
    EXPECT_EQ(connection.Limits.TimeoutOption, u"");
}

// Constructions that fail: what is reported, and that nothing of them stays.

struct Cause {
    const char* Name;
    std::function<void(CurlInterposer&, std::optional<FrameworkReplacement>&)> Arrange;
    std::string Failure;
    bool TouchesLibcurl = true;
    bool OfNewHandles = false; // handles that are there are not made again, nor their cookie engine
};

const Cause kCauses[] = {
    {"NoFramework", [](auto&, auto& framework) { framework.emplace(nullptr); },
     internalError("libcurl initialization failed."), false},
    {"NoService", [](auto&, auto& framework) { framework.emplace(makeEmptyFramework()); },
     internalError("libcurl initialization failed."), false},
    {"StoppedFramework",
     [](auto&, auto& framework) {
         const auto stopped = makeEmptyFramework();
         stopped->Stop();
         stopped->WaitForStop(std::chrono::milliseconds::zero());
         framework.emplace(stopped);
     },
     "std::runtime_error[The bundle context is no longer valid]", false},
    {"NoEasyHandle", [](auto& curl, auto&) { curl.failCall(CurlFunction::EasyInit, 0); },
     internalError("\"curl_easy_init\" failed "), true, true},
    {"NoMultiHandle", [](auto& curl, auto&) { curl.failCall(CurlFunction::MultiInit, 0); },
     internalError("\"curl_multi_init\" failed "), true, true},
    {"NoCookieEngine", [](auto& curl, auto&) { curl.failOption(CURLOPT_COOKIEFILE, CURLE_UNKNOWN_OPTION); },
     easyFailure("CURLOPT_COOKIEFILE", CURLE_UNKNOWN_OPTION), true, true},
    {"CookiesThatStay", [](auto& curl, auto&) { curl.failOption(CURLOPT_COOKIELIST, CURLE_OUT_OF_MEMORY); },
     easyFailure("CURLOPT_COOKIELIST", CURLE_OUT_OF_MEMORY)},
    {"CookieEngineNotKept", [](auto& curl, auto&) { curl.failOption(CURLOPT_COOKIELIST, CURLE_OUT_OF_MEMORY, 2); },
     easyFailure("CURLOPT_COOKIELIST", CURLE_OUT_OF_MEMORY), true, true},
};

class FailedConstruction : public HTTPConnectionTest, public ::testing::WithParamInterface<Cause> {};

TEST_P(FailedConstruction, IsReportedAndForgotten) {
    {
        std::optional<FrameworkReplacement> framework;
        GetParam().Arrange(curl, framework);
        EXPECT_EQ(construction(), GetParam().Failure);
        EXPECT_EQ(curl.count(CurlFunction::EasyInit) != 0, GetParam().TouchesLibcurl);
        EXPECT_EQ(curl.count(CurlFunction::MultiRemoveHandle), 0U) << "what was never built is not destroyed";
    }
    HTTPConnection connection;
    EXPECT_FALSE(connection.Handles->ConnectionOpen);
    EXPECT_FALSE(connection.Handles->EasyHandleAttached);
    expectUsable(connection);
    connection.closeConnection();
    const CurlSingleton before = *connection.Handles;
    {
        std::optional<FrameworkReplacement> framework;
        GetParam().Arrange(curl, framework);
        EXPECT_EQ(construction(), GetParam().OfNewHandles ? "nothing" : GetParam().Failure);
    }
    EXPECT_EQ(connection.Handles, &getCurlSingleton());
    EXPECT_EQ(connection.Handles->EasyHandle, before.EasyHandle);
    EXPECT_EQ(connection.Handles->MultiHandle, before.MultiHandle);
    expectUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Causes, FailedConstruction, ::testing::ValuesIn(kCauses),
                         [](const auto& info) { return info.param.Name; });

// A construction that is refused lets go of libcurl's start-up too, and so does one that fails later: nothing keeps the
// service alive once it is unregistered.
TEST_F(HTTPConnectionTest, FailedConstructionLetsGoOfTheInitializer) {
    const auto framework = makeEmptyFramework();
    const FrameworkReplacement replaced(framework);
    const auto heldAfter = [&](const auto& construct) {
        auto service = std::make_shared<LibCurlInitializer>();
        const std::weak_ptr<LibCurlInitializer> observed = service;
        auto registration = framework->GetBundleContext().RegisterService<LibCurlInitializer>(service);
        service.reset();
        const auto constructed = construct();
        registration.Unregister();
        registration = nullptr;
        return !observed.expired();
    };
    EXPECT_TRUE(heldAfter([] { return std::make_unique<HTTPConnection>(); }));
    getCurlSingleton().ConnectionOpen = true;
    std::string failure;
    EXPECT_FALSE(heldAfter([&] { return failure = construction(); }));
    EXPECT_EQ(failure, "VANTIK:http:OnlyOneTransferAtATime[]");
    getCurlSingleton().ConnectionOpen = false;
    curl.failOption(CURLOPT_COOKIELIST, CURLE_OUT_OF_MEMORY);
    EXPECT_FALSE(heldAfter([&] { return failure = construction(); }));
    EXPECT_NE(failure, "nothing");
}

TEST_F(HTTPConnectionTest, ConstructionStartsTheCookieEngineOnceAndEmptiesIt) {
    {
        const HTTPConnection connection;
        EXPECT_THAT(curl.options(), ElementsAre("CURLOPT_COOKIEFILE ", "CURLOPT_COOKIELIST ALL",
                                                "CURLOPT_COOKIEFILE (null)", "CURLOPT_COOKIELIST #"));
    }
    curl.clear();
    const HTTPConnection next;
    EXPECT_THAT(curl.options(), ElementsAre("CURLOPT_COOKIELIST ALL"));
}

// Destruction.

TEST_F(HTTPConnectionTest, DestructionDetachesBeforeItResetsEvenIfThatFails) {
    for (const bool fails : {false, true}) {
        {
            HTTPConnection connection;
            open(connection);
            connection.Transfer.RequestHeaders.append("X-A: b");
            connection.Transfer.ProxyHeaders.append("Proxy-Connection: close");
            connection.Settings.CookieList.append("a=1");
            if (fails) {
                curl.failCall(CurlFunction::MultiRemoveHandle, CURLM_BAD_EASY_HANDLE);
            }
            curl.clear();
        }
        EXPECT_THAT(curl.texts({CurlFunction::SlistFreeAll, CurlFunction::MultiRemoveHandle, CurlFunction::EasyReset}),
                    ElementsAre("curl_slist_free_all", "curl_slist_free_all", "curl_slist_free_all",
                                "curl_multi_remove_handle", "curl_easy_reset"));
        EXPECT_FALSE(getCurlSingleton().ConnectionOpen);
    }
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
    expectUsable(owner);
}

// Observes how far the destruction of a connection had come when libcurl's start-up was let go.
class ObservedInitializer : public LibCurlInitializer {
public:
    explicit ObservedInitializer(std::function<void()> gone) : Gone(std::move(gone)) {}
    ~ObservedInitializer() override { Gone(); }

private:
    std::function<void()> Gone;
};

TEST_F(HTTPConnectionTest, DestructionIsTracedAtItsEndAndLetsGoOfLibcurlLast) {
    const StandardOutputCapture output;
    { const HTTPConnection quiet; }
    EXPECT_EQ(output.text(), "");
    const auto framework = makeEmptyFramework();
    const FrameworkReplacement replaced(framework);
    bool released = false;
    auto registration =
        framework->GetBundleContext().RegisterService<LibCurlInitializer>(std::make_shared<ObservedInitializer>([&] {
            released = true;
            EXPECT_EQ(curl.count(CurlFunction::EasyReset), 1u);
            EXPECT_EQ(output.text(), "DESTROYING HTTPCONNECTION\n");
        }));
    {
        HTTPConnection connection;
        connection.setRequestMethod("GET"); // the handle is its own from here on
        connection.Settings.Debug = 1;
        curl.OnReset = [&] { EXPECT_EQ(output.text(), ""); };
        registration.Unregister();
        registration = nullptr;
        EXPECT_FALSE(released);
    }
    EXPECT_TRUE(released);
}

// Failures of callbacks.

// A standard output that fails at the first write that begins with a text: so each callback can be made to fail where
// it traces.
class FailingOutput : public std::streambuf {
public:
    explicit FailingOutput(std::string trigger) : Trigger(std::move(trigger)), Previous(std::cout.rdbuf(this)) {
        std::cout.exceptions(std::ios::badbit);
    }
    ~FailingOutput() override {
        std::cout.exceptions(std::ios::goodbit);
        std::cout.clear();
        std::cout.rdbuf(Previous);
    }

private:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        if (std::string_view(text, static_cast<std::size_t>(length)).starts_with(Trigger)) {
            throw std::runtime_error("output failed");
        }
        return length;
    }

    std::string Trigger;
    std::streambuf* Previous;
};

class EscapedFailureTest : public HTTPConnectionTest {
protected:
    // Opened, sent and closed, with the callbacks on the handle.
    void useOnce(const std::string& head = "HTTP/1.1 204 No Content\r\n\r\n") {
        open(connection);
        playExchange(head);
        connection.sendRequest();
        connection.closeConnection();
    }
    // In the trace callback of whatever connection is on the handle.
    void fail() { curl.callRequestHead("word"); }

    HTTPConnection connection;
};

const std::string kNotAHead = internalError("CRLF not found in headers:\nword");

TEST_F(EscapedFailureTest, EachCallbackKeepsItAndRunsNoMore) {
    struct Row {
        const char* Trigger;
        std::function<std::size_t()> Call;
        std::size_t Refusal; // 0 of a read would mean that the content is complete
    };
    const auto trace = [&](curl_infotype type, std::string bytes) {
        return static_cast<std::size_t>(curl.callDebug(type, bytes));
    };
    const auto read = [&] {
        std::string buffer;
        return curl.callRead(buffer, 3);
    };
    useOnce();
    open(connection);
    connection.Settings.setPayload({1, 2, 3});
    InterruptibleStreamCopier copier(connection);
    setOption(connection.Handles->EasyHandle, CURL_NAMED(CURLOPT_HEADERDATA), &connection);
    setOption(connection.Handles->EasyHandle, CURL_NAMED(CURLOPT_HEADERFUNCTION), &headerCallback);
    setOption(connection.Handles->EasyHandle, CURL_NAMED(CURLOPT_DEBUGDATA), &connection);
    setOption(connection.Handles->EasyHandle, CURL_NAMED(CURLOPT_DEBUGFUNCTION), &debugCallback);
    for (const auto& [trigger, call, refusal] :
         {Row{"IN INFO", [&] { return trace(CURLINFO_TEXT, "x"); }, 0},
          Row{"OUT HDR", [&] { return trace(CURLINFO_HEADER_OUT, "GET / HTTP/1.1\r\n\r\n"); }, 0},
          Row{"IN DATA", [&] { return trace(CURLINFO_DATA_IN, "x"); }, 0},
          Row{"...DONE", [&] { return curl.callHeader("\r\n"); }, 0},
          Row{"RECEIVING", [&] { return curl.callWrite("abc"); }, 0},
          Row{"SENDING", read, std::size_t{CURL_READFUNC_ABORT}},
          Row{"RESETTING", [&] { return static_cast<std::size_t>(curl.callSeek(0)); }, CURL_SEEKFUNC_FAIL}}) {
        SCOPED_TRACE(trigger);
        connection.Transfer.Fault = TransferFault::None;
        {
            const FailingOutput output(trigger);
            connection.Settings.Debug = 1;
            EXPECT_EQ(call(), refusal);
            connection.Settings.Debug = 0;
        }
        EXPECT_EQ(failureText(connection.Transfer.EscapedFailure), "std::runtime_error[output failed]");
        EXPECT_EQ(connection.Transfer.Fault, TransferFault::Failed);
        const std::uint64_t position = copier.SendPosition;
        const std::string received = copier.ReceiveBuffer;
        EXPECT_EQ(call(), refusal); // although nothing is traced now
        EXPECT_EQ(copier.SendPosition, position);
        EXPECT_EQ(copier.ReceiveBuffer, received);
        EXPECT_EQ(failureText([&] { connection.rethrowEscapedFailure(); }), "std::runtime_error[output failed]");
        EXPECT_EQ(failureText([&] { connection.rethrowEscapedFailure(); }), "nothing");
    }
}

TEST_F(EscapedFailureTest, EndsTheSendAndTheConnectionCanBeReopened) {
    open(connection);
    curl.OnPerform = [&](int& running) {
        fail();
        running = 1;
        return CURLM_OK;
    };
    EXPECT_EQ(failureText([&] { connection.sendRequest(); }), kNotAHead);
    EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    EXPECT_FALSE(connection.Transfer.ResponseDone);
    EXPECT_TRUE(connection.Transfer.TransferFailed);
    connection.closeConnection();
    expectUsable(connection);
    EXPECT_EQ(connection.SentHead.EffectiveMethod, "GET") << "the second head is read from its request line on";
}

// libcurl may run the trace callback while a handle is removed, reset or added.
TEST_F(EscapedFailureTest, EndsTheOpenAtOnce) {
    const auto expectEnded = [&](const std::vector<std::string>& calls) {
        curl.clear();
        EXPECT_EQ(failureText([&] { connection.openConnection(); }), kNotAHead);
        EXPECT_FALSE(connection.Transfer.Opened);
        EXPECT_EQ(handleCalls(), calls); // before anything else is done
        curl.OnRemoveHandle = curl.OnAddHandle = nullptr;
        curl.OnReset = nullptr;
        connection.openConnection();
        EXPECT_TRUE(connection.Transfer.Opened);
    };
    const auto failing = [&] {
        fail();
        return CURLM_OK;
    };
    useOnce();
    curl.OnRemoveHandle = failing;
    expectEnded({"curl_multi_remove_handle"});
    useOnce();
    curl.OnReset = [&] { fail(); };
    expectEnded({"curl_multi_remove_handle", "curl_easy_reset"});
    useOnce("HTTP/1.1 401 Unauthorized\r\n\r\n"); // after it the callbacks stay
    curl.OnAddHandle = failing;
    expectEnded({"curl_multi_remove_handle", "curl_multi_add_handle"});
}

// A callback that ran in a libcurl call of somebody else, such as the destruction of another object.
TEST_F(EscapedFailureTest, ThatNobodyWaitedForIsForgottenByTheOpenAndByTheSend) {
    useOnce("HTTP/1.1 401 Unauthorized\r\n\r\n"); // after it the callbacks stay
    fail();
    connection.openConnection();
    EXPECT_TRUE(connection.Transfer.Opened);
    fail();
    EXPECT_EQ(failureText(connection.Transfer.EscapedFailure), kNotAHead);
    expectUsable(connection);
}

TEST_F(EscapedFailureTest, DuringTheDestructionIsDropped) {
    connection.closeConnection();
    {
        HTTPConnection dropped;
        open(dropped);
        expectUsable(dropped);
        curl.OnRemoveHandle = [&] {
            fail();
            return CURLM_OK;
        };
    }
    curl.OnRemoveHandle = nullptr;
    curl_multi_remove_handle(getCurlSingleton().MultiHandle, getCurlSingleton().EasyHandle);
    expectUsable(connection);
}

// No descriptor of libcurl's ends it.
TEST_F(HTTPConnectionTest, RequestToStopEndsAWait) {
    HTTPConnection connection;
    constexpr int hour = 3'600'000;
    EXPECT_EQ(connection.wait(hour), 0) << "there is nothing to wait for";
    connection.Transfer.Runs = true;
    std::thread other([this] { host().interrupt(); });
    EXPECT_EQ(connection.wait(hour), 1);
    other.join();
    EXPECT_EQ(connection.wait(hour), 1) << "it has not been seen yet";
    EXPECT_THROW(utInterruptState::ThrowIfInterruptPending(), Zentorak::System::InterruptException);
    EXPECT_EQ(connection.wait(0), 0);
}

} // namespace
