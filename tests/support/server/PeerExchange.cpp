#include "tests/support/server/PeerExchange.h"

#include "hostclass/ModuleEntry.h"
#include "vantik/HostClass.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace testsupport {
namespace {

using vantik::Array;
using vantik::Object;

// As the class splits them. Text that is not ASCII has been converted, so it is not compared.
bool sameFields(const std::vector<std::string>& head, const std::vector<vantik::HttpField>& fields) {
    return std::equal(head.begin() + 1, head.end(), fields.begin(), fields.end(),
                      [](const std::string& line, const vantik::HttpField& field) {
                          const bool plain =
                              std::all_of(line.begin(), line.end(), [](char unit) { return unit > 0 && unit < 0x7F; });
                          return !plain || (line.starts_with(field.Name) && line.ends_with(field.Value));
                      });
}

// The length of what was compressed, which stands at the end of it (RFC 1952, section 2.3.1).
std::size_t lengthInGzip(std::string_view content) {
    std::size_t length = 0;
    for (const char byte : content.substr(content.size() - std::min<std::size_t>(content.size(), 4))) {
        length = length >> 8 | std::size_t{static_cast<unsigned char>(byte)} << 24;
    }
    return length;
}

// What a success lacks of what was read, or has besides.
std::string differenceFrom(const ResponseReading& reading, const PeerOutcome& outcome) {
    if (!reading.Whole) {
        return "a success without " + reading.Missing;
    }
    if (reading.Status != outcome.Status) {
        return "status " + std::to_string(outcome.Status) + " in the place of " + std::to_string(reading.Status);
    }
    if (!sameFields(reading.Head, outcome.Fields)) {
        return std::to_string(outcome.Fields.size()) + " fields that are not those of the head";
    }
    if (!reading.Coded && reading.Content != outcome.Content) {
        return "other content: " + outcome.Content;
    }
    if (reading.Gzip && reading.Content != outcome.Content && lengthInGzip(reading.Content) != outcome.Content.size()) {
        return "a success that is not as long as its gzip content says";
    }
    return {};
}

} // namespace

PeerStage::PeerStage() : File(::memfd_create("content", MFD_CLOEXEC)) {
    VKInitialize_netrove();
    Program.onWarning([this](const vantik::Message& message) {
        Partial = Partial || message.identifier() == vantik::kIncompleteContent;
    });
}

PeerOutcome PeerStage::exchange(const PeerRequest& request) {
    PeerOutcome outcome;
    Partial = false;
    try {
        const Object connection = Program.create(vantik::kHttpConnectionClass, {request.OptionsMode});
        receive(connection, request, outcome.Content);
        outcome.Status = static_cast<int>(connection.get("ResponseCode").number());
        outcome.Fields = vantik::readHttpFields(connection.call("getResponseFields"));
        connection.call("closeConnection");
    } catch (const std::exception& failure) {
        outcome.Failure = *failure.what() == '\0' ? "a failure without words" : failure.what();
    }
    outcome.Partial = Partial;
    return outcome;
}

void PeerStage::renewHandles() {
    Program.create(vantik::kHttpConnectionClass).call("closeAllConnections");
}

void PeerStage::receive(const Object& connection, const PeerRequest& request, std::string& content) {
    connection.set("URL", ScriptedPeer::kUrl);
    // libcurl counts the first by the real clock, which must not matter however slow the machine is.
    connection.set("TimeoutInMilliseconds", Array::doubles({600000, 2000, 3000, 4000}));
    connection.set("Decode", request.Decode);
    connection.set("Debug", request.Traced ? 2 : 0);
    if (request.LogsIn) {
        connection.set("Username", "user");
        connection.set("Password", "word");
        connection.call("setAuthenticationSchemes",
                        {Array::enumeration(vantik::kAuthenticationSchemeClass, {"Basic", "Digest"}), false});
    }
    connection.call("openConnection");
    connection.set("RequestMethod", request.Method);
    if (request.Method == "PUT") {
        giveUpload(connection, request);
    }
    if (request.Reports) {
        connection.set("ProgressReporter", vantik::makeProgressReporter(Program, [](std::uint64_t) { return true; }));
    }
    if (request.StatusFirst) {
        connection.call("getStatusLine", std::span<const Array>(), 3);
    }
    switch (request.To) {
    case Target::Memory:
        content = connection.call("copyContentToByteArray", {true}).byteText();
        return;
    case Target::Consumer:
        connection.set("Consumer", makeConsumer(request.ConsumesSlowly, content));
        connection.call("copyContentToByteArray", {false});
        return;
    case Target::File:
        connection.call("copyContentToFile", {"/proc/self/fd/" + std::to_string(File.get())});
        content = fileContent();
        return;
    }
}

