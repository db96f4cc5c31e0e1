// Every option that the library sets on its handle, in order and with its value, from the construction of an object to
// its end. The lists are written out: an option that is left out, doubled, moved or set to something else shows here.
#include "tests/recorded/RecordedFixture.h"

#include <string>
#include <utility>
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

// Several lists behind each other.
Calls operator+(Calls left, const Calls& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const Calls kConstruction = {"CURLOPT_COOKIEFILE ", "CURLOPT_COOKIELIST ALL", "CURLOPT_COOKIEFILE (null)",
                             "CURLOPT_COOKIELIST #"};
const Calls kAttach = {"curl_multi_add_handle"};
const Calls kReattach = {"curl_multi_remove_handle", "curl_easy_reset", "curl_multi_add_handle"};
const Calls kReattachBehind401 = {"curl_multi_remove_handle", "curl_multi_add_handle"};
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

class OptionSequence : public testsupport::RecordedFixture {
protected:
    // What has been set since the last call of this, with the server's address as SERVER.
    Calls taken(const ScriptedServer& server) {
        Calls calls = curl.texts({CurlFunction::EasySetopt, CurlFunction::EasyReset, CurlFunction::MultiAddHandle,
                                  CurlFunction::MultiRemoveHandle});
        for (std::string& call : calls) {
            const std::size_t position = call.find(server.authority());
            if (position != std::string::npos) {
                call.replace(position, server.authority().size(), "SERVER");
            }
        }
        curl.clear();
        return calls;
    }
    static Array schemes(const std::vector<std::string>& names) {
        return Array::enumeration("vantik.net.http.AuthenticationScheme", names);
    }
    ScriptedServer& serveResponses(std::vector<std::string> responses) {
        Script script;
        for (std::string& text : responses) {
            script.push_back(step::expectHead());
            script.push_back(step::send(std::move(text)));
        }
        return serve({script});
    }
};

TEST_F(OptionSequence, OfAFirstGetToItsEnd) {
    const ScriptedServer& server = serveResponses({response("x")});
    {
        const Object connection = makeAdapter();
        EXPECT_EQ(taken(server), kConstruction);
        connection.set("URL", server.url("/a"));
        EXPECT_EQ(taken(server), Calls{});
        connection.call("openConnection");
        EXPECT_EQ(taken(server), kAttach + kPlainOpen);
        EXPECT_EQ(receiveBytes(connection), "x");
        EXPECT_EQ(taken(server), kGet);
        connection.call("closeConnection");
        EXPECT_EQ(taken(server), Calls{});
    }
    EXPECT_EQ(taken(server), (Calls{"curl_multi_remove_handle", "curl_easy_reset"}));
}

TEST_F(OptionSequence, OfAReopenBehindASuccessResetsAndSetsAllAgain) {
    const ScriptedServer& server = serveResponses({response("x"), response("y")});
    const Object connection = makeAdapter();
    connection.set("URL", server.url("/a"));
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "x");
    taken(server);
    connection.call("openConnection");
    EXPECT_EQ(taken(server), kReattach + kPlainOpen);
    EXPECT_EQ(receiveBytes(connection), "y");
    EXPECT_EQ(taken(server), kGet);
}

TEST_F(OptionSequence, OfAReopenBehindAChallengeDoesNotReset) {
    const ScriptedServer& server = serveResponses({response("x", {}, "401 Unauthorized"), response("y")});
    const Object connection = makeAdapter();
    connection.set("URL", server.url("/a"));
    connection.call("openConnection");
    EXPECT_EQ(receiveBytes(connection), "x");
    taken(server);
    connection.call("openConnection");
    EXPECT_EQ(taken(server), kReattachBehind401 + kPlainOpen);
    EXPECT_EQ(receiveBytes(connection), "y");
    EXPECT_EQ(taken(server), kGet);
}

