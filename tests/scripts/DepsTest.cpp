// scripts/deps as an ordinary user starts it. The package system and sudo are stand-ins that write down what is asked
// of them, and nothing else that could change the machine is in the PATH.
#include "tests/scripts/ScriptFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testsupport::Outcome;
using testsupport::Program;
using testsupport::readFile;

// Everything is there but what the file "missing" names.
constexpr const char* kDpkgQuery = R"(
for name in "$@"; do
    case $name in -*|*Package*) ;; *) grep -qx "$name" missing || echo "ii  $name" ;; esac
done
)";
// It says how far it has come, and more.
constexpr const char* kAptGet = R"(
echo "apt-get $*" >> log
echo 'dlstatus:1:90.0:Retrieving file 1 of 1'
echo 'Unpacking everything ...'
echo 'pmstatus:ninja-build:50.5:Installing ninja-build'
)";
constexpr const char* kAptCache = "\necho \"Package: $*\"\n";
constexpr const char* kId = "\necho 1000\n";
// Asks on the terminal of the session, as sudo does, unless the file "free" is there. What would write below /usr is
// only written down.
constexpr const char* kSudo = R"(
echo "sudo $*" >> log
if [ "$1" = -n ]; then
    [ -e free ] || { echo 'sudo: a password is required' >&2; exit 1; }
    shift
elif [ "$1" = -v ]; then
    printf '[sudo] password: ' > /dev/tty
    read -r answer < /dev/tty
    [ "$answer" = right ]
    exit
fi
case $1 in
tee) cat > /dev/null ;;
env) exec "$@" ;;
esac
)";

class Deps : public ScriptFixture {
protected:
    Deps() {
        fs::create_directory(Folder.file("bin"));
        copy("scripts/progress.bash");
        fs::copy_file(NETROVE_SOURCES "/scripts/deps", Folder.file("scripts/deps"),
                      fs::copy_options::overwrite_existing);
        for (const char* tool : {"bash", "env", "tr", "xargs", "cat", "grep", "awk", "tee", "dirname", "mkdir"}) {
            const std::string inUsr = std::string("/usr/bin/") + tool;
            fs::create_symlink(fs::exists(inUsr) ? inUsr : std::string("/bin/") + tool, Folder.file("bin/") + tool);
        }
        standIn("bin/id", kId);
        standIn("bin/dpkg-query", kDpkgQuery);
        standIn("bin/apt-get", kAptGet);
        standIn("bin/apt-cache", kAptCache);
        standIn("bin/sudo", kSudo);
        write("missing", "ninja-build\n");
        write("log", "");
    }

    std::string log() const { return readFile(Folder.file("log")); }

    testsupport::Surroundings surroundings(bool terminal) const {
        testsupport::Surroundings around;
        around.Environment["PATH"] = Folder.file("bin");
        around.Folder = Folder.path();
        around.Executable = Folder.file("scripts/deps");
        around.Terminal = terminal;
        around.TerminalInput = terminal;
        return around;
    }
    Outcome withoutTerminal() const { return testsupport::run({}, surroundings(false)); }
    Outcome onTerminal(const std::string& password) const {
        Program program({}, surroundings(true));
        program.waitForOutput("[sudo] password: ");
        program.type(password + "\n");
        return program.wait();
    }

    static constexpr const char* kInstalled =
        "apt-get -q -o Dpkg::Use-Pty=0 -o APT::Status-Fd=1 install --yes --no-install-recommends ninja-build\n";
};

} // namespace

TEST_F(Deps, WhereNothingIsMissingNobodyIsAsked) {
    write("missing", "");
    const Outcome outcome = withoutTerminal();
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Out + outcome.Err + log(), "");
}

TEST_F(Deps, WhatIsMissingIsInstalled) {
    write("free", "");
    const Outcome outcome = withoutTerminal();
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(outcome.Err, "Installing packages: ninja-build\n  packages: 30 %\n  packages: 67 %\n");
    EXPECT_THAT(readFile(Folder.file("build/packages.log")), HasSubstr("\nUnpacking everything ...\n"));
    EXPECT_THAT(log(), HasSubstr(kInstalled));
    EXPECT_THAT(log(), Not(HasSubstr("sudo -v")));
}

TEST_F(Deps, OnATerminalSudoAsksForThePassword) {
    const Outcome outcome = onTerminal("right");
    EXPECT_EQ(outcome.Status, 0) << outcome.Out;
    EXPECT_THAT(outcome.Out, HasSubstr("sudo wants your password to install them:\r\n  ninja-build\r\n"));
    EXPECT_THAT(log(), HasSubstr("sudo env DEBIAN_FRONTEND=noninteractive apt-get"));
    EXPECT_THAT(log(), HasSubstr(kInstalled));
}

TEST_F(Deps, AWrongPasswordChangesNothing) {
    const Outcome outcome = onTerminal("wrong");
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Out, HasSubstr("needs root or the right to use sudo:\r\n  ninja-build\r\n"));
    EXPECT_EQ(log(), "sudo -n true\nsudo -v\n");
}

TEST_F(Deps, WithoutATerminalNobodyIsAsked) {
    const Outcome outcome = withoutTerminal();
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("or a terminal on which sudo can ask for it:\n  ninja-build\n"));
    EXPECT_EQ(log(), "sudo -n true\n");
}

TEST_F(Deps, WithoutSudoThePackagesAreNamed) {
    fs::remove(Folder.file("bin/sudo"));
    const Outcome outcome = withoutTerminal();
    EXPECT_EQ(outcome.Status, 1);
    EXPECT_THAT(outcome.Err, HasSubstr("installing them needs root or sudo:\n  ninja-build\n"));
    EXPECT_EQ(log(), "");
}
