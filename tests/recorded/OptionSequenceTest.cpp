// Every option that the library sets on its handle, in order and with its value, from the construction of an object to
// its end. The lists are written out: an option that is left out, doubled, moved or set to something else shows here.
#include "hostclass/ModuleEntry.h"
#include "tests/support/curl/CurlInterposer.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScopeFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using testsupport::CurlFunction;
using testsupport::receiveBytes;
using testsupport::response;
using testsupport::Script;
using testsupport::ScriptedServer;
using vantik::Array;
using vantik::Object;

namespace step = testsupport::step;

using Calls = std::vector<std::string>;

// Several lists after each other.
Calls operator+(Calls left, const Calls& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const Calls kConstruction = {"CURLOPT_COOKIEFILE ", "CURLOPT_COOKIELIST ALL", "CURLOPT_COOKIEFILE (null)",
                             "CURLOPT_COOKIELIST #"};
const Calls kAttach = {"curl_multi_add_handle"};
const Calls kReattach = {"curl_multi_remove_handle", "curl_easy_reset", "curl_multi_add_handle"};
const Calls kReattachAfter401 = {"curl_multi_remove_handle", "curl_multi_add_handle"};
const Calls kPlainOpen = {"CURLOPT_SSL_VERIFYHOST 2",       "CURLOPT_PROXY ",
                          "CURLOPT_CONNECTTIMEOUT_MS 5000", "CURLOPT_QUICK_EXIT 1",
                          "CURLOPT_DEFAULT_PROTOCOL http",  "CURLOPT_URL http://SERVER/a"};
const Calls kFields = {"CURLOPT_ACCEPT_ENCODING ", "CURLOPT_HTTPHEADER {Accept-Encoding:|Accept:}"};
const Calls kSend = {"CURLOPT_HEADERDATA",       "CURLOPT_HEADERFUNCTION", "CURLOPT_VERBOSE 1",
                     "CURLOPT_DEBUGDATA",        "CURLOPT_DEBUGFUNCTION",  "CURLOPT_SSL_OPTIONS 8",
                     "CURLOPT_SSLVERSION 65541", "CURLOPT_NOSIGNAL 1"};
const Calls kNoSchemes = {"CURLOPT_HTTPAUTH 0", "CURLOPT_PROXYAUTH 0"};
const Calls kAnyScheme = {"CURLOPT_HTTPAUTH 4294967279",  "CURLOPT_USERNAME ",      "CURLOPT_PASSWORD ",
                          "CURLOPT_PROXYAUTH 4294967279", "CURLOPT_PROXYUSERNAME ", "CURLOPT_PROXYPASSWORD "};
const Calls kCopier = {"CURLOPT_ERRORBUFFER", "CURLOPT_WRITEFUNCTION", "CURLOPT_WRITEDATA", "CURLOPT_READFUNCTION",
                       "CURLOPT_READDATA",    "CURLOPT_SEEKFUNCTION",  "CURLOPT_SEEKDATA"};
const Calls kUpload = {"CURLOPT_UPLOAD 1"};
const Calls kGet = kFields + kSend + kNoSchemes + kCopier;

Script answers(const std::vector<std::string>& responses) {
    Script script;
    for (const std::string& text : responses) {
        script.push_back(step::expectHead());
        script.push_back(step::send(text));
    }
    return script;
}

// Takes content in this step and answers "x".
Script takes(const Script::value_type& content) {
    return {step::expectHead(), step::continueIfExpected(), content, step::send(response("x"))};
}

class OptionSequence : public testsupport::ScopeFixture {
public:
    using ScopeFixture::host;

    OptionSequence() { VKInitialize_netrove(); }

    void serve(const Script& script) { Server = std::make_unique<ScriptedServer>(std::vector{script}); }
    // A new object with its URL set.
    Object make(bool optionsMode = true) {
        Object connection = host().create(testsupport::kAdapterClass, {optionsMode});
        connection.set("URL", Server->url("/a"));
        return connection;
    }
    // The same, opened, with what has been set until then forgotten.
    Object open(bool optionsMode = true) {
        Object connection = make(optionsMode);
        connection.call("openConnection");
        Curl.clear();
        return connection;
    }
    // What has been set since the last call of this, with the server's address as SERVER.
    Calls taken() {
        Calls calls = Curl.texts({CurlFunction::EasySetopt, CurlFunction::EasyReset, CurlFunction::MultiAddHandle,
                                  CurlFunction::MultiRemoveHandle});
        for (std::string& call : calls) {
            const std::size_t position = call.find(Server->authority());
            if (position != std::string::npos) {
                call.replace(position, Server->authority().size(), "SERVER");
            }
        }
        Curl.clear();
        return calls;
    }

    std::unique_ptr<ScriptedServer> Server;
    testsupport::CurlInterposer Curl;
};

// From the construction on.

TEST_F(OptionSequence, OfAFirstGetToItsEnd) {
    serve(answers({response("x")}));
    {
        const Object connection = make();
        EXPECT_EQ(taken(), kConstruction);
        connection.call("openConnection");
        EXPECT_EQ(taken(), kAttach + kPlainOpen);
        EXPECT_EQ(receiveBytes(connection), "x");
        EXPECT_EQ(taken(), kGet);
        connection.call("closeConnection");
        EXPECT_EQ(taken(), Calls{});
    }
    EXPECT_EQ(taken(), (Calls{"curl_multi_remove_handle", "curl_easy_reset"}));
}

TEST_F(OptionSequence, OfAReopenSetsAllAgainAndResetsButAfterAChallenge) {
    for (const bool challenged : {false, true}) {
        serve(answers({response("x", {}, challenged ? "401 Unauthorized" : "200 OK"), response("y")}));
        const Object connection = open();
        EXPECT_EQ(receiveBytes(connection), "x");
        taken();
        connection.call("openConnection");
        EXPECT_EQ(taken(), (challenged ? kReattachAfter401 : kReattach) + kPlainOpen);
        EXPECT_EQ(receiveBytes(connection), "y");
        EXPECT_EQ(taken(), kGet);
        connection.call("closeConnection");
    }
}

TEST_F(OptionSequence, OfASecondObjectClearsTheCookiesAndResets) {
    serve(answers({response("x")}));
    const Object first = open();
    EXPECT_EQ(receiveBytes(first), "x");
    first.call("closeConnection");
    taken();
    const Object second = make();
    EXPECT_EQ(taken(), kConstruction);
    second.call("openConnection");
    EXPECT_EQ(taken(), kReattach + kPlainOpen);
}

// The open.

TEST_F(OptionSequence, OfAnOpenThroughAProxy) {
    serve(answers({response("x")}));
    const Object connection = make();
    connection.set("URL", "http://far.test/a");
    Curl.clear();
    connection.call("openProxyConnection",
                    {Array::structure({{"Host", "127.0.0.1"}, {"Port", static_cast<double>(Server->port())}})});
    EXPECT_EQ(taken(), kAttach + (Calls{"CURLOPT_SSL_VERIFYHOST 2", "CURLOPT_PROXY 127.0.0.1",
                                        "CURLOPT_PROXYPORT " + std::to_string(Server->port()),
                                        "CURLOPT_CONNECTTIMEOUT_MS 5000", "CURLOPT_QUICK_EXIT 1",
                                        "CURLOPT_DEFAULT_PROTOCOL http", "CURLOPT_URL http://far.test/a"}));
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(taken(), kGet);
}

TEST_F(OptionSequence, OfAnOpenAfterTimeoutsWereSet) {
    serve({});
    const Object connection = make();
    connection.set("TimeoutInMilliseconds", Array::doubles({1234.9, 20, 30, 40}));
    connection.set("VerifyServerName", false);
    Curl.clear();
    connection.call("openConnection");
    EXPECT_EQ(taken(), kAttach + (Calls{"CURLOPT_SSL_VERIFYHOST 0", "CURLOPT_PROXY ", "CURLOPT_CONNECTTIMEOUT_MS 1234",
                                        "CURLOPT_QUICK_EXIT 1", "CURLOPT_DEFAULT_PROTOCOL http",
                                        "CURLOPT_URL http://SERVER/a"}));
}

// The send.

struct SendRow {
    const char* Name;
    bool OptionsMode;
    Script Exchange;
    std::function<void(OptionSequence&, const Object&)> Arrange;
    Calls Arranging; // what the settings set at once
    Calls Sending;
};

const char* const kSizedFields = "CURLOPT_HTTPHEADER {Content-Length: 3|Accept-Encoding:|Accept:|Transfer-Encoding:}";

const SendRow kSends[] = {
    {"OfAPostOfTheOlderInterface",
     false,
     takes(step::expectBody(5)),
     [](OptionSequence&, const Object& connection) {
         connection.set("RequestMethod", "POST");
         connection.set("PostData", "hello");
     },
     {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST POST"},
     Calls{"CURLOPT_ACCEPT_ENCODING ",
           "CURLOPT_HTTPHEADER {Accept-Encoding:|Accept:|Content-Length: 5|Transfer-Encoding:}"} +
         kSend + kAnyScheme + kCopier + kUpload},
    {"OfAPutOfTheOlderInterfaceWithoutText",
     false,
     answers({response("x")}),
     [](OptionSequence&, const Object& connection) { connection.set("RequestMethod", "PUT"); },
     {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST PUT"},
     Calls{"CURLOPT_ACCEPT_ENCODING ",
           "CURLOPT_HTTPHEADER {Accept-Encoding:|Accept:|Content-Length: 0|Transfer-Encoding:}"} +
         kSend + kAnyScheme + kCopier},
    {"OfAnUploadFromMemoryWithSchemesAndCredentials",
     true,
     takes(step::expectBody(3)),
     [](OptionSequence&, const Object& connection) {
         const auto allow = [&](const std::vector<std::string>& schemes, bool proxy) {
             connection.call("setAuthenticationSchemes",
                             {Array::enumeration("vantik.net.http.AuthenticationScheme", schemes), proxy});
         };
         connection.set("Username", "bob");
         connection.set("Password", "secret");
         connection.set("ProxyUsername", "pat");
         connection.set("ProxyPassword", "hidden");
         connection.set("RequestMethod", "PUT");
         connection.set("Payload", Array::bytes("abc"));
         connection.call("setRequestProperty", {"Content-Length", "3"});
         allow({"Basic"}, false);
         allow({"Digest", "NTLM"}, true);
     },
     {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST PUT"},
     Calls{"CURLOPT_ACCEPT_ENCODING ", kSizedFields} + kSend +
         Calls{"CURLOPT_HTTPAUTH 1", "CURLOPT_USERNAME bob", "CURLOPT_PASSWORD secret", "CURLOPT_PROXYAUTH 10",
               "CURLOPT_PROXYUSERNAME pat", "CURLOPT_PROXYPASSWORD hidden"} +
         kCopier + kUpload},
    {"OfAnUploadFromAProviderHasNoSize",
     true,
     takes(step::expectChunkedBody()),
     [](OptionSequence& test, const Object& connection) {
         connection.set("RequestMethod", "PUT");
         connection.set("Provider", testsupport::makeScriptedProvider(test.host(), "content"));
     },
     {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST PUT"},
     kGet + kUpload},
    {"OfTheCallersFieldsAndCookiesWithoutDecoding",
     true,
     answers({response("x")}),
     [](OptionSequence&, const Object& connection) {
         connection.set("Decode", false);
         connection.call("setRequestProperty", {"Cookie", "a=1"});
         connection.call("setRequestProperty", {"Accept", "text/plain"});
         connection.call("setRequestProperty", {"Proxy-Connection", "close"});
         connection.call("setRequestProperty", {"cookie", "b=2"});
         connection.call("removeField", {"User-Agent"});
     },
     {},
     Calls{"CURLOPT_COOKIE a=1; b=2; ", "CURLOPT_HTTPHEADER {Accept: text/plain|User-Agent:}",
           "CURLOPT_PROXYHEADER {Proxy-Connection: close}"} +
         kSend + kNoSchemes + kCopier},
};

class SendOptionSequence : public OptionSequence, public testing::WithParamInterface<SendRow> {};

TEST_P(SendOptionSequence, FollowsTheSettings) {
    const SendRow& row = GetParam();
    serve(row.Exchange);
    const Object connection = open(row.OptionsMode);
    row.Arrange(*this, connection);
    EXPECT_EQ(taken(), row.Arranging);
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(taken(), row.Sending);
}

INSTANTIATE_TEST_SUITE_P(Each, SendOptionSequence, testing::ValuesIn(kSends),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
