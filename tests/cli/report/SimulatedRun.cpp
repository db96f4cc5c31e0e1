#include "tests/cli/report/SimulatedRun.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <queue>
#include <random>
#include <vector>

namespace clitest {

namespace {

RunFacts emptyRun(const std::string& command, const std::string& manifest) {
    RunFacts facts;
    facts.Version = "1.2.3";
    facts.Command = command;
    facts.Manifest = manifest;
    facts.Start = std::chrono::system_clock::from_time_t(1'800'000'000);
    facts.Jobs = 32;
    facts.MostOfHost = 8;
    return facts;
}

// By its first parts only: a distribution of the standard library differs from one to the next.
class Dice {
public:
    double share() { return static_cast<double>(Engine()) / static_cast<double>(std::mt19937::max()); }
    std::size_t below(std::size_t count) { return Engine() % count; }

private:
    std::mt19937 Engine{1};
};

struct Host {
    const char* Name;
    std::size_t Weight;
    double Seconds;
};
constexpr std::array<Host, 9> kHosts = {{{"https://data.example.org", 40, 0.3},
                                         {"https://mirror.example.net:8443", 25, 0.8},
                                         {"http://archive.example.com", 15, 1.7},
                                         {"https://eu.cdn.example.com", 8, 0.1},
                                         {"https://us.cdn.example.com", 5, 0.15},
                                         {"http://10.0.0.17:9000", 3, 3},
                                         {"https://slow.example.org", 2, 9},
                                         {"https://new.example.org", 1, 0.5},
                                         {"https://old.example.org", 1, 0.5}}};

const Host& hostAt(std::size_t percent) {
    for (const Host& host : kHosts) {
        if (percent < host.Weight) {
            return host;
        }
        percent -= host.Weight;
    }
    return kHosts.back();
}

// Many lines from several hosts, some of which have bad times.
RunFacts manyLines(std::size_t count, bool failures) {
    RunFacts facts = emptyRun("netrove batch list.txt -j 32 --retry 5 --report run.html", "list.txt");
    Dice dice;
    std::priority_queue<double, std::vector<double>, std::greater<>> free; // when each job can begin
    for (int i = 0; i < facts.Jobs; ++i) {
        free.push(0);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const double start = free.top();
        free.pop();
        const double place = static_cast<double>(i) / static_cast<double>(count);
        const Host& host = hostAt(dice.below(100));
        const double seconds = host.Seconds * (0.3 + 2.5 * std::pow(dice.share(), 6) + dice.share());
        free.push(start + seconds);
        std::string failed;
        const std::string name = host.Name;
        if (failures && place > 0.4 && place < 0.5 && name.find("mirror") != std::string::npos) {
            failed = "connection refused";
        } else if (failures && place > 0.6 && dice.below(100) < 4) {
            failed = place > 0.8 ? "the server answered 503 Service Unavailable" : "timeout";
        } else if (failures && dice.below(1000) < 7) {
            constexpr const char* rare[] = {
                "the server answered 404 Not Found",         "incomplete content", "TLS failed",
                "the server answered 429 Too Many Requests", "wrong digest",       "unknown host"};
            failed = rare[dice.below(std::size(rare))];
        }
        addLine(facts, i + 1, name + "/data/2026/" + std::to_string(i) + ".csv", start, seconds, failed);
    }
    return facts;
}

} // namespace

void addLine(RunFacts& facts, std::size_t number, const std::string& url, double start, double seconds,
             const std::string& failed) {
    EndedLine line{.Number = number,
                   .Url = url,
                   .Start = start,
                   .LastStart = start,
                   .End = start + seconds,
                   .Status = 200,
                   .Bytes = 1000 + number * 7919 % 300'000,
                   .Attempts = 1};
    line.Spent[std::size_t(Phase::Head)] = seconds / 4;
    line.Spent[std::size_t(Phase::Content)] = seconds * 3 / 4;
    if (number % 50 == 0) { // the second attempt
        line.Attempts = 2;
        line.LastStart = start + seconds / 2;
        line.Spent = {seconds / 2, seconds / 4, seconds / 4};
        facts.Figures.addAttempt(url, start, start + seconds / 4);
    }
    ++facts.All;
    if (failed.empty()) {
        ++facts.Done;
        facts.Bytes += line.Bytes;
    } else {
        line.Failed = FailureCause{failed, " at ", hostOf(url)};
        line.Status = 0;
        ++facts.Failed;
    }
    facts.Seconds = std::max(facts.Seconds, line.End);
    facts.Figures.add(line);
}

std::map<std::string, RunFacts> simulatedRuns() {
    std::map<std::string, RunFacts> runs;
    runs["failures"] = manyLines(20'000, true);
    runs["good"] = manyLines(3'000, false);
    runs["many"] = manyLines(100'000, true);
    RunFacts& one = runs["one"] = emptyRun("netrove batch - --report one.html", "standard input");
    addLine(one, 1, "https://data.example.org/a.csv", 0, 0.042);
    RunFacts& names = runs["names"] = emptyRun(
        "netrove batch '" + std::string(300, 'x') + "' -H '<img src=x onerror=alert(1)>'", std::string(300, 'm'));
    names.Shard = "17/128";
    names.Stopped = "SIGTERM";
    for (std::size_t i = 0; i < 60; ++i) {
        const std::string host = "https://" + std::string(i % 7 * 35, 'h') + "." + std::to_string(i % 7) + ".example/";
        addLine(names, i + 1, host + std::string(i * 9, 'p') + "\"><script>alert(1)</script><b x='", double(i) / 9, 2,
                i % 3 == 0 ? "<i>cause</i> " + std::string(90, 'c') + std::to_string(i % 12) : "");
    }
    names.All += 40;
    names.Skipped = 12;
    RunFacts& none = runs["none"] = emptyRun("netrove batch list", "list");
    none.Skipped = none.All = 3;
    return runs;
}

} // namespace clitest
