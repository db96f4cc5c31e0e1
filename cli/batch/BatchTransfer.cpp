#include "cli/batch/BatchTransfer.h"

#include "cli/exchange/RequestOf.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/system/Signals.h"

#include <netrove/outputfile.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <utility>

namespace netrove::cli {

namespace {

// A body up to this size is held in memory; a larger one is streamed.
constexpr std::uintmax_t kLargestHeldBody = std::uintmax_t{8} << 20;

// What is worth another attempt, a fault within the server too: the transfers of a list have all the time they need.
const std::vector<int> kTransientStatuses = {408, 429, 500, 502, 503, 504};

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
    const BatchSettings& batch = settings.Batch;
    const auto milliseconds = [](double seconds) {
        return std::chrono::ceil<netrove::Limit>(std::chrono::duration<double>(std::max(seconds, 0.001)));
    };
    request.retry = {batch.Retries + 1, milliseconds(batch.RetryWait), milliseconds(batch.LongestRetryWait),
                     batch.RetryUnsafe, kTransientStatuses};
    request.checkStatus = batch.Fail;
    return request;
}

// One transfer into its file, or into nothing.
class Transfer {
public:
    Transfer(netrove::Client& client, const BatchLine& line, const BatchTools& tools)
        : TheClient(client), Line(line), Tools(tools), LineSettings(batchSettings(tools.TheSettings, line)),
          Live(tools.Live, line.Url) {}

    void run(BatchOutcome& outcome) {
        std::optional<OutputFile> file;
        if (Line.Target) {
            if (LineSettings.Batch.MakeFolders) {
                makeFoldersFor(*Line.Target);
            }
            file.emplace(*Line.Target, LineSettings.Force);
            journaled(Tools.Journal, [&](BatchJournal& journal) {
                journal.begun(Line, *file);
                journal.flush();
            });
        }
        netrove::Request request = requestFor(LineSettings);
        request.progress = [this](const netrove::Progress& progress) {
            Live.count(progress.received, progress.toReceive);
        };
        const bool repeatable = !request.body || request.body.repeatable();
        const auto onHead = [&](const netrove::Response& head) {
            outcome.Status = head.status;
            outcome.Attempts = head.attempts;
            refuseSpentContent(LineSettings, head, repeatable);
            return takerFor(file);
        };
        outcome.Bytes = TheClient.stream(std::move(request), onHead).received;
        if (file) {
            journaled(Tools.Journal, [&](BatchJournal& journal) {
                struct stat facts {};
                if (fstat(file->descriptor(), &facts) != 0) {
                    failSystem(failure::kFileNotWritten, *Line.Target, errno);
                }
                journal.written(Line, outcome.Status, static_cast<std::uint64_t>(facts.st_size), facts.st_ino);
                journal.flush();
            });
            file->keep();
        }
    }

private:
    // The content of an attempt, in place of that of an attempt before.
    static netrove::Taker takerFor(std::optional<OutputFile>& file) {
        if (!file) {
            return [](std::span<const std::byte>) { return true; };
        }
        file->restart();
        return [&file](std::span<const std::byte> piece) {
            file->write(piece);
            return true;
        };
    }

    netrove::Client& TheClient;
    const BatchLine& Line;
    const BatchTools& Tools;
    Settings LineSettings;
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

BatchOutcome transferLine(netrove::Client& client, const BatchLine& line, const BatchTools& tools) {
    const auto start = Clock::now();
    BatchOutcome outcome;
    Circumstances circumstances{.MaxTimeSeconds = tools.TheSettings.MaxTime.value_or(0)};
    try {
        Transfer(client, line, tools).run(outcome);
    } catch (const JournalFailure& failure) {
        throw vantik::Failure(failure.Reason);
    } catch (const netrove::Error& error) {
        outcome.Failed = judge(error, circumstances);
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
    outcome.Time = Clock::now() - start;
    if (outcome.Failed && (tools.Stopped || signalSeen() != 0)) {
        outcome.Abandoned = true;
        return outcome;
    }
    try {
        journaled(tools.Journal, [&](BatchJournal& journal) {
            if (outcome.Failed) {
                journal.failed(line, outcome.Failed->Message);
            } else {
                journal.done(line, outcome.Status, outcome.Bytes);
            }
            journal.flush();
        });
    } catch (const JournalFailure& failure) {
        throw vantik::Failure(failure.Reason);
    }
    return outcome;
}

} // namespace netrove::cli
