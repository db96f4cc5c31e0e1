// Transfers that fail: what the caller is told, what is left to copy, and that the object is good for another exchange.
// A head with a status outside success is a good answer however the transfer ended, and no other ending is.
#include "tests/exchange/ExchangeFixture.h"
#include "tests/support/server/UnreachablePorts.h"

#include <fnmatch.h>
#include <gmock/gmock.h>

namespace {

using namespace testsupport;

const std::string kPrefix = "VANTIK:webservices:";

// In a row's failure <url> stands for the URL and [!<]* for words of libcurl, which are never empty.
const char* const kConnectionRefused = "ConnectionRefused(<url>, [!<]*)";
const char* const kNoLineEnd = "InternalError(CRLF not found at the end of the received headers)";

void expectFailure(const std::string& outcome, const std::string& failure, const std::string& url) {
    std::string text = outcome;
    for (std::size_t at = text.find(url); at != std::string::npos; at = text.find(url)) {
        text.replace(at, url.size(), "<url>");
    }
    EXPECT_EQ(::fnmatch((kPrefix + failure).c_str(), text.c_str(), 0), 0) << outcome << "\nis not " << failure;
}

struct Row {
    const char* Name;
    const char* Failure;
    std::string Sent; // after the request's head
    Step (*End)() = step::close;
    const char* Field = ""; // value of a field of the request
};

const Row kRows[] = {
    {"NoAnswer", "CopyContentToDataStreamError(*(CURLE code 52)*, <url>)", ""},
    {"NoHttp", "CopyContentToDataStreamError(*(CURLE code 1)*, <url>)", "220 mail.example ESMTP\r\n\r\n"},
    {"ResetInPlaceOfAnAnswer", kConnectionRefused, "", step::reset},
    {"ResetInTheHead", kConnectionRefused, "HTTP/1.1 200 OK\r\nX-A: 1\r\n", step::reset},
    {"ResetAfterTheHead", kConnectionRefused, "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n", step::reset},
    {"ResetInTheContent", kConnectionRefused, kPart, step::reset},
    {"BrokenChunks", kConnectionRefused, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\nzz\r\n"},
    {"BrokenCompression", "DecodingError(gzip, [!<]*)", response("this is not gzip", {"Content-Encoding: gzip"})},
    {"UnknownCompression", "DecodingError(fancy, [!<]*)", response("body", {"Content-Encoding: fancy"})},
    {"LineFeedAlone", kNoLineEnd, "HTTP/1.1 200 OK\r\nX-A: 1\nContent-Length: 4\r\n\r\nbody"},
    {"LineFeedAloneOfAFailedStatus", kNoLineEnd, "HTTP/1.1 500 Bad\r\nX-A: 1\nContent-Length: 0\r\n\r\n"},
    // Lines that end in a line feed alone are not stored, so libcurl knows a status and the connection knows no head.
    {"SuccessWithoutAHead", kNoLineEnd, "HTTP/1.1 200 OK\nContent-Length: 0\n\n"},
    {"RefusalWithoutAHead", "InternalError(Nonzero response code but no headers received)",
     "HTTP/1.1 404 Not Found\nContent-Length: 0\n\n"},
    {"ResetOfSuccessWithoutAHead", kConnectionRefused, "HTTP/1.1 200 OK\nContent-Length: 9\n\n", step::reset},
    {"ResetOfRefusalWithoutAHead", kConnectionRefused, "HTTP/1.1 404 Not Found\nContent-Length: 9\n\n", step::reset},
    // A value that holds line ends breaks the request's head in two, and what follows is not a request line.
    {"BadRequestHead", "InternalError(No space found in request line)", response("body"), step::close,
     "1\r\n\r\nNoBlanks"},
};

struct Target {
    const char* Name;
    void (*Copy)(const Object& connection, const std::string& file);
};

const Target kTargets[] = {
    {"ByteArray", [](const Object& connection, const std::string&) { receiveBytes(connection); }},
    {"File", [](const Object& connection, const std::string& file) { connection.call("copyContentToFile", {file}); }},
    {"Consumer",
     [](const Object& connection, const std::string&) { connection.call("copyContentToByteArray", {false}); }},
};

class FailedTransfer : public ExchangeFixture, public ::testing::WithParamInterface<std::tuple<Row, Target, Pace>> {};

TEST_P(FailedTransfer, SaysWhatWentWrongAndLeavesNothingToCopy) {
    const auto& [row, target, pace] = GetParam();
    ScriptedServer& server = serve({answers(row.Sent) + Script{row.End()}, answers(response("next"))}, pace);
    const Object connection = open(server.url("/"));
    if (*row.Field != '\0') {
        connection.call("setRequestProperty", {"X-Broken", row.Field});
    }
    connection.set("Consumer", makeScriptedConsumer(host()));
    const std::string outcome = outcomeOf([&, &copy = target.Copy] { copy(connection, Folder.file("saved")); });
    expectFailure(outcome, row.Failure, server.url("/"));
    for (int round = 0; round < 2; ++round) {
        expectCopyRefused(connection, kTransferFailed);
        EXPECT_EQ(outcomeOf([&] { connection.get("ResponseCode"); }), "nothing") << "what is known stays known";
    }
    connection.call("closeConnection");
    connection.set("Consumer", Array());
    connection.call("openConnection");
    EXPECT_EQ(connection.get("ResponsePayload").size(), 0U);
    EXPECT_EQ(receiveBytes(connection), "next");
}

INSTANTIATE_TEST_SUITE_P(Rows, FailedTransfer,
                         ::testing::Combine(::testing::ValuesIn(kRows), ::testing::ValuesIn(kTargets),
                                            ::testing::Values(Pace::Whole, Pace::SingleBytes)),
                         kRowName);

class Failure : public ExchangeFixture {
protected:
    // Lets the server go on once the consumer has seen a piece.
    ScriptedConsumer makeSeeing(ScriptedServer& server) {
        ScriptedConsumer consumer = makeScriptedConsumer(host());
        consumer->OnPut = [&server](int, const std::string& piece) {
            server.raise("piece seen");
            return allOf(piece);
        };
        return consumer;
    }
};

TEST_F(Failure, OfAnAddressNamesIt) {
    struct Row {
        std::string Url;
        const char* Failure;
    };
    const RefusingPort refusing;
    for (const Row& row : {Row{"http:///path", "FileNotFound(<url>)"},
                           // An address by the grammar, and none that libcurl knows.
                           {"http://[v7.of-the-future]/", "MalformedURL(<url>)"},
                           {"http://no-such-host.invalid/", "UnknownHost(<url>)"}, // reserved: never in use anywhere
                           {refusing.url("/"), kConnectionRefused}}) {
        for (const bool optionsMode : {true, false}) {
            const Object connection = makeFor(row.Url, optionsMode);
            connection.set("TimeoutInMilliseconds", Array::doubles({60000}));
            const std::string outcome = outcomeOf([&] {
                connection.call("openConnection");
                receiveBytes(connection);
            });
            expectFailure(outcome, row.Failure, connection.get("URL").text());
            expectScopeUsable(connection);
        }
    }
}

// Nothing of the request has gone out, so that it is due again.
TEST_F(Failure, BeforeTheHeadIsOutIsTriedAgainByWhateverSends) {
    const RefusingPort port;
    for (const char* property : {"ContentType", "ContentEncoding", "RedirectURL", "ResponseCode"}) {
        const Object connection = open(port.url("/"));
        expectFailure(outcomeOf([&] { connection.get(property); }), kConnectionRefused, port.url("/"));
        EXPECT_FALSE(connection.get("Sent").truth()) << property;
        expectFailure(outcomeOf([&] { receiveBytes(connection); }), kConnectionRefused, port.url("/"));
    }
}

TEST_F(Failure, IsExcusedByAStatusOutsideSuccess) {
    ScriptedServer& server = serve(answers("HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\n\r\npart") +
                                   Script{step::await("piece seen"), step::reset()});
    const ScriptedConsumer consumer = makeSeeing(server);
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    copyToConsumer(connection);
    EXPECT_EQ(consumer->content(), "part");
    EXPECT_EQ(connection.get("ResponseCode").number(), 404.0);
    EXPECT_EQ(connection.call("getResponseField", {"Content-Length"}).text(), "9");
    expectObjectUsable(connection);
}

// However often it is asked.
TEST_F(Failure, OfTheStatusIsReportedInTheOlderMode) {
    ScriptedServer& server = serve(answers(response("gone", {}, "404 Not Found")));
    const Object connection = open(server.url("/"), false);
    for (int round = 0; round < 2; ++round) {
        expectFailure(outcomeOf([&] { receiveBytes(connection); }), "StatusError(404, Not Found, <url>)",
                      server.url("/"));
    }
    EXPECT_EQ(connection.get("ResponseCode").number(), 404.0);
    EXPECT_EQ(server.record().Heads.size(), 1U);
    expectObjectUsable(connection);
}

// The counts are those from the end of the send: what came later is received, but not counted in the warning.
TEST_F(Failure, OfShortContentIsAWarningWithTheCountsOfTheSend) {
    ScriptedServer& server = serve(answers("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfour") +
                                   Script{step::await("piece seen"), step::send("56"), step::close()});
    const ScriptedConsumer consumer = makeSeeing(server);
    const Object connection = open(server.url("/"));
    connection.set("Consumer", consumer);
    copyToConsumer(connection);
    EXPECT_EQ(consumer->content(), "four56");
    ASSERT_EQ(warnings().size(), 1U);
    // The text after the counts is libcurl's, in which only its own count is the same in every version.
    EXPECT_THAT(describe(warnings()[0]), ::testing::AllOf(::testing::StartsWith(kPrefix + "PartialFileWarning(4, 10, "),
                                                          ::testing::HasSubstr("with 4 bytes ")));
    expectObjectUsable(connection);
    EXPECT_EQ(warnings().size(), 1U);
}

// The first copy has nowhere to go, so nobody hears its warning of what is missing.
TEST_F(Failure, OfShortContentWhoseWarningWentUnderIsNotCopiedLater) {
    ScriptedServer& server = serve(answers("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nab") + Script{step::close()});
    const Object connection = open(server.url("/"));
    EXPECT_THAT(outcomeOf([&] { copyToConsumer(connection); }),
                ::testing::HasSubstr("neither consumer nor savePayload"));
    // Where the end comes only now, its warning comes now too.
    const std::size_t before = warnings().size();
    const std::string later = outcomeOf([&] { receiveBytes(connection); });
    if (warnings().size() == before) {
        EXPECT_EQ(later, kTransferFailed);
    } else {
        EXPECT_EQ(later, "nothing");
        EXPECT_EQ(warnings().back().identifier(), kPrefix + "PartialFileWarning");
    }
}

} // namespace
