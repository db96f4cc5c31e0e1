#include "cli/exchange/Exchange.h"

#include "cli/exchange/Conditions.h"
#include "cli/exchange/RequestOf.h"
#include "cli/failures/CliFailure.h"
#include "cli/failures/ErrorMessages.h"
#include "cli/terminal/Progress.h"

#include <netrove/descriptor.h>
#include <netrove/text.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <fcntl.h>
#include <span>
#include <string>
#include <utility>

namespace netrove::cli {

namespace {

// The head, the blank line included. The host holds text, so bytes that are not UTF-8 come out as replacement
// characters. `shown` makes a part fit for where it goes; a terminal ends lines in its own way.
template <class Shown>
std::string headOf(const netrove::Response& response, const std::string& lineEnd, Shown shown) {
    const std::string status = response.version + " " + std::to_string(response.status) +
                               (response.reason.empty() ? "" : " " + response.reason);
    std::string text = shown(response.failed() ? Style::Bad : Style::Good, status) + lineEnd;
    for (const Field& field : response.fields) {
        text += shown(Style::Bold, field.name) + ": " + shown(Style::Plain, field.value) + lineEnd;
    }
    return text + lineEnd;
}

// "14:05:10", in local time.
std::string clockText(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    char text[16];
    return {text, std::strftime(text, sizeof text, "%H:%M:%S", &parts)};
}

} // namespace

// What is shown while a request is under way.
class Exchange::Meters {
public:
    Meters(const Settings& settings, const Console& console, bool progressIsUsual)
        : Sent("sent", (!settings.StreamFile.empty() || !settings.Form.empty()) && settings.Progress.value_or(false),
               console.errIsTerminal()),
          Received("received", settings.Progress.value_or(progressIsUsual && console.errIsTerminal()),
                   console.errIsTerminal()) {}

    void attachTo(netrove::Request& request) {
        request.progress = [this](const netrove::Progress& progress) {
            if (!HeadCame) {
                Sent.expect(progress.toSend);
                return Sent.update(progress.sent);
            }
            Received.expect(progress.toReceive);
            Received.update(progress.received);
        };
    }
    void headCame() {
        HeadCame = true;
        Sent.finish();
    }
    bool sawHead() const { return HeadCame; }
    void finish() { Received.finish(); }

private:
    ProgressMeter Sent;
    ProgressMeter Received;
    bool HeadCame = false;
};

netrove::Request Exchange::prepared(Meters& meters) {
    netrove::Request request = requestOf(TheSettings, Deadline);
    meters.attachTo(request);
    request.onWait = [this, &meters](const netrove::Error& failure, netrove::Limit wait) {
        meters.finish();
        const auto seconds = std::chrono::round<std::chrono::seconds>(wait).count();
        const std::string when = wait < std::chrono::seconds(1)
                                     ? "tries again"
                                     : "next try at " + clockText(std::chrono::system_clock::now() + wait) + ", in " +
                                           durationText(std::chrono::seconds(seconds));
        TheConsole.note(messageOf(failure).Text + "; " + when);
        return true;
    };
    return request;
}

void Exchange::accept(const netrove::Response& head, Meters& meters, bool repeatable) {
    meters.headCame();
    Facts.UntilHead = Clock::now() - Start;
    dumpHead(head);
    refuseSpentContent(TheSettings, head, repeatable);
    checkRange(TheSettings, head);
}

netrove::Response Exchange::run(BodySink& sink, bool progressIsUsual, bool terminal) {
    Meters meters(TheSettings, TheConsole, progressIsUsual);
    netrove::Request request = prepared(meters);
    request.resume = TheSettings.Retry.Count > 0; // nothing is written twice
    const bool repeatable = !request.body || request.body.repeatable();
    bool headWritten = false;
    const auto onHead = [&](const netrove::Response& head) -> netrove::Taker {
        accept(head, meters, repeatable);
        if (TheSettings.Include && !headWritten) {
            headWritten = true;
            sink.write(headOf(head, terminal ? "\n" : "\r\n", [&](Style style, const std::string& text) {
                const std::string safe = terminal ? printable(text) : text;
                return sink.looks().Colored ? TheConsole.styled(style, safe) : safe;
            }));
        }
        sink.begin(head.fields["Content-Type"]);
        return [&](std::span<const std::byte> piece) {
            sink.take(piece);
            return true;
        };
    };
    try {
        Last = TheClient.stream(std::move(request), onHead);
    } catch (const netrove::Error& error) {
        sink.finish(); // what came before the failure
        if (!meters.sawHead() && error.response().status != 0) {
            dumpHead(error.response());
        }
        throw;
    }
    sink.finish();
    meters.finish();
    return Last;
}

netrove::Response Exchange::save(const std::string& target, bool replace) {
    Meters meters(TheSettings, TheConsole, true);
    netrove::Request request = prepared(meters);
    const FileSettings& file = TheSettings.File;
    const bool repeatable = !request.body || request.body.repeatable();
    // Whoever asks for what is newer wants it in place of what is older.
    request.replace = replace || file.Continue || !TheSettings.TimeCondition.empty() || !file.TagCompared.empty();
    request.resume = request.resumeUnproven = file.Continue;
    request.resumeAt = file.ContinueAt;
    request.keepTime = file.RemoteTime;
    request.sha256 = file.Sha256;
    request.onHead = [&](const netrove::Response& head) { accept(head, meters, repeatable); };
    try {
        Last = TheClient.save(std::move(request), target);
    } catch (const netrove::Error& error) {
        if (!meters.sawHead() && error.response().status != 0) {
            dumpHead(error.response());
        }
        throw;
    }
    Last.received += Last.resumedAt; // of the file
    meters.finish();
    return Last;
}

// One write, so that the heads of several transfers do not run into one another.
void Exchange::dumpHead(const netrove::Response& head) const {
    const std::string& name = TheSettings.HeadFile;
    if (name.empty()) {
        return;
    }
    const std::string text = headOf(head, "\r\n", [](Style, const std::string& part) { return part; });
    if (name == "-") {
        return TheConsole.print(TheConsole.outIsTerminal() ? printableLines(text) : text);
    }
    const Descriptor file(
        retried([&] { return open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666); }));
    if (file.Number < 0 || !writeAll(file.Number, text)) {
        failSystem(failure::kFileNotWritten, name, errno);
    }
}

void Exchange::printFacts(const netrove::Response& response) {
    Facts.Bytes = response.received;
    Facts.File = TheSettings.OutputFile;
    Facts.UntilEnd = Clock::now() - Start;
    TheConsole.print(responseJson(response, Facts) + "\n");
}

} // namespace netrove::cli