TEST_F(OptionSequence, OfASecondObjectClearsTheCookiesAndResets) {
    const ScriptedServer& server = serveResponses({response("x"), response("y")});
    const Object first = makeAdapter();
    first.set("URL", server.url("/a"));
    first.call("openConnection");
    EXPECT_EQ(receiveBytes(first), "x");
    first.call("closeConnection");
    taken(server);
    const Object second = makeAdapter();
    EXPECT_EQ(taken(server), kConstruction);
    second.set("URL", server.url("/a"));
    second.call("openConnection");
    EXPECT_EQ(taken(server), kReattach + kPlainOpen);
}

TEST_F(OptionSequence, OfTheOlderInterfaceAllowsEveryScheme) {
    const ScriptedServer& server = serveResponses({response("x")});
    const Object connection = makeAdapter(false);
    connection.set("URL", server.url("/a"));
    connection.call("openConnection");
    EXPECT_EQ(taken(server), kConstruction + kAttach + kPlainOpen);
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(taken(server), kFields + kSend + kAnyScheme + kCopier);
}

TEST_F(OptionSequence, OfAPostOfTheOlderInterface) {
    const ScriptedServer& server =
        serve({{step::expectHead(), step::continueIfExpected(), step::expectBody(5), step::send(response("x"))}});
    const Object connection = makeAdapter(false);
    connection.set("URL", server.url("/a"));
    connection.call("openConnection");
    taken(server);
    connection.set("RequestMethod", "POST");
    connection.set("PostData", "hello");
    EXPECT_EQ(taken(server), (Calls{"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST POST"}));
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(taken(server),
              (Calls{"CURLOPT_ACCEPT_ENCODING ",
                     "CURLOPT_HTTPHEADER {Accept-Encoding:|Accept:|Content-Length: 5|Transfer-Encoding:}"}) +
                  kSend + kAnyScheme + kCopier + kUpload);
}

TEST_F(OptionSequence, OfAnUploadFromMemoryWithSchemesAndCredentials) {
    const ScriptedServer& server =
        serve({{step::expectHead(), step::continueIfExpected(), step::expectBody(3), step::send(response("x"))}});
    const Object connection = makeAdapter();
    connection.set("Username", "bob");
    connection.set("Password", "secret");
    connection.set("ProxyUsername", "pat");
    connection.set("ProxyPassword", "hidden");
    connection.set("URL", server.url("/a"));
    connection.call("openConnection");
    taken(server);
    connection.set("RequestMethod", "PUT");
    connection.set("Payload", Array::bytes("abc"));
    connection.call("setRequestProperty", {"Content-Length", "3"});
    connection.call("setAuthenticationSchemes", {schemes({"Basic"}), false});
    connection.call("setAuthenticationSchemes", {schemes({"Digest", "NTLM"}), true});
    EXPECT_EQ(taken(server), (Calls{"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST PUT"}));
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(taken(server),
              (Calls{"CURLOPT_ACCEPT_ENCODING ",
                     "CURLOPT_HTTPHEADER {Content-Length: 3|Accept-Encoding:|Accept:|Transfer-Encoding:}"}) +
                  kSend +
                  (Calls{"CURLOPT_HTTPAUTH 1", "CURLOPT_USERNAME bob", "CURLOPT_PASSWORD secret",
                         "CURLOPT_PROXYAUTH 10", "CURLOPT_PROXYUSERNAME pat", "CURLOPT_PROXYPASSWORD hidden"}) +
                  kCopier + kUpload);
}

TEST_F(OptionSequence, OfAnUploadFromAProviderTellsNoSize) {
    const ScriptedServer& server =
        serve({{step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("x"))}});
    const testsupport::ScriptedProvider provider = testsupport::makeScriptedProvider(host(), "content");
    const Object connection = makeAdapter();
    connection.set("URL", server.url("/a"));
    connection.call("openConnection");
    connection.set("RequestMethod", "PUT");
    connection.set("Provider", provider);
    taken(server);
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(taken(server), kGet + kUpload);
}

