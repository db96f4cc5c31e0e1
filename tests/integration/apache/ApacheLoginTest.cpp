// Basic and Digest authentication at Apache httpd.
#include "tests/integration/apache/ApacheFixture.h"

namespace {

using namespace integrationtest;

const Schemes kBasic = {"Basic"};
const Schemes kDigest = {"Digest"};
const Schemes kEither = {"Basic", "Digest"};

struct LoginRow {
    const char* Name;
    std::string Folder;
    Login User;
    Texts Requests;          // as the server saw them
    std::string Challenge{}; // empty: the user is let in
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

class ApacheLogin : public ApacheFixture {};
class ApacheLoginRow : public ApacheFixture, public testing::WithParamInterface<LoginRow> {};

TEST_P(ApacheLoginRow, LetsInOrIsAResponseAndTheScopeGoesOn) {
    const LoginRow& row = GetParam();
    const Object connection = openAt("/" + row.Folder + "/page?" + row.Name);
    logIn(connection, row.User);
    if (row.Challenge.empty()) {
        expectPage(connection);
    } else {
        expectRefusal(connection, row.Challenge);
    }
    EXPECT_EQ(server().requests(row.Name, row.Requests.size()), row.Requests);
    connection.call("closeConnection");

    const Object next = openAt("/open/page");
    expectPage(next);
    expectScopeUsable(next);
}

INSTANTIATE_TEST_SUITE_P(, ApacheLoginRow, testing::ValuesIn(kLoginRows),
                         [](const auto& info) { return std::string(info.param.Name); });

// The older interface allows every scheme by itself, and fails for a refusal.
TEST_F(ApacheLogin, OlderInterfaceAnswersWhateverIsAskedAndFailsForARefusal) {
    for (const std::string folder : {"basic", "digest"}) {
        const std::string path = "/" + folder + "/page?older-" + folder;
        const Object connection = openAt(path, false);
        logIn(connection, {});
        expectPage(connection);
        EXPECT_EQ(server().requests("older-" + folder, 2), (Texts{"GET 401", "GET 200"}));
        expectScopeUsable(connection);

        const Object refused = openAt(path, false);
        logIn(refused, {.Password = "wrong"});
        EXPECT_EQ(describe(failureOf([&] { receiveBytes(refused); })),
                  "VANTIK:webservices:StatusError(401, Unauthorized, " + server().url(path) + ")");
        expectScopeUsable(refused);
    }
}

// After a 401 the handle keeps its options and libcurl's state; what is set anew must count nevertheless.
TEST_F(ApacheLogin, RightPasswordCountsAfterAWrongOneAndTheWrongOneAgainAfterIt) {
    struct Row {
        std::string Folder;
        Schemes Allowed;
        bool SameObject;
    };
    for (const Row& row : {Row{"basic", kBasic, true}, Row{"basic", kBasic, false}, Row{"digest", kDigest, true},
                           Row{"basic", kEither, false}}) {
        SCOPED_TRACE(row.Folder + testing::PrintToString(row.Allowed) + (row.SameObject ? " on the same object" : ""));
        const std::string path = "/" + row.Folder + "/page";
        const Object refused = openAt(path);
        logIn(refused, {.Password = "wrong", .Allowed = row.Allowed});
        expectRefusal(refused, "");
        refused.call("closeConnection");

        const Object connection = row.SameObject ? refused : makeAdapter();
        connection.set("URL", server().url(path));
        connection.call("openConnection");
        logIn(connection, {.Allowed = row.Allowed});
        expectPage(connection);
        connection.call("closeConnection");

        const Object again = openAt(path);
        logIn(again, {.Password = "wrong", .Allowed = row.Allowed});
        expectRefusal(again, "");
        expectScopeUsable(again);
    }
}

TEST_F(ApacheLogin, DigestServesManyRequestsInARow) {
    for (int round = 0; round < 5; ++round) {
        const Object connection = openAt("/digest/page");
        logIn(connection, {.Allowed = kDigest});
        SCOPED_TRACE(round);
        expectPage(connection);
        connection.call("closeConnection");
    }
    expectScopeUsable();
}

TEST_F(ApacheLogin, WorksOnTheCommandLine) {
    const std::string user = std::string(kKnownUser) + ":";
    for (const std::string folder : {"basic", "digest"}) {
        const std::string url = server().url("/" + folder + "/page?get-" + folder);
        expectGot(run({"get", "-u", user + kKnownPassword, "-o", "-", url}), server().page());
        EXPECT_EQ(server().requests("get-" + folder, 2), (Texts{"GET 401", "GET 200"}));
        expectFailed(run({"get", "--fail", "-u", user + "very-wrong", url}), 22,
                     testing::AllOf(testing::StartsWith("netrove: "), testing::HasSubstr("401"),
                                    testing::Not(testing::HasSubstr("very-wrong"))));
    }
}

} // namespace
