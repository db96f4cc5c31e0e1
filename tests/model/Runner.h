// Plays one sequence through the host class and holds what happens against what may happen.
#pragma once

#include "tests/model/Commands.h"
#include "tests/model/ModelServer.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"
#include "vantik/Http.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace model {

class Runner {
public:
    // `files`: names of two files to save to, the second one from within another call. What takes longer than
    // `patience` is interrupted, and so fails where nothing explains it.
    Runner(ModelServer& server, std::array<std::string, 2> files, std::chrono::seconds patience)
        : Server(server), Files(std::move(files)), Patience(patience) {}

    // Plays it, ends the scope, and says what was wrong, a line each; empty where nothing was.
    std::string run(const Sequence& sequence);

private:
    // Where an object stands between two calls.
    enum class Phase {
        Closed,
        Opened,   // nothing sent yet
        Answered, // the status is known, the content has not been copied
        Copied,
        Reopened, // opened again before a copy: the earlier status is known, and nothing can be copied
        Spoilt,   // something has failed: a call may fail, but what it returns must be right
    };

    // What a provider, a consumer or a reporter knows. The object's callables share it.
    struct Memory {
        Hook Then;
        std::string Content;      // a provider's; of a consumer: received in this call
        bool Played = false;      // Then
        std::size_t Position = 0; // of a provider
        std::uint8_t Starts = 0;
        std::uint8_t Calls = 0; // reads, writes, updates
    };
    using MemoryPtr = std::shared_ptr<Memory>;

    // What shows whose a request is.
    struct Sender {
        std::string Instance; // "i3": no other object of this sequence has it
        bool Older = false;   // interface
        std::size_t Port = 0;
        std::string OpenPath;          // of the open connection
        std::set<std::string> Cookies; // values of its own
        std::string Credentials;       // as the field Authorization has them
    };

    struct Slot : Sender {
        std::optional<vantik::Object> Object;
        Phase Now = Phase::Closed;
        std::string Path; // as set; empty: none
        Shape Answer;     // planned for it
        // Of the open connection
        Shape OpenAnswer;
        std::string Marker;       // "i3-7": of the latest open
        bool OptionsKept = false; // the handle may have options of an earlier request of this object
        int Methods = 0;          // how often one was set
        std::uint8_t Method = kMethodGet;
        bool Warned = false;                 // of content that is not whole
        bool Given = false;                  // content has gone to a file or a consumer, or a copy was handed out
        bool Resumable = false;              // only an interrupt has stopped a copy into the byte array
        bool Empty = false;                  // Copied: the content had no bytes
        bool Limited = false;                // limits of silence are set
        int LastStatus = 0;                  // as reported
        std::uint8_t SentLogin = kLoginNone; // as it was when a call could send
        bool SentProvided = false;           // a provider was set then
        // What is set
        std::uint8_t LastMethod = kMethodGet; // set last, whenever that was
        std::string Payload;
        std::set<std::string> Encoded{""}; // older interface: what a send may have made of the text
        MemoryPtr Provider, Consumer, Reporter;
        std::uint8_t Login = kLoginNone;
        std::optional<std::string> Lead{""}; // led in through ResponsePayload; nothing: not known any more
    };

    // What is set when a call may send, for the requests that come of it.
    struct Snapshot : Sender {
        bool Basic = false;                  // Credentials go out at once
        std::optional<std::string> Jar{};    // nothing: not known; empty: no cookie
        std::set<std::string> Bodies{};      // one of them
        std::optional<std::string> Method{}; // nothing: any of its own
    };

    // The call that moves content at this moment.
    struct Run {
        std::uint8_t Object = 0;
        MemoryPtr ConsumerBefore;
        std::set<std::string> Allowed{}; // identifiers with which it may fail
        bool OnlyInterrupts = true;      // nothing but those is allowed
        bool MustFail = false;
        bool Quiet = false; // a consumer took less
        std::vector<MemoryPtr> Started{};

        void mayFail(std::initializer_list<std::string> identifiers) {
            Allowed.insert(identifiers);
            OnlyInterrupts = false;
        }
        void mustFail(std::initializer_list<std::string> identifiers) {
            mayFail(identifiers);
            MustFail = true;
        }
    };

    struct Outcome {
        std::string Identifier{}; // empty: a success
        std::string Text{};
        std::exception_ptr Raised{};
        vantik::Array Result{};