void PeerStage::giveUpload(const Object& connection, const PeerRequest& request) {
    if (!request.AwaitsContinue) {
        connection.call("setRequestProperty", {"Expect", ""});
    }
    if (!request.ContentType.empty()) {
        connection.call("setRequestProperty", {"Content-Type", request.ContentType});
    }
    if (!request.OptionsMode) {
        connection.set("PostData", request.Upload);
    } else if (request.FromProvider) {
        connection.set("Provider", makeProvider(request.Upload));
    } else {
        connection.set("Payload", Array::bytes(request.Upload));
    }
}

Object PeerStage::makeConsumer(bool slow, std::string& content) {
    vantik::ContentConsumer consumer;
    consumer.start = [slow] { return slow ? std::optional(7.0) : std::nullopt; };
    consumer.write = [&content](std::span<const std::byte> piece) {
        content += vantik::asText(piece);
        return vantik::Taken(piece.size());
    };
    return vantik::makeConsumer(Program, std::move(consumer));
}

Object PeerStage::makeProvider(const std::string& content) {
    const auto given = std::make_shared<std::size_t>(0);
    vantik::ContentProvider provider;
    provider.rewind = [given] { *given = 0; };
    provider.read = [given, content](std::uint64_t) {
        const std::string piece = content.substr(*given, 5);
        *given += piece.size();
        return Array::bytes(piece);
    };
    return vantik::makeProvider(Program, std::move(provider));
}

std::string PeerStage::fileContent() const {
    std::string content(static_cast<std::size_t>(::lseek(File.get(), 0, SEEK_END)), '\0');
    content.resize(static_cast<std::size_t>(::pread(File.get(), content.data(), content.size(), 0)));
    return content;
}

std::string complaint(const PeerRequest& request, const PeerOutcome& outcome, ScriptedPeer& peer) {
    if (peer.stuck()) {
        return "the exchange does not end";
    }
    if (!outcome.isSuccess()) {
        return {};
    }
    const ScriptedPeer::Exchange went = peer.lastExchange();
    std::string text = differenceFrom(readResponse(went.Sent, went.End, request.Method, went.Requests), outcome);
    if (!text.empty() && went.Requests > 1) {
        // libcurl drops what the peer has sent between an answer and the next request.
        const std::string_view rest = std::string_view(went.Sent).substr(went.SentBeforeLast);
        if (differenceFrom(readResponse(rest, went.End, request.Method), outcome).empty()) {
            text.clear();
        }
    }
    // libcurl 7.88 skips what it has read together with a head line that begins with a NUL; newer ones refuse it.
    return went.Sent.find(std::string_view("\n\0", 2)) == std::string::npos ? text : "";
}

std::string plainExchangeComplaint(PeerStage& stage, ScriptedPeer& peer) {
    if (peer.hasUnread()) { // libcurl 7.88 takes bytes that came unasked for the answer to the next request
        stage.renewHandles();
    }
    peer.answerWith("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
    const PeerOutcome outcome = stage.exchange({});
    return outcome.isSuccess() && outcome.Content == "good"
               ? ""
               : "the scope is not usable: " + outcome.Failure + outcome.Content;
}

} // namespace testsupport
