#include "transfer/LibCurlInitializer.h"

#include "embedded/services/Services.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScopeFixture.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

using namespace netrove;
using foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
using vantik::detail::FrameworkReplacement;
using vantik::detail::makeEmptyFramework;

namespace {

class LibCurlInitializerTest : public testsupport::ScopeFixture {};

} // namespace

TEST_F(LibCurlInitializerTest, GivesTheServiceOfTheHost) {
    EXPECT_NE(newLibCurlInitializer(), nullptr);
}

TEST_F(LibCurlInitializerTest, GivesNothingWithoutAFramework) {
    const FrameworkReplacement none(nullptr);
    EXPECT_EQ(newLibCurlInitializer(), nullptr);
}

TEST_F(LibCurlInitializerTest, GivesNothingWithoutTheService) {
    const FrameworkReplacement empty(makeEmptyFramework());
    EXPECT_EQ(newLibCurlInitializer(), nullptr);
}

TEST_F(LibCurlInitializerTest, TakesTheFirstOfSeveral) {
    const auto framework = makeEmptyFramework();
    const auto first = std::make_shared<LibCurlInitializer>();
    const auto second = std::make_shared<LibCurlInitializer>();
    static_cast<void>(framework->GetBundleContext().RegisterService<LibCurlInitializer>(first));
    static_cast<void>(framework->GetBundleContext().RegisterService<LibCurlInitializer>(second));
    const FrameworkReplacement replaced(framework);
    EXPECT_EQ(newLibCurlInitializer(), first);
}

TEST_F(LibCurlInitializerTest, StoppedFrameworkIsNamed) {
    const auto framework = makeEmptyFramework();
    framework->Stop();
    framework->WaitForStop(std::chrono::milliseconds::zero());
    const FrameworkReplacement stopped(framework);
    EXPECT_EQ(testsupport::failureText([] { newLibCurlInitializer(); }),
              "std::runtime_error[The bundle context is no longer valid]");
}
