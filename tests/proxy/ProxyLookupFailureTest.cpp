// What the look-up does with inputs that it cannot use and with selectors that fail.
#include "embedded/services/Services.h"
#include "host/Interrupt.h"
#include "host/Messages.h"
#include "proxy/ProxyLookup.h"
#include "tests/support/host/ScopeFixture.h"
#include "vantik/Array.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyCredentials;
using foundation::httpproxy::ProxyList;
using foundation::httpproxy::ProxySelector;
using testing::ElementsAre;
using vantik::Array;

namespace {

// Runs the rows of its script, one a call, and gives one proxy.
class FailingSelector final : public ProxySelector {
public:
    ProxyList getProxies(const std::string& url) override {
        Asked.push_back(url);
        if (Asked.size() <= Script.size()) {
            Script[Asked.size() - 1]();
        }
        return ProxyList(std::list<Proxy>{Answer});
    }

    std::vector<std::string> Asked;
    std::vector<std::function<void()>> Script;
    Proxy Answer{"answer", 7};
};

// A class that no catch clause knows by name.
struct Strange {
    int Number;
};

class ProxyLookupFailure : public testsupport::ScopeFixture {
protected:
    ProxyLookupFailure() {
        static_cast<void>(Framework->GetBundleContext().RegisterService<ProxySelector>(Selector));
        vantik::detail::replaceFramework(Framework);
    }
    ~ProxyLookupFailure() override { vantik::detail::restoreFramework(); }

    // The builtin's result; null where it gave none. What it raises passes.
    vxArray_tag* lookUp(const Array& url) {
        Result = nullptr;
        Array copy = url;
        vxArray_tag* input = copy.release();
        const Array owner = Array::adopt(input);
        ws_base::getProxyInfoBuiltin(1, &Result, 1, &input);
        return Result;
    }
    std::string hostFor(const Array& url) { return Array::adopt(lookUp(url)).field("Host").text(); }

    // The identifier of the host's error for these counts. Nothing may be read, neither inputs nor outputs.
    static std::string errorFor(int outputs, int inputs) {
        try {
            ws_base::getProxyInfoBuiltin(outputs, nullptr, inputs, nullptr);
        } catch (const foundation::core::except::IUserException& failure) {
            return failure.msg_id().fullName();
        }
        return "none";
    }

    vxArray_tag* Result = nullptr;
    std::shared_ptr<FailingSelector> Selector = std::make_shared<FailingSelector>();
    std::shared_ptr<cppmicroservices::Framework> Framework = vantik::detail::makeEmptyFramework();
};

} // namespace

TEST_F(ProxyLookupFailure, CountsAreCheckedResultsFirst) {
    EXPECT_EQ(errorFor(2, 1), "VANTIK:builtin:TooManyOutputs");
    EXPECT_EQ(errorFor(2, 2), "VANTIK:builtin:TooManyOutputs");
    EXPECT_EQ(errorFor(2, 0), "VANTIK:builtin:TooManyOutputs");
    EXPECT_EQ(errorFor(1, 2), "VANTIK:builtin:TooManyInputs");
    EXPECT_EQ(errorFor(0, 2), "VANTIK:builtin:TooManyInputs");
    EXPECT_EQ(errorFor(1, 0), "VANTIK:builtin:NotEnoughInputs");
    EXPECT_EQ(errorFor(0, 0), "VANTIK:builtin:NotEnoughInputs");
    EXPECT_EQ(errorFor(1, -1), "VANTIK:builtin:NotEnoughInputs");
    EXPECT_THAT(Selector->Asked, ElementsAre());
    EXPECT_EQ(hostFor("http://h/"), "answer") << "the next call is good";
}

TEST_F(ProxyLookupFailure, AnythingThatTheSelectorRaisesOnTheUrlIsSwallowed) {
    const std::vector<std::function<void()>> raises = {
        [] { throw 42; },
        [] { throw Strange{1}; },
        [] { throw "text"; },
        [] { throw std::runtime_error("no settings"); },
        [] { throw std::bad_alloc(); },
        [] { matrix::detail::error_maxrhs(); }, // a message of the host's
        [] { throw Zentorak::System::InterruptException(false); },
    };
    for (const auto& raise : raises) {
        Selector->Asked.clear();
        Selector->Script = {raise};
        EXPECT_EQ(hostFor("https://example.com/p"), "answer");
        EXPECT_THAT(Selector->Asked, ElementsAre("https://example.com/p", "https://"));
    }
}

