// The progress line: its text, and the meter that draws it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace netrove::cli {

struct ProgressState {
    std::uint64_t Bytes = 0;
    std::optional<std::uint64_t> Total; // unknown: no percentage and no time left
    std::chrono::duration<double> Elapsed{};
};

// "999 B", "1.0 KiB", "12.3 MiB": at most four digits, powers of 1024.
std::string sizeText(std::uint64_t bytes);
// "12 s", "3 min 20 s", "5 h 02 min".
std::string durationText(std::chrono::duration<double> time);
// One line, at most `width` columns, without a line end. A total that turns out too small is treated as unknown.
std::string progressText(const std::string& label, const ProgressState& state, std::size_t width);

// How long before a line is drawn again, and how many columns it may have, on a terminal and elsewhere.
std::chrono::steady_clock::duration progressInterval(bool terminal);
std::size_t progressWidth(bool terminal);

struct TerminalSize {
    std::size_t Columns;
    std::size_t Rows;
};
// 80 by 24 where the terminal does not say.
TerminalSize terminalSize(int descriptor);

// Draws on standard error, at most ten times a second.
class ProgressMeter {
public:
    // A meter that is not shown only counts. On a terminal the line is redrawn in place; elsewhere each is a line of
    // its own, at most one a second.
    ProgressMeter(std::string label, bool shown, bool terminal);
    ~ProgressMeter();
    ProgressMeter(const ProgressMeter&) = delete;
    ProgressMeter& operator=(const ProgressMeter&) = delete;

    void expect(std::optional<std::uint64_t> total) { State.Total = total; }
    void update(std::uint64_t bytes);
    void onUpdate(std::function<void(std::uint64_t bytes)> handler) { Watcher = std::move(handler); }
    void finish(); // draws the last state and ends the line
    std::uint64_t bytes() const { return State.Bytes; }

private:
    using Clock = std::chrono::steady_clock;
    void draw(Clock::time_point now);

    std::string Label;
    bool Shown;
    bool Terminal;
    bool Drawn = false;
    ProgressState State;
    std::function<void(std::uint64_t)> Watcher;
    Clock::time_point Start;
    Clock::time_point NextDraw;
};

} // namespace netrove::cli
