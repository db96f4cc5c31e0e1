// What a run of the program loads: only what it needs.
#include "tests/cli/ProgramFixture.h"

namespace {

using namespace clitest;

class Start : public ProgramFixture {
protected:
    // The libraries that a run has loaded, as the loader reports them.
    std::string loadedBy(const Words& words) {
        const ScriptedServer server(answering(response("ok")));
        const Surroundings around = {.Environment = {{"LD_DEBUG", "files"},
                                                     {"LD_DEBUG_OUTPUT", file("loaded")},
                                                     {"no_proxy", "*"}}, // else the settings of a desktop are read
                                     .Folder = Folder.path()};
        EXPECT_THAT(run(withUrl(words, server), around), ended(0));
        std::string loaded;
        for (const std::string& name : names()) {
            if (name.starts_with("loaded.")) {
                loaded += readFile(file(name));
                std::filesystem::remove(file(name));
            }
        }
        EXPECT_THAT(loaded, HasSubstr("libcurl"));
        return loaded;
    }
};

TEST_F(Start, LoadsALibraryForWhatNeedsIt) {
    struct Row {
        Words Arguments;
        Words Needed;
    };
    const Row rows[] = {
        {{"--help"}, {}},
        {{"get", "URL/a?b=c"}, {}},
        {{"save", "URL/\xC3\xA9", "saved"}, {}},
        {{"send", "URL", "-d", "x", "-H", "Content-Type: text/plain; charset=utf-8"}, {}},
        {{"--version"}, {"libicu"}},
        {{"get", "--time-cond", "1994-11-06", "URL"}, {"libPoco"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.Arguments));
        const std::string loaded = loadedBy(row.Arguments);
        for (const std::string library : {"libicu", "libPoco", "libproxy"}) {
            EXPECT_THAT(loaded, testing::Conditional(std::ranges::count(row.Needed, library) == 0,
                                                     Not(HasSubstr("/" + library)), HasSubstr("/" + library)));
        }
    }
}

TEST_F(Start, AListOfOneLineLoadsNothingMore) {
    const ScriptedServer server(answering(response("ok")));
    writeFile(file("list"), server.url() + " saved\n");
    EXPECT_THAT(loadedBy({"batch", "list"}), AllOf(Not(HasSubstr("/libPoco")), Not(HasSubstr("/libproxy"))));
}

} // namespace