TEST_F(OptionSequence, OfCallersFieldsCookiesAndNoDecoding) {
    const ScriptedServer& server = serveResponses({response("x")});
    const Object connection = makeAdapter();
    connection.set("Decode", false);
    connection.set("URL", server.url("/a"));
    connection.call("openConnection");
    taken(server);
    connection.call("setRequestProperty", {"Cookie", "a=1"});
    connection.call("setRequestProperty", {"Accept", "text/plain"});
    connection.call("setRequestProperty", {"Proxy-Connection", "close"});
    connection.call("setRequestProperty", {"cookie", "b=2"});
    connection.call("removeField", {"User-Agent"});
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(taken(server), (Calls{"CURLOPT_COOKIE a=1; b=2; ", "CURLOPT_HTTPHEADER {Accept: text/plain|User-Agent:}",
                                    "CURLOPT_PROXYHEADER {Proxy-Connection: close}"}) +
                                 kSend + kNoSchemes + kCopier);
}

TEST_F(OptionSequence, OfARequestThroughAProxy) {
    const ScriptedServer& server = serveResponses({response("x")});
    const Object connection = makeAdapter();
    connection.set("URL", "http://far.test/a");
    curl.clear();
    connection.call("openProxyConnection",
                    {Array::structure({{"Host", "127.0.0.1"}, {"Port", static_cast<double>(server.port())}})});
    EXPECT_EQ(taken(server), kAttach + (Calls{"CURLOPT_SSL_VERIFYHOST 2", "CURLOPT_PROXY 127.0.0.1",
                                              "CURLOPT_PROXYPORT " + std::to_string(server.port()),
                                              "CURLOPT_CONNECTTIMEOUT_MS 5000", "CURLOPT_QUICK_EXIT 1",
                                              "CURLOPT_DEFAULT_PROTOCOL http", "CURLOPT_URL http://far.test/a"}));
    EXPECT_EQ(receiveBytes(connection), "x");
    EXPECT_EQ(taken(server), kGet);
}

TEST_F(OptionSequence, OfTimeoutsThatAreSetBeforeTheOpen) {
    const ScriptedServer& server = serveResponses({});
    const Object connection = makeAdapter();
    connection.set("URL", server.url("/a"));
    connection.set("TimeoutInMilliseconds", Array::doubles({1234.9, 20, 30, 40}));
    connection.set("VerifyServerName", false);
    curl.clear();
    connection.call("openConnection");
    EXPECT_EQ(taken(server), kAttach + (Calls{"CURLOPT_SSL_VERIFYHOST 0", "CURLOPT_PROXY ",
                                              "CURLOPT_CONNECTTIMEOUT_MS 1234", "CURLOPT_QUICK_EXIT 1",
                                              "CURLOPT_DEFAULT_PROTOCOL http", "CURLOPT_URL http://SERVER/a"}));
}

// TLS: certificate file as set, whether the name is verified, and the options that follow.
struct TlsRow {
    const char* CertificateFilename;
    bool VerifyServerName;
    Calls Options;
};
void PrintTo(const TlsRow& row, std::ostream* stream) {
    *stream << '\'' << row.CertificateFilename << "' " << row.VerifyServerName;
}

class TlsOptionSequence : public OptionSequence, public ::testing::WithParamInterface<TlsRow> {};

TEST_P(TlsOptionSequence, FollowsTheSettings) {
    const ScriptedServer& server = serveResponses({});
    const Object connection = makeAdapter();
    connection.set("CertificateFilename", GetParam().CertificateFilename);
    connection.set("VerifyServerName", GetParam().VerifyServerName);
    connection.set("URL", "https://" + server.authority() + "/a");
    curl.clear();
    connection.call("openConnection");
    EXPECT_EQ(taken(server), kAttach + GetParam().Options +
                                 (Calls{"CURLOPT_PROXY ", "CURLOPT_CONNECTTIMEOUT_MS 5000", "CURLOPT_QUICK_EXIT 1",
                                        "CURLOPT_DEFAULT_PROTOCOL http", "CURLOPT_URL https://SERVER/a"}));
}

