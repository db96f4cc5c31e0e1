// Basic and Digest authentication at Apache httpd.
#include "tests/integration/apache/ApacheFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gmock/gmock.h>

namespace {

using namespace integrationtest;
using testing::HasSubstr;
using testsupport::Outcome;
using testsupport::run;
using vantik::Object;

using Texts = std::vector<std::string>;

const Schemes kBasic = {"Basic"};
const Schemes kDigest = {"Digest"};
const Schemes kEither = {"Basic", "Digest"};

struct LoginRow {
    const char* Name;
    std::string Folder;
    Login User;
    Texts Requests; // as the server saw them
    std::string Challenge{};
};

// clang-format off
// Basic as the only scheme goes out with the first request; whatever has to be negotiated costs a request more.
const LoginRow kLoginRows[] = {
    {"BasicAlone", "basic", {.Allowed = kBasic}, {"GET 200"}},
    {"EitherAtBasic", "basic", {.Allowed = kEither}, {"GET 401", "GET 200"}},
    {"EitherAtDigest", "digest", {.Allowed = kEither}, {"GET 401", "GET 200"}},
    {"DigestAlone", "digest", {.Allowed = kDigest}, {"GET 401", "GET 200"}},
    {"EverySchemeAtDigest", "digest", {.Allowed = Schemes{"Basic", "Digest", "NTLM", "Negotiate"}}, {"GET 401", "GET 200"}},
    {"LatinPasswordAtBasic", "basic", {kLatinUser, kLatinPassword, kBasic}, {"GET 200"}},
    {"LatinPasswordAtDigest", "digest", {kLatinUser, kLatinPassword, kDigest}, {"GET 401", "GET 200"}},
    {"NotAskedAtAll", "open", {.Allowed = kEither}, {"GET 200"}},
    {"BasicThoughNotAsked", "open", {.Allowed = kBasic}, {"GET 200"}},
};

// The answer stays a response like any other: its page can be read, and the same scope goes on.
const LoginRow kRefusalRows[] = {
    {"NoScheme", "basic", {.Allowed = Schemes{}}, {"GET 401"}, "Basic realm=\"the basic realm\""},
    {"NothingSaid", "basic", {}, {"GET 401"}, "Basic realm=\"the basic realm\""},
    {"BasicWhereDigestIsOffered", "digest", {.Allowed = kBasic}, {"GET 401"}, "Digest realm=\"digest\""},
    {"DigestWhereBasicIsOffered", "basic", {.Allowed = kDigest}, {"GET 401"}, "Basic realm"},
    {"WrongPasswordAtBasic", "basic", {kKnownUser, "wrong", kBasic}, {"GET 401"}, "Basic realm"},
    {"WrongPasswordAtEither", "basic", {kKnownUser, "wrong", kEither}, {"GET 401", "GET 401"}, "Basic realm"},
    {"WrongPasswordAtDigest", "digest", {kKnownUser, "wrong", kDigest}, {"GET 401", "GET 401"}, "Digest realm"},
    {"NoPasswordAtBasic", "basic", {kKnownUser, "", kBasic}, {"GET 401"}, "Basic realm"},
    {"NoUserAtDigest", "digest", {"", "", kDigest}, {"GET 401", "GET 401"}, "Digest realm"},
    {"KnownUserWhoIsNotLetIn", "closed", {.Allowed = kBasic}, {"GET 401"}, "Basic realm=\"the closed realm\""},
};
// clang-format on

const auto kNameOf = [](const auto& info) { return std::string(info.param.Name); };

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

INSTANTIATE_TEST_SUITE_P(, ApacheLetsIn, testing::ValuesIn(kLoginRows), kNameOf);

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

INSTANTIATE_TEST_SUITE_P(, ApacheRefuses, testing::ValuesIn(kRefusalRows), kNameOf);

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
    const char* Name;
    std::string Folder;
    Schemes Allowed;
    bool SameObject;
};

class ApacheLoginMended : public ApacheFixture, public testing::WithParamInterface<MendRow> {};

// After a 401 the handle keeps its options and libcurl's state; what is set anew must count nevertheless.
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

INSTANTIATE_TEST_SUITE_P(, ApacheLoginMended,
                         testing::Values(MendRow{"BasicOnTheSameObject", "basic", kBasic, true},
                                         MendRow{"BasicOnAnother", "basic", kBasic, false},
                                         MendRow{"DigestOnTheSameObject", "digest", kDigest, true},
                                         MendRow{"EitherOnAnother", "basic", kEither, false}),
                         kNameOf);

TEST_F(ApacheLogin, DigestServesManyRequestsInARow) {
    for (int round = 0; round < 5; ++round) {
        const Object connection = openAt("/digest/page");
        logIn(connection, {.Allowed = kDigest});
        EXPECT_EQ(receiveDigest(connection).hex(), digestOf(server().page())) << round;
        EXPECT_EQ(status(connection), 200) << round;
        connection.call("closeConnection");
    }
    expectScopeUsable();
}

TEST_F(ApacheLogin, WorksOnTheCommandLine) {
    const std::string user = std::string(kKnownUser) + ":";
    for (const std::string folder : {"basic", "digest"}) {
        const std::string url = server().url("/" + folder + "/page?get-" + folder);
        const Outcome outcome = run({"get", "-u", user + kKnownPassword, "-o", "-", url});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(digestOf(outcome.Out), digestOf(server().page()));
        EXPECT_EQ(outcome.Err, "");
        EXPECT_EQ(server().requests("get-" + folder, 2), (Texts{"GET 401", "GET 200"}));

        const Outcome refused = run({"get", "--fail", "-u", user + "very-wrong", url});
        EXPECT_EQ(refused.Status, 22);
        EXPECT_EQ(refused.Out, "");
        EXPECT_THAT(refused.Err, testing::StartsWith("netrove: "));
        EXPECT_THAT(refused.Err, HasSubstr("401"));
        EXPECT_THAT(refused.Err, testing::Not(HasSubstr("very-wrong")));
    }
}

} // namespace
