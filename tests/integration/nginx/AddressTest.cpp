// Addresses and names: what is reached, and what is reported where nothing is. Plain HTTP throughout: TLS comes
// after the connection, but for one row of each kind.
#include "tests/integration/nginx/AddressPeer.h"
#include "tests/integration/support/IntegrationFixture.h"

#include <map>
#include <memory>

namespace {

using namespace integrationtest;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

const auto kNameOf = [](const auto& info) { return std::string(info.param.Name); };

class Addresses : public IntegrationFixture {
protected:
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
        connection.call("closeConnection");
        connection.set("URL", peer(Side::Served, Side::Refused).url("127.0.0.1", false));
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
        const Object connection = open(
            server.url(row.Host, secure),
            {.CertificateFile = secure ? server.certificateFile() : "", .Limits = {20000}, .OptionsMode = optionsMode});
        EXPECT_THAT(receiveBytes(connection), expected);
        EXPECT_EQ(status(connection), 200);
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
    Side Met;          // what decides
    bool Secure = false;
};

// clang-format off
const FailedRow kFailedRows[] = {
    {"IPv4ThatRefuses", Side::Refused, Side::Served, "127.0.0.1", "127.0.0.1", Side::Refused},
    {"IPv6ThatRefuses", Side::Served, Side::Refused, "[::1]", "::1", Side::Refused},
    {"NameOfBothThatRefuseUnderTls", Side::Refused, Side::Refused, "localhost", "localhost", Side::Refused, true},
    {"IPv6ThatIsSilent", Side::Served, Side::Silent, "[::1]", "::1", Side::Silent},
    {"NameOfBothThatAreSilentUnderTls", Side::Silent, Side::Silent, "localhost", "localhost", Side::Silent, true},
    {"NameWhoseOtherSideRefuses", Side::Silent, Side::Refused, "localhost", "localhost", Side::Silent},
};
// clang-format on

class UnreachedAddress : public Addresses, public testing::WithParamInterface<FailedRow> {};

TEST_P(UnreachedAddress, IsReportedWithHostAndPortOrWithTheLimit) {
    const FailedRow& row = GetParam();
    const bool silent = row.Met == Side::Silent;
    const AddressPeer& server = peer(row.IPv4, row.IPv6);
    const std::string url = server.url(row.Host, row.Secure);
    const std::string refusal = "Failed to connect to " + std::string(row.Named) + " port " +
                                std::to_string(server.port(row.Secure)) + " after ";
    const std::string key = std::string("VANTIK:webservices:") + (silent ? "Timeout" : "ConnectionRefused");
    for (const bool optionsMode : {true, false}) {
        SCOPED_TRACE(optionsMode ? "newer interface" : "older interface");
        const std::string option = optionsMode ? "HTTPOptions.ConnectTimeout" : "weboptions.Timeout";
        const Object connection = open(url, {.Limits = {silent ? 300.0 : 20000.0}, .OptionsMode = optionsMode});
        const vantik::Message failure = failureOf([&] { receiveBytes(connection); });
        EXPECT_THAT(describe(failure), AllOf(StartsWith(key + "(" + url + ", " + (silent ? "0.300, " : refusal)),
                                             testing::EndsWith(silent ? ", " + option + ")" : ")")));
        ASSERT_EQ(failure.Arguments.size(), silent ? 4U : 2U);
        for (const auto& argument : failure.Arguments) {
            EXPECT_NE(std::get<std::string>(argument), "");
            EXPECT_THAT(failure.Text, HasSubstr(std::get<std::string>(argument)));
        }
        EXPECT_FALSE(connection.get("Sent").truth());
        expectGoodAgain(connection);
    }
    expectFailed(run({"get", "-k", "--connect-timeout", silent ? "300" : "20000", url}), silent ? 28 : 7,
                 AllOf(StartsWith("netrove: " + key + ": no connection to " + row.Host + ":" +
                                  std::to_string(server.port(row.Secure))),
                       HasSubstr(silent ? "the limit of --connect-timeout" : "nothing listens there")));
}

INSTANTIATE_TEST_SUITE_P(Rows, UnreachedAddress, testing::ValuesIn(kFailedRows), kNameOf);

// Names below "invalid" are reserved: nobody ever has them.
TEST_F(Addresses, NameThatNobodyHasIsUnknown) {
    const std::string url = "https://no-such-host.invalid/x";
    const Object connection = open(url, {.Limits = {60000}});
    const vantik::Message failure = failureOf([&] { receiveBytes(connection); });
    EXPECT_EQ(describe(failure), "VANTIK:webservices:UnknownHost(" + url + ")");
    EXPECT_THAT(failure.Text, HasSubstr(url));
    expectGoodAgain(connection);
    expectFailed(run({"get", url}), 6, "netrove: VANTIK:webservices:UnknownHost: " + failure.Text + "\n");
}

} // namespace
