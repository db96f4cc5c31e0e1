// Exchanges with a provider, a consumer and a reporter, all of whose calls are on record.
#pragma once

#include "tests/exchange/ExchangeFixture.h"

#include <algorithm>

namespace testsupport {

class HostCallFixture : public ExchangeFixture {
protected:
    HostCallFixture()
        : Provider(makeScriptedProvider(host(), "0123456789")), Consumer(makeScriptedConsumer(host())),
          Reporter(makeScriptedReporter(host())) {
        Provider->Shared = Consumer->Shared = Reporter->Shared = &Calls;
    }
    Object openDownload(const std::string& url) {
        Object connection = open(url);
        connection.set("Consumer", Consumer);
        connection.set("ProgressReporter", Reporter);
        return connection;
    }
    // Each run of reads and each run of reports as one call, for those whose number is up to the network.
    Texts callsWithoutCounts() const {
        Texts calls = Calls;
        for (std::string& call : calls) {
            if (call.starts_with("provider get") || call.starts_with("report")) {
                call.erase(call.rfind(' '));
            }
        }
        calls.erase(std::unique(calls.begin(), calls.end()), calls.end());
        return calls;
    }

    Journal Calls;
    ScriptedProvider Provider;
    ScriptedConsumer Consumer;
    ScriptedReporter Reporter;
};

} // namespace testsupport
