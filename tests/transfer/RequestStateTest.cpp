// Who sends: every state of a connection with every operation that asks for the response.
#include "tests/transfer/ConnectionFixture.h"

#include <ostream>
#include <tuple>

namespace {

// What the operation gives, as text.
struct Operation {
    const char* Name;
    std::string (*Run)(HTTPConnection&);
    const char* Before; // what is known of an earlier exchange
    const char* After;  // what this exchange gives
};

void PrintTo(const Operation& operation, std::ostream* stream) {
    *stream << operation.Name;
}

const Operation kOperations[] = {
    {"sendRequest",
     [](HTTPConnection& connection) {
         connection.sendRequest();
         return std::string();
     },
     "", ""},
    {"getContentEncoding", [](HTTPConnection& connection) { return connection.getContentEncoding(); }, "old encoding",
     "br"},
    {"getContentType", [](HTTPConnection& connection) { return connection.getContentType(); }, "old type", "new type"},
    {"getRedirectURL", [](HTTPConnection& connection) { return connection.getRedirectURL(); }, "http://old/",
     "http://new/"},
    {"getResponseCode", [](HTTPConnection& connection) { return std::to_string(connection.getResponseCode()); }, "299",
     "302"},
};

using State = std::tuple<bool, bool, bool>; // Opened, ResponseDone, Sent

class RequestState : public OpenConnectionFixture, public ::testing::WithParamInterface<std::tuple<State, Operation>> {
protected:
    State state() const {
        return {connection.Transfer.Opened, connection.Transfer.ResponseDone, connection.SentHead.Sent};
    }
};

TEST_P(RequestState, SendsOnlyWhereItIsOpenAndNothingHasBeenSent) {
    const auto& [before, operation] = GetParam();
    std::tie(connection.Transfer.Opened, connection.Transfer.ResponseDone, connection.SentHead.Sent) = before;
    connection.Metadata.ContentEncoding = "old encoding";
    connection.Metadata.ContentType = "old type";
    connection.Metadata.RedirectURL = "http://old/";
    connection.ReceivedHead.ResponseCode = 299;
    playExchange("HTTP/1.1 302 Found\r\nContent-Encoding: br\r\nLocation: http://new/\r\n\r\n");
    curl.giveInfo(CURLINFO_CONTENT_TYPE, "new type");
    curl.clear();
    const bool due = before == State(true, false, false);
    EXPECT_EQ(operation.Run(connection), due ? operation.After : operation.Before);
    EXPECT_EQ(state(), due ? State(true, true, true) : before);
    EXPECT_EQ(curl.count(CurlFunction::MultiPerform), due ? 1U : 0U);
    EXPECT_EQ(curl.calls().empty(), !due);
    EXPECT_EQ(connection.Settings.RequestFields.size(), due ? 1U : 0U); // "Accept"

    // What is done is not done again, and what was not due does not become it.
    curl.clear();
    EXPECT_EQ(operation.Run(connection), due ? operation.After : operation.Before);
    EXPECT_TRUE(curl.calls().empty());
}

TEST_P(RequestState, CloseAndReopenMakeTheNextOneDue) {
    const auto& [before, operation] = GetParam();
    std::tie(connection.Transfer.Opened, connection.Transfer.ResponseDone, connection.SentHead.Sent) = before;
    reopen();
    EXPECT_EQ(state(), State(true, false, false));
    playExchange("HTTP/1.1 302 Found\r\nContent-Encoding: br\r\nLocation: http://new/\r\n\r\n");
    curl.giveInfo(CURLINFO_CONTENT_TYPE, "new type");
    EXPECT_EQ(operation.Run(connection), operation.After);
    EXPECT_EQ(state(), State(true, true, true));
}

// An open alone takes back that the head went out, but not that the exchange is done.
TEST_P(RequestState, ReopenAloneKeepsAnExchangeDone) {
    const auto& [before, operation] = GetParam();
    std::tie(connection.Transfer.Opened, connection.Transfer.ResponseDone, connection.SentHead.Sent) = before;
    const bool done = connection.Transfer.ResponseDone;
    connection.openConnection();
    EXPECT_EQ(state(), State(true, done, false));
    playExchange("HTTP/1.1 302 Found\r\n\r\n");
    curl.clear();
    operation.Run(connection);
    EXPECT_EQ(curl.count(CurlFunction::MultiPerform), done ? 0U : 1U);
}

std::string caseName(const ::testing::TestParamInfo<std::tuple<State, Operation>>& info) {
    const auto& [state, operation] = info.param;
    return std::string(operation.Name) + (std::get<0>(state) ? "Open" : "Closed") + (std::get<1>(state) ? "Done" : "") +
           (std::get<2>(state) ? "Sent" : "");
}

INSTANTIATE_TEST_SUITE_P(States, RequestState,
                         ::testing::Combine(::testing::Combine(::testing::Bool(), ::testing::Bool(), ::testing::Bool()),
                                            ::testing::ValuesIn(kOperations)),
                         caseName);

} // namespace
