#include "cli/demo/Demo.h"

#include "cli/demo/DemoServer.h"
#include "cli/demo/DemoSteps.h"
#include "cli/failures/CliFailure.h"

#include <netrove/text.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace netrove::cli {

namespace {

// A folder of our own, removed with everything in it at the end.
class TemporaryFolder {
public:
    TemporaryFolder() : Path((std::filesystem::temp_directory_path() / "netrove-demo-XXXXXX").string()) {
        if (mkdtemp(Path.data()) == nullptr) {
            failSystem(failure::kFileNotWritten, Path, errno);
        }
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(Path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return Path; }

private:
    std::string Path;
};

// True when the step did what it says.
bool runStep(DemoStage& stage, const DemoStep& step, int number) {
    const Console& console = stage.TheConsole;
    console.print(console.styled(Style::Bold, std::to_string(number) + ". " + std::string(step.Title)) + "\n");
    console.print("   " + console.styled(Style::Faint, step.Explanation) + "\n");
    std::string problem;
    try {
        step.Run(stage);
    } catch (const StepFailed& failed) {
        problem = failed.what();
    } catch (const vantik::Failure& failure) {
        if (signalSeen() != 0) {
            throw;
        }
        problem = failure.identifier() + ": " + failure.what();
    }
    if (problem.empty()) {
        console.print("   " + console.styled(Style::Good, "ok") + "\n\n");
        return true;
    }
    // What the step left open must not disturb the next one.
    stage.TheSession.Host.clearInterrupt();
    if (stage.TheSession.Connection) {
        stage.invoke("closeConnection");
    }
    console.print("   " + console.styled(Style::Bad, "failed: " + printable(problem)) + "\n\n");
    return false;
}

} // namespace

int runDemo(Session& session, const Console& console) {
    const TemporaryFolder folder;
    DemoServer server;
    DemoStage stage(session, console, server, folder.path());
    console.print("netrove against a server of its own, " + server.url("/") + "\n\n");
    std::int64_t failed = 0;
    int number = 0;
    for (const DemoStep& step : demoSteps()) {
        failed += runStep(stage, step, ++number) ? 0 : 1;
    }
    session.Connection = vantik::Object();
    if (failed != 0) {
        fail(failure::kDemoFailed, {failed}, std::to_string(failed) + " of the steps failed");
    }
    console.print(console.styled(Style::Good, "Every step did what it says.") + "\n");
    return kExitDone;
}

} // namespace netrove::cli
