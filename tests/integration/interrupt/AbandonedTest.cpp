// A test that is killed leaves nothing: no server, no program, no file.
#include "tests/integration/proxy/Squid.h"
#include "tests/support/process/Await.h"
#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace testsupport;
using testing::Contains;
using testing::IsEmpty;

std::string contentOf(const fs::path& file) {
    std::ostringstream content;
    content << std::ifstream(file).rdbuf();
    return content.str();
}

// The names of the processes that have a text in their command line. One that has ended has none.
std::vector<std::string> processesNaming(const std::string& text) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const bool isProcess = entry.path().filename().string().find_first_not_of("0123456789") == std::string::npos;
        if (isProcess && contentOf(entry.path() / "cmdline").find(text) != std::string::npos) {
            const std::string name = contentOf(entry.path() / "comm");
            names.push_back(name.substr(0, name.find('\n')));
        }
    }
    return names;
}

std::vector<std::string> filesNaming(const std::string& folder, const std::string& text) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().starts_with(text)) {
            names.push_back(entry.path().string());
        }
    }
    return names;
}

TEST(Abandoned, NothingOutlivesATestThatIsKilled) {
    const TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms(0755)); // for servers of another user
    Program parent({}, {.Environment = {{"TMPDIR", folder.path()}},
                        .Executable = testsupport::builtFile("bin/netrove_abandoned_parent")});
    parent.waitForOutput("ready\n");
    const std::vector<std::string> before = processesNaming(folder.path());
    for (const char* name : {"squid", "apache2", "netrove"}) {
        EXPECT_THAT(before, Contains(name));
    }
    EXPECT_THAT(filesNaming(folder.path(), "netrove-test-"), testing::SizeIs(3));

    parent.signal(SIGKILL);
    const Outcome outcome = parent.wait();
    EXPECT_EQ(outcome.Status, -1);
    const std::string sharedMemory = "netrove" + outcome.Out.substr(0, outcome.Out.find('\n')) + "-";
    awaitOrEnd(
        [&] {
            return processesNaming(folder.path()).empty() && fs::is_empty(folder.path()) &&
                   filesNaming("/dev/shm", sharedMemory).empty();
        },
        [] { return false; });
    EXPECT_THAT(processesNaming(folder.path()), IsEmpty());
    EXPECT_THAT(filesNaming(folder.path(), ""), IsEmpty());
    EXPECT_THAT(filesNaming("/dev/shm", sharedMemory), IsEmpty());
}

// Started as root it becomes another user, who then owns the folder; nobody else has anything to do there.
TEST(SquidProxy, HasAFolderForItsUserAloneAndLeavesNoMemory) {
    std::string start;
    {
        const integrationtest::Squid squid(integrationtest::SquidLogin::None);
        EXPECT_EQ(fs::status(squid.folder()).permissions(), fs::perms::owner_all);
        start = "netrove" + std::to_string(squid.port()) + "-";
        EXPECT_THAT(filesNaming("/dev/shm", start), testing::Not(IsEmpty()));
    }
    EXPECT_THAT(filesNaming("/dev/shm", start), IsEmpty());
}

} // namespace
