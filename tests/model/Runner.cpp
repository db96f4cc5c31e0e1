#include "tests/model/Runner.h"

#include "tests/model/CurlHandles.h"
#include "tests/support/host/HostFixture.h"

#include <Poco/Base64Encoder.h>

#include <algorithm>
#include <limits>
#include <sstream>

namespace model {
namespace {

constexpr const char* kOnlyOne = "VANTIK:http:OnlyOneTransferAtATime";

// Far more than a loopback connection takes, and the silence after which a limit acts.
constexpr double kConnectLimitMs = 60000;
constexpr double kSilenceLimitMs = 40;

std::string base64(const std::string& text) {
    std::ostringstream encoded;
    Poco::Base64Encoder(encoded) << text;
    return encoded.str();
}

[[noreturn]] void raise() {
    throw vantik::Failure({"model", "Raised", {}, "raised on purpose"});
}

std::uint8_t counted(std::uint8_t& count) {
    return count = static_cast<std::uint8_t>(std::min(count + 1, Hook::kAgain - 1));
}

} // namespace

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
    Slots = {};
    Host.reset();
    Now = "after the end";
    if (!Server.awaitNoConnections()) {
        wrong("connections to the server are left open");
    }
    checkRequests();
    if (const std::size_t live = vantik::Host::liveArrays(); live != arraysBefore) {
        wrong(std::to_string(live) + " arrays live, before it were " + std::to_string(arraysBefore));
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

Runner::Outcome Runner::attempt(const std::function<void(vantik::Array& result)>& action) {
    Outcome outcome;
    try {
        action(outcome.Result);
    } catch (const vantik::Failure& failure) {
        outcome = {failure.identifier(), failure.what(), std::current_exception()};
    } catch (const std::exception& failure) {
        outcome = {"std::exception", failure.what(), std::current_exception()};
    }
    return outcome;
}

Runner::Outcome Runner::call(const Slot& slot, const char* method, std::initializer_list<vantik::Array> inputs) {
    const vantik::Object connection = *slot.Object; // the slot may change meanwhile
    return attempt([&](vantik::Array& result) { result = connection.call(method, inputs); });
}

Runner::Outcome Runner::assign(const Slot& slot, const char* property, const vantik::Array& value) {
    return attempt([&](vantik::Array&) { slot.Object->set(property, value); });
}

Runner::Outcome Runner::succeeded(Outcome outcome) {
    if (outcome.failed()) {
        wrong(outcome.words());
    }
    return outcome;
}

Runner::Outcome Runner::failed(Outcome outcome, const std::string& identifier, const std::string& words) {
    if (outcome.Identifier != identifier || outcome.Text.find(words) == std::string::npos) {
        wrong(outcome.words() + " in place of failing with " + identifier + " " + words);
    }
    return outcome;
}

Runner::Outcome Runner::apply(const Command& command) {
    static constexpr Outcome (Runner::*operations[])(Slot&, const Command&) = {
        // in the order of Op
        &Runner::create,    &Runner::destroy,    &Runner::setUrl,        &Runner::open,          &Runner::close,
        &Runner::closeAll,  &Runner::receive,    &Runner::receive,       &Runner::receive,       &Runner::receive,
        &Runner::setMethod, &Runner::setPayload, &Runner::setHostObject, &Runner::setHostObject, &Runner::setHostObject,
        &Runner::setLogin,  &Runner::setField,   &Runner::setLead,       &Runner::interrupt,
    };
    Slot& slot = Slots.at(command.Object);
    if (!slot.Object && command.What != Op::Create && command.What != Op::Interrupt) {
        return {};
    }
    return (this->*operations[static_cast<std::size_t>(command.What)])(slot, command);
}

Runner::Outcome Runner::interrupt(Slot&, const Command&) {
    Host->interrupt();
    return {};
}

Runner::Outcome Runner::create(Slot& slot, const Command& command) {
    if (slot.Object) {
        return {};
    }
    const bool older = command.Number == 1;
    std::optional<vantik::Object> made;
    const Outcome outcome =
        attempt([&](vantik::Array&) { made = Host->create(vantik::kHttpConnectionClass, {!older}); });
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

Runner::Outcome Runner::destroy(Slot& slot, const Command&) {
    if (!runs(slot)) { // the running call holds its object
        if (Owner == indexOf(slot)) {
            Owner.reset();
        }
        const Slot gone = std::exchange(slot, {});
    }
    return {};
}

Runner::Outcome Runner::setUrl(Slot& slot, const Command& command) {
    constexpr std::array statuses{200, 404, 401, 200, 301}; // by kind; but for 401, those of the objects differ
    const Shape& shape = command.Answer;
    const int status = statuses.at(static_cast<std::size_t>(shape.What));
    slot.Path = "/" + slot.Instance + "/s" + std::to_string(++Serial);
    slot.Answer = shape;
    Server.plan(slot.Path, {.How = shape,
                            .Status = status == 401 ? status : status + indexOf(slot),
                            .Location = shape.What == Kind::Redirect ? Server.url(1 - slot.Port, "/elsewhere") : ""});
    return succeeded(assign(slot, "URL", Server.url(slot.Port, slot.Path)));
}

Runner::Outcome Runner::open(Slot& slot, const Command&) {
    if (slot.Path.empty()) {
        return succeeded(call(slot, "openConnection"));
    }
    if (runs(slot)) {
        return failed(call(slot, "openConnection"), kInternalError,
                      "Opening the connection is not possible from within");
    }
    // A server that falls silent needs limits; any other one is given the time that it takes.
    slot.Limited = slot.Answer.Last == End::Silent;
    const double limit = slot.Limited ? kSilenceLimitMs : std::numeric_limits<double>::infinity();
    assign(slot, "TimeoutInMilliseconds", vantik::Array::doubles({kConnectLimitMs, limit, limit}));
    Outcome outcome = call(slot, "openConnection");
    if (Owner && Owner != indexOf(slot)) {
        return failed(outcome, kOnlyOne);
    }
    if (succeeded(outcome).failed()) {
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
    succeeded(call(slot, "setFields", {vantik::httpFields({{"X-Marker", slot.Marker}})}));
    return outcome;
}

Runner::Outcome Runner::close(Slot& slot, const Command&) {
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

Runner::Outcome Runner::closeAll(Slot& slot, const Command&) {
    const Outcome outcome = call(slot, "closeAllConnections");
    if (Owner) {
        return failed(outcome, kInternalError);
    }
    Jar = "";
    Attached = false;
    return succeeded(outcome);
}

Runner::Outcome Runner::setMethod(Slot& slot, const Command& command) {
    if (command.Number == kMethodHead && (slot.Methods > 0 || slot.OptionsKept)) {
        return {}; // after another name libcurl sends that name, and yet expects no content
    }
    const Outcome outcome = assign(slot, "RequestMethod", methodName(slot, command.Number));
    if (runs(slot)) {
        return failed(outcome, kInternalError, "Setting the request method is not possible from within");
    }
    ++slot.Methods;
    slot.Method = slot.LastMethod = command.Number;
    return succeeded(outcome);
}

std::string Runner::methodName(const Slot& slot, std::uint8_t method) {
    const std::string own = slot.Older ? "PUT" : "STORE" + slot.Instance;
    return method == kMethodOwn ? own : method == kMethodHead ? "HEAD" : "GET";
}

Runner::Outcome Runner::setPayload(Slot& slot, const Command& command) {
    slot.Payload = contentOf("p" + std::to_string(++Serial), kRequestSizes.at(command.Number));
    if (slot.Older) {
        return succeeded(assign(slot, "PostData", slot.Payload));
    }
    const vantik::Array bytes = vantik::Array::bytes(std::string_view(slot.Payload));
    return succeeded(assign(slot, "Payload", command.Number == 0 ? vantik::Array() : bytes));
}

Runner::Outcome Runner::setHostObject(Slot& slot, const Command& command) {
    struct Role {
        const char* Property;
        MemoryPtr Slot::*Kept;
        vantik::Object (Runner::*Make)(const MemoryPtr&);
    };
    static constexpr Role roles[] = {{"Provider", &Slot::Provider, &Runner::provider},
                                     {"Consumer", &Slot::Consumer, &Runner::consumer},
                                     {"ProgressReporter", &Slot::Reporter, &Runner::reporter}};
    if (slot.Older && command.What == Op::SetProvider) {
        return {};
    }
    const Role& role = roles[static_cast<std::size_t>(command.What) - static_cast<std::size_t>(Op::SetProvider)];
    MemoryPtr& kept = slot.*role.Kept;
    if (command.Number == 0) {
        kept.reset();
        return succeeded(assign(slot, role.Property, vantik::Array()));
    }
    kept = std::make_shared<Memory>();
    kept->Then = command.Then;
    kept->Content = contentOf("p" + std::to_string(++Serial), kRequestSizes.at(command.Number));
    return succeeded(assign(slot, role.Property, (this->*role.Make)(kept).array()));
}

Runner::Outcome Runner::setLead(Slot& slot, const Command&) {
    if (slot.Lead) {
        *slot.Lead += "abc";
    }
    return succeeded(assign(slot, "ResponsePayload", vantik::Array::bytes(std::string_view("abc"))));
}

Runner::Outcome Runner::setLogin(Slot& slot, const Command& command) {
    slot.Login = command.Number;
    std::vector<std::string> schemes;
    if (slot.Login != kLoginNone) {
        const std::string user = "u" + slot.Instance + "n" + std::to_string(++Serial);
        succeeded(assign(slot, "Username", user));
        succeeded(assign(slot, "Password", "secret"));
        slot.Credentials = "Basic " + base64(user + ":secret");
        Logins[slot.Credentials] = slot.Instance;
        schemes.emplace_back("Basic");
    }
    if (slot.Login == kLoginSeveral) {
        schemes.emplace_back("Digest");
    }
    return succeeded(call(slot, "setAuthenticationSchemes",
                          {vantik::Array::enumeration(vantik::kAuthenticationSchemeClass, schemes), false}));
}

Runner::Outcome Runner::setField(Slot& slot, const Command& command) {
    if (command.Number == kFieldNoExpect) {
        return succeeded(call(slot, "removeField", {"Expect"}));
    }
    const std::string value = "own" + slot.Instance + "=" + std::to_string(++Serial);
    slot.Cookies.insert(value);
    return succeeded(call(slot, "setFields", {vantik::httpFields({{"Cookie", value}})}));
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
            apply({.What = op, .Object = object, .Answer = {.Size = 1}});
        }
    }
}

// Providers, consumers and reporters do their duty and, once, what a sequence wants of them.

bool Runner::play(Memory& memory, std::uint8_t event) {
    const Hook& hook = memory.Then;
    if (Running == nullptr) {
        wrong("a host object is called where nothing runs");
        return false;
    }
    if (memory.Played || hook.Event != event || hook.What == Act::Nothing) {
        return false;
    }
    memory.Played = true;
    switch (hook.What) {
    case Act::Interrupt:
        Running->Allowed.insert({kInterrupted, kConnectionFailed});
        Host->interrupt();
        return false;
    case Act::Raise:
        Running->mustFail({kRaised});
        raise();
    case Act::Call: {
        const std::string before = Now;
        Now += ", from within";
        const Outcome outcome = apply({hook.Nested, hook.Target, hook.Number});
        Now = before;
        if (outcome.failed() && !hook.Swallow) {
            Running->mustFail({outcome.Identifier});
            std::rethrow_exception(outcome.Raised);
        }
        return false;
    }
    default:
        return true;
    }
}

vantik::Object Runner::provider(const MemoryPtr& memory) {
    const auto happen = [this, memory](std::uint8_t event) {
        if (play(*memory, event)) {
            Running->mustFail({kRaised});
            raise();
        }
    };
    vantik::ContentProvider provider;
    provider.rewind = [memory, happen] {
        memory->Position = 0;
        happen(memory->Starts++ == 0 ? 0 : Hook::kAgain);
    };
    provider.read = [memory, happen](std::uint64_t wanted) {
        happen(counted(memory->Calls));
        const std::string piece = memory->Content.substr(memory->Position, wanted);
        memory->Position += piece.size();
        return vantik::Array::bytes(std::string_view(piece));
    };
    return vantik::makeProvider(*Host, provider);
}

vantik::Object Runner::consumer(const MemoryPtr& memory) {
    vantik::ContentConsumer consumer;
    consumer.start = [this, memory]() -> std::optional<double> {
        memory->Content.clear();
        if (Running != nullptr) {
            Running->Started.push_back(memory);
        }
        play(*memory, 0);
        return std::nullopt;
    };
    consumer.write = [this, memory](std::span<const std::byte> piece) -> vantik::Taken {
        std::string_view bytes = vantik::asText(piece);
        if (play(*memory, counted(memory->Calls))) {
            if (memory->Then.What == Act::Stop) {
                Running->mustFail({kTerminated});
                return std::nullopt;
            }
            Running->Quiet = true;
            bytes = bytes.substr(0, bytes.size() / 2);
        }
        memory->Content += bytes;
        return bytes.size();
    };
    consumer.close = [this, memory] { play(*memory, Hook::kEnd); };
    return vantik::makeConsumer(*Host, consumer);
}

vantik::Object Runner::reporter(const MemoryPtr& memory) {
    return vantik::makeProgressReporter(*Host, [this, memory](std::uint64_t) {
        if (!play(*memory, counted(memory->Calls))) {
            return true;
        }
        Running->mustFail({kInterrupted, kConnectionFailed, kTerminated});
        return false;
    });
}

} // namespace model
