// The charts of the page: what went on over time, and how values are spread.
#include "cli/report/PageChart.h"
#include "cli/report/PageSection.h"
#include "cli/terminal/Progress.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string_view>

namespace netrove::cli {

namespace {

// The spans of a run as columns without parts: fewer of them where few lines have ended, since a single line in a span
// says nothing of a rate.
struct TimeAxis {
    std::vector<ChartColumn> Columns{};
    std::vector<ChartMark> Marks{};
    double End = 0;
    std::size_t Spans = 0;
    std::size_t Together = 1; // spans in a column

    double secondsOf(std::size_t column) const { return Columns[column].To - Columns[column].From; }
    // What the spans of a column come to.
    template <class Value>
    double sum(std::size_t column, Value valueOfSpan) const {
        const bool isLast = column + 1 == Columns.size();
        double sum = 0;
        for (std::size_t i = column * Together; i < (isLast ? Spans : (column + 1) * Together); ++i) {
            sum += valueOfSpan(i);
        }
        return sum;
    }
};

TimeAxis axisOf(const RunFacts& facts) {
    constexpr std::size_t fewest = 20;
    constexpr std::size_t most = 120;
    constexpr std::size_t linesEach = 3;
    const TimeLine& times = facts.Figures.times();
    TimeAxis axis{.End = std::max(facts.Seconds, times.spanSeconds()), .Spans = times.count()};
    const std::size_t wanted = std::clamp((facts.Done + facts.Failed) / linesEach, fewest, most);
    axis.Together = std::max<std::size_t>((axis.Spans + wanted - 1) / wanted, 1);
    axis.Marks = timeMarks(axis.End);
    const double width = times.spanSeconds() * static_cast<double>(axis.Together);
    // What is left at the end joins the last column, unless it is one itself: its rate would be that of a moment.
    const auto columns = static_cast<std::size_t>(std::max(std::floor(axis.End / width + 0.3), 1.0));
    for (std::size_t i = 0; i < columns; ++i) {
        const double start = static_cast<double>(i) * width;
        const double end = i + 1 == columns ? axis.End : start + width;
        axis.Columns.push_back({.From = start, .To = end, .Label = secondsText(start) + " to " + secondsText(end)});
    }
    return axis;
}

Chart chartOf(const TimeAxis& axis, const std::string& title, const std::vector<std::string>& series) {
    return {.Title = title, .Series = series, .Columns = axis.Columns, .End = axis.End, .Marks = axis.Marks};
}

struct LegendEntry {
    std::string Class;
    std::string Text;
    std::string Value; // as HTML; may be empty
};

std::string legend(const std::vector<LegendEntry>& entries) {
    std::string text = "<ul class=\"legend\">";
    for (const LegendEntry& entry : entries) {
        text += "<li><i class=\"" + entry.Class + "\"></i>" + html(entry.Text) +
                (entry.Value.empty() ? "" : " " + entry.Value) + "</li>";
    }
    return text + "</ul>\n";
}

// Several series over time: stacked columns, their legend, and the numbers as CSV.
struct Stack {
    std::string Id;
    std::string Title;
    std::string Note;
    std::string (*ValueText)(double value, double top);
    std::string (*LegendValue)(const NamedSeries&);
    bool Counts; // labels and CSV have the sum of a column, not its sum by second
};

std::string stackOf(const RunFacts& facts, const Stack& stack, const std::vector<NamedSeries>& series) {
    const TimeAxis axis = axisOf(facts);
    Chart chart = chartOf(axis, stack.Title, {});
    chart.ValueText = stack.ValueText;
    std::vector<LegendEntry> entries;
    Cells rows = {{"start (s)", "seconds"}};
    for (const NamedSeries& one : series) {
        chart.Series.push_back("s" + std::to_string(entries.size()));
        entries.push_back({chart.Series.back(), one.Name, stack.LegendValue(one)});
        rows[0].push_back(one.Name);
    }
    for (std::size_t i = 0; i < axis.Columns.size(); ++i) {
        ChartColumn& column = chart.Columns[i];
        rows.push_back({number(column.From), number(axis.secondsOf(i))});
        for (const NamedSeries& one : series) {
            const double sum = axis.sum(i, [&](std::size_t span) { return one.Values[span]; });
            column.Parts.push_back(sum / axis.secondsOf(i));
            const double told = stack.Counts ? sum : column.Parts.back();
            if (sum > 0) {
                column.Label += "\n" + one.Name + ": " + decimal(told, 1);
            }
            rows.back().push_back(number(told));
        }
    }
    return "<section id=\"" + stack.Id + "\">\n" + sectionHead(stack.Title, csvLink(stack.Id, rows), stack.Note) +
           chartHtml(chart) + legend(entries) + "</section>\n";
}

double sumOf(const NamedSeries& series) {
    return std::accumulate(series.Values.begin(), series.Values.end(), 0.0);
}

std::string perSecond(double value, double /*top*/) {
    return value == 0 ? "0" : decimal(value, 2) + "/s";
}

std::string sizeOf(double bytes) {
    return sizeText(static_cast<std::uint64_t>(bytes));
}

// In the unit of `top`.
std::string sizeMark(double value, double top) {
    constexpr std::string_view units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    for (; top >= 1024 && unit + 1 < std::size(units); ++unit) {
        top /= 1024;
        value /= 1024;
    }
    return decimal(value, 2) + " " + std::string(units[unit]);
}

// The lines of a chart share a unit, so that they are easy to compare.
std::string bytesPerSecond(double value, double top) {
    return value == 0 ? "0" : sizeMark(value, top) + "/s";
}

std::string shortSize(double bytes) {
    return sizeMark(bytes, bytes);
}

std::string shortSeconds(double seconds) {
    return seconds < 0.0995 || seconds >= 59.95 ? secondsText(seconds) : decimal(seconds, 2) + " s";
}

// One column for each doubling; what is below the floor is one column.
std::string histogramOf(const std::string& id, const std::string& title, const LogHistogram& histogram, double floor,
                        std::string (*text)(double)) {
    Chart chart{.Title = title,
                .Series = {"done"},
                .ValueText = [](double value, double) { return grouped(static_cast<std::uint64_t>(value)); },
                .WholeValues = true,
                .Separate = true};
    Cells rows = {{"from", "below", "lines"}};
    std::vector<LogHistogram::Bar> bars;
    for (LogHistogram::Bar bar : histogram.doublings()) {
        if (bar.From < floor) {
            bar.From = 0;
        }
        if (!bars.empty() && bars.back().From == 0 && bar.From == 0) {
            bars.back().To = bar.To;
            bars.back().Count += bar.Count;
        } else {
            bars.push_back(bar);
        }
    }
    constexpr std::size_t least = 6; // columns, so that a single one does not fill the chart
    const std::size_t every = bars.size() / 5 + 1;
    for (std::size_t i = 0; i < bars.size(); ++i) {
        const auto place = static_cast<double>(i);
        const LogHistogram::Bar& bar = bars[i];
        chart.Columns.push_back({place,
                                 place + 1,
                                 {static_cast<double>(bar.Count)},
                                 text(bar.From) + " to " + text(bar.To) + ": " + grouped(bar.Count)});
        if (i % every == 0) {
            chart.Marks.push_back({place, text(bar.From)});
        }
        rows.push_back({number(bar.From), number(bar.To), std::to_string(bar.Count)});
    }
    chart.End = static_cast<double>(std::max(bars.size(), least));
    return "<section id=\"" + id + "\">\n" +
           sectionHead(title, csvLink(id, rows), "One column for each doubling; its mark is where it begins.") +
           chartHtml(chart) + "</section>\n";
}

} // namespace

std::string throughputOf(const RunFacts& facts) {
    const TimeAxis axis = axisOf(facts);
    const std::vector<TimeLine::Span> spans = facts.Figures.times().spans();
    Chart bytes = chartOf(axis, "Bytes per second over time", {"done"});
    bytes.ValueText = bytesPerSecond;
    bytes.ValueBase = 1024;
    Chart lines = chartOf(axis, "Lines per second over time, done and failed", {"done", kBadSeries});
    lines.ValueText = perSecond;
    Cells rows = {{"start (s)", "seconds", "done", "failed", "bytes"}};
    for (std::size_t i = 0; i < axis.Columns.size(); ++i) {
        const double seconds = axis.secondsOf(i);
        const double received = axis.sum(i, [&](std::size_t span) { return spans[span].Bytes; });
        const double done = axis.sum(i, [&](std::size_t span) { return static_cast<double>(spans[span].Done); });
        const double failed = axis.sum(i, [&](std::size_t span) { return static_cast<double>(spans[span].Failed); });
        bytes.Columns[i].Parts = {received / seconds};
        bytes.Columns[i].Label += ": " + sizeOf(received);
        lines.Columns[i].Parts = {done / seconds, failed / seconds};
        lines.Columns[i].Label += ": " + decimal(done, 0) + " done, " + decimal(failed, 0) + " failed";
        rows.push_back({number(axis.Columns[i].From), number(seconds), decimal(done, 0), decimal(failed, 0),
                        decimal(received, 0)});
    }
    return "<section id=\"throughput\">\n" +
           sectionHead("Throughput", csvLink("throughput", rows),
                       "Bytes of a line are spread evenly over the time it took.") +
           "<h3>Bytes per second</h3>\n" + chartHtml(bytes) + "<h3>Lines per second</h3>\n" + chartHtml(lines) +
           (facts.Failed == 0 ? "" : legend({{"done", "done", ""}, {kBadSeries, "failed", ""}})) + "</section>\n";
}

std::string failuresInTimeOf(const RunFacts& facts) {
    return stackOf(facts,
                   {.Id = "failures",
                    .Title = "Failures over time",
                    .Note = "Lines that failed per second, by cause.",
                    .ValueText = perSecond,
                    .LegendValue = [](const NamedSeries& series) { return numberData(std::llround(sumOf(series))); },
                    .Counts = true},
                   facts.Figures.failuresInTime(kSeriesInCharts));
}

std::string underWayOf(const RunFacts& facts) {
    std::string note = "How many there were on average, by host, and the time they took together.";
    if (facts.Jobs != 0) {
        note += " At most " + std::to_string(facts.Jobs) + " at a time, " + std::to_string(facts.MostOfHost) +
                " with one host.";
    }
    return stackOf(facts,
                   {.Id = "under-way",
                    .Title = "Transfers under way",
                    .Note = note,
                    .ValueText = [](double value, double) { return decimal(value, 2); },
                    .LegendValue = [](const NamedSeries& series) { return secondsData(sumOf(series)); },
                    .Counts = false},
                   facts.Figures.hostsInTime(kSeriesInCharts));
}

std::string durationsOf(const RunFacts& facts) {
    return histogramOf("durations", "Time per line", facts.Figures.seconds(), 0.001, shortSeconds);
}

std::string sizesOf(const RunFacts& facts) {
    return histogramOf("sizes", "Size of what is done", facts.Figures.sizes(), 1, shortSize);
}

} // namespace netrove::cli
