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
#include <sys/eventfd.h>
#include <unistd.h>
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

BatchStop::BatchStop() : Wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (Wake < 0) {
        failSystem(failure::kFailure, "eventfd", errno);
    }
}

BatchStop::~BatchStop() {
    close(Wake);
}

void BatchStop::raise() noexcept {
    Raised = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(Wake, &one, sizeof one); // full: awake anyhow
}

bool BatchStop::sleepUntil(Clock::time_point moment) const {
    return !raised() && waitReadable(Wake, moment) == Waited::TimedOut;
}

Settings batchSettings(const Settings& all, const BatchLine& line) {
    Settings wanted = all;
    wanted.Url = line.Url;
    wanted.Method = line.method();
    wanted.Progress = false; // the run draws one for all
    if (!line.Extras) {
        return wanted;
    }
    const BatchExtras& extras = *line.Extras;
    // What the line says of a field counts instead of what the command line says.
    std::erase_if(wanted.Fields, [&](const Field& field) {
        return std::any_of(extras.Fields.begin(), extras.Fields.end(),
                           [&](const Field& own) { return equalsIgnoringCase(own.Name, field.Name); });
    });
    wanted.Fields.insert(wanted.Fields.end(), extras.Fields.begin(), extras.Fields.end());
    wanted.BodyText = extras.Body;
    if (!extras.BodyFile.empty()) {
        std::error_code error;
        const auto size = std::filesystem::file_size(extras.BodyFile, error);
        (error || size > kLargestHeldBody ? wanted.StreamFile : wanted.BodyFile) = extras.BodyFile;
    }
    if (extras.User) {
        wanted.User = extras.User;
        wanted.Password = extras.Password;
    }
    return wanted;
}

// What is known of an attempt when it fails.
struct BatchTransfer::Attempt {
    BatchOutcome& Outcome;
    int Number; // from 1, whether or not a request is made
    std::optional<OutputFile> File;
    std::optional<Exchange> Request{};
    FailedAttempt Failed{};
};

BatchTransfer::BatchTransfer(Session& session, const Settings& settings, const Console& console,
                             const RetryPolicy& policy, const BatchStop& stop, BatchJournal* journal,
                             std::atomic<std::uint64_t>& live)
    : State(session), All(settings), Screen(console), Policy(policy), Stop(stop), Journal(journal), Live(live) {}

BatchOutcome BatchTransfer::run(const BatchLine& line) {
    const auto start = Clock::now();
    const Settings wanted = batchSettings(All, line);
    BatchOutcome outcome;
    try {
        for (int number = 1;; ++number) {
            if (Stop.raised()) {
                break;
            }
            Attempt state{outcome, number, std::nullopt};
            state.Failed.Method = wanted.effectiveMethod();
            attempt(line, wanted, state);
            outcome.Time = Clock::now() - start;
            if (!outcome.Failed) {
                journaled(Journal, [&](BatchJournal& journal) { journal.done(line, outcome.Status, outcome.Bytes); });
                return outcome;
            }
            if (Stop.raised()) {
                break;
            }
            const auto wait = Policy.waitAfter(number, state.Failed);
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

void BatchTransfer::attempt(const BatchLine& line, const Settings& wanted, Attempt& state) {
    BatchOutcome& outcome = state.Outcome;
    outcome.Status = 0;
    outcome.Bytes = 0;
    Live = 0;
    if (All.MaxTime) {
        State.limitTime(*All.MaxTime);
    }
    try {
        if (line.Target) {
            if (All.Batch.MakeFolders) {
                makeFoldersFor(*line.Target);
            }
            state.File.emplace(*line.Target, All.Force);
            journaled(Journal, [&](BatchJournal& journal) { journal.started(line, *state.File); });
        }
        state.Request.emplace(State, wanted, Screen);
        ++outcome.Attempts; // a target or a body that is not to be had costs no request
        send(state, wanted.effectiveMethod());
        deliver(line, state);
    } catch (const vantik::Interrupted& interrupted) {
        settle(state, interrupted.message(), {.Interrupted = true, .StoppedByProgram = interrupted.byProgram()});
    } catch (const vantik::Failure& failure) {
        settle(state, failure.message(), {});
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        settle(state, cliMessage(failure::kFailure, {exception.what()}, exception.what()), {});
    }
    state.Request.reset();
    state.File.reset(); // removes what was not kept
    Live = 0;
    tidy();
}

void BatchTransfer::send(Attempt& state, const std::string& method) {
    const Response response = state.Request->send();
    state.Outcome.Status = state.Failed.Status = response.Status;
    if (const Field* field = response.field("Retry-After")) {
        state.Failed.RetryAfter = field->Value;
    }
    if (response.Status < kFirstErrorStatus) {
        return;
    }
    vantik::Message message = response.statusError();
    // What may be better the next time is not kept, even where such answers are wanted.
    FailedAttempt judged = state.Failed;
    judged.Message = message;
    judged.Method = method;
    if (All.Batch.Fail || Policy.waitAfter(state.Number, judged)) {
        throw vantik::Failure(std::move(message));
    }
}

void BatchTransfer::deliver(const BatchLine& line, Attempt& state) {
    const Descriptor nowhere(state.File ? -1 : open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (!state.File && nowhere.Number < 0) {
        failSystem(failure::kFileNotWritten, "/dev/null", errno);
    }
    BodySink sink(state.File ? state.File->descriptor() : nowhere.Number, line.Target.value_or("/dev/null"), false,
                  State.Deadline);
    ProgressMeter meter("received", false, false);
    meter.onUpdate([this](std::uint64_t bytes) { Live = bytes; });
    const std::uint64_t delivered = state.Request->receive(sink, meter);
    state.Outcome.Bytes = delivered;
    state.Request->finish();
    if (!state.File) {
        return;
    }
    journaled(Journal, [&](BatchJournal& journal) { journal.written(line, *state.File); });
    state.File->keep();
}

// The connection still knows whether its request went out.
void BatchTransfer::settle(Attempt& state, const vantik::Message& message, Circumstances circumstances) {
    circumstances.MaxTimeElapsed = State.timeIsOver();
    circumstances.MaxTimeSeconds = State.MaxTimeSeconds;
    const Verdict verdict = judge(message, circumstances);
    const bool redirected = state.Request && state.Request->redirected();
    state.Failed.NothingSent = !redirected && !(State.Connection && State.Connection.get("Sent").truth());
    state.Failed.Message = verdict.Message;
    state.Outcome.Failed = verdict;
}

// The next attempt begins as the first one did. A new connection object knows no cookies and no fields of this one, and
// finds the connections of its scope, which libcurl keeps.
void BatchTransfer::tidy() {
    State.Connection = vantik::Object();
    State.Partial.reset();
    State.Deadline.reset();
    State.Host.interruptAfter(std::chrono::nanoseconds::max());
    State.Host.clearInterrupt();
}

} // namespace netrove::cli
