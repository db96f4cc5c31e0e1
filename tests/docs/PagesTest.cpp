// What the pages repeat of the code is compared with it: tables, names, members. Their links lead somewhere.
#include "cli/failures/ExitStatus.h"
#include "cli/options/OptionTable.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testsupport::readFile;
using testsupport::TemporaryFolder;

std::string page(const std::string& name) {
    return readFile(std::string(NETROVE_SOURCES) + "/" + name);
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != text.npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

TEST(Pages, CommandLineTellsEveryExitStatus) {
    const std::string text = page("docs/cli.md");
    for (const auto& [status, meaning] : netrove::cli::exitMeanings()) {
        EXPECT_THAT(text, testing::HasSubstr("\n| " + std::to_string(status) + " | " + std::string(meaning) + " |\n"));
    }
}

TEST(Pages, ErrorsTellEveryIdentifierOfTheCatalogue) {
    const std::string text = page("docs/errors.md");
    std::istringstream catalogue(page("embedded/messages/en.txt"));
    int identifiers = 0;
    for (std::string line; std::getline(catalogue, line);) {
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        const std::string name = line.substr(0, line.find(' '));
        const std::string key = name.substr(name.rfind(':') + 1);
        EXPECT_TRUE(text.find("`" + key + "`") != text.npos || text.find("`" + name + "`") != text.npos) << name;
        if (name.starts_with("VANTIK:vx:") || name.starts_with("VANTIK:vcos:") || name.starts_with("VANTIK:host:")) {
            const std::string pattern = line.substr(line.find_first_not_of(' ', name.size()));
            EXPECT_NE(text.find("| `" + key + "` | " + replaced(pattern, "|", "&#124;") + " |\n"), text.npos) << line;
        }
        ++identifiers;
    }
    EXPECT_GT(identifiers, 60);
}

TEST(Pages, ErrorsTellEveryIdentifierOfTheCommandLine) {
    const std::string text = page("docs/errors.md");
    std::istringstream header(page("cli/failures/CliFailure.h"));
    int identifiers = 0;
    for (std::string line; std::getline(header, line);) {
        if (line.starts_with("constexpr std::string_view k") && line.find("kCatalogue") == line.npos) {
            const auto begin = line.find('"') + 1;
            const std::string key = line.substr(begin, line.find('"', begin) - begin);
            EXPECT_NE(text.find("`" + key + "`"), text.npos) << key;
            ++identifiers;
        }
    }
    EXPECT_GT(identifiers, 15);
}

// The part of a page below a heading.
std::string section(const std::string& text, const std::string& heading) {
    const auto begin = text.find("\n## " + heading + "\n");
    EXPECT_NE(begin, text.npos) << heading;
    return text.substr(begin, text.find("\n## ", begin + 1) - begin);
}

void expectEveryMember(const nlohmann::json& object, const std::string& text) {
    for (const auto& [name, value] : object.items()) {
        EXPECT_NE(text.find("`" + name + "`"), text.npos) << name;
    }
}

// A folder that is missing: a failure with an advice.
TEST(Pages, CommandLineTellsEveryMemberOfAFailure) {
    const testsupport::Outcome outcome =
        testsupport::run({"save", "--json-errors", "http://127.0.0.1/", "/missing/file"});
    const nlohmann::json failure = nlohmann::json::parse(outcome.Err);
    EXPECT_TRUE(failure.contains("hint")) << outcome.Err;
    expectEveryMember(failure, section(page("docs/cli.md"), "For programs"));
}

TEST(Pages, BatchTellsEveryMemberOfAResult) {
    const TemporaryFolder folder;
    testsupport::writeFile(folder.file("list"), "http://127.0.0.1/ missing/file\n");
    const testsupport::Outcome outcome = testsupport::run({"batch", "list"}, {.Folder = folder.path()});
    const nlohmann::json result = nlohmann::json::parse(outcome.Out);
    EXPECT_TRUE(result.contains("hint")) << outcome.Out;
    expectEveryMember(result, section(page("docs/batch.md"), "Results"));
}

// Names in front of the parenthesis of every free function that a host must supply.
std::vector<std::string> hostOperations() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(NETROVE_SOURCES) + "/host")) {
        if (entry.path().extension() != ".h") {
            continue;
        }
        std::istringstream lines(readFile(entry.path().string()));
        for (std::string line; std::getline(lines, line);) {
            const auto end = line.find('(');
            if (line.find("VANTIK_HOST_API ") == line.npos || line.starts_with("#") || line.starts_with("class") ||
                line.starts_with("struct") || end == line.npos) {
                continue;
            }
            const auto begin = line.find_last_of(" *&", end - 1) + 1;
            names.push_back(line.substr(begin, end - begin));
        }
    }
    return names;
}

TEST(Pages, HostingTellsEveryOperation) {
    const std::string text = page("docs/hosting.md");
    const std::vector<std::string> names = hostOperations();
    EXPECT_GT(names.size(), 35U);
    for (const std::string& name : names) {
        EXPECT_NE(text.find("`" + name + "`"), text.npos) << name;
    }
}

// A lambda of C++ looks like a link.
std::string withoutCode(const std::string& text) {
    std::string prose;
    std::istringstream lines(text);
    bool inCode = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```")) {
            inCode = !inCode;
        } else if (!inCode) {
            prose += line + "\n";
        }
    }
    return prose;
}

TEST(Pages, LinksLeadSomewhere) {
    const std::filesystem::path root(NETROVE_SOURCES);
    std::vector<std::filesystem::path> pages = {root / "README.md", root / "CONTRIBUTING.md"};
    for (const auto& entry : std::filesystem::directory_iterator(root / "docs")) {
        if (entry.path().extension() == ".md") {
            pages.push_back(entry.path());
        }
    }
    for (const auto& path : pages) {
        const std::string text = withoutCode(readFile(path.string()));
        for (auto at = text.find("]("); at != text.npos; at = text.find("](", at + 2)) {
            const std::string target = text.substr(at + 2, text.find_first_of(")#", at + 2) - at - 2);
            if (!target.empty() && target.find("://") == target.npos) {
                EXPECT_TRUE(std::filesystem::exists(path.parent_path() / target)) << path << " links to " << target;
            }
        }
    }
}

} // namespace
