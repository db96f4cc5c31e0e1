// The examples that upload and that go through a proxy, and what all examples share.
#include "tests/examples/ExampleRun.h"
#include "tests/exchange/request/TlsServer.h"
#include "tests/support/server/ScriptedServer.h"
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

std::string generated(int count) {
    std::string lines;
    for (int line = 0; line < count; ++line) {
        lines += std::to_string(line) + "," + std::to_string(line * line) + "\n";
    }
    return lines;
}

TEST(UploadFromGenerator, EveryLineArrives) {
    for (const int count : {0, 1, 20'000}) {
        ScriptedServer server(takingUpload(response("taken\n")));
        const Outcome outcome = runExample("upload_from_generator", {server.url("/table"), std::to_string(count)});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(outcome.Out, "taken\n");
        EXPECT_EQ(outcome.Err, "sent " + std::to_string(count) + " lines, the server answered 200\n");
        const Record record = server.waitUntilDone();
        EXPECT_EQ(difference(record.Bodies.at(0), generated(count)), "");
        EXPECT_EQ(startLine(record.Heads.at(0)), "PUT /table HTTP/1.1");
        EXPECT_EQ(fieldValue(record.Heads.at(0), "Content-Type"), "text/csv");
        EXPECT_EQ(fieldValue(record.Heads.at(0), "Accept"), "text/plain");
    }
}

TEST(UploadFromGenerator, ContentThatTheServerRefusesIsOne) {
    ScriptedServer server(takingUpload(response("too much", {}, "413 Content Too Large")));
    const Outcome outcome = runExample("upload_from_generator", {server.url(), "10"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Out, "too much");
    EXPECT_THAT(outcome.Err, HasSubstr("the server answered 413"));
}

TEST(UploadFromGenerator, RefusedConnectionIsNamed) {
    const RefusingPort port;
    const Outcome outcome = runExample("upload_from_generator", {port.url(), "10"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, StartsWith("VANTIK:webservices:ConnectionRefused: "));
}

TEST(ThroughProxy, WithoutSettingsTheConnectionIsDirect) {
    ScriptedServer server({step::expectHead(), step::send(response("direct")), step::awaitPeerEnd()});
    const Outcome outcome = runExample("through_proxy", {server.url(), "20"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "direct");
    EXPECT_EQ(outcome.Err, "no proxy\n");
}

TEST(ThroughProxy, TheProxyOfTheSettingsIsUsedWithItsCredentials) {
    ScriptedServer proxy(
        {step::expectHead(),
         step::send(response("", {"Proxy-Authenticate: Basic realm=\"test\""}, "407 Proxy Authentication Required")),
         step::expectHead(), step::send(response("by proxy")), step::awaitPeerEnd()});
    Surroundings around;
    around.Environment["http_proxy"] = "http://me:pw@" + proxy.authority();
    const Outcome outcome = runExample("through_proxy", {"http://server.example/x", "20"}, around);
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out, "by proxy");
    EXPECT_EQ(outcome.Err, "proxy 127.0.0.1\n");
    const Record record = proxy.waitUntilDone();
    EXPECT_EQ(startLine(record.Heads.at(1)), "GET http://server.example/x HTTP/1.1");
    EXPECT_EQ(fieldValue(record.Heads.at(1), "Proxy-Authorization"), "Basic bWU6cHc=");
}

TEST(ThroughProxy, StatusOfAnErrorIsOne) {
    ScriptedServer server({step::expectHead(), step::send(response("", {}, "404 Not Found")), step::awaitPeerEnd()});
    EXPECT_EQ(runExample("through_proxy", {server.url(), "20"}).Status, 1);
}

TEST(ThroughProxy, AServerThatSaysNothingIsATimeout) {
    ScriptedServer server({step::expectHead(), step::awaitPeerEnd()});
    const Outcome outcome = runExample("through_proxy", {server.url(), "0.05"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("VANTIK:webservices:Timeout: "));
    EXPECT_THAT(outcome.Err, HasSubstr("HTTPOptions.ResponseTimeout"));
}

TEST(ThroughProxy, AServerThatStopsInTheMiddleIsATimeoutToo) {
    ScriptedServer server(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"), step::awaitPeerEnd()});
    const Outcome outcome = runExample("through_proxy", {server.url(), "3"}); // limits the wait for the head too
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, HasSubstr("HTTPOptions.DataTimeout"));
}

TEST(ThroughProxy, CtrlCWhileTheAnswerIsAwaitedInterrupts) {
    ScriptedServer server({step::expectHead(), step::signal("asked"), step::awaitPeerEnd()});
    Program program({server.url(), "3600"}, exampleSurroundings("through_proxy"));
    server.waitFor("asked");
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130);
    EXPECT_THAT(outcome.Err, HasSubstr("VANTIK:webservices:ConnectionFailed: "));
    EXPECT_TRUE(server.waitUntilDone().PeerEnded);
}

TEST(ThroughProxy, CtrlCWhileContentArrivesInterrupts) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart"),
                           step::signal("half"), step::awaitPeerEnd()});
    Program program({server.url(), "3600"}, exampleSurroundings("through_proxy"));
    server.waitFor("half");
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.Status, 130) << outcome.Err;
}

