// The charset of a request's Content-Type, in which the older interface sends its text: the first line is the value of
// the field, the rest the text. What is sent is as long as the head says, text without a charset is sent as it is, and
// the scope goes on.
#include "fuzz/FuzzInput.h"
#include "tests/support/server/PeerExchange.h"
#include "tests/support/server/WireText.h"

#include <algorithm>
#include <string>

using testsupport::ScriptedPeer;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static testsupport::PeerStage stage;
    const std::string_view text = textOf(data, size);
    const std::size_t end = std::min(text.find('\n'), text.size());
    testsupport::PeerRequest request;
    request.Method = "PUT";
    request.OptionsMode = false;
    request.ContentType = text.substr(0, end);
    request.Upload = text.substr(std::min(end + 1, text.size()));
    {
        ScriptedPeer peer({});
        peer.answerWith("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
        const testsupport::PeerOutcome outcome = stage.exchange(request);
        if (outcome.isSuccess()) {
            require(outcome.Content == "good", "the answer is received");
            const std::string sent = peer.lastExchange().Received;
            const std::size_t body = sent.find("\r\n\r\n") + 4;
            const bool oneLine = request.ContentType.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos;
            if (oneLine) {
                require(testsupport::fieldValue(sent.substr(0, body), "Content-Length") ==
                            std::to_string(sent.size() - body),
                        "the head states the length of the content");
            }
            if (oneLine && request.ContentType.find('=') == std::string::npos) {
                require(sent.substr(body) == request.Upload, "text without a charset is sent as it is");
            }
        }
        require(testsupport::plainExchangeComplaint(stage, peer).empty(), "the scope goes on");
    }
    stage.renewHandles();
    return 0;
}
