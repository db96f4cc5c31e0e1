#include "cli/exchange/Exchange.h"

#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/options/RefusedUrl.h"
#include "cli/text/NumberText.h"
#include "cli/text/UrlText.h"

#include <span>
#include <utility>

namespace netrove::cli {

namespace {

std::string textOf(const vantik::Array& value) {
    return value.empty() ? std::string() : value.text();
}

// The warning has a length of -1 if none was announced, and 0 if none is known because the head was cut off. Neither
// says anything to a person.
vantik::Message worded(vantik::Message partial) {
    if (partial.Arguments.size() > 2 && (partial.Arguments[1] == vantik::MessageArgument("-1") ||
                                         partial.Arguments[1] == vantik::MessageArgument("0"))) {
        partial.Text = "The response is incomplete: it was cut off after " +
                       std::get<std::string>(partial.Arguments[0]) + " bytes of content. " +
                       std::get<std::string>(partial.Arguments[2]);
    }
    return partial;
}

} // namespace

const Field* Response::field(std::string_view name) const {
    for (const Field& field : Fields) {
        if (equalsIgnoringCase(field.Name, name)) {
            return &field;
        }
    }
    return nullptr;
}

std::string Response::head() const {
    std::string text = Version + " " + std::to_string(Status) + (Reason.empty() ? "" : " " + Reason) + "\r\n";
    for (const Field& field : Fields) {
        text += field.Name + ": " + field.Value + "\r\n";
    }
    return text + "\r\n";
}

vantik::Message Response::statusError() const {
    return cliMessage(failure::kStatusError, {std::int64_t{Status}, Reason, Url},
                      "the server answered " + std::to_string(Status) + (Reason.empty() ? "" : " " + Reason) + " for " +
                          Url);
}

// We know more about a failure of our own objects than the library makes of it.
template <class Operation>
auto Exchange::guarded(Operation operation, const BodySink* sink) {
    try {
        return operation();
    } catch (const vantik::Failure&) {
        if (Source && Source->failure()) {
            throw vantik::Failure(*Source->failure());
        }
        if (sink != nullptr && sink->failure()) {
            throw vantik::Failure(*sink->failure());
        }
        throw;
    }
}

Exchange::Exchange(Session& session, const Settings& settings, const Console& console)
    : TheSession(session), TheSettings(settings) {
    if (!settings.StreamFile.empty()) {
        Source = std::make_unique<BodySource>(settings.StreamFile, session.Deadline);
        if (Source->length() && !settings.Chunked) {
            Source->promiseLength();
        }
        UploadMeter =
            std::make_unique<ProgressMeter>("sent", settings.Progress.value_or(false), console.errIsTerminal());
        UploadMeter->expect(Source->length());
        Source->onRead([this](std::uint64_t given) { UploadMeter->update(given); });
        Provider = makeProvider(session.Host, Source->provider());
    } else if (!settings.BodyFile.empty()) {
        Body = readWhole(settings.BodyFile, session.Deadline);
    } else {
        Body = settings.BodyText;
    }
}

Exchange::~Exchange() = default;

void Exchange::checkStop() {
    if (signalSeen() != 0 || TheSession.timeIsOver()) {
        throw vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
    }
}

void Exchange::requireWhole() const {
    if (TheSession.Partial) {
        throw vantik::Failure(worded(*TheSession.Partial));
    }
}

void Exchange::invoke(std::string_view method, std::initializer_list<vantik::Array> arguments) {
    TheSession.Connection.call(method, std::span<const vantik::Array>(arguments.begin(), arguments.size()), 0);
}

Response Exchange::send() {
    Request request{TheSettings.Url,           TheSettings.effectiveMethod(), TheSettings.Fields,
                    TheSettings.RemovedFields, TheSettings.hasBody(),         true};
    const int limit = TheSettings.redirectLimit();
    for (int followed = 0;; ++followed) {
        checkStop();
        TheSession.Partial.reset();
        Response response = guarded([&] {
            return maskingRefused(request.Url, [&] {
                prepare(request);
                return readHead(request);
            });
        });
        response.Redirects = followed;
        const Field* location = response.field("Location");
        if (limit == 0 || !isRedirect(response.Status) || location == nullptr) {
            return response;
        }
        requireWhole(); // the Location in a head that was cut off may be incomplete
        const std::string target = textOf(TheSession.Connection.get("RedirectURL"));
        if (target.empty()) {
            const std::string shown = maskRefusedUrl(location->Value);
            fail(failure::kRedirectRefused, {shown},
                 shown.empty() ? "the server redirects, but its Location is empty"
                               : "the server redirects to what is not a valid URL: " + shown);
        }
        if (followed == limit) {
            fail(failure::kTooManyRedirects, {std::int64_t{limit}, target},
                 "more than " + std::to_string(limit) + " redirects, the next to " + target);
        }
        Redirected = true;
        request = followRedirect(request, response.Status, target);
        close();
    }
}

Response Exchange::readHead(const Request& request) {
    // Sends first: the status line's version is that of the request as sent, and the class takes it before it sends.
    TheSession.Connection.get("ResponseCode");
    const std::vector<vantik::Array> line =
        TheSession.Connection.call("getStatusLine", std::span<const vantik::Array>(), 3);
    if (UploadMeter && request.Body) {
        UploadMeter->finish();
    }
    Response response;
    response.Url = request.Url;
    response.Method = request.Method;
    response.Version = textOf(line.at(0));
    response.Status = static_cast<int>(line.at(1).number());
    response.Reason = textOf(line.at(2));
    const vantik::Array fields = TheSession.Connection.call("getResponseFields");
    for (std::size_t i = 0; i < fields.size(); ++i) {
        response.Fields.push_back({textOf(fields.field("Name", i)), textOf(fields.field("Value", i))});
    }
    return response;
}

std::optional<std::uint64_t> Exchange::announcedLength(const Response& response) const {
    if (equalsIgnoringCase(response.Method, "HEAD") || response.Status == 204 || response.Status == 304) {
        return 0;
    }
    const Field* encoding = response.field("Content-Encoding");
    const bool decoded = TheSettings.Decode && encoding != nullptr && !equalsIgnoringCase(encoding->Value, "identity");
    const Field* length = response.field("Content-Length");
    if (decoded || length == nullptr || response.field("Transfer-Encoding") != nullptr) {
        return std::nullopt;
    }
    return wholeNumber(length->Value);
}

std::uint64_t Exchange::receive(BodySink& sink, ProgressMeter& meter) {
    sink.onWrite([&](std::uint64_t taken) { meter.update(taken); });
    guarded(
        [&] {
            TheSession.Connection.set("Consumer", makeConsumer(TheSession.Host, sink.consumer()));
            TheSession.Connection.call("copyContentToByteArray", {vantik::Array(false)});
        },
        &sink);
    return sink.taken();
}

void Exchange::finish() {
    close();
    requireWhole();
}

void Exchange::close() {
    if (TheSession.Connection) {
        invoke("closeConnection");
    }
}

} // namespace netrove::cli
