// `send --json`: one object for programs.
#include "tests/cli/ProgramFixture.h"
#include "tests/support/server/UnreachablePorts.h"

#include <nlohmann/json.hpp>

namespace {

using namespace clitest;
using nlohmann::json;

struct Told : Exchanged {
    json Object; // on standard output
};

Told tell(const Script& script, const Words& more = {}) {
    Told told{runAgainst(script, Words{"send", "--json", "URL/a"} + more), {}};
    EXPECT_EQ(told.Status, 0) << told.Err;
    EXPECT_EQ(told.Err, "");
    EXPECT_TRUE(told.Out.ends_with("}\n"));
    EXPECT_TRUE(std::all_of(told.Out.begin(), told.Out.end() - 1, [](char c) { return c >= 0x20 && c < 0x7F; }))
        << "a terminal would have something to obey: " << told.Out;
    told.Object = json::parse(told.Out);
    return told;
}

json field(const std::string& name, const std::string& value) {
    return {{"name", name}, {"value", value}};
}

// Such objects are kept in logs, so secrets are masked. Who wants the head as it came has --include.
TEST(SendJson, HoldsTheResponseAndItsContentWithoutSecrets) {
    const std::string answer =
        response("caf\xC3\xA9", {"X-One: 1", "X-One: 2", "Set-Cookie: id=s3cr3t", "authorization: s3cr3t"});
    Told told = tell(answering(answer));
    json& object = told.Object;
    EXPECT_GT(object.at("secondsToHead"), 0.0);
    EXPECT_GE(object.at("seconds"), object.at("secondsToHead"));
    object.erase("seconds");
    object.erase("secondsToHead");
    EXPECT_EQ(object, (json{{"url", told.Url + "a"},
                            {"method", "GET"},
                            {"redirects", 0},
                            {"httpVersion", "HTTP/1.1"},
                            {"status", 200},
                            {"reason", "OK"},
                            {"fields",
                             {field("X-One", "1"), field("X-One", "2"), field("Set-Cookie", "***"),
                              field("authorization", "***"), field("Content-Length", "5")}},
                            {"bytes", 5},
                            {"content", "caf\xC3\xA9"}}));
    EXPECT_THAT(runAgainst(answering(answer), {"send", "-i", "URL"}).Out, HasSubstr("Set-Cookie: id=s3cr3t\r\n"));
}

TEST(SendJson, EscapesWhatIsNoPlainText) {
    const json binary = tell(answering(response(std::string("\xFF\0\x01", 3)))).Object;
    EXPECT_EQ(binary.at("contentBase64"), "/wAB");
    EXPECT_FALSE(binary.contains("content"));
    const json evil = tell(answering("HTTP/1.1 200 N\u009B31m\r\nX-Evil: \x1b[2J\x7F\r\n"
                                     "Content-Length: 2\r\n\r\n\u009B"))
                          .Object;
    EXPECT_EQ(evil.at("reason"), "N\u009B31m");
    EXPECT_EQ(evil.at("content"), "\u009B");
}

TEST(SendJson, NamesTheFileThatHoldsTheContent) {
    const TemporaryFolder folder;
    const json object = tell(answering(response("12345")), {"-o", folder.file("out")}).Object;
    EXPECT_EQ(object.at("file"), folder.file("out"));
    EXPECT_EQ(object.at("bytes"), 5);
    EXPECT_FALSE(object.contains("content"));
    EXPECT_EQ(readFile(folder.file("out")), "12345");
}

TEST(SendJson, RefusesContentBeyondItsLimit) {
    constexpr std::size_t kMost = std::size_t{16} << 20;
    const auto endless = [](std::size_t length) { // no length: whatever comes until the end
        return Script{step::expectHead(), step::send(kOk + "\r\n" + std::string(length, 'x')), step::close()};
    };
    const Told held = tell(endless(kMost));
    EXPECT_EQ(held.Object.at("bytes"), kMost);
    EXPECT_EQ(held.Object.at("content").get<std::string>().size(), kMost);
    const Exchanged refused = runAgainst(endless(kMost + 1), {"send", "--json", "URL"});
    EXPECT_EQ(refused.Status, 23);
    EXPECT_EQ(refused.Out.size(), 0u);
    EXPECT_EQ(refused.Err, "{\"identifier\":\"NETROVE:cli:ContentTooLarge\",\"message\":\"the content is larger than "
                           "16 MiB, the most that --json puts into its object; use --output FILE\","
                           "\"arguments\":[16777216],\"exit\":23}\n");
}

TEST(SendJson, CountsRedirectsAndNamesTheLastUrl) {
    const Told told =
        tell({step::expectHead(), step::send("HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Length: 0\r\n\r\n"),
              step::expectHead(), step::send(response("no", {}, "404 Gone Fishing"))},
             {"-L"});
    EXPECT_EQ(told.Object.at("url"), told.Url + "b");
    EXPECT_EQ(told.Object.at("redirects"), 1);
    EXPECT_EQ(told.Object.at("status"), 404);
    EXPECT_EQ(told.Object.at("reason"), "Gone Fishing");
}

TEST(SendJson, AFailureIsAnObjectToo) {
    const RefusingPort port;
    const Outcome outcome = run({"send", "--json", port.url()});
    EXPECT_EQ(outcome.Status, 7);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(json::parse(outcome.Err).at("identifier"), "VANTIK:webservices:ConnectionRefused");
}

} // namespace
