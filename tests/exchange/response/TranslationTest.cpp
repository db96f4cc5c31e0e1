// What each failure of a transfer reaches the caller as: identifier and arguments, in the order in which failures are
// told apart.
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

enum class Server { Http, Tls, Refusing, UnknownHost, NoHost, UnusableHost };
enum class Copy { Bytes, FullDisk };

struct Row {
    const char* Name;
    std::string Answer;   // of the server, which then closes the connection, or stays silent
    const char* Expected; // "<url>" stands for the URL, "<text>" for libcurl's words
    Server To = Server::Http;
    Copy How = Copy::Bytes;
    bool OptionsMode = true;
    bool Closes = true;
    const char* CertificateFile = "";
    bool Interrupted = false;    // before the send
    bool ConsumerAborts = false; // on the first piece
    double DataTimeout = 0;      // milliseconds, as told; 0: none that matters
    bool ProviderFails = false;  // with an identifier of its own
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

std::vector<Row> rows() {
    const std::string part = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart";
    return {
        {.Name = "CopyStream",
         .Answer = response(patternedBytes(100000)),
         .Expected = "VANTIK:webservices:CopyContentToDataStreamError(Error saving to local data stream., <url>)",
         .How = Copy::FullDisk},
        {.Name = "CopyStreamOfATransferThatGivesNothing",
         .Answer = "",
         .Expected = "VANTIK:webservices:CopyContentToDataStreamError(<text>, <url>)"},
        {.Name = "Status",
         .Answer = response("gone", {}, "404 Not Found"),
         .Expected = "VANTIK:webservices:StatusError(404, Not Found, <url>)",
         .OptionsMode = false},
        {.Name = "StatusWithoutAReason",
         .Answer = response("oh", {}, "500 "),
         .Expected = "VANTIK:webservices:StatusError(500, , <url>)",
         .OptionsMode = false},
        {.Name = "StatusWithNothingBehindTheCode",
         .Answer = response("oh", {}, "500"),
         .Expected = "VANTIK:webservices:StatusError(500, , <url>)",
         .OptionsMode = false},
        {.Name = "TlsWithoutAFile",
         .Answer = "this is no TLS\r\n",
         .Expected = "VANTIK:webservices:SSLConnectionNoFile(<url>, <text>)",
         .To = Server::Tls},
        {.Name = "TlsWithTheSystemsFile",
         .Answer = "this is no TLS\r\n",
         .Expected = "VANTIK:webservices:SSLConnectionSystemFailure(<url>, <text>)",
         .To = Server::Tls,
         .CertificateFile = "default"},
        {.Name = "TlsWithAFile",
         .Answer = "this is no TLS\r\n",
         .Expected = "VANTIK:webservices:SSLConnectionFailure(<url>, <text>, /nonexistent/ca.pem)",
         .To = Server::Tls,
         .CertificateFile = "/nonexistent/ca.pem"},
        {.Name = "TlsWithDefaultInAnotherCase",
         .Answer = "this is no TLS\r\n",
         .Expected = "VANTIK:webservices:SSLConnectionFailure(<url>, <text>, Default)",
         .To = Server::Tls,
         .CertificateFile = "Default"},
        {.Name = "TlsWithDefaultAndABlank",
         .Answer = "this is no TLS\r\n",
         .Expected = "VANTIK:webservices:SSLConnectionFailure(<url>, <text>, default )",
         .To = Server::Tls,
         .CertificateFile = "default "},
        {.Name = "Timeout",
         .Answer = part,
         .Expected = "VANTIK:webservices:Timeout(<url>, 1.500, the server stopped sending, HTTPOptions.DataTimeout)",
         .Closes = false,
         .DataTimeout = 1500},
        {.Name = "TimeoutWithAFraction",
         .Answer = part,
         .Expected = "VANTIK:webservices:Timeout(<url>, 0.003, the server stopped sending, HTTPOptions.DataTimeout)",
         .Closes = false,
         .DataTimeout = 2.5},
        {.Name = "MalformedUrl",
         .Answer = "",
         .Expected = "VANTIK:webservices:MalformedURL(<url>)",
         .To = Server::UnusableHost},
        {.Name = "UnknownHost",
         .Answer = "",
         .Expected = "VANTIK:webservices:UnknownHost(<url>)",
         .To = Server::UnknownHost},
        {.Name = "FileNotFound",
         .Answer = "",
         .Expected = "VANTIK:webservices:FileNotFound(<url>)",
         .To = Server::NoHost},
        {.Name = "Consumer",
         .Answer = part,
         .Expected = "VANTIK:webservices:OperationTerminatedByConsumer(<url>)",
         .Closes = false,
         .ConsumerAborts = true},
        {.Name = "ConnectionFailed",
         .Answer = "",
         .Expected = "VANTIK:webservices:ConnectionFailed(The operation was stopped on request.)",
         .Closes = false,
         .Interrupted = true},
        {.Name = "ConnectionRefused",
         .Answer = "",
         .Expected = "VANTIK:webservices:ConnectionRefused(<url>, <text>)",
         .To = Server::Refusing},
        // What has its identifier already keeps it, and its arguments.
        {.Name = "FailureOfTheLibraryWithAnIdentifier",
         .Answer = response("this is not gzip", {"Content-Encoding: gzip"}),
         .Expected = "VANTIK:webservices:DecodingError(gzip, <text>)"},
        {.Name = "FailureOfAProviderWithAnIdentifier",
         .Answer = "",
         .Expected = "VANTIK:host:FileUnreadable(x.bin, 7)",
         .Closes = false,
         .ProviderFails = true},
    };
}

// The message in words, with libcurl's text put into the place that the pattern keeps for it.
std::string withTextsOf(std::string pattern, const std::string& url, const vantik::Message& message) {
    const auto fill = [&pattern](const std::string& mark, const std::string& text) {
        if (const std::size_t place = pattern.find(mark); place != std::string::npos) {
            pattern.replace(place, mark.size(), text);
        }
    };
    const std::size_t mark = pattern.find("<text>");
    if (mark != std::string::npos) {
        const auto index =
            static_cast<std::size_t>(std::count(pattern.begin(), pattern.begin() + static_cast<long>(mark), ','));
        if (index < message.Arguments.size() && std::holds_alternative<std::string>(message.Arguments[index])) {
            const std::string text = std::get<std::string>(message.Arguments[index]);
            EXPECT_FALSE(text.empty());
            EXPECT_NE(text, url);
            fill("<text>", text);
        }
    }
    fill("<url>", url);
    return pattern;
}

class Translation : public HostFixture, public ::testing::WithParamInterface<Row> {
protected:
    std::string urlFor(const Row& row) {
        switch (row.To) {
        case Server::Refusing:
            return Refusing.emplace().url("/");
        case Server::UnknownHost:
            return "http://no-such-host.invalid/"; // reserved: never in use anywhere
        case Server::NoHost:
            return "http:///path";
        case Server::UnusableHost:
            return "http://[v7.of-the-future]/"; // an address by the grammar, and none that libcurl knows
        case Server::Tls:
            return "https://" + serve({step::send(row.Answer), step::awaitPeerEnd()}).authority() + "/";
        case Server::Http:
            break;
        }
        return serve({step::expectHead(), step::send(row.Answer), row.Closes ? step::close() : step::awaitPeerEnd()})
            .url("/");
    }

