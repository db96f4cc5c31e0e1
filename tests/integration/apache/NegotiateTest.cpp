// Negotiate authentication with Kerberos tickets, at Apache httpd.
#include "tests/integration/apache/ApacheFixture.h"
#include "tests/integration/apache/Kerberos.h"

#include <cstdlib>
#include <tuple>

namespace {

using namespace integrationtest;

const Schemes kAlone = {"Negotiate"};
const Schemes kEvery = {"Basic", "Digest", "NTLM", "Negotiate"};

class Negotiate : public ApacheFixture {
protected:
    static void SetUpTestSuite() {
        Realm = std::make_unique<Kerberos>();
        const auto location = [](const std::string& folder, const std::string& keytab) {
            return "<Location /" + folder +
                   ">\n  AuthType GSSAPI\n  AuthName negotiate\n  GssapiAllowedMech krb5\n  GssapiCredStore keytab:" +
                   keytab + "\n  Require valid-user\n</Location>\n";
        };
        start({.Modules = {"auth_gssapi"},
               .Configuration = location("negotiate", Realm->keytab()) + location("outdated", Realm->outdatedKeytab()),
               .Environment = Realm->environment("server")});
        Realm->fetchTicket("good");
    }
    static void TearDownTestSuite() {
        ApacheFixture::TearDownTestSuite();
        Realm.reset();
    }

    void SetUp() override { useTickets("good"); }

    // The libraries below find configuration and tickets in the environment, when they need them.
    static void useTickets(const std::string& cache) {
        for (const auto& [name, value] : Realm->environment(cache)) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
    }

    // The realm knows the server by the name of "localhost".
    Object openAllowing(const Schemes& schemes, const std::string& path, const std::string& host = "localhost") {
        Object connection = open(server().url(path, host));
        allow(connection, schemes);
        return connection;
    }

    void expectRefused(const Object& connection) {
        expectRefusal(connection, "Negotiate");
        expectScopeUsable(connection);
    }

    inline static std::unique_ptr<Kerberos> Realm;
};

// As the only scheme it goes out with the first request.
TEST_F(Negotiate, TicketLetsIn) {
    for (const auto& [query, allowed, seen] :
         {std::tuple("alone", kAlone, Texts{"GET 200"}), std::tuple("every", kEvery, Texts{"GET 401", "GET 200"})}) {
        const Object connection = openAllowing(allowed, std::string("/negotiate/page?") + query);
        expectPage(connection);
        EXPECT_EQ(server().requests(query, seen.size()), seen);
        expectScopeUsable(connection);
    }
    const Object older = open(server().url("/negotiate/page", "localhost"), false);
    expectPage(older);
    expectScopeUsable(older);
}

TEST_F(Negotiate, ContentArrivesWholeAndTheServerKnowsWhoSends) {
    const std::string content = generated(300'000);
    for (const bool provider : {false, true}) {
        const Object connection = openAllowing(kAlone, "/negotiate/echo");
        connection.set("RequestMethod", "PUT");
        setContent(connection, content, provider);
        expectContent(connection, content);
        EXPECT_EQ(field(connection, "X-User"), Kerberos::kPrincipal);
        EXPECT_EQ(field(connection, "X-Scheme"), "Negotiate");
        expectScopeUsable(connection);
    }
}

TEST_F(Negotiate, RequestsInARowAreLetInOnTheSameConnection) {
    for (int round = 0; round < 5; ++round) {
        const Object connection = openAllowing(kAlone, "/negotiate/page");
        expectPage(connection);
        connection.call("closeConnection");
    }
    expectScopeUsable();
}

TEST_F(Negotiate, TicketThatTheServerCannotReadDoesNotLetIn) {
    expectRefused(openAllowing(kAlone, "/outdated/page"));
}

TEST_F(Negotiate, TicketStaysAtHomeWhereTheSchemeIsNotAllowed) {
    expectRefused(openAllowing({"Basic", "Digest"}, "/negotiate/page"));
}

TEST_F(Negotiate, OtherNameOfTheServerGetsNoTicket) {
    expectRefused(openAllowing(kAlone, "/negotiate/page", "127.0.0.1"));
}

TEST_F(Negotiate, WithoutATicketTheAnswerIsARefusalUntilOneIsFetched) {
    useTickets("later");
    expectRefused(openAllowing(kAlone, "/negotiate/page"));
    expectRefused(openAllowing(kEvery, "/negotiate/page"));
    Realm->fetchTicket("later");
    const Object connection = openAllowing(kAlone, "/negotiate/page");
    expectPage(connection);
    expectScopeUsable(connection);
}

TEST_F(Negotiate, ProgramUsesTheTicketOfItsEnvironment) {
    const Texts command = {
        "get", "--fail", "-u", ":", "--auth", "negotiate", "-o", "-", server().url("/negotiate/page", "localhost")};
    expectGot(run(command, {.Environment = Realm->environment("good")}), server().page());
    expectFailed(run(command, {.Environment = Realm->environment("nothing-there")}), 22, testing::HasSubstr("401"));
}

} // namespace
