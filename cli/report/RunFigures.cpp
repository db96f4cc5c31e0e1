#include "cli/report/RunFigures.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kMostHosts = 2000;
constexpr std::size_t kMostKinds = 200;  // of causes, in time
constexpr std::size_t kLongestUrl = 300; // bytes
constexpr const char* kOther = "other";

bool slower(const EndedLine& left, const EndedLine& right) {
    const double leftTime = left.End - left.Start;
    const double rightTime = right.End - right.Start;
    return leftTime != rightTime ? leftTime > rightTime : left.Number < right.Number;
}

// Without a character cut in half.
std::string clipped(const std::string& url) {
    if (url.size() <= kLongestUrl) {
        return url;
    }
    std::size_t end = kLongestUrl;
    while (end > 0 && (static_cast<unsigned char>(url[end]) & 0xC0U) == 0x80) {
        --end;
    }
    return url.substr(0, end) + "...";
}

} // namespace

TimeLine::Span& TimeLine::Span::operator+=(const Span& other) {
    Done += other.Done;
    Failed += other.Failed;
    Bytes += other.Bytes;
    Busy += other.Busy;
    return *this;
}

std::size_t TimeLine::reach(double seconds) {
    seconds = std::max(seconds, 0.0);
    while (seconds / Width >= static_cast<double>(kMostSpans)) {
        Width *= 2;
        ++Joins;
        Count = (Count + 1) / 2;
    }
    const auto place = static_cast<std::size_t>(seconds / Width);
    Count = std::max(Count, place + 1);
    return place;
}

template <class Visit>
void TimeLine::overlaps(double start, double end, Visit visit) {
    const std::size_t last = reach(end);
    start = std::clamp(start, 0.0, std::max(end, 0.0));
    for (auto i = static_cast<std::size_t>(start / Width); i <= last; ++i) {
        const double from = std::max(start, static_cast<double>(i) * Width);
        const double to = std::min(end, static_cast<double>(i + 1) * Width);
        visit(i, std::max(to - from, 0.0));
    }
}

void TimeLine::add(const EndedLine& line) {
    const std::size_t last = reach(line.End);
    Span& end = Spans.at(last, Joins);
    ++(line.Failed ? end.Failed : end.Done);
    const double time = line.End - std::max(line.Start, 0.0);
    const auto bytes = static_cast<double>(line.Bytes);
    if (time <= 0) {
        end.Bytes += bytes;
        return;
    }
    overlaps(line.Start, line.End,
             [&](std::size_t span, double seconds) { Spans.at(span, Joins).Bytes += bytes * seconds / time; });
}

void TimeLine::addBusy(double start, double end, SpanSeries<float>& series) {
    overlaps(start, end, [&](std::size_t span, double seconds) {
        Spans.at(span, Joins).Busy += seconds;
        series.at(span, Joins) += static_cast<float>(seconds);
    });
}

void HostFigures::add(const HostFigures& other) {
    Done += other.Done;
    Failed += other.Failed;
    Bytes += other.Bytes;
    Seconds.add(other.Seconds);
    Busy.add(other.Busy);
}

HostFigures& RunFigures::hostFor(const std::string& name) {
    const auto place = Hosts.find(name);
    if (place != Hosts.end()) {
        return place->second;
    }
    if (Hosts.size() >= kMostHosts) {
        return FurtherHosts;
    }
    HostFigures& host = Hosts[name];
    host.Name = name;
    return host;
}

std::size_t RunFigures::add(const EndedLine& line) {
    std::size_t alike = 0;
    const double seconds = line.End - line.Start;
    Times.add(line);
    Seconds.add(seconds);
    HostFigures& host = hostFor(hostOf(line.Url));
    host.Seconds.add(seconds);
    Times.addBusy(line.LastStart, line.End, host.Busy);
    std::transform(Spent.begin(), Spent.end(), line.Spent.begin(), Spent.begin(), std::plus<>());
    if (line.Failed) {
        ++host.Failed;
        alike = Causes.add(*line.Failed, line.Number);
        addFailure(*line.Failed, line.End);
    } else {
        ++host.Done;
        host.Bytes += line.Bytes;
        Sizes.add(static_cast<double>(line.Bytes));
    }
    ++Attempts[static_cast<std::size_t>(std::clamp<int>(line.Attempts, 0, static_cast<int>(Attempts.size()) - 1))];
    if (Slowest.size() < kSlowest || slower(line, Slowest.front())) {
        EndedLine kept = line;
        kept.Url = clipped(kept.Url);
        Slowest.push_back(std::move(kept));
        std::push_heap(Slowest.begin(), Slowest.end(), slower);
        if (Slowest.size() > kSlowest) {
            std::pop_heap(Slowest.begin(), Slowest.end(), slower);
            Slowest.pop_back();
        }
    }
    return alike;
}

