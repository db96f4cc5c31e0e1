#include "cli/report/RunReport.h"

#include <netrove/text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

namespace netrove::cli {

namespace {

constexpr std::size_t kMetricHosts = 20; // and "other": each label makes a series that is kept for long
constexpr std::size_t kKinds = 20; // likewise

using Labels = std::vector<std::pair<std::string_view, std::string>>;

std::string shown(double value) {
    std::array<char, 64> buffer{};
    const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return {buffer.data(), written.ptr};
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '\\' || c == '"') {
            result += '\\';
        }
        result += c == '\n' ? ' ' : c;
    }
    return result;
}

// One after the other, each with the labels that tell this run from others on the machine.
class Metrics {
public:
    explicit Metrics(const RunFacts& facts) {
        Common.emplace_back("manifest", printable(facts.Manifest)); // a name that is not UTF-8 would spoil the file
        if (!facts.Shard.empty()) {
            Common.emplace_back("shard", facts.Shard);
        }
    }

    void begin(std::string_view name, std::string_view type, std::string_view help) {
        Name = "netrove_batch_" + std::string(name);
        Text += "# HELP " + Name + " " + std::string(help) + "\n# TYPE " + Name + " " + std::string(type) + "\n";
    }
    void value(double value, const Labels& own = {}, std::string_view suffix = "") {
        std::string labels;
        for (const Labels* part : {static_cast<const Labels*>(&Common), &own}) {
            for (const auto& [name, text] : *part) {
                labels += (labels.empty() ? "" : ",") + std::string(name) + "=\"" + escaped(text) + "\"";
            }
        }
        Text += Name + std::string(suffix) + "{" + labels + "} " + shown(value) + "\n";
    }
    void value(std::uint64_t number, const Labels& own = {}, std::string_view suffix = "") {
        value(static_cast<double>(number), own, suffix);
    }
    std::string take() { return std::move(Text); }

private:
    Labels Common;
    std::string Name;
    std::string Text;
};

void addSummary(Metrics& metrics, const LogHistogram& seconds, const Labels& labels) {
    for (const auto& [share, name] : {std::pair(0.5, "0.5"), std::pair(0.95, "0.95"), std::pair(0.99, "0.99")}) {
        Labels own = labels;
        own.emplace_back("quantile", name);
        metrics.value(seconds.quantile(share), own);
    }
    metrics.value(seconds.sum(), labels, "_sum");
    metrics.value(seconds.count(), labels, "_count");
}

void addFailures(Metrics& metrics, const CauseCounts& causes) {
    std::vector<std::pair<std::size_t, std::string>> kinds;
    for (const auto& [kind, count] : causes.byKind()) {
        kinds.emplace_back(count, kind);
    }
    std::stable_sort(kinds.begin(), kinds.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    metrics.begin("failures_total", "counter", "Lines that failed, by cause.");
    std::uint64_t other = 0;
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        if (i < kKinds) {
            metrics.value(std::uint64_t{kinds[i].first}, {{"cause", kinds[i].second}});
        } else {
            other += kinds[i].first;
        }
    }
    if (other != 0) {
        metrics.value(other, {{"cause", "other"}});
    }
}

} // namespace

std::string reportMetrics(const RunFacts& facts) {
    Metrics metrics(facts);
    metrics.begin("lines", "gauge", "Lines of the manifest that this run has to do, whatever became of them.");
    metrics.value(std::uint64_t{facts.All});
    metrics.begin("lines_ended_total", "counter", "Lines that have ended, by result; skipped: done by an earlier run.");
    metrics.value(std::uint64_t{facts.Done}, {{"result", "done"}});
    metrics.value(std::uint64_t{facts.Failed}, {{"result", "failed"}});
    metrics.value(std::uint64_t{facts.Skipped}, {{"result", "skipped"}});
    metrics.begin("running", "gauge", "Transfers under way.");
    metrics.value(std::uint64_t{facts.Running});
    metrics.begin("over", "gauge", "1 once the run has ended.");
    metrics.value(std::uint64_t{facts.Over ? 1U : 0U});
    metrics.begin("received_bytes_total", "counter", "Content received and kept.");
    metrics.value(facts.Bytes);
    metrics.begin("start_time_seconds", "gauge", "When the run began, in seconds since 1970.");
    metrics.value(std::chrono::duration<double>(facts.Start.time_since_epoch()).count());
    metrics.begin("elapsed_seconds", "gauge", "How long the run has taken.");
    metrics.value(facts.Seconds);
    addFailures(metrics, facts.Figures.causes());
    metrics.begin("spent_seconds_total", "counter", "What the time of lines went to.");
    for (std::size_t i = 0; i < std::size(kPhases); ++i) {
        metrics.value(facts.Figures.spent()[i], {{"phase", kPhases[i].Key}});
    }
    metrics.begin("line_seconds", "summary", "Time from the first attempt of a line to its end.");
    addSummary(metrics, facts.Figures.seconds(), {});

    const std::vector<HostFigures> hosts = facts.Figures.topHosts(kMetricHosts);
    metrics.begin("host_lines_ended_total", "counter", "Lines that have ended, by host and result.");
    for (const HostFigures& host : hosts) {
        metrics.value(std::uint64_t{host.Done}, {{"host", host.Name}, {"result", "done"}});
        metrics.value(std::uint64_t{host.Failed}, {{"host", host.Name}, {"result", "failed"}});
    }
    metrics.begin("host_received_bytes_total", "counter", "Content received and kept, by host.");
    for (const HostFigures& host : hosts) {
        metrics.value(host.Bytes, {{"host", host.Name}});
    }
    metrics.begin("host_line_seconds", "summary", "Time from the first attempt of a line to its end, by host.");
    for (const HostFigures& host : hosts) {
        addSummary(metrics, host.Seconds, {{"host", host.Name}});
    }
    return metrics.take();
}

} // namespace netrove::cli
