// What may come of a call that sends or copies, by what has been before it and by what its host objects do; and what
// the server may see of it: each request whole as it was set, and nothing of one object with another's.
#include "tests/model/Runner.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/WireText.h"

#include <algorithm>
#include <sstream>

namespace model {
namespace {

constexpr const char* kConnectionRefused = "VANTIK:webservices:ConnectionRefused";
constexpr const char* kCopyFailed = "VANTIK:webservices:CopyContentToDataStreamError";
constexpr const char* kPartialFile = "VANTIK:webservices:PartialFileWarning";
constexpr const char* kTimeout = "VANTIK:webservices:Timeout";
constexpr const char* kStatusError = "VANTIK:webservices:StatusError";
constexpr const char* kEarlier = "saved before";

std::vector<std::string> cookiesOf(const std::string& head) {
    std::vector<std::string> cookies;
    for (const auto& [name, value] : testsupport::fieldLines(head)) {
        std::istringstream pairs(name == "Cookie" ? value : std::string());
        for (std::string pair; std::getline(pairs >> std::ws, pair, ';');) {
            cookies.push_back(pair);
        }
    }
    return cookies;
}

// The last one.
std::string markerOf(const Request& request) {
    std::string marker;
    for (const auto& [name, value] : testsupport::fieldLines(request.Head)) {
        marker = name == "X-Marker" ? value : marker;
    }
    return marker;
}

} // namespace

Runner::Outcome Runner::callReceive(const Slot& slot, Op op, const std::string& file) {
    if (op == Op::Status) {
        const vantik::Object connection = *slot.Object; // the slot may change meanwhile
        return attempt([&](vantik::Array& result) { result = connection.get("ResponseCode"); });
    }
    return op == Op::Save ? call(slot, "copyContentToFile", {file})
                          : call(slot, "copyContentToByteArray", {op == Op::Copy});
}

Runner::Outcome Runner::receive(Slot& slot, const Command& command) {
    const Op op = command.What;
    if (runs(slot)) { // from within itself
        Outcome outcome = callReceive(slot, op, file());
        if (op != Op::Status || outcome.failed()) {
            return failed(outcome, kInternalError,
                          op == Op::Status ? "Sending the request is not possible from within"
                                           : "Copying the content is not possible from within");
        }
        expectOwnStatus(slot, static_cast<int>(outcome.Result.number()));
        return outcome;
    }
    const std::string& target = file(); // that of the outermost call is another one
    testsupport::writeFile(target, kEarlier);
    Run run{.Object = indexOf(slot), .ConsumerBefore = slot.Consumer};
    if (slot.Now == Phase::Opened || slot.Now == Phase::Spoilt) {
        slot.SentLogin = slot.Login;
        slot.SentProvided = slot.SentProvided || slot.Provider;
        Sends[slot.Marker].push_back(snapshot(slot));
    }
    allowFailures(slot, op, run);
    Run* const outer = Running;
    Running = slot.Now == Phase::Closed ? outer : &run; // a closed object calls no host object
    Outcome outcome = callReceive(slot, op, target);
    Running = outer;
    if (outcome.failed()) {
        judgeFailure(slot, op, outcome, run);
    } else if (run.MustFail) {
        wrong("is a success and should not be");
    } else if (op == Op::Status) {
        judgeStatus(slot, outcome);
    } else {
        judgeCopy(slot, op, outcome, run);
    }
    return outcome;
}

void Runner::allowFailures(const Slot& slot, Op op, Run& run) const {
    const bool copies = op != Op::Status;
    const bool moves =
        slot.Now == Phase::Opened || slot.Now == Phase::Spoilt || (copies && slot.Now == Phase::Answered);
    if (!moves) {
        if (copies && (slot.Now == Phase::Reopened || (slot.Now == Phase::Copied && !slot.Empty))) {
            run.mustFail({kInternalError});
        }
        return;
    }
    if (Host->interruptPending()) {
        run.Allowed.insert({kInterrupted, kConnectionFailed});
    }
    const Shape& answer = slot.OpenAnswer;
    if (answer.Last == End::Closed || answer.Last == End::Reset) {
        run.mayFail({kPartialFile, kConnectionRefused, kCopyFailed});
    }
    if (answer.Last == End::Silent || slot.Limited) {
        run.mayFail({kTimeout});
    }
    if (slot.Older && copies && answer.What != Kind::Success) {
        run.mayFail({kStatusError});
    }
    if (op == Op::CopyToConsumer && !slot.Consumer) {
        run.mayFail({kInternalError}); // nobody is there for the content
    }
    if (slot.SentProvided && slot.SentLogin == kLoginSeveral &&
        (answer.What == Kind::Denied || answer.What == Kind::Challenge)) {
        // Content that is wanted again when the provider is no longer asked.
        run.mayFail({kPartialFile, kCopyFailed, kInternalError});
    }
    if (slot.Now == Phase::Spoilt && !slot.Resumable) {
        run.mayFail({kInternalError});
        run.MustFail = copies && slot.Given;
    }
}

void Runner::judgeFailure(Slot& slot, Op op, const Outcome& outcome, const Run& run) {
    if (!run.Allowed.contains(outcome.Identifier)) {
        wrong(outcome.words());
        return;
    }
    if (slot.Lead != "") {
        slot.Lead.reset();
    }
    if (op == Op::Save && (slot.Now == Phase::Copied || slot.Given) && testsupport::readFile(file()) != kEarlier) {
        wrong("empties the file for content that is not to be had again");
    }
    if (slot.Now == Phase::Copied || slot.Now == Phase::Reopened) {
        return;
    }
    if (slot.OpenAnswer.Cookie) {
        Jar.reset();
    }
    const bool uploads = !slot.Payload.empty() || slot.Provider;
    slot.Resumable = (slot.Now != Phase::Spoilt || slot.Resumable) && run.OnlyInterrupts && !uploads &&
                     (op == Op::Status || (op == Op::Copy && run.Started.empty()));
    slot.Warned |= outcome.Identifier == kPartialFile;
    for (const auto& consumer : run.Started) {
        slot.Given |= !consumer->Content.empty();
    }
    const std::string saved = testsupport::readFile(file());
    slot.Given |= op == Op::Save && !saved.empty() && saved != kEarlier;
    slot.Now = Phase::Spoilt;
}

void Runner::expectOwnStatus(const Slot& slot, int status) {
    const bool refused = slot.Older && status == 400; // the older interface's word for a copy that failed
    const bool interim = status == 100;               // of an upload that has not come to its end
    if (status != 0 && !refused && !interim && !Server.statusesBelow("/" + slot.Instance + "/").contains(status)) {
        wrong("reports the status " + std::to_string(status) + ", which no answer to this object had");
    }
}

// The request that the head at hand answers; it has to be one of the open connection.
std::optional<Request> Runner::answered(Slot& slot) {
    const std::string number = slot.Object->call("getResponseField", {"X-Request"}).textOr("");
    if (number.empty()) {
        wrong("is a success without an answer");
        return std::nullopt;
    }
    const Request request = Server.request(std::stoul(number));
    if (request.Path != slot.OpenPath || markerOf(request) != slot.Marker) {
        wrong("has the answer to " + request.Path + " of " + markerOf(request) + " for " + slot.OpenPath + " of " +
              slot.Marker);
        return std::nullopt;
    }
    slot.LastStatus = request.Status;
    if (request.Cookie) {
        Jar = number;
    }
    return request;
}

void Runner::judgeStatus(Slot& slot, const Outcome& outcome) {
    const int status = static_cast<int>(outcome.Result.number());
    if (slot.Now == Phase::Closed || slot.Now == Phase::Spoilt) {
        expectOwnStatus(slot, status);
        if (slot.Now == Phase::Spoilt && slot.OpenAnswer.Cookie) {
            Jar.reset();
        }
        return;
    }
    if (slot.Now == Phase::Opened) {
        if (!answered(slot)) {
            return;
        }
        slot.Now = Phase::Answered;
    }
    if (status != slot.LastStatus) {
        wrong("reports the status " + std::to_string(status) + " for " + std::to_string(slot.LastStatus));
    }
}

// Takes from the front of the bytes what was led in through ResponsePayload.
void Runner::expectLead(Slot& slot, std::string& bytes) {
    if (!slot.Lead) { // there or not
        while (bytes.starts_with("abc")) {
            bytes.erase(0, 3);
        }
    } else if (bytes.starts_with(*slot.Lead)) {
        bytes.erase(0, slot.Lead->size());
    } else {
        wrong("lacks what was led in through ResponsePayload");
    }
    slot.Lead = "";
}

void Runner::judgeCopy(Slot& slot, Op op, const Outcome& outcome, const Run& run) {
    std::string bytes = op == Op::Save ? std::string() : std::string(outcome.Result.byteText());
    if (op != Op::Save) {
        expectLead(slot, bytes);
    }
    if (slot.Now == Phase::Closed || slot.Now == Phase::Copied) { // and there was no content
        if (!bytes.empty() || (op == Op::Save && !testsupport::readFile(file()).empty())) {
            wrong("returns more than there was");
        }
        return;
    }
    const std::optional<Request> request = answered(slot);
    if (!request) {
        return;
    }
    const bool refused = request->Status / 100 != 2;
    if (slot.Older && refused) {
        wrong("is a success with the status " + std::to_string(request->Status));
    }
    if (!request->Whole && !refused && !slot.Warned && !run.Quiet) {
        wrong("takes content that was cut off for whole");
    }
    // What is less than the whole without a failure: with such a status, after the warning, when the consumer says
    // so, and of a challenge that libcurl goes on to answer.
    const bool partial = run.Quiet || (!request->Whole && (refused || slot.Warned)) ||
                         (request->Status == 401 && (slot.Older || slot.SentLogin == kLoginSeveral));
    const auto expect = [&](const std::string& got, const char* where) {
        const std::string difference =
            testsupport::difference(got, partial ? request->Content.substr(0, got.size()) : request->Content);
        if (!difference.empty()) {
            wrong(std::string(where) + " has not what the server sent: " + difference);
        }
    };
    if (op == Op::Copy) {
        expect(bytes, "the byte array");
    } else if (!bytes.empty()) {
        wrong("returns bytes that were not asked for");
    }
    if (op == Op::Save) {
        expect(testsupport::readFile(file()), "the file");
    }
    if (run.ConsumerBefore && run.ConsumerBefore == slot.Consumer && run.Started.size() != 1) {
        wrong("the consumer was started " + std::to_string(run.Started.size()) + " times");
    }
    for (const auto& consumer : run.Started) {
        expect(consumer->Content, "the consumer");
    }
    if (op == Op::CopyToConsumer && run.Started.empty() && !request->Content.empty() && !partial) {
        wrong("loses the content");
    }
    slot.Now = partial && !run.Quiet ? Phase::Spoilt : Phase::Copied;
    slot.Empty = request->Content.empty();
    slot.Resumable = false;
}

Runner::Snapshot Runner::snapshot(Slot& slot) const {
    Snapshot made{slot};
    made.Basic = slot.Login == kLoginBasic && !slot.Older;
    made.Jar = Jar;
    if (slot.OpenAnswer.Cookie && (slot.Older || slot.SentLogin == kLoginSeveral)) {
        made.Jar.reset(); // a challenge may set one for the second request
    }
    if (slot.Older) {
        if (slot.LastMethod == kMethodOwn) { // PUT
            if (slot.Now == Phase::Opened) {
                slot.Encoded.clear();
            }
            slot.Encoded.insert(slot.Payload);
        }
        made.Bodies = slot.Encoded;
    } else {
        made.Bodies = {slot.Payload + (slot.Provider ? slot.Provider->Content : std::string())};
    }
    const bool uploads = slot.Provider || !made.Bodies.begin()->empty();
    if (!slot.OptionsKept && slot.Methods <= 1 && made.Bodies.size() == 1) {
        const std::uint8_t method = slot.Methods == 0 ? kMethodGet : slot.Method;
        made.Method = uploads && method != kMethodOwn ? "PUT" : methodName(slot, method);
    }
    return made;
}

void Runner::checkRequests() {
    for (std::size_t number = 0; const Request& request : Server.requests()) {
        const std::string problem = ModelServer::isOurs(request) ? "" : wrongRequest(request);
        if (!problem.empty()) {
            wrong("request " + std::to_string(number) + " " + problem + "\n" + request.Head);
        }
        ++number;
    }
}

std::string Runner::wrongRequest(const Request& request) const {
    std::string marker;
    for (const auto& [name, value] : testsupport::fieldLines(request.Head)) {
        if (name == "X-Marker") {
            if (!marker.empty() && value.substr(0, value.find('-')) != marker.substr(0, marker.find('-'))) {
                return "has fields of two objects";
            }
            marker = value;
        }
    }
    const auto sent = Sends.find(marker);
    if (sent == Sends.end()) {
        return "is one that nobody has sent";
    }
    const std::vector<Snapshot>& sends = sent->second;
    const Snapshot& first = sends.front();
    if (request.Path != first.OpenPath || request.Port != first.Port) {
        return "went to another place than that of its fields, " + first.OpenPath;
    }
    if (!request.Trouble.empty()) {
        return "has broken content: " + request.Trouble;
    }
    const std::string credentials = testsupport::fieldValue(request.Head, "Authorization").value_or("");
    const auto owner = Logins.find(credentials);
    const bool nobody = first.Older && credentials == "Basic Og=="; // ":"
    if (!credentials.empty() && !nobody && (owner == Logins.end() || owner->second != first.Instance)) {
        return "has a login that is not its object's";
    }
    const auto any = [&](auto&& fits) { return std::any_of(sends.begin(), sends.end(), fits); };
    if (!any([&](const Snapshot& send) { return !send.Basic || credentials == send.Credentials; })) {
        return "lacks its login";
    }
    std::string jar;
    for (const std::string& cookie : cookiesOf(request.Head)) {
        if (cookie.starts_with("jar=")) {
            jar = cookie.substr(4);
        } else if (!any([&](const Snapshot& send) { return send.Cookies.contains(cookie); })) {
            return "has a cookie that is not its object's, " + cookie;
        }
    }
    if (!any([&](const Snapshot& send) { return !send.Jar || *send.Jar == jar; })) {
        return "should have the cookie jar=" + first.Jar.value_or("");
    }
    const auto hasMethod = [&](const Snapshot& send) {
        return send.Method ? request.Method == *send.Method
                           : request.Method == "GET" || request.Method == "PUT" || request.Method == "HEAD" ||
                                 request.Method == "STORE" + send.Instance;
    };
    if (!any(hasMethod)) {
        return "should have the method " + first.Method.value_or("GET, PUT, HEAD or one of its own");
    }
    if (request.Ended && !any([&](const Snapshot& send) { return send.Bodies.contains(request.Body); })) {
        return "ended well with other content than was set: " +
               testsupport::difference(request.Body, *sends.back().Bodies.begin());
    }
    return {};
}

} // namespace model
