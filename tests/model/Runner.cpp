#include "tests/model/Runner.h"

#include "tests/model/CurlHandles.h"
#include "tests/support/host/HostFixture.h"
#include "vantik/Http.h"

#include <limits>

namespace model {
namespace {

// Far more than a loopback connection takes, and the silence after which a limit acts.
constexpr double kConnectLimitMs = 60000;
constexpr double kSilenceLimitMs = 40;

std::string base64(const std::string& text) {
    constexpr const char* letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string encoded;
    for (std::size_t place = 0; place < text.size(); place += 3) {
        std::uint32_t bits = 0;
        for (std::size_t byte = 0; byte < 3; ++byte) {
            bits = bits << 8 | (place + byte < text.size() ? static_cast<unsigned char>(text[place + byte]) : 0U);
        }
        for (std::size_t letter = 0; letter < 4; ++letter) {
            encoded += place + letter > text.size() ? '=' : letters[bits >> (18 - 6 * letter) & 63];
        }
    }
    return encoded;
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

void Runner::wrong(const std::string& what) {
    Wrong.push_back(Now + ": " + what);
}

void Runner::expectSuccess(const Outcome& outcome, const std::string& what) {
    if (outcome.Failed) {
        wrong(what + " fails with " + outcome.Identifier + " (" + outcome.Text + ")");
    }
}

void Runner::expectFailure(const Outcome& outcome, const std::string& identifier, const std::string& words,
                           const std::string& what) {
    if (!outcome.Failed) {
        wrong(what + " does not fail with " + identifier + " " + words);
    } else if (outcome.Identifier != identifier || outcome.Text.find(words) == std::string::npos) {
        wrong(what + " fails with " + outcome.Identifier + " (" + outcome.Text + ") in place of " + identifier + " " +
              words);
    }
}

Runner::Outcome Runner::apply(const Command& command) {
    Slot& slot = Slots.at(command.Object);
    if (command.What == Op::Create) {
        return create(slot, command.Object, command.Number == 1);
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
        return destroy(slot, command.Object);
    case Op::SetUrl:
        return setUrl(slot, command.Answer);
    case Op::Open:
        return open(slot, command.Object);
    case Op::Close:
        return close(slot, command.Object);
    case Op::CloseAll:
        return closeAll(slot);
    case Op::Status:
    case Op::Copy:
    case Op::CopyToConsumer:
    case Op::Save:
        return runs(command.Object) ? receiveFromWithin(slot, command.What) : receive(slot, command);
    default:
        return set(slot, command);
    }
}

Runner::Outcome Runner::create(Slot& slot, std::uint8_t object, bool older) {
    if (slot.Object) {
        return {};
    }
    std::optional<vantik::Object> made;
    const Outcome outcome = attempt([&] {
        made = Host->create(vantik::kHttpConnectionClass, {!older});
        return vantik::Array();
    });
    if (Owner) {
        expectFailure(outcome, kOnlyOne, "", "create while another one is open");
        return outcome;
    }
    expectSuccess(outcome, "create");
    if (made) {
        slot = {};
        slot.Object = std::move(made);
        slot.Instance = "i" + std::to_string(++Created);
        slot.Older = older;
        slot.Port = object % 2;
        Jar = ""; // a new object clears the cookies of the scope
    }
    return outcome;
}

Runner::Outcome Runner::destroy(Slot& slot, std::uint8_t object) {
    if (runs(object)) {
        return {}; // the running call holds it
    }
    if (Owner == object) {
        Owner.reset();
    }
    const Slot gone = std::exchange(slot, {});
    return {};
}

Runner::Outcome Runner::setUrl(Slot& slot, const Shape& shape) {
    const int own = static_cast<int>(&slot - Slots.data()); // the statuses of the objects differ
    slot.Path = "/" + slot.Instance + "/s" + std::to_string(++Serial);
    slot.Answer = shape;
    Plan plan;
    plan.Size = answerSize(shape.Size);
    plan.Chunked = shape.Chunked;
    plan.Early = shape.Early;
    plan.Cookie = shape.Cookie;
    plan.Last = shape.Last;
    plan.Part = shape.Part;
    switch (shape.What) {
    case Kind::Success:
        plan.Status = 200 + own;
        break;
    case Kind::NotFound:
        plan.Status = 404 + own;
        break;
    case Kind::Denied:
        plan.Status = 401;
        break;
    case Kind::Challenge:
        plan.Status = 200 + own;
        plan.Challenge = true;
        break;
    case Kind::Redirect:
        plan.Status = 301 + own;
        plan.Location = Server.url(1 - slot.Port, "/elsewhere");
        break;
    }
    Server.plan(slot.Path, plan);
    Outcome outcome = attempt([&] {
        slot.Object->set("URL", Server.url(slot.Port, slot.Path));
        return vantik::Array();
    });
    expectSuccess(outcome, "set URL");
    return outcome;
}

Runner::Outcome Runner::open(Slot& slot, std::uint8_t object) {
    const vantik::Object connection = *slot.Object;
    const auto callOpen = [&] { return attempt([&] { return connection.call("openConnection"); }); };
    if (slot.Path.empty()) {
        Outcome outcome = callOpen();
        expectSuccess(outcome, "openConnection without a URL");
        return outcome;
    }
    if (runs(object)) {
        Outcome outcome = callOpen();
        expectFailure(outcome, kInternalError, "Opening the connection is not possible from within", "openConnection");
        return outcome;
    }
    // A server that falls silent needs limits; any other one is given the time that it takes.
    const bool limited = slot.Answer.Last == Plan::End::Silent;
    const double limit = limited ? kSilenceLimitMs : std::numeric_limits<double>::infinity();
    connection.set("TimeoutInMilliseconds", vantik::Array::doubles({kConnectLimitMs, limit, limit}));
    slot.Limited = limited;
    Outcome outcome = callOpen();
    if (Owner && Owner != object) {
        expectFailure(outcome, kOnlyOne, "", "openConnection while another one is open");
        return outcome;
    }
    expectSuccess(outcome, "openConnection");
    if (outcome.Failed) {
        return outcome;
    }
    slot.OptionsKept = !Attached || Server.statusesBelow("/" + slot.Instance + "/").contains(401);
    if (slot.Now == Phase::Answered) {
        slot.Now = Phase::Reopened;
    } else if (slot.Now != Phase::Reopened && slot.Now != Phase::Spoilt) {
        slot.Now = Phase::Opened;
    }
    Owner = object;
    Attached = true;
    slot.OpenPath = slot.Path;
    slot.OpenAnswer = slot.Answer;
    slot.Methods = 0;
    slot.Warned = slot.Given = slot.Resumable = slot.Empty = slot.SentProvided = false;
    slot.Marker = slot.Instance + "-" + std::to_string(++Serial);
    const vantik::HttpField marker{"X-Marker", slot.Marker};
    expectSuccess(attempt([&] { return connection.call("setFields", {vantik::httpFields({marker})}); }), "setFields");
    return outcome;
}

Runner::Outcome Runner::close(Slot& slot, std::uint8_t object) {
    Outcome outcome = attempt([&] { return slot.Object->call("closeConnection"); });
    if (runs(object)) {
        expectFailure(outcome, kInternalError, "Closing the connection is not possible from within", "closeConnection");
        return outcome;
    }
    expectSuccess(outcome, "closeConnection");
    if (Owner == object) {
        Owner.reset();
        slot.Now = Phase::Closed;
    }
    return outcome;
}

Runner::Outcome Runner::closeAll(const Slot& slot) {
    Outcome outcome = attempt([&] { return slot.Object->call("closeAllConnections"); });
    if (Owner) {
        expectFailure(outcome, kInternalError, "", "closeAllConnections while one is open");
        return outcome;
    }
    expectSuccess(outcome, "closeAllConnections");
    Jar = "";
    Attached = false;
    return outcome;
}

Runner::Outcome Runner::set(Slot& slot, const Command& command) {
    const std::uint8_t number = command.Number;
    const std::string source = "p" + std::to_string(++Serial);
    const auto give = [&](const char* property, const vantik::Array& value) {
        Outcome outcome = attempt([&] {
            slot.Object->set(property, value);
            return vantik::Array();
        });
        expectSuccess(outcome, std::string("set ") + property);
        return outcome;
    };
    switch (command.What) {
    case Op::SetMethod:
        return setMethod(slot, number);
    case Op::SetLogin:
        return setLogin(slot, number);
    case Op::SetField:
        return setField(slot, number);
    case Op::SetPayload: {
        slot.Payload = number == 0 ? "" : contentOf(source, requestSize(number));
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
        if (number == 0) {
            slot.Provider.reset();
            return give("Provider", vantik::Array());
        }
        slot.Provider = std::make_shared<Provided>();
        slot.Provider->Content = contentOf(source, requestSize(number));
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
    const std::string own = slot.Older ? "PUT" : "STORE" + slot.Instance;
    Outcome outcome = attempt([&] {
        slot.Object->set("RequestMethod", method == kMethodOwn ? own : method == kMethodHead ? "HEAD" : "GET");
        return vantik::Array();
    });
    if (runs(static_cast<std::uint8_t>(&slot - Slots.data()))) {
        expectFailure(outcome, kInternalError, "Setting the request method is not possible from within",
                      "set RequestMethod");
        return outcome;
    }
    expectSuccess(outcome, "set RequestMethod");
    ++slot.Methods;
    slot.Method = slot.LastMethod = method;
    return outcome;
}

Runner::Outcome Runner::setLogin(Slot& slot, std::uint8_t login) {
    const std::string user = "u" + slot.Instance + "n" + std::to_string(++Serial);
    slot.Login = login;
    Outcome outcome = attempt([&] {
        if (login != kLoginNone) {
            slot.Object->set("Username", user);
            slot.Object->set("Password", "secret");
            slot.Credentials = "Basic " + base64(user + ":secret");
            Logins[slot.Credentials] = slot.Instance;
        }
        std::vector<std::string> schemes;
        if (login != kLoginNone) {
            schemes.emplace_back("Basic");
        }
        if (login == kLoginSeveral) {
            schemes.emplace_back("Digest");
        }
        return slot.Object->call("setAuthenticationSchemes",
                                 {vantik::Array::enumeration(vantik::kAuthenticationSchemeClass, schemes), false});
    });
    expectSuccess(outcome, "set login");
    return outcome;
}

Runner::Outcome Runner::setField(Slot& slot, std::uint8_t field) {
    Outcome outcome = attempt([&]() -> vantik::Array {
        if (field == kFieldNoExpect) {
            return slot.Object->call("removeField", {"Expect"});
        }
        const std::string value = "own" + slot.Instance + "=" + std::to_string(++Serial);
        slot.Cookies.insert(value);
        const vantik::HttpField cookie{"Cookie", value};
        return slot.Object->call("setFields", {vantik::httpFields({cookie})});
    });
    expectSuccess(outcome, "set field");
    return outcome;
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
