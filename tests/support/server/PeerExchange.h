// One exchange through the class with a ScriptedPeer, and what must hold of it whatever the peer has sent. Link the
// target `netrove_scripted_peer`.
#pragma once

#include "embedded/scope/Scope.h"
#include "tests/support/server/ScriptedPeer.h"
#include "tests/support/server/SocketHandle.h"
#include "vantik/Host.h"
#include "vantik/Http.h"

#include <string>
#include <vector>

namespace testsupport {

enum class Target { Memory, Consumer, File };

struct PeerRequest {
    std::string Method = "GET"; // GET, HEAD or PUT
    Target To = Target::Memory;
    bool OptionsMode = true; // false: the older interface
    bool Decode = true;
    bool FromProvider = false;           // the content of a PUT; not with the older interface
    bool AwaitsContinue = false;         // a PUT
    std::string Upload = "what is sent"; // by a PUT; UTF-8 with the older interface
    std::string ContentType{};
    bool LogsIn = false;
    bool StatusFirst = false;    // asks for the status line before it receives the content
    bool Reports = false;        // has a progress reporter
    bool Traced = false;         // on standard output
    bool ConsumesSlowly = false; // in small pieces
};

struct PeerOutcome {
    std::string Failure;  // empty: a normal return
    bool Partial = false; // with the warning of incomplete content
    std::string Content;
    int Status = 0;
    std::vector<vantik::HttpField> Fields;

    bool isSuccess() const { return Failure.empty() && !Partial; }
};

// A scope with the class in it.
class PeerStage {
public:
    PeerStage();

    // With the peer that lives.
    PeerOutcome exchange(const PeerRequest& request);
    // No cookie and no connection outlives this.
    void renewHandles();

private:
    void receive(const vantik::Object& connection, const PeerRequest& request, std::string& content);
    void giveUpload(const vantik::Object& connection, const PeerRequest& request);
    vantik::Object makeConsumer(bool slow, std::string& content);
    vantik::Object makeProvider(const std::string& content);
    std::string fileContent() const;

    vantik::Host Program;
    vantik::detail::ScopeEntry Entry{Program.scope()};
    SocketHandle File; // in memory, for all targets of that kind
    bool Partial = false;
};

// A success is the whole of a response in the bytes that the peer has sent, with the same status and fields and, where
// no coding is on it, the same content. What is wrong, in words; empty where nothing is.
std::string complaint(const PeerRequest& request, const PeerOutcome& outcome, ScriptedPeer& peer);

// Whatever came before, the scope is good for a plain exchange. What is wrong, in words; empty where nothing is.
std::string plainExchangeComplaint(PeerStage& stage, ScriptedPeer& peer);

} // namespace testsupport
