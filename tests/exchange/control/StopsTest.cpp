// The six ways in which a transfer stops midway: what provider, consumer and reporter see of it, and the caller.
#include "tests/exchange/control/HostCallRecord.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <ostream>
#include <tuple>

namespace {

using namespace testsupport;
using testing::ElementsAreArray;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

enum class Stop { HostInterrupt, ReporterSaysStop, ConsumerAborts, ConsumerTakesLess };
enum class Stage { Send, Receive };

struct Row {
    const char* Name;
    Stop How;
    Stage Where;
    Texts Calls;        // without the counts, each run of equal ones once
    std::string Caller; // "<url>" stands for the URL
    const char* Saved;  // shape of what is saved where content goes to the buffer; null: the transfer has not failed
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

constexpr const char* kProviderStart = "system vantik.net.http.io.ContentProvider.startInternal(<provider>) -> 0";
constexpr const char* kProviderGet =
    "system vantik.net.http.io.ContentProvider.getDataInternal(<provider>, uint64 1x1) -> 1";
constexpr const char* kConsumerStart = "system vantik.net.http.io.ContentConsumer.startInternal(<consumer>) -> 1";
constexpr const char* kConsumerPut =
    "system vantik.net.http.io.ContentConsumer.putDataInternal(<consumer>, uint8 10x1) -> 1";
constexpr const char* kConsumerInterrupt =
    "system vantik.net.http.io.ContentConsumer.interruptInternal(<consumer>) -> 0";
constexpr const char* kConsumerClose = "system vantik.net.http.io.ContentConsumer.closeInternal(<consumer>) -> 0";
constexpr const char* kUpdate = "public <reporter>.update(<reporter>, uint64 1x1) -> 1";

constexpr const char* kFailed = "VANTIK:webservices:ConnectionFailed(The operation was stopped on request.)";

std::vector<Row> rows() {
    return {
        // The provider is told nothing, and the consumer has not been started.
        {"HostInterruptWhileSending", Stop::HostInterrupt, Stage::Send, {kProviderStart, kProviderGet}, kFailed, "0x1"},
        {"HostInterruptWhileReceiving",
         Stop::HostInterrupt,
         Stage::Receive,
         {kProviderStart, kProviderGet, kConsumerStart, kConsumerPut, kUpdate, kConsumerInterrupt, kConsumerClose},
         "interrupt by the host",
         "10x1"},
        {"ReporterSaysStopWhileSending",
         Stop::ReporterSaysStop,
         Stage::Send,
         {kProviderStart, kProviderGet, kUpdate},
         kFailed,
         "0x1"},
        // Only an interrupt of the host's own is told to the consumer.
        {"ReporterSaysStopWhileReceiving",
         Stop::ReporterSaysStop,
         Stage::Receive,
         {kProviderStart, kProviderGet, kConsumerStart, kConsumerPut, kUpdate, kConsumerClose},
         "interrupt by the program",
         "10x1"},
        {"ConsumerAborts",
         Stop::ConsumerAborts,
         Stage::Receive,
         {kProviderStart, kProviderGet, kConsumerStart, kConsumerPut, kConsumerClose},
         "VANTIK:webservices:OperationTerminatedByConsumer(<url>)",
         "10x1"},
        {"ConsumerTakesLess",
         Stop::ConsumerTakesLess,
         Stage::Receive,
         {kProviderStart, kProviderGet, kConsumerStart, kConsumerPut, kUpdate, kConsumerClose},
         "nothing",
         nullptr},
    };
}

class Stops : public HostFixture, public ::testing::WithParamInterface<std::tuple<Row, bool>> {
protected:
    Stops()
        : Provider(makeScriptedProvider(host(), "request content")), Consumer(makeScriptedConsumer(host())),
          Reporter(makeScriptedReporter(host())) {
        Calls.name(Provider.object(), "<provider>");
        Calls.name(Consumer.object(), "<consumer>");
        Calls.name(Reporter.object(), "<reporter>");
    }

    // While sending: the provider never ends, and where the reporter has to be asked, the head of the answer is there
    // early. While receiving: the content was sent whole, and the answer breaks off in the middle.
    ScriptedServer& serveFor(const Row& row) {
        if (row.Where == Stage::Receive) {
            return serve({step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(),
                          step::send("HTTP/1.1 200 OK\r\nContent-Length: 15\r\n\r\n0123456789"), step::awaitPeerEnd()});
        }
        if (row.How == Stop::ReporterSaysStop) {
            return serve({step::expectHead(), step::send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n"),
                          step::signal("head"), step::awaitPeerEnd()});
        }
        return serve({step::expectHead(), step::awaitPeerEnd()});
    }

