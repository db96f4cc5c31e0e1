// Completions as people meet them: typed into a shell on a terminal.
#include "tests/cli/ProgramFixture.h"

#include <sstream>

namespace {

using namespace clitest;

struct Shell {
    const char* Name;
    Words Arguments;
    const char* Begin; // makes the shell know them
};

const Shell kShells[] = {
    {"bash", {"--norc", "--noprofile", "-i"}, ". ../bash"},
    {"zsh", {"-f", "-i"}, "fpath=(.. $fpath); autoload -U compinit; compinit -u -D"},
    {"fish", {"--no-config", "-i"}, "source ../fish"},
};

// "\t" completes; what the program gets then, a word in each pair of angle brackets.
const std::pair<const char*, const char*> kRows[] = {
    {"sa\t", "<save>"},
    {"--colo\t", "<--color>"},
    {"help retr\t", "<help><retries>"},
    {"get --compr\t", "<get><--compressed>"},
    {"get --req\t", "<get><--req>"}, // of another command
    {"send --requ\t", "<send><--request>"},
    {"get http://h/ --max-t\t", "<get><http://h/><--max-time>"},
    {"get --color al\t", "<get><--color><always>"},
    {"get --color=al\t", "<get><--color=always>"},
    {"save --auth dig\t", "<save><--auth><digest>"},
    {"save --auth basic,dig\t", "<save><--auth><basic,digest>"},
    {"get -o pla\t", "<get><-o><plain.txt>"},
    {"get -o wit\t", "<get><-o><with space.txt>"},
    {"get --output=pla\t", "<get><--output=plain.txt>"},
    {"send -d @pla\t", "<send><-d><@plain.txt>"},
    {"send -d @wit\t", "<send><-d><@with space.txt>"},
    {"save --output-dir fol\t", "<save><--output-dir><folder>"},
    {"save http://h/ fol\t", "<save><http://h/><folder>"},
    {"batch pla\t", "<batch><plain.txt>"},
    {"get https\t", "<get><https://>"},
    {"get http:\t", "<get><http://>"},
    {"get -x socks5h\t", "<get><-x><socks5h://>"},
};

class Completion : public ProgramFixture, public testing::WithParamInterface<Shell> {};

TEST_P(Completion, CompletesWhatIsTyped) {
    const Shell& shell = GetParam();
    writeFile(file(shell.Name == std::string("zsh") ? "_netrove" : shell.Name), run({"help", shell.Name}).Out);
    std::filesystem::create_directories(file("work/folder"));
    writeFile(file("work/plain.txt"), "");
    writeFile(file("work/with space.txt"), "");
    std::filesystem::create_directory(file("bin"));
    // Shells differ in whether a folder gets a slash.
    writeFile(file("bin/netrove"), "#!/bin/sh\nfor word do [ \"$word\" = folder/ ] && word=folder\n"
                                   "printf '<%s>' \"$word\" >>../seen; done\necho >>../seen\n");
    std::filesystem::permissions(file("bin/netrove"), std::filesystem::perms::owner_all);
    Surroundings around = {.Folder = file("work"),
                           .Executable = std::string("/usr/bin/") + shell.Name,
                           .Terminal = true,
                           .TerminalInput = true,
                           .Columns = 200};
    around.Environment = {{"PATH", file("bin") + ":/usr/bin:/bin"}, {"HOME", Folder.path()}};
    Program program(shell.Arguments, around);
    // The end of each line is seen on the screen before the next one is typed.
    int count = 0;
    const auto type = [&](const std::string& line) {
        const std::string number = std::to_string(++count);
        program.type(line + "; echo 'do''ne '" + number + "'.'\n");
        program.waitForOutput("done " + number + ".");
    };
    type(shell.Begin);
    std::string expected;
    for (const auto& [typed, got] : kRows) {
        type(std::string("netrove ") + typed);
        expected += std::string(got) + "\n";
    }
    program.type("exit\n");
    program.wait();
    EXPECT_EQ(readFile(file("seen")), expected);
}

INSTANTIATE_TEST_SUITE_P(Shells, Completion, testing::ValuesIn(kShells),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
