// The examples that upload and that go through a proxy, and what all examples share.
#include "tests/examples/ExampleRun.h"
#include "tests/exchange/request/TlsServer.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

namespace {

using namespace testsupport;
using testing::HasSubstr;
using testing::StartsWith;

Script takingUpload(const std::string& answer) {
    return {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(answer),
            step::awaitPeerEnd()};
}

TEST(UploadFromGenerator, EveryLineArrives) {
    for (const int count : {0, 1, 20'000}) {
        std::string generated;
        for (int line = 0; line < count; ++line) {
            generated += std::to_string(line) + "," + std::to_string(line * line) + "\n";
        }
        const ExampleExchange sent =
            runExample("upload_from_generator", takingUpload(response("taken\n")), {std::to_string(count)}, "/table");
        EXPECT_EQ(sent.Status, 0);
        EXPECT_EQ(sent.Out, "taken\n");
        EXPECT_EQ(sent.Err, "sent " + std::to_string(count) + " lines, the server answered 200\n");
        EXPECT_EQ(difference(sent.Seen.Bodies.at(0), generated), "");
        const std::string& head = sent.Seen.Heads.at(0);
        EXPECT_EQ(startLine(head), "PUT /table HTTP/1.1");
        EXPECT_EQ(fieldValue(head, "Content-Type"), "text/csv");
        EXPECT_EQ(fieldValue(head, "Accept"), "text/plain");
    }
}

TEST(UploadFromGenerator, FailsWhereTheServerRefusesTheContent) {
    const Outcome outcome =
        runExample("upload_from_generator", takingUpload(response("too much", {}, "413 Content Too Large")), {"10"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Out, "too much");
    EXPECT_THAT(outcome.Err, HasSubstr("the server answered 413"));
}

TEST(ThroughProxy, WithoutSettingsTheConnectionIsDirect) {
    const Outcome outcome = runExample("through_proxy", answering(response("direct")), {"20"});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Out, "direct");
    EXPECT_EQ(outcome.Err, "no proxy\n");
    EXPECT_EQ(runExample("through_proxy", answering(response("", {}, "404 Not Found")), {"20"}).Status, 1);
}

TEST(ThroughProxy, UsesTheProxyOfTheSettingsWithItsCredentials) {
    const ScriptedServer proxy(
        {step::expectHead(),
         step::send(response("", {"Proxy-Authenticate: Basic realm=\"test\""}, "407 Proxy Authentication Required")),
         step::expectHead(), step::send(response("by proxy")), step::awaitPeerEnd()});
    const Outcome outcome = runExample("through_proxy", Words{"http://server.example/x", "20"},
                                       {.Environment = {{"http_proxy", "http://me:pw@" + proxy.authority()}}});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Out, "by proxy");
    EXPECT_EQ(outcome.Err, "proxy 127.0.0.1\n");
    const std::string head = proxy.waitUntilDone().Heads.at(1);
    EXPECT_EQ(startLine(head), "GET http://server.example/x HTTP/1.1");
    EXPECT_EQ(fieldValue(head, "Proxy-Authorization"), "Basic bWU6cHc=");
}

const Script kSilent = {step::expectHead(), step::signal("asked"), step::awaitPeerEnd()};
const Script kHalf = {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"),
                      step::signal("asked"), step::awaitPeerEnd()};

TEST(ThroughProxy, AServerThatFallsSilentIsATimeout) {
    const Outcome silent = runExample("through_proxy", kSilent, {"0.05"});
    EXPECT_EQ(silent.Status, 1);
    EXPECT_THAT(silent.Err,
                testing::AllOf(HasSubstr("VANTIK:webservices:Timeout: "), HasSubstr("HTTPOptions.ResponseTimeout")));
    const Outcome half = runExample("through_proxy", kHalf, {"3"}); // limits the wait for the head too
    EXPECT_EQ(half.Status, 1);
    EXPECT_EQ(half.Out, "");
    EXPECT_THAT(half.Err, HasSubstr("HTTPOptions.DataTimeout"));
}

TEST(ThroughProxy, CtrlCInterrupts) {
    for (const auto& [script, identifier] :
         {std::pair(kSilent, "VANTIK:webservices:ConnectionFailed: "), {kHalf, "VANTIK:"}}) {
        const ScriptedServer server(script);
        Program program({server.url(), "3600"}, exampleSurroundings("through_proxy"));
        server.waitFor("asked");
        program.signal(SIGINT);
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.Status, 130) << outcome.Err;
        EXPECT_THAT(outcome.Err, HasSubstr(identifier));
        EXPECT_TRUE(server.waitUntilDone().PeerEnded);
    }
}

struct Usage {
    const char* Example;
    Words MoreArguments; // after the URL
    int Failed;          // its status
};

const std::vector<Usage> kUsages = {
    {"get_to_memory", {}, 1},
    {"save_with_progress", {"/nonexistent/saved"}, 1},
    {"upload_from_generator", {"1"}, 1},
    {"stream_json_lines", {"level", "error"}, 2},
    {"through_proxy", {"20"}, 1},
};

void expectEachFails(const std::string& url, const std::string& identifier) {
    for (const Usage& usage : kUsages) {
        Words arguments = usage.MoreArguments;
        arguments.insert(arguments.begin(), url);
        const Outcome outcome = runExample(usage.Example, arguments);
        EXPECT_EQ(outcome.Status, usage.Failed) << usage.Example;
        EXPECT_EQ(outcome.Out, "");
        EXPECT_THAT(outcome.Err, HasSubstr("VANTIK:webservices:" + identifier + ": ")) << usage.Example;
    }
}

TEST(Examples, NameTheFailure) {
    const TlsServer untrusted("IP:127.0.0.1", response("secret"));
    const RefusingPort refusing;
    expectEachFails("https://" + untrusted.authority() + "/", "SSLConnectionSystemFailure");
    EXPECT_TRUE(untrusted.heads().empty());
    expectEachFails(refusing.url(), "ConnectionRefused");
    expectEachFails("example.org", "MalformedURL");
}

TEST(Examples, WrongUsageIsShown) {
    for (const Usage& usage : kUsages) {
        const Outcome outcome = runExample(usage.Example, Words{});
        EXPECT_EQ(outcome.Status, 2);
        EXPECT_THAT(outcome.Err, StartsWith(std::string("usage: ") + usage.Example + " URL"));
    }
    for (const char* count : {"", "x", "1x", "-1", "99999999999999999999"}) {
        EXPECT_EQ(runExample("upload_from_generator", Words{"http://127.0.0.1:1/", count}).Status, 2) << count;
    }
    for (const char* seconds : {"", "x", "1x", "-1", "0", "nan"}) {
        EXPECT_EQ(runExample("through_proxy", Words{"http://127.0.0.1:1/", seconds}).Status, 2) << seconds;
    }
}

} // namespace
