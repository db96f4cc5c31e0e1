// netrove, the command line: a program on the embedding API that drives the module as any host would.

#include "cli/commands/Commands.h"
#include "cli/demo/Demo.h"
#include "cli/exchange/Session.h"
#include "cli/failures/CliFailure.h"
#include "cli/failures/ExitStatus.h"
#include "cli/options/FieldText.h"
#include "cli/options/OptionParser.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Password.h"
#include "cli/terminal/TraceOutput.h"

#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <optional>

namespace {

using namespace netrove::cli;

// `trace` belongs to main, because it must outlive the objects of the session: their destruction is traced too.
int runCommand(Session& session, Settings& settings, Console& console, std::optional<TraceOutput>& trace) {
    session.load();
    if (settings.ShowVersion) {
        return runVersion(session, console);
    }
    switch (settings.Command) {
    case Command::Proxy:
        return runProxy(session, settings, console);
    case Command::Describe:
        return runDescribe(session, settings, console);
    case Command::Demo:
        return runDemo(session, console);
    default:
        break;
    }
    completePasswords(settings);
    for (const auto& secret : {settings.Password, settings.ProxyPassword}) {
        console.hide(secret.value_or(""));
    }
    for (const Field& field : settings.Fields) {
        if (isSecretField(field.Name)) {
            console.hide(field.Value);
        }
    }
    if (settings.Debug != 0) {
        console.note("the trace shows credentials and cookies as they are sent");
        trace.emplace(console.errIsTerminal());
    }
    session.reportWarnings(console);
    if (settings.Command == Command::Batch) {
        return runBatch(session, settings, console);
    }
    if (settings.MaxTime) {
        session.limitTime(*settings.MaxTime);
    }
    return runTransfer(session, settings, console);
}

// The exit status of `operation`. Reports what it raises.
template <class Operation>
int reported(const Console& console, Circumstances circumstances, const Session* session, Operation operation) {
    vantik::Message message;
    try {
        return operation();
    } catch (const vantik::Interrupted& interrupted) {
        message = interrupted.message();
        circumstances.Interrupted = true;
        circumstances.StoppedByProgram = interrupted.byProgram();
    } catch (const vantik::Failure& failure) {
        message = failure.message();
    } catch (const std::bad_alloc&) {
        message = cliMessage(failure::kFailure, {"memory"}, "out of memory");
    } catch (const std::exception& exception) {
        message = cliMessage(failure::kFailure, {exception.what()}, exception.what());
    }
    circumstances.Signal = signalSeen();
    if (session != nullptr) {
        circumstances.MaxTimeElapsed = session->timeIsOver();
        circumstances.MaxTimeSeconds = session->MaxTimeSeconds;
    }
    const Verdict verdict = judge(message, circumstances);
    console.failure(verdict);
    return verdict.Status;
}

} // namespace

int main(int argc, char** argv) {
    Console console;
    console.configure(ColorChoice::Auto, wantsJsonErrors(argc, argv));
    ParseResult parsed;
    const int parseStatus = reported(console, {}, nullptr, [&] {
        parsed = parseCommandLine(argc, argv);
        return int{kExitDone};
    });
    if (parseStatus != kExitDone) {
        return parseStatus;
    }
    console.configure(parsed.Settings.Color, parsed.Settings.JsonErrors || parsed.Settings.Json);
    if (parsed.Help) {
        console.print(*parsed.Help);
        return kExitDone;
    }
    wipeSecrets(argc, argv, parsed.Secrets);

    std::optional<TraceOutput> trace;
    std::unique_ptr<Session> session;
    int status = kExitFailure;
    std::optional<SignalScope> signals;
    status = reported(console, {}, nullptr, [&] {
        session = std::make_unique<Session>();
        signals.emplace(session->Host);
        return int{kExitDone};
    });
    if (status == kExitDone) {
        status =
            reported(console, {}, session.get(), [&] { return runCommand(*session, parsed.Settings, console, trace); });
    }
    return status;
}