    void arrange(const Row& row, ScriptedServer& server) {
        if (row.Where == Stage::Send) {
            Provider->OnRead = [this, &row, &server](int call, std::uint64_t) {
                if (row.How == Stop::HostInterrupt && call == 3) {
                    host().interrupt();
                }
                if (row.How == Stop::ReporterSaysStop && call == 2) {
                    server.waitFor("head");
                }
                return Array::bytes(std::string_view("piece"));
            };
        }
        Consumer->OnPut = [this, &row](int, const std::string& piece) {
            if (row.How == Stop::HostInterrupt) {
                host().interrupt();
            }
            if (row.How == Stop::ConsumerAborts) {
                return Array();
            }
            return Array(row.How == Stop::ConsumerTakesLess ? 3.0 : static_cast<double>(piece.size()));
        };
        Reporter->OnUpdate = [&row](int, std::uint64_t) { return Array(row.How != Stop::ReporterSaysStop); };
    }

    static std::string callerSees(const std::function<void()>& action) {
        try {
            action();
        } catch (const vantik::Interrupted& stop) {
            return stop.byProgram() ? "interrupt by the program" : "interrupt by the host";
        } catch (const vantik::Failure& failure) {
            return describe(failure.message());
        }
        return "nothing";
    }

    // How often a reporter is asked while sending, and what it is told, is up to the network.
    Texts callsWithoutCounts() const {
        Texts lines = Calls.lines();
        for (std::string& line : lines) {
            const std::size_t count = line.find("uint64 1x1: ");
            if (count != std::string::npos) {
                line.erase(count + 10, line.find(')', count) - count - 10);
            }
        }
        lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
        return lines;
    }

    HostCallRecord Calls;
    ScriptedProvider Provider;
    ScriptedConsumer Consumer;
    ScriptedReporter Reporter;
};

TEST_P(Stops, TellThoseConcerned) {
    const auto& [row, toBuffer] = GetParam();
    ScriptedServer& server = serveFor(row);
    arrange(row, server);
    const Object connection = open(server.url("/"));
    connection.set("RequestMethod", "PUT");
    connection.call("removeField", {"Expect"});
    connection.set("Provider", Provider);
    connection.set("Consumer", Consumer);
    connection.set("ProgressReporter", Reporter);

    std::string expected = row.Caller;
    if (const std::size_t place = expected.find("<url>"); place != std::string::npos) {
        expected.replace(place, 5, server.url("/"));
    }
    EXPECT_EQ(callerSees([&] { connection.call("copyContentToByteArray", {toBuffer}); }), expected);
    EXPECT_FALSE(host().interruptPending());

    Texts calls = row.Calls;
    if (toBuffer && row.Saved != nullptr) {
        calls.push_back(
            std::string("system vantik.net.http.io.ContentConsumer.savePayloadInternal(<consumer>, uint8 ") +
            row.Saved + ") -> 0");
    }
    EXPECT_THAT(callsWithoutCounts(), ElementsAreArray(calls));
    if (row.How == Stop::ConsumerTakesLess) {
        EXPECT_EQ(Reporter->Counts, (std::vector<std::uint64_t>{3})) << "only what was taken counts";
    }
    if (row.Where == Stage::Receive) {
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
    }

    // Behind a close the next open clears the transfer, and nothing of it comes up in the next one.
    Calls.clear();
    connection.call("closeConnection");
    ScriptedServer& next = serve({step::expectHead(), step::send(response("all new"))});
    connection.set("Provider", Array());
    connection.set("Consumer", Array());
    connection.set("ProgressReporter", Array());
    connection.set("URL", next.url("/next"));
    connection.call("openConnection");
    connection.set("RequestMethod", "GET");
    EXPECT_EQ(receiveBytes(connection), "all new");
    EXPECT_THAT(Calls.lines(), testing::IsEmpty());
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, Stops, ::testing::Combine(::testing::ValuesIn(rows()), ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) +
                                    (std::get<1>(info.param) ? "WithBuffer" : "WithoutBuffer");
                         });

} // namespace
