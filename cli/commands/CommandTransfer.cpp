#include "cli/commands/Commands.h"
#include "cli/exchange/Exchange.h"
#include "cli/exchange/FileTransfer.h"
#include "cli/exchange/StreamTransfer.h"
#include "cli/failures/CliFailure.h"
#include "cli/failures/ExitStatus.h"

#include <netrove/client.h>
#include <netrove/outputfile.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <cstdint>
#include <string>

namespace netrove::cli {

namespace {


// Whoever finds no file wants to know that it is not elsewhere either.
void toFileOrNothing(Exchange& exchange, const std::string& target, bool replace) {
    try {
        toFile(exchange, target, replace);
    } catch (const netrove::Error& error) {
        if (error.kind() != netrove::ErrorKind::Status || !error.hostText().empty()) {
            throw;
        }
        throw error.with(error.kind(), std::string(error.what()) + "; nothing was saved");
    }
}

// A status that is a failure although its content has been delivered.
void checkStatus(const Settings& settings, const netrove::Response& response) {
    if (settings.onStatus() != StatusChoice::FailWithBody || !response.failed()) {
        return;
    }
    fail(failure::kStatusError, {std::int64_t{response.status}, response.reason, response.url},
         "the server answered " + std::to_string(response.status) + (response.reason.empty() ? "" : " ") +
             printable(response.reason) + " for " + response.url);
}

} // namespace

std::string saveTarget(const Settings& settings) {
    if (settings.File.RemoteName) {
        return settings.Target;
    }
    if (settings.Target.empty()) {
        return fileNameFor(settings.Url);
    }
    if (!isTargetFolder(settings)) {
        return settings.Target;
    }
    return settings.Target + (settings.Target.ends_with('/') ? "" : "/") + fileNameFor(settings.Url);
}

void runTransfer(netrove::Client& client, const Settings& settings, const Console& console,
                 std::optional<Clock::time_point> deadline, netrove::Response& response) {
    Exchange exchange(client, settings, console, deadline);
    if (settings.Command == Command::Save) {
        toFileOrNothing(exchange, saveTarget(settings), settings.Force);
    } else if (settings.json() && settings.OutputFile.empty()) {
        toJson(exchange);
    } else if (settings.OutputFile.empty() || settings.OutputFile == "-") {
        toStandardOutput(exchange, settings.OutputFile.empty());
    } else if (isSpecialFile(settings.OutputFile)) {
        toSpecialFile(exchange, settings.OutputFile);
    } else {
        toFileOrNothing(exchange, settings.OutputFile, true);
    }
    response = exchange.Last;
    checkStatus(settings, response);
}

} // namespace netrove::cli
