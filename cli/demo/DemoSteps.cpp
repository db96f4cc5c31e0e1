#include "cli/demo/DemoSteps.h"

#include "cli/demo/DemoContent.h"
#include "cli/terminal/Progress.h"
#include "vantik/HostClass.h"

#include <netrove/text.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace netrove::cli {

namespace {

constexpr std::size_t kUploadSize = 300'000;
constexpr std::size_t kTraceLines = 12;

std::string pattern(std::size_t size) {
    std::string bytes;
    bytes.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes += patternByte(i);
    }
    return bytes;
}

// Text that a server sent, without its line end.
std::string shown(const vantik::Array& bytes) {
    const std::string_view text = bytes.byteText();
    return printable(text.substr(0, text.find_last_not_of('\n') + 1));
}

std::string statusOf(const vantik::Object& connection) {
    const auto line = connection.call("getStatusLine", std::span<const vantik::Array>(), 3);
    return std::to_string(static_cast<int>(line.at(1).number())) + " " + line.at(2).text();
}

// Whatever is written to std::cout meanwhile.
class CapturedTrace {
public:
    CapturedTrace() : Previous(std::cout.rdbuf(Text.rdbuf())) {}
    ~CapturedTrace() { std::cout.rdbuf(Previous); }
    CapturedTrace(const CapturedTrace&) = delete;
    CapturedTrace& operator=(const CapturedTrace&) = delete;
    std::string text() const { return Text.str(); }

private:
    std::ostringstream Text;
    std::streambuf* Previous;
};

void getIntoArray(DemoStage& stage) {
    const std::string url = stage.Server.url("/hello");
    const vantik::Object& connection = stage.open(url);
    const vantik::Array bytes = connection.call("copyContentToByteArray", {vantik::Array(true)});
    const std::string status = statusOf(connection);
    stage.invoke("closeConnection");
    stage.say("GET " + url);
    stage.say(status + ", a " + bytes.className() + " array of " + std::to_string(bytes.size()) +
              " bytes: " + shown(bytes));
    stage.expect(status == "200 OK", "the status should have been 200 OK");
    stage.expect(bytes.byteText() == "Hello from the loopback interface.\n", "the text should have been the server's");
}

