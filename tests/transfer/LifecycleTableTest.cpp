// Each state of a connection with each operation: the flags behind it, the requests that went out, what came back.
#include "tests/transfer/ConnectionFixture.h"

#include <memory>
#include <sstream>
#include <tuple>

namespace {

enum class State { Fresh, Closed, Open, FailedBeforeItsHead, FailedBehindItsHead, Available, Copied, Reopened };
enum class Operation { Open, OpenWithoutUrl, Close, Send, Copy, Destroy };

constexpr const char* kStateNames[] = {"Fresh",     "Closed", "Open",    "FailedBeforeItsHead", "FailedBehindItsHead",
                                      "Available", "Copied", "Reopened"};
constexpr const char* kOperationNames[] = {"Open", "OpenWithoutUrl", "Close", "Send", "Copy", "Destroy"};

// The flags in one word: o opened, d response done, s sent, c complete head, f the scope counts as open. A capital is
// set. Behind it how many requests the operation sends, and what it copies.
struct Outcome {
    const char* Flags;
    int Requests = 0;
    const char* Content = "";
};

struct Row {
    const char* FlagsBefore;
    Outcome Open, OpenWithoutUrl, Close, Send, Copy;
};

// In the order of the states. An open leaves ResponseDone alone, so that what was never copied is not asked for again,
// and a copy has nothing to take it from. Content comes once.
constexpr const char* kNothingToCopy = "VANTIK:webservices:InternalError[N:The connection was opened again before the "
                                      "last response was copied. Close it first.]";
constexpr const char* kNothingCame =
    "VANTIK:webservices:InternalError[N:The transfer has failed, so there is nothing to copy. Close the connection and "
    "open it again.]";
constexpr const char* kCopiedAlready =
    "VANTIK:webservices:InternalError[N:The content of this response has been copied already, in whole or in part, and "
    "comes only once. Close the connection and open it again.]";
const Row kRows[] = {
    {"odscf", {"OdscF"}, {"odscf"}, {"odscf"}, {"odscf"}, {"odscf"}},                   // fresh
    {"odscf", {"OdscF"}, {"odscf"}, {"odscf"}, {"odscf"}, {"odscf"}},                   // closed
    {"OdscF", {"OdscF"}, {"odscF"}, {"odscf"}, {"ODSCF", 1}, {"OdSCF", 1, "content"}},  // open
    {"OdscF", {"OdscF"}, {"odscF"}, {"odscf"}, {"ODSCF", 1}, {"OdSCF", 1, "content"}},  // failed early
    {"OdScF", {"OdscF"}, {"odscF"}, {"odscf"}, {"OdScF"}, {"OdScF", 0, kNothingCame}},   // failed late
    {"ODSCF", {"ODscF"}, {"oDsCF"}, {"odscf"}, {"ODSCF"}, {"OdSCF", 0, "content"}},     // available
    {"OdSCF", {"OdscF"}, {"odsCF"}, {"odscf"}, {"OdSCF"}, {"OdSCF", 0, kCopiedAlready}}, // copied
    {"ODscF", {"ODscF"}, {"oDscF"}, {"odscf"}, {"ODscF"}, {"ODscF", 0, kNothingToCopy}}, // reopened
};

class LifecycleFixture : public ConnectionFixture {
protected:
    LifecycleFixture() : connection(std::make_unique<HTTPConnection>()) {
        connection->Settings.HTTPOptionsMode = true;
        connection->setURL(u"http://127.0.0.1/");
    }

