// What the pages repeat of the code is compared with it: tables, names, members. Their links lead somewhere.
#include "cli/failures/ExitStatus.h"
#include "cli/options/pages/Reference.h"
#include "cli/options/table/OptionTable.h"
#include "tests/docs/Page.h"
#include "tests/support/process/ProgramRun.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace docstest;
using testing::AnyOf;
using testing::HasSubstr;

constexpr const char* kErrorsPage = "docs/errors.md";

void expectEachInCode(const std::string& page, const std::vector<std::string>& names, std::size_t least) {
    EXPECT_GE(names.size(), least);
    for (const std::string& name : names) {
        EXPECT_THAT(page, HasSubstr("`" + name + "`"));
    }
}

TEST(Pages, CommandLineNamesEveryExitStatus) {
    const std::string text = source("docs/cli.md");
    for (const auto& [status, meaning] : netrove::cli::exitMeanings()) {
        EXPECT_THAT(text, HasSubstr("\n| " + std::to_string(status) + " | " + std::string(meaning) + " |\n"));
    }
}

TEST(Pages, ErrorsNameEveryIdentifierOfTheCatalogue) {
    const std::string text = source(kErrorsPage);
    const std::vector<std::string> messages = matches("\n" + source("embedded/messages/en.txt"), "\n([^#\n][^\n]*)");
    EXPECT_GT(messages.size(), 60u);
    for (const std::string& line : messages) {
        const std::string name = line.substr(0, line.find(' '));
        const std::string key = name.substr(name.rfind(':') + 1);
        EXPECT_THAT(text, AnyOf(HasSubstr("`" + key + "`"), HasSubstr("`" + name + "`")));
        if (name.starts_with("VANTIK:vx:") || name.starts_with("VANTIK:vcos:") || name.starts_with("VANTIK:host:")) {
            const std::string pattern = line.substr(line.find_first_not_of(' ', name.size()));
            EXPECT_THAT(text, HasSubstr("| `" + key + "` | " + replaced(pattern, "|", "&#124;") + " |\n"));
        }
    }
}

TEST(Pages, ErrorsNameEveryIdentifierOfTheCommandLine) {
    expectEachInCode(
        source(kErrorsPage),
        matches(source("cli/failures/CliFailure.h"), R"re(constexpr std::string_view k(?!Catalogue)\w+ = "(\w+)")re"),
        16);
}

TEST(Pages, ErrorsNameEveryIdentifierAndKindOfTheClient) {
    const std::string page = section(source(kErrorsPage), "## Failures of the library");
    expectEachInCode(page, matches(source("client/failures/ClientFailure.h"), R"re(string_view k\w+ = "(\w+)")re"), 18);
    const std::string header = source("client/include/netrove/error.h");
    const auto begin = header.find("enum class ErrorKind {");
    expectEachInCode(page, matches(header.substr(begin, header.find("};", begin) - begin), R"(\n    (\w+),)"), 12);
}

// A member that belongs to a group is named with it: `limits.total`.
TEST(Pages, ApiNamesEverySettingInItsOrder) {
    const std::string header = source("client/include/netrove/request.h");
    const auto membersIn = [&](const std::string& name) {
        const auto begin = header.find("\nstruct " + name + " {");
        return matches(header.substr(begin, header.find("\n};", begin) - begin), R"(\n    \S[^\n]*? (\w+) = )");
    };
    const std::pair<const char*, const char*> groups[] = {{"login", "Login"},         {"proxy", "Proxy"},
                                                          {"limits", "Limits"},       {"tls", "Tls"},
                                                          {"redirects", "Redirects"}, {"retry", "Retry"}};
    std::vector<std::string> expected;
    for (const std::string& member : membersIn("Request")) {
        const auto group = std::ranges::find(groups, member, [](const auto& pair) { return std::string(pair.first); });
        if (group == std::end(groups)) {
            expected.push_back(member);
            continue;
        }
        for (const std::string& inner : membersIn(group->second)) {
            expected.push_back(member + "." + inner);
        }
    }
    EXPECT_GE(expected.size(), 35U);
    std::vector<std::string> named;
    for (const std::string& row : matches(section(source("docs/api.md"), "## Settings"), R"(\n\| (`[^|]+) \|)")) {
        std::ranges::copy(matches(row, "`([^`]+)`"), std::back_inserter(named));
    }
    EXPECT_EQ(named, expected);
}

std::vector<std::string> membersOf(const std::string& json) {
    std::vector<std::string> names;
    const nlohmann::json object = nlohmann::json::parse(json);
    for (const auto& [name, value] : object.items()) {
        names.push_back(name);
    }
    return names;
}

// A folder that is missing is a failure with a hint.
TEST(Pages, CommandLineNamesEveryMemberOfAFailure) {
    const auto outcome = testsupport::run({"save", "--json-errors", "http://127.0.0.1/", "/missing/file"});
    const std::vector<std::string> members = membersOf(outcome.Err);
    EXPECT_THAT(members, testing::Contains("hint"));
    expectEachInCode(section(source("docs/cli.md"), "## For programs"), members, 1);
}

TEST(Pages, BatchNamesEveryMemberOfAResult) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("list"), "http://127.0.0.1:1/ file\n");
    const auto outcome = testsupport::run({"batch", "-x", "none", "list"}, {.Folder = folder.path()});
    expectEachInCode(section(source("docs/batch.md"), "## Results"), membersOf(outcome.Out), 11);
}

TEST(Pages, ManualOfBatchNamesEveryKeyOfTheManifest) {
    const std::string page = netrove::cli::helpTopic("man-batch", 80);
    const std::vector<std::string> keys =
        matches(section(source("docs/batch.md"), "## The manifest"), R"(\n\| `(\w+)` \|)");
    EXPECT_GE(keys.size(), 7u);
    for (const std::string& key : keys) {
        EXPECT_THAT(page, HasSubstr("\n\\fB" + key + "\\fR\n"));
    }
}

// The free functions that a host must supply.
TEST(Pages, HostingNamesEveryOperation) {
    std::vector<std::string> names;
    for (const std::string& file : sourcesIn("host", ".h")) {
        std::ranges::copy(
            matches("\n" + source(file), R"(\n(?!#|class|struct)[^\n(]*VANTIK_HOST_API [^\n(]*[ *&]([^ *&\n(]+)\()"),
            std::back_inserter(names));
    }
    expectEachInCode(source("docs/hosting.md"), names, 36);
}

TEST(Pages, LinksLeadSomewhere) {
    for (const std::string& page : allPages()) {
        for (const std::string& target : relativeLinks(source(page))) {
            EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(sourcePath(page)).parent_path() / target))
                << page << " links to " << target;
        }
    }
}

} // namespace
