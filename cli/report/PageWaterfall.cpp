// The slowest lines as bars on the axis of time.
#include "cli/report/PageSection.h"
#include "cli/terminal/Progress.h"

#include <algorithm>

namespace netrove::cli {

namespace {

// The classes of the page's style, one for each phase: light and dark in turn.
constexpr const char* kPhaseClasses[] = {"s6", "s1", "done"};
static_assert(std::size(kPhaseClasses) == std::size(kPhases));

double sumOf(const Phases& spent) {
    double sum = 0;
    for (const double seconds : spent) {
        sum += seconds;
    }
    return sum;
}

// The parts of a bar, from left to right.
std::string partsOf(const Phases& spent) {
    const double sum = sumOf(spent);
    std::string text;
    for (std::size_t i = 0; i < spent.size(); ++i) {
        if (spent[i] > 0) {
            text += std::string("<i class=\"") + kPhaseClasses[i] +
                    "\" style=\"width:" + percent(ratio(spent[i], sum)) + "\" title=\"" + kPhases[i].Name + ": " +
                    secondsText(spent[i]) + "\"></i>";
        }
    }
    return text;
}

// Left out where there is little room.
std::string lesser(const std::string& content) {
    return "<td class=\"n more\">" + content + "</td>";
}

// What the time of all lines went to, which is also what the colours mean.
std::string allOf(const RunFacts& facts) {
    const Phases& spent = facts.Figures.spent();
    const double sum = sumOf(spent);
    if (sum <= 0) {
        return "";
    }
    std::string text = "<h3>The time of all lines</h3>\n<div class=\"all\"><span class=\"bar\">" + partsOf(spent) +
                       "</span></div>\n"
                       "<ul class=\"legend\" id=\"phases\">";
    for (std::size_t i = 0; i < spent.size(); ++i) {
        if (spent[i] > 0) {
            text += std::string("<li><i class=\"") + kPhaseClasses[i] + "\"></i>" + kPhases[i].Name +
                    " <data value=\"" + number(spent[i]) + "\">" + shareText(ratio(spent[i], sum)) + "</data></li>";
        }
    }
    return text + "</ul>\n<h3>Line by line</h3>\n";
}

// When it was, and what the time went to.
std::string barsOf(const EndedLine& line, double from, double share, double ofLongest) {
    const bool known = sumOf(line.Spent) > 0;
    return "<td class=\"when more\"><span class=\"bar\" style=\"margin-left:" + percent(from) +
           ";width:" + percent(share) + "\"></span></td><td class=\"track\"><span class=\"bar" +
           std::string(!known && line.Failed ? " bad" : "") + "\" style=\"width:" + percent(ofLongest) + "\">" +
           (known ? partsOf(line.Spent) : "") + "</span></td>";
}

} // namespace

std::string slowestOf(const RunFacts& facts) {
    std::vector<EndedLine> lines = facts.Figures.slowest();
    std::sort(lines.begin(), lines.end(), [](const EndedLine& left, const EndedLine& right) {
        return left.Start != right.Start ? left.Start < right.Start : left.Number < right.Number;
    });
    double end = facts.Seconds;
    double longest = 0;
    const double begin = lines.empty() ? 0 : lines.front().Start;
    for (const EndedLine& line : lines) {
        end = std::max(end, line.End);
        longest = std::max(longest, line.End - line.Start);
    }
    Cells rows = {{"line", "url", "start (s)", "seconds", "status", "bytes", "attempts", "failed"}};
    for (const PhaseRow& phase : kPhases) {
        rows[0].push_back(std::string(phase.Key) + " (s)");
    }
    std::string body;
    for (const EndedLine& line : lines) {
        const double seconds = line.End - line.Start;
        const std::string why = line.Failed ? line.Failed->text() : "";
        const std::string status = line.Status == 0 ? "" : std::to_string(line.Status);
        rows.push_back({std::to_string(line.Number), line.Url, number(line.Start), number(seconds), status,
                        std::to_string(line.Bytes), std::to_string(line.Attempts), why});
        for (const double spent : line.Spent) {
            rows.back().push_back(number(spent));
        }
        const std::string url = html(line.Url);
        body +=
            "<tr>" + cell(grouped(line.Number)) + "<td class=\"url\"><div title=\"" + url + "\">" + url + "</div>" +
            (why.empty() ? "" : "<span class=\"bad-text\">" + html(why) + "</span>") + "</td>" + lesser(status) +
            lesser(sizeText(line.Bytes)) + lesser(std::to_string(line.Attempts)) + cell(secondsText(seconds)) +
            barsOf(line, ratio(line.Start - begin, end - begin), ratio(seconds, end - begin), ratio(seconds, longest)) +
            "</tr>\n";
    }
    const std::string title = lines.size() < RunFigures::kSlowest
                                  ? "Lines in time"
                                  : "The slowest " + std::to_string(lines.size()) + " lines";
    return "<section id=\"slowest\">\n" +
           sectionHead(title, csvLink("slowest", rows),
                       "In the order in which they began. The column \"when\" spans " + secondsText(begin) + " to " +
                           secondsText(end) + " of the run.") +
           allOf(facts) + "<div class=\"wide\"><table class=\"small\">\n" +
           "<tr><th scope=\"col\" class=\"n\">line</th><th scope=\"col\">URL</th>"
           "<th scope=\"col\" class=\"n more\">status</th><th scope=\"col\" class=\"n more\">received</th>"
           "<th scope=\"col\" class=\"n more\">attempts</th><th scope=\"col\" class=\"n\">time</th>"
           "<th scope=\"col\" class=\"more\">when</th><th scope=\"col\">spent on</th></tr>\n" +
           body + "</table></div></section>\n";
}

} // namespace netrove::cli
