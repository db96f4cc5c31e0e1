#include "cli/batch/results/BatchDisplay.h"

#include "cli/terminal/Progress.h"

#include <netrove/error.h>
#include <netrove/text.h>

#include <algorithm>
#include <cmath>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr Clock::duration kDisplayInterval = 250ms;
constexpr double kSpeedSeconds = 10;
constexpr double kDay = 86'400; // seconds
constexpr std::size_t kHeadLines = 3;
constexpr std::size_t kMostLines = 8;
constexpr std::size_t kTimeColumns = 10; // "3 min 20 s"
constexpr std::size_t kSizeColumns = 22; // "999.9 MiB of 999.9 MiB"
constexpr std::size_t kLeastUrlColumns = 20;
constexpr std::string_view kGap = "...";

// Removes what is drawn below the cursor, which stands at its beginning.
constexpr std::string_view kRemove = "\r\033[J";

std::string padded(const std::string& text, std::size_t columns) {
    return text.size() < columns ? std::string(columns - text.size(), ' ') + text : text;
}

// As many of them as fit, from the first on.
std::string joined(const std::vector<std::string>& pieces, std::size_t width) {
    std::string text;
    for (const std::string& piece : pieces) {
        const std::string longer = text.empty() ? piece : text + ", " + piece;
        if (longer.size() > width) {
            break;
        }
        text = longer;
    }
    return text;
}

std::string counted(std::size_t number, const char* what) {
    return std::to_string(number) + " " + what;
}

std::string barLine(const BatchTotals& totals, std::size_t width) {
    const std::size_t over = totals.All - totals.left();
    if (totals.Open) {
        return joined({counted(over, "ended"), "the list goes on"}, width);
    }
    const double share = totals.All == 0 ? 1 : static_cast<double>(over) / static_cast<double>(totals.All);
    const std::string tail = " " + padded(std::to_string(static_cast<int>(share * 100)), 3) + "%  " +
                             std::to_string(over) + " of " + std::to_string(totals.All);
    if (tail.size() + 12 > width) {
        return tail.size() - 1 > width ? "" : tail.substr(1);
    }
    const std::size_t cells = std::min<std::size_t>(width - tail.size() - 2, 50);
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(cells));
    return "[" + std::string(filled, '#') + std::string(cells - filled, '.') + "]" + tail;
}

std::string countsLine(const BatchMoment& moment, std::size_t width) {
    std::vector<std::string> pieces = {counted(moment.Totals.Done, "done"), counted(moment.Totals.Failed, "failed"),
                                       counted(moment.Running, "running")};
    if (moment.Totals.Skipped != 0) {
        pieces.push_back(counted(moment.Totals.Skipped, "done before"));
    }
    return joined(pieces, width);
}

std::string speedLine(const BatchMoment& moment, std::size_t width) {
    std::vector<std::string> pieces = {sizeText(static_cast<std::uint64_t>(moment.BytesPerSecond)) + "/s"};
    const BatchTotals& totals = moment.Totals;
    const double elapsed = totals.Elapsed.count();
    const auto ended = static_cast<double>(totals.Done + totals.Failed);
    const double pace = moment.LinesPerSecond > 0 ? moment.LinesPerSecond : elapsed > 0 ? ended / elapsed : 0;
    if (pace > 0 && totals.left() != 0 && !totals.Open) {
        pieces.push_back(timeLeftText(static_cast<double>(totals.left()) / pace) + " left");
    }
    pieces.push_back(sizeText(totals.Bytes));
    if (moment.LinesPerSecond >= 1) {
        pieces.push_back(counted(static_cast<std::size_t>(std::lround(moment.LinesPerSecond)), "lines/s"));
    }
    pieces.push_back(durationText(totals.Elapsed));
    return joined(pieces, width);
}

std::string transferLine(const LiveTransfer& transfer, std::size_t width) {
    const std::string time = padded(durationText(transfer.Time), kTimeColumns) + "  ";
    std::string size = sizeText(transfer.Received);
    if (transfer.Total && *transfer.Total >= transfer.Received) {
        size += " of " + sizeText(*transfer.Total);
    }
    std::string text = time + padded(size, kSizeColumns) + "  ";
    if (text.size() + kLeastUrlColumns > width) {
        text = time;
    }
    if (text.size() > width) {
        return "";
    }
    const auto scheme = transfer.Url.find("://");
    const std::string_view shown = std::string_view(transfer.Url).substr(scheme == std::string::npos ? 0 : scheme + 3);
    return text + cutToColumns(printable(shown), width - text.size());
}

bool continuesCharacter(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80;
}

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    for (const char c : text) {
        columns += static_cast<unsigned char>(c) < 0x80 ? 1 : continuesCharacter(c) ? 0 : 2;
    }
    return columns;
}

} // namespace

std::string cutToColumns(const std::string& text, std::size_t columns) {
    if (columnsOf(text) <= columns) {
        return text;
    }
    if (columns < kGap.size()) {
        return "";
    }
    const std::size_t room = columns - kGap.size();
    std::size_t head = 0;
    std::size_t used = 0;
    for (std::size_t end = 0; end < text.size();) { // half, which shows the host
        std::size_t next = end + 1;
        while (next < text.size() && continuesCharacter(text[next])) {
            ++next;
        }
        const std::size_t wide = columnsOf(std::string_view(text).substr(end, next - end));
        if (used + wide > room / 2) {
            break;
        }
        used += wide;
        head = end = next;
    }
    std::size_t tail = text.size();
    for (std::size_t begin = text.size(); begin > head;) {
        std::size_t next = begin - 1;
        while (next > head && continuesCharacter(text[next])) {
            --next;
        }
        const std::size_t wide = columnsOf(std::string_view(text).substr(next, begin - next));
        if (used + wide > room) {
            break;
        }
        used += wide;
        tail = begin = next;
    }
    return text.substr(0, head) + std::string(kGap) + text.substr(tail);
}

