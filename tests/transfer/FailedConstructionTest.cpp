// Constructions that fail, one cause a row: what is reported, and that nothing of them stays. The next connection of
// the scope is as good as a first one.
#include "embedded/services/Services.h"
#include "tests/transfer/ConnectionFixture.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace {

using vantik::detail::FrameworkReplacement;
using vantik::detail::makeEmptyFramework;
using Framework = std::optional<FrameworkReplacement>;

std::string refused(const char* what, CURLcode code) {
    return internalError('"' + std::string(what) + "\" failed with CURLcode " + curl_easy_strerror(code));
}

struct Cause {
    const char* Name;
    std::function<void(CurlInterposer&, Framework&)> Arrange;
    std::string Failure;
    bool TouchesLibcurl;
};

class ConstructionTest : public ConnectionFixture {
protected:
    static std::string construction() {
        return failureText([] { HTTPConnection(); });
    }
};

class FailedConstructionTest : public ConstructionTest, public ::testing::WithParamInterface<Cause> {};

TEST_P(FailedConstructionTest, IsReportedAndForgotten) {
    {
        Framework framework;
        GetParam().Arrange(curl, framework);
        EXPECT_EQ(construction(), GetParam().Failure);
        EXPECT_EQ(curl.count(CurlFunction::EasyInit) != 0, GetParam().TouchesLibcurl);
        EXPECT_EQ(curl.count(CurlFunction::MultiRemoveHandle), 0U) << "what was never built is not destroyed";
    }
    HTTPConnection connection;
    EXPECT_FALSE(connection.Handles->ConnectionOpen);
    EXPECT_FALSE(connection.Handles->EasyHandleAttached);
    EXPECT_NE(connection.Handles->EasyHandle, nullptr);
    EXPECT_NE(connection.Handles->MultiHandle, nullptr);
    connection.Settings.HTTPOptionsMode = true;
    open(connection);
    playExchange("HTTP/1.1 204 No Content\r\n\r\n");
    connection.sendRequest();
    EXPECT_EQ(connection.ReceivedHead.ResponseCode, 204);
}

// The same while an earlier connection of the scope, closed by now, has left its handles: they stay the same ones.
TEST_P(FailedConstructionTest, LeavesTheHandlesOfTheScope) {
    HTTPConnection earlier;
    open(earlier);
    earlier.closeConnection();
    const CurlSingleton before = *earlier.Handles;
    {
        Framework framework;
        GetParam().Arrange(curl, framework);
        const std::string failure = construction();
        // Handles that are there are not made again, so their making cannot fail.
        EXPECT_EQ(failure, std::string(GetParam().Name).starts_with("No_handle") ? "nothing" : GetParam().Failure);
    }
    EXPECT_EQ(earlier.Handles, &getCurlSingleton());
    EXPECT_EQ(earlier.Handles->EasyHandle, before.EasyHandle);
    EXPECT_EQ(earlier.Handles->MultiHandle, before.MultiHandle);
    open(earlier);
    EXPECT_TRUE(earlier.Transfer.Opened);
}

Cause optionRefused(const char* name, CURLoption option, const char* what, CURLcode code, int nth) {
    return {name, [=](CurlInterposer& curl, Framework&) { curl.failOption(option, code, nth); }, refused(what, code),
            true};
}

INSTANTIATE_TEST_SUITE_P(
    Causes, FailedConstructionTest,
    ::testing::Values(
        Cause{"No_framework", [](CurlInterposer&, Framework& framework) { framework.emplace(nullptr); },
              internalError("libcurl initialization failed."), false},
        Cause{"No_service", [](CurlInterposer&, Framework& framework) { framework.emplace(makeEmptyFramework()); },
              internalError("libcurl initialization failed."), false},
        Cause{"Stopped_framework",
              [](CurlInterposer&, Framework& framework) {
                  const auto stopped = makeEmptyFramework();
                  stopped->Stop();
                  stopped->WaitForStop(std::chrono::milliseconds::zero());
                  framework.emplace(stopped);
              },
              "std::runtime_error[The bundle context is no longer valid]", false},
        Cause{"No_handle_easy", [](CurlInterposer& curl, Framework&) { curl.failCall(CurlFunction::EasyInit, 0); },
              internalError("\"curl_easy_init\" failed "), true},
        Cause{"No_handle_multi", [](CurlInterposer& curl, Framework&) { curl.failCall(CurlFunction::MultiInit, 0); },
              internalError("\"curl_multi_init\" failed "), true},
        optionRefused("Cookie_engine", CURLOPT_COOKIEFILE, "CURLOPT_COOKIEFILE", CURLE_UNKNOWN_OPTION, 1),
        optionRefused("Cookies", CURLOPT_COOKIELIST, "CURLOPT_COOKIELIST", CURLE_OUT_OF_MEMORY, 1),
        optionRefused("Cookie_file_again", CURLOPT_COOKIEFILE, "CURLOPT_COOKIEFILE", CURLE_OUT_OF_MEMORY, 2),
        optionRefused("Cookie_list_again", CURLOPT_COOKIELIST, "CURLOPT_COOKIELIST", CURLE_UNKNOWN_OPTION, 2)),
    [](const auto& info) { return info.param.Name; });

// A construction that is refused lets go of libcurl's start-up too, and so does one that fails later: nothing keeps the
// service alive once it is unregistered.
TEST_F(ConstructionTest, LetsGoOfTheInitializer) {
    using LibCurlInitializer = HTTPConnection::LibCurlInitializer;
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

} // namespace