        bool failed() const { return !Identifier.empty(); }
        std::string words() const { return failed() ? "fails with " + Identifier + " (" + Text + ")" : "succeeds"; }
    };

    // In Runner.cpp: one function for each operation or some
    Outcome apply(const Command& command);
    Outcome create(Slot& slot, const Command& command);
    Outcome destroy(Slot& slot, const Command& command);
    Outcome setUrl(Slot& slot, const Command& command);
    Outcome open(Slot& slot, const Command& command);
    Outcome close(Slot& slot, const Command& command);
    Outcome closeAll(Slot& slot, const Command& command);
    Outcome setMethod(Slot& slot, const Command& command);
    Outcome setPayload(Slot& slot, const Command& command);
    Outcome setHostObject(Slot& slot, const Command& command);
    Outcome setLogin(Slot& slot, const Command& command);
    Outcome setField(Slot& slot, const Command& command);
    Outcome setLead(Slot& slot, const Command& command);
    Outcome interrupt(Slot& slot, const Command& command);
    static std::string methodName(const Slot& slot, std::uint8_t method);
    void finish();

    // In RunnerTransfer.cpp
    Outcome receive(Slot& slot, const Command& command);
    static Outcome callReceive(const Slot& slot, Op op, const std::string& file);
    void allowFailures(const Slot& slot, Op op, Run& run) const;
    void judgeFailure(Slot& slot, Op op, const Outcome& outcome, const Run& run);
    void judgeStatus(Slot& slot, const Outcome& outcome);
    void judgeCopy(Slot& slot, Op op, const Outcome& outcome, const Run& run);
    std::optional<Request> answered(Slot& slot);
    void expectOwnStatus(const Slot& slot, int status);
    void expectLead(Slot& slot, std::string& bytes);
    Snapshot snapshot(Slot& slot) const;
    const std::string& file() const { return Files[Running == nullptr ? 0 : 1]; }
    void checkRequests();
    std::string wrongRequest(const Request& request) const;

    vantik::Object provider(const MemoryPtr& memory);
    vantik::Object consumer(const MemoryPtr& memory);
    vantik::Object reporter(const MemoryPtr& memory);
    // Plays what the sequence wants of the object where it is due. True: its Act is for the caller to play.
    bool play(Memory& memory, std::uint8_t event);

    static Outcome attempt(const std::function<void(vantik::Array& result)>& action);
    static Outcome call(const Slot& slot, const char* method, std::initializer_list<vantik::Array> inputs = {});
    static Outcome assign(const Slot& slot, const char* property, const vantik::Array& value);
    // What an outcome has to be; anything else is wrong.
    Outcome succeeded(Outcome outcome);
    Outcome failed(Outcome outcome, const std::string& identifier, const std::string& words = "");
    void wrong(const std::string& what) { Wrong.push_back(Now + ": " + what); }

    std::uint8_t indexOf(const Slot& slot) const { return static_cast<std::uint8_t>(&slot - Slots.data()); }
    bool runs(const Slot& slot) const { return Running != nullptr && Running->Object == indexOf(slot); }

    ModelServer& Server;
    std::array<std::string, 2> Files;
    std::chrono::seconds Patience;
    std::optional<vantik::Host> Host;
    std::array<Slot, kObjects> Slots;
    std::optional<std::uint8_t> Owner;  // whose connection is open
    bool Attached = false;              // the handles have seen an open
    std::optional<std::string> Jar{""}; // the cookie that the scope has; nothing: not known
    Run* Running = nullptr;
    int Created = 0;
    int Serial = 0;
    std::map<std::string, std::vector<Snapshot>> Sends; // by marker
    std::map<std::string, std::string> Logins;          // field value, instance
    std::string Now;                                    // the command that is played
    std::vector<std::string> Wrong;
};

// What a failure is called.
inline constexpr const char* kInternalError = "VANTIK:webservices:InternalError";
inline constexpr const char* kInterrupted = "VANTIK:host:Interrupted";
inline constexpr const char* kConnectionFailed = "VANTIK:webservices:ConnectionFailed";
inline constexpr const char* kTerminated = "VANTIK:webservices:OperationTerminatedByConsumer";
inline constexpr const char* kRaised = "model:Raised";

} // namespace model
