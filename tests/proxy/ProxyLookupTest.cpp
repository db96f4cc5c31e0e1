#include "proxy/ProxyLookup.h"

#include "embedded/services/Services.h"
#include "host/Messages.h"
#include "tests/support/host/ScopeFixture.h"
#include "vantik/Array.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace netrove;
using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyCredentials;
using foundation::httpproxy::ProxyList;
using foundation::httpproxy::ProxySelector;
using vantik::Array;

namespace {

class Credentials final : public ProxyCredentials {
public:
    std::string getUsername() const override { return "me"; }
    std::string getPassword() const override { return "secret"; }
};

// Answers from a script and notes what it was asked.
class ScriptedSelector final : public ProxySelector {
public:
    ProxyList getProxies(const std::string& url) override {
        Asked.push_back(url);
        if (Asked.size() <= Failures) {
            Raise();
        }
        return ProxyList(Answer);
    }

    std::vector<std::string> Asked;
    std::size_t Failures = 0;                       // how many of the first calls fail
    std::function<void()> Raise = [] { throw 42; }; // not even an exception class
    std::list<Proxy> Answer;
};

// Puts a framework of its own in the place of the host's.
class ProxyLookup : public testsupport::ScopeFixture {
protected:
    ProxyLookup() {
        static_cast<void>(Framework->GetBundleContext().RegisterService<ProxySelector>(Selector));
        vantik::detail::replaceFramework(Framework);
    }
    ~ProxyLookup() override { vantik::detail::restoreFramework(); }

    // One call of the builtin, with room for the result also where none is asked for.
    static Array lookUp(const Array& url, int resultsWanted = 1) {
        vxArray_tag* result = nullptr;
        Array copy = url;
        vxArray_tag* input = copy.release();
        const Array owner = Array::adopt(input);
        ws_base::getProxyInfoBuiltin(resultsWanted, &result, 1, &input);
        return Array::adopt(result);
    }

    std::shared_ptr<ScriptedSelector> Selector = std::make_shared<ScriptedSelector>();
    std::shared_ptr<cppmicroservices::Framework> Framework = vantik::detail::makeEmptyFramework();
};

void expectProxy(const Array& info, const std::string& host, double port, const std::string& username,
                 const std::string& password) {
    EXPECT_EQ(info.className(), "struct");
    EXPECT_EQ(info.dimensions(), (std::vector<std::size_t>{1, 1}));
    EXPECT_EQ(info.fieldNames(), (std::vector<std::string>{"Host", "Port", "Username", "Password"}));
    EXPECT_EQ(info.field("Host").text(), host);
    EXPECT_EQ(info.field("Port").className(), "double");
    EXPECT_EQ(info.field("Port").number(), port);
    EXPECT_EQ(info.field("Username").className(), "char");
    EXPECT_EQ(info.field("Username").text(), username);
    EXPECT_EQ(info.field("Password").text(), password);
}

} // namespace

TEST_F(ProxyLookup, NoProxyGivesAnEmptyHostAndPortEighty) {
    expectProxy(lookUp("http://example.com/"), "", 80.0, "", "");
    EXPECT_THAT(Selector->Asked, testing::ElementsAre("http://example.com/"));
}

// The port goes by the list, not by the host.
TEST_F(ProxyLookup, FirstProxyWithoutAHostGivesItsPort) {
    Selector->Answer.emplace_back("", std::uint16_t{3128});
    Selector->Answer.emplace_back("second", std::uint16_t{2});
    expectProxy(lookUp("http://example.com/"), "", 3128.0, "", "");
}

TEST_F(ProxyLookup, ProxyWithoutCredentialsHasEmptyTexts) {
    Selector->Answer.emplace_back("proxy.example", std::uint16_t{3128});
    expectProxy(lookUp("http://example.com/"), "proxy.example", 3128.0, "", "");
}

TEST_F(ProxyLookup, CredentialsAreReported) {
    Selector->Answer.emplace_back("proxy.example", std::uint16_t{65535}, std::make_shared<Credentials>());
    expectProxy(lookUp("https://example.com/"), "proxy.example", 65535.0, "me", "secret");
}

TEST_F(ProxyLookup, OnlyTheFirstProxyIsReported) {
    Selector->Answer.emplace_back("first", std::uint16_t{1});
    Selector->Answer.emplace_back("second", std::uint16_t{2}, std::make_shared<Credentials>());
    expectProxy(lookUp("http://example.com/"), "first", 1.0, "", "");
}

