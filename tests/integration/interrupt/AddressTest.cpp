// Addresses and names: what is reached, and what the caller is told where nothing is.
#include "tests/integration/interrupt/AddressPeer.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/server/UnreachablePorts.h"

#include <gmock/gmock.h>

namespace {

using namespace integrationtest;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using testsupport::Outcome;
using testsupport::run;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

const char* schemeName(bool secure) {
    return secure ? "https" : "http";
}

class Addresses : public IntegrationFixture {
protected:
    Object openAt(const std::string& url, const std::string& certificateFile = {}, double connectLimit = 20000,
                  bool optionsMode = true) {
        Object connection = makeAdapter(optionsMode);
        connection.set("URL", url);
        connection.set("CertificateFilename", certificateFile);
        connection.set("TimeoutInMilliseconds", Array::doubles({connectLimit}));
        connection.call("openConnection");
        return connection;
    }

    // The same object reaches something behind a failure, and so does a new one.
    void expectGoodAgain(const Object& connection) {
        const AddressPeer good(Side::Served, Side::Refused);
        connection.call("closeConnection");
        connection.set("URL", good.url("127.0.0.1", false));
        connection.set("TimeoutInMilliseconds", Array::doubles({20000}));
        connection.call("openConnection");
        EXPECT_THAT(receiveBytes(connection), StartsWith("127.0.0.1:"));
        expectScopeUsable(connection);
    }
};

struct ReachedRow {
    const char* Name;
    Side IPv4;
    Side IPv6;
    const char* Host;
    const char* Sent;        // as Host field, without the port
    const char* ConnectedTo; // empty: one or the other
};

void PrintTo(const ReachedRow& row, std::ostream* stream) {
    *stream << row.Name;
}

const ReachedRow kReachedRows[] = {
    {"IPv4Address", Side::Served, Side::Refused, "127.0.0.1", "127.0.0.1", "127.0.0.1"},
    {"IPv6Address", Side::Refused, Side::Served, "[::1]", "[::1]", "::1"},
    {"IPv6AddressInFull", Side::Refused, Side::Served, "[0:0:0:0:0:0:0:1]", "[::1]", "::1"},
    {"IPv4AddressWithinIPv6", Side::Served, Side::Refused, "[::ffff:127.0.0.1]", "[::ffff:127.0.0.1]", "127.0.0.1"},
    {"NameOfBothWhereIPv4Listens", Side::Served, Side::Refused, "localhost", "localhost", "127.0.0.1"},
    {"NameOfBothWhereIPv6Listens", Side::Refused, Side::Served, "localhost", "localhost", "::1"},
    {"NameOfBothWhereBothListen", Side::Served, Side::Served, "localhost", "localhost", ""},
    {"NameOfBothWhereIPv6IsSilent", Side::Served, Side::Silent, "localhost", "localhost", "127.0.0.1"},
    {"NameInCapitals", Side::Served, Side::Refused, "LocalHost", "localhost", "127.0.0.1"},
};

class ReachedAddress : public Addresses, public testing::WithParamInterface<std::tuple<ReachedRow, bool>> {};

TEST_P(ReachedAddress, AnswersEveryInterface) {
    const auto& [row, secure] = GetParam();
    const AddressPeer peer(row.IPv4, row.IPv6);
    const std::string host = std::string(row.Sent) + ":" + std::to_string(peer.port(secure)) + " ";
    const auto expected = *row.ConnectedTo != 0 ? testing::Matcher<std::string>(host + row.ConnectedTo)
                                                : testing::AnyOf(host + "127.0.0.1", host + "::1");
    for (const bool optionsMode : {true, false}) {
        SCOPED_TRACE(optionsMode ? "newer interface" : "older interface");
        const Object connection =
            openAt(peer.url(row.Host, secure), secure ? peer.certificateFile() : "", 20000, optionsMode);
        EXPECT_THAT(receiveBytes(connection), expected);
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        connection.call("closeConnection");
        connection.call("openConnection");
        EXPECT_THAT(receiveBytes(connection), expected) << "again";
        expectScopeUsable(connection);
    }
    const Outcome outcome = run({"get", "--ca-file", peer.certificateFile(), peer.url(row.Host, secure)});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_THAT(outcome.Out, expected);
    EXPECT_EQ(outcome.Err, "");
}

INSTANTIATE_TEST_SUITE_P(Rows, ReachedAddress, testing::Combine(testing::ValuesIn(kReachedRows), testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).Name) +
                                    (std::get<1>(info.param) ? "UnderTls" : "");
                         });

struct FailedRow {
    const char* Name;
    Side IPv4;
    Side IPv6;
    const char* Host;
    const char* Named; // what libcurl calls it
};

void PrintTo(const FailedRow& row, std::ostream* stream) {
    *stream << row.Name;
}

class RefusedAddress : public Addresses, public testing::WithParamInterface<std::tuple<FailedRow, bool>> {};