TEST_F(ProxyLookupFailure, OfTheSchemeAloneLeavesUnchanged) {
    const auto first = [] { throw std::runtime_error("first"); };
    Selector->Script = {first, [] { throw Strange{5}; }};
    try {
        lookUp("http://h/");
        FAIL() << "nothing was raised";
    } catch (const Strange& failure) {
        EXPECT_EQ(failure.Number, 5);
    }
    EXPECT_EQ(Result, nullptr);

    Selector->Asked.clear();
    Selector->Script = {first, [] { throw std::range_error("second"); }};
    try {
        lookUp("http://h/");
        FAIL() << "nothing was raised";
    } catch (const std::range_error& failure) {
        EXPECT_STREQ(failure.what(), "second");
    }
    EXPECT_EQ(Result, nullptr);

    Selector->Asked.clear();
    Selector->Script = {first, [] { matrix::detail::error_minrhs(); }};
    try {
        lookUp("http://h/");
        FAIL() << "nothing was raised";
    } catch (const foundation::core::except::IUserException& failure) {
        EXPECT_EQ(failure.msg_id().fullName(), "VANTIK:builtin:NotEnoughInputs");
    }
    EXPECT_EQ(Result, nullptr);

    Selector->Script.clear();
    EXPECT_EQ(hostFor("http://h/"), "answer") << "nothing of it is kept";
}

TEST_F(ProxyLookupFailure, RetryGoesByTheFirstFiveBytesOnly) {
    struct Row {
        const char* Url;
        const char* Retry;
    };
    for (const Row& row : {Row{"https", "https://"}, Row{"https:", "https://"}, Row{"httpsomething", "https://"},
                           Row{"https2://h/", "https://"}, Row{"https ", "https://"}, Row{"http", "http://"},
                           Row{"htt", "http://"}, Row{"h", "http://"}, Row{"", "http://"}, Row{"HTTPS://h/", "http://"},
                           Row{"Https://h/", "http://"}, Row{"httpS://h/", "http://"}, Row{" https://h/", "http://"},
                           Row{"http:s//h/", "http://"}, Row{"ftps://h/", "http://"}, Row{"wss://h/", "http://"}}) {
        Selector->Asked.clear();
        Selector->Script = {[] { throw 1; }};
        EXPECT_EQ(hostFor(row.Url), "answer") << row.Url;
        EXPECT_THAT(Selector->Asked, ElementsAre(row.Url, row.Retry));
    }
}

TEST_F(ProxyLookupFailure, InputsThatAreNoAsciiTextGiveNoResultAndAskNobody) {
    for (const Array& input : {Array(1.0), Array(true), Array::bytes(std::string_view("http://h/")),
                               Array::structure({{"Host", "h"}}), Array()}) {
        EXPECT_THROW(lookUp(input), foundation::core::except::IUserException) << input.className();
        EXPECT_EQ(Result, nullptr);
    }
    for (const char16_t* url : {u"http://caf\u00E9/", u"http://h/\u4E2D", u"\u0080"}) {
        try {
            lookUp(Array(url));
            FAIL() << "the URL was taken";
        } catch (const foundation::core::except::IMsgIDException& failure) {
            EXPECT_EQ(failure.get_error_id(), "VANTIK:webservices:EncodingFailure");
            ASSERT_EQ(failure.msg_id().arguments().size(), 3u);
            EXPECT_EQ(failure.msg_id().arguments()[0], resource_core::MsgArgument(std::u16string(url)));
            EXPECT_EQ(failure.msg_id().arguments()[1], resource_core::MsgArgument(std::string("ascii")));
        }
        EXPECT_EQ(Result, nullptr);
    }
    EXPECT_THAT(Selector->Asked, ElementsAre());
}

namespace {

// Credentials that cannot be had.
class LockedCredentials final : public ProxyCredentials {
public:
    std::string getUsername() const override { return "me"; }
    std::string getPassword() const override { throw std::runtime_error("locked"); }
};

} // namespace

TEST_F(ProxyLookupFailure, OfTheCredentialsLeavesNoResultBehind) {
    Selector->Answer = Proxy("answer", 7, std::make_shared<LockedCredentials>());
    EXPECT_THROW(lookUp("http://h/"), std::runtime_error);
    EXPECT_EQ(Result, nullptr);
    EXPECT_THAT(Selector->Asked, ElementsAre("http://h/")) << "only a failing selector is asked again";
}
