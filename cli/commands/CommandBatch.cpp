// The command `batch`: manifest, shard, journal, run, summary.
#include "cli/batch/journal/BatchHistory.h"
#include "cli/batch/journal/BatchJournal.h"
#include "cli/batch/manifest/BatchManifest.h"
#include "cli/batch/manifest/BatchShard.h"
#include "cli/batch/manifest/JournalNames.h"
#include "cli/batch/manifest/ManifestSource.h"
#include "cli/batch/results/BatchReport.h"
#include "cli/batch/run/BatchRun.h"
#include "cli/commands/Commands.h"
#include "cli/failures/CliFailure.h"
#include "cli/system/Signals.h"

#include <netrove/text.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

namespace netrove::cli {

namespace {

// The lines of a manifest without those that an earlier run has done.
class LinesToDo final : public LineSource {
public:
    LinesToDo(ManifestSource& lines, BatchHistory& history, BatchReport& report)
        : Lines(lines), History(history), Report(report) {}

    std::optional<BatchLine> next() override {
        if (First) {
            return std::exchange(First, std::nullopt);
        }
        while (auto line = Lines.next()) {
            if (!Lines.isReadTwice()) {
                Report.expectOneMore();
            }
            const auto ended = History.done(*line);
            if (!ended) {
                return line;
            }
            Report.skipped(*line, *ended);
        }
        return std::nullopt;
    }
    void stop() noexcept override { Lines.stop(); }
    // Waits for the first one.
    bool some() {
        First = next();
        return First.has_value();
    }

private:
    ManifestSource& Lines;
    BatchHistory& History;
    BatchReport& Report;
    std::optional<BatchLine> First;
};

class BatchCommand {
public:
    BatchCommand(Session& session, const Settings& settings, const Console& console)
        : TheSession(session), TheSettings(settings), TheConsole(console),
          Shard(chooseShard(settings.Batch.Shard, [](const char* name) { return std::getenv(name); })) {
        if (settings.Batch.NoJournal || (settings.Batch.Manifest == "-" && settings.Batch.Journal.empty())) {
            return;
        }
        JournalBase = settings.Batch.Journal.empty() ? settings.Batch.Manifest + ".journal" : settings.Batch.Journal;
        JournalName = JournalBase + Shard.fileSuffix();
    }

    int run() {
        ManifestLines lines([this](const std::string& url) { checkUrl(url); });
        if (TheSettings.Batch.Manifest != "-") {
            lines.reserve(TheSettings.Batch.Manifest, "the manifest");
        }
        if (!TheSettings.Batch.Failures.empty()) {
            lines.reserve(TheSettings.Batch.Failures, "the list of failures");
        }
        for (const std::string& file : TheSettings.Batch.Reports) {
            lines.reserve(file, "the report");
        }
        if (!JournalBase.empty()) {
            lines.reserveJournals(JournalBase);
        }
        lines.targetsBelow(TheSettings.File.Folder);
        std::optional<BatchReport> report;
        ManifestSource manifest(TheSettings.Batch.Manifest, Shard, lines,
                                [&](const BatchLine& line, const vantik::Message& problem) {
                                    report->expectOneMore();
                                    report->ended(line, {.Failed = Verdict{problem, kExitUsage}});
                                });
        if (manifest.isReadTwice()) {
            check(manifest, lines);
        }
        describeShard(manifest);
        if (!JournalName.empty() && !TheSettings.Batch.DryRun) {
            Journal = std::make_unique<BatchJournal>(JournalName);
        }
        report.emplace(TheSettings, TheConsole, manifest.own(), shardText());
        BatchHistory history;
        readJournals(history);
        LinesToDo toDo(manifest, history, *report);
        if (TheSettings.Batch.DryRun) {
            while (const auto line = toDo.next()) {
                report->planned(*line);
            }
            return endedWith(*report);
        }
        if (toDo.some()) {
            BatchRun(TheSettings, TheConsole, toDo, Journal.get(), *report).run();
        }
        if (Journal) {
            Journal->sync();
            removeUnlisted(history, *report);
        }
        return conclude(*report);
    }

private:
    void check(ManifestSource& manifest, ManifestLines& lines) {
        if (!TheSettings.File.MakeFolders) {
            lines.requireFolders();
        }
        const BadLines bad = manifest.check();
        TheSession.Connection = vantik::Object();
        if (!bad.First.empty()) {
            refuse(bad);
        }
    }

    void describeShard(const ManifestSource& manifest) const {
        if (Shard.Source.empty()) {
            return;
        }
        const std::string lines = manifest.isReadTwice() ? "; " + std::to_string(manifest.own()) + " of " +
                                                               std::to_string(manifest.all()) + " lines"
                                                         : "";
        TheConsole.note("shard " + std::to_string(Shard.Index) + " of " + std::to_string(Shard.Count) + ", from " +
                        Shard.Source + lines);
    }

