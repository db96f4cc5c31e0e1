// One request and its response, with what is shown meanwhile: what all ways to deliver content share.
#pragma once

#include "cli/exchange/BodySink.h"
#include "cli/exchange/ResponseJson.h"
#include "cli/options/Settings.h"
#include "cli/system/Signals.h"
#include "cli/terminal/Output.h"

#include <netrove/client.h>

#include <optional>
#include <string>

namespace netrove::cli {

class Exchange {
public:
    // All are borrowed. Waits of our own end at the deadline.
    Exchange(netrove::Client& client, const Settings& settings, const Console& console,
             std::optional<Clock::time_point> deadline)
        : TheClient(client), TheSettings(settings), TheConsole(console), Deadline(deadline) {}

    // Sends, and delivers the content. Nothing is written before the head is accepted.
    netrove::Response run(BodySink& sink, bool progressIsUsual, bool terminal);
    // The same into a file that is whole or not there; into a folder under the name that the server gives it.
    netrove::Response save(const std::string& target, bool replace);
    // The result as one JSON object.
    void printFacts(const netrove::Response& response);

    netrove::Client& TheClient;
    const Settings& TheSettings;
    const Console& TheConsole;
    std::optional<Clock::time_point> Deadline;
    ResponseFacts Facts;
    netrove::Response Last; // without content

private:
    class Meters;

    netrove::Request prepared(Meters& meters);
    void accept(const netrove::Response& head, Meters& meters, bool repeatable);
    void dumpHead(const netrove::Response& head) const;

    const Clock::time_point Start = Clock::now();
};

} // namespace netrove::cli
