#include "cli/exchange/Exchange.h"

#include "cli/exchange/RequestOf.h"
#include "cli/terminal/Progress.h"

#include <netrove/text.h>

#include <cstddef>
#include <span>
#include <string>
#include <utility>

namespace netrove::cli {

namespace {

// The head, each line ended by CR LF, the blank line included. The host holds text, so bytes that are not UTF-8 come
// out as replacement characters.
std::string headOf(const netrove::Response& response) {
    std::string text = response.version + " " + std::to_string(response.status) +
                       (response.reason.empty() ? "" : " " + response.reason) + "\r\n";
    for (const Field& field : response.fields) {
        text += field.name + ": " + field.value + "\r\n";
    }
    return text + "\r\n";
}

} // namespace

netrove::Response Exchange::run(BodySink& sink, bool progressIsUsual, bool terminal) {
    const bool errTerminal = TheConsole.errIsTerminal();
    const bool streams = !TheSettings.StreamFile.empty();
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
        refuseSpentContent(TheSettings, head, repeatable);
        if (TheSettings.Include) {
            sink.write(terminal ? printableLines(headOf(head)) : headOf(head));
        }
        return [&](std::span<const std::byte> piece) {
            sink.take(piece);
            return true;
        };
    };
    netrove::Response response = TheClient.stream(std::move(request), onHead);
    received.finish();
    Last = response;
    return response;
}

void Exchange::printFacts(const netrove::Response& response) {
    Facts.Bytes = response.received;
    Facts.File = TheSettings.OutputFile;
    Facts.UntilEnd = Clock::now() - Start;
    TheConsole.print(responseJson(response, Facts) + "\n");
}

} // namespace netrove::cli
