#include "cli/batch/BatchTransfer.h"

#include "cli/exchange/BodySink.h"
#include "cli/exchange/RequestOf.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"

#include <netrove/descriptor.h>
#include <netrove/outputfile.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <unistd.h>
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

netrove::Request requestFor(const Settings& settings) {
    netrove::Request request = requestOf(settings, std::nullopt);
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
        : TheClient(client), Line(line), Tools(tools), LineSettings(batchSettings(tools.TheSettings, line)) {}
    ~Transfer() { Tools.LiveBytes -= Live; }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    void run(BatchOutcome& outcome) {
        std::optional<OutputFile> file;
        if (Line.Target) {
            if (LineSettings.Batch.MakeFolders) {
                makeFoldersFor(*Line.Target);
            }
            file.emplace(*Line.Target, LineSettings.Force);
            journaled(Tools.Journal, [&](BatchJournal& journal) { journal.started(Line, *file); });
        }
        netrove::Request request = requestFor(LineSettings);
        request.progress = [this](const netrove::Progress& progress) { count(progress.received); };
        const netrove::Response response =
            TheClient.stream(std::move(request), [&](const netrove::Response&) { return begin(file); });
        outcome.Status = response.status;
        outcome.Attempts = response.attempts;
        outcome.Bytes = response.received;
        if (file) {
            journaled(Tools.Journal, [&](BatchJournal& journal) { journal.written(Line, *file); });
            file->keep();
        }
    }

private:
    // The content of an attempt, in place of that of an attempt before.
    netrove::Taker begin(const std::optional<OutputFile>& file) {
        if (!file) {
            return [](std::span<const std::byte>) { return true; };
        }
        if (ftruncate(file->descriptor(), 0) != 0 || lseek(file->descriptor(), 0, SEEK_SET) != 0) {
            failSystem(failure::kFileNotWritten, *Line.Target, errno);
        }
        const auto sink = std::make_shared<BodySink>(file->descriptor(), *Line.Target, false, std::nullopt);
        return [sink](std::span<const std::byte> piece) {
            sink->take(piece);
            return true;
        };
    }

    void count(std::uint64_t received) {
        Tools.LiveBytes += received - Live; // less than before when an attempt begins
        Live = received;
    }

    netrove::Client& TheClient;
    const BatchLine& Line;
    const BatchTools& Tools;
    Settings LineSettings;
    std::uint64_t Live = 0;
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
    const auto start = std::chrono::steady_clock::now();
    BatchOutcome outcome;
    const Circumstances circumstances{.MaxTimeSeconds = tools.TheSettings.MaxTime.value_or(0)};
    try {
        Transfer(client, line, tools).run(outcome);
    } catch (const JournalFailure& failure) {
        throw vantik::Failure(failure.Reason);
    } catch (const netrove::Error& error) {
        outcome.Failed = judge(error, circumstances);
        outcome.Status = error.response().status;
        outcome.Attempts = error.response().attempts;
    } catch (const vantik::Failure& failure) {
        outcome.Failed = judge(failure.message(), circumstances);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        outcome.Failed = judge(cliMessage(failure::kFailure, {exception.what()}, exception.what()), circumstances);
    }
    outcome.Time = std::chrono::steady_clock::now() - start;
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
        });
    } catch (const JournalFailure& failure) {
        throw vantik::Failure(failure.Reason);
    }
    return outcome;
}

} // namespace netrove::cli