TEST_F(ProxyLookup, EveryCallAsksAnew) {
    lookUp("http://one/");
    Selector->Answer.emplace_back("late", std::uint16_t{9});
    expectProxy(lookUp("http://two/"), "late", 9.0, "", "");
    EXPECT_THAT(Selector->Asked, testing::ElementsAre("http://one/", "http://two/"));
}

TEST_F(ProxyLookup, FailureIsAskedAgainWithTheSchemeAlone) {
    struct Row {
        const char* Url;
        const char* Retry;
    };
    for (const Row& row :
         {Row{"https://example.com/", "https://"}, Row{"https", "https://"}, Row{"httpsx:whatever", "https://"},
          Row{"http://example.com/", "http://"}, Row{"HTTPS://example.com/", "http://"}, Row{"http", "http://"},
          Row{"", "http://"}, Row{"ftp://example.com/", "http://"}}) {
        Selector->Asked.clear();
        Selector->Failures = 1;
        Selector->Answer = {Proxy("again", 7)};
        expectProxy(lookUp(row.Url), "again", 7.0, "", "");
        EXPECT_THAT(Selector->Asked, testing::ElementsAre(row.Url, row.Retry));
    }
}

TEST_F(ProxyLookup, SecondFailureLeavesUnchangedAndGivesNoResult) {
    Selector->Failures = 2;
    Array url("http://example.com/");
    vxArray_tag* input = url.release();
    const Array owner = Array::adopt(input);
    vxArray_tag* result = nullptr;
    EXPECT_THROW(ws_base::getProxyInfoBuiltin(1, &result, 1, &input), int);
    EXPECT_EQ(result, nullptr);
    EXPECT_THAT(Selector->Asked, testing::ElementsAre("http://example.com/", "http://"));
}

TEST_F(ProxyLookup, ResultIsGivenAlsoToACallerWhoAsksForNone) {
    expectProxy(lookUp("http://example.com/", 0), "", 80.0, "", "");
}

TEST_F(ProxyLookup, ArgumentCountsAreTheHostsErrors) {
    vxArray_tag* result = nullptr;
    EXPECT_THROW(ws_base::getProxyInfoBuiltin(2, &result, 1, nullptr), foundation::core::except::IUserException);
    EXPECT_THROW(ws_base::getProxyInfoBuiltin(1, &result, 2, nullptr), foundation::core::except::IUserException);
    EXPECT_THROW(ws_base::getProxyInfoBuiltin(1, &result, 0, nullptr), foundation::core::except::IUserException);
    EXPECT_TRUE(Selector->Asked.empty());
}

TEST_F(ProxyLookup, UrlMustBeTextInAscii) {
    EXPECT_THROW(lookUp(Array(1.0)), foundation::core::except::IUserException);
    try {
        lookUp(Array(u"http://caf\u00E9/"));
        FAIL() << "the URL was taken";
    } catch (const foundation::core::except::IMsgIDException& failure) {
        EXPECT_EQ(failure.get_error_id(), "VANTIK:webservices:EncodingFailure");
    }
    EXPECT_TRUE(Selector->Asked.empty());
}

TEST_F(ProxyLookup, SelectorIsFoundThroughTheServiceFramework) {
    EXPECT_EQ(findProxySelector(cppmicroservices::LDAPFilter()).get(), Selector.get());
}

TEST_F(ProxyLookup, FirstReferenceWins) {
    const auto second = std::make_shared<ScriptedSelector>();
    static_cast<void>(Framework->GetBundleContext().RegisterService<ProxySelector>(second));
    EXPECT_EQ(findProxySelector(cppmicroservices::LDAPFilter()).get(), Selector.get());
}

TEST_F(ProxyLookup, HostWithoutASelectorFailsWithWords) {
    vantik::detail::replaceFramework(vantik::detail::makeEmptyFramework());
    EXPECT_EQ(findProxySelector(cppmicroservices::LDAPFilter()), nullptr);
    try {
        lookUp("http://example.com/");
        FAIL() << "a host without a selector answered";
    } catch (const foundation::core::except::IMsgIDException& failure) {
        EXPECT_EQ(failure.get_error_id(), "VANTIK:webservices:InternalError");
    }
}

TEST_F(ProxyLookup, HostWithoutAFrameworkHasNoSelector) {
    vantik::detail::replaceFramework(nullptr);
    EXPECT_EQ(findProxySelector(cppmicroservices::LDAPFilter()), nullptr);
}

TEST_F(ProxyLookup, StoppedFrameworkIsReported) {
    Framework->Stop();
    try {
        lookUp("http://example.com/");
        FAIL() << "a stopped framework answered";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "The bundle context is no longer valid");
    }
}
