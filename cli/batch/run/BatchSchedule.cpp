#include "cli/batch/run/BatchSchedule.h"

#include "vantik/Failure.h"

#include <netrove/url.h>

#include <algorithm>
#include <utility>

namespace netrove::cli {

namespace {

std::size_t bytesOf(const BatchLine& line) {
    std::size_t bytes = sizeof(BatchJob) + line.Text.size() + line.Url.size() + (line.Target ? line.Target->size() : 0);
    if (line.Extras) {
        bytes += sizeof(BatchExtras) + (line.Extras->Body ? line.Extras->Body->size() : 0);
        for (const Field& field : line.Extras->Fields) {
            bytes += sizeof(Field) + field.name.size() + field.value.size();
        }
    }
    return bytes;
}

} // namespace

BatchSchedule::BatchSchedule(int mostOfOrigin, BatchWindow window)
    : MostOfOrigin(mostOfOrigin), Window(window), MostHeld(std::max<std::size_t>(1, window.Lines / 10)) {}

void BatchSchedule::add(BatchLine line) {
    const auto [origin, isNew] = Origins.try_emplace(nameOfOrigin(line.Url));
    if (isNew) {
        origin->second.Taken = Pace;
        origin->second.Turn = ++Turns;
    }
    Origin& own = origin->second;
    leave(origin);
    const bool waits = own.OnDisk.Count != 0 || (full() && !own.Held.empty());
    if (waits && !DiskFull) {
        try {
            Spill.add(own.OnDisk, line);
            return settle(origin);
        } catch (const vantik::Failure&) {
            DiskFull = true; // then the rest stays where it is until there is room in memory
        }
    }
    hold(own, std::move(line), origin->first);
    settle(origin);
}

void BatchSchedule::hold(Origin& origin, BatchLine line, std::string name) {
    const std::size_t bytes = bytesOf(line);
    origin.Held.push_back({std::move(line), std::move(name), bytes});
    ++InMemory;
    Bytes += bytes;
}

std::optional<BatchJob> BatchSchedule::take(Time now) {
    takeDue(now);
    if (Ready.empty()) {
        return std::nullopt;
    }
    const auto origin = *Ready.begin();
    Origin& own = origin->second;
    leave(origin);
    BatchJob job = std::move(own.Held.front());
    own.Held.pop_front();
    --InMemory;
    Bytes -= job.Bytes;
    ++own.Busy;
    ++Running;
    own.Turn = ++Turns;
    Pace = own.Taken;
    refill(own);
    settle(origin);
    return job;
}

void BatchSchedule::finish(Named::iterator origin, Duration taken) {
    leave(origin);
    --origin->second.Busy;
    --Running;
    origin->second.Taken += taken;
}

void BatchSchedule::ended(const std::string& name, Duration taken) {
    const auto origin = Origins.find(name);
    finish(origin, taken);
    settle(origin);
}

void BatchSchedule::again(BatchJob job, Duration taken, Time due) {
    const auto origin = Origins.find(job.Origin);
    finish(origin, taken);
    ++origin->second.Delayed;
    ++InMemory;
    Bytes += job.Bytes;
    DelayedBytes += job.Bytes;
    Delayed.emplace(due, std::move(job));
    settle(origin);
}

std::optional<BatchSchedule::Time> BatchSchedule::nextDue() const {
    return Delayed.empty() ? std::nullopt : std::optional(Delayed.begin()->first);
}

void BatchSchedule::takeDue(Time now) {
    while (!Delayed.empty() && Delayed.begin()->first <= now) {
        auto entry = Delayed.extract(Delayed.begin());
        const auto origin = Origins.find(entry.mapped().Origin);
        leave(origin);
        --origin->second.Delayed;
        DelayedBytes -= entry.mapped().Bytes;
        origin->second.Held.push_front(std::move(entry.mapped()));
        settle(origin);
    }
}

// Where many lines of an origin wait for a further attempt, more of them would only fail too, and take memory.
bool BatchSchedule::fails(const Origin& origin) const {
    const bool windowWaits = Delayed.size() >= Window.Lines || DelayedBytes >= Window.Bytes;
    return origin.Delayed >= MostHeld || (origin.Delayed != 0 && windowWaits);
}

void BatchSchedule::settle(Named::iterator origin) {
    Origin& own = origin->second;
    const std::size_t held = own.Held.size() + own.Delayed;
    Excess -= own.Excess;
    own.Excess = held - std::min(held, MostHeld);
    Excess += own.Excess;
    const bool hasLines = !own.Held.empty();
    const bool triedBefore = hasLines && own.Held.front().Attempts != 0;
    if (hasLines && own.Busy < MostOfOrigin && (triedBefore || !fails(own))) {
        Ready.insert(origin);
    } else if (!hasLines && own.Busy == 0 && own.Delayed == 0) {
        Origins.erase(origin);
    }
}

// Many at a time, once there is none.
void BatchSchedule::refill(Origin& origin) {
    if (!origin.Held.empty()) {
        return;
    }
    for (std::size_t i = 0; i < std::max<std::size_t>(1, MostHeld / 2) && origin.OnDisk.Count != 0; ++i) {
        if (i != 0 && full()) {
            return;
        }
        BatchLine line = Spill.take(origin.OnDisk);
        std::string name = nameOfOrigin(line.Url);
        hold(origin, std::move(line), std::move(name));
    }
}

// Most lines have the origin of the line before.
const std::string& BatchSchedule::nameOfOrigin(const std::string& url) {
    if (LastGiven.empty() || !url.starts_with(LastGiven) || url[LastGiven.size()] != '/') {
        LastName = originOf(url);
        const auto mark = url.find("://");
        LastGiven = mark == url.npos ? "" : url.substr(0, url.find_first_of("/?#", mark + 3));
    }
    return LastName;
}

std::string originOf(const std::string& url) {
    const netrove::UrlParts parts = netrove::splitUrl(url);
    return parts.Scheme + "://" + parts.Host + ":" + parts.Port;
}

} // namespace netrove::cli
