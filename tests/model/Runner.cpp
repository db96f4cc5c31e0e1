#include "tests/model/Runner.h"

#include "tests/model/CurlHandles.h"
#include "tests/support/host/HostFixture.h"
#include "vantik/Http.h"

#include <Poco/Base64Encoder.h>

#include <limits>
#include <sstream>

namespace model {
namespace {

// Far more than a loopback connection takes, and the silence after which a limit acts.
constexpr double kConnectLimitMs = 60000;
constexpr double kSilenceLimitMs = 40;

std::string base64(const std::string& text) {
    std::ostringstream encoded;
    Poco::Base64Encoder(encoded) << text;
    return encoded.str();
}

} // namespace

Runner::Runner(ModelServer& server, std::array<int, 2> files, std::chrono::seconds patience)
    : Server(server), Files(files), Patience(patience) {}

Runner::~Runner() = default;

std::string Runner::run(const Sequence& sequence) {
    const std::size_t arraysBefore = vantik::Host::liveArrays();
    Server.forget();
    Host.emplace();
    Host->onWarning([](const vantik::Message&) {});
    Host->treatAsFailure(vantik::kIncompleteContent);
    Host->load(testsupport::modulePath());
    Host->interruptAfter(Patience);
    for (std::size_t step = 0; step < sequence.size() && Wrong.empty(); ++step) {
        Now = "step " + std::to_string(step + 1) + ", " + describe(sequence[step]);
        apply(sequence[step]);
    }
    finish();
    for (Slot& slot : Slots) {
        slot = {};
    }
    Host.reset();
    Now = "after the end";
    if (!Server.awaitNoConnections()) {
        wrong("connections to the server are left open");
    }
    checkRequests();
    if (vantik::Host::liveArrays() != arraysBefore) {
        wrong(std::to_string(vantik::Host::liveArrays()) + " arrays live, before it were " +
              std::to_string(arraysBefore));
    }
    if (liveCurlHandles() != 0) {
        wrong(std::to_string(liveCurlHandles()) + " handles of libcurl live");
    }
    std::string text;
    for (const std::string& line : Wrong) {
        text += line + '\n';
    }
    return text;
}

Runner::Outcome Runner::attempt(const std::function<vantik::Array()>& action) {
    Outcome outcome;
    try {
        outcome.Result = action();
    } catch (const vantik::Failure& failure) {
        outcome = {true, failure.identifier(), failure.what(), std::current_exception(), {}};
    } catch (const std::exception& failure) {
        outcome = {true, "std::exception", failure.what(), std::current_exception(), {}};
    }
    return outcome;
}

Runner::Outcome Runner::call(const Slot& slot, const char* method, std::initializer_list<vantik::Array> inputs) {
    const vantik::Object connection = *slot.Object; // the slot may change meanwhile
    return attempt([&] { return connection.call(method, inputs); });
}

Runner::Outcome Runner::assign(const Slot& slot, const char* property, const vantik::Array& value) {
    return attempt([&] {
        slot.Object->set(property, value);
        return vantik::Array();
    });
}

void Runner::wrong(const std::string& what) {
    Wrong.push_back(Now + ": " + what);
}

Runner::Outcome Runner::succeeded(Outcome outcome) {
    if (outcome.Failed) {
        wrong("fails with " + outcome.Identifier + " (" + outcome.Text + ")");
    }
    return outcome;
}

Runner::Outcome Runner::failed(Outcome outcome, const std::string& identifier, const std::string& words) {
    if (!outcome.Failed || outcome.Identifier != identifier || outcome.Text.find(words) == std::string::npos) {
        wrong((outcome.Failed ? "fails with " + outcome.Identifier + " (" + outcome.Text + ")" : "succeeds") +
              " in place of failing with " + identifier + " " + words);
    }
    return outcome;
}

Runner::Outcome Runner::apply(const Command& command) {
    Slot& slot = Slots.at(command.Object);
    if (command.What == Op::Create) {
        return create(slot, command.Number == 1);
    }
    if (command.What == Op::Interrupt) {
        Host->interrupt();
        return {};
    }
    if (!slot.Object) {
        return {};
    }
    switch (command.What) {
    case Op::Destroy:
        return destroy(slot);
    case Op::SetUrl:
        return setUrl(slot, command.Answer);
    case Op::Open:
        return open(slot);
    case Op::Close:
        return close(slot);
    case Op::CloseAll:
        return closeAll(slot);
    case Op::Status:
    case Op::Copy:
    case Op::CopyToConsumer:
    case Op::Save:
        return runs(slot) ? receiveFromWithin(slot, command.What) : receive(slot, command.What);
    default:
        return set(slot, command);
    }
}

Runner::Outcome Runner::create(Slot& slot, bool older) {
    if (slot.Object) {
        return {};
    }
    std::optional<vantik::Object> made;
    const Outcome outcome = attempt([&] {
        made = Host->create(vantik::kHttpConnectionClass, {!older});
        return vantik::Array();
    });
    if (Owner) {
        return failed(outcome, kOnlyOne);
    }
    if (made) {
        slot = {};
        slot.Object = std::move(made);
        slot.Instance = "i" + std::to_string(++Created);
        slot.Older = older;
        slot.Port = indexOf(slot) % 2;
        Jar = ""; // a new object clears the cookies of the scope
    }
    return succeeded(outcome);
}

Runner::Outcome Runner::destroy(Slot& slot) {
    if (!runs(slot)) { // the running call holds its object
        if (Owner == indexOf(slot)) {
            Owner.reset();
        }
        const Slot gone = std::exchange(slot, {});
    }
    return {};
}

Runner::Outcome Runner::setUrl(Slot& slot, const Shape& shape) {
    constexpr std::array statuses{200, 404, 401, 200, 301}; // by kind; but for 401, those of the objects differ
    const int status = statuses.at(static_cast<std::size_t>(shape.What));
    slot.Path = "/" + slot.Instance + "/s" + std::to_string(++Serial);
    slot.Answer = shape;
    Server.plan(slot.Path, {.Status = status == 401 ? status : status + indexOf(slot),
                            .Size = answerSize(shape.Size),
                            .Chunked = shape.Chunked,
                            .Early = shape.Early,
                            .Cookie = shape.Cookie,
                            .Challenge = shape.What == Kind::Challenge,
                            .Location = shape.What == Kind::Redirect ? Server.url(1 - slot.Port, "/elsewhere") : "",
                            .Last = shape.Last,
                            .Part = shape.Part});
    return succeeded(assign(slot, "URL", Server.url(slot.Port, slot.Path)));
}

Runner::Outcome Runner::open(Slot& slot) {
    if (slot.Path.empty()) {
        return succeeded(call(slot, "openConnection"));
    }
    if (runs(slot)) {
        return failed(call(slot, "openConnection"), kInternalError,
                      "Opening the connection is not possible from within");
    }
    // A server that falls silent needs limits; any other one is given the time that it takes.
    slot.Limited = slot.Answer.Last == Plan::End::Silent;
    const double limit = slot.Limited ? kSilenceLimitMs : std::numeric_limits<double>::infinity();
    assign(slot, "TimeoutInMilliseconds", vantik::Array::doubles({kConnectLimitMs, limit, limit}));
    Outcome outcome = call(slot, "openConnection");
    if (Owner && Owner != indexOf(slot)) {
        return failed(outcome, kOnlyOne);
    }
    if (succeeded(outcome).Failed) {
        return outcome;
    }
    slot.OptionsKept = !Attached || Server.statusesBelow("/" + slot.Instance + "/").contains(401);
    if (slot.Now == Phase::Answered) {
        slot.Now = Phase::Reopened;
    } else if (slot.Now != Phase::Reopened && slot.Now != Phase::Spoilt) {
        slot.Now = Phase::Opened;
    }
    Owner = indexOf(slot);
    Attached = true;
    slot.OpenPath = slot.Path;
    slot.OpenAnswer = slot.Answer;
    slot.Methods = 0;
    slot.Warned = slot.Given = slot.Resumable = slot.Empty = slot.SentProvided = false;
    slot.Marker = slot.Instance + "-" + std::to_string(++Serial);
    succeeded(setFields(slot, {"X-Marker", slot.Marker}));
    return outcome;
}

Runner::Outcome Runner::close(Slot& slot) {
    const Outcome outcome = call(slot, "closeConnection");
    if (runs(slot)) {
        return failed(outcome, kInternalError, "Closing the connection is not possible from within");
    }
    if (Owner == indexOf(slot)) {
        Owner.reset();
        slot.Now = Phase::Closed;
    }
    return succeeded(outcome);
}

Runner::Outcome Runner::closeAll(const Slot& slot) {
    const Outcome outcome = call(slot, "closeAllConnections");
    if (Owner) {
        return failed(outcome, kInternalError);
    }
    Jar = "";
    Attached = false;
    return succeeded(outcome);
}

Runner::Outcome Runner::set(Slot& slot, const Command& command) {
    const std::uint8_t number = command.Number;
    const std::string content = contentOf("p" + std::to_string(++Serial), requestSize(number));
    const auto give = [&](const char* property, const vantik::Array& value) {
        return succeeded(assign(slot, property, value));
    };
    switch (command.What) {
    case Op::SetMethod:
        return setMethod(slot, number);
    case Op::SetLogin:
        return setLogin(slot, number);
    case Op::SetField:
        return setField(slot, number);
    case Op::SetPayload: {
        slot.Payload = content;
        if (slot.Older) {
            return give("PostData", slot.Payload);
        }
        const vantik::Array bytes = vantik::Array::bytes(std::string_view(slot.Payload));
        return give("Payload", number == 0 ? vantik::Array() : bytes);
    }
    case Op::SetProvider:
        if (slot.Older) {
            return {};
        }
        slot.Provider = number == 0 ? nullptr : std::make_shared<Provided>();
        if (number == 0) {
            return give("Provider", vantik::Array());
        }
        slot.Provider->Content = content;
        return give("Provider", provider(slot.Provider, command.Then));
    case Op::SetConsumer:
        slot.Consumer = number == 0 ? nullptr : std::make_shared<Consumed>();
        return give("Consumer", number == 0 ? vantik::Array() : consumer(slot.Consumer, command.Then).array());
    case Op::SetReporter:
        return give("ProgressReporter", number == 0 ? vantik::Array() : reporter(command.Then).array());
    case Op::SetLead:
        if (slot.Lead) {
            *slot.Lead += "abc";
        }
        return give("ResponsePayload", vantik::Array::bytes(std::string_view("abc")));
    default:
        return {};
    }
}

Runner::Outcome Runner::setMethod(Slot& slot, std::uint8_t method) {
    if (method == kMethodHead && (slot.Methods > 0 || slot.OptionsKept)) {
        return {}; // after another name libcurl sends that name, and yet expects no content
    }
    const Outcome outcome = assign(slot, "RequestMethod", methodName(slot, method));
    if (runs(slot)) {
        return failed(outcome, kInternalError, "Setting the request method is not possible from within");
    }
    ++slot.Methods;
    slot.Method = slot.LastMethod = method;
    return succeeded(outcome);
}

std::string Runner::methodName(const Slot& slot, std::uint8_t method) {
    const std::string own = slot.Older ? "PUT" : "STORE" + slot.Instance;
    return method == kMethodOwn ? own : method == kMethodHead ? "HEAD" : "GET";
}

Runner::Outcome Runner::setLogin(Slot& slot, std::uint8_t login) {
    slot.Login = login;
    std::vector<std::string> schemes;
    if (login != kLoginNone) {
        const std::string user = "u" + slot.Instance + "n" + std::to_string(++Serial);
        succeeded(assign(slot, "Username", user));
        succeeded(assign(slot, "Password", "secret"));
        slot.Credentials = "Basic " + base64(user + ":secret");
        Logins[slot.Credentials] = slot.Instance;
        schemes.emplace_back("Basic");
    }
    if (login == kLoginSeveral) {
        schemes.emplace_back("Digest");
    }
    return succeeded(call(slot, "setAuthenticationSchemes",
                          {vantik::Array::enumeration(vantik::kAuthenticationSchemeClass, schemes), false}));
}

Runner::Outcome Runner::setField(Slot& slot, std::uint8_t field) {
    if (field == kFieldNoExpect) {
        return succeeded(call(slot, "removeField", {"Expect"}));
    }
    const std::string value = "own" + slot.Instance + "=" + std::to_string(++Serial);
    slot.Cookies.insert(value);
    return succeeded(setFields(slot, {"Cookie", value}));
}

Runner::Outcome Runner::setFields(const Slot& slot, const vantik::HttpField& field) {
    return call(slot, "setFields", {vantik::httpFields({field})});
}

// Whatever came before, each object is as good as new after a close and an open.
void Runner::finish() {
    Host->clearInterrupt();
    for (std::uint8_t object = 0; object < kObjects && Wrong.empty(); ++object) {
        if (!Slots[object].Object) {
            continue;
        }
        if (Owner) {
            Now = "at the end, close";
            apply({Op::Close, *Owner});
        }
        for (const Op op : {Op::SetConsumer, Op::SetReporter, Op::SetProvider, Op::SetPayload, Op::SetUrl, Op::Open,
                            Op::Copy, Op::Close}) {
            Now = "at the end, " + describe(Command{op, object});
            Command command{op, object};
            command.Answer.Size = 1;
            apply(command);
        }
    }
}

} // namespace model
