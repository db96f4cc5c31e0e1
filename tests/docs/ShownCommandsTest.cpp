// Every command that a page shows is run, here or by another test, or has a row that says why it is not.
#include "tests/docs/ShownCommands.h"

#include "tests/docs/Page.h"
#include "tests/docs/PageShell.h"
#include "tests/docs/ShownCommandTable.h"
#include "tests/support/process/BuiltFile.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>

namespace {

using namespace docstest;
using testing::HasSubstr;
using testsupport::Outcome;
using testsupport::readFile;

std::vector<ShownCommand> commandsOf(const std::string& page) {
    return shownCommands(source(page));
}

std::ptrdiff_t timesShown(const std::string& page, const std::string& command) {
    return std::ranges::count(commandsOf(page), command, &ShownCommand::Text);
}

const CommandRow* rowOf(const std::string& page, const std::string& command) {
    const auto found = std::ranges::find_if(
        commandTable(), [&](const CommandRow& row) { return page == row.Page && command == row.Command; });
    return found == commandTable().end() ? nullptr : &*found;
}

// Nothing else runs on a machine because a page shows it.
bool runsWithoutARow(const std::string& command) {
    constexpr const char* kBeginnings[] = {
        "netrove ",          "scripts/run", "srun -n 8 netrove ", "mpirun -n 8 netrove ", "seq ",
        "parallel netrove ", "jq ",         "NETROVE_PASSWORD="};
    return std::ranges::any_of(kBeginnings, [&](const char* beginning) { return command.starts_with(beginning); });
}

// The row of a command that the page shows for the time of that number, from 0.
const ResultRow* resultOf(const std::string& page, const std::string& command, int time) {
    for (const ResultRow& row : resultTable()) {
        if (page == row.Page && command == row.Command && time-- == 0) {
            return &row;
        }
    }
    return nullptr;
}

bool runsInThisProgram(const std::string& page, const ShownCommand& command) {
    const CommandRow* row = rowOf(page, command.Text);
    return row == nullptr ? runsWithoutARow(command.Text) : row->Way == Way::Here || row->Way == Way::Sources;
}

std::vector<std::string> pagesToRun() {
    std::vector<std::string> pages = allPages();
    std::erase_if(pages, [](const std::string& page) {
        return std::ranges::none_of(commandsOf(page),
                                    [&](const ShownCommand& command) { return runsInThisProgram(page, command); });
    });
    return pages;
}

class ShownCommandsOf : public testing::TestWithParam<std::string> {};

TEST_P(ShownCommandsOf, DoWhatThePageSays) {
    const std::string& page = GetParam();
    const PageShell shell;
    std::map<std::string, int> times;
    for (const ShownCommand& command : commandsOf(page)) {
        if (!runsInThisProgram(page, command)) {
            continue;
        }
        SCOPED_TRACE(command.Text);
        const CommandRow* row = rowOf(page, command.Text);
        if (row != nullptr && row->Way == Way::Sources) {
            const Outcome outcome = shell.runInSources(command.Text, row->Detail);
            EXPECT_EQ(outcome.Status, 0) << outcome.Out << outcome.Err;
            continue;
        }
        const ResultRow* result = resultOf(page, command.Text, times[command.Text]++);
        const Outcome outcome = shell.run(command.Text, result == nullptr ? "" : result->Before);
        EXPECT_EQ(outcome.Status, command.Status) << outcome.Out << outcome.Err;
        if (result != nullptr) {
            EXPECT_THAT(outcome.Out, HasSubstr(shell.here(result->Prints))) << outcome.Err;
            if (*result->File != '\0') {
                EXPECT_THAT(readFile(shell.file(result->File)), HasSubstr(result->Holds));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Pages, ShownCommandsOf, testing::ValuesIn(pagesToRun()), [](const auto& info) {
    std::string name = info.param.substr(0, info.param.rfind('.'));
    std::ranges::replace_if(
        name, [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
});

TEST(ShownCommands, AreAllAccountedFor) {
    for (const std::string& page : allPages()) {
        for (const ShownCommand& command : commandsOf(page)) {
            EXPECT_TRUE(rowOf(page, command.Text) != nullptr || runsWithoutARow(command.Text))
                << page << " shows \"" << command.Text << "\", which has no row in the table of commands";
        }
    }
}

TEST(ShownCommands, TableHasNothingThatNoPageShows) {
    for (const CommandRow& row : commandTable()) {
        EXPECT_GT(timesShown(row.Page, row.Command), 0) << row.Page << " does not show \"" << row.Command << '"';
    }
    std::map<std::pair<std::string, std::string>, std::ptrdiff_t> rows;
    for (const ResultRow& row : resultTable()) {
        EXPECT_LE((++rows[{row.Page, row.Command}]), timesShown(row.Page, row.Command))
            << row.Page << ": " << row.Command;
    }
}

TEST(ShownCommands, TestsOfOtherFoldersAreThere) {
    for (const CommandRow& row : commandTable()) {
        const std::string detail = row.Detail;
        if (row.Way == Way::Elsewhere) {
            const auto colon = detail.find(": ");
            ASSERT_NE(colon, detail.npos) << detail;
            EXPECT_THAT(source(detail.substr(0, colon)), HasSubstr(detail.substr(colon + 2)));
        } else if (row.Way == Way::Never) {
            EXPECT_THAT(detail, HasSubstr(" ")) << row.Page << ": " << row.Command << " is not run, without a reason";
        }
    }
}

TEST(ShownCommands, WhatTheirCommentsSayIsCompared) {
    for (const std::string& page : allPages()) {
        std::map<std::string, int> times;
        for (const ShownCommand& command : commandsOf(page)) {
            const CommandRow* row = rowOf(page, command.Text);
            const int time = times[command.Text]++;
            if (runsInThisProgram(page, command) && (row == nullptr || row->Way == Way::Here) &&
                !command.Comment.empty() && !command.Comment.starts_with("exits ")) {
                const ResultRow* result = resultOf(page, command.Text, time);
                EXPECT_TRUE(result != nullptr && (*result->Prints != '\0' || *result->Holds != '\0'))
                    << page << " says of \"" << command.Text << "\": " << command.Comment;
            }
        }
    }
}

// What the build of docs/hosting.md would make is that of the build under test: the same objects.
TEST(ModuleForAnotherHost, IsInstalledAsThePageSays) {
    const PageShell shell;
    const std::vector<ShownCommand> commands = commandsOf("docs/hosting.md");
    const auto configure = std::ranges::find_if(
        commands, [](const ShownCommand& command) { return command.Text.starts_with("cmake --preset "); });
    ASSERT_NE(configure, commands.end());
    ASSERT_EQ(shell.runInSources(configure->Text, "").Status, 0);
    std::filesystem::create_directories(shell.sources("build/release/lib"));
    for (const std::string library : {"lib/libnetrove.so", "lib/libnetrove_poco.so"}) {
        std::filesystem::copy_file(testsupport::builtFile(library), shell.sources("build/release/" + library));
    }
    const Outcome installed = shell.runInSources("cmake --install build/release --prefix build/installed", "");
    ASSERT_EQ(installed.Status, 0) << installed.Out << installed.Err;

    testsupport::writeFile(shell.file("CMakeLists.txt"), "cmake_minimum_required(VERSION 3.25)\n"
                                                         "project(host LANGUAGES NONE)\n"
                                                         "find_package(netrove CONFIG REQUIRED)\n"
                                                         "get_target_property(module netrove::netrove LOCATION)\n"
                                                         "file(REAL_PATH ${module} module)\n"
                                                         "message(STATUS \"module ${module}\")\n"
                                                         "if(TARGET netrove::embedded)\n"
                                                         "  message(FATAL_ERROR \"there is an embedded host\")\n"
                                                         "endif()\n");
    const Outcome found =
        shell.run("cmake -S . -B found -DCMAKE_PREFIX_PATH='" + shell.sources("build/installed") + "'", "");
    EXPECT_EQ(found.Status, 0) << found.Err;
    const std::filesystem::path module = shell.sources("build/installed/lib/libnetrove.so");
    EXPECT_THAT(found.Out, HasSubstr("-- module " + std::filesystem::canonical(module).string() + "\n"));
    EXPECT_TRUE(std::filesystem::exists(shell.sources("build/installed/lib/netrove/libnetrove_poco.so")));
}

// Some presets are named only in commands that no test runs.
TEST(ShownCommands, PresetsAreThere) {
    const std::string presets = source("CMakePresets.json");
    std::set<std::string> named;
    for (const std::string& page : allPages()) {
        for (const ShownCommand& command : commandsOf(page)) {
            for (const std::string& name : matches(command.Text, "--preset (\\S+)")) {
                named.insert(name);
            }
        }
    }
    EXPECT_THAT(named, testing::IsSupersetOf({"dev", "release", "fuzz"}));
    for (const std::string& name : named) {
        EXPECT_THAT(presets, HasSubstr("\"name\": \"" + name + "\"")) << name;
    }
}

TEST(ShownCommands, AreReadFromEveryKindOfBlock) {
    const std::vector<ShownCommand> commands = shownCommands("Say `netrove help` or `netrove`, not `a list`.\n"
                                                             "```sh\nanything 'with # in it' # exits 22\na \\\n  b\n\n"
                                                             "# only a remark\n```\n"
                                                             "```\nhttps://example.org/ a.csv\nnetrove get x\n```\n"
                                                             "```cpp\ncmake --build x\n```\n\n"
                                                             "    X=1 scripts/test --quick\n    other text\n");
    const auto shows = [](const char* text, int status = 0) {
        return testing::AllOf(testing::Field(&ShownCommand::Text, text), testing::Field(&ShownCommand::Status, status));
    };
    EXPECT_THAT(commands,
                testing::ElementsAre(shows("netrove help"), shows("anything 'with # in it'", 22), shows("a b"),
                                     shows("netrove get x"), shows("X=1 scripts/test --quick")));
}

} // namespace
