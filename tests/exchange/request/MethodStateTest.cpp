// Every method in every state of a connection: what it answers, and whether it sends the request.
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/UnreachablePorts.h"
#include "tests/support/server/WireText.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace testsupport;
using vantik::Array;
using vantik::Object;

enum class State {
    New,      // no URL
    UrlSet,   // not opened
    Open,     // nothing sent
    HeadRead, // the status has been asked for, the content waits
    Copied,   // the content has been taken
    Closed,   // after that
    Failed,   // the server refused the connection
};
constexpr State kStates[] = {State::New,    State::UrlSet, State::Open,  State::HeadRead,
                             State::Copied, State::Closed, State::Failed};
constexpr const char* kStateNames[] = {"New", "UrlSet", "Open", "HeadRead", "Copied", "Closed", "Failed"};

constexpr const char* kMethods[] = {
    "openConnection",     "openProxyConnection", "closeConnection",  "copyContentToByteArray",
    "copyContentToFile",  "setRequestProperty",  "setFields",        "removeField",
    "getRequestFields",   "getRequestURI",       "getRequestMethod", "getResponseFields",
    "getResponseField",   "getRequestLine",      "getStatusLine",    "setAuthenticationSchemes",
    "closeAllConnections"};

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        all += (i == 0 ? "" : "|") + texts[i];
    }
    return all;
}

class MethodState : public HostFixture, public ::testing::WithParamInterface<std::tuple<State, const char*>> {
protected:
    MethodState()
        : Server(serve({step::expectHead(), step::send("HTTP/1.1 200 Fine\r\nX-A: 1\r\nContent-Length: 4\r\n\r\nbody"),
                        step::expectHead(), step::send(response("next"))})),
          Url(std::get<0>(GetParam()) == State::Failed ? Refusing.url("/p?q") : Server.url("/p?q")) {}

    // A connection that has been brought into the state.
    Object makeIn(State state) {
        Object connection = makeAdapter();
        if (state == State::New) {
            return connection;
        }
        connection.set("URL", Url);
        if (state == State::UrlSet) {
            return connection;
        }
        connection.call("openConnection");
        connection.set("RequestMethod", "GET");
        if (state == State::Failed) {
            failureOf([&] { receiveBytes(connection); });
        }
        if (state == State::HeadRead) {
            resultTexts(connection, "getStatusLine", 2);
        }
        if (state == State::Copied || state == State::Closed) {
            receiveBytes(connection);
        }
        if (state == State::Closed) {
            connection.call("closeConnection");
        }
        return connection;
    }

    // What a method answers, in one line.
    std::string answer(const Object& connection, const std::string& method) {
        const Array field = Array::structures({"Name", "Value"}, {{"X-B", "2"}});
        const Array schemes =
            Array::enumeration("vantik.net.http.AuthenticationScheme", std::vector<std::string>{"Basic"});
        const std::string file = Folder.file("saved");
        const std::map<std::string, std::vector<Array>> inputs = {
            {"openProxyConnection", {Array::structure({{"Host", ""}, {"Port", Array()}})}},
            {"copyContentToByteArray", {true}},
            {"copyContentToFile", {file}},
            {"setRequestProperty", {"X-B", "2"}},
            {"setFields", {field}},
            {"removeField", {"X-B"}},
            {"getResponseField", {"x-a"}},
            {"setAuthenticationSchemes", {schemes, false}},
        };
        const auto given = inputs.find(method);
        const int wanted = method == "getRequestLine" || method == "getStatusLine"  ? 3
                           : method.starts_with("get") || method.ends_with("Array") ? 1
                                                                                    : 0;
        const std::vector<Array> none;
        std::vector<std::string> texts;
        try {
            for (const Array& result : connection.call(method, given == inputs.end() ? none : given->second, wanted)) {
                texts.push_back(textOf(result));
            }
        } catch (const vantik::Failure& failure) {
            vantik::Message message = failure.message();
            if (message.identifier() == "VANTIK:webservices:ConnectionRefused") {
                message.Arguments.resize(1); // libcurl's text, with a time in it, stands behind the URL
            }
            texts.push_back(describe(message));
        }
        const std::string text = joined(texts);
        if (method == "copyContentToFile") {
            return text + "file: " + (std::filesystem::exists(file) ? readFile(file) : "none");
        }
        return text;
    }

    // What stands in for the server's own address in the tables.
    std::string generalised(std::string text) const {
        for (const auto& [shown, name] :
             {std::pair{Url, std::string("URL")}, {Url.substr(7, Url.find('/', 7) - 7), std::string("HOST")}}) {
            for (std::size_t at = text.find(shown); at != std::string::npos; at = text.find(shown)) {
                text.replace(at, shown.size(), name);
            }
        }
        return text;
    }

    std::size_t requestsSeen() const { return Server.connectionCount() == 0 ? 0 : Server.record().Heads.size(); }

