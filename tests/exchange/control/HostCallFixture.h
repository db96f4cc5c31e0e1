// Exchanges with a provider, a consumer and a reporter, all of whose calls are on record.
#pragma once

#include "tests/exchange/ExchangeFixture.h"
#include "tests/exchange/control/HostCallRecord.h"

#include <string>

namespace testsupport {

// Lines of the record. The provider and the consumer are addressed by the name of their base class on behalf of the
// system, the reporter by its own class on behalf of the public.
inline std::string providerCall(const std::string& call) {
    return "system vantik.net.http.io.ContentProvider." + call;
}
inline std::string consumerCall(const std::string& call) {
    return "system vantik.net.http.io.ContentConsumer." + call;
}
inline const std::string kProviderStart = providerCall("startInternal(<provider>) -> 0");
inline const std::string kConsumerStart = consumerCall("startInternal(<consumer>) -> 1");
inline const std::string kConsumerInterrupt = consumerCall("interruptInternal(<consumer>) -> 0");
inline const std::string kConsumerClose = consumerCall("closeInternal(<consumer>) -> 0");
inline std::string providerGet(const std::string& wanted) { // ": 16384", or nothing
    return providerCall("getDataInternal(<provider>, uint64 1x1" + wanted + ") -> 1");
}
inline std::string consumerPut(const std::string& shape) {
    return consumerCall("putDataInternal(<consumer>, uint8 " + shape + ") -> 1");
}
inline std::string consumerSave(const std::string& shape) {
    return consumerCall("savePayloadInternal(<consumer>, uint8 " + shape + ") -> 0");
}
inline std::string reporterUpdate(const std::string& count) {
    return "public <reporter>.update(<reporter>, uint64 1x1" + count + ") -> 1";
}

class HostCallFixture : public ExchangeFixture {
protected:
    HostCallFixture()
        : Provider(makeScriptedProvider(host(), "0123456789")), Consumer(makeScriptedConsumer(host())),
          Reporter(makeScriptedReporter(host())) {
        Calls.name(Provider.object(), "<provider>");
        Calls.name(Consumer.object(), "<consumer>");
        Calls.name(Reporter.object(), "<reporter>");
    }
    vantik::Object openDownload(const std::string& url, bool optionsMode = true) {
        vantik::Object connection = open(url, optionsMode);
        connection.set("Consumer", Consumer);
        connection.set("ProgressReporter", Reporter);
        return connection;
    }

    HostCallRecord Calls;
    ScriptedProvider Provider;
    ScriptedConsumer Consumer;
    ScriptedReporter Reporter;
};

} // namespace testsupport
