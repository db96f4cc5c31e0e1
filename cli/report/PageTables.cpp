// The tables of the page.
#include "cli/report/PageSection.h"

namespace netrove::cli {

namespace {

constexpr std::size_t kShownHosts = 20;
constexpr std::size_t kShownCauses = 15;
constexpr std::size_t kCausesInCsv = 200;

} // namespace

std::string causesOf(const RunFacts& facts) {
    Cells rows = {{"cause", "lines", "first line"}};
    std::string body;
    std::size_t more = 0;
    const auto causes = facts.Figures.causes().sorted();
    for (std::size_t i = 0; i < causes.size(); ++i) {
        const CauseCounts::Counted& cause = causes[i];
        if (i < kCausesInCsv) {
            rows.push_back({cause.Text, std::to_string(cause.Count), std::to_string(cause.FirstLine)});
        }
        if (i < kShownCauses) {
            body += "<tr><td class=\"long\">" + html(cause.Text) + "</td>" + cell(numberData(cause.Count)) +
                    barCell(ratio(static_cast<double>(cause.Count), static_cast<double>(causes.front().Count)), true) +
                    cell(grouped(cause.FirstLine)) + "</tr>\n";
        } else {
            more += cause.Count;
        }
    }
    if (more != 0) {
        body += "<tr><td>" + grouped(causes.size() - kShownCauses) + " more causes</td>" + cell(numberData(more)) +
                "<td></td><td></td></tr>\n";
    }
    return "<section id=\"causes\">\n" + sectionHead("Failures by cause", csvLink("causes", rows)) +
           "<div class=\"wide\"><table>\n" +
           headings({{"cause", false}, {"lines", true}, {"", false}, {"first line", true}}) + body +
           "</table></div></section>\n";
}

std::string failingHostsOf(const RunFacts& facts) {
    Cells rows = {{"host", "failed", "lines"}};
    std::string body;
    for (const HostFigures& host : facts.Figures.failingHosts(kShownHosts)) {
        rows.push_back({host.Name, std::to_string(host.Failed), std::to_string(host.lines())});
        const double share = ratio(static_cast<double>(host.Failed), static_cast<double>(host.lines()));
        body += "<tr><td class=\"long\">" + html(host.Name) + "</td>" + cell(numberData(host.Failed)) +
                cell(numberData(host.lines())) + barCell(share, true) + cell(shareText(share)) + "</tr>\n";
    }
    return "<section id=\"failing-hosts\">\n" + sectionHead("Failures by host", csvLink("failing-hosts", rows)) +
           "<div class=\"wide\"><table>\n" +
           headings({{"host", false}, {"failed", true}, {"of lines", true}, {"", false}, {"share", true}}) + body +
           "</table></div></section>\n";
}

std::string hostsOf(const RunFacts& facts) {
    Cells rows = {{"host", "lines", "failed", "bytes", "p50 (s)", "p95 (s)", "p99 (s)", "longest (s)"}};
    std::string body;
    for (const HostFigures& host : facts.Figures.topHosts(kShownHosts)) {
        std::vector<std::string> row = {host.Name, std::to_string(host.lines()), std::to_string(host.Failed),
                                        std::to_string(host.Bytes)};
        body += "<tr><td class=\"long\">" + html(host.Name) + "</td>" + cell(numberData(host.lines())) +
                "<td class=\"n" + (host.Failed != 0 ? " bad-text" : "") + "\">" + numberData(host.Failed) + "</td>" +
                cell(bytesData(host.Bytes));
        for (const double seconds : {host.Seconds.quantile(0.5), host.Seconds.quantile(0.95),
                                     host.Seconds.quantile(0.99), host.Seconds.most()}) {
            row.push_back(number(seconds));
            body += cell(secondsData(seconds));
        }
        body += "</tr>\n";
        rows.push_back(std::move(row));
    }
    return "<section id=\"hosts\">\n" +
           sectionHead("Hosts", csvLink("hosts", rows), "Time of a line: from its first attempt to its end.") +
           "<div class=\"wide\"><table>\n" +
           headings({{"host", false},
                     {"lines", true},
                     {"failed", true},
                     {"received", true},
                     {"p50", true},
                     {"p95", true},
                     {"p99", true},
                     {"longest", true}}) +
           body + "</table></div></section>\n";
}

std::string attemptsOf(const RunFacts& facts) {
    const auto& attempts = facts.Figures.attempts();
    Cells rows = {{"attempts", "lines"}};
    std::string body;
    std::size_t most = 1;
    for (const std::size_t count : attempts) {
        most = std::max(most, count);
    }
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        if (attempts[i] == 0) {
            continue;
        }
        const std::string name = std::to_string(i) + (i + 1 == attempts.size() ? " or more" : "");
        rows.push_back({name, std::to_string(attempts[i])});
        body += "<tr><td>" + name + "</td>" + cell(numberData(attempts[i])) +
                barCell(ratio(static_cast<double>(attempts[i]), static_cast<double>(most)), false) + "</tr>\n";
    }
    return "<section id=\"attempts\">\n" + sectionHead("Attempts per line", csvLink("attempts", rows)) +
           "<div class=\"wide\"><table>\n" + headings({{"attempts", false}, {"lines", true}, {"", false}}) + body +
           "</table></div></section>\n";
}

} // namespace netrove::cli
