// What goes to standard output and standard error.
#pragma once

#include "cli/failures/ExitStatus.h"
#include "cli/options/Settings.h"

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

// Writes all of it, and goes on after a signal. False, with errno set, if that is impossible.
bool writeAll(int descriptor, std::string_view bytes);

enum class Style { Plain, Bold, Good, Bad, Faint };

class Console {
public:
    Console();

    // Whether to use colours (by choice, by NO_COLOR, by what the streams are), and JSON for failures.
    void configure(ColorChoice color, bool jsonErrors);
    // Whether notes and warnings are left out, and failures as well.
    void quieten(bool notes, bool failures);
    // Text that must never be shown. Fewer than four characters are ignored, as hiding them would garble every message.
    void hide(std::string secret);

    bool outIsTerminal() const { return OutTerminal; }
    bool outHasColor() const { return OutColor; }
    bool errIsTerminal() const { return ErrTerminal; }

    // To standard output, unchanged; callers make what a server said safe first.
    void print(std::string_view text) const;
    // Text in colour for standard output, if colours are wanted.
    std::string styled(Style style, std::string_view text) const;

    // One line each on standard error.
    void note(std::string_view text) const;
    void warning(const vantik::Message& message) const;
    void failure(const Verdict& verdict) const;
    // One of many, which is named by `subject`: without the hint.
    void failureOf(std::string_view subject, const vantik::Message& message) const;

    // A display that is drawn again in place, with the cursor at its beginning: whatever is printed on the terminal
    // removes it first. For all copies of this console.
    void displayBelow(bool shown) const { *DisplayShown = shown; }
    bool displayBelow() const { return *DisplayShown; }
    // What is printed before a line on a terminal, to remove a display.
    std::string_view removesDisplay() const;
    // Without secrets.
    std::string masked(std::string_view text) const;

    // The line or JSON object that `failure` writes, without colour and without the line end.
    std::string failureText(const Verdict& verdict) const;

    // One line that a terminal shows as it is, without credentials.
    std::string safe(std::string_view text) const;

private:
    void line(Style style, std::string_view label, std::string_view text) const;

    bool OutTerminal;
    bool ErrTerminal;
    bool OutColor = false;
    bool ErrColor = false;
    bool Json = false;
    bool NotesHidden = false;
    bool FailuresHidden = false;
    std::vector<std::string> Secrets;
    std::shared_ptr<std::atomic<bool>> DisplayShown = std::make_shared<std::atomic<bool>>(false);
};

} // namespace netrove::cli
