#include "tests/support/host/HostFixture.h"

#include "tests/support/process/BuiltFile.h"
#include "tests/support/server/WireText.h"

#include <chrono>
#include <exception>
#include <utility>
#include <variant>

namespace testsupport {
namespace {

// A transfer that hangs ends as a failed test and not with the whole program.
constexpr std::chrono::seconds kUnreasonable{90};

} // namespace

HostFixture::HostFixture() : Program(std::make_unique<vantik::Host>()) {
    Program->onWarning([warnings = Warnings](const vantik::Message& message) { warnings->push_back(message); });
    Program->load(modulePath());
    Program->interruptAfter(kUnreasonable);
}

HostFixture::~HostFixture() {
    Program.reset();
    for (const auto& server : Servers) {
        try {
            server->waitUntilAllEnded();
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
}

vantik::Object HostFixture::makeAdapter(bool optionsMode) {
    return host().create(kAdapterClass, {optionsMode});
}

vantik::Object HostFixture::open(const std::string& url, bool optionsMode) {
    vantik::Object connection = makeAdapter(optionsMode);
    connection.set("URL", url);
    connection.call("openConnection");
    return connection;
}

ScriptedServer& HostFixture::serve(Script script, Pace pace) {
    return serve(std::vector<Script>{std::move(script)}, pace);
}

ScriptedServer& HostFixture::serve(std::vector<Script> scripts, Pace pace) {
    Servers.push_back(std::make_unique<ScriptedServer>(std::move(scripts), pace));
    return *Servers.back();
}

void HostFixture::expectScopeUsable(const vantik::Object& used) {
    if (used) {
        used.call("closeConnection");
    }
    // Not kept: once libcurl has kept four, it may close one that the test goes on with. It counts in milliseconds, so
    // the oldest may be any of them.
    const ScriptedServer& server =
        serve({step::expectHead(), step::send(response("still good", {"Connection: close"}))});
    try {
        const vantik::Object connection = open(server.url("/usable"));
        EXPECT_EQ(receiveBytes(connection), "still good");
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        EXPECT_EQ(startLine(server.record().Heads.at(0)), "GET /usable HTTP/1.1");
        connection.call("closeConnection");
    } catch (const std::exception& failure) {
        ADD_FAILURE() << "the scope is not usable any more: " << failure.what();
    }
}

std::string modulePath() {
    return builtFile("lib/libnetrove.so");
}

std::string receiveBytes(const vantik::Object& connection) {
    return std::string(connection.call("copyContentToByteArray", {true}).byteText());
}

std::vector<std::string> fieldTexts(const vantik::Array& fields) {
    std::vector<std::string> texts;
    for (std::size_t index = 0; index < fields.size(); ++index) {
        texts.push_back(fields.field("Name", index).text() + ": " + fields.field("Value", index).text());
    }
    return texts;
}

std::vector<std::string> resultTexts(const vantik::Object& object, const std::string& method, int resultsWanted) {
    std::vector<std::string> texts;
    for (const vantik::Array& result : object.call(method, std::span<const vantik::Array>(), resultsWanted)) {
        texts.push_back(result.isA("char") ? result.text() : std::to_string(static_cast<long long>(result.number())));
    }
    return texts;
}

vantik::Message failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const vantik::Failure& failure) {
        EXPECT_STRNE(failure.what(), "") << "a failure without text";
        return failure.message();
    }
    ADD_FAILURE() << "nothing failed";
    return {};
}

std::string describe(const vantik::Message& message) {
    std::string text = message.identifier() + "(";
    const char* separator = "";
    for (const vantik::MessageArgument& argument : message.Arguments) {
        text += separator;
        if (const auto* number = std::get_if<std::int64_t>(&argument)) {
            text += std::to_string(*number);
        } else {
            text += std::get<std::string>(argument);
        }
        separator = ", ";
    }
    return text + ")";
}

} // namespace testsupport