    std::optional<RefusingPort> Refusing;
};

TEST_P(Translation, GivesIdentifierAndArguments) {
    const Row& row = GetParam();
    const ScriptedConsumer consumer = makeScriptedConsumer(host());
    const ScriptedProvider provider = makeScriptedProvider(host());
    consumer->OnPut = [](int, const std::string&) { return Array(); };
    provider->OnRead = [](int, std::uint64_t) -> Array {
        throw vantik::Failure({"VANTIK:host", "FileUnreadable", {std::string("x.bin"), std::int64_t{7}}, "unreadable"});
    };
    const Object connection = makeAdapter(row.OptionsMode);
    const std::string url = urlFor(row);
    connection.set("URL", url);
    connection.set("CertificateFilename", row.CertificateFile);
    connection.set("TimeoutInMilliseconds", Array::doubles({60000, 60000, row.DataTimeout == 0 ? 60000.0 : 2000.0}));
    const vantik::Message message = failureOf([&] {
        connection.call("openConnection");
        if (row.DataTimeout != 0) { // behind the open it only changes what is told
            connection.set("TimeoutInMilliseconds", Array::doubles({60000, 60000, row.DataTimeout}));
        }
        if (row.ConsumerAborts) {
            connection.set("Consumer", consumer);
        }
        if (row.ProviderFails) {
            connection.set("RequestMethod", "PUT");
            connection.set("Provider", provider);
        }
        if (row.Interrupted) {
            host().interrupt();
        }
        if (row.How == Copy::FullDisk) {
            connection.call("copyContentToFile", {"/dev/full"});
        } else {
            receiveBytes(connection);
        }
    });
    EXPECT_EQ(describe(message), withTextsOf(row.Expected, connection.get("URL").text(), message));
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(Rows, Translation, ::testing::ValuesIn(rows()),
                         [](const auto& info) { return std::string(info.param.Name); });

} // namespace
