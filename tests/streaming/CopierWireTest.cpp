// The pumps on a real transfer: libcurl runs as it is, only the waits are scripted, so that no test has to sit through
// them.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"
#include "tests/support/curl/CurlInterposer.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/ScopeFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/StandardOutputCapture.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"
#include "transfer/HTTPConnection.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

using namespace netrove;
using testing::ElementsAre;
using testsupport::CurlFunction;
using testsupport::Script;
using testsupport::ScriptedServer;
namespace step = testsupport::step;

namespace {

constexpr int kPumpWait = 1000; // the pumps wait that long at most, the loop between them never does

class CopierWire : public testsupport::ScopeFixture {
protected:
    CopierWire() {
        Connection.Settings.HTTPOptionsMode = true;
        Curl.setClock(1'000'000'000'000); // the length of a pause is told from the clock's now
        Curl.OnWait = [this](int milliseconds, int& ready) {
            ready = 1;
            if (milliseconds == kPumpWait) {
                ++PumpWaits;
                if (OnPumpWait) {
                    OnPumpWait(PumpWaits, ready);
                }
            }
            return CURLM_OK;
        };
    }

    void begin(const std::string& url, const std::string& method = "GET") {
        Connection.setURL(std::u16string(url.begin(), url.end()));
        Connection.openConnection();
        Connection.setRequestMethod(method);
        Connection.addField("Expect", "");
    }
    std::string receive() {
        std::ostringstream content;
        Connection.copyContentToStream(content, true);
        return content.str();
    }
    // What a pump does from its first wait on, with everything else left out.
    std::vector<std::string> pumpSteps(std::size_t count) const {
        std::vector<std::string> steps =
            Curl.texts({CurlFunction::MultiWait, CurlFunction::Pause, CurlFunction::MultiPerform});
        steps.erase(steps.begin(), std::find(steps.begin(), steps.end(), "curl_multi_wait 1000"));
        steps.resize(std::min(steps.size(), count));
        return steps;
    }

    testsupport::CurlInterposer Curl;
    HTTPConnection Connection;
    std::function<void(int wait, int& ready)> OnPumpWait; // counted from 1
    int PumpWaits = 0;
};

// The pump counts its empty waits by themselves: the first costs nothing.
TEST_F(CopierWire, SecondEmptyWaitOfAReceptionPauses) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart "),
                           step::await("three empty waits"), step::send("rest")});
    begin(server.url("/"));
    OnPumpWait = [&](int wait, int& ready) {
        ready = wait <= 3 ? 0 : 1;
        if (wait == 4) {
            server.raise("three empty waits");
        }
    };
    EXPECT_EQ(receive(), "part rest");
    EXPECT_THAT(pumpSteps(9), ElementsAre("curl_multi_wait 1000", "curl_multi_perform",                    //
                                          "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform", //
                                          "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform", //
                                          "curl_multi_wait 1000"));
    EXPECT_EQ(Curl.pauses(), 2U);
}

// Here one variable counts the empty waits and takes the number of running handles, so the first one behind a perform
// pauses already.
TEST_F(CopierWire, FirstEmptyWaitOfASendBehindAPerformPauses) {
    const std::string body = testsupport::patternedBytes(20'000'000); // more than any socket takes at once
    ScriptedServer server({step::expectHead(), step::await("read on"), step::discard(body.size()),
                           step::send(testsupport::response("taken"))});
    begin(server.url("/"), "PUT");
    Connection.addField("Content-Length", std::to_string(body.size()));
    Connection.Settings.setPayload(RequestSettings::Bytes(body.begin(), body.end()));
    OnPumpWait = [&](int wait, int& ready) {
        ready = wait <= 2 ? 0 : 1;
        if (wait == 3) {
            server.raise("read on");
        }
    };
    EXPECT_EQ(receive(), "taken");
    EXPECT_THAT(pumpSteps(6), ElementsAre("curl_multi_wait 1000", "curl_multi_perform",                    //
                                          "curl_multi_wait 1000", "pause 100000000", "curl_multi_perform", //
                                          "curl_multi_wait 1000"));
    EXPECT_EQ(Curl.pauses(), 1U);
}

