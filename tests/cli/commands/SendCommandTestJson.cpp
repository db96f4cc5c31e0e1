// `send --format json`: one object for programs.
#include "tests/cli/ProgramFixture.h"
#include "tests/support/server/UnreachablePorts.h"

#include <nlohmann/json.hpp>

namespace {

using namespace clitest;
using nlohmann::json;

struct Shown : Exchanged {
    json Object; // on standard output
};

Shown show(const Script& script, const Words& more = {}) {
    Shown shown{runAgainst(script, Words{"send", "--format", "json", "URL/a"} + more), {}};
    EXPECT_EQ(shown.Status, 0) << shown.Err;
    EXPECT_EQ(shown.Err, "");
    EXPECT_TRUE(shown.Out.ends_with("}\n"));
    EXPECT_TRUE(std::all_of(shown.Out.begin(), shown.Out.end() - 1, [](char c) { return c >= 0x20 && c < 0x7F; }))
        << "a terminal would have something to obey: " << shown.Out;
    shown.Object = json::parse(shown.Out);
    return shown;
}

json field(const std::string& name, const std::string& value) {
    return {{"name", name}, {"value", value}};
}

// Such objects are kept in logs, so secrets are masked. Who wants the head as it came has --include.
TEST(SendJson, HoldsTheResponseAndItsContentWithoutSecrets) {
    const std::string answer =
        response("caf\xC3\xA9", {"X-One: 1", "X-One: 2", "Set-Cookie: id=s3cr3t", "authorization: s3cr3t"});
    Shown shown = show(answering(answer));
    json& object = shown.Object;
    EXPECT_GT(object.at("secondsToHead"), 0.0);
    EXPECT_GE(object.at("seconds"), object.at("secondsToHead"));
    object.erase("seconds");
    object.erase("secondsToHead");
    EXPECT_EQ(object, (json{{"url", shown.Url + "a"},
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

TEST(SendJson, EscapesWhatIsNotPlainText) {
    const json binary = show(answering(response(std::string("\xFF\0\x01", 3)))).Object;
    EXPECT_EQ(binary.at("contentBase64"), "/wAB");
    EXPECT_FALSE(binary.contains("content"));
    const json evil = show(answering("HTTP/1.1 200 N\u009B31m\r\nX-Evil: \x1b[2J\x7F\r\n"
                                     "Content-Length: 2\r\n\r\n\u009B"))
                          .Object;
    EXPECT_EQ(evil.at("reason"), "N\u009B31m");
    EXPECT_EQ(evil.at("content"), "\u009B");
}

TEST(SendJson, NamesTheFileThatHoldsTheContent) {
    const TemporaryFolder folder;
    const json object = show(answering(response("12345")), {"-o", folder.file("out")}).Object;
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
    const Shown held = show(endless(kMost));
    EXPECT_EQ(held.Object.at("bytes"), kMost);
    EXPECT_EQ(held.Object.at("content").get<std::string>().size(), kMost);
    EXPECT_THAT(runAgainst(endless(kMost + 1), {"send", "--format", "json", "URL"}),
                ended(23, "",
                      "{\"identifier\":\"NETROVE:cli:ContentTooLarge\",\"message\":\"the content is larger than "
                      "16 MiB, the most that --format json puts into its object; use --output FILE\","
                      "\"arguments\":[16777216],\"exit\":23}\n"));
}

TEST(SendJson, CountsRedirectsAndNamesTheLastUrl) {
    const Shown shown =
        show({step::expectHead(), step::send("HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Length: 0\r\n\r\n"),
              step::expectHead(), step::send(response("no", {}, "404 Gone Fishing"))},
             {"-L"});
    EXPECT_EQ(shown.Object.at("url"), shown.Url + "b");
    EXPECT_EQ(shown.Object.at("redirects"), 1);
    EXPECT_EQ(shown.Object.at("status"), 404);
    EXPECT_EQ(shown.Object.at("reason"), "Gone Fishing");
}

TEST(SendJson, AFailureIsAnObjectToo) {
    const RefusingPort port;
    const Outcome outcome = run({"send", "--format", "json", port.url()});
    EXPECT_THAT(outcome, ended(7, ""));
    EXPECT_EQ(json::parse(outcome.Err).at("identifier"), "VANTIK:webservices:ConnectionRefused");
}

} // namespace
