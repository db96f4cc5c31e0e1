// The page: one HTML file with its own style and charts, and no script.
#include "cli/report/PageSection.h"
#include "cli/report/PageStyle.h"
#include "cli/terminal/Progress.h"

namespace netrove::cli {

namespace {

std::string tile(const std::string& id, const std::string& name, const std::string& value, bool bad = false) {
    return std::string("<div") + (bad ? " class=\"bad\"" : "") + "><dt>" + name + "</dt><dd id=\"" + id + "\">" +
           value + "</dd></div>\n";
}

std::string tilesOf(const RunFacts& facts) {
    std::vector<std::string> tiles = {tile("done", "done", numberData(facts.Done)),
                                      tile("failed", "failed", numberData(facts.Failed), facts.Failed != 0)};
    if (facts.Skipped != 0) {
        tiles.push_back(tile("skipped", "done before", numberData(facts.Skipped)));
    }
    if (facts.left() != 0) {
        tiles.push_back(tile("left", "left", numberData(facts.left())));
    }
    const double seconds = facts.Seconds > 0 ? facts.Seconds : 1;
    const auto speed = static_cast<std::uint64_t>(static_cast<double>(facts.Bytes) / seconds);
    const double pace = static_cast<double>(facts.Done + facts.Failed) / seconds;
    tiles.push_back(tile("bytes", "received", bytesData(facts.Bytes)));
    tiles.push_back(tile("seconds", "time", secondsData(facts.Seconds)));
    tiles.push_back(
        tile("speed", "mean speed", "<data value=\"" + std::to_string(speed) + "\">" + sizeText(speed) + "/s</data>"));
    tiles.push_back(tile("pace", "lines per second",
                         "<data value=\"" + number(pace) + "\">" + decimal(pace, pace < 10 ? 2 : 0) + "</data>"));
    // In one row or in two of the same length.
    std::string text = std::string("<dl class=\"tiles\" style=\"") +
                       (tiles.size() > 6 ? "--columns: 4; --narrow: 4" : "--columns: 6; --narrow: 3") + "\">\n";
    for (const std::string& one : tiles) {
        text += one;
    }
    return text + "</dl>\n";
}

// "2026-11-22 19:40:00 to 19:41:05 UTC".
std::string spanOf(const RunFacts& facts) {
    const auto end = facts.Start + std::chrono::duration_cast<std::chrono::system_clock::duration>(
                                       std::chrono::duration<double>(facts.Seconds));
    const std::string from = timeText(facts.Start);
    const std::string to = timeText(end);
    const auto day = [](const std::string& time) { return time.substr(0, time.find('T')); };
    const auto clock = [](const std::string& time) { return time.substr(time.find('T') + 1, 8); };
    const auto data = [](const std::string& time, const std::string& text) {
        return "<time datetime=\"" + time + "\">" + text + "</time>";
    };
    return data(from, day(from) + " " + clock(from)) + " to " +
           data(to, (day(to) == day(from) ? "" : day(to) + " ") + clock(to)) + " UTC";
}

} // namespace

std::string reportPage(const RunFacts& facts) {
    const bool good = facts.Failed == 0 && facts.left() == 0;
    const bool anyEnded = facts.Done + facts.Failed != 0;
    const std::string what = html(facts.Manifest) + (facts.Shard.empty() ? "" : ", shard " + html(facts.Shard));
    std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; base-uri 'none'; "
                       "form-action 'none'; style-src 'unsafe-inline'\">\n<title>" +
                       html(verdictText(facts)) + " - " + what + "</title>\n<style>" + std::string(kPageStyle) +
                       "</style>\n</head>\n<body>\n<main>\n<h1 id=\"verdict\" style=\"--verdict: var(" +
                       (good ? "--good" : "--bad") + ")\">" + html(verdictText(facts)) +
                       "</h1>\n<div class=\"faint\">" + what + " &middot; " + spanOf(facts) +
                       "</div>\n<pre id=\"command\">" + html(facts.Command) + "</pre>\n" + tilesOf(facts);
    const bool hasCourse = facts.Figures.times().count() > 2; // a chart of a moment says nothing
    if (hasCourse) {
        page += throughputOf(facts);
    }
    if (facts.Failed != 0) {
        page += (hasCourse ? failuresInTimeOf(facts) : "") + "<div class=\"pair\">\n" + causesOf(facts) +
                failingHostsOf(facts) + "</div>\n";
    }
    if (hasCourse) {
        page += underWayOf(facts);
    }
    if (anyEnded) {
        page += hostsOf(facts) + "<div class=\"pair trio\">\n" + durationsOf(facts) + sizesOf(facts) +
                attemptsOf(facts) + "</div>\n" + slowestOf(facts);
    }
    return page + "<footer>Made by netrove " + html(facts.Version) +
           ". Percentiles are at most 4.5% off. Hosts beyond the first 2,000 are counted together.</footer>\n"
           "</main>\n</body>\n</html>\n";
}

} // namespace netrove::cli
