#include "transfer/LibCurlInitializer.h"

#include "embedded/services/Services.h"
#include "tests/support/host/ScopeFixture.h"

#include <cppmicroservices/BundleContext.h>
#include <gtest/gtest.h>

#include <memory>

using namespace netrove;

namespace {

using foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
using vantik::detail::FrameworkReplacement;
using vantik::detail::makeEmptyFramework;
using LibCurlInitializerTest = testsupport::ScopeFixture;

TEST_F(LibCurlInitializerTest, IsTheFirstOfSeveral) {
    const auto framework = makeEmptyFramework();
    const auto first = std::make_shared<LibCurlInitializer>();
    static_cast<void>(framework->GetBundleContext().RegisterService<LibCurlInitializer>(first));
    static_cast<void>(
        framework->GetBundleContext().RegisterService<LibCurlInitializer>(std::make_shared<LibCurlInitializer>()));
    const FrameworkReplacement replaced(framework);
    EXPECT_EQ(newLibCurlInitializer(), first);
}

} // namespace
