// The commands that the pages show are run, and the tables that repeat a fact of the code are compared with it.
#include "cli/ExitStatus.h"
#include "cli/OptionTable.h"
#include "tests/docs/PageServer.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace {

using testsupport::readFile;
using testsupport::TemporaryFolder;

std::string page(const std::string& name) {
    return readFile(std::string(NETROVE_SOURCES) + "/" + name);
}

struct ShownCommand {
    std::string Line;
    int Status = 0; // "# exits N" behind it
};

// Lines of shell blocks that run the program, by itself or through scripts/run.
std::vector<ShownCommand> shownCommands(const std::string& text) {
    std::vector<ShownCommand> commands;
    std::istringstream lines(text);
    bool inBlock = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```")) {
            inBlock = line == "```sh";
        } else if (inBlock && (line.find("netrove ") < line.find('#') || line.starts_with("scripts/run "))) {
            ShownCommand command{line};
            if (const auto mark = line.find("# exits "); mark != line.npos) {
                command.Status = std::stoi(line.substr(mark + 8));
            }
            commands.push_back(command);
        }
    }
    return commands;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != text.npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// A folder with the files that the pages mention and a program in the PATH.
class Shell {
public:
    explicit Shell(std::string authority) : Authority(std::move(authority)) {
        std::filesystem::create_directory(Folder.file("bin"));
        std::filesystem::create_symlink(NETROVE_PROGRAM, Folder.file("bin/netrove"));
        std::filesystem::create_directory(Folder.file("work"));
        for (const char* name : {"notes.txt", "big.bin"}) {
            testsupport::writeFile(Folder.file(std::string("work/") + name), "some content\n");
        }
        std::string list;
        for (const char* name : {"a", "b", "c"}) {
            list += "http://" + Authority + "/" + name + " " + name + ".csv\n";
        }
        testsupport::writeFile(Folder.file("work/list.txt"), list);
        // In the place of Slurm, which wants a cluster: as many tasks as asked for, each told which it is.
        const std::string srun = Folder.file("bin/srun");
        testsupport::writeFile(srun, "#!/bin/sh\nset -e\ntasks=$2\nshift 2\nfor id in $(seq 0 $((tasks - 1))); do\n"
                                     "    SLURM_JOB_ID=1 SLURM_STEP_ID=0 SLURM_PROCID=$id SLURM_NTASKS=$tasks \"$@\"\n"
                                     "done\n");
        std::filesystem::permissions(srun, std::filesystem::perms::owner_all);
    }

    int run(std::string line) const {
        line = replaced(line, "scripts/run  ", "netrove demo "); // what the script does by itself
        line = replaced(line, "scripts/run ", "netrove ");
        line = replaced(line, "https://example.org", "http://" + Authority);
        line = replaced(line, "http://example.org", "http://" + Authority);
        line = replaced(line, "proxy.example.org:3128", Authority);
        testsupport::writeFile(Folder.file("line"), line + "\n");
        const std::string command = "cd " + Folder.file("work") + " && env -u http_proxy -u https_proxy " + Launchers +
                                    " PATH=" + Folder.file("bin") +
                                    ":$PATH bash ../line > ../out 2> ../err < /dev/null";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string printed() const { return readFile(Folder.file("out")) + readFile(Folder.file("err")); }

private:
    // Open MPI asks whether it may run as root, and more tasks than there are cores.
    static constexpr const char* Launchers =
        "OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 OMPI_MCA_rmaps_base_oversubscribe=1";

    TemporaryFolder Folder;
    std::string Authority;
};

class ShownCommands : public testing::TestWithParam<const char*> {};

TEST_P(ShownCommands, DoWhatThePageSays) {
    const docstest::PageServer server;
    const Shell shell(server.authority());
    const std::vector<ShownCommand> commands = shownCommands(page(GetParam()));
    EXPECT_FALSE(commands.empty());
    for (const ShownCommand& command : commands) {
        EXPECT_EQ(shell.run(command.Line), command.Status) << command.Line << "\n" << shell.printed();
    }
}

INSTANTIATE_TEST_SUITE_P(Pages, ShownCommands, testing::Values("README.md", "docs/batch.md", "docs/cli.md"),
                         [](const auto& info) { return std::filesystem::path(info.param).stem().string(); });

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
    std::istringstream header(page("cli/CliFailure.h"));
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
