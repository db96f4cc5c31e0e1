// Each state of a connection with each operation: the flags afterwards, the requests that went out, what came back.
#include "tests/transfer/ConnectionFixture.h"

#include <functional>
#include <memory>
#include <sstream>
#include <tuple>

namespace {

class LifecycleFixture : public ConnectionFixture {
protected:
    LifecycleFixture() {
        make();
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
        findReadyAlways();
        answer();
    }
    void make() {
        connection = std::make_unique<HTTPConnection>();
        connection->Settings.HTTPOptionsMode = true;
        connection->setURL(u"http://127.0.0.1/");
    }
    // The next perform of a send plays an exchange with content; the later ones find the transfer ended.
    void answer() {
        curl.OnPerform = [this](int& running) {
            running = 0;
            if (connection->Transfer.Opened && !connection->SentHead.Sent && !connection->Transfer.ResponseDone) {
                ++requests;
                curl.callRequestHead("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
                curl.callResponseHead(kOk);
                curl.callWrite("content");
                curl.finishWith(CURLE_OK);
            }
            return CURLM_OK;
        };
    }
    // The names of those that are set, of the connection and of its scope.
    std::string flags() const {
        const std::pair<bool, const char*> all[] = {{connection->Transfer.Opened, "opened "},
                                                    {connection->Transfer.ResponseDone, "done "},
                                                    {connection->SentHead.Sent, "sent "},
                                                    {connection->ReceivedHead.HeadersComplete, "head "},
                                                    {connection->Handles->ConnectionOpen, "scope-open"}};
        std::string text;
        for (const auto& [isSet, name] : all) {
            text += isSet ? name : "";
        }
        return text;
    }

    std::unique_ptr<HTTPConnection> connection;
    int requests = 0;

public: // the steps of the tables below, and what they bring
    using Self = LifecycleFixture;

    Self& open() { return connection->openConnection(), *this; }
    Self& withoutUrl() { return connection->setURL(u""), *this; }
    Self& close() { return connection->closeConnection(), *this; }
    Self& send() { return connection->sendRequest(), *this; }
    Self& destroy() { return connection.reset(), *this; }
    Self& copy() {
        std::ostringstream stream;
        const std::string failure = failureText([&] { connection->copyContentToStream(stream, true); });
        content = failure == "nothing" ? stream.str() : failure;
        return *this;
    }
    // A send that fails in the loop, before or after the head of its request.
    Self& fail(bool afterItsHead) {
        curl.OnPerform = [=, this](int&) {
            if (afterItsHead) {
                curl.callRequestHead("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
            }
            return CURLM_INTERNAL_ERROR;
        };
        EXPECT_NE(failureText([&] { connection->sendRequest(); }), "nothing");
        answer();
        return *this;
    }

    std::string content; // of the last copy, or what it failed with
};

using Steps = std::function<void(LifecycleFixture&)>;

struct Outcome {
    std::string Flags;
    int Requests = 0;
    std::string Content = "";
};

// A state: how it is reached, its flags, and what each operation makes of it.
struct State {
    const char* Name;
    Steps Enter;
    std::string Flags;
    Outcome Open, OpenWithoutUrl, Close, Send, Copy;
};

const std::string kNothingToCopy =
    internalError("The connection was opened again before the last response was copied. Close it first.");
const std::string kNothingCame =
    internalError("The transfer has failed, so there is nothing to copy. Close the connection and open it again.");
const std::string kCopiedAlready = internalError(
    "The content of this response has been copied already, in whole or in part, and comes only once. Close the "
    "connection and open it again.");

const std::string kOpened = "opened scope-open";
const std::string kSent = "opened sent scope-open";
const std::string kAvailable = "opened done sent head scope-open";
const std::string kCopied = "opened sent head scope-open";
const std::string kReopened = "opened done scope-open";

// An open leaves "done" alone, so that what was never copied is not asked for again, and a copy has nothing to take it
// from. Content comes once.
// clang-format off
const State kStates[] = {
    // Its flags, and then those after an open, an open without a URL, a close, a send, a copy.
    {"Fresh", [](auto&) {}, "",
     {kOpened}, {""}, {""}, {""}, {""}},
    {"Closed", [](auto& test) { test.open().send().close(); }, "",
     {kOpened}, {""}, {""}, {""}, {""}},
    {"Open", [](auto& test) { test.open(); }, kOpened,
     {kOpened}, {"scope-open"}, {""}, {kAvailable, 1}, {kCopied, 1, "content"}},
    {"FailedBeforeItsHead", [](auto& test) { test.open().fail(false); }, kOpened,
     {kOpened}, {"scope-open"}, {""}, {kAvailable, 1}, {kCopied, 1, "content"}},
    {"FailedAfterItsHead", [](auto& test) { test.open().fail(true); }, kSent,
     {kOpened}, {"scope-open"}, {""}, {kSent}, {kSent, 0, kNothingCame}},
    {"Available", [](auto& test) { test.open().send(); }, kAvailable,
     {kReopened}, {"done head scope-open"}, {""}, {kAvailable}, {kCopied, 0, "content"}},
    {"Copied", [](auto& test) { test.open().copy(); }, kCopied,
     {kOpened}, {"head scope-open"}, {""}, {kCopied}, {kCopied, 0, kCopiedAlready}},
    {"Reopened", [](auto& test) { test.open().send().open(); }, kReopened,
     {kReopened}, {"done scope-open"}, {""}, {kReopened}, {kReopened, 0, kNothingToCopy}},
};
// clang-format on

struct Operation {
    const char* Name;
    Steps Run;
    Outcome State::*Expected; // null: the connection is gone
    bool IsQuiet = false;     // libcurl is not called where no request goes out
};

const Operation kOperations[] = {
    {"Open", [](auto& test) { test.open(); }, &State::Open},
    {"OpenWithoutUrl", [](auto& test) { test.withoutUrl().open(); }, &State::OpenWithoutUrl, true},
    {"Close", [](auto& test) { test.close(); }, &State::Close, true},
    {"Send", [](auto& test) { test.send(); }, &State::Send, true},
    {"Copy", [](auto& test) { test.copy(); }, &State::Copy},
    {"Destroy", [](auto& test) { test.destroy(); }, nullptr},
};

class Lifecycle : public LifecycleFixture, public ::testing::WithParamInterface<std::tuple<State, Operation>> {};

TEST_P(Lifecycle, LeavesFlagsRequestsAndContent) {
    const auto& [state, operation] = GetParam();
    state.Enter(*this);
    ASSERT_EQ(flags(), state.Flags);
    requests = 0;
    content.clear();
    curl.clear();
    operation.Run(*this);
    if (operation.Expected == nullptr) {
        EXPECT_FALSE(getCurlSingleton().ConnectionOpen);
        const bool isOnTheHandles = state.Name != std::string("Fresh");
        EXPECT_EQ(handleCalls(), isOnTheHandles
                                     ? (std::vector<std::string>{"curl_multi_remove_handle", "curl_easy_reset"})
                                     : std::vector<std::string>{});
    } else {
        const Outcome& expected = state.*operation.Expected;
        EXPECT_EQ(flags(), expected.Flags);
        EXPECT_EQ(requests, expected.Requests);
        EXPECT_EQ(content, expected.Content);
        if (operation.IsQuiet && expected.Requests == 0) {
            EXPECT_THAT(curl.calls(), IsEmpty());
        }
    }

    // Whatever was done in whatever state, the same connection (or a new one) serves after a close.
    if (!connection) {
        make();
    }
    connection->closeConnection();
    requests = 0;
    connection->setURL(u"http://127.0.0.1/");
    EXPECT_EQ(open().copy().content, "content");
    EXPECT_EQ(requests, 1);
}

INSTANTIATE_TEST_SUITE_P(StatesAndOperations, Lifecycle,
                         ::testing::Combine(::testing::ValuesIn(kStates), ::testing::ValuesIn(kOperations)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) + '_' + std::get<1>(info.param).Name;
                         });

// libcurl would go on with the first transfer and its callback data.
TEST_F(LifecycleFixture, SendThatIsDueAgainTakesTheHandleOffAndOnWithTheOptionsOfTheOpen) {
    open().fail(false);
    curl.clear();
    send();
    EXPECT_THAT(curl.texts({CurlFunction::MultiRemoveHandle, CurlFunction::EasyReset, CurlFunction::MultiAddHandle}),
                ElementsAre("curl_multi_remove_handle", "curl_multi_add_handle"));
    EXPECT_EQ(copy().content, "content");
}

// The flag of the scope, and nothing else, refuses a second connection and new handles; neither touches the first one.
TEST_F(LifecycleFixture, SecondConnectionAndNewHandlesAreRefusedWhereOneIsOpen) {
    for (const State& state : kStates) {
        SCOPED_TRACE(state.Name);
        connection.reset();
        make();
        state.Enter(*this);
        const bool isOpen = state.Flags.ends_with("scope-open");
        curl.clear();
        EXPECT_EQ(failureText([] { HTTPConnection(); }), isOpen ? "VANTIK:http:OnlyOneTransferAtATime[]" : "nothing");
        EXPECT_EQ(failureText([] { HTTPConnection::closeAllConnections(); }),
                  isOpen ? internalError("resetHandles() called when connection is open") : "nothing");
        EXPECT_EQ(flags(), state.Flags);
        if (isOpen) {
            EXPECT_THAT(handleCalls(), IsEmpty());
            EXPECT_EQ(close().open().copy().content, "content");
        }
    }
}

} // namespace
