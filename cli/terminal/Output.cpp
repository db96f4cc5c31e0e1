#include "cli/terminal/Output.h"

#include "vantik/Http.h"

#include <netrove/text.h>
#include <netrove/url.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdlib>
#include <unistd.h>
#include <utility>
#include <variant>

namespace netrove::cli {

namespace {

constexpr std::size_t kShortestSecret = 4;

std::string_view colorCode(Style style) {
    switch (style) {
    case Style::Bold:
        return "\033[1m";
    case Style::Good:
        return "\033[32m";
    case Style::Bad:
        return "\033[1;31m";
    case Style::Faint:
        return "\033[2m";
    case Style::Plain:
        break;
    }
    return "";
}

std::string colored(bool wanted, Style style, std::string_view text) {
    const std::string_view code = colorCode(style);
    if (!wanted || code.empty()) {
        return std::string(text);
    }
    return std::string(code) + std::string(text) + "\033[0m";
}

bool colorWanted(ColorChoice choice, bool terminal) {
    if (choice != ColorChoice::Auto) {
        return choice == ColorChoice::Always;
    }
    const char* noColor = std::getenv("NO_COLOR");
    const char* term = std::getenv("TERM");
    return terminal && (noColor == nullptr || *noColor == '\0') && term != nullptr && std::string_view(term) != "dumb";
}

// Identifier, text, and what to try next. Secrets are removed before the hint is added: a head quoted at the end of the
// text would otherwise include the hint.
std::string failureLine(const Verdict& verdict) {
    const vantik::Message& message = verdict.Message;
    std::string text = message.identifier() + ": " + vantik::withoutSecrets(message.Text);
    const std::string hint = hintOf(verdict);
    if (!hint.empty()) {
        text += (text.ends_with('.') ? " Hint: " : ". Hint: ") + hint + ".";
    }
    return text;
}

} // namespace

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written == 0) {
            errno = ENOSPC;
        }
        if (written <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

Console::Console() : OutTerminal(isatty(STDOUT_FILENO) == 1), ErrTerminal(isatty(STDERR_FILENO) == 1) {
    configure(ColorChoice::Auto, false);
}

void Console::configure(ColorChoice color, bool jsonErrors) {
    OutColor = colorWanted(color, OutTerminal);
    ErrColor = colorWanted(color, ErrTerminal);
    Json = jsonErrors;
}

void Console::quieten(bool notes, bool failures) {
    NotesHidden = notes;
    FailuresHidden = failures;
}

void Console::hide(std::string secret) {
    if (secret.size() >= kShortestSecret) {
        Secrets.push_back(std::move(secret));
    }
}

std::string Console::styled(Style style, std::string_view text) const {
    return colored(OutColor, style, text);
}

void Console::print(std::string_view text) const {
    // There is nobody to tell if standard output is gone; the commands that deliver content check for themselves.
    [[maybe_unused]] const bool written = writeAll(STDOUT_FILENO, text);
}

void Console::note(std::string_view text) const {
    if (!NotesHidden) {
        line(Style::Faint, "note: ", text);
    }
}

void Console::warning(const vantik::Message& message) const {
    if (!NotesHidden) {
        line(Style::Bold, "warning: ", message.identifier() + ": " + message.Text);
    }
}

void Console::failure(const Verdict& verdict) const {
    if (FailuresHidden) {
        return;
    }
    if (Json) {
        [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, failureText(verdict) + "\n");
        return;
    }
    line(Style::Bad, "", failureLine(verdict));
}

void Console::failureOf(std::string_view subject, const vantik::Message& message) const {
    line(Style::Bad, "", std::string(subject) + ": " + message.identifier() + ": " + message.Text);
}

std::string_view Console::removesDisplay() const {
    return displayBelow() ? "\r\033[J" : "";
}

std::string Console::failureText(const Verdict& verdict) const {
    if (!Json) {
        return "netrove: " + safe(failureLine(verdict));
    }
    nlohmann::json arguments = nlohmann::json::array();
    for (const vantik::MessageArgument& argument : verdict.Message.Arguments) {
        if (const auto* text = std::get_if<std::string>(&argument)) {
            arguments.push_back(masked(*text));
        } else {
            arguments.push_back(std::get<std::int64_t>(argument));
        }
    }
    nlohmann::ordered_json object = {{"identifier", verdict.Message.identifier()},
                                     {"message", masked(verdict.Message.Text)},
                                     {"arguments", arguments},
                                     {"exit", verdict.Status}};
    if (const std::string hint = hintOf(verdict); !hint.empty()) {
        object["hint"] = masked(hint);
    }
    // Escaped to ASCII, so that nothing a server said can affect a terminal or a line-based reader.
    return object.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

std::string Console::masked(std::string_view text) const {
    std::string result = maskUserInfo(vantik::withoutSecrets(text));
    for (const std::string& secret : Secrets) {
        for (auto at = result.find(secret); at != result.npos; at = result.find(secret, at + 3)) {
            result.replace(at, secret.size(), "***");
        }
    }
    return result;
}

std::string Console::safe(std::string_view text) const {
    return printable(masked(text));
}

void Console::line(Style style, std::string_view label, std::string_view text) const {
    const std::string_view first = ErrTerminal ? removesDisplay() : "";
    const std::string head = std::string(first) + colored(ErrColor, style, "netrove: " + std::string(label));
    [[maybe_unused]] const bool written = writeAll(STDERR_FILENO, head + safe(text) + "\n");
}

} // namespace netrove::cli
