#include "cli/exchange/FileTransfer.h"

#include "cli/exchange/BodySink.h"
#include "cli/terminal/Progress.h"

#include <netrove/outputfile.h>

namespace netrove::cli {

namespace {

constexpr int kFirstErrorStatus = 400; // RFC 9110, section 15

} // namespace

void toFile(Exchange& exchange, const std::string& target, bool replace) {
    OutputFile file(target, replace); // first, so that a bad target costs no request
    // By descriptor and never by name: anyone who may write in the folder could put a link there.
    BodySink sink(file.descriptor(), target, false, exchange.Deadline);
    const netrove::Response response = exchange.run(sink, true, false);
    file.keep();
    if (exchange.TheSettings.json()) {
        return exchange.printFacts(response);
    }
    if (response.status >= kFirstErrorStatus) {
        exchange.TheConsole.note("the server answered " + std::to_string(response.status) + " " + response.reason +
                                 "; " + target + " holds that response");
    } else if (exchange.TheConsole.errIsTerminal() && exchange.TheSettings.Progress.value_or(true)) {
        exchange.TheConsole.note("saved " + target + " (" + sizeText(response.received) + ")");
    }
}

} // namespace netrove::cli