TEST(ThroughProxy, RefusedConnectionIsNoInterrupt) {
    const RefusingPort port;
    const Outcome outcome = runExample("through_proxy", {port.url(), "20"});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("VANTIK:webservices:ConnectionRefused: "));
}

struct Usage {
    const char* Example;
    std::vector<std::string> MoreArguments; // behind the URL
    int Failed;
    int Wrong;
};

const std::vector<Usage> kUsages = {
    {"get_to_memory", {}, 1, 2},
    {"save_with_progress", {"/nonexistent/saved"}, 1, 2},
    {"upload_from_generator", {"1"}, 1, 2},
    {"stream_json_lines", {"level", "error"}, 2, 2},
    {"through_proxy", {"20"}, 1, 2},
};

TEST(Examples, ServerWithoutATrustedCertificateIsRefused) {
    for (const Usage& usage : kUsages) {
        const TlsServer server("IP:127.0.0.1", response("secret"));
        std::vector<std::string> arguments = {"https://" + server.authority() + "/"};
        arguments.insert(arguments.end(), usage.MoreArguments.begin(), usage.MoreArguments.end());
        const Outcome outcome = runExample(usage.Example, arguments);
        EXPECT_EQ(outcome.Status, usage.Failed) << usage.Example;
        EXPECT_THAT(outcome.Err, HasSubstr("VANTIK:webservices:SSLConnectionSystemFailure: ")) << usage.Example;
        EXPECT_TRUE(server.heads().empty()) << usage.Example;
    }
}

TEST(Examples, WrongUsageIsShown) {
    for (const Usage& usage : kUsages) {
        const Outcome outcome = runExample(usage.Example, {});
        EXPECT_EQ(outcome.Status, usage.Wrong);
        EXPECT_THAT(outcome.Err, StartsWith(std::string("usage: ") + usage.Example + " URL"));
    }
    for (const char* count : {"", "x", "1x", "-1", "99999999999999999999"}) {
        EXPECT_EQ(runExample("upload_from_generator", {"http://127.0.0.1:1/", count}).Status, 2) << count;
    }
    for (const char* seconds : {"", "x", "1x", "-1", "0", "nan"}) {
        EXPECT_EQ(runExample("through_proxy", {"http://127.0.0.1:1/", seconds}).Status, 2) << seconds;
    }
}

TEST(Examples, TextThatIsNoUrlIsNamed) {
    for (const Usage& usage : kUsages) {
        std::vector<std::string> arguments = {"example.org"};
        arguments.insert(arguments.end(), usage.MoreArguments.begin(), usage.MoreArguments.end());
        const Outcome outcome = runExample(usage.Example, arguments);
        EXPECT_EQ(outcome.Status, usage.Failed) << usage.Example;
        EXPECT_THAT(outcome.Err, HasSubstr("VANTIK:webservices:MalformedURL: ")) << usage.Example;
    }
}

} // namespace
