#include "cli/exchange/Exchange.h"

#include "cli/exchange/RequestOf.h"
#include "cli/failures/CliFailure.h"
#include "cli/terminal/Progress.h"

#include <netrove/descriptor.h>
#include <netrove/text.h>

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <span>
#include <string>
#include <utility>

namespace netrove::cli {

namespace {

constexpr int kFirstErrorStatus = 400; // RFC 9110, section 15

// The head, the blank line included. The host holds text, so bytes that are not UTF-8 come out as replacement
// characters. `shown` makes a part fit for where it goes; a terminal ends lines in its own way.
template <class Shown>
std::string headOf(const netrove::Response& response, const std::string& lineEnd, Shown shown) {
    const std::string status = response.version + " " + std::to_string(response.status) +
                               (response.reason.empty() ? "" : " " + response.reason);
    std::string text = shown(response.status < kFirstErrorStatus ? Style::Good : Style::Bad, status) + lineEnd;
    for (const Field& field : response.fields) {
        text += shown(Style::Bold, field.name) + ": " + shown(Style::Plain, field.value) + lineEnd;
    }
    return text + lineEnd;
}

} // namespace

netrove::Response Exchange::run(BodySink& sink, bool progressIsUsual, bool terminal) {
    const bool errTerminal = TheConsole.errIsTerminal();
    const bool streams = !TheSettings.StreamFile.empty() || !TheSettings.Form.empty();
    ProgressMeter sent("sent", streams && TheSettings.Progress.value_or(false), errTerminal);
    ProgressMeter received("received", TheSettings.Progress.value_or(progressIsUsual && errTerminal), errTerminal);
    netrove::Request request = requestOf(TheSettings, Deadline);
    const bool repeatable = !request.body || request.body.repeatable();
    bool headCame = false;
    request.progress = [&](const netrove::Progress& progress) {
        if (!headCame) {
            sent.expect(progress.toSend);
            return sent.update(progress.sent);
        }
        received.expect(progress.toReceive);
        received.update(progress.received);
    };
    const auto onHead = [&](const netrove::Response& head) -> netrove::Taker {
        headCame = true;
        sent.finish();
        Facts.UntilHead = Clock::now() - Start;
        dumpHead(head);
        refuseSpentContent(TheSettings, head, repeatable);
        if (TheSettings.Include) {
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
    netrove::Response response;
    try {
        response = TheClient.stream(std::move(request), onHead);
    } catch (const netrove::Error& error) {
        sink.finish(); // what came before the failure
        if (!headCame && error.response().status != 0) {
            dumpHead(error.response());
        }
        throw;
    }
    sink.finish();
    received.finish();
    Last = response;
    return response;
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
