#include "cli/batch/run/BatchTransfer.h"

#include "cli/exchange/RequestOf.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/system/Signals.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <new>
#include <utility>

namespace netrove::cli {

namespace {

// A body up to this size is held in memory; a larger one is streamed.
constexpr std::uintmax_t kLargestHeldBody = std::uintmax_t{8} << 20;

// A file of this length goes on where an attempt or a run has ended; a shorter one is sooner received anew.
constexpr std::uint64_t kResumedFrom = std::uint64_t{1} << 20;

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

// Content of a request whose failures are those of the client, so that they say in which attempt they came.
class Content final : public netrove::BodyReader {
public:
    explicit Content(std::unique_ptr<netrove::BodyReader> reader) : Reader(std::move(reader)) {}
    std::size_t read(std::span<std::byte> room) override {
        try {
            return Reader->read(room);
        } catch (const vantik::Interrupted&) {
            throw;
        } catch (const vantik::Failure& failure) {
            const vantik::Message& message = failure.message();
            throw netrove::Error(netrove::ErrorKind::File, message.identifier(), message.Arguments, message.Text);
        }
    }

private:
    std::unique_ptr<netrove::BodyReader> Reader;
};

netrove::Request requestFor(const Settings& settings) {
    std::optional<Clock::time_point> deadline;
    if (settings.MaxTime) {
        // Only content that can be read once waits for it, and there is one attempt for that.
        deadline = Clock::now() +
                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*settings.MaxTime));
    }
    netrove::Request request = requestOf(settings, deadline);
    if (request.body && !request.body.inMemory()) {
        const netrove::Body body = request.body;
        request.body = {[body] { return std::make_unique<Content>(body.open()); }, body.length(), body.repeatable(),
                        body.contentType()};
    }
    request.checkStatus = settings.Batch.Fail;
    return request;
}

void takeTimes(BatchOutcome& outcome, const netrove::Response& response) {
    if (!response.hops.empty()) {
        outcome.UntilHead = response.hops.back().untilHead;
        outcome.Request = response.hops.back().time;
    }
}

// One attempt, into its file or into nothing.
class Transfer {
public:
    Transfer(netrove::Client& client, const BatchJob& job, const BatchTools& tools, const Settings& settings)
        : TheClient(client), Job(job), Line(job.Line), Tools(tools), LineSettings(settings),
          Live(tools.Live, job.Line.Url) {}

    void run(BatchAttempt& attempt) {
        if (Line.Target && LineSettings.File.MakeFolders) {
            makeFoldersFor(*Line.Target);
        }
        netrove::Request request = requestFor(LineSettings);
        request.progress = [this](const netrove::Progress& progress) {
            Live.count(progress.received, progress.toReceive);
        };
        request.retry.made = Job.Attempts;
        if (LineSettings.Retry.MaxTime > 0) { // of the line, while a call is one attempt
            const auto left = std::chrono::duration<double>(LineSettings.Retry.MaxTime) - (Clock::now() - Job.Begun);
            request.retry.most = std::max(netrove::Limit::zero(), std::chrono::ceil<netrove::Limit>(left));
        }
        // The wait is the run's, which does something else meanwhile.
        request.onWait = [&attempt](const netrove::Error&, netrove::Limit wait) {
            attempt.Again = Clock::now() + wait;
            return false;
        };
        const bool repeatable = !request.body || request.body.repeatable();
        const netrove::Response response = Line.Target ? toFile(std::move(request), attempt.File)
                                                       : toNothing(std::move(request), attempt.Outcome, repeatable);
        attempt.Outcome.Status = response.status;
        attempt.Outcome.Attempts = response.attempts;
        attempt.Outcome.Bytes = response.resumedAt + response.received;
        takeTimes(attempt.Outcome, response);
        refuseSpentContent(LineSettings, response, repeatable);
    }

private:
    netrove::Response toNothing(netrove::Request request, BatchOutcome& outcome, bool repeatable) {
        return TheClient.stream(std::move(request), [&](const netrove::Response& head) -> netrove::Taker {
            outcome.Status = head.status;
            outcome.Attempts = head.attempts;
            refuseSpentContent(LineSettings, head, repeatable);
            return [](std::span<const std::byte>) { return true; };
        });
    }

    netrove::Response toFile(netrove::Request request, netrove::ReceivedFile& file) {
        request.replace = LineSettings.Force;
        request.sha256 = Line.Extras ? Line.Extras->Sha256 : "";
        const auto onTemporary = [this](const std::string& name, int descriptor) {
            journaled(Tools.Journal, [&](BatchJournal& journal) {
                journal.begun(Line, name, descriptor);
                journal.flush();
            });
        };
        return TheClient.receive(std::move(request), *Line.Target, file, {kResumedFrom, onTemporary});
    }

    netrove::Client& TheClient;
    const BatchJob& Job;
    const BatchLine& Line;
    const BatchTools& Tools;
    const Settings& LineSettings;
    LiveTransfers::Entry Live;
};

} // namespace

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
                           [&](const Field& own) { return equalsIgnoringCase(own.name, field.name); });
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

BatchAttempt transferLine(netrove::Client& client, const BatchJob& job, const BatchTools& tools) {
    BatchAttempt attempt;
    BatchOutcome& outcome = attempt.Outcome;
    outcome.Began = Clock::now();
    std::optional<Settings> own;
    if (job.Line.Extras) {
        own = batchSettings(tools.TheSettings, job.Line);
    } else {
        tools.Plain.Url = job.Line.Url;
    }
    const Settings& settings = own ? *own : tools.Plain;
    Circumstances circumstances = circumstancesOf(settings);
    try {
        Transfer(client, job, tools, settings).run(attempt);
    } catch (const JournalFailure& failure) {
        throw vantik::Failure(failure.Reason);
    } catch (const netrove::Error& error) {
        outcome.Failed = judge(error, circumstances);
        takeTimes(outcome, error.response());
        if (error.response().attempts != 0) { // not of the file, before the request or after it
            outcome.Status = error.response().status;
            outcome.Attempts = error.response().attempts;
        }
    } catch (const vantik::Interrupted& interrupted) { // a wait for content that can be read once
        outcome.Attempts = 1;
        circumstances.Interrupted = circumstances.MaxTimeElapsed = true;
        outcome.Failed = judge(interrupted.message(), circumstances);
    } catch (const vantik::Failure& failure) {
        outcome.Failed = judge(failure.message(), circumstances);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        outcome.Failed = judge(cliMessage(failure::kFailure, {exception.what()}, exception.what()), circumstances);
    }
    outcome.Ended = Clock::now();
    outcome.Time = *outcome.Ended - job.Begun;
    outcome.Abandoned = outcome.Failed && (tools.Stopped || signalSeen() != 0);
    return attempt;
}

} // namespace netrove::cli
