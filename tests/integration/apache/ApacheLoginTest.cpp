// Basic and Digest authentication at Apache httpd.
#include "tests/integration/apache/ApacheFixture.h"

#include <gmock/gmock.h>

#include <ostream>

namespace {

using namespace integrationtest;
using testing::HasSubstr;
using vantik::Object;

using Texts = std::vector<std::string>;

struct LoginRow {
    std::string Name;
    std::string Folder;
    Login User;
    Texts Requests; // as the server saw them
    std::string Challenge{};
};

void PrintTo(const LoginRow& row, std::ostream* out) {
    *out << row.Name;
}

// Basic as the only scheme goes out with the first request; whatever has to be negotiated costs a request more.
const LoginRow kLoginRows[] = {
    {"BasicAlone", "basic", {.Allowed = Schemes{"Basic"}}, {"GET 200"}},
    {"BasicOrDigestAtBasic", "basic", {.Allowed = Schemes{"Basic", "Digest"}}, {"GET 401", "GET 200"}},
    {"BasicOrDigestAtDigest", "digest", {.Allowed = Schemes{"Basic", "Digest"}}, {"GET 401", "GET 200"}},
    {"DigestAlone", "digest", {.Allowed = Schemes{"Digest"}}, {"GET 401", "GET 200"}},
    {"EverySchemeAtBasic",
     "basic",
     {.Allowed = Schemes{"Basic", "Digest", "NTLM", "Negotiate"}},
     {"GET 401", "GET 200"}},
    {"EverySchemeAtDigest",
     "digest",
     {.Allowed = Schemes{"Basic", "Digest", "NTLM", "Negotiate"}},
     {"GET 401", "GET 200"}},
    {"LatinPasswordAtBasic", "basic", {kLatinUser, kLatinPassword, Schemes{"Basic"}}, {"GET 200"}},
    {"LatinPasswordAtDigest", "digest", {kLatinUser, kLatinPassword, Schemes{"Digest"}}, {"GET 401", "GET 200"}},
    {"NotAskedAtAll", "open", {.Allowed = Schemes{"Basic", "Digest"}}, {"GET 200"}},
    {"BasicThoughNotAsked", "open", {.Allowed = Schemes{"Basic"}}, {"GET 200"}},
};

// The answer stays a response like any other: its page can be read, and the same scope goes on.
const LoginRow kRefusalRows[] = {
    {"NoScheme", "basic", {.Allowed = Schemes{}}, {"GET 401"}, "Basic realm=\"the basic realm\""},
    {"NothingSaid", "basic", {}, {"GET 401"}, "Basic realm=\"the basic realm\""},
    {"BasicWhereDigestIsOffered", "digest", {.Allowed = Schemes{"Basic"}}, {"GET 401"}, "Digest realm=\"digest\""},
    {"DigestWhereBasicIsOffered", "basic", {.Allowed = Schemes{"Digest"}}, {"GET 401"}, "Basic realm"},
    {"WrongPasswordAtBasic", "basic", {kKnownUser, "wrong", Schemes{"Basic"}}, {"GET 401"}, "Basic realm"},
    {"WrongPasswordAtBasicOrDigest",
     "basic",
     {kKnownUser, "wrong", Schemes{"Basic", "Digest"}},
     {"GET 401", "GET 401"},
     "Basic realm"},
    {"WrongPasswordAtDigest",
     "digest",
     {kKnownUser, "wrong", Schemes{"Digest"}},
     {"GET 401", "GET 401"},
     "Digest realm"},
    {"UnknownUserAtBasic", "basic", {"nobody", kKnownPassword, Schemes{"Basic"}}, {"GET 401"}, "Basic realm"},
    {"UnknownUserAtDigest",
     "digest",
     {"nobody", kKnownPassword, Schemes{"Digest"}},
     {"GET 401", "GET 401"},
     "Digest realm"},
    {"NoPasswordAtBasic", "basic", {kKnownUser, "", Schemes{"Basic"}}, {"GET 401"}, "Basic realm"},
    {"NoUserAtDigest", "digest", {"", "", Schemes{"Digest"}}, {"GET 401", "GET 401"}, "Digest realm"},
    {"KnownUserWhoIsNotLetIn",
     "closed",
     {.Allowed = Schemes{"Basic"}},
     {"GET 401"},
     "Basic realm=\"the closed realm\""},
};

template <class Row>
std::string rowName(const testing::TestParamInfo<Row>& info) {
    return info.param.Name;
}

class ApacheLogin : public ApacheFixture {};
class ApacheLetsIn : public ApacheFixture, public testing::WithParamInterface<LoginRow> {};
class ApacheRefuses : public ApacheFixture, public testing::WithParamInterface<LoginRow> {};

TEST_P(ApacheLetsIn, AndGivesThePage) {
    const LoginRow& row = GetParam();
    const Object connection = openAt("/" + row.Folder + "/page?" + row.Name);
    logIn(connection, row.User);
    EXPECT_EQ(receiveDigest(connection).hex(), digestOf(server().page()));
    EXPECT_EQ(status(connection), 200);
    EXPECT_EQ(server().requests(row.Name, row.Requests.size()), row.Requests);
    expectScopeUsable(connection);
}

INSTANTIATE_TEST_SUITE_P(, ApacheLetsIn, testing::ValuesIn(kLoginRows), rowName<LoginRow>);

TEST_P(ApacheRefuses, AndTheAnswerIsAResponse) {
    const LoginRow& row = GetParam();
    const Object connection = openAt("/" + row.Folder + "/page?" + row.Name);
    logIn(connection, row.User);
    EXPECT_NE(receiveBytes(connection).find("<title>401 Unauthorized</title>"), std::string::npos);
    EXPECT_EQ(status(connection), 401);
    EXPECT_THAT(field(connection, "WWW-Authenticate"), HasSubstr(row.Challenge));
    EXPECT_EQ(server().requests(row.Name, row.Requests.size()), row.Requests);
    connection.call("closeConnection");

    const Object next = openAt("/open/page");
    EXPECT_EQ(receiveDigest(next).hex(), digestOf(server().page()));
    EXPECT_EQ(status(next), 200);
    expectScopeUsable(next);
}

INSTANTIATE_TEST_SUITE_P(, ApacheRefuses, testing::ValuesIn(kRefusalRows), rowName<LoginRow>);

// The older interface allows every scheme by itself, and fails for a refusal.
TEST_F(ApacheLogin, OlderInterfaceAnswersWhateverIsAsked) {
    for (const std::string folder : {"basic", "digest"}) {
        const Object connection = openAt("/" + folder + "/page?older-" + folder, false);
        logIn(connection, {});
        EXPECT_EQ(receiveDigest(connection).hex(), digestOf(server().page()));
        EXPECT_EQ(status(connection), 200);
        EXPECT_EQ(server().requests("older-" + folder, 2), (Texts{"GET 401", "GET 200"}));
        expectScopeUsable(connection);
    }
}

TEST_F(ApacheLogin, OlderInterfaceFailsWithTheStatusOfARefusal) {
    for (const std::string folder : {"basic", "digest"}) {
        const std::string path = "/" + folder + "/page";
        const Object connection = openAt(path, false);
        logIn(connection, {.Password = "wrong"});
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
                  "VANTIK:webservices:StatusError(401, Unauthorized, " + server().url(path) + ")");
        expectScopeUsable(connection);
    }
}