void RunFigures::addAttempt(const std::string& url, double start, double end) {
    Times.addBusy(start, end, hostFor(hostOf(url)).Busy);
}

void RunFigures::addFailure(const FailureCause& cause, double end) {
    const bool known = Kinds.size() < kMostKinds || Kinds.contains(cause.Kind);
    ++Kinds[known ? cause.Kind : kOther].at(Times.reach(end), Times.joins());
}

std::vector<NamedSeries> RunFigures::failuresInTime(std::size_t most) const {
    std::vector<std::pair<std::size_t, std::string>> order;
    for (const auto& [kind, count] : Causes.byKind()) {
        order.emplace_back(count, kind);
    }
    std::stable_sort(order.begin(), order.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<NamedSeries> result;
    SpanSeries<std::uint32_t> other;
    const auto append = [&](const std::string& name, const SpanSeries<std::uint32_t>& series) {
        const auto values = series.values(Times.count(), Times.joins());
        result.push_back({name, {values.begin(), values.end()}});
    };
    std::set<std::string> named;
    for (const auto& [count, kind] : order) {
        if (const auto found = Kinds.find(kind); found != Kinds.end() && kind != kOther && result.size() < most) {
            append(kind, found->second);
            named.insert(kind);
        }
    }
    for (const auto& [kind, series] : Kinds) {
        if (!named.contains(kind)) {
            other.add(series);
        }
    }
    if (named.size() != Kinds.size()) {
        append(kOther, other);
    }
    return result;
}

std::vector<NamedSeries> RunFigures::hostsInTime(std::size_t most) const {
    std::vector<NamedSeries> result;
    for (const HostFigures& host : topHosts(most)) {
        const auto seconds = host.Busy.values(Times.count(), Times.joins());
        result.push_back({host.Name, {seconds.begin(), seconds.end()}});
    }
    return result;
}

std::vector<EndedLine> RunFigures::slowest() const {
    std::vector<EndedLine> lines = Slowest;
    std::sort(lines.begin(), lines.end(), slower);
    return lines;
}

std::vector<HostFigures> RunFigures::topHosts(std::size_t most) const {
    std::vector<const HostFigures*> all;
    for (const auto& [name, host] : Hosts) {
        all.push_back(&host);
    }
    std::sort(all.begin(), all.end(), [](const HostFigures* left, const HostFigures* right) {
        return left->lines() != right->lines() ? left->lines() > right->lines() : left->Name < right->Name;
    });
    std::vector<HostFigures> result;
    HostFigures other = FurtherHosts;
    for (const HostFigures* host : all) {
        if (result.size() < most) {
            result.push_back(*host);
        } else {
            other.add(*host);
        }
    }
    if (other.lines() != 0) {
        other.Name = kOther;
        result.push_back(std::move(other));
    }
    return result;
}

std::vector<HostFigures> RunFigures::failingHosts(std::size_t most) const {
    std::vector<const HostFigures*> all;
    for (const auto& [name, host] : Hosts) {
        if (host.Failed != 0) {
            all.push_back(&host);
        }
    }
    std::sort(all.begin(), all.end(), [](const HostFigures* left, const HostFigures* right) {
        return left->Failed != right->Failed ? left->Failed > right->Failed : left->Name < right->Name;
    });
    std::vector<HostFigures> result;
    for (const HostFigures* host : all) {
        if (result.size() == most) {
            break;
        }
        result.push_back(*host);
    }
    return result;
}

} // namespace netrove::cli
