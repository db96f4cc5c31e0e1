// scripts/run with stand-ins for cmake and scripts/deps: what it says while people wait, and that it says nothing else.
#include "tests/scripts/ScriptFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using testsupport::Outcome;
using testsupport::readFile;

// Configures, or builds a program that says how it was called; not where the file "broken" is.
constexpr const char* kBuildingCMake = R"(
if [ "$1" = -S ]; then
    echo "configured $*"
    touch build/run/build.ninja
    case $* in *NETROVE_PYTHON=ON*) printf 'NETROVE_PYTHON:BOOL=ON\nPython_EXECUTABLE:FILEPATH=bin/interpreter\n' ;; esac \
        > build/run/CMakeCache.txt
    exit
fi
echo '[1/4] Building CXX object one'
echo '[4/4] Building CXX object two'
[ ! -e broken ] || { echo 'two.cpp:7: error'; exit 1; }
mkdir -p build/run/bin build/run/python/netrove
touch build/run/python/netrove/__init__.py
printf '#!/bin/sh\necho "netrove $*"\n' > build/run/bin/netrove
chmod 755 build/run/bin/netrove
)";

class Run : public ScriptFixture {
protected:
    Run() {
        copy("scripts/progress.bash");
        copy("scripts/run");
        fs::create_directory(Folder.file("bin"));
        standIn("bin/cmake", kBuildingCMake);
    }
    Outcome netrove(std::vector<std::string> arguments) const { return run("scripts/run", std::move(arguments)); }
};

} // namespace

TEST_F(Run, TheFirstTimeItSaysHowLongAndHowFar) {
    const Outcome outcome = netrove({"get", "URL"});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(outcome.Out, "netrove get URL\n");
    EXPECT_THAT(outcome.Err, ContainsRegex("^The first run installs .*: about [0-9]+ (s|min) on [0-9]+ processors. The "
                                           "log is .*/build/run/run.log\n  build: 25 %\n  build: 100 %\nBuilt in "));
    EXPECT_THAT(readFile(Folder.file("build/run/run.log")),
                HasSubstr("-DNETROVE_WERROR=OFF\n[1/4] Building CXX object one\n"));
}

TEST_F(Run, LaterItRunsTheTourWithoutAWord) {
    netrove({});
    standIn("bin/cmake", "echo 'ninja: no work to do.'");
    const Outcome outcome = netrove({});
    EXPECT_EQ(outcome.Out, "netrove demo\n");
    EXPECT_EQ(outcome.Err, "");
}

TEST_F(Run, ABuildThatFailsIsShown) {
    write("broken", "");
    const Outcome outcome = netrove({});
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, HasSubstr("two.cpp:7: error\nscripts/run: the build failed; the whole log is "));
}

TEST_F(Run, AnInterpreterFindsThePackageWhateverWasBuiltBefore) {
    standIn("bin/interpreter", "\necho \"$PYTHONPATH: $*\"\n");
    for (int before = 0; before < 2; ++before) {
        const Outcome outcome = netrove({"python", "-c", "import netrove"});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_THAT(outcome.Out, EndsWith("/build/run/python: -c import netrove\n"));
        fs::remove_all(Folder.file("build"));
        netrove({}); // the command line, without the package
    }
}
