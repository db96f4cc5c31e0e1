#include "tests/recorded/FaultScenarios.h"

#include "embedded/scope/Scope.h"
#include "hostclass/ModuleEntry.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"
#include "vantik/Host.h"
#include "vantik/Http.h"

#include <optional>
#include <stdexcept>
#include <utility>

namespace testsupport {
namespace {

using vantik::Array;
using vantik::Object;

// A scope with the class in it; the one before is current again when it ends.
struct FreshScope {
    FreshScope() {
        VKInitialize_netrove();
        Program.treatAsFailure(vantik::kIncompleteContent);
    }
    Object makeAdapter() { return Program.create(kAdapterClass, {true}); }

    vantik::Host Program;
    vantik::detail::ScopeEntry Entry{Program.scope()};
};

Script answers(const std::vector<std::string>& responses) {
    Script script;
    for (const std::string& text : responses) {
        script.push_back(step::expectHead());
        script.push_back(step::send(text));
    }
    return script;
}

// What a program sees: "VANTIK:webservices:InternalError(text)", or the text of an exception without an identifier.
std::string failureSeen(const std::function<void()>& action) {
    try {
        action();
    } catch (const vantik::Failure& failure) {
        return describe(failure.message());
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (int) {
        return "an unknown exception";
    }
    return "nothing";
}

// Whatever happened in the scope before, a new object has to be good for a plain exchange.
std::string tryPlainGet(FreshScope& scope) {
    const ScriptedServer server(answers({response("good")}));
    std::string bytes;
    const std::string failure = failureSeen([&] {
        const Object connection = scope.makeAdapter();
        connection.set("URL", server.url("/"));
        connection.call("openConnection");
        bytes = receiveBytes(connection);
        connection.call("closeConnection");
    });
    return failure == "nothing" && bytes == "good" ? "usable" : failure + ", content '" + bytes + "'";
}

// What an exchange works with: the scope, and what it may leave for the run's record.
struct Stage {
    FreshScope Scope;
    std::optional<ScriptedConsumer> Consumer;
    std::string Outcome;
};

PlayedRun play(std::vector<Script> scripts, const FaultInjection& faults,
               const std::function<void(Stage&, const ScriptedServer&, const std::function<void()>& start)>& exchange) {
    PlayedRun run;
    const std::size_t arraysBefore = vantik::Host::liveArrays();
    {
        const ScriptedServer server(std::move(scripts));
        Stage stage;
        {
            CurlInterposer curl;
            run.Failure = failureSeen([&] {
                exchange(stage, server, [&] {
                    curl.clear();
                    faults.Arm(curl);
                });
            });
            faults.Disarm();
            run.Calls = curl.calls();
        }
        run.Outcome = stage.Outcome;
        if (stage.Consumer) {
            for (const std::string& call : (*stage.Consumer)->Calls) {
                run.ConsumerCalls += (run.ConsumerCalls.empty() ? "" : " ") + call.substr(0, call.find(' '));
            }
            stage.Consumer.reset();
        }
        run.ScopeAfterwards = tryPlainGet(stage.Scope);
    }
    run.ArraysLeft = vantik::Host::liveArrays() - arraysBefore;
    return run;
}

PlayedRun getTwice(const FaultInjection& faults) {
    return play({answers({response("one", {"Location: /next"}), response("two")})}, faults,
                [](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
                    start();
                    const Object connection = stage.Scope.makeAdapter();
                    connection.set("URL", server.url("/"));
                    for (int i = 0; i < 2; ++i) {
                        connection.call("openConnection");
                        stage.Outcome += receiveBytes(connection) + ' ';
                    }
                    stage.Outcome += connection.get("RedirectURL").text().empty() ? "no redirect" : "redirect";
                    connection.call("closeConnection");
                });
}

PlayedRun putFromMemory(const FaultInjection& faults) {
    return play({{step::expectHead(), step::continueIfExpected(), step::expectBody(3), step::send(response("stored"))}},
                faults, [](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
                    start();
                    const Object connection = stage.Scope.makeAdapter();
                    connection.set("URL", server.url("/"));
                    connection.call("openConnection");
                    connection.set("RequestMethod", "PUT");
                    connection.set("Payload", Array::bytes("abc"));
                    connection.call("setFields",
                                    {Array::structures(
                                        {"Name", "Value"},
                                        {{"Content-Length", "3"}, {"Cookie", "a=1"}, {"Proxy-Connection", "close"}})});
                    stage.Outcome = receiveBytes(connection) + ' ' +
                                    std::to_string(fieldTexts(connection.call("getRequestFields")).size()) +
                                    " fields, " + resultTexts(connection, "getStatusLine", 3)[1];
                    connection.call("closeConnection");
                });
}

PlayedRun streamBothWays(const FaultInjection& faults) {
    return play(
        {{step::expectHead(), step::continueIfExpected(), step::expectChunkedBody(), step::send(response("received"))}},
        faults, [](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
            const ScriptedProvider provider = makeScriptedProvider(stage.Scope.Program, "content");
            stage.Consumer = makeScriptedConsumer(stage.Scope.Program);
            const ScriptedReporter reporter = makeScriptedReporter(stage.Scope.Program);
            start();
            const Object connection = stage.Scope.makeAdapter();
            connection.set("URL", server.url("/"));
            connection.call("openConnection");
            connection.set("RequestMethod", "PUT");
            connection.set("Provider", provider);
            connection.set("Consumer", *stage.Consumer);
            connection.set("ProgressReporter", reporter);
            stage.Outcome = receiveBytes(connection);
            connection.call("closeConnection");
        });
}

PlayedRun saveToFile(const FaultInjection& faults) {
    const TemporaryFolder folder;
    return play({answers({response("saved")})}, faults,
                [&](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
                    start();
                    const Object connection = stage.Scope.makeAdapter();
                    connection.set("URL", server.url("/"));
                    connection.call("openConnection");
                    connection.call("copyContentToFile", {folder.file("saved")});
                    stage.Outcome = readFile(folder.file("saved"));
                    connection.call("closeConnection");
                });
}

PlayedRun logIn(const FaultInjection& faults) {
    const std::string refusal =
        response("who?", {"WWW-Authenticate: Digest realm=\"a\", nonce=\"b\""}, "401 Unauthorized");
    return play({answers({refusal, response("welcome")})}, faults,
                [](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
                    start();
                    const Object connection = stage.Scope.makeAdapter();
                    connection.set("URL", server.url("/"));
                    connection.set("Username", "user");
                    connection.set("Password", "word");
                    connection.call("setAuthenticationSchemes",
                                    {Array::enumeration(vantik::kAuthenticationSchemeClass, {"Digest"}), false});
                    connection.call("openConnection");
                    stage.Outcome = receiveBytes(connection);
                    if (connection.get("ResponseCode").number() == 401.0) {
                        throw std::runtime_error("401 " + stage.Outcome);
                    }
                    connection.call("closeConnection");
                });
}

// The content in gzip: "hello hello hello".
PlayedRun decode(const FaultInjection& faults) {
    const std::string content("\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xcb\x48\xcd\xc9\xc9\x57\xc8\x40\x90\x00\x80\x88"
                              "\xf9\xe5\x11\x00\x00\x00",
                              28);
    return play({answers({response(content, {"Content-Encoding: gzip"})})}, faults,
                [](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
                    start();
                    const Object connection = stage.Scope.makeAdapter();
                    connection.set("URL", server.url("/"));
                    connection.call("openConnection");
                    stage.Outcome = receiveBytes(connection);
                    connection.call("closeConnection");
                });
}

PlayedRun renewHandles(const FaultInjection& faults) {
    return play({answers({response("old")}), answers({response("new")})}, faults,
                [](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
                    const Object connection = stage.Scope.makeAdapter();
                    connection.set("URL", server.url("/"));
                    connection.call("openConnection");
                    stage.Outcome = receiveBytes(connection) + ' ';
                    connection.call("closeConnection");
                    start();
                    connection.call("closeAllConnections");
                    connection.call("openConnection");
                    stage.Outcome += receiveBytes(connection);
                    connection.call("closeConnection");
                });
}

} // namespace

void PrintTo(const Scenario& scenario, std::ostream* stream) {
    *stream << scenario.Name;
}

const std::vector<Scenario>& faultScenarios() {
    static const std::vector<Scenario> scenarios = {{"GetTwice", getTwice},
                                                    {"PutFromMemory", putFromMemory},
                                                    {"StreamBothWays", streamBothWays},
                                                    {"SaveToFile", saveToFile},
                                                    {"LogIn", logIn},
                                                    {"Decode", decode},
                                                    {"RenewHandles", renewHandles}};
    return scenarios;
}

} // namespace testsupport
