// What leaves the two stages of a transfer, sending and copying, when something other than the transfer fails. The two
// differ on purpose: an interrupt passes the one as it is and leaves the other as a failed connection.
#include "tests/exchange/control/HostCallRecord.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <new>
#include <ostream>
#include <stdexcept>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

enum class Raised { Interrupt, HostFailure, Memory, Standard };

struct Row {
    const char* Name;
    const char* At; // the method whose call raises it
    bool OptionsMode;
    Raised What;
    const char* Caller;
    double Status; // of the response, as the caller reads it afterwards; 0: there was none
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

constexpr const char* kStopped = "VANTIK:webservices:ConnectionFailed(The operation was stopped on request.)";
constexpr const char* kNoMemory = "VANTIK:webservices:ConnectionFailed(std::bad_alloc)";
constexpr const char* kOutOfRange = "VANTIK:webservices:ConnectionFailed(raised on the way)";
constexpr const char* kOfTheHost = "test:host:Unreadable(x.bin)";

// clang-format off
const Row kRows[] = {
    {"InterruptWhileSending",                   "getDataInternal", true,  Raised::Interrupt,   kStopped,     0},
    {"InterruptWhileSendingInTheOlderMode",     "getDataInternal", false, Raised::Interrupt,   kStopped,     0},
    {"HostFailureWhileSending",                 "getDataInternal", true,  Raised::HostFailure, kOfTheHost,   0},
    {"MemoryWhileSending",                      "getDataInternal", true,  Raised::Memory,      kNoMemory,    0},
    {"MemoryWhileSendingInTheOlderMode",        "getDataInternal", false, Raised::Memory,      kNoMemory,    0},
    {"StandardWhileSending",                    "getDataInternal", true,  Raised::Standard,    kOutOfRange,  0},
    {"InterruptWhileCopying",                   "putDataInternal", true,  Raised::Interrupt,   "interrupt", 200},
    {"InterruptWhileCopyingInTheOlderMode",     "putDataInternal", false, Raised::Interrupt,   "interrupt", 200},
    {"HostFailureWhileCopying",                 "putDataInternal", true,  Raised::HostFailure, kOfTheHost,   200},
    {"HostFailureWhileCopyingInTheOlderMode",   "putDataInternal", false, Raised::HostFailure, kOfTheHost,   200},
    {"MemoryWhileCopying",                      "putDataInternal", true,  Raised::Memory,      kNoMemory,    200},
    {"MemoryWhileCopyingInTheOlderMode",        "putDataInternal", false, Raised::Memory,      kNoMemory,    400},
    {"StandardWhileCopying",                    "putDataInternal", true,  Raised::Standard,    kOutOfRange,  200},
    {"StandardWhileCopyingInTheOlderMode",      "putDataInternal", false, Raised::Standard,    kOutOfRange,  400},
    {"MemoryBeforeTheCopyInTheOlderMode",       "startInternal",   false, Raised::Memory,      kNoMemory,    400},
    {"StandardInAReportInTheOlderMode",         "update",          false, Raised::Standard,    kOutOfRange,  400},
};
// clang-format on

class Guards : public HostFixture, public ::testing::WithParamInterface<Row> {
protected:
    static std::string callerSees(const std::function<void()>& action) {
        try {
            action();
        } catch (const vantik::Interrupted&) {
            return "interrupt";
        } catch (const vantik::Failure& failure) {
            return describe(failure.message());
        }
        return "nothing";
    }

    void raise(Raised what) {
        switch (what) {
        case Raised::Interrupt:
            host().interrupt(); // the next poll raises it
            return;
        case Raised::HostFailure: // raised by the object, see below
            return;
        case Raised::Memory:
            throw std::bad_alloc();
        case Raised::Standard:
            throw std::out_of_range("raised on the way");
        }
    }

    HostCallRecord Calls;
};

TEST_P(Guards, SortWhatIsRaised) {
    const Row& row = GetParam();
    const bool sending = std::string(row.At) == "getDataInternal";
    const auto fail = []() -> Array {
        throw vantik::Failure({"test:host", "Unreadable", {std::string("x.bin")}, "cannot read x.bin"});
    };
    const ScriptedProvider provider = makeScriptedProvider(host());
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    if (row.What == Raised::HostFailure) {
        provider->OnRead = [&](int, std::uint64_t) { return fail(); };
        consumer->OnPut = [&](int, const std::string&) { return fail(); };
    } else {
        provider->OnRead = [](int, std::uint64_t) { return Array::bytes(std::string_view("piece")); };
    }
    ScriptedServer& server = serve(
        {step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"), step::awaitPeerEnd()});
    const Object connection = open(server.url("/"), row.OptionsMode);
    if (sending) {
        connection.set("RequestMethod", "PURGE"); // the older mode gives PUT and POST content of its own
        connection.set("Provider", provider);
    }
    connection.set("Consumer", consumer);
    connection.set("ProgressReporter", makeScriptedReporter(host()));
    Calls.beforeCallOf(row.At, [&] { raise(row.What); });
    EXPECT_EQ(callerSees([&] { connection.call("copyContentToByteArray", {false}); }), row.Caller);
    Calls.beforeCallOf(row.At, {});
    if (!sending) { // otherwise the request is due again, and asking for the status would send it
        EXPECT_EQ(connection.get("ResponseCode").number(), row.Status);
    }
    EXPECT_FALSE(host().interruptPending());
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(kRows, Guards, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
