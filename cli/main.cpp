// netrove, the command line: a program on the embedding API that drives the module as any host would.

#include "cli/commands/Commands.h"
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

#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
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

// The schemes of a login that was asked for.
std::vector<std::string> schemesOf(const std::optional<std::string>& user,
                                   const std::optional<std::vector<std::string>>& named) {
    return user ? named.value_or(std::vector<std::string>{"basic", "digest"}) : std::vector<std::string>();
}

bool transfers(const Settings& settings) {
    return !settings.ShowVersion &&
           (settings.Command == Command::Get || settings.Command == Command::Save || settings.Command == Command::Send);
}

// get, save and send: all that waits ends with a signal.
int runClient(Settings& settings, Console& console) {
    netrove::Request defaults;
    netrove::NetworkSettings network = networkSettings(settings);
    std::optional<WireTrace> trace; // outlives the client
    if (settings.Verbose != 0 && settings.Debug == 0) {
        const bool everything = settings.Verbose > 1;
        trace.emplace(console, everything, everything || settings.TraceTime);
        defaults.trace = [&trace](const netrove::TraceLine& line) { trace->line(line); };
        network.debug = 1;
    }
    netrove::Client client(std::move(defaults), netrove::networkTransport(network, warningsTo(console)));
    const SignalScope signals(client);
    readNetrc(settings, console);
    completePasswords(settings);
    hideSecrets(settings, console);
    if (settings.Debug != 0) {
        console.note("the trace shows credentials and cookies as they are sent");
    }
    std::optional<Clock::time_point> deadline;
    if (settings.MaxTime) {
        deadline = Clock::now() +
                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*settings.MaxTime));
    }
    return runTransfer(client, settings, console, deadline);
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
    vantik::Message message;
    try {
        return operation();
    } catch (const netrove::Error& error) {
        circumstances.Signal = signalSeen();
        const Verdict verdict = judge(error, circumstances);
        console.failure(verdict);
        return verdict.Status;
    } catch (const vantik::Interrupted& interrupted) {
        message = interrupted.message();
        circumstances.Interrupted = true;
        circumstances.MaxTimeElapsed = circumstances.MaxTimeSeconds > 0;
    } catch (const vantik::Failure& failure) {
        message = failure.message();
    } catch (const std::bad_alloc&) {
        message = cliMessage(failure::kFailure, {"memory"}, "out of memory");
    } catch (const std::exception& exception) {
        message = cliMessage(failure::kFailure, {exception.what()}, exception.what());
    }
    circumstances.Signal = signalSeen();
    const Verdict verdict = judge(message, circumstances);
    console.failure(verdict);
    return verdict.Status;
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
        return reported(console,
                        {.MaxTimeSeconds = settings.MaxTime.value_or(0),
                         .Schemes = schemesOf(settings.User, settings.Auth),
                         .ProxySchemes = schemesOf(settings.ProxyUser, settings.ProxyAuth)},
                        [&] { return runClient(settings, console); });
    }
    return reported(console, {}, [&] {
        Session session;
        const SignalScope signals(session);
        return runHost(session, settings, console);
    });
}
