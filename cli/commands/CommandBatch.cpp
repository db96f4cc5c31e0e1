// The command `batch`: manifest, share, journal, run, summary.
#include "cli/batch/BatchJournal.h"
#include "cli/batch/BatchManifest.h"
#include "cli/batch/BatchReport.h"
#include "cli/batch/BatchRun.h"
#include "cli/batch/BatchShard.h"
#include "cli/batch/JournalNames.h"
#include "cli/commands/Commands.h"
#include "cli/failures/CliFailure.h"
#include "cli/system/BodySource.h"
#include "cli/system/Signals.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::uint64_t kPiece = std::uint64_t{1} << 16;

class BatchCommand {
public:
    BatchCommand(Session& session, const Settings& settings, const Console& console)
        : State(session), Wanted(settings), Screen(console),
          Share(chooseShard(settings.Batch.Shard, [](const char* name) { return std::getenv(name); })) {
        if (settings.Batch.NoJournal || (settings.Batch.Manifest == "-" && settings.Batch.Journal.empty())) {
            return;
        }
        JournalBase = settings.Batch.Journal.empty() ? settings.Batch.Manifest + ".journal" : settings.Batch.Journal;
        JournalName = JournalBase + Share.fileSuffix();
    }

    int run() {
        std::vector<BatchLine> lines = readManifest();
        if (!Share.Source.empty()) {
            Screen.note("shard " + std::to_string(Share.Index) + " of " + std::to_string(Share.Count) + ", by " +
                        Share.Source + "; " + std::to_string(lines.size()) + " of " + std::to_string(All) + " lines");
        }
        if (!JournalName.empty() && !Wanted.Batch.DryRun) {
            Journal = std::make_unique<BatchJournal>(JournalName);
        }
        BatchReport report(Screen, lines.size());
        skipDone(lines, report);
        if (Wanted.Batch.DryRun) {
            for (const BatchLine& line : lines) {
                report.planned(line);
            }
            return kExitDone;
        }
        if (!lines.empty()) {
            BatchRun(Wanted, Screen, lines, Journal.get(), report).run();
        }
        if (Journal) {
            Journal->sync();
        }
        return conclude(report);
    }

private:
    // The lines of this share. The others are checked too, so that every machine refuses what one would.
    std::vector<BatchLine> readManifest() {
        const std::string& name = Wanted.Batch.Manifest;
        BatchManifestParser parser([this](const std::string& url) { checkUrl(url); });
        if (name != "-") {
            parser.reserve(name, "the manifest");
        }
        if (!JournalBase.empty()) {
            parser.reserveJournals(JournalBase);
        }
        BodySource source(name, std::nullopt);
        const vantik::ContentProvider provider = source.provider();
        for (vantik::Array piece = provider.read(kPiece); !piece.empty(); piece = provider.read(kPiece)) {
            parser.feed(piece.byteText());
        }
        BatchManifest manifest = parser.finish();
        State.Connection = vantik::Object();
        if (!manifest.Bad.empty()) {
            refuse(manifest);
        }
        All = manifest.Lines.size();
        if (Share.whole()) {
            return std::move(manifest.Lines);
        }
        std::vector<BatchLine> own;
        for (std::size_t i = 0; i < manifest.Lines.size(); ++i) {
            if (Share.has(i)) {
                own.push_back(std::move(manifest.Lines[i]));
            }
        }
        return own;
    }

    // By the class itself, which knows what a URL is.
    void checkUrl(const std::string& url) {
        if (!State.Connection) {
            State.Connection = State.Host.create(vantik::kHttpConnectionClass, {vantik::Array(true)});
        }
        State.Connection.set("URL", url);
    }

    [[noreturn]] void refuse(const BatchManifest& manifest) const {
        const std::string name = Wanted.Batch.Manifest == "-" ? "standard input" : Wanted.Batch.Manifest;
        const std::vector<BadLine>& bad = manifest.Bad;
        const std::size_t all = bad.size() + manifest.MoreBad;
        std::vector<vantik::MessageArgument> arguments = {name};
        for (const BadLine& line : bad) {
            arguments.push_back("line " + std::to_string(line.Number) + ": " + line.Problem);
        }
        if (!Wanted.JsonErrors) {
            for (const BadLine& line : bad) {
                Screen.note(name + ":" + std::to_string(line.Number) + ": " + line.Problem);
            }
            if (manifest.MoreBad != 0) {
                Screen.note(name + ": and " + std::to_string(manifest.MoreBad) + " more");
            }
        }
        fail(failure::kBadManifest, std::move(arguments),
             name + ": " + (all == 1 ? "one bad line" : std::to_string(all) + " bad lines") + "; nothing was done");
    }

    // Every journal of the manifest counts, whatever the number of shards was then.
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
            Screen.note(unreadable == 1
                            ? "1 line of the journal cannot be read and does not count"
                            : std::to_string(unreadable) + " lines of the journal cannot be read and do not count");
        }
        std::erase_if(lines, [&](const BatchLine& line) {
            const auto ended = history.done(line);
            if (ended) {
                report.skipped(line, *ended);
            }
            return ended.has_value();
        });
    }

    int conclude(const BatchReport& report) const {
        const BatchTotals totals = report.totals();
        Screen.note(summaryText(totals));
        if (signalSeen() != 0) {
            if (Journal) {
                Screen.note("the same command goes on where this run stopped");
            }
            throw vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
        }
        if (totals.Failed != 0) {
            Screen.failure(
                {cliMessage(failure::kBatchFailed, {std::int64_t(totals.Failed), std::int64_t(totals.All)},
                            std::to_string(totals.Failed) + " of " + std::to_string(totals.All) + " transfers failed"),
                 report.exitStatus()});
        }
        return report.exitStatus();
    }

    Session& State;
    const Settings& Wanted;
    const Console& Screen;
    BatchShard Share;
    std::size_t All = 0;     // lines of the manifest
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