    // By the class itself, which knows what a valid URL is.
    void checkUrl(const std::string& url) {
        if (!TheSession.Connection) {
            TheSession.Connection = TheSession.Host.create(vantik::kHttpConnectionClass, {vantik::Array(true)});
        }
        TheSession.Connection.set("URL", url);
    }

    [[noreturn]] void refuse(const BadLines& bad) const {
        const std::string& name = TheSettings.Batch.Manifest;
        const std::size_t all = bad.First.size() + bad.More;
        std::vector<vantik::MessageArgument> arguments = {name};
        for (const BadLines::One& line : bad.First) {
            arguments.push_back("line " + std::to_string(line.Number) + ": " + line.Problem);
        }
        if (!TheSettings.JsonErrors) {
            for (const BadLines::One& line : bad.First) {
                TheConsole.note(name + ":" + std::to_string(line.Number) + ": " + line.Problem);
            }
            if (bad.More != 0) {
                TheConsole.note(name + ": and " + std::to_string(bad.More) + " more");
            }
        }
        fail(failure::kBadManifest, std::move(arguments),
             name + ": " + (all == 1 ? "one bad line" : std::to_string(all) + " bad lines") + "; nothing was done");
    }

    // Reads every journal of the manifest, whatever the number of shards was then.
    void readJournals(BatchHistory& history) const {
        if (JournalName.empty()) {
            return;
        }
        std::size_t unreadable = 0;
        for (const std::string& file : siblingJournals(JournalBase)) {
            if (!std::filesystem::equivalent(file, JournalName, Ignored)) {
                unreadable += history.read(file);
            }
        }
        unreadable += history.read(JournalName);
        if (Journal) {
            history.removeLeftovers();
        }
        if (unreadable != 0) {
            TheConsole.note(unreadable == 1
                                ? "1 line of the journal cannot be read and is ignored"
                                : std::to_string(unreadable) + " lines of the journal cannot be read and are ignored");
        }
    }

    // Once every line of the list is known.
    void removeUnlisted(const BatchHistory& history, const BatchReport& report) const {
        if (signalSeen() != 0 || report.totals().left() != 0) {
            return;
        }
        if (const std::size_t count = history.removeUnlisted()) {
            TheConsole.note("removed what had come of " +
                            (count == 1 ? "a file that is" : std::to_string(count) + " files that are") +
                            " no longer in the list");
        }
    }

    void say(const std::string& text, const BatchReport& report) const {
        TheConsole.note(text);
        if (!report.printsLines() && !TheConsole.errIsTerminal()) {
            TheConsole.print(printable(text) + "\n"); // where the display was
        }
    }

    std::string shardText() const {
        return Shard.whole() ? "" : std::to_string(Shard.Index) + "/" + std::to_string(Shard.Count);
    }

    int conclude(BatchReport& report) const {
        const BatchTotals totals = report.totals();
        say(summaryText(totals), report);
        const auto most = TheSettings.Batch.MostFailures;
        if (most && totals.Failed >= *most && totals.left() != 0) {
            say("stopped after " + std::to_string(totals.Failed) + " failures, because of --max-failures", report);
        }
        if (totals.Failed != 0) {
            say(std::to_string(totals.Failed) + " failed: " + report.causes(), report);
        }
        const int signal = signalSeen();
        report.finish(signal == 0 ? "" : "SIG" + std::string(sigabbrev_np(signal)));
        if (signal != 0) {
            if (Journal) {
                TheConsole.note("run the same command again to resume");
            }
            throw vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
        }
        return endedWith(report);
    }

    int endedWith(const BatchReport& report) const {
        const BatchTotals totals = report.totals();
        if (totals.Failed != 0) {
            TheConsole.failure(
                {cliMessage(failure::kBatchFailed, {std::int64_t(totals.Failed), std::int64_t(totals.All)},
                            std::to_string(totals.Failed) + " of " + std::to_string(totals.All) + " transfers failed"),
                 report.exitStatus()});
        }
        return report.exitStatus();
    }

    Session& TheSession;
    const Settings& TheSettings;
    const Console& TheConsole;
    BatchShard Shard;
    std::string JournalBase; // without the number of a shard; empty for no journal
    std::string JournalName;
    std::unique_ptr<BatchJournal> Journal;
    mutable std::error_code Ignored;
};

} // namespace

int runBatch(Session& session, const Settings& settings, const Console& console) {
    return BatchCommand(session, settings, console).run();
}

} // namespace netrove::cli
