// Addresses and names: what is reached, and what the caller is told where nothing is. Plain HTTP throughout: TLS comes
// after the connection, but for one row of each kind.
#include "tests/integration/nginx/AddressPeer.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gmock/gmock.h>

#include <map>
#include <memory>

namespace {

using namespace integrationtest;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using testsupport::Outcome;
using testsupport::run;
using vantik::Array;
using vantik::Object;

const auto kNameOf = [](const auto& info) { return std::string(info.param.Name); };

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

    // Started once for a suite.
    static const AddressPeer& peer(Side ipv4, Side ipv6) {
        std::unique_ptr<AddressPeer>& known = Peers[{ipv4, ipv6}];
        if (!known) {
            known = std::make_unique<AddressPeer>(ipv4, ipv6);
        }
        return *known;
    }
    static void TearDownTestSuite() { Peers.clear(); }

    // The same object reaches something after a failure, and so does a new one.
    void expectGoodAgain(const Object& connection) {
        const AddressPeer& good = peer(Side::Served, Side::Refused);
        connection.call("closeConnection");
        connection.set("URL", good.url("127.0.0.1", false));
        connection.set("TimeoutInMilliseconds", Array::doubles({20000}));
        connection.call("openConnection");
        EXPECT_THAT(receiveBytes(connection), StartsWith("127.0.0.1:"));
        expectScopeUsable(connection);
    }

private:
    inline static std::map<std::pair<Side, Side>, std::unique_ptr<AddressPeer>> Peers;
};

struct ReachedRow {
    const char* Name;
    Side IPv4;
    Side IPv6;
    const char* Host;
    const char* Sent;        // as Host field, without the port
    const char* ConnectedTo; // empty: one or the other
    bool Secure = false;
};

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
    {"IPv6AddressUnderTls", Side::Refused, Side::Served, "[::1]", "[::1]", "::1", true},
    {"NameUnderTls", Side::Served, Side::Refused, "localhost", "localhost", "127.0.0.1", true},
};

class ReachedAddress : public Addresses, public testing::WithParamInterface<ReachedRow> {};

TEST_P(ReachedAddress, AnswersEveryInterface) {
    const auto& row = GetParam();
    const bool secure = row.Secure;
    const AddressPeer& server = peer(row.IPv4, row.IPv6);
    const std::string host = std::string(row.Sent) + ":" + std::to_string(server.port(secure)) + " ";
    const auto expected = *row.ConnectedTo != 0 ? testing::Matcher<std::string>(host + row.ConnectedTo)
                                                : testing::AnyOf(host + "127.0.0.1", host + "::1");
    for (const bool optionsMode : {true, false}) {
        SCOPED_TRACE(optionsMode ? "newer interface" : "older interface");
        const Object connection =
            openAt(server.url(row.Host, secure), secure ? server.certificateFile() : "", 20000, optionsMode);
        EXPECT_THAT(receiveBytes(connection), expected);
        EXPECT_EQ(connection.get("ResponseCode").number(), 200.0);
        connection.call("closeConnection");
        connection.call("openConnection");
        EXPECT_THAT(receiveBytes(connection), expected) << "again";
        expectScopeUsable(connection);
    }
    const Outcome outcome = run({"get", "--ca-file", server.certificateFile(), server.url(row.Host, secure)});
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_THAT(outcome.Out, expected);
    EXPECT_EQ(outcome.Err, "");
}

INSTANTIATE_TEST_SUITE_P(Rows, ReachedAddress, testing::ValuesIn(kReachedRows), kNameOf);

struct FailedRow {
    const char* Name;
    Side IPv4;
    Side IPv6;
    const char* Host;
    const char* Named; // what libcurl calls it
    bool Secure = false;
};

class RefusedAddress : public Addresses, public testing::WithParamInterface<FailedRow> {};

TEST_P(RefusedAddress, IsToldWithHostAndPort) {
    const auto& row = GetParam();
    const bool secure = row.Secure;
    const AddressPeer& server = peer(row.IPv4, row.IPv6);
    const std::string url = server.url(row.Host, secure);
    const auto reason = StartsWith("Failed to connect to " + std::string(row.Named) + " port " +
                                   std::to_string(server.port(secure)) + " after ");
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

INSTANTIATE_TEST_SUITE_P(Rows, RefusedAddress,
                         testing::Values(FailedRow{"IPv4", Side::Refused, Side::Served, "127.0.0.1", "127.0.0.1"},
                                         FailedRow{"IPv6", Side::Served, Side::Refused, "[::1]", "::1"},
                                         FailedRow{"NameOfBothUnderTls", Side::Refused, Side::Refused, "localhost",
                                                   "localhost", true}),
                         kNameOf);

class SilentAddress : public Addresses, public testing::WithParamInterface<FailedRow> {};

TEST_P(SilentAddress, EndsWithTheLimitOfConnecting) {
    const auto& row = GetParam();
    const bool secure = row.Secure;
    const AddressPeer& server = peer(row.IPv4, row.IPv6);
    const std::string url = server.url(row.Host, secure);
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
    testing::Values(FailedRow{"IPv6", Side::Served, Side::Silent, "[::1]", "::1"},
                    FailedRow{"NameOfBothUnderTls", Side::Silent, Side::Silent, "localhost", "localhost", true},
                    FailedRow{"NameWhoseOtherSideRefuses", Side::Silent, Side::Refused, "localhost", "localhost"}),
    kNameOf);

// Names below "invalid" are reserved: nobody ever has them.
TEST_F(Addresses, NameThatNobodyHasIsUnknown) {
    const std::string url = "https://no-such-host.invalid/x";
    const Object connection = openAt(url, "", 60000);
    const vantik::Message failure = failureOf([&] { receiveBytes(connection); });
    EXPECT_EQ(describe(failure), "VANTIK:webservices:UnknownHost(" + url + ")");
    EXPECT_THAT(failure.Text, HasSubstr(url));
    expectGoodAgain(connection);
    const Outcome outcome = run({"get", url});
    EXPECT_EQ(outcome.Status, 6);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_EQ(outcome.Err, "netrove: VANTIK:webservices:UnknownHost: " + failure.Text + "\n");
}

} // namespace