// A challenge in the middle of the content rewinds it. Behind the first one the head of the refusal counts as complete,
// so the second attempt is reported; the second one takes the count back.
TEST_F(CopierWire, ProgressOfAnUploadFallsBehindARewind) {
    const std::string body = testsupport::patternedBytes(20'000'000); // the pump still runs at each challenge
    const auto challenge = [](const std::string& more) {
        return testsupport::response(
            "", {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\"" + more, "Connection: close"},
            "401 Unauthorized");
    };
    ScriptedServer server(std::vector<Script>{
        {step::expectHead(), step::discard(200'000), step::send(challenge("")), step::awaitPeerEnd()},
        {step::expectHead(), step::discard(1'000'000), step::send(challenge(", stale=true")), step::awaitPeerEnd()},
        {step::expectHead(), step::discard(body.size()), step::send(testsupport::response("taken"))}});
    const auto reporter = testsupport::makeScriptedReporter(host());
    begin(server.url("/"), "PUT");
    Connection.addField("Content-Length", std::to_string(body.size()));
    Connection.Settings.setPayload(RequestSettings::Bytes(body.begin(), body.end()));
    Connection.Settings.ProgressReporter = streamingtest::sharedOf(reporter);
    Connection.Settings.HostAuthSchemes = CURLAUTH_BASIC | CURLAUTH_DIGEST;
    Connection.Settings.Username = "someone";
    Connection.Settings.Password = "secret";
    EXPECT_EQ(receive(), "taken");
    EXPECT_EQ(Connection.Transfer.Copier->TotalSent, body.size());
    const std::vector<std::uint64_t>& counts = reporter->Counts;
    ASSERT_GE(counts.size(), 2U);
    EXPECT_EQ(counts.back(), 5U) << "of the response";
    EXPECT_FALSE(std::is_sorted(counts.begin(), counts.end() - 1)) << "no report was lower than the one before";
    EXPECT_LE(*std::max_element(counts.begin(), counts.end()), body.size());
}

// The pump of a provider without content leaves before any perform, and the send makes the first one.
TEST_F(CopierWire, EmptyContentOfAProviderIsSentBehindThePump) {
    ScriptedServer server({step::expectHead(), step::expectChunkedBody(), step::send(testsupport::response("taken"))});
    const auto provider = testsupport::makeScriptedProvider(host());
    provider->OnRead = [&](int, std::uint64_t) {
        EXPECT_EQ(Curl.count(CurlFunction::MultiPerform), 0U);
        return vantik::Array();
    };
    begin(server.url("/"), "PUT");
    Connection.Settings.Provider = streamingtest::sharedOf(provider);
    EXPECT_EQ(receive(), "taken");
    EXPECT_EQ(provider->Wanted.size(), 1U);
    EXPECT_EQ(server.record().Bodies.at(0), "");
    EXPECT_THAT(pumpSteps(3), ElementsAre("curl_multi_wait 1000", "curl_multi_perform", "curl_multi_wait 500"));
}

// How much a provider is asked for says nothing about content in memory.
TEST_F(CopierWire, ContentInMemoryIsHandedOverInWholeReads) {
    ScriptedServer server({step::expectHead(), step::expectBody(5000), step::send(testsupport::response("taken"))});
    begin(server.url("/"), "PUT");
    Connection.addField("Content-Length", "5000");
    Connection.Settings.setPayload(RequestSettings::Bytes(5000, 'x'));
    Connection.Settings.ProviderBufferSize = 1;
    Connection.Settings.Debug = 1;
    const testsupport::StandardOutputCapture output;
    EXPECT_EQ(receive(), "taken");
    Connection.Settings.Debug = 0;
    EXPECT_THAT(output.text(), testing::HasSubstr("\nSENDING 5000 BYTES\n"));
}

// A body that was not taken whole is none of the next request's business.
TEST_F(CopierWire, NextRequestStartsWithACopierOfItsOwn) {
    ScriptedServer server(
        std::vector<Script>{{step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 20\r\n\r\n0123456789"),
                             step::awaitPeerEnd()},
                            {step::expectHead(), step::expectBody(4), step::send(testsupport::response("second"))}});
    begin(server.url("/first"));
    Connection.sendRequest();
    const std::weak_ptr<InterruptibleStreamCopier> first = Connection.Transfer.Copier;
    EXPECT_EQ(first.lock()->ReceiveBuffer, "0123456789");

    Connection.closeConnection();
    begin(server.url("/second"), "PUT");
    Connection.addField("Content-Length", "4");
    Connection.Settings.setPayload({'b', 'o', 'd', 'y'});
    EXPECT_FALSE(first.expired()) << "it goes when the next one takes its place";
    EXPECT_EQ(receive(), "second");
    EXPECT_TRUE(first.expired());
    EXPECT_EQ(Connection.Transfer.Copier->TotalSent, 4U);
}

// What the transfer begins with is what it ends with: behind a send that failed early the next one begins anew and
// reads from its own copier alone.
TEST_F(CopierWire, SendThatIsDueAgainTakesTheHandleOffAndOn) {
    ScriptedServer server(
        std::vector<Script>{{step::run([this] { host().interrupt(); }), step::awaitPeerEnd()},
                            {step::expectBody(9), step::send(std::string("\0\x5a\0\0\0\0\0\0", 8)), step::expectHead(),
                             step::expectBody(4), step::send(testsupport::response("taken"))}});
    Connection.setURL(u"http://127.0.0.1/");
    Connection.openProxyConnection("socks4://127.0.0.1", server.port()); // as long as it is silent, nothing is sent
    Connection.setRequestMethod("PUT");
    Connection.addField("Content-Length", "4");
    Connection.addField("Expect", "");
    Connection.Settings.setPayload({'b', 'o', 'd', 'y'});
    EXPECT_EQ(testsupport::failureText([&] { Connection.sendRequest(); }),
              "HTTPConnectionFailedException[The operation was stopped on request.]");
    EXPECT_FALSE(Connection.SentHead.Sent);
    Curl.clear();
    EXPECT_EQ(receive(), "taken");
    EXPECT_EQ(server.record(1).Bodies.at(1), "body");
    EXPECT_EQ(Curl.count(CurlFunction::MultiRemoveHandle), 1U);
    EXPECT_EQ(Curl.count(CurlFunction::MultiAddHandle), 1U);
    EXPECT_EQ(Curl.count(CurlFunction::EasyReset), 0U) << "the options of the open stay";
}

} // namespace
