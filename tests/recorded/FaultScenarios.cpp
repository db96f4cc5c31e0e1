#include "tests/recorded/FaultScenarios.h"

#include "embedded/scope/Scope.h"
#include "hostclass/ModuleEntry.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/Gzip.h"
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
    // A new object whose connection to this server is open.
    Object open(const ScriptedServer& server) {
        Object connection = Program.create(kAdapterClass, {true});
        connection.set("URL", server.url("/"));
        connection.call("openConnection");
        return connection;
    }

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
        const Object connection = scope.open(server);
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

void receiveAll(Stage& stage, const Object& connection) {
    stage.Outcome += receiveBytes(connection);
}

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

// The plainest exchange of one object, whose server answers with these scripts. `change` sets what is particular.
PlayedRun playOne(const FaultInjection& faults, std::vector<Script> scripts,
                  const std::function<void(Stage&, const Object&)>& change,
                  const std::function<void(Stage&, const Object&)>& receive = receiveAll) {
    return play(std::move(scripts), faults,
                [&](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
                    start();
                    const Object connection = stage.Scope.open(server);
                    change(stage, connection);
                    receive(stage, connection);
                    connection.call("closeConnection");
                });
}

void asItIs(Stage& /*stage*/, const Object& /*connection*/) {}

PlayedRun getTwice(const FaultInjection& faults) {
    return playOne(faults, {answers({response("one", {"Location: /next"}), response("two")})}, asItIs,
                   [](Stage& stage, const Object& connection) {
                       receiveAll(stage, connection);
                       connection.call("openConnection");
                       receiveAll(stage, connection);
                       stage.Outcome += connection.get("RedirectURL").text().empty() ? " no redirect" : " redirect";
                   });
}

PlayedRun putFromMemory(const FaultInjection& faults) {
    return playOne(
        faults, {{step::expectHead(), step::continueIfExpected(), step::expectBody(3), step::send(response("stored"))}},
        [](Stage& /*stage*/, const Object& connection) {
            connection.set("RequestMethod", "PUT");
            connection.set("Payload", Array::bytes("abc"));
            connection.call("setFields", {Array::structures({"Name", "Value"}, {{"Content-Length", "3"},
                                                                                {"Cookie", "a=1"},
                                                                                {"Proxy-Connection", "close"}})});
        },
        [](Stage& stage, const Object& connection) {
            receiveAll(stage, connection);
            stage.Outcome += ' ' + std::to_string(fieldTexts(connection.call("getRequestFields")).size()) +
                             " fields, " + resultTexts(connection, "getStatusLine", 3)[1];
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
            const Object connection = stage.Scope.open(server);
            connection.set("RequestMethod", "PUT");
            connection.set("Provider", provider);
            connection.set("Consumer", *stage.Consumer);
            connection.set("ProgressReporter", reporter);
            receiveAll(stage, connection);
            connection.call("closeConnection");
        });
}

PlayedRun saveToFile(const FaultInjection& faults) {
    const TemporaryFolder folder;
    return playOne(faults, {answers({response("saved")})}, asItIs, [&](Stage& stage, const Object& connection) {
        connection.call("copyContentToFile", {folder.file("saved")});
        stage.Outcome = readFile(folder.file("saved"));
    });
}

PlayedRun logIn(const FaultInjection& faults) {
    const std::string refusal =
        response("who?", {"WWW-Authenticate: Digest realm=\"a\", nonce=\"b\""}, "401 Unauthorized");
    return playOne(
        faults, {answers({refusal, response("welcome")})},
        [](Stage& /*stage*/, const Object& connection) {
            connection.set("Username", "user");
            connection.set("Password", "word");
            connection.call("setAuthenticationSchemes",
                            {Array::enumeration(vantik::kAuthenticationSchemeClass, {"Digest"}), false});
        },
        [](Stage& stage, const Object& connection) {
            receiveAll(stage, connection);
            if (connection.get("ResponseCode").number() == 401.0) {
                throw std::runtime_error("401 " + stage.Outcome);
            }
        });
}

PlayedRun decode(const FaultInjection& faults) {
    return playOne(faults, {answers({response(gzip("hello hello hello"), {"Content-Encoding: gzip"})})}, asItIs);
}

PlayedRun renewHandles(const FaultInjection& faults) {
    return play({answers({response("old")}), answers({response("new")})}, faults,
                [](Stage& stage, const ScriptedServer& server, const std::function<void()>& start) {
                    const Object connection = stage.Scope.open(server);
                    receiveAll(stage, connection);
                    connection.call("closeConnection");
                    start();
                    connection.call("closeAllConnections");
                    connection.call("openConnection");
                    receiveAll(stage, connection);
                    connection.call("closeConnection");
                });
}

} // namespace

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
