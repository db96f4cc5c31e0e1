#include "client/exchange/FailureTranslation.h"
#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"
#include "client/text/Ascii.h"

#include <netrove/testing.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace netrove::testing {

namespace {

constexpr std::size_t kPiece = std::size_t{16} << 10; // as over the network

std::string wholeContent(const Body& body) {
    std::string content;
    if (!body) {
        return content;
    }
    const auto reader = body.open();
    std::vector<std::byte> room(kPiece);
    while (const std::size_t count = reader->read(room)) {
        content.append(reinterpret_cast<const char*>(room.data()), count);
    }
    return content;
}

// The failure as the network would bring it.
[[noreturn]] void failWith(Fault fault, const Request& request, int status) {
    const std::string catalogue = "VANTIK:webservices";
    const Circumstances known{
        .Url = request.url, .Sent = fault != Fault::UnknownHost && fault != Fault::Refused, .Status = status};
    vantik::Message message{catalogue, "ConnectionRefused", {request.url, std::string()}, {}};
    switch (fault) {
    case Fault::UnknownHost:
        message = {catalogue, "UnknownHost", {request.url}, {}};
        break;
    case Fault::Refused:
        message.Arguments[1] = "Couldn't connect to server";
        break;
    case Fault::Timeout:
        message = {catalogue,
                   "Timeout",
                   {request.url, std::to_string(std::chrono::duration<double>(*request.limits.response).count()),
                    "the server sent no response", "HTTPOptions.ResponseTimeout"},
                   {}};
        break;
    default:
        message.Arguments[1] = "Recv failure: Connection reset by peer";
        break;
    }
    const Error error = translated(message, known);
    throw error.with(Response{.url = request.url}, known.Sent);
}

} // namespace

struct Script::State {
    std::mutex Guard;
    std::deque<Answer> Answers;
    std::vector<SentRequest> Requests;

    Answer next(const Request& request) {
        SentRequest sent{request.method, request.url, request.fields, wholeContent(request.body)};
        const std::lock_guard lock(Guard);
        Requests.push_back(std::move(sent));
        const auto found = std::find_if(Answers.begin(), Answers.end(), [&](const Answer& answer) {
            return answer.url.empty() || answer.url == request.url;
        });
        if (found == Answers.end()) {
            failUsage("the script has no answer for " + request.method + " " + request.url);
        }
        Answer answer = std::move(*found);
        Answers.erase(found);
        return answer;
    }
};

namespace {

class ScriptedTransport final : public Transport {
public:
    explicit ScriptedTransport(std::function<Answer(const Request&)> next) : Next(std::move(next)) {}

    void exchange(const Request& request, bool, const HeadHandler& onHead) override {
        checkStop(request);
        const Answer answer = Next(request);
        if (answer.fault != Fault::None && answer.fault != Fault::Short) {
            failWith(answer.fault, request, 0);
        }
        Head head{.url = request.url, .version = "HTTP/1.1", .status = answer.status, .fields = answer.fields};
        if (!head.fields.contains("Content-Length")) {
            const std::size_t more = answer.fault == Fault::Short ? 1 : 0;
            head.fields.add("Content-Length", std::to_string(answer.content.size() + more));
        }
        if (const auto location = head.fields.find("Location")) {
            head.redirectUrl = resolvedUrl(request.url, *location);
        }
        const Taker taker = onHead(head);
        std::string_view left = equalsIgnoringCase(request.method, "HEAD") ? std::string_view() : answer.content;
        while (taker && !left.empty()) {
            checkStop(request);
            const std::string_view piece = left.substr(0, kPiece);
            if (!taker(std::as_bytes(std::span(piece)))) {
                return;
            }
            left.remove_prefix(piece.size());
        }
        if (taker && answer.fault == Fault::Short) {
            const std::string came = std::to_string(answer.content.size());
            const std::string announced = head.fields["Content-Length"];
            throw clientError(failure::kIncomplete, {came, announced},
                              "the content is incomplete: " + came + " of " + announced + " bytes came")
                .with(Response{.status = answer.status, .url = request.url}, true);
        }
    }

    void endAt(std::optional<std::chrono::steady_clock::time_point> time) override { End = time; }
    void interrupt() noexcept override { Stopped = true; }
    void clearInterrupt() noexcept override { Stopped = false; }

private:
    void checkStop(const Request& request) const {
        const bool over = End && std::chrono::steady_clock::now() >= *End;
        if (over || Stopped) {
            throw translated({}, {.Url = request.url, .TotalTimeOver = over, .Interrupted = true});
        }
    }

    std::function<Answer(const Request&)> Next;
    std::optional<std::chrono::steady_clock::time_point> End;
    std::atomic<bool> Stopped = false;
};

} // namespace

Script::Script(std::initializer_list<Answer> answers) : Shared(std::make_shared<State>()) {
    Shared->Answers.assign(answers);
}

Script::~Script() = default;

void Script::add(Answer answer) {
    const std::lock_guard lock(Shared->Guard);
    Shared->Answers.push_back(std::move(answer));
}

std::unique_ptr<Transport> Script::transport() const {
    return std::make_unique<ScriptedTransport>(
        [state = Shared](const Request& request) { return state->next(request); });
}

std::vector<SentRequest> Script::requests() const {
    const std::lock_guard lock(Shared->Guard);
    return Shared->Requests;
}

std::size_t Script::left() const {
    const std::lock_guard lock(Shared->Guard);
    return Shared->Answers.size();
}

} // namespace netrove::testing
