// `send --json`: one object for programs.
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace testsupport;
using nlohmann::json;

TEST(SendJson, TellsTheResponseAndItsContent) {
    ScriptedServer server({step::expectHead(), step::send(response("caf\xC3\xA9", {"X-One: 1", "X-One: 2"}))});
    const Outcome outcome = run({"send", "--json", server.url("/a")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Err, "");
    EXPECT_TRUE(outcome.Out.ends_with("}\n"));
    const json object = json::parse(outcome.Out);
    EXPECT_EQ(object.at("url"), server.url("/a"));
    EXPECT_EQ(object.at("method"), "GET");
    EXPECT_EQ(object.at("redirects"), 0);
    EXPECT_EQ(object.at("httpVersion"), "HTTP/1.1");
    EXPECT_EQ(object.at("status"), 200);
    EXPECT_EQ(object.at("reason"), "OK");
    EXPECT_EQ(object.at("bytes"), 5);
    EXPECT_EQ(object.at("content"), "caf\xC3\xA9");
    EXPECT_FALSE(object.contains("contentBase64"));
    EXPECT_FALSE(object.contains("file"));
    const json fields = object.at("fields");
    ASSERT_EQ(fields.size(), 3U);
    EXPECT_EQ(fields[0], (json{{"name", "X-One"}, {"value", "1"}}));
    EXPECT_EQ(fields[1], (json{{"name", "X-One"}, {"value", "2"}}));
    EXPECT_GT(object.at("secondsToHead"), 0.0);
    EXPECT_GE(object.at("seconds"), object.at("secondsToHead"));
}

// Such objects are kept in logs. Who wants the head as it came has --include.
TEST(SendJson, SecretsOfTheHeadAreMasked) {
    const std::string answer = response("", {"Set-Cookie: id=s3cr3t", "authorization: s3cr3t", "X-One: 1"});
    ScriptedServer server(std::vector<Script>(2, {step::expectHead(), step::send(answer)}));
    const Outcome outcome = run({"send", "--json", server.url()});
    EXPECT_EQ(outcome.Out.find("s3cr3t"), std::string::npos) << outcome.Out;
    const json fields = json::parse(outcome.Out).at("fields");
    EXPECT_EQ(fields.at(0), (json{{"name", "Set-Cookie"}, {"value", "***"}}));
    EXPECT_EQ(fields.at(1), (json{{"name", "authorization"}, {"value", "***"}}));
    EXPECT_EQ(fields.at(2), (json{{"name", "X-One"}, {"value", "1"}}));
    EXPECT_NE(run({"send", "-i", server.url()}).Out.find("Set-Cookie: id=s3cr3t\r\n"), std::string::npos);
}

TEST(SendJson, ContentThatIsNoTextIsInBase64) {
    ScriptedServer server({step::expectHead(), step::send(response(std::string("\xFF\0\x01", 3)))});
    const json object = json::parse(run({"send", "--json", server.url()}).Out);
    EXPECT_EQ(object.at("contentBase64"), "/wAB");
    EXPECT_FALSE(object.contains("content"));
}

// Whatever the server says, the line is ASCII without controls: a terminal has nothing to obey.
TEST(SendJson, ControlsOfTheServerAreEscaped) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 200 N\xC2\x9B"
                                                          "31m\r\nX-Evil: \x1b[2J\x7F\r\n"
                                                          "Content-Length: 2\r\n\r\n\xC2\x9B")});
    const Outcome outcome = run({"send", "--json", server.url()});
    EXPECT_TRUE(std::all_of(outcome.Out.begin(), outcome.Out.end() - 1, [](char c) { return c >= 0x20 && c < 0x7F; }))
        << outcome.Out;
    EXPECT_EQ(json::parse(outcome.Out).at("reason"), "N\xC2\x9B"
                                                     "31m");
    EXPECT_EQ(json::parse(outcome.Out).at("content"), "\xC2\x9B");
}

TEST(SendJson, ContentThatGoesToAFileIsNamed) {
    const TemporaryFolder folder;
    ScriptedServer server({step::expectHead(), step::send(response("12345"))});
    const json object = json::parse(run({"send", "--json", "-o", folder.file("out"), server.url()}).Out);
    EXPECT_EQ(object.at("file"), folder.file("out"));
    EXPECT_EQ(object.at("bytes"), 5);
    EXPECT_FALSE(object.contains("content"));
    EXPECT_EQ(readFile(folder.file("out")), "12345");
}

TEST(SendJson, ContentBeyondWhatAnObjectHoldsIsAFailureThatNamesTheWayOut) {
    constexpr std::size_t kMost = std::size_t{16} << 20;
    const std::string head = "HTTP/1.1 200 OK\r\n\r\n"; // no length: whatever comes until the end
    ScriptedServer server(
        std::vector<Script>{{step::expectHead(), step::send(head + std::string(kMost, 'x')), step::close()},
                            {step::expectHead(), step::send(head + std::string(kMost + 1, 'x')), step::close()}});
    const Outcome held = run({"send", "--json", server.url()});
    EXPECT_EQ(held.Status, 0) << held.Err;
    EXPECT_NE(held.Out.find("\"bytes\":16777216,"), held.Out.npos);
    EXPECT_GT(held.Out.size(), kMost);
    const Outcome refused = run({"send", "--json", server.url()});
    EXPECT_EQ(refused.Status, 23);
    EXPECT_EQ(refused.Out.size(), 0u);
    EXPECT_EQ(refused.Err, "{\"identifier\":\"NETROVE:cli:ContentTooLarge\",\"message\":\"the content is larger than "
                           "16 MiB, the most that --json puts into its object; use --output FILE\","
                           "\"arguments\":[16777216],\"exit\":23}\n");
}

TEST(SendJson, RedirectsAreCountedAndTheLastUrlIsTold) {
    ScriptedServer server({step::expectHead(),
                           step::send("HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Length: "
                                      "0\r\n\r\n"),
                           step::expectHead(), step::send(response("there"))});
    const json object = json::parse(run({"send", "--json", "-L", server.url("/a")}).Out);
    EXPECT_EQ(object.at("url"), server.url("/b"));
    EXPECT_EQ(object.at("redirects"), 1);
    EXPECT_EQ(object.at("content"), "there");
}

TEST(SendJson, AnErrorStatusIsAResponseAsLongAsNobodyObjects) {
    ScriptedServer server({step::expectHead(), step::send("HTTP/1.1 404 Gone Fishing\r\nContent-Length: 2\r\n\r\nno")});
    const Outcome outcome = run({"send", "--json", server.url()});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(json::parse(outcome.Out).at("status"), 404);
    EXPECT_EQ(json::parse(outcome.Out).at("reason"), "Gone Fishing");
}

TEST(SendJson, AFailureIsAnObjectToo) {
    const RefusingPort port;
    const Outcome outcome = run({"send", "--json", port.url()});
    EXPECT_EQ(outcome.Status, 7);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(json::parse(outcome.Err).at("identifier"), "VANTIK:webservices:ConnectionRefused");
}

TEST(SendJson, WhatItCannotBeCombinedWithIsNamed) {
    EXPECT_EQ(run({"send", "--json", "-i", "http://127.0.0.1:1/"}).Status, 2);
    EXPECT_EQ(run({"send", "--json", "-o", "-", "http://127.0.0.1:1/"}).Status, 2);
}

} // namespace