std::string timeLeftText(double seconds) {
    return seconds > kDay ? "more than a day" : durationText(std::chrono::duration<double>(std::ceil(seconds)));
}

std::vector<std::string> displayLines(const BatchMoment& moment, std::size_t width, std::size_t height) {
    std::vector<std::string> lines = {barLine(moment.Totals, width), countsLine(moment, width),
                                      speedLine(moment, width)};
    const std::size_t room = kMostLines - kHeadLines;
    const std::size_t shown =
        std::min(moment.Longest.size(), moment.Running > room || moment.Longest.size() > room ? room - 1 : room);
    for (std::size_t i = 0; i < shown; ++i) {
        lines.push_back(transferLine(moment.Longest[i], width));
    }
    if (moment.Running > shown) {
        lines.push_back(joined({"  and " + std::to_string(moment.Running - shown) + " more"}, width));
    }
    lines.resize(std::min(lines.size(), height));
    return lines;
}

void RecentSpeed::add(double seconds, std::uint64_t bytes, std::size_t lines) {
    Samples.push_back({seconds, bytes, lines});
    while (Samples.size() > 2 && Samples[1].Seconds <= seconds - kSpeedSeconds) {
        Samples.pop_front();
    }
}

double RecentSpeed::bytesPerSecond() const {
    const double time = Samples.empty() ? 0 : Samples.back().Seconds - Samples.front().Seconds;
    // Less than before where attempts have begun again.
    if (time <= 0 || Samples.back().Bytes < Samples.front().Bytes) {
        return 0;
    }
    return static_cast<double>(Samples.back().Bytes - Samples.front().Bytes) / time;
}

double RecentSpeed::linesPerSecond() const {
    const double time = Samples.empty() ? 0 : Samples.back().Seconds - Samples.front().Seconds;
    return time <= 0 ? 0 : static_cast<double>(Samples.back().Lines - Samples.front().Lines) / time;
}

BatchDisplay::BatchDisplay(const Settings& settings, const Console& console, BatchReport& report,
                           const LiveTransfers& transfers)
    : TheConsole(console), Report(report), Transfers(transfers),
      Descriptor(report.printsLines() || !console.outIsTerminal() ? STDERR_FILENO : STDOUT_FILENO),
      InPlace(Descriptor == STDOUT_FILENO || console.errIsTerminal()),
      // Lines on a terminal say enough by themselves.
      Shown(settings.Progress.value_or(InPlace && !(report.printsLines() && console.outIsTerminal()))),
      Next(Clock::now() + (InPlace ? kDisplayInterval : progressInterval(false))) {
    Speed.add(0, 0, 0);
}

BatchDisplay::~BatchDisplay() {
    if (TheConsole.displayBelow()) {
        TheConsole.displayBelow(false);
        [[maybe_unused]] const bool written = writeAll(Descriptor, kRemove);
    }
}

std::optional<Clock::time_point> BatchDisplay::next() const {
    const auto live = Report.nextLive();
    if (!Shown) {
        return live;
    }
    return live ? std::min(*live, Next) : Next;
}

void BatchDisplay::draw() {
    const auto now = Clock::now();
    if (Shown && now >= Next) {
        drawNow();
    }
    if (const auto live = Report.nextLive(); live && now >= *live) {
        try {
            Report.writeLive(Transfers.running());
        } catch (
            const netrove::Error&) { // no reason to stop: the next time may be better, and the last one is reported
        }
    }
}

void BatchDisplay::finish() {
    if (Shown && !InPlace) {
        drawNow();
    } else if (TheConsole.displayBelow()) {
        TheConsole.displayBelow(false);
        [[maybe_unused]] const bool written = writeAll(Descriptor, kRemove);
    }
    Shown = false;
}

void BatchDisplay::drawNow() {
    Next = Clock::now() + (InPlace ? kDisplayInterval : progressInterval(false));
    const BatchMoment now = moment();
    if (!InPlace) {
        const std::string text = batchProgressText(now.Totals, now.Running) + "\n";
        [[maybe_unused]] const bool written = writeAll(Descriptor, text);
        return;
    }
    const TerminalSize size = terminalSize(Descriptor);
    const std::vector<std::string> lines = displayLines(now, size.Columns - 1, std::max<std::size_t>(size.Rows, 2) - 1);
    // The cursor goes back to the first line: what is printed meanwhile removes the display, and so does the next one,
    // even where the terminal has been made narrower and its lines are broken now.
    std::string text = "\r";
    for (std::size_t i = 0; i < lines.size(); ++i) {
        text += (i == 0 ? "" : "\n") + lines[i] + "\033[K";
    }
    text += "\033[J";
    text += lines.size() > 1 ? "\r\033[" + std::to_string(lines.size() - 1) + "A" : "\r";
    TheConsole.displayBelow(true);
    [[maybe_unused]] const bool written = writeAll(Descriptor, text);
}

BatchMoment BatchDisplay::moment() {
    BatchMoment now{
        .Totals = Report.totals(), .Running = Transfers.running(), .Longest = Transfers.longest(kMostLines)};
    now.Totals.Bytes += Transfers.bytes();
    Speed.add(now.Totals.Elapsed.count(), now.Totals.Bytes, now.Totals.Done + now.Totals.Failed);
    now.BytesPerSecond = Speed.bytesPerSecond();
    now.LinesPerSecond = Speed.linesPerSecond();
    return now;
}

} // namespace netrove::cli
