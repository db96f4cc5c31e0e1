// The command `batch`: manifest, shard, journal, run, summary.
#include "cli/batch/BatchHistory.h"
#include "cli/batch/BatchJournal.h"
#include "cli/batch/BatchManifest.h"
#include "cli/batch/BatchReport.h"
#include "cli/batch/BatchRun.h"
#include "cli/batch/BatchShard.h"
#include "cli/batch/JournalNames.h"
#include "cli/batch/LineSource.h"
#include "cli/commands/Commands.h"
#include "cli/failures/CliFailure.h"
#include "cli/system/BodySource.h"
#include "cli/system/Signals.h"

#include <netrove/text.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 16;

class HeldLines final : public LineSource {
public:
    explicit HeldLines(std::vector<BatchLine> lines) : Lines(std::move(lines)) {}
    std::optional<BatchLine> next() override {
        return Place < Lines.size() ? std::optional(std::move(Lines[Place++])) : std::nullopt;
    }

private:
    std::vector<BatchLine> Lines;
    std::size_t Place = 0;
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
        std::vector<BatchLine> lines = readManifest();
        if (!Shard.Source.empty()) {
            TheConsole.note("shard " + std::to_string(Shard.Index) + " of " + std::to_string(Shard.Count) + ", from " +
                            Shard.Source + "; " + std::to_string(lines.size()) + " of " + std::to_string(LineCount) +
                            " lines");
        }
        if (!JournalName.empty() && !TheSettings.Batch.DryRun) {
            Journal = std::make_unique<BatchJournal>(JournalName);
        }
        BatchReport report(TheSettings, TheConsole, lines.size());
        skipDone(lines, report);
        if (TheSettings.Batch.DryRun) {
            for (const BatchLine& line : lines) {
                report.planned(line);
            }
            return kExitDone;
        }
        if (!lines.empty()) {
            HeldLines source(std::move(lines));
            BatchRun(TheSettings, TheConsole, source, Journal.get(), report).run();
        }
        if (Journal) {
            Journal->sync();
        }
        return conclude(report);
    }

private:
    // The lines of this shard. The others are checked too, so that every machine refuses a bad manifest.
    std::vector<BatchLine> readManifest() {
        const std::string& name = TheSettings.Batch.Manifest;
        BatchManifestParser parser([this](const std::string& url) { checkUrl(url); });
        if (name != "-") {
            parser.reserve(name, "the manifest");
        }
        if (!JournalBase.empty()) {
            parser.reserveJournals(JournalBase);
        }
        FileReader reader(name);
        std::vector<std::byte> piece(kPiece);
        while (const std::size_t count = reader.read(piece)) {
            parser.feed(std::string_view(reinterpret_cast<const char*>(piece.data()), count));
        }
        BatchManifest manifest = parser.finish();
        TheSession.Connection = vantik::Object();
        if (!manifest.Bad.empty()) {
            refuse(manifest);
        }
        LineCount = manifest.Lines.size();
        if (Shard.whole()) {
            return std::move(manifest.Lines);
        }
        std::vector<BatchLine> own;
        for (std::size_t i = 0; i < manifest.Lines.size(); ++i) {
            if (Shard.has(i)) {
                own.push_back(std::move(manifest.Lines[i]));
            }
        }
        return own;
    }

    // By the class itself, which knows what a valid URL is.
    void checkUrl(const std::string& url) {
        if (!TheSession.Connection) {
            TheSession.Connection = TheSession.Host.create(vantik::kHttpConnectionClass, {vantik::Array(true)});
        }
        TheSession.Connection.set("URL", url);
    }

    [[noreturn]] void refuse(const BatchManifest& manifest) const {
        const std::string name = TheSettings.Batch.Manifest == "-" ? "standard input" : TheSettings.Batch.Manifest;
        const std::vector<BadLine>& bad = manifest.Bad;
        const std::size_t all = bad.size() + manifest.MoreBad;
        std::vector<vantik::MessageArgument> arguments = {name};
        for (const BadLine& line : bad) {
            arguments.push_back("line " + std::to_string(line.Number) + ": " + line.Problem);
        }
        if (!TheSettings.JsonErrors) {
            for (const BadLine& line : bad) {
                TheConsole.note(name + ":" + std::to_string(line.Number) + ": " + line.Problem);
            }
            if (manifest.MoreBad != 0) {
                TheConsole.note(name + ": and " + std::to_string(manifest.MoreBad) + " more");
            }
        }
        fail(failure::kBadManifest, std::move(arguments),
             name + ": " + (all == 1 ? "one bad line" : std::to_string(all) + " bad lines") + "; nothing was done");
    }

    // Reads every journal of the manifest, whatever the number of shards was then.
    void skipDone(std::vector<BatchLine>& lines, BatchReport& report) const {
        if (JournalName.empty()) {
            return;
        }
        if (Journal) {
            BatchHistory own;
            own.read(JournalName);
            own.removeLeftovers();
        }
        BatchHistory history;
        std::size_t unreadable = 0;
        for (const std::string& file : siblingJournals(JournalBase)) {
            if (!std::filesystem::equivalent(file, JournalName, Ignored)) {
                unreadable += history.read(file);
            }
        }
        unreadable += history.read(JournalName);
        if (unreadable != 0) {
            TheConsole.note(unreadable == 1
                                ? "1 line of the journal cannot be read and is ignored"
                                : std::to_string(unreadable) + " lines of the journal cannot be read and are ignored");
        }
        std::erase_if(lines, [&](const BatchLine& line) {
            const auto ended = history.done(line);
            if (ended) {
                report.skipped(line, *ended);
            }
            return ended.has_value();
        });
    }

    void say(const std::string& text, const BatchReport& report) const {
        TheConsole.note(text);
        if (!report.printsLines() && !TheConsole.errIsTerminal()) {
            TheConsole.print(printable(text) + "\n"); // where the display was
        }
    }

    int conclude(const BatchReport& report) const {
        const BatchTotals totals = report.totals();
        say(summaryText(totals), report);
        const auto most = TheSettings.Batch.MostFailures;
        if (most && totals.Failed >= *most && totals.left() != 0) {
            say("stopped after " + std::to_string(totals.Failed) + " failures, because of --max-failures", report);
        }
        if (totals.Failed != 0) {
            say(std::to_string(totals.Failed) + " failed: " + report.causes(), report);
        }
        if (signalSeen() != 0) {
            if (Journal) {
                TheConsole.note("run the same command again to resume");
            }
            throw vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
        }
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
    std::size_t LineCount = 0; // of the manifest
    std::string JournalBase;   // without the number of a shard; empty for no journal
    std::string JournalName;
    std::unique_ptr<BatchJournal> Journal;
    mutable std::error_code Ignored;
};

} // namespace

int runBatch(Session& session, const Settings& settings, const Console& console) {
    return BatchCommand(session, settings, console).run();
}

} // namespace netrove::cli
