// What the program says of itself: `describe`, `demo`, --version, --help.
#include "cli/options/pages/Reference.h"
#include "tests/cli/ProgramFixture.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace {

using namespace clitest;

TEST(DescribeCommand, ListsEveryPropertyAndMethod) {
    const Outcome outcome = run({"describe"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_THAT(outcome.Out, StartsWith("vantik.internal.webservices.HTTPConnectionAdapter"));
    for (const char* text : {"24 properties", "TimeoutInMilliseconds  double vector", "read only",
                             "copyContentToByteArray", "(logical scalar)", "uint8 vector", "closeAllConnections"}) {
        EXPECT_THAT(outcome.Out, HasSubstr(text));
    }
    // Each property is explained, which its type does not.
    EXPECT_THAT(outcome.Out, HasSubstr("what is asked for\n"));
    for (const char* text : {"string for ", "scalar for ", "vector for ", "vantik.net.http.io.ContentProvider\n"}) {
        EXPECT_THAT(outcome.Out, Not(HasSubstr(text)));
    }
}

TEST(DescribeCommand, ShowsTheSignaturesInJson) {
    const Outcome outcome = run({"describe", "--format", "json"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    const auto description = nlohmann::json::parse(outcome.Out);
    EXPECT_EQ(description.at("properties").size(), 24u);
    EXPECT_EQ(description["properties"][0].at("name"), "URL");
    Words readOnly;
    for (const auto& property : description["properties"]) {
        if (!property.at("settable").get<bool>()) {
            readOnly.push_back(property.at("name"));
        }
    }
    EXPECT_EQ(readOnly, Words{"Sent"});
    const auto& methods = description.at("methods");
    EXPECT_EQ(methods.size(), 18u); // the constructor and seventeen
    const auto statusLine = std::ranges::find_if(
        methods, [](const nlohmann::json& method) { return method.at("name") == "getStatusLine"; });
    ASSERT_NE(statusLine, methods.end());
    EXPECT_EQ(statusLine->at("outputs"), (nlohmann::json{"char vector", "int32 scalar", "char vector"}));
}

TEST(VersionOption, NamesTheProgramAndWhatItIsMadeOf) {
    EXPECT_THAT(run({"--version"}),
                ended(0, AllOf(StartsWith("netrove "), HasSubstr("libcurl"), HasSubstr("24 properties"))));
}

TEST(HelpOption, WritesToStandardOutput) {
    for (const Words& words : {Words{"--help"}, {"get", "--help"}, {"get", "--help", "all"}}) {
        EXPECT_THAT(run(words), ended(0, Not(""), ""));
    }
}

TEST(HelpOption, FitsTheTerminal) {
    for (const std::size_t columns : {std::size_t{60}, std::size_t{80}, std::size_t{200}}) {
        for (const Words& words : {Words{"--help"}, {"send", "--help"}, {"batch", "--help", "all"}, {"help", "all"}}) {
            const Outcome outcome = run(words, {.Terminal = true, .Columns = static_cast<int>(columns)});
            EXPECT_EQ(outcome.Status, 0);
            std::size_t longest = 0;
            std::istringstream lines(outcome.Out);
            for (std::string line; std::getline(lines, line);) {
                line.erase(line.find_last_not_of('\r') + 1);
                EXPECT_LE(line.size(), columns) << line;
                longest = std::max(longest, line.size());
            }
            EXPECT_TRUE(words.front() == "--help" || longest > std::min(columns - 10, std::size_t{120})) << longest;
        }
    }
    // Not a terminal: 80, or what COLUMNS says.
    EXPECT_EQ(run({"help", "all"}).Out, netrove::cli::helpTopic("all", 80));
    EXPECT_EQ(run({"help", "all"}, {.Environment = {{"COLUMNS", "70"}}}).Out, netrove::cli::helpTopic("all", 70));
}

TEST(DemoCommand, EveryStepDoesWhatItSaysAndNothingIsLeft) {
    const TemporaryFolder folder;
    const Outcome outcome = run({"demo"}, {.Environment = {{"TMPDIR", folder.path()}}});
    EXPECT_THAT(outcome, ended(0, _, ""));
    for (const char* title :
         {"1. A GET into a byte array", "2. A save with progress", "3. An upload streamed from a provider",
          "4. A download into a consumer", "5. A 404 in both modes", "6. A refused connection", "7. A timeout",
          "8. An interrupted transfer", "9. The wire trace", "GET /hello HTTP/1.1<CRLF>"}) {
        EXPECT_THAT(outcome.Out, HasSubstr(title));
    }
    EXPECT_EQ(lastLine(outcome.Out), "Every step did what it says.");
    EXPECT_EQ(namesIn(folder.path()), Words{});
}

} // namespace
