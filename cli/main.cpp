// netrove, the command line: a program on the embedding API that drives the module as any host would.

#include "cli/commands/Commands.h"
#include "cli/commands/TransferList.h"
#include "cli/commands/VerdictOf.h"
#include "cli/demo/Demo.h"
#include "cli/exchange/RequestOf.h"
#include "cli/exchange/Session.h"
#include "cli/failures/CliFailure.h"
#include "cli/failures/ExitStatus.h"
#include "cli/options/FieldText.h"
#include "cli/options/parser/ConfigFile.h"
#include "cli/options/parser/OptionParser.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Password.h"
#include "cli/terminal/TraceOutput.h"
#include "cli/terminal/WireTrace.h"

#include <netrove/url.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace netrove;
using namespace netrove::cli;

void hideSecrets(const Settings& settings, Console& console) {
    for (const auto& secret : {settings.Password, settings.ProxyPassword}) {
        console.hide(secret.value_or(""));
    }
    for (const std::string& secret : furtherSecrets(settings)) {
        console.hide(secret);
    }
    for (const Field& field : settings.Fields) {
        if (isSecretField(field.name)) {
            console.hide(field.value);
        }
    }
}

bool transfers(const Settings& settings) {
    return !settings.ShowVersion &&
           (settings.Command == Command::Get || settings.Command == Command::Save || settings.Command == Command::Send);
}

// Nobody is asked twice for the password of one user at one server; another server does not get it.
void prepare(std::vector<Settings>& transfers, Console& console) {
    const Settings& first = transfers.front();
    for (Settings& settings : transfers) {
        if (settings.User == first.User && !settings.Password && sameOrigin(settings.Url, first.Url)) {
            settings.Password = first.Password;
        }
        if (!settings.ProxyPassword) {
            settings.ProxyPassword = first.ProxyPassword;
        }
        readNetrc(settings, console);
        completePasswords(settings);
        hideSecrets(settings, console);
    }
    if (first.Debug != 0) {
        console.note("the trace shows credentials and cookies as they are sent");
    }
}

// What shows -v, and must outlive the clients; null where that was not asked for.
std::unique_ptr<WireTrace> traceOf(const Settings& settings, const Console& console) {
    if (settings.Verbose == 0 || settings.Debug != 0) {
        return nullptr;
    }
    const auto write = [&console](const std::string& start, std::string_view text) {
        [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, start + console.safe(text) + "\n");
    };
    const bool everything = settings.Verbose > 1;
    return std::make_unique<WireTrace>(write, everything, everything || settings.TraceTime);
}

// get, save and send: all that waits ends with a signal.
int runClient(std::vector<Settings>& transfers, Console& console) {
    const Settings& settings = transfers.front();
    const std::unique_ptr<WireTrace> trace = traceOf(settings, console);
    if (settings.Parallel && transfers.size() > 1) {
        struct {
            void interrupt() noexcept {} // whoever runs the transfers sees it
        } nobody;
        const SignalScope signals(nobody);
        prepare(transfers, console);
        return runParallel(transfers, console, trace.get());
    }
    netrove::Client client(tracedBy(trace.get()),
                           netrove::networkTransport(networkSettings(settings), warningsTo(console)));
    const SignalScope signals(client);
    prepare(transfers, console);
    return runTransfers(client, transfers, console);
}

int runHost(Session& session, Settings& settings, Console& console) {
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
        readNetrc(settings, console);
        completePasswords(settings);
        hideSecrets(settings, console);
        return runBatch(session, settings, console);
    }
}

// The exit status of `operation`. Reports what it raises.
template <class Operation>
int reported(const Console& console, Circumstances circumstances, Operation operation) {
    int status = kExitDone;
    if (const auto failed = verdictOf(circumstances, [&] { status = operation(); })) {
        console.failure(*failed);
        return failed->Status;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    Console console;
    console.configure(ColorChoice::Auto, wantsJsonErrors(argc, argv));
    ParseResult parsed;
    const int parseStatus = reported(console, {}, [&] {
        parsed = parseCommandLine(argc, argv, usualConfigFile());
        return int{kExitDone};
    });
    if (parseStatus != kExitDone) {
        return parseStatus;
    }
    console.configure(parsed.Settings.Color, parsed.Settings.JsonErrors || parsed.Settings.json());
    console.quieten(parsed.Settings.Silent, parsed.Settings.hidesFailures());
    if (parsed.Help) {
        console.print(*parsed.Help);
        return kExitDone;
    }
    parsed.Settings.Batch.CommandLine = shownCommandLine(argc, argv, parsed.Secrets);
    wipeSecrets(argc, argv, parsed.Secrets);
    for (const std::string& warning : parsed.Warnings) {
        console.warning(cliMessage(failure::kReadableSecret, {}, warning));
    }

    Settings& settings = parsed.Settings;
    std::optional<TraceOutput> trace; // outlives the client: its end is traced too
    if (transfers(settings)) {
        if (settings.Debug != 0) {
            trace.emplace(console.errIsTerminal());
        }
        return reported(console, {.MaxTimeSeconds = settings.MaxTime.value_or(0)},
                        [&] { return runClient(parsed.Transfers, console); });
    }
    return reported(console, {}, [&] {
        Session session;
        const SignalScope signals(session);
        return runHost(session, settings, console);
    });
}
