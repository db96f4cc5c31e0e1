#include "cli/report/RunReport.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace netrove::cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kListedHosts = 100;
constexpr std::size_t kListedCauses = 100;
constexpr std::size_t kListedSeries = 6; // as on the page

// Milliseconds are exact enough, and shorter.
double rounded(double seconds) {
    return std::round(seconds * 1000) / 1000;
}

Json secondsOf(const LogHistogram& histogram) {
    return {{"p50", rounded(histogram.quantile(0.5))},
            {"p95", rounded(histogram.quantile(0.95))},
            {"p99", rounded(histogram.quantile(0.99))},
            {"longest", rounded(histogram.most())},
            {"sum", rounded(histogram.sum())}};
}

Json histogramOf(const LogHistogram& histogram) {
    Json bars = Json::array();
    for (const LogHistogram::Bar& bar : histogram.doublings()) {
        bars.push_back({{"from", bar.From}, {"to", bar.To}, {"count", bar.Count}});
    }
    return bars;
}

Json failuresOf(const CauseCounts& causes) {
    Json result = Json::array();
    std::size_t more = 0;
    for (const CauseCounts::Counted& cause : causes.sorted()) {
        if (result.size() < kListedCauses) {
            result.push_back({{"cause", cause.Text}, {"count", cause.Count}, {"firstLine", cause.FirstLine}});
        } else {
            more += cause.Count;
        }
    }
    if (more != 0) {
        result.push_back({{"cause", "other"}, {"count", more}, {"firstLine", nullptr}});
    }
    return result;
}

Json hostsOf(const RunFigures& figures) {
    Json result = Json::array();
    for (const HostFigures& host : figures.topHosts(kListedHosts)) {
        result.push_back({{"host", host.Name},
                          {"done", host.Done},
                          {"failed", host.Failed},
                          {"bytes", host.Bytes},
                          {"seconds", secondsOf(host.Seconds)}});
    }
    return result;
}

Json seriesOf(const char* name, const std::vector<NamedSeries>& series, const char* values) {
    Json result = Json::array();
    for (const NamedSeries& one : series) {
        Json numbers = Json::array();
        for (const double value : one.Values) {
            numbers.push_back(rounded(value));
        }
        result.push_back({{name, one.Name}, {values, numbers}});
    }
    return result;
}

Json timesOf(const RunFigures& figures) {
    const TimeLine& times = figures.times();
    Json spans = Json::array();
    const std::vector<TimeLine::Span> all = times.spans();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const TimeLine::Span& span = all[i];
        spans.push_back({{"start", static_cast<double>(i) * times.spanSeconds()},
                         {"done", span.Done},
                         {"failed", span.Failed},
                         {"bytes", std::llround(span.Bytes)},
                         {"transferSeconds", rounded(span.Busy)}});
    }
    return {{"spanSeconds", times.spanSeconds()},
            {"spans", spans},
            {"failures", seriesOf("cause", figures.failuresInTime(kListedSeries), "failed")},
            {"hosts", seriesOf("host", figures.hostsInTime(kListedSeries), "transferSeconds")}};
}

Json phasesOf(const Phases& spent) {
    Json result = Json::object();
    for (std::size_t i = 0; i < spent.size(); ++i) {
        result[kPhases[i].Key] = rounded(spent[i]);
    }
    return result;
}

Json slowestOf(const RunFigures& figures) {
    Json result = Json::array();
    for (const EndedLine& line : figures.slowest()) {
        result.push_back({{"line", line.Number},
                          {"url", line.Url},
                          {"start", rounded(line.Start)},
                          {"seconds", rounded(line.End - line.Start)},
                          {"phases", phasesOf(line.Spent)},
                          {"status", line.Status == 0 ? Json(nullptr) : Json(line.Status)},
                          {"bytes", line.Bytes},
                          {"attempts", line.Attempts},
                          {"failed", line.Failed ? Json(line.Failed->text()) : Json(nullptr)}});
    }
    return result;
}

} // namespace

std::string reportJson(const RunFacts& facts) {
    const RunFigures& figures = facts.Figures;
    const auto end = facts.Start + std::chrono::duration_cast<std::chrono::system_clock::duration>(
                                       std::chrono::duration<double>(facts.Seconds));
    const double seconds = facts.Seconds > 0 ? facts.Seconds : 1;
    const Json object = {
        {"netrove", facts.Version},
        {"verdict", verdictText(facts)},
        {"command", facts.Command},
        {"manifest", facts.Manifest},
        {"shard", facts.Shard.empty() ? Json(nullptr) : Json(facts.Shard)},
        {"stopped", facts.Stopped.empty() ? Json(nullptr) : Json(facts.Stopped)},
        {"start", timeText(facts.Start)},
        {"end", timeText(end)},
        {"seconds", rounded(facts.Seconds)},
        {"lines",
         {{"all", facts.All},
          {"done", facts.Done},
          {"failed", facts.Failed},
          {"skipped", facts.Skipped},
          {"left", facts.left()}}},
        {"bytes", facts.Bytes},
        {"bytesPerSecond", std::llround(static_cast<double>(facts.Bytes) / seconds)},
        {"lineSeconds", secondsOf(figures.seconds())},
        {"phases", phasesOf(figures.spent())},
        {"attempts", figures.attempts()},
        {"failures", failuresOf(figures.causes())},
        {"hosts", hostsOf(figures)},
        {"times", timesOf(figures)},
        {"slowest", slowestOf(figures)},
        {"histograms", {{"seconds", histogramOf(figures.seconds())}, {"bytes", histogramOf(figures.sizes())}}}};
    return object.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}

} // namespace netrove::cli
