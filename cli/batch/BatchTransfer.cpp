#include "cli/batch/BatchTransfer.h"

#include "cli/exchange/BodySink.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/system/Descriptor.h"
#include "cli/system/OutputFile.h"
#include "cli/terminal/Progress.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <new>
#include <utility>

namespace netrove::cli {

namespace {

// A body up to this size is held in memory, so that a server may ask for it twice; a larger one is streamed.
constexpr std::uintmax_t kLargestHeldBody = std::uintmax_t{8} << 20;

void makeFoldersFor(const std::string& target) {
    const std::filesystem::path folder = std::filesystem::path(target).parent_path();
    std::error_code error;
    if (!folder.empty()) {
        std::filesystem::create_directories(folder, error);
    }
    if (error) {
        failSystem(failure::kFileNotWritten, folder.string(), error.value());
    }
}

// A journal that cannot be written ends the run, whatever the transfer did.
struct JournalFailure {
    vantik::Failure Reason;
};

template <class Operation>
void journaled(BatchJournal* journal, Operation operation) {
    if (journal == nullptr) {
        return;
    }
    try {
        operation(*journal);
    } catch (const vantik::Failure& failure) {
        throw JournalFailure{failure};
    }
}

} // namespace

bool BatchStop::sleepUntil(Clock::time_point moment) const {
    return !raised() && waitReadable(Wake.descriptor(), moment) == Waited::TimedOut;
}

Settings batchSettings(const Settings& settings, const BatchLine& line) {
    Settings lineSettings = settings;
    lineSettings.Url = line.Url;
    lineSettings.Method = line.method();
    lineSettings.Progress = false; // the run draws one for all
    if (!line.Extras) {
        return lineSettings;
    }
    const BatchExtras& extras = *line.Extras;
    // A field in the line replaces those with its name from the command line.
    std::erase_if(lineSettings.Fields, [&](const Field& field) {
        return std::any_of(extras.Fields.begin(), extras.Fields.end(),
                           [&](const Field& own) { return equalsIgnoringCase(own.Name, field.Name); });
    });
    lineSettings.Fields.insert(lineSettings.Fields.end(), extras.Fields.begin(), extras.Fields.end());
    lineSettings.BodyText = extras.Body;
    if (!extras.BodyFile.empty()) {
        std::error_code error;
        const auto size = std::filesystem::file_size(extras.BodyFile, error);
        (error || size > kLargestHeldBody ? lineSettings.StreamFile : lineSettings.BodyFile) = extras.BodyFile;
    }
    if (extras.User) {
        lineSettings.User = extras.User;
        lineSettings.Password = extras.Password;
    }
    return lineSettings;
}

// What is known about an attempt when it fails.
struct BatchTransfer::Attempt {
    BatchOutcome& Outcome;
    int Number; // from 1, whether or not a request is made
    std::optional<OutputFile> File;
    std::optional<Exchange> OpenExchange{};
    FailedAttempt Failed{};
};

BatchTransfer::BatchTransfer(Session& session, const Settings& settings, const Console& console,
                             const RetryPolicy& policy, const BatchStop& stop, BatchJournal* journal,
                             std::atomic<std::uint64_t>& liveBytes)
    : TheSession(session), TheSettings(settings), TheConsole(console), Policy(policy), Stop(stop), Journal(journal),
      LiveBytes(liveBytes) {}

BatchOutcome BatchTransfer::run(const BatchLine& line) {
    const auto start = Clock::now();
    const Settings lineSettings = batchSettings(TheSettings, line);
    BatchOutcome outcome;
    try {
        for (int number = 1;; ++number) {
            if (Stop.raised()) {
                break;
            }
            Attempt current{outcome, number, std::nullopt};
            current.Failed.Method = lineSettings.effectiveMethod();
            attempt(line, lineSettings, current);
            outcome.Time = Clock::now() - start;
            if (!outcome.Failed) {
                journaled(Journal, [&](BatchJournal& journal) { journal.done(line, outcome.Status, outcome.Bytes); });
                return outcome;
            }
            if (Stop.raised()) {
                break;
            }
            const auto wait = Policy.waitAfter(number, current.Failed);
            if (!wait) {
                journaled(Journal, [&](BatchJournal& journal) { journal.failed(line, outcome.Failed->Message); });
                return outcome;
            }
            if (!Stop.sleepUntil(Clock::now() + *wait)) {
                break;
            }
            outcome.Failed.reset();
        }
    } catch (const JournalFailure& failure) {
        throw vantik::Failure(failure.Reason);
    }
    outcome.Abandoned = true;
    return outcome;
}

void BatchTransfer::attempt(const BatchLine& line, const Settings& lineSettings, Attempt& current) {
    BatchOutcome& outcome = current.Outcome;
    outcome.Status = 0;
    outcome.Bytes = 0;
    LiveBytes = 0;
    if (TheSettings.MaxTime) {
        TheSession.limitTime(*TheSettings.MaxTime);
    }
    try {
        if (line.Target) {
            if (TheSettings.Batch.MakeFolders) {
                makeFoldersFor(*line.Target);
            }
            current.File.emplace(*line.Target, TheSettings.Force);
            journaled(Journal, [&](BatchJournal& journal) { journal.started(line, *current.File); });
        }
        current.OpenExchange.emplace(TheSession, lineSettings, TheConsole);
        ++outcome.Attempts; // a target or a body that cannot be opened costs no request
        send(current, lineSettings.effectiveMethod());
        deliver(line, current);
    } catch (const vantik::Interrupted& interrupted) {
        settle(current, interrupted.message(), {.Interrupted = true, .StoppedByProgram = interrupted.byProgram()});
    } catch (const vantik::Failure& failure) {
        settle(current, failure.message(), {});
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        settle(current, cliMessage(failure::kFailure, {exception.what()}, exception.what()), {});
    }
    current.OpenExchange.reset();
    current.File.reset(); // removes what was not kept
    LiveBytes = 0;
    tidy();
}

void BatchTransfer::send(Attempt& current, const std::string& method) {
    const Response response = current.OpenExchange->send();
    current.Outcome.Status = current.Failed.Status = response.Status;
    if (const Field* field = response.field("Retry-After")) {
        current.Failed.RetryAfter = field->Value;
    }
    if (response.Status < kFirstErrorStatus) {
        return;
    }
    vantik::Message message = response.statusError();
    // A response that a retry may improve is not kept, even if such responses are wanted.
    FailedAttempt judged = current.Failed;
    judged.Message = message;
    judged.Method = method;
    if (TheSettings.Batch.Fail || Policy.waitAfter(current.Number, judged)) {
        throw vantik::Failure(std::move(message));
    }
}

void BatchTransfer::deliver(const BatchLine& line, Attempt& current) {
    const Descriptor nowhere(current.File ? -1 : open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (!current.File && nowhere.Number < 0) {
        failSystem(failure::kFileNotWritten, "/dev/null", errno);
    }
    BodySink sink(current.File ? current.File->descriptor() : nowhere.Number, line.Target.value_or("/dev/null"), false,
                  TheSession.Deadline);
    ProgressMeter meter("received", false, false);
    meter.onUpdate([this](std::uint64_t bytes) { LiveBytes = bytes; });
    const std::uint64_t delivered = current.OpenExchange->receive(sink, meter);
    current.Outcome.Bytes = delivered;
    current.OpenExchange->finish();
    if (!current.File) {
        return;
    }
    journaled(Journal, [&](BatchJournal& journal) { journal.written(line, *current.File); });
    current.File->keep();
}

// The connection still knows whether its request went out.
void BatchTransfer::settle(Attempt& current, const vantik::Message& message, Circumstances circumstances) {
    circumstances.MaxTimeElapsed = TheSession.timeIsOver();
    circumstances.MaxTimeSeconds = TheSession.MaxTimeSeconds;
    const Verdict verdict = judge(message, circumstances);
    const bool redirected = current.OpenExchange && current.OpenExchange->redirected();
    current.Failed.NothingSent = !redirected && !(TheSession.Connection && TheSession.Connection.get("Sent").truth());
    current.Failed.Message = verdict.Message;
    current.Outcome.Failed = verdict;
}

// The next attempt begins as the first one did. A new connection object has no cookies and no fields of this one, but
// uses the connections of its scope, which libcurl keeps.
void BatchTransfer::tidy() {
    TheSession.Connection = vantik::Object();
    TheSession.Partial.reset();
    TheSession.Deadline.reset();
    TheSession.Host.interruptAfter(std::chrono::nanoseconds::max());
    TheSession.Host.clearInterrupt();
}

} // namespace netrove::cli
