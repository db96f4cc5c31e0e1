#include "cli/terminal/Progress.h"

#include "cli/terminal/Output.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::steady_clock::duration kTerminalInterval = 100ms;
constexpr std::chrono::steady_clock::duration kLogInterval = 1s;
constexpr std::size_t kBarWidth = 24;
constexpr std::size_t kShortBarWidth = 10;
constexpr TerminalSize kUsualSize = {80, 24};
constexpr double kLongestEstimate = 360'000; // seconds; a longer time left says nothing

template <class... Values>
std::string formatted(const char* pattern, Values... values) {
    std::array<char, 64> buffer;
    const int length = std::snprintf(buffer.data(), buffer.size(), pattern, values...);
    return {buffer.data(), static_cast<std::size_t>(std::max(0, length))};
}

std::string bar(double share, std::size_t cells) {
    const auto done = static_cast<std::size_t>(std::floor(share * static_cast<double>(cells)));
    return "[" + std::string(done, '#') + std::string(cells - done, '.') + "]";
}

} // namespace

std::chrono::steady_clock::duration progressInterval(bool terminal) {
    return terminal ? kTerminalInterval : kLogInterval;
}

std::size_t progressWidth(bool terminal) {
    if (!terminal) {
        return std::string::npos;
    }
    return terminalSize(STDERR_FILENO).Columns - 1; // a full line would break
}

TerminalSize terminalSize(int descriptor) {
    winsize size{};
    const bool known = ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return {known ? size.ws_col : kUsualSize.Columns, known && size.ws_row > 0 ? size.ws_row : kUsualSize.Rows};
}

std::string sizeText(std::uint64_t bytes) {
    if (bytes < 1024) {
        return formatted("%u B", static_cast<unsigned>(bytes));
    }
    constexpr std::string_view kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double value = static_cast<double>(bytes) / 1024.0;
    std::size_t unit = 0;
    while (value >= 1023.95 && unit + 1 < std::size(kUnits)) {
        value /= 1024.0;
        ++unit;
    }
    return formatted("%.1f %s", value, kUnits[unit].data());
}

std::string durationText(std::chrono::duration<double> time) {
    const auto seconds = static_cast<unsigned long>(std::clamp(time.count(), 0.0, 1e9));
    if (seconds < 60) {
        return formatted("%lu s", seconds);
    }
    if (seconds < 3600) {
        return formatted("%lu min %02lu s", seconds / 60, seconds % 60);
    }
    return formatted("%lu h %02lu min", seconds / 3600, seconds / 60 % 60);
}

std::string progressText(const std::string& label, const ProgressState& state, std::size_t width) {
    const bool known = state.Total && *state.Total > 0 && state.Bytes <= *state.Total;
    const double elapsed = state.Elapsed.count();
    const double rate = elapsed > 0 ? static_cast<double>(state.Bytes) / elapsed : 0;
    const double share = known ? static_cast<double>(state.Bytes) / static_cast<double>(*state.Total) : 0;
    const std::string percent = known ? formatted("%3.0f%%  ", std::floor(share * 100)) : "";
    const std::string size = sizeText(state.Bytes) + (known ? " of " + sizeText(*state.Total) : "");
    const std::string speed = rate >= 1 ? ", " + sizeText(static_cast<std::uint64_t>(rate)) + "/s" : "";
    std::string time = ", " + durationText(state.Elapsed);
    if (known && state.Bytes < *state.Total && rate >= 1) {
        const double left = static_cast<double>(*state.Total - state.Bytes) / rate;
        time = left < kLongestEstimate ? ", " + durationText(std::chrono::duration<double>(left)) + " left"
                                       : std::string();
    }
    const auto withBar = [&](std::size_t cells) { return known ? bar(share, cells) + " " + percent : percent; };
    // What does not fit is left out as a whole: half a number would be a different one.
    const std::string narrower[] = {
        label + ": " + withBar(kBarWidth) + size + speed + time,
        label + ": " + withBar(kShortBarWidth) + size + speed + time,
        label + ": " + percent + size + speed + time,
        label + ": " + percent + size + time,
        label + ": " + percent + size,
        sizeText(state.Bytes),
    };
    const auto fitting = std::find_if(std::begin(narrower), std::end(narrower),
                                      [&](const std::string& text) { return text.size() <= width; });
    return fitting == std::end(narrower) ? std::string() : *fitting;
}

ProgressMeter::ProgressMeter(std::string label, bool shown, bool terminal)
    : Label(std::move(label)), Shown(shown), Terminal(terminal), Start(Clock::now()),
      NextDraw(Start + progressInterval(terminal)) {}

ProgressMeter::~ProgressMeter() {
    // Ends the line, so that a failure's text starts on its own.
    if (Drawn && Terminal) {
        [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, "\n");
    }
}

void ProgressMeter::update(std::uint64_t bytes) {
    State.Bytes = bytes;
    if (Watcher) {
        Watcher(bytes);
    }
    if (!Shown) {
        return;
    }
    const auto now = Clock::now();
    if (now >= NextDraw) {
        draw(now);
    }
}

void ProgressMeter::finish() {
    if (!Shown) {
        return;
    }
    draw(Clock::now());
    if (Terminal) {
        [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, "\n");
    }
    Drawn = false;
    Shown = false;
}

void ProgressMeter::draw(Clock::time_point now) {
    State.Elapsed = now - Start;
    NextDraw = now + progressInterval(Terminal);
    const std::string text = progressText(Label, State, progressWidth(Terminal));
    const std::string drawn = Terminal ? "\r" + text + "\033[K" : text + "\n";
    Drawn = writeAll(STDERR_FILENO, drawn);
}

} // namespace netrove::cli
