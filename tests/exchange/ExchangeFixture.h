// For tests that play whole exchanges through the class: scripts and requests that come up again and again, failures as
// one line each, and a check of a copy that has to be refused.
#pragma once

#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/ProcessOutputCapture.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/WireText.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace testsupport {

using vantik::Array;
using vantik::Object;
using Texts = std::vector<std::string>;

// The beginning of an answer whose content is 9 bytes long.
inline constexpr const char* kPart = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart";

inline Script operator+(Script first, const Script& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}
inline Script answers(const std::string& answer) {
    return {step::expectHead(), step::send(answer)};
}
// A request whose content comes in chunks, asked for where the head wants that.
inline Script takes(const std::string& answer) {
    return {step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(answer)};
}
// Silent after the beginning of an answer.
inline Script breaksOff(const std::string& beginning) {
    return {step::expectHead(), step::send(beginning), step::awaitPeerEnd()};
}

inline const std::string kChallenge = response(
    "", {"WWW-Authenticate: Digest realm=\"r\", nonce=\"abc\", qop=\"auth\", algorithm=MD5"}, "401 Unauthorized");

// An upload that is refused first, so that libcurl sends its content again with a login. It may close the connection
// after the challenge, since content was sent on it, or go on using it. The steps of `beforeTheChallenge` come once the
// content is there.
inline std::vector<Script> challengedUpload(const Step& content, const Script& beforeTheChallenge = {}) {
    const Script whole{step::expectHead(), step::continueIfExpected(), content};
    const Script taken = whole + Script{step::send(response("taken"))};
    return {whole + beforeTheChallenge + Script{step::send(kChallenge)} + taken, taken};
}

// Content of requests that came whole, on all connections.
inline Texts allBodies(const ScriptedServer& server) {
    Texts bodies;
    for (std::size_t index = 0; index < server.connectionCount(); ++index) {
        const Texts of = server.record(index).Bodies;
        bodies.insert(bodies.end(), of.begin(), of.end());
    }
    return bodies;
}

// Names of parameterized tests: the Name of a row, or those of all parts of a combination.
inline std::string nameOf(Pace pace) {
    return pace == Pace::Whole ? "Whole" : "InSingleBytes";
}
template <class Row>
auto nameOf(const Row& row) -> decltype(std::string(row.Name)) {
    return row.Name;
}
template <class First, class... Others>
std::string nameOf(const std::tuple<First, Others...>& parts) {
    return std::apply(
        [](const First& first, const Others&... others) { return (nameOf(first) + ... + ('_' + nameOf(others))); },
        parts);
}
inline constexpr auto kRowName = [](const auto& info) { return nameOf(info.param); };

inline constexpr const char* kOnlyOneTransfer = "VANTIK:http:OnlyOneTransferAtATime()";
inline constexpr const char* kStopped =
    "VANTIK:webservices:ConnectionFailed(The operation was stopped on request.)"; // while sending
inline constexpr const char* kStillOpen =
    "VANTIK:webservices:InternalError(resetHandles() called when connection is open)";
inline constexpr const char* kOpenedAgain =
    "VANTIK:webservices:InternalError(The connection was opened again before the last response was copied. Close it "
    "first.)";
inline constexpr const char* kUploadBroken =
    "VANTIK:webservices:InternalError(The upload was broken off before its end, so there is no response to copy. Close "
    "the connection and open it again.)";
inline constexpr const char* kTransferFailed =
    "VANTIK:webservices:InternalError(The transfer has failed, so there is nothing to copy. Close the connection and "
    "open it again.)";
inline constexpr const char* kCopiedAlready =
    "VANTIK:webservices:InternalError(The content of this response has been copied already, in whole or in part, and "
    "comes only once. Close the connection and open it again.)";

// Whatever a test does, at its end the scope has to be good for another exchange, and nothing may have come on the
// process's standard output.
class ExchangeFixture : public HostFixture {
protected:
    ~ExchangeFixture() override;
    void TearDown() override;

    // What the caller of an action sees: "nothing", "interrupt by the host", "interrupt by the program", a failure's
    // identifier with its arguments, or the words of an exception of the program's own.
    static std::string outcomeOf(const std::function<void()>& action);
    // The same without the arguments.
    static std::string keyOf(const std::function<void()>& action);

    // A new object with its URL set, not opened.
    Object makeFor(const std::string& url, bool optionsMode = true);
    // The same opened. The fixture holds it, and closes it before it opens another one and at the end of the test. Each
    // time the scope has to be good for a plain exchange then, so tests go through their rows with this alone.
    Object open(const std::string& url, bool optionsMode = true);
    // The same for a PUT of a byte array or of a provider's content, which goes out at once, in chunks.
    Object openUpload(const std::string& url, const Array& content);
    static void prepareUpload(const Object& connection, const Array& content);

    // Through a proxy on this machine.
    static void openThroughProxy(const Object& connection, std::uint16_t port);
    // Basic alone goes out with the first request. With several schemes the content goes out before libcurl knows that
    // it needs a login, and again with one.
    static void setLogin(const Object& connection, const char* username, const char* password,
                         std::initializer_list<std::string_view> schemes = {"Basic"});
    static void copyToConsumer(const Object& connection) { connection.call("copyContentToByteArray", {false}); }

    // Copies into the byte array, into a file and into a consumer are each refused with this failure: the file keeps
    // what it holds, and the consumer is not even started.
    void expectCopyRefused(const Object& connection, const std::string& failure);

    // Whatever has become of its exchange, after a close the same object is good for a plain one with another server.
    void expectObjectUsable(const Object& connection);

    TemporaryFolder Folder;

private:
    void closeOpened();

    std::vector<Object> Opened;
    ProcessOutputCapture Output;
};

// The next piece of what the provider was given, for tests with a hook in front of it.
inline Array nextPiece(const ScriptedProvider& provider, std::uint64_t wanted) {
    const std::string piece = provider->Content.substr(provider->Position, wanted);
    provider->Position += piece.size();
    return Array::bytes(piece);
}

// Has taken all of a piece.
inline Array allOf(const std::string& piece) {
    return static_cast<double>(piece.size());
}

} // namespace testsupport
