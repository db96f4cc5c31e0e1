#include "cli/commands/Commands.h"
#include "cli/exchange/Exchange.h"
#include "cli/exchange/FileTransfer.h"
#include "cli/exchange/StreamTransfer.h"
#include "cli/failures/ExitStatus.h"

#include <netrove/client.h>
#include <netrove/outputfile.h>
#include <netrove/url.h>

#include <string>

namespace netrove::cli {

std::string saveTarget(const Settings& settings) {
    if (settings.Target.empty()) {
        return fileNameFor(settings.Url);
    }
    if (!isFolder(settings.Target)) {
        return settings.Target;
    }
    return settings.Target + (settings.Target.ends_with('/') ? "" : "/") + fileNameFor(settings.Url);
}

int runTransfer(netrove::Client& client, const Settings& settings, const Console& console,
                std::optional<Clock::time_point> deadline) {
    Exchange exchange(client, settings, console, deadline);
    if (settings.Command == Command::Save) {
        toFile(exchange, saveTarget(settings), settings.Force);
    } else if (settings.json() && settings.OutputFile.empty()) {
        toJson(exchange);
    } else if (settings.OutputFile.empty() || settings.OutputFile == "-") {
        toStandardOutput(exchange, settings.OutputFile.empty());
    } else if (isSpecialFile(settings.OutputFile)) {
        toSpecialFile(exchange, settings.OutputFile);
    } else {
        toFile(exchange, settings.OutputFile, true);
    }
    return kExitDone;
}

} // namespace netrove::cli
