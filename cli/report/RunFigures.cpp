#include "cli/report/RunFigures.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kMostHosts = 2000;
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

std::size_t TimeLine::reach(double seconds) {
    seconds = std::max(seconds, 0.0);
    while (seconds / Width >= static_cast<double>(kMostSpans)) {
        for (std::size_t i = 0; i < Spans.size(); i += 2) {
            Span sum = Spans[i];
            if (i + 1 < Spans.size()) {
                sum.Done += Spans[i + 1].Done;
                sum.Failed += Spans[i + 1].Failed;
                sum.Bytes += Spans[i + 1].Bytes;
            }
            Spans[i / 2] = sum;
        }
        Spans.resize((Spans.size() + 1) / 2);
        Width *= 2;
    }
    const auto place = static_cast<std::size_t>(seconds / Width);
    if (place >= Spans.size()) {
        Spans.resize(place + 1);
    }
    return place;
}

void TimeLine::add(const EndedLine& line) {
    const std::size_t last = reach(line.End);
    ++(line.Failed ? Spans[last].Failed : Spans[last].Done);
    const double start = std::clamp(line.Start, 0.0, std::max(line.End, 0.0));
    const double time = line.End - start;
    const auto bytes = static_cast<double>(line.Bytes);
    if (time <= 0) {
        Spans[last].Bytes += bytes;
        return;
    }
    for (auto i = static_cast<std::size_t>(start / Width); i <= last; ++i) {
        const double from = std::max(start, static_cast<double>(i) * Width);
        const double to = std::min(line.End, static_cast<double>(i + 1) * Width);
        Spans[i].Bytes += bytes * std::max(to - from, 0.0) / time;
    }
}

void HostFigures::add(const HostFigures& other) {
    Done += other.Done;
    Failed += other.Failed;
    Bytes += other.Bytes;
    Seconds.add(other.Seconds);
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
    if (line.Failed) {
        ++host.Failed;
        alike = Causes.add(*line.Failed, line.Number);
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