    // The next perform plays an exchange with content; the ones behind it find the transfer ended.
    void answer() {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 200L);
        curl.OnWait = [](int, int& ready) {
            ready = 1;
            return CURLM_OK;
        };
        curl.OnPerform = [this](int& running) {
            running = 0;
            if (connection->Transfer.Opened && !connection->SentHead.Sent && !connection->Transfer.ResponseDone) {
                ++requests;
                curl.callRequestHead("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
                curl.callResponseHead("HTTP/1.1 200 OK\r\n\r\n");
                curl.callWrite("content");
                curl.finishWith(CURLE_OK);
            }
            return CURLM_OK;
        };
    }
    // A send that fails in the loop, before or behind the head of its request.
    void fail(bool behindItsHead) {
        curl.OnPerform = [=, this](int&) {
            if (behindItsHead) {
                curl.callRequestHead("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
            }
            return CURLM_INTERNAL_ERROR;
        };
        EXPECT_NE(failureText([&] { connection->sendRequest(); }), "nothing");
        answer();
    }
    // The content, or what the copy failed with.
    std::string copied() {
        std::ostringstream content;
        const std::string failure = failureText([&] { connection->copyContentToStream(content, true); });
        return failure == "nothing" ? content.str() : failure;
    }
    void enter(State state) {
        answer();
        if (state == State::Fresh) {
            return;
        }
        connection->openConnection();
        switch (state) {
        case State::Fresh:
        case State::Open:
            break;
        case State::Closed:
            connection->sendRequest();
            connection->closeConnection();
            break;
        case State::FailedBeforeItsHead:
            fail(false);
            break;
        case State::FailedBehindItsHead:
            fail(true);
            break;
        case State::Available:
            connection->sendRequest();
            break;
        case State::Copied:
            EXPECT_EQ(copied(), "content");
            break;
        case State::Reopened:
            connection->sendRequest();
            connection->openConnection();
            break;
        }
    }
    std::string flags() const {
        std::string text;
        text += connection->Transfer.Opened ? 'O' : 'o';
        text += connection->Transfer.ResponseDone ? 'D' : 'd';
        text += connection->SentHead.Sent ? 'S' : 's';
        text += connection->ReceivedHead.HeadersComplete ? 'C' : 'c';
        text += connection->Handles->ConnectionOpen ? 'F' : 'f';
        return text;
    }

    std::unique_ptr<HTTPConnection> connection;
    int requests = 0;
};

class LifecycleTableTest : public LifecycleFixture, public ::testing::WithParamInterface<std::tuple<State, Operation>> {
protected:
    static const Row& row() { return kRows[static_cast<std::size_t>(std::get<0>(GetParam()))]; }
};

TEST_P(LifecycleTableTest, LeavesFlagsRequestsAndContent) {
    const auto [state, operation] = GetParam();
    enter(state);
    ASSERT_EQ(flags(), row().FlagsBefore);
    requests = 0;
    curl.clear();
    Outcome expected{"", 0, ""};
    std::string content;
    switch (operation) {
    case Operation::Open:
        expected = row().Open;
        connection->openConnection();
        break;
    case Operation::OpenWithoutUrl:
        expected = row().OpenWithoutUrl;
        connection->setURL(u"");
        connection->openConnection();
        EXPECT_THAT(curl.calls(), IsEmpty());
        break;
    case Operation::Close:
        expected = row().Close;
        connection->closeConnection();
        EXPECT_THAT(curl.calls(), IsEmpty());
        break;
    case Operation::Send:
        expected = row().Send;
        connection->sendRequest();
        if (expected.Requests == 0) {
            EXPECT_THAT(curl.calls(), IsEmpty());
        }
        break;
    case Operation::Copy:
        expected = row().Copy;
        content = copied();
        break;
    case Operation::Destroy:
        connection.reset();
        EXPECT_FALSE(getCurlSingleton().ConnectionOpen);
        if (state == State::Fresh) {
            EXPECT_THAT(handleCalls(), IsEmpty()) << "nothing of it is on the handles";
        } else {
            EXPECT_THAT(handleCalls(), ElementsAre("curl_multi_remove_handle", "curl_easy_reset"));
        }
        break;
    }
    if (connection) {
        EXPECT_EQ(flags(), expected.Flags);
    }
    EXPECT_EQ(requests, expected.Requests);
    EXPECT_EQ(content, expected.Content);
}

// Whatever was done in whatever state, the same connection (or a new one) serves behind a close.
TEST_P(LifecycleTableTest, NextExchangeIsAGoodOne) {
    const auto [state, operation] = GetParam();
    enter(state);
    switch (operation) {
    case Operation::Open:
        connection->openConnection();
        break;
    case Operation::OpenWithoutUrl:
        connection->setURL(u"");
        connection->openConnection();
        break;
    case Operation::Close:
        connection->closeConnection();
        break;
    case Operation::Send:
        connection->sendRequest();
        break;
    case Operation::Copy:
        copied();
        break;
    case Operation::Destroy:
        connection.reset();
        connection = std::make_unique<HTTPConnection>();
        connection->Settings.HTTPOptionsMode = true;
        break;
    }
    connection->closeConnection();
    requests = 0;
    answer();
    connection->setURL(u"http://127.0.0.1/");
    connection->openConnection();
    EXPECT_EQ(copied(), "content");
    EXPECT_EQ(requests, 1);
}

constexpr State kStates[] = {
    State::Fresh,     State::Closed, State::Open,    State::FailedBeforeItsHead, State::FailedBehindItsHead,
    State::Available, State::Copied, State::Reopened};
constexpr Operation kOperations[] = {Operation::Open, Operation::OpenWithoutUrl, Operation::Close,
                                    Operation::Send, Operation::Copy,           Operation::Destroy};

INSTANTIATE_TEST_SUITE_P(StatesAndOperations, LifecycleTableTest,
                         ::testing::Combine(::testing::ValuesIn(kStates), ::testing::ValuesIn(kOperations)),
                         [](const auto& info) {
                             return std::string(kStateNames[static_cast<int>(std::get<0>(info.param))]) + '_' +
                                    kOperationNames[static_cast<int>(std::get<1>(info.param))];
                         });

class LifecycleStateTest : public LifecycleFixture, public ::testing::WithParamInterface<State> {};

// The flag of the scope, and nothing else, refuses a second connection; the first one is not touched by it.
TEST_P(LifecycleStateTest, RefusesASecondConnectionWhereOneIsOpen) {
    enter(GetParam());
    const std::string before = flags();
    EXPECT_EQ(failureText([] { HTTPConnection(); }),
              before.back() == 'F' ? "VANTIK:http:OnlyOneTransferAtATime[]" : "nothing");
    EXPECT_EQ(flags(), before);
}

TEST_P(LifecycleStateTest, RefusesNewHandlesWhereOneIsOpen) {
    enter(GetParam());
    const std::string before = flags();
    EXPECT_EQ(failureText([] { HTTPConnection::closeAllConnections(); }),
              before.back() == 'F' ? internalError("resetHandles() called when connection is open") : "nothing");
    EXPECT_EQ(flags(), before);
}

INSTANTIATE_TEST_SUITE_P(kStates, LifecycleStateTest, ::testing::ValuesIn(kStates),
                         [](const auto& info) { return kStateNames[static_cast<int>(info.param)]; });

} // namespace