INSTANTIATE_TEST_SUITE_P(
    Settings, TlsOptionSequence,
    ::testing::Values(
        TlsRow{"", true, {"CURLOPT_CAINFO ", "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 2"}},
        TlsRow{"", false, {"CURLOPT_CAINFO ", "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0"}},
        TlsRow{"default", true, {"CURLOPT_CAINFO (null)", "CURLOPT_SSL_VERIFYHOST 2"}},
        TlsRow{"default", false, {"CURLOPT_CAINFO (null)", "CURLOPT_SSL_VERIFYHOST 0"}},
        TlsRow{"Default", true, {"CURLOPT_CAINFO Default", "CURLOPT_SSL_VERIFYPEER 1", "CURLOPT_SSL_VERIFYHOST 2"}},
        TlsRow{"ca.pem", true, {"CURLOPT_CAINFO ca.pem", "CURLOPT_SSL_VERIFYPEER 1", "CURLOPT_SSL_VERIFYHOST 2"}},
        TlsRow{"ca.pem", false, {"CURLOPT_CAINFO ca.pem", "CURLOPT_SSL_VERIFYPEER 1", "CURLOPT_SSL_VERIFYHOST 0"}}));

// Methods: as set, the options, and the method in the request line.
struct MethodRow {
    const char* Method;
    Calls Options;
    const char* OnTheWire;
};
void PrintTo(const MethodRow& row, std::ostream* stream) {
    *stream << '\'' << row.Method << '\'';
}

class MethodOptionSequence : public OptionSequence, public ::testing::WithParamInterface<MethodRow> {};

TEST_P(MethodOptionSequence, FollowsTheMethod) {
    for (const bool optionsMode : {true, false}) {
        const bool hasText =
            !optionsMode && (GetParam().Method == std::string("POST") || GetParam().Method == std::string("PUT") ||
                             GetParam().Method == std::string("PATCH"));
        const ScriptedServer& server = serveResponses({"HTTP/1.1 204 No Content\r\n\r\n"});
        const Object connection = makeAdapter(optionsMode);
        connection.set("URL", server.url("/a"));
        connection.call("openConnection");
        curl.clear();
        connection.set("RequestMethod", GetParam().Method);
        EXPECT_EQ(taken(server), GetParam().Options);
        EXPECT_EQ(receiveBytes(connection), "");
        const Calls fields = hasText ? Calls{"CURLOPT_ACCEPT_ENCODING ", "CURLOPT_HTTPHEADER {Accept-Encoding:|Accept:|"
                                                                         "Content-Length: 0|Transfer-Encoding:}"}
                                     : kFields;
        EXPECT_EQ(taken(server), fields + kSend + (optionsMode ? kNoSchemes : kAnyScheme) + kCopier);
        EXPECT_EQ(testsupport::startLine(server.record().Heads.at(0)),
                  GetParam().OnTheWire + std::string(" /a HTTP/1.1"));
        connection.call("closeConnection");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Methods, MethodOptionSequence,
    ::testing::Values(MethodRow{"", {"CURLOPT_HTTPGET 1"}, "GET"}, MethodRow{"GET", {"CURLOPT_HTTPGET 1"}, "GET"},
                      MethodRow{"get", {"CURLOPT_HTTPGET 1"}, "GET"}, MethodRow{"HEAD", {"CURLOPT_NOBODY 1"}, "HEAD"},
                      MethodRow{"head", {"CURLOPT_NOBODY 1"}, "HEAD"},
                      MethodRow{"POST", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST POST"}, "POST"},
                      MethodRow{"PUT", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST PUT"}, "PUT"},
                      MethodRow{"PATCH", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST PATCH"}, "PATCH"},
                      MethodRow{"DELETE", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST DELETE"}, "DELETE"},
                      MethodRow{"OPTIONS", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST OPTIONS"}, "OPTIONS"},
                      MethodRow{"post", {"CURLOPT_NOBODY 0", "CURLOPT_CUSTOMREQUEST post"}, "post"}));

} // namespace
