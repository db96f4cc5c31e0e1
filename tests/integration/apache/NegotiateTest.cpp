// Negotiate authentication with Kerberos tickets, at Apache httpd.
#include "tests/integration/apache/ApacheFixture.h"
#include "tests/integration/apache/Kerberos.h"
#include "tests/support/process/ProgramRun.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <tuple>

namespace {

using namespace integrationtest;
using testing::HasSubstr;
using testsupport::makeScriptedProvider;
using testsupport::Outcome;
using testsupport::run;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

const Schemes kEvery = {"Basic", "Digest", "NTLM", "Negotiate"};

class Negotiate : public IntegrationFixture {
protected:
    static void SetUpTestSuite() {
        Realm = std::make_unique<Kerberos>();
        const auto location = [](const std::string& folder, const std::string& keytab) {
            return "<Location /" + folder +
                   ">\n  AuthType GSSAPI\n  AuthName negotiate\n  GssapiAllowedMech krb5\n  GssapiCredStore keytab:" +
                   keytab + "\n  Require valid-user\n</Location>\n";
        };
        Server = std::make_unique<Apache>(ApacheOptions{.Modules = {"auth_gssapi"},
                                                        .Configuration = location("negotiate", Realm->keytab()) +
                                                                         location("outdated", Realm->outdatedKeytab()),
                                                        .Environment = Realm->environment("server")});
        Realm->fetchTicket("good");
    }
    static void TearDownTestSuite() {
        Server.reset();
        Realm.reset();
    }
    static Apache& server() { return *Server; }
    static Kerberos& realm() { return *Realm; }

    // The libraries beneath find configuration and tickets in the environment, when they need them.
    static void useTickets(const std::string& cache) {
        for (const auto& [name, value] : Realm->environment(cache)) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
    }

    Object openAt(const std::string& path, const std::optional<Schemes>& allowed, bool optionsMode = true) {
        Object connection = open(Server->url(path, "localhost"), optionsMode);
        if (allowed) {
            connection.call("setAuthenticationSchemes",
                            {Array::enumeration("vantik.net.http.AuthenticationScheme", *allowed), false});
        }
        return connection;
    }
    static double status(const Object& connection) { return connection.get("ResponseCode").number(); }
    static std::string field(const Object& connection, const char* name) {
        return connection.call("getResponseField", {name}).text();
    }

    void expectRefused(const std::string& path, const Schemes& allowed) {
        const Object connection = openAt(path, allowed);
        EXPECT_NE(receiveBytes(connection).find("<title>401 Unauthorized</title>"), std::string::npos);
        EXPECT_EQ(status(connection), 401);
        EXPECT_THAT(field(connection, "WWW-Authenticate"), testing::StartsWith("Negotiate"));
        expectScopeUsable(connection);
    }

private:
    inline static std::unique_ptr<Kerberos> Realm;
    inline static std::unique_ptr<Apache> Server;
};

// As the only scheme it goes out with the first request.
TEST_F(Negotiate, TicketLetsIn) {
    useTickets("good");
    for (const auto& [query, allowed, seen] : {std::tuple("alone", Schemes{"Negotiate"}, Texts{"GET 200"}),
                                               std::tuple("every", kEvery, Texts{"GET 401", "GET 200"})}) {
        const Object connection = openAt(std::string("/negotiate/page?") + query, allowed);
        EXPECT_EQ(receiveDigest(connection).hex(), digestOf(server().page()));
        EXPECT_EQ(status(connection), 200);
        EXPECT_EQ(server().requests(query, seen.size()), seen);
        expectScopeUsable(connection);
    }
    const Object older = openAt("/negotiate/page", std::nullopt, false);
    EXPECT_EQ(receiveDigest(older).hex(), digestOf(server().page()));
    EXPECT_EQ(status(older), 200);
    expectScopeUsable(older);
}

TEST_F(Negotiate, ContentArrivesWholeAndTheServerKnowsWhoSends) {
    useTickets("good");
    const std::string content = generated(300'000);
    for (const bool provider : {false, true}) {
        const Object connection = openAt("/negotiate/echo", Schemes{"Negotiate"});
        connection.set("RequestMethod", "PUT");
        if (provider) {
            connection.set("Provider", makeScriptedProvider(host(), content));
        } else {
            connection.set("Payload", Array::bytes(std::string_view(content)));
        }
        EXPECT_EQ(receiveDigest(connection).hex(), digestOf(content)) << provider;
        EXPECT_EQ(status(connection), 200);
        EXPECT_EQ(field(connection, "X-User"), Kerberos::kPrincipal);
        EXPECT_EQ(field(connection, "X-Scheme"), "Negotiate");
        expectScopeUsable(connection);
    }
}

TEST_F(Negotiate, RequestsInARowAreLetInOnTheSameConnection) {
    useTickets("good");
    for (int round = 0; round < 5; ++round) {
        const Object connection = openAt("/negotiate/page", Schemes{"Negotiate"});
        EXPECT_EQ(receiveDigest(connection).hex(), digestOf(server().page()));
        EXPECT_EQ(status(connection), 200);
        connection.call("closeConnection");
    }
    expectScopeUsable();
}

TEST_F(Negotiate, TicketThatTheServerCannotReadDoesNotLetIn) {
    useTickets("good");
    expectRefused("/outdated/page", {"Negotiate"});
}

TEST_F(Negotiate, TicketStaysAtHomeWhereTheSchemeIsNotAllowed) {
    useTickets("good");
    expectRefused("/negotiate/page", {"Basic", "Digest"});
}

// The server is known to the realm by one name; for another there is no ticket.
TEST_F(Negotiate, OtherNameOfTheServerGetsNoTicket) {
    useTickets("good");
    const Object connection = open(server().url("/negotiate/page"));
    connection.call("setAuthenticationSchemes",
                    {Array::enumeration("vantik.net.http.AuthenticationScheme", Schemes{"Negotiate"}), false});
    receiveBytes(connection);
    EXPECT_EQ(status(connection), 401);
    expectScopeUsable(connection);
}

TEST_F(Negotiate, WithoutATicketTheAnswerIsARefusalUntilOneIsFetched) {
    useTickets("later");
    expectRefused("/negotiate/page", {"Negotiate"});
    expectRefused("/negotiate/page", kEvery);
    realm().fetchTicket("later");
    const Object connection = openAt("/negotiate/page", Schemes{"Negotiate"});
    EXPECT_EQ(receiveDigest(connection).hex(), digestOf(server().page()));
    EXPECT_EQ(status(connection), 200);
    expectScopeUsable(connection);
}

TEST_F(Negotiate, ProgramUsesTheTicketOfItsEnvironment) {
    const std::string url = server().url("/negotiate/page", "localhost");
    const Texts command = {"get", "--fail", "-u", ":", "--auth", "negotiate", "-o", "-", url};
    const Outcome outcome = run(command, {.Environment = realm().environment("good")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(digestOf(outcome.Out), digestOf(server().page()));
    EXPECT_EQ(outcome.Err, "");

    const Outcome refused = run(command, {.Environment = realm().environment("nothing-there")});
    EXPECT_EQ(refused.Status, 22);
    EXPECT_EQ(refused.Out, "");
    EXPECT_THAT(refused.Err, HasSubstr("401"));
}

} // namespace
