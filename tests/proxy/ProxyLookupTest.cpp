#include "proxy/ProxyLookup.h"

#include "embedded/services/Services.h"
#include "host/Interrupt.h"
#include "host/Messages.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScopeFixture.h"
#include "vantik/Array.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <gmock/gmock.h>

#include <functional>
#include <list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

using namespace netrove;
using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyCredentials;
using foundation::httpproxy::ProxyList;
using foundation::httpproxy::ProxySelector;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testsupport::failureText;
using vantik::Array;

namespace {

class Credentials final : public ProxyCredentials {
public:
    explicit Credentials(bool locked = false) : Locked(locked) {}
    std::string getUsername() const override { return "me"; }
    std::string getPassword() const override {
        return Locked ? throw std::runtime_error("locked") : std::string("secret");
    }

private:
    bool Locked;
};

// Notes what it was asked. The first calls run its script, one step each.
class ScriptedSelector final : public ProxySelector {
public:
    ProxyList getProxies(const std::string& url) override {
        Asked.push_back(url);
        if (Asked.size() <= Script.size()) {
            Script[Asked.size() - 1]();
        }
        return ProxyList(Answer);
    }

    std::vector<std::string> Asked;
    std::vector<std::function<void()>> Script;
    std::list<Proxy> Answer;
};

// A class that no catch clause knows by name.
struct Strange {};

// Puts a framework of its own in the place of the host's.
class ProxyLookup : public testsupport::ScopeFixture {
protected:
    ProxyLookup() {
        static_cast<void>(Framework->GetBundleContext().RegisterService<ProxySelector>(Selector));
        vantik::detail::replaceFramework(Framework);
    }
    ~ProxyLookup() override { vantik::detail::restoreFramework(); }

    // One call of the builtin, with room for the result also where none is asked for. A call that fails leaves no
    // result.
    static Array lookUp(const Array& url, int resultsWanted = 1) {
        vxArray_tag* result = nullptr;
        Array copy = url;
        vxArray_tag* input = copy.release();
        const Array owner = Array::adopt(input);
        try {
            ws_base::getProxyInfoBuiltin(resultsWanted, &result, 1, &input);
        } catch (...) {
            EXPECT_EQ(result, nullptr);
            throw;
        }
        return Array::adopt(result);
    }
    // The same in words: "host:port username/password".
    static std::string proxyFor(const Array& url, int resultsWanted = 1) {
        const Array info = lookUp(url, resultsWanted);
        EXPECT_EQ(info.className(), "struct");
        EXPECT_EQ(info.dimensions(), (std::vector<std::size_t>{1, 1}));
        EXPECT_EQ(info.fieldNames(), (std::vector<std::string>{"Host", "Port", "Username", "Password"}));
        EXPECT_EQ(info.field("Port").className(), "double");
        EXPECT_EQ(info.field("Username").className(), "char");
        return info.field("Host").text() + ':' + std::to_string(info.field("Port").number()) + ' ' +
               info.field("Username").text() + '/' + info.field("Password").text();
    }

    std::shared_ptr<ScriptedSelector> Selector = std::make_shared<ScriptedSelector>();
    std::shared_ptr<cppmicroservices::Framework> Framework = vantik::detail::makeEmptyFramework();
};

// What is reported.

TEST_F(ProxyLookup, FirstProxyIsReportedOrAnEmptyHostAndPortEighty) {
    const auto login = std::make_shared<Credentials>();
    const std::pair<std::list<Proxy>, std::string> rows[] = {
        {{}, ":80.000000 /"},
        {{Proxy("proxy.example", 3128)}, "proxy.example:3128.000000 /"},
        {{Proxy("proxy.example", 65535, login)}, "proxy.example:65535.000000 me/secret"},
        {{Proxy("first", 1), Proxy("second", 2, login)}, "first:1.000000 /"},
        {{Proxy("", 3128), Proxy("second", 2)}, ":3128.000000 /"}, // the port goes by the list, not by the host
    };
    for (const auto& [answer, reported] : rows) {
        Selector->Answer = answer; // every call asks anew
        EXPECT_EQ(proxyFor("http://example.com/"), reported);
    }
    EXPECT_EQ(proxyFor("http://example.com/", 0), ":3128.000000 /") << "also to a caller who asks for no result";
}

// A selector that fails is asked again with the scheme alone, which goes by the first five bytes.

TEST_F(ProxyLookup, FailureIsAskedAgainWithTheSchemeAlone) {
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"https://", {"https://example.com/", "https", "https:", "httpsomething", "https2://h/", "https "}},
        {"http://",
         {"http://example.com/", "http", "htt", "", "HTTPS://h/", "Https://h/", "httpS://h/", " https://h/",
          "http:s//h/", "ftps://h/", "wss://h/"}},
    };
    Selector->Answer = {Proxy("again", 7)};
    Selector->Script = {[] { throw 1; }};
    for (const auto& [retry, urls] : rows) {
        for (const std::string& url : urls) {
            Selector->Asked.clear();
            EXPECT_EQ(proxyFor(url), "again:7.000000 /");
            EXPECT_THAT(Selector->Asked, ElementsAre(url, retry));
        }
    }
}