struct MendRow {
    std::string Name;
    std::string Folder;
    Schemes Allowed;
    bool SameObject;
};

void PrintTo(const MendRow& row, std::ostream* out) {
    *out << row.Name;
}

const MendRow kMendRows[] = {
    {"BasicOnTheSameObject", "basic", {"Basic"}, true},
    {"BasicOnAnother", "basic", {"Basic"}, false},
    {"DigestOnTheSameObject", "digest", {"Digest"}, true},
    {"DigestOnAnother", "digest", {"Digest"}, false},
    {"EitherOnTheSameObject", "digest", {"Basic", "Digest"}, true},
    {"EitherOnAnother", "basic", {"Basic", "Digest"}, false},
};

class ApacheLoginMended : public ApacheFixture, public testing::WithParamInterface<MendRow> {};

// Behind a 401 the handle keeps its options and libcurl's state; what is set anew must count nevertheless.
TEST_P(ApacheLoginMended, TheRightPasswordCountsAfterAWrongOne) {
    const MendRow& row = GetParam();
    const std::string path = "/" + row.Folder + "/page";
    const Object refused = openAt(path);
    logIn(refused, {.Password = "wrong", .Allowed = row.Allowed});
    receiveBytes(refused);
    EXPECT_EQ(status(refused), 401);
    refused.call("closeConnection");

    const Object connection = row.SameObject ? refused : makeAdapter();
    connection.set("URL", server().url(path));
    connection.call("openConnection");
    logIn(connection, {.Allowed = row.Allowed});
    EXPECT_EQ(receiveDigest(connection).hex(), digestOf(server().page()));
    EXPECT_EQ(status(connection), 200);
    connection.call("closeConnection");

    // And the wrong one again after the right one: nothing is remembered that would let it in.
    const Object again = openAt(path);
    logIn(again, {.Password = "wrong", .Allowed = row.Allowed});
    receiveBytes(again);
    EXPECT_EQ(status(again), 401);
    expectScopeUsable(again);
}

INSTANTIATE_TEST_SUITE_P(, ApacheLoginMended, testing::ValuesIn(kMendRows), rowName<MendRow>);

TEST_F(ApacheLogin, CredentialsStayBehindWhereTheNextRequestAllowsNoScheme) {
    const Object refused = openAt("/basic/echo");
    logIn(refused, {.Password = "wrong", .Allowed = Schemes{"Basic"}});
    receiveBytes(refused);
    EXPECT_EQ(status(refused), 401);
    refused.call("closeConnection");

    const Object next = openAt("/basic/page");
    logIn(next, {.Allowed = Schemes{}});
    receiveBytes(next);
    EXPECT_EQ(status(next), 401);
    expectScopeUsable(next);
}

TEST_F(ApacheLogin, DigestServesManyRequestsInARow) {
    for (int round = 0; round < 20; ++round) {
        const Object connection = openAt("/digest/page");
        logIn(connection, {.Allowed = Schemes{"Digest"}});
        EXPECT_EQ(receiveDigest(connection).hex(), digestOf(server().page())) << round;
        EXPECT_EQ(status(connection), 200) << round;
        connection.call("closeConnection");
    }
    expectScopeUsable();
}

// Credentials go out as windows-1252, so that an account which the server keeps as UTF-8 is another one to it.
TEST_F(ApacheLogin, CharactersOutsideWindows1252AreRefusedBeforeAnythingIsSent) {
    const Object connection = openAt("/basic/page");
    EXPECT_EQ(failureOf([&] { connection.set("Password", "\u043f\u0430\u0440\u043e\u043b\u044c"); }).identifier(),
              "VANTIK:webservices:EncodingFailure");
    expectScopeUsable(connection);
}

} // namespace