TEST_P(RefusedAddress, IsToldWithHostAndPort) {
    const auto& [row, secure] = GetParam();
    const AddressPeer peer(row.IPv4, row.IPv6);
    const std::string url = peer.url(row.Host, secure);
    const auto reason = StartsWith("Failed to connect to " + std::string(row.Named) + " port " +
                                   std::to_string(peer.port(secure)) + " after ");
    for (const bool optionsMode : {true, false}) {
        SCOPED_TRACE(optionsMode ? "newer interface" : "older interface");
        const Object connection = openAt(url, "", 20000, optionsMode);
        const vantik::Message failure = failureOf([&] { receiveBytes(connection); });
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:ConnectionRefused");
        ASSERT_EQ(failure.Arguments.size(), 2U);
        EXPECT_EQ(std::get<std::string>(failure.Arguments[0]), url);
        EXPECT_THAT(std::get<std::string>(failure.Arguments[1]), reason);
        EXPECT_THAT(failure.Text, AllOf(HasSubstr(url), HasSubstr(std::get<std::string>(failure.Arguments[1]))));
        EXPECT_FALSE(connection.get("Sent").truth());
        expectGoodAgain(connection);
    }
    const Outcome outcome = run({"get", "-k", url});
    EXPECT_EQ(outcome.Status, 7);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, AllOf(StartsWith("netrove: VANTIK:webservices:ConnectionRefused: "), HasSubstr(url),
                                   HasSubstr("Failed to connect to " + std::string(row.Named))));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RefusedAddress,
    testing::Combine(testing::Values(FailedRow{"IPv4", Side::Refused, Side::Served, "127.0.0.1", "127.0.0.1"},
                                     FailedRow{"IPv6", Side::Served, Side::Refused, "[::1]", "::1"},
                                     FailedRow{"NameOfBoth", Side::Refused, Side::Refused, "localhost", "localhost"}),
                     testing::Bool()),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).Name) + (std::get<1>(info.param) ? "UnderTls" : "");
    });

class SilentAddress : public Addresses, public testing::WithParamInterface<std::tuple<FailedRow, bool>> {};

TEST_P(SilentAddress, EndsWithTheLimitOfConnecting) {
    const auto& [row, secure] = GetParam();
    const AddressPeer peer(row.IPv4, row.IPv6);
    const std::string url = peer.url(row.Host, secure);
    for (const bool optionsMode : {true, false}) {
        SCOPED_TRACE(optionsMode ? "newer interface" : "older interface");
        const std::string option = optionsMode ? "HTTPOptions.ConnectTimeout" : "weboptions.Timeout";
        const Object connection = openAt(url, "", 300, optionsMode);
        const vantik::Message failure = failureOf([&] { receiveBytes(connection); });
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:Timeout");
        ASSERT_EQ(failure.Arguments.size(), 4U);
        EXPECT_EQ(std::get<std::string>(failure.Arguments[0]), url);
        EXPECT_EQ(std::get<std::string>(failure.Arguments[1]), "0.300");
        EXPECT_EQ(std::get<std::string>(failure.Arguments[3]), option);
        for (const std::string& told :
             {url, std::string("0.300"), std::get<std::string>(failure.Arguments[2]), option}) {
            EXPECT_NE(told, "");
            EXPECT_THAT(failure.Text, HasSubstr(told));
        }
        expectGoodAgain(connection);
    }
    const Outcome outcome = run({"get", "-k", "--connect-timeout", "300", url});
    EXPECT_EQ(outcome.Status, 28);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, AllOf(StartsWith("netrove: VANTIK:webservices:Timeout: "), HasSubstr(url),
                                   HasSubstr("HTTPOptions.ConnectTimeout")));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SilentAddress,
    testing::Combine(testing::Values(FailedRow{"IPv4", Side::Silent, Side::Served, "127.0.0.1", "127.0.0.1"},
                                     FailedRow{"IPv6", Side::Served, Side::Silent, "[::1]", "::1"},
                                     FailedRow{"NameOfBoth", Side::Silent, Side::Silent, "localhost", "localhost"},
                                     FailedRow{"NameWhoseOtherSideRefuses", Side::Silent, Side::Refused, "localhost",
                                               "localhost"}),
                     testing::Bool()),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).Name) + (std::get<1>(info.param) ? "UnderTls" : "");
    });

TEST(AddressesWithoutIPv6, IPv4IsServedAndTheOtherSaysWhatIsMissing) {
    const AddressPeer both(Side::Served, Side::Served, false);
    for (const char* host : {"127.0.0.1", "localhost"}) {
        const Outcome outcome = run({"get", both.url(host, false)});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_THAT(outcome.Out, EndsWith(" 127.0.0.1"));
    }
    const AddressPeer second(Side::Refused, Side::Served, false);
    EXPECT_THAT(second.url("127.0.0.1", false), StartsWith("http://127.0.0.1:"));
    const std::pair<const AddressPeer*, const char*> lacking[] = {{&both, "[::1]"}, {&second, "localhost"}};
    for (const auto& [peer, host] : lacking) {
        try {
            peer->url(host, false);
            ADD_FAILURE() << host << " has a URL";
        } catch (const std::runtime_error& failure) {
            EXPECT_THAT(failure.what(), HasSubstr("no IPv6 loopback address (::1)"));
        }
    }
}

// Names below "invalid" are reserved: nobody ever has them.
TEST_F(Addresses, NameThatNobodyHasIsUnknown) {
    for (const bool secure : {false, true}) {
        const std::string url = std::string(schemeName(secure)) + "://no-such-host.invalid/x";
        std::string text;
        for (const bool optionsMode : {true, false}) {
            SCOPED_TRACE(std::string(schemeName(secure)) + (optionsMode ? ", newer interface" : ", older interface"));
            const Object connection = openAt(url, "", 60000, optionsMode);
            const vantik::Message failure = failureOf([&] { receiveBytes(connection); });
            EXPECT_EQ(describe(failure), "VANTIK:webservices:UnknownHost(" + url + ")");
            EXPECT_THAT(failure.Text, HasSubstr(url));
            text = failure.Text;
            expectGoodAgain(connection);
        }
        const Outcome outcome = run({"get", url});
        EXPECT_EQ(outcome.Status, 6);
        EXPECT_EQ(outcome.Out, "");
        EXPECT_EQ(outcome.Err, "netrove: VANTIK:webservices:UnknownHost: " + text + "\n");
    }
}

} // namespace