TEST_F(ProxyLookup, AnythingThatTheSelectorRaisesOnTheUrlIsSwallowed) {
    const std::vector<std::function<void()>> raises = {
        [] { throw 42; },
        [] { throw Strange(); },
        [] { throw "text"; },
        [] { throw std::runtime_error("no settings"); },
        [] { throw std::bad_alloc(); },
        [] { matrix::detail::error_maxrhs(); }, // a message of the host's
        [] { throw Zentorak::System::InterruptException(false); },
    };
    for (const auto& raise : raises) {
        Selector->Asked.clear();
        Selector->Script = {raise};
        EXPECT_EQ(proxyFor("https://example.com/p"), ":80.000000 /");
        EXPECT_THAT(Selector->Asked, ElementsAre("https://example.com/p", "https://"));
    }
}

TEST_F(ProxyLookup, SecondFailureLeavesUnchanged) {
    const auto secondFailure = [&](const std::function<void()>& second) {
        Selector->Asked.clear();
        Selector->Script = {[] { throw std::runtime_error("first"); }, second};
        return failureText([] { lookUp("http://h/"); });
    };
    EXPECT_EQ(secondFailure([] { throw std::range_error("second"); }), "std::range_error[second]");
    EXPECT_EQ(secondFailure([] { matrix::detail::error_minrhs(); }), "VANTIK:builtin:NotEnoughInputs[]");
    EXPECT_THAT(Selector->Asked, ElementsAre("http://h/", "http://"));
    EXPECT_EQ(secondFailure([] { throw Strange(); }), "unknown");
    Selector->Asked.clear();
    EXPECT_THROW(lookUp("http://h/"), Strange);
    Selector->Script.clear();
    EXPECT_EQ(proxyFor("http://h/"), ":80.000000 /") << "nothing of it is kept";
}

TEST_F(ProxyLookup, FailureOfTheCredentialsPassesAndIsNotAskedAgain) {
    Selector->Answer = {Proxy("answer", 7, std::make_shared<Credentials>(true))};
    EXPECT_EQ(failureText([] { lookUp("http://h/"); }), "std::runtime_error[locked]");
    EXPECT_THAT(Selector->Asked, ElementsAre("http://h/"));
}

// Inputs that cannot be used ask nobody.

TEST_F(ProxyLookup, CountsAreCheckedResultsFirst) {
    struct Row {
        int Outputs;
        int Inputs;
        const char* Failure;
    };
    for (const Row& row : {Row{2, 1, "TooManyOutputs"}, Row{2, 2, "TooManyOutputs"}, Row{2, 0, "TooManyOutputs"},
                           Row{1, 2, "TooManyInputs"}, Row{0, 2, "TooManyInputs"}, Row{1, 0, "NotEnoughInputs"},
                           Row{0, 0, "NotEnoughInputs"}, Row{1, -1, "NotEnoughInputs"}}) {
        // Nothing may be read, neither inputs nor outputs.
        EXPECT_EQ(failureText([&] { ws_base::getProxyInfoBuiltin(row.Outputs, nullptr, row.Inputs, nullptr); }),
                  std::string("VANTIK:builtin:") + row.Failure + "[]");
    }
    EXPECT_THAT(Selector->Asked, IsEmpty());
    EXPECT_EQ(proxyFor("http://h/"), ":80.000000 /") << "the next call is good";
}

TEST_F(ProxyLookup, UrlMustBeTextInAscii) {
    for (const Array& input : {Array(1.0), Array(true), Array::bytes(std::string_view("http://h/")),
                               Array::structure({{"Host", "h"}}), Array()}) {
        EXPECT_THROW(lookUp(input), foundation::core::except::IUserException) << input.className();
    }
    for (const std::string url : {"http://caf\u00E9/", "http://h/\u4E2D", "\u0080"}) {
        EXPECT_THAT(failureText([&] { lookUp(Array(url)); }),
                    StartsWith("VANTIK:webservices:EncodingFailure[U:" + url + ", N:ascii, N:"));
    }
    EXPECT_THAT(Selector->Asked, IsEmpty());
}

// Where the selector comes from.

TEST_F(ProxyLookup, SelectorIsFoundThroughTheServiceFramework) {
    static_cast<void>(
        Framework->GetBundleContext().RegisterService<ProxySelector>(std::make_shared<ScriptedSelector>()));
    EXPECT_EQ(findProxySelector(cppmicroservices::LDAPFilter()).get(), Selector.get()) << "the first one";
}

TEST_F(ProxyLookup, HostWithoutASelectorFailsWithWords) {
    for (const auto& framework : {vantik::detail::makeEmptyFramework(), decltype(Framework)()}) {
        vantik::detail::replaceFramework(framework);
        EXPECT_EQ(findProxySelector(cppmicroservices::LDAPFilter()), nullptr);
    }
    vantik::detail::replaceFramework(vantik::detail::makeEmptyFramework());
    EXPECT_EQ(failureText([] { lookUp("http://example.com/"); }),
              "VANTIK:webservices:InternalError[N:The host has no proxy selector]");
}

TEST_F(ProxyLookup, StoppedFrameworkIsReported) {
    Framework->Stop();
    EXPECT_EQ(failureText([] { lookUp("http://example.com/"); }),
              "std::runtime_error[The bundle context is no longer valid]");
}

} // namespace