void saveWithProgress(DemoStage& stage) {
    const std::filesystem::path target = stage.Folder / "saved.bin";
    const vantik::Object& connection = stage.open(stage.Server.url("/file"));
    const std::filesystem::path part = target.string() + ".part"; // in a folder of our own
    ProgressMeter meter("   received", stage.TheConsole.errIsTerminal(), true);
    meter.expect(kDemoFileSize);
    std::size_t reports = 0;
    connection.set("ProgressReporter", makeProgressReporter(stage.TheSession.Host, [&](std::uint64_t bytes) {
                       ++reports;
                       meter.update(bytes);
                       return true;
                   }));
    stage.invoke("copyContentToFile", {vantik::Array(part.string())});
    stage.expect(!std::filesystem::exists(target), "the file should not have its name before it is complete");
    meter.finish();
    stage.invoke("closeConnection");
    std::filesystem::rename(part, target);
    std::ifstream stream(target, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    stage.say(target.filename().string() + ": " + sizeText(content.str().size()) + ", last report " +
              std::to_string(meter.bytes()) + " bytes");
    stage.expect(reports > 0 && meter.bytes() == kDemoFileSize, "the reporter should have seen every byte");
    stage.expect(content.str() == pattern(kDemoFileSize), "the file should hold what the server sent");
}

void uploadFromProvider(DemoStage& stage) {
    const std::string content = pattern(kUploadSize);
    const vantik::Object& connection = stage.open(stage.Server.url("/upload"), "PUT");
    std::size_t given = 0;
    std::size_t calls = 0;
    connection.set("Provider",
                   makeProvider(stage.TheSession.Host, {[&] { given = 0; },
                                                        [&](std::uint64_t wanted) {
                                                            const auto count =
                                                                std::min<std::size_t>(static_cast<std::size_t>(wanted),
                                                                                      content.size() - given);
                                                            const std::string_view piece(content.data() + given, count);
                                                            given += count;
                                                            ++calls;
                                                            return vantik::Array::bytes(piece);
                                                        }}));
    const std::vector<std::vector<vantik::Array>> fields = {
        {vantik::Array("Content-Length"), vantik::Array(std::to_string(kUploadSize))},
        {vantik::Array("Expect"), vantik::Array("")}};
    stage.invoke("setFields", {vantik::Array::structures({"Name", "Value"}, fields)});
    const std::string answer(connection.call("copyContentToByteArray", {vantik::Array(true)}).byteText());
    stage.invoke("closeConnection");
    stage.say("The provider was asked " + std::to_string(calls) + " times, for " + std::to_string(given) + " bytes.");
    stage.say("The server received (bytes, SHA-256): " + printable(answer));
    stage.expect(answer == std::to_string(kUploadSize) + " " + digestOf(content),
                 "the server should have received exactly what the provider gave");
}

void downloadIntoConsumer(DemoStage& stage) {
    const vantik::Object& connection = stage.open(stage.Server.url("/file"));
    std::string received;
    std::size_t largest = 0;
    int started = 0;
    int closed = 0;
    vantik::ContentConsumer consumer;
    consumer.start = [&]() -> std::optional<double> {
        ++started;
        return 4096.0;
    };
    consumer.write = [&](std::span<const std::byte> piece) -> std::optional<double> {
        received.append(reinterpret_cast<const char*>(piece.data()), piece.size());
        largest = std::max(largest, piece.size());
        return static_cast<double>(piece.size());
    };
    consumer.close = [&] { ++closed; };
    consumer.interrupted = [] {};
    consumer.savedOnFailure = [](std::span<const std::byte>) {};
    connection.set("Consumer", makeConsumer(stage.TheSession.Host, consumer));
    connection.call("copyContentToByteArray", {vantik::Array(false)});
    stage.invoke("closeConnection");
    stage.say("The consumer took " + std::to_string(received.size()) + " bytes in pieces of at most " +
              std::to_string(largest) + ", as it had asked for.");
    stage.expect(started == 1 && closed == 1, "the consumer should have been started and closed once");
    stage.expect(largest <= 4096, "no piece should have been larger than asked for");
    stage.expect(received == pattern(kDemoFileSize), "the consumer should have taken what the server sent");
}

void notFoundInBothModes(DemoStage& stage) {
    const vantik::Object& connection = stage.open(stage.Server.url("/missing"));
    const vantik::Array body = connection.call("copyContentToByteArray", {vantik::Array(true)});
    const std::string status = statusOf(connection);
    stage.invoke("closeConnection");
    stage.say("Newer interface: " + status + ", and the content: " + shown(body));
    stage.expect(status == "404 Not Found" && !body.empty(), "the newer interface should deliver the response");

    stage.open(stage.Server.url("/missing"), "GET", false);
    const vantik::Message failure =
        stage.failureOf([&] { connection.call("copyContentToByteArray", {vantik::Array(true)}); },
                        "the older interface should fail for a 404");
    stage.invoke("closeConnection");
    stage.say("Older interface: " + failure.identifier() + ": " + printable(failure.Text));
    stage.expect(failure.identifier() == "VANTIK:webservices:StatusError" && !failure.Arguments.empty() &&
                     failure.Arguments.front() == vantik::MessageArgument(std::int64_t{404}),
                 "the failure should be a StatusError for 404");
}

void refusedConnection(DemoStage& stage) {
    const std::unique_ptr<DemoPeer> peer = lateCalls<DemoCalls>().closedPort();
    const vantik::Object& connection = stage.open("http://127.0.0.1:" + std::to_string(peer->port()) + "/");
    const vantik::Message failure =
        stage.failureOf([&] { connection.call("copyContentToByteArray", {vantik::Array(true)}); },
                        "a port on which nobody listens should refuse");
    stage.invoke("closeConnection");
    stage.say(failure.identifier() + ": " + printable(failure.Text));
    stage.expect(failure.identifier() == "VANTIK:webservices:ConnectionRefused",
                 "the failure should be ConnectionRefused");
}

void timeout(DemoStage& stage) {
    const vantik::Object& connection = stage.open(stage.Server.url("/silent"));
    const vantik::Message failure =
        stage.failureOf([&] { connection.call("copyContentToByteArray", {vantik::Array(true)}); },
                        "a silent server should be given up");
    stage.invoke("closeConnection");
    stage.say(failure.identifier() + ": " + printable(failure.Text));
    stage.expect(failure.identifier() == "VANTIK:webservices:Timeout", "the failure should be a Timeout");
}

void interruptedTransfer(DemoStage& stage) {
    const vantik::Object& connection = stage.open(stage.Server.url("/half"));
    std::size_t taken = 0;
    bool told = false;
    vantik::ContentConsumer consumer;
    consumer.start = []() -> std::optional<double> { return std::nullopt; };
    consumer.write = [&](std::span<const std::byte> piece) -> std::optional<double> {
        if (taken == 0) {
            stage.TheSession.Host.interrupt(); // as a signal handler would
        }
        taken += piece.size();
        return static_cast<double>(piece.size());
    };
    consumer.close = [] {};
    consumer.interrupted = [&] { told = true; };
    consumer.savedOnFailure = [](std::span<const std::byte>) {};
    connection.set("Consumer", makeConsumer(stage.TheSession.Host, consumer));
    bool interrupted = false;
    try {
        connection.call("copyContentToByteArray", {vantik::Array(false)});
    } catch (const vantik::Interrupted&) {
        if (signalSeen() != 0) {
            throw;
        }
        interrupted = true;
    }
    stage.invoke("closeConnection");
    stage.expect(interrupted && told, "the transfer should have been interrupted, and the consumer notified");
    stage.expect(taken > 0 && taken < kDemoFileSize, "a part of the content should have arrived");
    stage.say("The transfer was interrupted, and the consumer was notified.");

    stage.open(stage.Server.url("/hello"));
    const vantik::Array bytes = connection.call("copyContentToByteArray", {vantik::Array(true)});
    stage.invoke("closeConnection");
    stage.say("The next request in the same host: " + shown(bytes));
    stage.expect(bytes.byteText() == "Hello from the loopback interface.\n", "the next request should work");
}

void wireTrace(DemoStage& stage) {
    std::string text;
    {
        const CapturedTrace capture;
        const vantik::Object& connection = stage.open(stage.Server.url("/hello"));
        connection.set("Debug", vantik::Array(std::int32_t{1}));
        connection.call("copyContentToByteArray", {vantik::Array(true)});
        connection.set("Debug", vantik::Array(std::int32_t{0}));
        stage.invoke("closeConnection");
        text = capture.text();
    }
    std::replace(text.begin(), text.end(), '\r', '\n'); // incoming heads are traced with only their CR
    std::istringstream lines(text);
    std::size_t shown = 0;
    for (std::string line; std::getline(lines, line) && shown < kTraceLines;) {
        // What libcurl says about itself differs from run to run.
        if (printable(line).find_first_not_of(' ') == std::string::npos || line.find(" INFO ") != std::string::npos) {
            continue;
        }
        stage.say("| " + printable(line));
        ++shown;
    }
    stage.expect(text.find("GET /hello HTTP/1.1<CRLF>") != std::string::npos, "the request line should be traced");
    stage.expect(text.find("IN  HDR: HTTP/1.1 200 OK") != std::string::npos, "the status line should be traced");
}

constexpr DemoStep kSteps[] = {
    {"A GET into a byte array", "The content comes back as one uint8 array.", getIntoArray},
    {"A save with progress",
     "copyContentToFile writes; a ProgressReporter counts the bytes; the file gets its name last.", saveWithProgress},
    {"An upload streamed from a provider", "The class asks the provider for the next piece when it can send it.",
     uploadFromProvider},
    {"A download into a consumer", "The class hands over each piece as it arrives; nothing is kept.",
     downloadIntoConsumer},
    {"A 404 in both modes", "A response for the newer interface, a failure for the older one.", notFoundInBothModes},
    {"A refused connection", "Nobody listens on that port.", refusedConnection},
    {"A timeout", "The server accepts and then says nothing for longer than ResponseTimeout, 300 ms.", timeout},
    {"An interrupted transfer", "The interrupt comes while content arrives; the host stays usable.",
     interruptedTransfer},
    {"The wire trace", "Debug 1 shows heads as they are sent and received; content only as counts.", wireTrace},
};

} // namespace

void DemoStage::say(std::string_view text) const {
    TheConsole.print("   " + std::string(text) + "\n");
}

const vantik::Object& DemoStage::open(const std::string& url, std::string_view method, bool newer) {
    TheSession.Connection = vantik::Object();
    TheSession.Connection = TheSession.Host.create(vantik::kHttpConnectionClass, {vantik::Array(newer)});
    TheSession.Connection.set("URL", vantik::Array(url));
    TheSession.Connection.set("CertificateFilename", vantik::Array("default"));
    TheSession.Connection.set("TimeoutInMilliseconds",
                              vantik::Array::doubles({5000.0, url.ends_with("/silent") ? 300.0 : 20'000.0, 20'000.0}));
    invoke("openConnection");
    TheSession.Connection.set("RequestMethod", vantik::Array(method));
    return TheSession.Connection;
}

void DemoStage::invoke(std::string_view method, std::initializer_list<vantik::Array> arguments) {
    TheSession.Connection.call(method, std::span<const vantik::Array>(arguments.begin(), arguments.size()), 0);
}

std::span<const DemoStep> demoSteps() {
    return kSteps;
}

} // namespace netrove::cli
