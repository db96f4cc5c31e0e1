// Every method in every state of a connection: what it answers, and whether it sends the request.
#include "tests/exchange/ExchangeFixture.h"
#include "tests/support/server/UnreachablePorts.h"

#include <array>
#include <filesystem>

namespace {

using namespace testsupport;

struct State {
    const char* Name;
    bool IsOpen;
    std::size_t Column; // of the answers
};

// In the order in which they are gone through. HeadRead: the status has been asked for, the content waits. Failed: the
// server refused the connection.
enum Column { New, UrlSet, Open, HeadRead, Copied, Closed, Failed };
const State kStates[] = {{"New", false, New},          {"UrlSet", false, UrlSet}, {"Open", true, Open},
                         {"HeadRead", true, HeadRead}, {"Copied", true, Copied},  {"Closed", false, Closed},
                         {"Failed", true, Failed}};

const std::string kRefused = "VANTIK:webservices:ConnectionRefused(URL)";

struct Method {
    const char* Name;
    std::vector<Array> (*Inputs)(const std::string& file);
    int Results;                        // that are wanted
    bool Sends;                         // where nothing has been sent
    std::array<std::string, 7> Answers; // by state
};

std::array<std::string, 7> always(const std::string& answer) {
    return {answer, answer, answer, answer, answer, answer, answer};
}
std::vector<Array> none(const std::string&) {
    return {};
}

// A wrong state is silent, with two exceptions: closing all connections fails while one is open, and a copy fails after
// a copy. After a send that failed before its head was out, what asks for the response sends again.
// clang-format off
const Method kMethods[] = {
    {"openConnection", none, 0, false, always("")},
    {"openProxyConnection", [](const std::string&) { return std::vector<Array>{Array::structure({{"Host", ""}, {"Port", Array()}})}; }, 0, false, always("")},
    {"closeConnection", none, 0, false, always("")},
    {"copyContentToByteArray", [](const std::string&) { return std::vector<Array>{true}; }, 1, true,
     {"0x1 []", "0x1 []", "4x1 [body]", "4x1 [body]", kCopiedAlready, "0x1 []", kRefused}},
    {"copyContentToFile", [](const std::string& file) { return std::vector<Array>{file}; }, 0, true,
     {"file: ", "file: ", "file: body", "file: body", kCopiedAlready + std::string("file: none"), "file: ", kRefused + "file: "}},
    {"setRequestProperty", [](const std::string&) { return std::vector<Array>{"X-B", "2"}; }, 0, false, always("")},
    {"setFields", [](const std::string&) { return std::vector<Array>{Array::structures({"Name", "Value"}, {{"X-B", "2"}})}; }, 0, false, always("")},
    {"removeField", [](const std::string&) { return std::vector<Array>{"X-B"}; }, 0, false, always("")},
    {"getRequestFields", none, 1, false, {"{}", "{}", "{}", "{Host: HOST}", "{Host: HOST}", "{Host: HOST}", "{}"}},
    {"getRequestURI", none, 1, false, {"", "URL", "URL", "URL", "URL", "URL", "URL"}},
    {"getRequestMethod", none, 1, false, {"", "", "GET", "GET", "GET", "GET", "GET"}},
    {"getResponseFields", none, 1, false,
     {"{}", "{}", "{}", "{X-A: 1|Content-Length: 4}", "{X-A: 1|Content-Length: 4}", "{X-A: 1|Content-Length: 4}", "{}"}},
    {"getResponseField", [](const std::string&) { return std::vector<Array>{"x-a"}; }, 1, false,
     {"nothing", "nothing", "nothing", "1", "1", "1", "nothing"}},
    {"getRequestLine", none, 3, false,
     {"||HTTP/1.1", "|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1", "GET|/p?q|HTTP/1.1"}},
    {"getStatusLine", none, 3, true,
     {"HTTP/1.1|0|", "HTTP/1.1|0|", "HTTP/1.1|200|Fine", "HTTP/1.1|200|Fine", "HTTP/1.1|200|Fine", "HTTP/1.1|200|Fine", kRefused}},
    {"setAuthenticationSchemes", [](const std::string&) { return std::vector<Array>{Array::enumeration("vantik.net.http.AuthenticationScheme", {"Basic"}), false}; }, 0, false, always("")},
    {"closeAllConnections", none, 0, false, {"", "", kStillOpen, kStillOpen, kStillOpen, "", kStillOpen}},
};
// clang-format on

std::string joined(const Texts& texts) {
    std::string all;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        all += (i == 0 ? "" : "|") + texts[i];
    }
    return all;
}

std::string textOf(const Array& result) {
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

class MethodState : public ExchangeFixture, public ::testing::WithParamInterface<std::tuple<State, Method>> {
protected:
    MethodState()
        : Server(serve(answers("HTTP/1.1 200 Fine\r\nX-A: 1\r\nContent-Length: 4\r\n\r\nbody") +
                       answers(response("next")))),
          Url(std::get<0>(GetParam()).Column == Failed ? Refusing.url("/p?q") : Server.url("/p?q")) {}

    Object makeIn(std::size_t state) {
        if (state == New) {
            return makeAdapter();
        }
        if (state == UrlSet) {
            return makeFor(Url);
        }
        Object connection = open(Url);
        connection.set("RequestMethod", "GET");
        if (state == Failed) {
            failureOf([&] { receiveBytes(connection); });
        }
        if (state == HeadRead) {
            resultTexts(connection, "getStatusLine", 2);
        }
        if (state == Copied || state == Closed) {
            receiveBytes(connection);
        }
        if (state == Closed) {
            connection.call("closeConnection");
        }
        return connection;
    }

    // What a method answers, in one line, with words for the server's own address.
    std::string answerOf(const Object& connection, const Method& method) {
        const std::string file = Folder.file("saved");
        std::string text;
        try {
            Texts texts;
            for (const Array& result : connection.call(method.Name, method.Inputs(file), method.Results)) {
                texts.push_back(textOf(result));
            }
            text = joined(texts);
        } catch (const vantik::Failure& failure) {
            vantik::Message message = failure.message();
            if (message.identifier() == "VANTIK:webservices:ConnectionRefused") {
                message.Arguments.resize(1); // libcurl's text, with a time in it, stands after the URL
            }
            text = describe(message);
        }
        if (method.Name == std::string("copyContentToFile")) {
            text += "file: " + (std::filesystem::exists(file) ? readFile(file) : "none");
        }
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
};

} // namespace

TEST_P(MethodState, AnswersAsItsStateSays) {
    const auto& [state, method] = GetParam();
    const Object connection = makeIn(state.Column);
    const std::size_t sentBefore = requestsSeen();
    EXPECT_EQ(answerOf(connection, method), method.Answers.at(state.Column));
    EXPECT_EQ(requestsSeen() - sentBefore, state.Column == Open && method.Sends ? 1U : 0U);
    // While a connection is open no other one can be built.
    const std::string name = method.Name;
    const bool isOpen = name == "openConnection" || name == "openProxyConnection"
                            ? state.Column != New
                            : state.IsOpen && name != "closeConnection";
    EXPECT_EQ(outcomeOf([&] { makeAdapter(); }), isOpen ? kOnlyOneTransfer : "nothing");
    connection.call("closeConnection");
}

INSTANTIATE_TEST_SUITE_P(All, MethodState,
                         ::testing::Combine(::testing::ValuesIn(kStates), ::testing::ValuesIn(kMethods)), kRowName);