    RefusingPort Refusing;
    ScriptedServer& Server;
    std::string Url;
    TemporaryFolder Folder;

private:
    static std::string textOf(const Array& result) {
        if (result.className() == "struct") {
            return "{" + joined(fieldTexts(result)) + "}";
        }
        if (result.className() == "uint8") {
            return std::to_string(result.dimensions().at(0)) + "x" + std::to_string(result.dimensions().at(1)) + " [" +
                   std::string(result.byteText()) + "]";
        }
        if (result.className().empty()) {
            return "nothing";
        }
        return result.className() == "char" ? result.text() : std::to_string(static_cast<int>(result.number()));
    }
};

const std::string kRefused = "VANTIK:webservices:ConnectionRefused(URL)";
const std::string kCopied =
    "VANTIK:webservices:InternalError(The content of this response has been copied already, in whole "
    "or in part, and comes only once. Close the connection and open it again.)";
const std::string kStillOpen = "VANTIK:webservices:InternalError(resetHandles() called when connection is open)";

// What each method answers by state, in the order New, UrlSet, Open, HeadRead, Copied, Closed, Failed. A wrong state is
// silent, with two exceptions: closing all connections fails while one is open, and a copy fails after a copy. After a
// send that failed before its head was out, what asks for the response sends again.
// clang-format off
const std::map<std::string, std::array<std::string, 7>> kAnswers = {
    {"openConnection",           {"", "", "", "", "", "", ""}},
    {"openProxyConnection",      {"", "", "", "", "", "", ""}},
    {"closeConnection",          {"", "", "", "", "", "", ""}},
    {"copyContentToByteArray",   {"0x1 []", "0x1 []", "4x1 [body]", "4x1 [body]", kCopied, "0x1 []", kRefused}},
    {"copyContentToFile",        {"file: ", "file: ", "file: body", "file: body", kCopied + "file: none", "file: ", kRefused + "file: "}},
    {"setRequestProperty",       {"", "", "", "", "", "", ""}},
    {"setFields",                {"", "", "", "", "", "", ""}},
    {"removeField",              {"", "", "", "", "", "", ""}},
    {"getRequestFields",         {"{}", "{}", "{}", "{Host: HOST}", "{Host: HOST}", "{Host: HOST}", "{}"}},
    {"getRequestURI",            {"", "URL", "URL", "URL", "URL", "URL", "URL"}},
    {"getRequestMethod",         {"", "", "GET", "GET", "GET", "GET", "GET"}},
    {"getResponseFields",        {"{}", "{}", "{}", "{X-A: 1|Content-Length: 4}", "{X-A: 1|Content-Length: 4}", "{X-A: 1|Content-Length: 4}", "{}"}},
    {"getResponseField",         {"nothing", "nothing", "nothing", "1", "1", "1", "nothing"}},
    {"getRequestLine",           {"||HTTP/1.1", "|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1"}},
    {"getStatusLine",            {"HTTP/1.1|0|", "HTTP/1.1|0|", "HTTP/1.1|200|Fine", "HTTP/1.1|200|Fine", "HTTP/1.1|200|Fine", "HTTP/1.1|200|Fine", kRefused}},
    {"setAuthenticationSchemes", {"", "", "", "", "", "", ""}},
    {"closeAllConnections",      {"", "", kStillOpen, kStillOpen, kStillOpen, "", kStillOpen}},
};
// clang-format on

// Only what asks for the response sends, and only where nothing has been sent.
bool sends(State state, const std::string& method) {
    return state == State::Open &&
           (method == "copyContentToByteArray" || method == "copyContentToFile" || method == "getStatusLine");
}

bool isOpenAfter(State state, const std::string& method) {
    if (method == "openConnection" || method == "openProxyConnection") {
        return state != State::New;
    }
    return method != "closeConnection" &&
           (state == State::Open || state == State::HeadRead || state == State::Copied || state == State::Failed);
}

} // namespace

TEST_P(MethodState, AnswersAsItsStateSays) {
    const auto [state, method] = GetParam();
    const Object connection = makeIn(state);
    const std::size_t sentBefore = requestsSeen();
    EXPECT_EQ(generalised(answer(connection, method)), kAnswers.at(method).at(static_cast<std::size_t>(state)));
    EXPECT_EQ(requestsSeen() - sentBefore, sends(state, method) ? 1U : 0U);
    // While a connection is open no other one can be built.
    if (isOpenAfter(state, method)) {
        EXPECT_EQ(describe(failureOf([&] { makeAdapter(); })), "VANTIK:http:OnlyOneTransferAtATime()");
    } else {
        makeAdapter();
    }
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(All, MethodState,
                         ::testing::Combine(::testing::ValuesIn(kStates), ::testing::ValuesIn(kMethods)),
                         [](const auto& info) {
                             return std::string(kStateNames[static_cast<int>(std::get<0>(info.param))]) + "_" +
                                    std::get<1>(info.param);
                         });
