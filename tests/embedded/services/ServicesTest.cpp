// The services of the embedded host. What the service framework itself does is in ServicesContractTest.cpp.
#include "embedded/services/Services.h"

#include "embedded/scope/Scope.h"
#include "host/ProxySelector.h"
#include "host/Services.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceReference.h>
#include <gtest/gtest.h>

#include <memory>

using cppmicroservices::BundleContext;
using cppmicroservices::LDAPFilter;
using foundation::cppmicroservices::getFramework;
using foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
using foundation::httpproxy::ProxySelector;
using vantik::detail::FrameworkReplacement;
using vantik::detail::makeEmptyFramework;

TEST(HostServices, ProcessHasOneFrameworkWithBothServices) {
    const auto framework = getFramework();
    ASSERT_NE(framework, nullptr);
    EXPECT_EQ(getFramework(), framework);
    BundleContext context = framework->GetBundleContext();
    EXPECT_EQ(context.GetServiceReferences<LibCurlInitializer>(LDAPFilter().ToString()).size(), 1U);
    EXPECT_EQ(context.GetServiceReferences<ProxySelector>(LDAPFilter().ToString()).size(), 1U);
    EXPECT_EQ(us_service_interface_iid<LibCurlInitializer>(),
              "foundation::httpclient_core::libcurlinitializer::LibCurlInitializer");
    EXPECT_EQ(us_service_interface_iid<ProxySelector>(), "foundation::httpproxy::ProxySelector");
}

TEST(HostServices, FrameworkCanBeReplacedAndComesBack) {
    const auto own = getFramework();
    {
        const FrameworkReplacement none(nullptr);
        EXPECT_EQ(getFramework(), nullptr);
    }
    EXPECT_EQ(getFramework(), own);
    {
        const auto empty = makeEmptyFramework();
        const FrameworkReplacement replacement(empty);
        EXPECT_EQ(getFramework(), empty);
        EXPECT_TRUE(empty->GetBundleContext().GetServiceReferences<LibCurlInitializer>().empty());
    }
    EXPECT_EQ(getFramework(), own);
}

TEST(HostServices, ScopeThatLookedForServicesKeepsLibcurl) {
    const auto scope = std::make_shared<vantik::detail::Scope>();
    EXPECT_EQ(scope->keptAlive(), nullptr);
    const vantik::detail::ScopeEntry entry(scope);
    BundleContext context = getFramework()->GetBundleContext();
    EXPECT_EQ(scope->keptAlive(), context.GetService(context.GetServiceReference<LibCurlInitializer>()).get());
}
